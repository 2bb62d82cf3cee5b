#include <toolkit/system/KrManipulatorSystemState.h>

template class KrXmlObjectOf<KrManipulatorSystemState, KrXmlCompoundType>;

KrManipulatorSystemState::KrManipulatorSystemState() = default;
KrManipulatorSystemState::KrManipulatorSystemState(const KrManipulatorSystemState& other) = default;
KrManipulatorSystemState::KrManipulatorSystemState(KrManipulatorSystemState&& other) noexcept = default;
KrManipulatorSystemState& KrManipulatorSystemState::operator=(const KrManipulatorSystemState& other) = default;
KrManipulatorSystemState& KrManipulatorSystemState::operator=(KrManipulatorSystemState&& other) noexcept = default;
KrManipulatorSystemState::~KrManipulatorSystemState() = default;

KrXmlToken KrManipulatorSystemState::token() const
{
    return {KrXmlNamespace::system(), "manipulatorSystemState"};
}

void KrManipulatorSystemState::registerComponents()
{
    const std::string& uri = KrXmlNamespace::system();
    registerComponent({uri, "time"}, m_time, Presence::Optional);
    registerComponent({uri, "positionStates"}, m_positionStates, Presence::Optional);
}
