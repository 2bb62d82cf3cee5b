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
    KrLight();
    KrLight(const KrLight& other);
    KrLight(KrLight&& other) noexcept;
    KrLight& operator=(const KrLight& other);
    KrLight& operator=(KrLight&& other) noexcept;
    ~KrLight() override;

    bool isAtEye() const { return m_atEye.value(); } ///< follows the eye point (headlight)
    void setAtEye(bool on) { m_atEye = on; }
    bool isOn() const { return m_on.value(); }
    void setOn(bool on) { m_on = on; }
    const KrColor& ambient() const { return m_ambient; }
    bool setAmbient(const KrColor& color);
    const KrColor& diffuse() const { return m_diffuse; }
    bool setDiffuse(const KrColor& color);
    const KrColor& specular() const { return m_specular; }
    bool setSpecular(const KrColor& color);
    /// World frame, m; for a directional light the direction towards the light.
    const KrVector& position() const { return m_position; }
    bool setPosition(const KrVector& position);
    bool isPositional() const { return m_positional.value(); }
    void setPositional(bool on) { m_positional = on; }
    const KrVector& direction() const { return m_direction; } ///< of a spot light, world frame
    bool setDirection(const KrVector& direction);
    double spotExponent() const { return m_spotExponent; }
    bool setSpotExponent(double exponent);
    double spotCutoff() const { return m_spotCutoff; } ///< rad, half the cone's angle; pi for no cone
    bool setSpotCutoff(double angle);
    double constantAttenuation() const { return m_constantAttenuation; }
    bool setConstantAttenuation(double factor);
    double linearAttenuation() const { return m_linearAttenuation; } ///< 1/m
    bool setLinearAttenuation(double factor);
    double quadraticAttenuation() const { return m_quadraticAttenuation; } ///< 1/m^2
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
