#include <toolkit/extent/KrSpherePhysicalExtent.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrPrimitiveMesh.h>

KrSpherePhysicalExtent::KrSpherePhysicalExtent(double radius)
    // A constructor cannot refuse, so a size that is none becomes 0 there.
    : m_radius(checkedSizes("KrSpherePhysicalExtent::KrSpherePhysicalExtent", {radius, 0.0, 0.0}).x())
{
}

KrXmlToken KrSpherePhysicalExtent::token() const
{
    return {KrXmlNamespace::core(), "sphere"};
}

void KrSpherePhysicalExtent::registerComponents()
{
    KrBasePhysicalExtent::registerComponents();
    registerComponent({KrXmlNamespace::core(), "radius"}, m_radius);
}

bool KrSpherePhysicalExtent::validate(KrXmlRefusal& refusal) const
{
    return checkLength(refusal, "radius", m_radius);
}

boost::shared_ptr<KrTriPhysicalExtent> KrSpherePhysicalExtent::makeTriangles() const
{
    // Null for a radius of 0, which has no surface.
    return KrPrimitiveMesh::ellipsoid(KrVector(m_radius, m_radius, m_radius), m_materialName.value());
}
