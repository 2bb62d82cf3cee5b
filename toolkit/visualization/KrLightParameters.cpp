#include <toolkit/visualization/KrLightParameters.h>

// The templates are made here once; the header declares them as extern.
template class KrXmlObjectOf<KrLightParameters, KrXmlCompoundType>;
template class KrXmlObjectOf<KrXmlVectorType<KrLight>, KrXmlObject>;
template class KrXmlVectorType<KrLight>;

// Copies are compiled here, once, and not in every file that includes the header.
KrLightParameters::KrLightParameters() = default;
KrLightParameters::KrLightParameters(const KrLightParameters& other) = default;
KrLightParameters::KrLightParameters(KrLightParameters&& other) noexcept = default;
KrLightParameters& KrLightParameters::operator=(const KrLightParameters& other) = default;
KrLightParameters& KrLightParameters::operator=(KrLightParameters&& other) noexcept = default;
KrLightParameters::~KrLightParameters() = default;

KrXmlToken KrLightParameters::token() const
{
    return {KrXmlNamespace::render(), "lightParameters"};
}

void KrLightParameters::registerComponents()
{
    registerComponent({KrXmlNamespace::render(), "lights"}, m_lights, Presence::Optional);
}
