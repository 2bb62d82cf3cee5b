#include <toolkit/system/KrShape.h>

#include <toolkit/extent/KrEnclosingShapes.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/foundation/KrPrint.h>

#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>

#include <algorithm>
#include <cstdint>
#include <set>
#include <utility>

// Hulls and boxes of a large mesh take long, so they are kept until the mesh changes.
/// The enclosing shapes that were computed, and from what.
struct KrShape::Computed
{
    // Weak: what was computed from it must not keep an extent alive.
    boost::weak_ptr<const KrBasePhysicalExtent> extent;
    std::uint32_t revision = 0;
    bool hasHull = false;
    std::vector<KrShape> shapes;
};

KrShape::KrShape(const boost::shared_ptr<KrBasePhysicalExtent>& extent)
{
    m_extent.set(extent);
}

// What was computed is another extent's now.
void KrShape::setPhysicalExtent(const boost::shared_ptr<KrBasePhysicalExtent>& extent)
{
    m_extent.set(extent);
    // They belong to the old extent.
    m_computed.reset();
}

// Volumes of volumes are taken from under each other first: a document may nest them deeper than the stack.
KrShape::~KrShape()
{
    std::vector<boost::shared_ptr<KrShape>> open;
    const auto take = [&open](KrShape& shape) {
        for (KrXmlPointerType<KrShape>& volume : shape.m_boundingVolumes) {
            open.push_back(volume.pointer());
            volume.set(nullptr);
        }
    };
    take(*this);
    while (!open.empty()) {
        const boost::shared_ptr<KrShape> shape = std::move(open.back());
        open.pop_back();
        // A shape that somebody else holds keeps its volumes.
        if (shape && shape.use_count() == 1) {
            take(*shape);
        }
    }
}

// Null is refused without a message: there is nothing to tell about it.
bool KrShape::addBoundingVolume(const boost::shared_ptr<KrShape>& volume)
{
    if (!volume) {
        return false;
    }
    // Volumes have no volumes of their own; the shape itself is let pass.
    if (volume.get() != this && !volume->m_boundingVolumes.empty()) {
        Kr::Print::instance()->write(
            Kr::Print::Warning,
            "KrShape::addBoundingVolume - shape %u: the volume has %u of its own; nothing is changed.\n", number(),
            volume->m_boundingVolumes.size());
        return false;
    }
    m_boundingVolumes.push_back(KrXmlPointerType<KrShape>(volume));
    return true;
}

// By a stack of pairs instead of recursion.
bool KrShape::operator==(const KrShape& other) const
{
    using Pair = std::pair<const KrShape*, const KrShape*>;
    std::vector<Pair> open = {{this, &other}};
    std::set<Pair> seen; // a shape may be its own volume
    while (!open.empty()) {
        const auto [a, b] = open.back();
        open.pop_back();
        if (!seen.emplace(a, b).second) {
            continue;
        }
        if (a == nullptr || b == nullptr) {
            if (a != b) {
                return false;
            }
            continue;
        }
        if (a->m_extent != b->m_extent || a->m_number != b->m_number ||
            a->m_boundingVolumes.size() != b->m_boundingVolumes.size()) {
            return false;
        }
        for (unsigned int i = 0; i < a->m_boundingVolumes.size(); ++i) {
            // The same object is equal to itself; it need not be walked again.
            if (a->m_boundingVolumes[i].pointer() != b->m_boundingVolumes[i].pointer()) {
                open.emplace_back(a->m_boundingVolumes[i].get(), b->m_boundingVolumes[i].get());
            }
        }
    }
    return true;
}

// The caller's list keeps its memory from call to call.
void KrShape::boundingVolumes(std::vector<const KrShape*>& list, unsigned int level) const
{
    // `level` counts through the computed volumes first, then through those that were added, from 1.
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

void KrShape::addedVolumes(std::vector<const KrShape*>& list) const
{
    list.clear();
    for (const KrXmlPointerType<KrShape>& volume : m_boundingVolumes) {
        if (volume.get() != nullptr) {
            list.push_back(volume.get());
        }
    }
}

unsigned int KrShape::numComputedVolumes(KrVector& low, KrVector& high) const
{
    const boost::shared_ptr<const KrTriPhysicalExtent> mesh =
        m_extent.get() != nullptr ? m_extent.get()->triExtent() : boost::shared_ptr<const KrTriPhysicalExtent>();
    // As many as KrEnclosingShapes makes: where there are any, there is a hull, too.
    return mesh && KrEnclosingShapes::findBox(*mesh, low, high) ? (needsHull() ? 4 : 3) : 0;
}

// A hull is not computed where the client has given volumes: it is the slowest, and theirs take its place.
bool KrShape::needsHull() const
{
    return std::none_of(m_boundingVolumes.begin(), m_boundingVolumes.end(),
                        [](const auto& volume) { return volume.get() != nullptr; });
}

// Kept behind a pointer that copies share, so that a copied shape computes nothing anew.
const KrShape::Computed& KrShape::computed() const
{
    const boost::shared_ptr<KrBasePhysicalExtent>& extent = m_extent.pointer();
    // Compared by owner: another extent may have come to lie at the old one's address.
    const bool isSame = m_computed && !m_computed->extent.owner_before(extent) &&
                        !boost::weak_ptr<const KrBasePhysicalExtent>(extent).owner_before(m_computed->extent);
    if (isSame && m_computed->revision == extent->revision() && m_computed->hasHull == needsHull()) {
        return *m_computed;
    }
    const auto result = boost::make_shared<Computed>();
    result->extent = extent;
    result->revision = extent->revision();
    result->hasHull = needsHull();
    // Null for extents without triangles; they have no enclosing shapes.
    if (const boost::shared_ptr<const KrTriPhysicalExtent> mesh = extent->triExtent()) {
        for (const auto& solid : result->hasHull ? KrEnclosingShapes::all(*mesh) : KrEnclosingShapes::simple(*mesh)) {
            result->shapes.emplace_back(solid);
        }
    }
    m_computed = result;
    return *m_computed;
}

// For the reader of pointers, which knows a class by its element only.
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
    // Only those that were added: what is computed is made again when it is asked for.
    registerComponent({uri, "boundingVolumes"}, m_boundingVolumes, Presence::Optional);
}
