#include <rendCore/draw/private/KrMeshArena.h>

#include <rendCore/draw/private/KrDrawPace.h>
#include <toolkit/context/KrWindowReport.h>
#include <toolkit/extent/private/KrIndexedMesh.h>

#include <osg/BufferObject>
#include <osg/ContextData>
#include <osg/CullFace>
#include <osg/GLExtensions>
#include <osg/Material>
#include <osg/ShadeModel>
#include <osg/State>
#include <osg/VertexArrayState>

#include <algorithm>
#include <limits>
#include <map>
#include <utility>

namespace
{

constexpr osg::Material::Face kBothFaces = osg::Material::FRONT_AND_BACK;
constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();
/// Beyond it an index does not fit into 16 bits.
constexpr std::size_t kMostNarrow = 65536;
/// A scene has one or two; a client may let one change with every frame.
constexpr std::size_t kMostLightModels = 8;

/// Fewer indices are drawn as they are.
constexpr std::int32_t kFewestSifted = 96;
/// What is known of the driver of a context.
struct Driver : public osg::Referenced
{
    /// The context of that number is current.
    explicit Driver(unsigned int)
    {
        const auto* const renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
        isSoftware = renderer != nullptr && KrWindowReport::isSoftwareRenderer(renderer);
    }
    bool isSoftware;
};

bool isBlack(const osg::Vec4& color)
{
    return color.r() == 0.0f && color.g() == 0.0f && color.b() == 0.0f;
}

bool isSameColor(const osg::Vec4& a, const osg::Vec4& b)
{
    return a.r() == b.r() && a.g() == b.g() && a.b() == b.b();
}

/// Whether nothing but `color` is said by the material's ambient and diffuse parts, so that the colour of a
/// vertex can stand for both. With an emission the driver may round the sum of the two in another way.
bool isColorOf(const osg::Material& material, const osg::Vec4& color)
{
    return material.getAmbientFrontAndBack() && material.getDiffuseFrontAndBack() &&
           material.getSpecularFrontAndBack() && material.getEmissionFrontAndBack() &&
           material.getShininessFrontAndBack() && material.getColorMode() == osg::Material::OFF &&
           material.getDiffuse(kBothFaces) == color && isSameColor(material.getAmbient(kBothFaces), color) &&
           isBlack(material.getEmission(kBothFaces));
}

/// Whether `states` says nothing that a group on its own would be needed for: it is neither sorted nor animated, nor
/// unlit while others are lit, nor made of lines or with smooth borders; fronts are fronts, backs are drawn unless what
/// stands above says otherwise, no program puts vertices elsewhere, and the order of triangles does not matter.
bool isPlain(const osg::StateSet& states)
{
    using osg::StateAttribute;
    const auto* const face = static_cast<const osg::CullFace*>(states.getAttribute(StateAttribute::CULLFACE));
    return states.getRenderingHint() == osg::StateSet::DEFAULT_BIN && states.useRenderBinDetails() == false &&
           states.getUpdateCallback() == nullptr && states.getEventCallback() == nullptr &&
           (states.getMode(GL_LIGHTING) & (StateAttribute::ON | StateAttribute::INHERIT)) != 0 &&
           (states.getMode(GL_LIGHTING) & StateAttribute::PROTECTED) == 0 &&
           states.getAttribute(StateAttribute::POLYGONMODE) == nullptr &&
           (states.getMode(GL_POLYGON_SMOOTH) & StateAttribute::INHERIT) != 0 &&
           states.getAttribute(StateAttribute::FRONTFACE) == nullptr &&
           (face == nullptr || face->getMode() == osg::CullFace::BACK) &&
           (states.getMode(GL_CULL_FACE) & StateAttribute::PROTECTED) == 0 &&
           states.getAttribute(StateAttribute::PROGRAM) == nullptr &&
           states.getAttribute(StateAttribute::VERTEXPROGRAM) == nullptr &&
           states.getAttribute(StateAttribute::COLORMASK) == nullptr && KrMeshArena::isOrderFree(states);
}

/// Whether nothing in `states`, which are plain, makes a pixel show what is behind it.
bool isHidingBehind(const osg::StateSet& states)
{
    const osg::StateSet::ModeList& modes = states.getModeList();
    const osg::StateSet::AttributeList& attributes = states.getAttributeList();
    return std::all_of(modes.begin(), modes.end(),
                       [](const auto& mode) {
                           return mode.first == GL_LIGHTING || mode.first == GL_CULL_FACE || mode.first == GL_NORMALIZE;
                       }) &&
           std::all_of(attributes.begin(), attributes.end(), [](const auto& attribute) {
               return attribute.first.first == osg::StateAttribute::MATERIAL ||
                      attribute.first.first == osg::StateAttribute::CULLFACE;
           });
}

/// For each look a number that stands for its colour.
std::vector<std::uint32_t> numbersOfColors(const std::vector<KrMeshArena::Look>& looks)
{
    std::map<osg::Vec4, std::uint32_t> known;
    std::vector<std::uint32_t> numbers;
    for (const KrMeshArena::Look& look : looks) {
        numbers.push_back(known.emplace(look.color, static_cast<std::uint32_t>(known.size())).first->second);
    }
    return numbers;
}

} // namespace

KrMeshArena::KrMeshArena()
    : m_base(new osg::StateSet)
    , m_flat(new osg::StateSet)
    , m_solid(new osg::StateSet)
    , m_vertices(new osg::Vec3Array(osg::Array::BIND_PER_VERTEX))
    , m_normals(new osg::Vec3Array(osg::Array::BIND_PER_VERTEX))
    , m_colors(new osg::Vec4Array(osg::Array::BIND_PER_VERTEX))
    , m_textureCoordinates(new osg::Vec2Array(osg::Array::BIND_PER_VERTEX))
    , m_narrow(new osg::DrawElementsUShort(GL_TRIANGLES))
    , m_wide(new osg::DrawElementsUInt(GL_TRIANGLES))
{
    m_flat->setAttribute(new osg::ShadeModel(osg::ShadeModel::FLAT),
                         osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE | osg::StateAttribute::PROTECTED);
    m_solid->setAttributeAndModes(new osg::CullFace(osg::CullFace::BACK));
    const osg::ref_ptr<osg::VertexBufferObject> vertexBuffer = new osg::VertexBufferObject;
    for (osg::Array* const array :
         {static_cast<osg::Array*>(m_vertices.get()), static_cast<osg::Array*>(m_normals.get()),
          static_cast<osg::Array*>(m_colors.get())}) {
        array->setVertexBufferObject(vertexBuffer);
    }
    // In a buffer of their own: most scenes have none.
    m_textureCoordinates->setVertexBufferObject(new osg::VertexBufferObject);
    // Each in its own, so that indices of 32 bits begin where the driver likes them to.
    m_narrow->setElementBufferObject(new osg::ElementBufferObject);
    m_wide->setElementBufferObject(new osg::ElementBufferObject);
}

KrMeshArena::~KrMeshArena() = default;

bool KrMeshArena::isOrderFree(const osg::StateSet& states)
{
    using osg::StateAttribute;
    constexpr StateAttribute::GLModeValue kOn = StateAttribute::ON;
    return (states.getMode(GL_BLEND) & kOn) == 0 && (states.getMode(GL_COLOR_LOGIC_OP) & kOn) == 0 &&
           (states.getMode(GL_STENCIL_TEST) & kOn) == 0 && states.getAttribute(StateAttribute::DEPTH) == nullptr &&
           (states.getMode(GL_DEPTH_TEST) & (StateAttribute::INHERIT | kOn)) != 0;
}

unsigned int KrMeshArena::number(const osg::ref_ptr<osg::StateSet>& states, bool isTextured)
{
    const auto [found, isNew] = m_numbers.emplace(States{states, isTextured, false}, m_states.size());
    if (isNew) {
        m_states.push_back(found->first);
        m_states.back().isHiding = isHidingBehind(*states);
    }
    return found->second;
}

bool KrMeshArena::ComesBefore::operator()(const States& a, const States& b) const
{
    return a.isTextured != b.isTextured ? b.isTextured : a.set->compare(*b.set, true) < 0;
}

const osg::StateSet* KrMeshArena::states(unsigned int number, Faces faces, const FrontStates& fronts) const
{
    return faces == Faces::Both     ? m_states[number].set
           : faces == Faces::Fronts ? fronts.states[number].fronts
                                    : fronts.states[number].frontsOnly;
}

osg::ref_ptr<const KrMeshArena::FrontStates> KrMeshArena::fronts(const osg::LightModel* model)
{
    const bool isTwoSided = model != nullptr && model->getTwoSided();
    auto found = std::find_if(m_fronts.begin(), m_fronts.end(), [model, isTwoSided](const auto& known) {
        return known->light.valid() == isTwoSided &&
               (!isTwoSided || (known->light->getAmbientIntensity() == model->getAmbientIntensity() &&
                                known->light->getColorControl() == model->getColorControl() &&
                                known->light->getLocalViewer() == model->getLocalViewer()));
    });
    if (found == m_fronts.end()) {
        // The one that was used least lately makes room. What has been culled in this frame keeps it.
        if (m_fronts.size() == kMostLightModels) {
            m_fronts.pop_back();
        }
        m_fronts.push_back(new FrontStates);
        found = m_fronts.end() - 1;
        if (isTwoSided) {
            (*found)->light = new osg::LightModel(*model);
            (*found)->light->setTwoSided(false);
        }
    }
    std::rotate(m_fronts.begin(), found, found + 1);
    FrontStates& fronts = *m_fronts.front();
    while (fronts.states.size() < m_states.size()) {
        const osg::ref_ptr<osg::StateSet> lit = new osg::StateSet(*m_states[fronts.states.size()].set);
        if (fronts.light) {
            lit->setAttribute(fronts.light);
        }
        const osg::ref_ptr<osg::StateSet> culled = new osg::StateSet(*lit);
        culled->setAttributeAndModes(new osg::CullFace(osg::CullFace::BACK));
        fronts.states.push_back({lit, culled});
    }
    return m_fronts.front();
}

bool KrMeshArena::findLook(const osg::StateSet& states, const osg::Vec4& color, Look& look)
{
    if (!isPlain(states)) {
        return false;
    }
    // A copy, since the group's own may be changed in place; textures stay the same objects.
    const osg::ref_ptr<osg::StateSet> copy = new osg::StateSet(states, osg::CopyOp::DEEP_COPY_STATEATTRIBUTES);
    const bool isTextured = !states.getTextureModeList().empty() || !states.getTextureAttributeList().empty();
    auto* const material = dynamic_cast<osg::Material*>(copy->getAttribute(osg::StateAttribute::MATERIAL));
    if (material != nullptr && isColorOf(*material, color)) {
        // Any colour, since it is not looked at: one state set for all that differ in nothing else.
        material->setAmbient(kBothFaces, osg::Vec4(0.0f, 0.0f, 0.0f, 1.0f));
        material->setDiffuse(kBothFaces, osg::Vec4(0.0f, 0.0f, 0.0f, 1.0f));
        material->setColorMode(osg::Material::AMBIENT_AND_DIFFUSE);
    }
    look.states = number(copy, isTextured);
    look.color = color;
    return true;
}

bool KrMeshArena::hasRoomFor(const KrIndexedMesh& mesh) const
{
    // Bytes are counted in 32 bits. No look takes more vertices than one for each index of level 0.
    constexpr std::size_t kMost =
        std::numeric_limits<std::uint32_t>::max() / (sizeof(osg::Vec3) + sizeof(osg::Vec3) + sizeof(osg::Vec4));
    return mesh.indices.size() <= kMost - std::min(kMost, m_vertices->size()) &&
           mesh.indices.size() <= kMost - std::min<std::size_t>(kMost, std::max(m_narrow->size(), m_wide->size()));
}

const KrMeshArena::Mesh& KrMeshArena::add(const KrIndexedMesh& mesh, const std::vector<Look>& looks)
{
    Mesh added;
    // In the order of the groups: of two surfaces at one depth the one that is drawn first is seen.
    std::vector<std::size_t> ends; // of the groups of each part
    for (const Look& look : looks) {
        if (added.parts.empty() || added.parts.back().states != look.states) {
            added.parts.emplace_back();
            added.parts.back().states = look.states;
            ends.push_back(ends.empty() ? 0 : ends.back());
        }
        ++ends.back();
    }
    added.baseVertex = static_cast<std::int32_t>(m_vertices->size());
    added.isClosed = mesh.isClosed;

    // A vertex of groups of two colours becomes two. Those that one becomes stand in a chain, as short as colours that
    // meet there are few.
    struct Copy
    {
        std::uint32_t color;
        std::uint32_t older;
    };
    const std::vector<std::uint32_t> colors = numbersOfColors(looks);
    std::vector<std::uint32_t> newest(mesh.numVertices(), kNone);
    std::vector<Copy> copies;
    std::vector<std::uint32_t> indices;
    const auto copied = [&](std::uint32_t index, std::size_t group) {
        for (std::uint32_t number = newest[index]; number != kNone; number = copies[number].older) {
            if (copies[number].color == colors[group]) {
                return number;
            }
        }
        const float* const vertex = &mesh.vertices[std::size_t(6) * index];
        m_vertices->push_back({vertex[0], vertex[1], vertex[2]});
        m_normals->push_back({vertex[3], vertex[4], vertex[5]});
        m_colors->push_back(looks[group].color);
        if (!mesh.textureCoordinates.empty()) {
            m_textureCoordinates->resize(m_vertices->size() - 1);
            m_textureCoordinates->push_back(
                {mesh.textureCoordinates[std::size_t(2) * index], mesh.textureCoordinates[std::size_t(2) * index + 1]});
        }
        copies.push_back({colors[group], newest[index]});
        newest[index] = static_cast<std::uint32_t>(copies.size() - 1);
        return newest[index];
    };
    for (const KrIndexedMesh::Level& level : mesh.levels) {
        added.errors.push_back(level.error);
        added.changes.push_back(level.change);
        std::size_t group = 0;
        for (std::size_t part = 0; part < added.parts.size(); ++part) {
            const std::size_t first = indices.size();
            for (; group < ends[part]; ++group) {
                const KrIndexedMesh::Range& range = level.groups[group];
                for (std::uint32_t i = 0; i < range.count; ++i) {
                    indices.push_back(copied(mesh.indices[range.first + i], group));
                }
            }
            added.parts[part].levels.push_back(
                {static_cast<std::uint32_t>(first), static_cast<std::int32_t>(indices.size() - first), {}});
        }
    }

    added.isWide = copies.size() > kMostNarrow;
    const std::size_t begin = added.isWide ? m_wide->size() : m_narrow->size();
    for (Part& part : added.parts) {
        for (Run& run : part.levels) {
            run.first += static_cast<std::uint32_t>(begin);
        }
    }
    if (added.isWide) {
        m_wide->insert(m_wide->end(), indices.begin(), indices.end());
    } else {
        for (const std::uint32_t index : indices) {
            m_narrow->push_back(static_cast<GLushort>(index));
        }
    }
    // One for each vertex, or none at all: also behind the last mesh that has some.
    if (!m_textureCoordinates->empty()) {
        m_textureCoordinates->resize(m_vertices->size());
    }
    // The next context that binds them takes them over anew.
    m_vertices->dirty();
    m_normals->dirty();
    m_colors->dirty();
    m_textureCoordinates->dirty();
    m_narrow->dirty();
    m_wide->dirty();
    m_meshes.push_back(std::move(added));
    return m_meshes.back();
}

bool KrMeshArena::isSupported(const osg::State& state)
{
    const osg::GLExtensions* const gl = state.get<osg::GLExtensions>();
    return gl != nullptr && gl->isBufferObjectSupported && gl->glDrawElementsBaseVertex != nullptr;
}

KrMeshArena::Binding KrMeshArena::bind(osg::State& state, bool isTextured) const
{
    osg::VertexArrayState& arrays = *state.getCurrentVertexArrayState();
    arrays.lazyDisablingOfVertexAttributes();
    arrays.setVertexArray(state, m_vertices);
    arrays.setNormalArray(state, m_normals);
    arrays.setColorArray(state, m_colors);
    if (isTextured && !m_textureCoordinates->empty()) {
        arrays.setTexCoordArray(state, 0, m_textureCoordinates);
    }
    arrays.applyDisablingOfVertexAttributes(state);
    Binding binding;
    binding.pace = osg::get<Driver>(state.getContextID())->isSoftware ? state.get<KrDrawPace>() : nullptr;
    binding.gl = state.get<osg::GLExtensions>();
    binding.arrays = &arrays;
    for (const osg::DrawElements* const indices :
         {static_cast<const osg::DrawElements*>(m_narrow), static_cast<const osg::DrawElements*>(m_wide)}) {
        // An empty buffer has no object that could be bound.
        osg::GLBufferObject* const buffer =
            indices->getNumIndices() == 0 ? nullptr : indices->getOrCreateGLBufferObject(state.getContextID());
        (indices == m_narrow ? binding.narrow : binding.wide) = buffer;
    }
    return binding;
}

void KrMeshArena::draw(const Binding& binding, const Mesh& mesh, const Run& run, const KrTriangleSieve::View* view,
                       std::size_t& nextSeen) const
{
    if (view == nullptr || run.count < kFewestSifted) {
        draw(binding, mesh, run.first, static_cast<std::size_t>(run.count));
    } else if (mesh.isWide) {
        drawSeen(binding, mesh, run, *view, nextSeen, &(*m_wide)[run.first], m_wideCorners);
    } else {
        drawSeen(binding, mesh, run, *view, nextSeen, &(*m_narrow)[run.first], m_narrowCorners);
    }
}

/// Draws from the buffer of the mesh.
void KrMeshArena::draw(const Binding& binding, const Mesh& mesh, std::size_t first, std::size_t count)
{
    if (count == 0) {
        return;
    }
    osg::GLBufferObject* const buffer = mesh.isWide ? binding.wide : binding.narrow;
    // Nothing where it is bound already.
    binding.arrays->bindElementBufferObject(buffer);
    const GLenum type = mesh.isWide ? GL_UNSIGNED_INT : GL_UNSIGNED_SHORT;
    const std::uintptr_t offset = first * (mesh.isWide ? sizeof(GLuint) : sizeof(GLushort));
    binding.gl->glDrawElementsBaseVertex(GL_TRIANGLES, static_cast<GLsizei>(count), type,
                                         reinterpret_cast<const void*>(offset), mesh.baseVertex);
    if (binding.pace != nullptr) {
        binding.pace->handOver(*binding.gl, count);
    }
}

void KrMeshArena::sift(const Mesh& mesh, const Run& run, const KrTriangleSieve::View& view) const
{
    if (run.count >= kFewestSifted) {
        m_sifting.add(view, sieves(mesh, run));
    }
}

/// Those of a run, made when they are first asked for.
const std::vector<KrTriangleSieve>& KrMeshArena::sieves(const Mesh& mesh, const Run& run) const
{
    if (run.sieves.empty()) {
        if (mesh.isWide) {
            makeSieves(mesh, run, &(*m_wide)[run.first]);
        } else {
            makeSieves(mesh, run, &(*m_narrow)[run.first]);
        }
    }
    return run.sieves;
}

template <typename Index>
void KrMeshArena::makeSieves(const Mesh& mesh, const Run& run, const Index* indices) const
{
    const auto end = static_cast<std::size_t>(run.count);
    const osg::Vec3* const vertices = &(*m_vertices)[static_cast<std::size_t>(mesh.baseVertex)];
    std::vector<std::uint16_t> numbers(*std::max_element(indices, indices + end) + std::size_t{1},
                                       KrTriangleSieve::kNoNumber);
    for (std::size_t begin = 0; begin < end; begin += KrTriangleSieve::kMostIndices) {
        run.sieves.emplace_back(vertices, indices + begin, std::min(KrTriangleSieve::kMostIndices, end - begin),
                                numbers);
    }
}

/// Draws what may show, from memory: the driver is on the processor.
/// @param indices  of the run
template <typename Index>
void KrMeshArena::drawSeen(const Binding& binding, const Mesh& mesh, const Run& run, const KrTriangleSieve::View& view,
                           std::size_t& nextSeen, const Index* indices, std::vector<Index>& corners) const
{
    std::size_t begin = 0;
    for (const KrTriangleSieve& sieve : sieves(mesh, run)) {
        const std::size_t first = begin;
        begin += KrTriangleSieve::kMostIndices;
        const KrSiftingPass::Seen seen = m_sifting.seen(nextSeen++, sieve, view);
        if (seen.isWhole) {
            draw(binding, mesh, run.first + first, 3 * sieve.numTriangles());
        } else if (seen.begin != seen.end) {
            corners.resize(std::max(corners.size(), 3 * static_cast<std::size_t>(seen.end - seen.begin)));
            const std::size_t count =
                KrTriangleSieve::copy(indices + first, seen.begin, seen.end, view.nearest, corners.data());
            if (count == 0) {
                continue;
            }
            binding.arrays->unbindElementBufferObject();
            binding.gl->glDrawElementsBaseVertex(GL_TRIANGLES, static_cast<GLsizei>(count),
                                                 sizeof(Index) == sizeof(GLuint) ? GL_UNSIGNED_INT : GL_UNSIGNED_SHORT,
                                                 corners.data(), mesh.baseVertex);
            binding.pace->handOver(*binding.gl, count);
        }
    }
}

void KrMeshArena::unbind(osg::State& state)
{
    // As every drawable of the scene graph leaves them: the next one may draw from memory.
    state.unbindVertexBufferObject();
    state.unbindElementBufferObject();
}

void KrMeshArena::resizeGLObjectBuffers(unsigned int maxSize)
{
    m_vertices->getVertexBufferObject()->resizeGLObjectBuffers(maxSize);
    m_textureCoordinates->getVertexBufferObject()->resizeGLObjectBuffers(maxSize);
    m_narrow->getElementBufferObject()->resizeGLObjectBuffers(maxSize);
    m_wide->getElementBufferObject()->resizeGLObjectBuffers(maxSize);
    for (const States& states : m_states) {
        states.set->resizeGLObjectBuffers(maxSize); // those for fronts have the same attributes
    }
}

void KrMeshArena::releaseGLObjects(osg::State* state) const
{
    m_vertices->getVertexBufferObject()->releaseGLObjects(state);
    m_textureCoordinates->getVertexBufferObject()->releaseGLObjects(state);
    m_narrow->getElementBufferObject()->releaseGLObjects(state);
    m_wide->getElementBufferObject()->releaseGLObjects(state);
    for (const States& states : m_states) {
        states.set->releaseGLObjects(state);
    }
}
