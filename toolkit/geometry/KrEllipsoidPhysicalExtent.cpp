#include <toolkit/geometry/KrEllipsoidPhysicalExtent.h>

#include <toolkit/geometry/KrPrimitiveMesh.h>
#include <toolkit/geometry/KrTriPhysicalExtent.h>

KrEllipsoidPhysicalExtent::KrEllipsoidPhysicalExtent(const KrVector& semiAxes)
    : m_semiAxes(semiAxes)
{
}

KrXmlToken KrEllipsoidPhysicalExtent::token() const
{
    return {KrXmlNamespace::core(), "ellipsoid"};
}

void KrEllipsoidPhysicalExtent::registerComponents()
{
    KrBasePhysicalExtent::registerComponents();
    registerComponent({KrXmlNamespace::core(), "semiAxes"}, m_semiAxes);
}

bool KrEllipsoidPhysicalExtent::validate(KrXmlReader& reader) const
{
    return checkLength(reader, "semi-axis", semiAxes().x()) && checkLength(reader, "semi-axis", semiAxes().y()) &&
           checkLength(reader, "semi-axis", semiAxes().z());
}

boost::shared_ptr<KrTriPhysicalExtent> KrEllipsoidPhysicalExtent::makeTriangles() const
{
    return KrPrimitiveMesh::ellipsoid(m_semiAxes, m_materialName.value());
}
