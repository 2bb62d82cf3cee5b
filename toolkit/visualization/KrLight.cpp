#include <toolkit/visualization/KrLight.h>

#include <toolkit/xml/KrXmlReader.h>

#include <cmath>

template class KrXmlObjectOf<KrLight, KrXmlCompoundType>;

KrLight::KrLight() = default;
KrLight::KrLight(const KrLight& other) = default;
KrLight::KrLight(KrLight&& other) noexcept = default;
KrLight& KrLight::operator=(const KrLight& other) = default;
KrLight& KrLight::operator=(KrLight&& other) noexcept = default;
KrLight::~KrLight() = default;

KrXmlToken KrLight::token() const
{
    return {KrXmlNamespace::render(), "light"};
}

void KrLight::registerComponents()
{
    const std::string& uri = KrXmlNamespace::render();
    registerComponent({uri, "atEye"}, m_atEye, Presence::Optional);
    registerComponent({uri, "on"}, m_on, Presence::Optional);
    registerComponent({uri, "ambient"}, m_ambient, Presence::Optional);
    registerComponent({uri, "diffuse"}, m_diffuse, Presence::Optional);
    registerComponent({uri, "specular"}, m_specular, Presence::Optional);
    registerComponent({uri, "position"}, m_position, Presence::Optional);
    registerComponent({uri, "positional"}, m_positional, Presence::Optional);
    registerComponent({uri, "direction"}, m_direction, Presence::Optional);
    registerComponent({uri, "spotExponent"}, m_spotExponent, Presence::Optional);
    registerComponent({uri, "spotCutoff"}, m_spotCutoff, Presence::Optional);
    registerComponent({uri, "constantAttenuation"}, m_constantAttenuation, Presence::Optional);
    registerComponent({uri, "linearAttenuation"}, m_linearAttenuation, Presence::Optional);
    registerComponent({uri, "quadraticAttenuation"}, m_quadraticAttenuation, Presence::Optional);
}

bool KrLight::validate(KrXmlReader& reader) const
{
    if (!position().isFinite() || !direction().isFinite()) {
        return reader.fail("a light's position and direction are finite");
    }
    for (const double value :
         {spotExponent(), spotCutoff(), constantAttenuation(), linearAttenuation(), quadraticAttenuation()}) {
        // Written so that NaN fails too.
        if (!(value >= 0.0 && std::isfinite(value))) {
            return reader.fail("a light's exponent, cut-off angle and attenuations are finite and not below 0, not %g",
                               value);
        }
    }
    return true;
}
