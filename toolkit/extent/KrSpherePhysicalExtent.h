#pragma once

#include <toolkit/extent/KrBasePhysicalExtent.h>

/// A ball about the origin of the extent frame. A radius of zero has no surface.
class KrSpherePhysicalExtent : public KrXmlObjectOf<KrSpherePhysicalExtent, KrBasePhysicalExtent>
{
public:
    KrSpherePhysicalExtent() = default;
    /// In m. A radius that is negative or not finite gives, after one message, an extent without a surface.
    explicit KrSpherePhysicalExtent(double radius);

    /// In m, not below 0.
    double radius() const { return m_radius; }
    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;
    boost::shared_ptr<KrTriPhysicalExtent> makeTriangles() const override;

private:
    KrXmlBasicType<double> m_radius = 0.5;
};
