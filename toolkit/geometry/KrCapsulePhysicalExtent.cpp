#include <toolkit/geometry/KrCapsulePhysicalExtent.h>

#include <toolkit/geometry/KrPrimitiveMesh.h>
#include <toolkit/geometry/KrTriPhysicalExtent.h>

KrCapsulePhysicalExtent::KrCapsulePhysicalExtent(double radius, double length)
    : m_radius(radius)
    , m_length(length)
{
}

KrXmlToken KrCapsulePhysicalExtent::token() const
{
    return {KrXmlNamespace::core(), "capsule"};
}

void KrCapsulePhysicalExtent::registerComponents()
{
    KrBasePhysicalExtent::registerComponents();
    registerComponent({KrXmlNamespace::core(), "radius"}, m_radius);
    registerComponent({KrXmlNamespace::core(), "length"}, m_length);
}

bool KrCapsulePhysicalExtent::validate(KrXmlReader& reader) const
{
    return checkLength(reader, "radius", m_radius) && checkLength(reader, "length", m_length);
}

boost::shared_ptr<KrTriPhysicalExtent> KrCapsulePhysicalExtent::makeTriangles() const
{
    return KrPrimitiveMesh::capsule(m_radius, m_length, m_materialName.value());
}
