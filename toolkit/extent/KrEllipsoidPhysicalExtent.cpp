#include <toolkit/extent/KrEllipsoidPhysicalExtent.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrPrimitiveMesh.h>

KrEllipsoidPhysicalExtent::KrEllipsoidPhysicalExtent(const KrVector& semiAxes)
    // A constructor cannot refuse, so a size that is none becomes 0 there.
    : m_semiAxes(checkedSizes("KrEllipsoidPhysicalExtent::KrEllipsoidPhysicalExtent", semiAxes))
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

bool KrEllipsoidPhysicalExtent::validate(KrXmlRefusal& refusal) const
{
    return checkLength(refusal, "semi-axis", semiAxes().x()) && checkLength(refusal, "semi-axis", semiAxes().y()) &&
           checkLength(refusal, "semi-axis", semiAxes().z());
}

boost::shared_ptr<KrTriPhysicalExtent> KrEllipsoidPhysicalExtent::makeTriangles() const
{
    // Null where one of them is 0: such a body has no surface.
    return KrPrimitiveMesh::ellipsoid(m_semiAxes, m_materialName.value());
}
