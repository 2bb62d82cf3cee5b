#include <toolkit/system/KrManipulatorSystemState.h>

#include <toolkit/foundation/private/KrNumberCheck.h>
#include <toolkit/xml/KrXmlRefusal.h>

#include <cmath>

template class KrXmlObjectOf<KrManipulatorSystemState, KrXmlCompoundType>;

// Copies are compiled here, once, and not in every file that includes the header.
KrManipulatorSystemState::KrManipulatorSystemState() = default;
KrManipulatorSystemState::KrManipulatorSystemState(const KrManipulatorSystemState& other) = default;
KrManipulatorSystemState::KrManipulatorSystemState(KrManipulatorSystemState&& other) noexcept = default;
KrManipulatorSystemState& KrManipulatorSystemState::operator=(const KrManipulatorSystemState& other) = default;
KrManipulatorSystemState& KrManipulatorSystemState::operator=(KrManipulatorSystemState&& other) noexcept = default;
KrManipulatorSystemState::~KrManipulatorSystemState() = default;

// In seconds, from whatever beginning the application has.
bool KrManipulatorSystemState::setTime(double time)
{
    return Kr::NumberCheck::areFinite("KrManipulatorSystemState::setTime", {time}) && (m_time = time, true);
}

bool KrManipulatorSystemState::validate(KrXmlRefusal& refusal) const
{
    // Position states judge themselves when they are read.
    return std::isfinite(time()) || refusal.fail("the time is not finite");
}

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
