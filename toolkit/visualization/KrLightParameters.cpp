#include <toolkit/visualization/KrLightParameters.h>

KrXmlToken KrLightParameters::token() const
{
    return {KrXmlNamespace::render(), "lightParameters"};
}

void KrLightParameters::registerComponents()
{
    registerComponent({KrXmlNamespace::render(), "lights"}, m_lights, Presence::Optional);
}
