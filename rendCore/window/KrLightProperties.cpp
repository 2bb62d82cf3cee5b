#include <rendCore/window/KrLightProperties.h>

#include <toolkit/math/KrAngle.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/math/KrVector.h>
#include <toolkit/visualization/KrLight.h>

#include <osg/LightSource>
#include <osg/StateAttribute>
#include <osg/Vec3>
#include <osg/Vec4>
#include <osg/ref_ptr>

#include <algorithm>
#include <cstddef>

namespace
{

constexpr osg::Node::NodeMask kShown = 0xffffffff;
constexpr osg::Node::NodeMask kMaskedOut = 0;

// OpenGL's lights are in single precision.
void narrow(const KrVector& from, float* to)
{
    to[0] = static_cast<float>(from.x());
    to[1] = static_cast<float>(from.y());
    to[2] = static_cast<float>(from.z());
}

template <std::size_t N>
bool same(const float (&a)[N], const float (&b)[N])
{
    return std::equal(a, a + N, b);
}

osg::Vec4 vec4(const float (&v)[4])
{
    return {v[0], v[1], v[2], v[3]};
}

} // namespace

// Kept: lights that differ in being dirty are not equal, and scene objects count by identity. Clients learn by it
// whether two stand for one light of the scene; nothing in the libraries compares lights.
bool KrLightProperties::operator==(const KrLightProperties& other) const
{
    return m_spotExponent == other.m_spotExponent && m_spotCutoff == other.m_spotCutoff &&
           m_constantAttenuation == other.m_constantAttenuation && m_linearAttenuation == other.m_linearAttenuation &&
           m_quadraticAttenuation == other.m_quadraticAttenuation && m_enabled == other.m_enabled &&
           m_lightNumber == other.m_lightNumber && m_atEye == other.m_atEye && m_dirty == other.m_dirty &&
           light() == other.light() && lightSource() == other.lightSource() && same(m_diffuse, other.m_diffuse) &&
           same(m_specular, other.m_specular) && same(m_position, other.m_position) &&
           same(m_ambient, other.m_ambient) && same(m_direction, other.m_direction);
}

void KrLightProperties::setLightPara(const KrLight& light, unsigned int lightNumber)
{
    m_atEye = light.isAtEye();
    m_enabled = light.isOn();
    m_lightNumber = static_cast<int>(lightNumber);
    // Kept: through `setColor`, so that clients who call it get the very floats that a light has.
    setColor(light.ambient(), m_ambient);
    setColor(light.diffuse(), m_diffuse);
    setColor(light.specular(), m_specular);
    narrow(light.position(), m_position);
    // 1: a place; 0: a direction towards the lamp, as in OpenGL.
    m_position[3] = light.isPositional() ? 1.0f : 0.0f;
    narrow(light.direction(), m_direction);
    m_spotExponent = static_cast<float>(light.spotExponent());
    // Radians there, degrees in OpenGL.
    m_spotCutoff = static_cast<float>(180.0f * light.spotCutoff() / Kr::Angle::kPi);
    m_constantAttenuation = static_cast<float>(light.constantAttenuation());
    m_linearAttenuation = static_cast<float>(light.linearAttenuation());
    m_quadraticAttenuation = static_cast<float>(light.quadraticAttenuation());
    m_dirty = true;
}

void KrLightProperties::setColor(const KrColor& color, float* rgba) const
{
    rgba[0] = static_cast<float>(color.red());
    rgba[1] = static_cast<float>(color.green());
    rgba[2] = static_cast<float>(color.blue());
    rgba[3] = static_cast<float>(color.alpha());
}

void KrLightProperties::setAtEye(const double* eye)
{
    if (!m_atEye) {
        return;
    }
    for (int i = 0; i < 3; ++i) {
        const float coordinate = static_cast<float>(eye[i]);
        if (m_position[i] != coordinate) {
            m_position[i] = coordinate;
            m_dirty = true;
        }
    }
    // Kept: does not mark the light dirty. A directional light that stands at the eye already goes on shining from its
    // direction until something else changes.
    m_position[3] = 1.0f;
}

osg::LightSource* KrLightProperties::setGL()
{
    osg::LightSource* source = lightSource();
    if (!m_enabled) {
        // Kept: a light that was never on makes nothing when it is switched off, so that the scene's root gets no child
        // for it.
        if (source != nullptr) {
            source->setLocalStateSetModes(osg::StateAttribute::OFF);
            // The modes act only below the light source, which has no children: the mask is what switches it off.
            source->setNodeMask(kMaskedOut);
        }
        return nullptr;
    }
    // Kept: a light that is switched off has stayed dirty, so that what was loaded meanwhile is applied when it is on
    // again.
    if (!m_dirty) {
        return nullptr;
    }
    const bool isNew = source == nullptr;
    // The caller takes a new light source into the scene: no reference may be held and dropped here.
    if (isNew) {
        source = new osg::LightSource;
        m_lightSource = source;
    }
    if (isNew || light() == nullptr) {
        const osg::ref_ptr<osg::Light> fresh = new osg::Light;
        source->setLight(fresh);
        m_light = fresh;
    }
    applyTo(*light());
    source->setLocalStateSetModes(osg::StateAttribute::ON);
    // OpenGL has eight lights: one with another number would be an error in every frame.
    source->setNodeMask(hasGLNumber() ? kShown : kMaskedOut);
    m_dirty = false;
    return isNew ? source : nullptr;
}

void KrLightProperties::applyTo(osg::Light& target) const
{
    // Kept: the spot cutoff is not copied. Every light shines all around in clients' pictures, and `spotCutoff` alone
    // tells the value.
    target.setLightNum(m_lightNumber);
    target.setPosition(vec4(m_position));
    target.setAmbient(vec4(m_ambient));
    target.setDiffuse(vec4(m_diffuse));
    target.setSpecular(vec4(m_specular));
    target.setDirection(osg::Vec3(m_direction[0], m_direction[1], m_direction[2]));
    target.setConstantAttenuation(m_constantAttenuation);
    target.setLinearAttenuation(m_linearAttenuation);
    target.setQuadraticAttenuation(m_quadraticAttenuation);
    target.setSpotExponent(m_spotExponent);
}

bool KrLightProperties::hasGLNumber() const
{
    return m_lightNumber >= 0 && m_lightNumber < static_cast<int>(kNumGLLights);
}
