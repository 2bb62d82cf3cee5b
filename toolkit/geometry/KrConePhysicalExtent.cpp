#include <toolkit/geometry/KrConePhysicalExtent.h>

#include <toolkit/geometry/KrPrimitiveMesh.h>
#include <toolkit/geometry/KrTriPhysicalExtent.h>

KrConePhysicalExtent::KrConePhysicalExtent(double bottomRadius, double topRadius, double length)
    : m_bottomRadius(bottomRadius)
    , m_topRadius(topRadius)
    , m_length(length)
{
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

bool KrConePhysicalExtent::validate(KrXmlReader& reader) const
{
    return checkLength(reader, "bottom radius", m_bottomRadius) && checkLength(reader, "top radius", m_topRadius) &&
           checkLength(reader, "length", m_length);
}

boost::shared_ptr<KrTriPhysicalExtent> KrConePhysicalExtent::makeTriangles() const
{
    return KrPrimitiveMesh::cone(m_bottomRadius, m_topRadius, m_length, m_materialName.value());
}
