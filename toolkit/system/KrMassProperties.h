#pragma once

#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/math/KrXmlVector.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>
#include <toolkit/xml/KrXmlVectorType.h>

#include <array>
#include <string>

class KrEllipsoid;

/// Mass, centre of mass and inertia of a link, in the link's DH frame. A mass of zero means "not given".
class KrMassProperties : public KrXmlObjectOf<KrMassProperties, KrXmlCompoundType>
{
public:
    /// Of a body whose mass is not given.
    KrMassProperties();
    KrMassProperties(const KrMassProperties& other);
    KrMassProperties(KrMassProperties&& other) noexcept;
    KrMassProperties& operator=(const KrMassProperties& other);
    KrMassProperties& operator=(KrMassProperties&& other) noexcept;
    ~KrMassProperties() override;

    double mass() const { return m_mass; } ///< kg
    /// Setters are false, after one message and without a change, for what is not finite.
    bool setMass(double mass);
    const KrVector& centerOfMass() const { return m_centerOfMass; } ///< m
    bool setCenterOfMass(const KrVector& center);
    /// Ixx, Iyy, Izz, Ixy, Ixz, Iyz about the centre of mass, along the axes of the DH frame, kg m^2. The products
    /// are the tensor's elements as they stand in it (Ixy = -integral of x y dm).
    std::array<double, 6> inertia() const;
    bool setInertia(const std::array<double, 6>& inertia);
    bool isGiven() const { return m_mass.value() != 0.0; }

    /// Says why no body can have these values (negative or not finite, principal moments that break the triangle
    /// inequality, with a tolerance of 1e-6 of the largest, an ellipsoid larger or farther away than
    /// Kr::Limits::kLargestBody); empty when one can.
    std::string whyImpossible() const;
    /// Prints that, with the name of the link, unless it was printed since the values were set; true when one can.
    bool tellWhyImpossible(const std::string& linkName) const;

    /// The uniform solid ellipsoid of the same mass and principal moments, at the centre of mass, turned to the
    /// principal axes: semi-axis a = sqrt(5 (I2 + I3 - I1) / (2 m)) and cyclic; at least 1 % of the longest, so that a
    /// rod and a plate are seen. An inertia of zero, a mass in a point, gives an ellipsoid without size or surface.
    ///
    /// @param linkName      for the message
    /// @param ellipsoid     empty when there is none
    /// @param principalAxes centre of mass and principal axes, in the DH frame
    /// @return false when no mass is given (silently) or no body can have these values (after one message, which is not
    ///         repeated before the values have been set anew; copies of a body that was told of stay silent, too)
    bool fillEllipsoid(const std::string& linkName, KrEllipsoid& ellipsoid,
                       KrCoordinateSystemTransformation& principalAxes) const;

    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;

private:
    KrXmlBasicType<double> m_mass = 0.0;
    KrXmlVector m_centerOfMass;
    KrXmlVectorType<double> m_inertia{std::vector<double>(6, 0.0)}; ///< always six
    mutable bool m_isReported = false;                              ///< the message is out; not written
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrMassProperties, KrXmlCompoundType>;
