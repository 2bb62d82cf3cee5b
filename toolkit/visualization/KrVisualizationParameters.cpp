#include <toolkit/visualization/KrVisualizationParameters.h>

template class KrXmlObjectOf<KrVisualizationParameters, KrXmlCompoundType>;

// Copies are compiled here, once, and not in every file that includes the header.
KrVisualizationParameters::KrVisualizationParameters() = default;
KrVisualizationParameters::KrVisualizationParameters(const KrVisualizationParameters& other) = default;
KrVisualizationParameters::KrVisualizationParameters(KrVisualizationParameters&& other) noexcept = default;
KrVisualizationParameters& KrVisualizationParameters::operator=(const KrVisualizationParameters& other) = default;
KrVisualizationParameters& KrVisualizationParameters::operator=(KrVisualizationParameters&& other) noexcept = default;
KrVisualizationParameters::~KrVisualizationParameters() = default;

KrXmlToken KrVisualizationParameters::token() const
{
    return {KrXmlNamespace::render(), "visualizationParameters"};
}

void KrVisualizationParameters::registerComponents()
{
    const std::string& uri = KrXmlNamespace::render();
    // Each part may be left out: a document may hold nothing but a point of view.
    registerComponent({uri, "povParameters"}, m_pov, Presence::Optional);
    registerComponent({uri, "renderParameters"}, m_render, Presence::Optional);
    registerComponent({uri, "lightParameters"}, m_light, Presence::Optional);
    registerComponent({uri, "guiObjectParameters"}, m_gui, Presence::Optional);
}
