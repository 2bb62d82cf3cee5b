#include <toolkit/extent/KrConePhysicalExtent.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrPrimitiveMesh.h>

KrConePhysicalExtent::KrConePhysicalExtent(double bottomRadius, double topRadius, double length)
{
    // All sizes at once, so that there is one message for them.
    const KrVector sizes =
        checkedSizes("KrConePhysicalExtent::KrConePhysicalExtent", {bottomRadius, topRadius, length});
    m_bottomRadius = sizes.x();
    m_topRadius = sizes.y();
    m_length = sizes.z();
}

KrXmlToken KrConePhysicalExtent::token() const
{
    return {KrXmlNamespace::core(), "cone"};
}

void KrConePhysicalExtent::registerComponents()
{
    KrBasePhysicalExtent::registerComponents();
    registerComponent({KrXmlNamespace::core(), "bottomRadius"}, m_bottomRadius);
    registerComponent({KrXmlNamespace::core(), "topRadius"}, m_topRadius);
    registerComponent({KrXmlNamespace::core(), "length"}, m_length);
}

bool KrConePhysicalExtent::validate(KrXmlRefusal& refusal) const
{
    // Radii of 0 are allowed: a tip is one. That not both are is left to the triangles.
    return checkLength(refusal, "bottom radius", m_bottomRadius) && checkLength(refusal, "top radius", m_topRadius) &&
           checkLength(refusal, "length", m_length);
}

boost::shared_ptr<KrTriPhysicalExtent> KrConePhysicalExtent::makeTriangles() const
{
    return KrPrimitiveMesh::cone(m_bottomRadius, m_topRadius, m_length, m_materialName.value());
}
