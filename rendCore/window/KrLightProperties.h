#pragma once

#include <osg/observer_ptr>

class KrColor;
class KrLight;

namespace osg
{
class Light;
class LightSource;
} // namespace osg

/// One OpenGL light: values in single precision, a dirty flag, and the scene objects that show it.
///
/// The scene owns the light source once the caller of `setGL` has attached it; this object only observes it. Copies
/// refer to the same scene objects. For the rendering thread of the owning window.
class KrLightProperties
{
public:
    /// What every OpenGL has, and most no more; a higher number is an error in every frame.
    static constexpr unsigned int kNumGLLights = 8;

    KrLightProperties() = default;
    KrLightProperties(const KrLightProperties&) = default;
    // The order of the virtual operations is part of the interface.
    virtual ~KrLightProperties() = default;
    /// Sends a spot light through the life of a light and back. False, after one message, when something is wrong.
    virtual bool selfTest() const;
    KrLightProperties& operator=(const KrLightProperties&) = default;
    /// Every value equal, the dirty flags equal, the same scene objects. NaN equals nothing.
    bool operator==(const KrLightProperties& other) const;
    bool operator!=(const KrLightProperties& other) const { return !(*this == other); }

    /// Loads everything from `light`, angles becoming degrees, and marks the values changed.
    void setLightPara(const KrLight& light, unsigned int lightNumber);
    /// Writes red, green, blue, alpha into rgba[0] to rgba[3].
    void setColor(const KrColor& color, float* rgba) const;
    /// Moves a light that follows the eye to `eye` (three doubles, world frame, m); nothing for any other light.
    void setAtEye(const double* eye);
    /// Brings the scene objects up to date.
    ///
    /// A light that is off, or whose number OpenGL does not have (eight or above), is masked out of the scene.
    /// @return the light source when this call made it: the caller puts it under the scene's root; else null
    osg::LightSource* setGL();

    // The values as setLightPara loaded them; the arrays are borrowed. Colours are red, green, blue, alpha, 0 to 1.

    /// Whether the light is switched on.
    bool isEnabled() const { return m_enabled; }
    int lightNumber() const { return m_lightNumber; } ///< -1 before `setLightPara`
    /// Whether the light follows the eye, see setAtEye.
    bool isAtEye() const { return m_atEye; }
    bool isDirty() const { return m_dirty; } ///< changed since the last `setGL` that applied the values
    /// The light that the lamp adds everywhere.
    const float* ambient() const { return m_ambient; }
    /// The light that a dull surface scatters.
    const float* diffuse() const { return m_diffuse; }
    /// The light that a shining surface mirrors.
    const float* specular() const { return m_specular; }
    const float* position() const { return m_position; }   ///< x, y, z, w; w is 0 for a directional light
    const float* direction() const { return m_direction; } ///< three floats, of a spot light
    /// How much the light gathers in the middle of its cone, 0 to 128; 0 is even.
    float spotExponent() const { return m_spotExponent; }
    float spotCutoff() const { return m_spotCutoff; } ///< degrees; never given to the scene's light
    /// Light fades by 1 / (constant + linear d + quadratic d^2), d being the distance in metres.
    float constantAttenuation() const { return m_constantAttenuation; }
    float linearAttenuation() const { return m_linearAttenuation; }
    float quadraticAttenuation() const { return m_quadraticAttenuation; }
    /// The scene's light; null when there is none yet or it is gone.
    osg::Light* light() const { return m_light.valid() ? m_light.get() : nullptr; }
    /// The scene's light source; null when there is none yet or it is gone.
    osg::LightSource* lightSource() const { return m_lightSource.valid() ? m_lightSource.get() : nullptr; }

private:
    void applyTo(osg::Light& target) const;
    bool hasGLNumber() const;

    bool m_enabled = false;
    int m_lightNumber = -1;
    bool m_atEye = false;
    bool m_dirty = true;
    float m_ambient[4] = {0.1f, 0.1f, 0.1f, 1.0f};
    /// Kept: the reddish default. `diffuse` tells it until a light is loaded, and no light shines before.
    float m_diffuse[4] = {0.7f, 0.5f, 0.5f, 1.0f};
    float m_specular[4] = {0.5f, 0.5f, 0.5f, 1.0f};
    float m_position[4] = {0.0f, 0.0f, 0.0f, 1.0f};
    float m_direction[3] = {0.0f, 0.0f, -1.0f};
    float m_spotExponent = 0.0f;
    float m_spotCutoff = 180.0f;
    float m_constantAttenuation = 1.0f;
    float m_linearAttenuation = 0.0f;
    float m_quadraticAttenuation = 0.0f;
    osg::observer_ptr<osg::Light> m_light;
    osg::observer_ptr<osg::LightSource> m_lightSource;
};
