#include <toolkit/system/KrVisualizableStatedSystem.h>

KrXmlToken KrVisualizableStatedSystem::token() const
{
    return {KrXmlNamespace::system(), "visualizableStatedSystem"};
}

void KrVisualizableStatedSystem::registerComponents()
{
    const std::string& uri = KrXmlNamespace::system();
    registerComponent({uri, "statedSystem"}, m_statedSystem);
    registerComponent({uri, "visualizationParameters"}, m_visualizationParameters, Presence::Optional);
}
