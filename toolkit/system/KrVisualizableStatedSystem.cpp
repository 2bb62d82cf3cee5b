#include <toolkit/system/KrVisualizableStatedSystem.h>

KrXmlToken KrVisualizableStatedSystem::token() const
{
    return {KrXmlNamespace::system(), "visualizableStatedSystem"};
}

void KrVisualizableStatedSystem::registerComponents()
{
    const std::string& uri = KrXmlNamespace::system();
    registerComponent({uri, "statedSystem"}, m_statedSystem);
    // A system without parameters is shown as a new window would.
    registerComponent({uri, "visualizationParameters"}, m_visualizationParameters, Presence::Optional);
}
