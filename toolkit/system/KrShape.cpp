#include <toolkit/system/KrShape.h>

#include <toolkit/geometry/KrEnclosingShapes.h>
#include <toolkit/geometry/KrTriPhysicalExtent.h>

#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>

#include <algorithm>
#include <cstdint>

/// The enclosing shapes that were computed, and from what.
struct KrShape::Computed
{
    boost::weak_ptr<const KrBasePhysicalExtent> extent;
    std::uint32_t revision = 0;
    bool hasHull = false;
    std::vector<KrShape> shapes;
};

KrShape::KrShape(const boost::shared_ptr<KrBasePhysicalExtent>& extent)
{
    m_extent.set(extent);
}

void KrShape::setPhysicalExtent(const boost::shared_ptr<KrBasePhysicalExtent>& extent)
{
    m_extent.set(extent);
    m_computed.reset();
}

void KrShape::addBoundingVolume(const boost::shared_ptr<KrShape>& volume)
{
    if (volume) {
        m_boundingVolumes.push_back(KrXmlPointerType<KrShape>(volume));
    }
}

void KrShape::boundingVolumes(std::vector<const KrShape*>& list, unsigned int level) const
{
    list.clear();
    unsigned int at = 1;
    const auto append = [&](const KrShape* volume) {
        if (at++ >= level) {
            list.push_back(volume);
        }
    };
    if (m_extent.get() != nullptr) {
        for (const KrShape& volume : computed().shapes) {
            append(&volume);
        }
    }
    for (const KrXmlPointerType<KrShape>& volume : m_boundingVolumes) {
        if (volume.get() != nullptr) { // a file may hold an empty item
            append(volume.get());
        }
    }
}

const KrShape::Computed& KrShape::computed() const
{
    const boost::shared_ptr<KrBasePhysicalExtent>& extent = m_extent.pointer();
    const bool needsHull = std::none_of(m_boundingVolumes.begin(), m_boundingVolumes.end(),
                                        [](const auto& volume) { return volume.get() != nullptr; });
    // Compared by owner: another extent may have come to lie at the old one's address.
    const bool isSame = m_computed && !m_computed->extent.owner_before(extent) &&
                        !boost::weak_ptr<const KrBasePhysicalExtent>(extent).owner_before(m_computed->extent);
    if (isSame && m_computed->revision == extent->revision() && m_computed->hasHull == needsHull) {
        return *m_computed;
    }
    const auto result = boost::make_shared<Computed>();
    result->extent = extent;
    result->revision = extent->revision();
    result->hasHull = needsHull;
    if (const boost::shared_ptr<const KrTriPhysicalExtent> mesh = extent->triExtent()) {
        for (const auto& solid : needsHull ? KrEnclosingShapes::all(*mesh) : KrEnclosingShapes::simple(*mesh)) {
            result->shapes.emplace_back(solid);
        }
    }
    m_computed = result;
    return *m_computed;
}

KrShape* KrShape::newFromToken(const KrXmlToken& token)
{
    return token == KrShape().token() ? new KrShape : nullptr;
}

KrXmlToken KrShape::token() const
{
    return {KrXmlNamespace::system(), "shape"};
}

void KrShape::registerComponents()
{
    const std::string& uri = KrXmlNamespace::system();
    registerComponent({uri, "number"}, m_number, Presence::Optional);
    registerComponent({uri, "physicalExtent"}, m_extent, Presence::Optional);
    registerComponent({uri, "boundingVolumes"}, m_boundingVolumes, Presence::Optional);
}
