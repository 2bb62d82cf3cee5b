#include <toolkit/geometry/KrSpherePhysicalExtent.h>

#include <toolkit/geometry/KrPrimitiveMesh.h>
#include <toolkit/geometry/KrTriPhysicalExtent.h>

KrSpherePhysicalExtent::KrSpherePhysicalExtent(double radius)
    : m_radius(radius)
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

bool KrSpherePhysicalExtent::validate(KrXmlReader& reader) const
{
    return checkLength(reader, "radius", m_radius);
}

boost::shared_ptr<KrTriPhysicalExtent> KrSpherePhysicalExtent::makeTriangles() const
{
    return KrPrimitiveMesh::ellipsoid(KrVector(m_radius, m_radius, m_radius), m_materialName.value());
}
