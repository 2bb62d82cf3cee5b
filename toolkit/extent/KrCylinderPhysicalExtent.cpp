#include <toolkit/extent/KrCylinderPhysicalExtent.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrPrimitiveMesh.h>

KrCylinderPhysicalExtent::KrCylinderPhysicalExtent(double radius, double length)
{
    // Two sizes as one vector, so that there is one message for both.
    const KrVector sizes = checkedSizes("KrCylinderPhysicalExtent::KrCylinderPhysicalExtent", {radius, length, 0.0});
    m_radius = sizes.x();
    m_length = sizes.y();
}

KrXmlToken KrCylinderPhysicalExtent::token() const
{
    return {KrXmlNamespace::core(), "cylinder"};
}

void KrCylinderPhysicalExtent::registerComponents()
{
    KrBasePhysicalExtent::registerComponents();
    registerComponent({KrXmlNamespace::core(), "radius"}, m_radius);
    registerComponent({KrXmlNamespace::core(), "length"}, m_length);
}

bool KrCylinderPhysicalExtent::validate(KrXmlRefusal& refusal) const
{
    return checkLength(refusal, "radius", m_radius) && checkLength(refusal, "length", m_length);
}

boost::shared_ptr<KrTriPhysicalExtent> KrCylinderPhysicalExtent::makeTriangles() const
{
    // A cylinder is a cone whose ends are alike.
    return KrPrimitiveMesh::cone(m_radius, m_radius, m_length, m_materialName.value());
}
