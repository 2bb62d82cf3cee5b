#pragma once

#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/math/KrXmlVector.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>

/// A point of view: where the eye is, what it looks at, which way is up. World frame, metres.
///
/// Each setter is false, after one message and without a change, for what is not finite and for what it says.
class KrPovParameters : public KrXmlObjectOf<KrPovParameters, KrXmlCompoundType>
{
public:
    /// A point of view as a new window has it.
    KrPovParameters();
    KrPovParameters(const KrPovParameters& other);
    KrPovParameters(KrPovParameters&& other) noexcept;
    KrPovParameters& operator=(const KrPovParameters& other);
    KrPovParameters& operator=(KrPovParameters&& other) noexcept;
    ~KrPovParameters() override;

    /// Where the eye is, and the place it looks at.
    const KrVector& eyepoint() const { return m_eyepoint; }
    bool setEyepoint(const KrVector& eye);
    const KrVector& centerOfInterest() const { return m_centerOfInterest; }
    bool setCenterOfInterest(const KrVector& center);
    /// The direction that is upwards in the picture.
    const KrVector& up() const { return m_up; }
    /// Of any length but zero.
    bool setUp(const KrVector& up);
    /// Full vertical angle, rad, in (0, pi).
    double fieldOfView() const { return m_fieldOfView; }
    bool setFieldOfView(double angle);
    /// From the eye to the centre of interest.
    double viewingDistance() const;

    /// Looks along the -z axis of `view` (camera to world, y up) from its origin at what is `distance` m away.
    bool setFromViewTransformationAndDistance(const KrCoordinateSystemTransformation& view, double distance);

    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;

private:
    KrXmlVector m_eyepoint = KrVector(3.0, -3.0, 2.0);
    KrXmlVector m_centerOfInterest;
    KrXmlVector m_up = KrVector(0.0, 0.0, 1.0);
    KrXmlBasicType<double> m_fieldOfView = 0.78539816339744831; ///< pi / 4
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrPovParameters, KrXmlCompoundType>;
