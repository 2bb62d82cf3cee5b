#pragma once

#include <toolkit/geometry/KrCoordinateSystemTransformation.h>
#include <toolkit/geometry/KrXmlVector.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>

/// A point of view: where the eye is, what it looks at, which way is up. World frame, metres.
class KrPovParameters : public KrXmlObjectOf<KrPovParameters, KrXmlCompoundType>
{
public:
    KrPovParameters();
    KrPovParameters(const KrPovParameters& other);
    KrPovParameters(KrPovParameters&& other) noexcept;
    KrPovParameters& operator=(const KrPovParameters& other);
    KrPovParameters& operator=(KrPovParameters&& other) noexcept;
    ~KrPovParameters() override;

    const KrVector& eyepoint() const { return m_eyepoint; }
    void setEyepoint(const KrVector& eye) { m_eyepoint = eye; }
    const KrVector& centerOfInterest() const { return m_centerOfInterest; }
    void setCenterOfInterest(const KrVector& center) { m_centerOfInterest = center; }
    const KrVector& up() const { return m_up; }
    void setUp(const KrVector& up) { m_up = up; }
    /// Full vertical angle, rad, in (0, pi).
    double fieldOfView() const { return m_fieldOfView; }
    void setFieldOfView(double angle) { m_fieldOfView = angle; }
    /// From the eye to the centre of interest.
    double viewingDistance() const;

    /// Looks along the -z axis of `view` (camera to world, y up) from its origin at what is `distance` m away.
    void setFromViewTransformationAndDistance(const KrCoordinateSystemTransformation& view, double distance);

    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlReader& reader) const override;

private:
    KrXmlVector m_eyepoint = KrVector(3.0, -3.0, 2.0);
    KrXmlVector m_centerOfInterest;
    KrXmlVector m_up = KrVector(0.0, 0.0, 1.0);
    KrXmlBasicType<double> m_fieldOfView = 0.78539816339744831; ///< pi / 4
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrPovParameters, KrXmlCompoundType>;
