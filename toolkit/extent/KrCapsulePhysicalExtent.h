#pragma once

#include <toolkit/extent/KrBasePhysicalExtent.h>

/// A cylinder about the z axis with a half ball at each end; `length` is that of the cylinder alone.
class KrCapsulePhysicalExtent : public KrXmlObjectOf<KrCapsulePhysicalExtent, KrBasePhysicalExtent>
{
public:
    KrCapsulePhysicalExtent() = default;
    /// Sizes in m. One that is negative or not finite gives, after one message, an extent without a surface.
    KrCapsulePhysicalExtent(double radius, double length);

    /// Sizes in m, none below 0.
    double radius() const { return m_radius; }
    double length() const { return m_length; }
    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;
    boost::shared_ptr<KrTriPhysicalExtent> makeTriangles() const override;

private:
    KrXmlBasicType<double> m_radius = 0.5;
    KrXmlBasicType<double> m_length = 1.0;
};
