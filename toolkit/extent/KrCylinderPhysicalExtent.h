#pragma once

#include <toolkit/extent/KrBasePhysicalExtent.h>

/// A closed cylinder about the z axis of the extent frame, its middle at the origin.
class KrCylinderPhysicalExtent : public KrXmlObjectOf<KrCylinderPhysicalExtent, KrBasePhysicalExtent>
{
public:
    KrCylinderPhysicalExtent() = default;
    /// Sizes in m. One that is negative or not finite gives, after one message, an extent without a surface.
    KrCylinderPhysicalExtent(double radius, double length);

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
