#include <toolkit/system/KrManipulatorSystemState.h>

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
