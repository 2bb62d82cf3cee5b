#include <toolkit/geometry/KrBoxPhysicalExtent.h>

#include <toolkit/geometry/KrPrimitiveMesh.h>
#include <toolkit/geometry/KrTriPhysicalExtent.h>

KrBoxPhysicalExtent::KrBoxPhysicalExtent(const KrVector& size)
    : m_size(size)
{
}

KrXmlToken KrBoxPhysicalExtent::token() const
{
    return {KrXmlNamespace::core(), "box"};
}

void KrBoxPhysicalExtent::registerComponents()
{
    KrBasePhysicalExtent::registerComponents();
    registerComponent({KrXmlNamespace::core(), "size"}, m_size);
}

bool KrBoxPhysicalExtent::validate(KrXmlReader& reader) const
{
    return checkLength(reader, "edge", size().x()) && checkLength(reader, "edge", size().y()) &&
           checkLength(reader, "edge", size().z());
}

boost::shared_ptr<KrTriPhysicalExtent> KrBoxPhysicalExtent::makeTriangles() const
{
    return KrPrimitiveMesh::box(m_size, m_materialName.value());
}
