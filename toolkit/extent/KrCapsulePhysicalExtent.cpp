#include <toolkit/extent/KrCapsulePhysicalExtent.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrPrimitiveMesh.h>

KrCapsulePhysicalExtent::KrCapsulePhysicalExtent(double radius, double length)
{
    // Two sizes as one vector, so that there is one message for both.
    const KrVector sizes = checkedSizes("KrCapsulePhysicalExtent::KrCapsulePhysicalExtent", {radius, length, 0.0});
    m_radius = sizes.x();
    m_length = sizes.y();
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

bool KrCapsulePhysicalExtent::validate(KrXmlRefusal& refusal) const
{
    return checkLength(refusal, "radius", m_radius) && checkLength(refusal, "length", m_length);
}

boost::shared_ptr<KrTriPhysicalExtent> KrCapsulePhysicalExtent::makeTriangles() const
{
    // A length of 0 gives a ball.
    return KrPrimitiveMesh::capsule(m_radius, m_length, m_materialName.value());
}
