#include <toolkit/visualization/KrLight.h>

#include <toolkit/foundation/private/KrNumberCheck.h>
#include <toolkit/xml/KrXmlReader.h>

#include <cmath>

namespace
{

// For the setters: a channel outside 0 to 1 is refused, with one message that names the method.
bool isColor(const char* method, const KrColor& color)
{
    return Kr::NumberCheck::areShares(method, {color.red(), color.green(), color.blue(), color.alpha()});
}

} // namespace

template class KrXmlObjectOf<KrLight, KrXmlCompoundType>;

// Copies are compiled here, once, and not in every file that includes the header.
KrLight::KrLight() = default;
KrLight::KrLight(const KrLight& other) = default;
KrLight::KrLight(KrLight&& other) noexcept = default;
KrLight& KrLight::operator=(const KrLight& other) = default;
KrLight& KrLight::operator=(KrLight&& other) noexcept = default;
KrLight::~KrLight() = default;

// Colours are checked here, although KrColor takes any numbers: OpenGL would clamp them in silence.
bool KrLight::setAmbient(const KrColor& color)
{
    // The setters assign only behind a passed check, so that a refused value leaves the light as it was.
    return isColor("KrLight::setAmbient", color) && (m_ambient = color, true);
}

bool KrLight::setDiffuse(const KrColor& color)
{
    return isColor("KrLight::setDiffuse", color) && (m_diffuse = color, true);
}

bool KrLight::setSpecular(const KrColor& color)
{
    return isColor("KrLight::setSpecular", color) && (m_specular = color, true);
}

bool KrLight::setPosition(const KrVector& position)
{
    return Kr::NumberCheck::areFinite("KrLight::setPosition", {position.x(), position.y(), position.z()}) &&
           (m_position = position, true);
}

bool KrLight::setDirection(const KrVector& direction)
{
    // Of any length: a direction need not be normalised.
    return Kr::NumberCheck::areFinite("KrLight::setDirection", {direction.x(), direction.y(), direction.z()}) &&
           (m_direction = direction, true);
}

// Sizes: finite and not below 0. OpenGL's own upper limits are for who hands the light over.
bool KrLight::setSpotExponent(double exponent)
{
    return Kr::NumberCheck::areSizes("KrLight::setSpotExponent", {exponent}) && (m_spotExponent = exponent, true);
}

bool KrLight::setSpotCutoff(double angle)
{
    return Kr::NumberCheck::areSizes("KrLight::setSpotCutoff", {angle}) && (m_spotCutoff = angle, true);
}

// The light of a lamp d away is divided by constant + linear d + quadratic d^2 (OpenGL 2.1, section 2.14.1).
bool KrLight::setConstantAttenuation(double factor)
{
    return Kr::NumberCheck::areSizes("KrLight::setConstantAttenuation", {factor}) &&
           (m_constantAttenuation = factor, true);
}

bool KrLight::setLinearAttenuation(double factor)
{
    return Kr::NumberCheck::areSizes("KrLight::setLinearAttenuation", {factor}) && (m_linearAttenuation = factor, true);
}

bool KrLight::setQuadraticAttenuation(double factor)
{
    return Kr::NumberCheck::areSizes("KrLight::setQuadraticAttenuation", {factor}) &&
           (m_quadraticAttenuation = factor, true);
}

KrXmlToken KrLight::token() const
{
    return {KrXmlNamespace::render(), "light"};
}

void KrLight::registerComponents()
{
    // What a document leaves out keeps the value of a new light. Colours check their range themselves.
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

// Of what was read: the limits are those of the setters.
bool KrLight::validate(KrXmlRefusal& refusal) const
{
    // Asked again here, for documents: they reach the values without the setters.
    if (!position().isFinite() || !direction().isFinite()) {
        return refusal.fail("a light's position and direction are finite");
    }
    for (const double value :
         {spotExponent(), spotCutoff(), constantAttenuation(), linearAttenuation(), quadraticAttenuation()}) {
        // Written so that NaN fails too.
        if (!(value >= 0.0 && std::isfinite(value))) {
            return refusal.fail("a light's exponent, cut-off angle and attenuations are finite and not below 0, not %g",
                                value);
        }
    }
    return true;
}
