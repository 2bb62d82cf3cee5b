#include <toolkit/extent/KrBoxPhysicalExtent.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrPrimitiveMesh.h>

KrBoxPhysicalExtent::KrBoxPhysicalExtent(const KrVector& size)
    : m_size(checkedSizes("KrBoxPhysicalExtent::KrBoxPhysicalExtent", size))
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

bool KrBoxPhysicalExtent::validate(KrXmlRefusal& refusal) const
{
    // An edge of length 0 is allowed: a sheet is a box, too.
    return checkLength(refusal, "edge", size().x()) && checkLength(refusal, "edge", size().y()) &&
           checkLength(refusal, "edge", size().z());
}

boost::shared_ptr<KrTriPhysicalExtent> KrBoxPhysicalExtent::makeTriangles() const
{
    // Null where more than one edge is 0.
    return KrPrimitiveMesh::box(m_size, m_materialName.value());
}
