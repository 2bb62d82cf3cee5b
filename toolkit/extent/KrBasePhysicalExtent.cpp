#include <toolkit/extent/KrBasePhysicalExtent.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/foundation/private/KrNumberCheck.h>

#include <cmath>

KrBasePhysicalExtent::KrBasePhysicalExtent(const KrBasePhysicalExtent& other)
    : KrXmlCompoundType(other)
    , m_placement(other.m_placement)
    , m_materialName(other.m_materialName)
    // The triangles are shared: they are never changed, only replaced.
    , m_triExtent(other.m_triExtent)
{
}

KrBasePhysicalExtent& KrBasePhysicalExtent::operator=(const KrBasePhysicalExtent& other)
{
    KrXmlCompoundType::operator=(other);
    m_placement = other.m_placement;
    m_materialName = other.m_materialName;
    m_triExtent = other.m_triExtent;
    // Being assigned to is a change, also when the values are alike.
    m_changed = true;
    ++m_revision;
    return *this;
}

// Triangles lie where the placement puts them, so they are made anew.
bool KrBasePhysicalExtent::setPlacement(const KrCoordinateSystemTransformation& placement)
{
    if (!placement.checkPose("KrBasePhysicalExtent::setPlacement")) {
        return false;
    }
    m_placement = placement;
    touch();
    return true;
}

// Borrowed by many at a time, hence shared; a change makes a new one and leaves theirs alone.
boost::shared_ptr<const KrTriPhysicalExtent> KrBasePhysicalExtent::triExtent() const
{
    // Made when they are asked for first: many extents are only read and written.
    if (!m_triExtent) {
        m_triExtent = makePlacedTriangles();
    }
    return m_triExtent;
}

boost::shared_ptr<const KrTriPhysicalExtent> KrBasePhysicalExtent::makePlacedTriangles() const
{
    const boost::shared_ptr<KrTriPhysicalExtent> triangles = makeTriangles();
    // Without a placement the mesh itself will do; no copy is made.
    if (!triangles || m_placement.isIdentity()) {
        return triangles;
    }
    return triangles->transformed(m_placement);
}

// Solids are one group; meshes override this.
unsigned int KrBasePhysicalExtent::numGroupNames() const
{
    return 1;
}

std::string KrBasePhysicalExtent::groupName(unsigned int i) const
{
    return i == 0 ? m_materialName.value() : std::string();
}

void KrBasePhysicalExtent::setMaterialName(const std::string& name)
{
    m_materialName = name;
    touch();
}

void KrBasePhysicalExtent::recompute() const
{
    // Whoever is asked to recompute has triangles afterwards.
    triExtent();
}

void KrBasePhysicalExtent::registerComponents()
{
    registerComponent({KrXmlNamespace::core(), "placement"}, m_placement, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "materialName"}, m_materialName, Presence::Optional);
}

// After every change: whoever draws compares revisions.
void KrBasePhysicalExtent::touch()
{
    // Made anew when they are asked for next.
    m_triExtent.reset();
    m_changed = true;
    ++m_revision;
}

// What was computed from the values before is no longer true.
bool KrBasePhysicalExtent::completeRead(KrXmlReader&)
{
    touch();
    return true;
}

// For constructors, which cannot refuse: sizes that are none become 0, after one message.
KrVector KrBasePhysicalExtent::checkedSizes(const char* method, const KrVector& sizes)
{
    return Kr::NumberCheck::areSizes(method, {sizes.x(), sizes.y(), sizes.z()}) ? sizes : KrVector();
}

// For documents: the sizes of all solids are refused in the same words.
bool KrBasePhysicalExtent::checkLength(KrXmlRefusal& refusal, const char* what, double length)
{
    // Written so that NaN fails too.
    return (length >= 0.0 && std::isfinite(length)) || refusal.fail("%s %g m is no length", what, length);
}
