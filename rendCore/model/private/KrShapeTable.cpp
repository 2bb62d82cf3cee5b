#include <rendCore/model/private/KrShapeTable.h>

#include <rendCore/draw/private/KrGroupGeometry.h>
#include <rendCore/model/KrRenderShape.h>
#include <rendCore/model/private/KrInheritedState.h>

#include <toolkit/extent/private/KrIndexedMesh.h>
#include <toolkit/foundation/private/KrParallel.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <limits>
#include <memory>
#include <typeinfo>
#include <utility>

namespace
{

/// Meshes whose levels are made at once: each takes some hundreds of bytes a triangle meanwhile.
constexpr std::size_t kMostAtOnce = 16;

/// What deforms or is a client's own kind of shape is drawn by the graph.
bool isTakenOver(const KrRenderShape& shape)
{
    return typeid(shape) == typeid(KrRenderShape);
}

/// Whether a drawable stands in the graph as the shape has made it: nothing but the general traversal knows callbacks.
bool isAsMade(const osg::Drawable& drawable)
{
    return drawable.getCullCallback() == nullptr && drawable.getDrawCallback() == nullptr &&
           drawable.getNodeMask() == ~0u && drawable.getCullingActive();
}

/// The one colour of a group; null when it is no such group any more.
const osg::Vec4* colorOf(const osg::Geometry& geometry)
{
    const auto* const colors = dynamic_cast<const osg::Vec4Array*>(geometry.getColorArray());
    return colors != nullptr && colors->size() == 1 && colors->getBinding() == osg::Array::BIND_OVERALL
               ? &colors->front()
               : nullptr;
}

/// Whether the corners are those of the group, one after the other.
bool hasCorners(const osg::Geometry& geometry, std::size_t count)
{
    const auto* const triangles = geometry.getNumPrimitiveSets() == 1
                                      ? dynamic_cast<const osg::DrawArrays*>(geometry.getPrimitiveSet(0))
                                      : nullptr;
    return triangles != nullptr && triangles->getMode() == GL_TRIANGLES && triangles->getFirst() == 0 &&
           static_cast<std::size_t>(triangles->getCount()) == count && geometry.getVertexArray() != nullptr &&
           geometry.getVertexArray()->getNumElements() == count;
}

/// Levels of a mesh are the same in whichever thread they are made.
/// @param shapes  null ones are left out
void makeLevelsOf(const std::vector<osg::ref_ptr<KrRenderShape>>& shapes)
{
    std::vector<std::pair<std::size_t, const KrRenderShape*>> lacking;
    for (const osg::ref_ptr<KrRenderShape>& shape : shapes) {
        const auto mesh = shape.valid() && isTakenOver(*shape) ? shape->indexedMesh(false) : nullptr;
        if (mesh && !mesh->areLevelsMade) {
            lacking.emplace_back(mesh->indices.size(), shape.get());
        }
    }
    // Large ones first, so that none is left for one core when the others are done.
    std::stable_sort(lacking.begin(), lacking.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    KrParallel::forEach(lacking.size(), std::min(KrParallel::numCores(), kMostAtOnce), [&lacking](std::size_t i) {
        try {
            // The mesh keeps what it makes.
            lacking[i].second->indexedMesh(true);
        } catch (const std::exception&) {
            // Whoever takes the shape over tries again, and has the exception where it can be caught.
        }
    });
}

} // namespace

KrShapeTable::KrShapeTable()
    : m_arena(new KrMeshArena)
{
}

KrShapeTable::~KrShapeTable() = default;

KrShapeTable::Entry& KrShapeTable::entry(KrRenderShape& shape)
{
    if (m_arena->numVertices() > m_mostVertices || m_entries.size() > m_mostEntries) {
        dropWhatIsGone();
    }
    Entry& entry = m_entries[&shape];
    // A shape that is gone may have left its address to another one.
    if (!entry.shape.valid() || entry.shape != &shape) {
        entry.shape = &shape;
        takeOver(entry);
    }
    return entry;
}

void KrShapeTable::demandLevels()
{
    if (m_hasLevels) {
        return;
    }
    m_hasLevels = true;
    takeAllOver();
}

/// The buffers of the arena before go when the last view lets go of it.
void KrShapeTable::takeAllOver()
{
    ++m_generation;
    m_arena = new KrMeshArena;
    if (m_hasLevels) {
        std::vector<osg::ref_ptr<KrRenderShape>> shapes;
        for (const auto& [address, entry] : m_entries) {
            shapes.emplace_back(entry.shape.get());
        }
        makeLevelsOf(shapes);
    }
    for (auto known = m_entries.begin(); known != m_entries.end();) {
        if (known->second.shape.valid()) {
            takeOver(known->second);
            ++known;
        } else {
            known = m_entries.erase(known);
        }
    }
}

void KrShapeTable::makeLevels(const std::vector<osg::ref_ptr<KrRenderShape>>& shapes) const
{
    if (!m_hasLevels) {
        return;
    }
    std::vector<osg::ref_ptr<KrRenderShape>> unknown;
    std::copy_if(shapes.begin(), shapes.end(), std::back_inserter(unknown),
                 [this](const osg::ref_ptr<KrRenderShape>& shape) { return shape.valid() && !isKnown(*shape); });
    makeLevelsOf(unknown);
}

/// Whether it was taken over. A shape that is gone may have left its address to another one.
bool KrShapeTable::isKnown(const KrRenderShape& shape) const
{
    const auto entry = m_entries.find(&shape);
    return entry != m_entries.end() && entry->second.shape.valid() && entry->second.shape == &shape;
}

/// Clients exchange shapes, some with every frame: what is known of them, and what the arena had of them, would stay
/// for as long as the scene.
void KrShapeTable::dropWhatIsGone()
{
    std::size_t numAlive = 0; // vertices
    for (auto known = m_entries.begin(); known != m_entries.end();) {
        if (known->second.shape.valid()) {
            numAlive += known->second.numVertices;
            ++known;
        } else {
            known = m_entries.erase(known);
        }
    }
    // Both in proportion to what is there, so that a shape costs the same however many there are.
    if (numAlive < m_arena->numVertices() / 2) {
        takeAllOver();
    }
    m_mostVertices = kFewVertices + 2 * numAlive;
    m_mostEntries = kFewEntries + 2 * m_entries.size();
}

void KrShapeTable::takeOver(Entry& entry) const
{
    entry.mesh = nullptr;
    entry.numVertices = 0;
    entry.isTranslucent = false;
    entry.groups.clear();
    entry.checkedIn = 0;
    if (!entry.shape.valid()) {
        return;
    }
    KrRenderShape& shape = *entry.shape;
    if (!isTakenOver(shape)) {
        return;
    }
    const std::shared_ptr<const KrIndexedMesh> mesh = shape.indexedMesh(m_hasLevels);
    if (!mesh || !m_arena->hasRoomFor(*mesh) || shape.getNumDrawables() == 0 ||
        shape.getNumDrawables() > mesh->levels.front().groups.size()) {
        return;
    }
    std::vector<KrMeshArena::Look> looks;
    std::size_t numTranslucent = 0;
    for (unsigned int i = 0; i < shape.getNumDrawables(); ++i) {
        const auto* const geometry = dynamic_cast<const KrGroupGeometry*>(shape.getDrawable(i));
        const osg::StateSet* const states = geometry != nullptr ? geometry->getStateSet() : nullptr;
        const osg::Vec4* const color = geometry != nullptr ? colorOf(*geometry) : nullptr;
        // One that is not as the shape has made it, and all of the shape are drawn by the graph, in their order.
        if (states == nullptr || color == nullptr || geometry->version() != shape.groupVersion(i) ||
            !hasCorners(*geometry, mesh->levels.front().groups[i].count)) {
            entry.groups.clear();
            return;
        }
        const auto* const material =
            dynamic_cast<const osg::Material*>(states->getAttribute(osg::StateAttribute::MATERIAL));
        entry.groups.push_back({geometry, geometry->version(), states, states->getAttributeList(),
                                states->getModeList(), states->getTextureAttributeList(), states->getTextureModeList(),
                                states->getRenderingHint(), states->getBinNumber(), material,
                                material != nullptr ? new osg::Material(*material) : nullptr,
                                geometry->getBoundingBox()});
        KrMeshArena::Look look;
        if (m_arena->findLook(*states, *color, look)) {
            looks.push_back(look);
        }
        numTranslucent += states->getRenderingHint() == osg::StateSet::TRANSPARENT_BIN ? 1 : 0;
    }
    entry.isTranslucent = numTranslucent == entry.groups.size();
    if (looks.size() == entry.groups.size()) {
        const std::size_t before = m_arena->numVertices();
        entry.mesh = &m_arena->add(*mesh, looks);
        entry.numVertices = m_arena->numVertices() - before;
    }
}

void KrShapeTable::beginFrame(const void* view, unsigned int frame)
{
    if (m_frame == 0 || view != m_view || frame != m_viewFrame) {
        m_view = view;
        m_viewFrame = frame;
        // 0 stands for never.
        m_frame += m_frame == std::numeric_limits<unsigned int>::max() ? 2 : 1;
    }
}

bool KrShapeTable::isAsTaken(Entry& entry) const
{
    if (entry.checkedIn == m_frame) {
        return entry.wasAsTaken;
    }
    entry.checkedIn = m_frame;
    const KrRenderShape& shape = *entry.shape;
    entry.wasAsTaken = isPlain(shape) && shape.getNumDrawables() == entry.groups.size();
    for (std::size_t i = 0; i < entry.groups.size() && entry.wasAsTaken; ++i) {
        const Group& group = entry.groups[i];
        const osg::Drawable* const drawable = shape.getDrawable(static_cast<unsigned int>(i));
        const osg::StateSet& states = *group.states;
        entry.wasAsTaken =
            drawable == group.geometry && isAsMade(*drawable) && group.geometry->version() == group.version &&
            drawable->getStateSet() == group.states && states.getAttributeList() == group.attributes &&
            states.getModeList() == group.modes && states.getTextureAttributeList() == group.textures &&
            states.getTextureModeList() == group.textureModes && states.getRenderingHint() == group.renderingHint &&
            states.getBinNumber() == group.binNumber &&
            // Materials are what clients change in place.
            (group.material == nullptr || group.material->compare(*group.look) == 0);
    }
    return entry.wasAsTaken;
}

bool KrShapeTable::isPlain(const osg::Node& node)
{
    const osg::StateSet* const states = node.getStateSet();
    return (states == nullptr || KrInheritedState::isLook(*states)) && node.getCullCallback() == nullptr &&
           node.getCullingActive();
}
