#include <toolkit/geometry/KrCylinderPhysicalExtent.h>

#include <toolkit/geometry/KrPrimitiveMesh.h>
#include <toolkit/geometry/KrTriPhysicalExtent.h>

KrCylinderPhysicalExtent::KrCylinderPhysicalExtent(double radius, double length)
    : m_radius(radius)
    , m_length(length)
{
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

bool KrCylinderPhysicalExtent::validate(KrXmlReader& reader) const
{
    return checkLength(reader, "radius", m_radius) && checkLength(reader, "length", m_length);
}

boost::shared_ptr<KrTriPhysicalExtent> KrCylinderPhysicalExtent::makeTriangles() const
{
    return KrPrimitiveMesh::cone(m_radius, m_radius, m_length, m_materialName.value());
}
