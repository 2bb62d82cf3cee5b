#pragma once

#include <toolkit/math/KrAngle.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/math/KrXmlVector.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>

/// One light, as OpenGL's fixed pipeline understands it.
///
/// A setter that tells so is false, after one message and without a change, for a number that a light cannot have:
/// colours lie between 0 and 1, everything else is finite, and sizes, angles and factors are not below 0.
class KrLight : public KrXmlObjectOf<KrLight, KrXmlCompoundType>
{
public:
    /// White, directional, from the world's z axis, on; no part of the light from everywhere.
    KrLight();
    KrLight(const KrLight& other);
    KrLight(KrLight&& other) noexcept;
    KrLight& operator=(const KrLight& other);
    KrLight& operator=(KrLight&& other) noexcept;
    ~KrLight() override;

    /// Follows the eye point: a headlight.
    bool isAtEye() const { return m_atEye.value(); }
    void setAtEye(bool on) { m_atEye = on; }
    /// A light that is off keeps its number, and lights nothing.
    bool isOn() const { return m_on.value(); }
    void setOn(bool on) { m_on = on; }
    /// What it adds to everything, what it casts on surfaces that face it, and the colour of its highlights.
    const KrColor& ambient() const { return m_ambient; }
    bool setAmbient(const KrColor& color);
    const KrColor& diffuse() const { return m_diffuse; }
    bool setDiffuse(const KrColor& color);
    const KrColor& specular() const { return m_specular; }
    bool setSpecular(const KrColor& color);
    /// World frame, m; for a directional light the direction towards the light.
    const KrVector& position() const { return m_position; }
    bool setPosition(const KrVector& position);
    /// True for a lamp at `position`, false for parallel light.
    bool isPositional() const { return m_positional.value(); }
    void setPositional(bool on) { m_positional = on; }
    /// Where a spot light points, world frame; any length but zero has a meaning.
    const KrVector& direction() const { return m_direction; }
    bool setDirection(const KrVector& direction);
    /// How a spot light fades from the middle of its cone: intensity is the cosine of the angle to that power. OpenGL
    /// takes 0 (not at all) to 128.
    double spotExponent() const { return m_spotExponent; }
    bool setSpotExponent(double exponent);
    /// Half the angle of a spot light's cone, rad: up to pi / 2; pi for no cone.
    double spotCutoff() const { return m_spotCutoff; }
    bool setSpotCutoff(double angle);
    /// The light at a distance d m is divided by constant + linear d + quadratic d^2: a number, 1/m and 1/m^2. For
    /// positional lights.
    double constantAttenuation() const { return m_constantAttenuation; }
    bool setConstantAttenuation(double factor);
    double linearAttenuation() const { return m_linearAttenuation; }
    bool setLinearAttenuation(double factor);
    double quadraticAttenuation() const { return m_quadraticAttenuation; }
    bool setQuadraticAttenuation(double factor);

    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;

private:
    KrXmlBasicType<bool> m_atEye = false;
    KrXmlBasicType<bool> m_on = true;
    KrColor m_ambient = KrColor(0.0, 0.0, 0.0);
    KrColor m_diffuse = KrColor(1.0, 1.0, 1.0);
    KrColor m_specular = KrColor(1.0, 1.0, 1.0);
    KrXmlVector m_position = KrVector(0.0, 0.0, 1.0);
    KrXmlBasicType<bool> m_positional = false;
    KrXmlVector m_direction = KrVector(0.0, 0.0, -1.0);
    KrXmlBasicType<double> m_spotExponent = 0.0;
    KrXmlBasicType<double> m_spotCutoff = Kr::Angle::kPi;
    KrXmlBasicType<double> m_constantAttenuation = 1.0;
    KrXmlBasicType<double> m_linearAttenuation = 0.0;
    KrXmlBasicType<double> m_quadraticAttenuation = 0.0;
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrLight, KrXmlCompoundType>;
