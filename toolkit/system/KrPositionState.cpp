#include <toolkit/system/KrPositionState.h>

KrXmlToken KrPositionState::token() const
{
    return {KrXmlNamespace::system(), "positionState"};
}

void KrPositionState::registerComponents()
{
    const std::string& uri = KrXmlNamespace::system();
    registerComponent({uri, "baseTransformation"}, m_base, Presence::Optional);
    registerComponent({uri, "jointPositions"}, m_jointPositions, Presence::Optional);
}
