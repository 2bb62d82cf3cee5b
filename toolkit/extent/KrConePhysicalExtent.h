#pragma once

#include <toolkit/extent/KrBasePhysicalExtent.h>

/// A closed (truncated) cone about the z axis, its middle at the origin: `bottomRadius` at -length/2, `topRadius` at
/// +length/2.
class KrConePhysicalExtent : public KrXmlObjectOf<KrConePhysicalExtent, KrBasePhysicalExtent>
{
public:
    KrConePhysicalExtent() = default;
    /// Sizes in m. One that is negative or not finite gives, after one message, an extent without a surface.
    KrConePhysicalExtent(double bottomRadius, double topRadius, double length);

    /// Sizes in m, none below 0.
    double bottomRadius() const { return m_bottomRadius; }
    double topRadius() const { return m_topRadius; }
    double length() const { return m_length; }
    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;
    boost::shared_ptr<KrTriPhysicalExtent> makeTriangles() const override;

private:
    KrXmlBasicType<double> m_bottomRadius = 0.5;
    KrXmlBasicType<double> m_topRadius = 0.0;
    KrXmlBasicType<double> m_length = 1.0;
};
