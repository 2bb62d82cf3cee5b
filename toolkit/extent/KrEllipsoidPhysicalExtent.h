#pragma once

#include <toolkit/extent/KrBasePhysicalExtent.h>
#include <toolkit/math/KrXmlVector.h>

/// An ellipsoid about the origin of the extent frame, its axes along the frame's.
class KrEllipsoidPhysicalExtent : public KrXmlObjectOf<KrEllipsoidPhysicalExtent, KrBasePhysicalExtent>
{
public:
    KrEllipsoidPhysicalExtent() = default;
    /// Half the lengths along x, y and z, m. One that is negative or not finite gives, after one message, an extent
    /// without a surface.
    explicit KrEllipsoidPhysicalExtent(const KrVector& semiAxes);

    /// Half of the sizes along x, y and z, m, none below 0.
    const KrVector& semiAxes() const { return m_semiAxes; }
    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;
    boost::shared_ptr<KrTriPhysicalExtent> makeTriangles() const override;

private:
    KrXmlVector m_semiAxes = KrVector(0.5, 0.5, 0.5);
};
