#include <rendCore/draw/private/KrMeshBatch.h>

#include <osg/GLExtensions>
#include <osg/Program>
#include <osg/RenderInfo>
#include <osg/State>
#include <osg/Uniform>

#include <algorithm>
#include <cmath>
#include <optional>

namespace
{

/// Of a pixel, to which every driver rounds corners or finer.
constexpr GLint kFewestSubpixelBits = 4;

/// The distance of the near plane, of a perspective or a parallel projection. m
double nearOf(const osg::Matrixd& projection)
{
    return projection(3, 3) == 0.0 ? projection(3, 2) / (projection(2, 2) - 1.0)
                                   : (projection(3, 2) + 1.0) / projection(2, 2);
}

/// Puts `look` in the place of the last one; null for none.
void pushLook(osg::State& state, const osg::StateSet* last, const osg::StateSet* look)
{
    if (last != nullptr) {
        state.popStateSet();
    }
    if (look != nullptr) {
        state.pushStateSet(look);
    }
}

/// Whether the driver, as its state is now, draws those pixels of a triangle whose middles are within it: no lines, no
/// smooth borders, and no further samples.
bool areMiddlesDrawn()
{
    GLint samples = 0;
    GLint modes[2] = {GL_FILL, GL_FILL}; // of fronts and backs
    glGetIntegerv(GL_SAMPLES, &samples);
    glGetIntegerv(GL_POLYGON_MODE, modes);
    return samples <= 1 && modes[0] == GL_FILL && modes[1] == GL_FILL && glIsEnabled(GL_POLYGON_SMOOTH) == GL_FALSE;
}

/// Whether vertices go where the matrices say. A client's callback may have left a program of which the scene graph
/// knows nothing.
bool areVerticesPlaced()
{
    GLint program = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    return program == 0;
}

/// From where a batch is seen, but for its items' own; nothing where all triangles go to the driver. A graphics card
/// has its indices already, and is faster in leaving triangles out than in being sent those that are left.
/// @param isProgramOurs  the program that places vertices, as the matrices say; else there must be none
std::optional<KrTriangleSieve::View> viewOf(const KrMeshArena::Binding& binding, const osg::State& state,
                                            bool isProgramOurs)
{
    if (binding.pace == nullptr || !areMiddlesDrawn() || !(isProgramOurs || areVerticesPlaced())) {
        return {};
    }
    // The driver's own: the scene graph's may have fractions, which are cut off.
    GLint viewport[4] = {};
    glGetIntegerv(GL_VIEWPORT, viewport);
    GLint numBits = 0;
    glGetIntegerv(GL_SUBPIXEL_BITS, &numBits);
    KrTriangleSieve::View view;
    view.projection = state.getProjectionMatrix();
    view.width = static_cast<double>(viewport[2]);
    view.height = static_cast<double>(viewport[3]);
    view.rounding = std::ldexp(1.0, -std::max(numBits, kFewestSubpixelBits));
    return view;
}

/// Takes over what an item has of its own.
const KrTriangleSieve::View* viewOfItem(std::optional<KrTriangleSieve::View>& view, const KrMeshBatch::Item& item,
                                        KrMeshArena::Faces faces)
{
    if (!view) {
        return nullptr;
    }
    view->modelView = item.modelView;
    view->areBacksLeftOut = faces != KrMeshArena::Faces::Both;
    return &*view;
}

} // namespace

KrMeshBatch::KrMeshBatch()
{
    // The items change with every frame.
    setSupportsDisplayList(false);
    setUseDisplayList(false);
}

KrMeshBatch::KrMeshBatch(const KrMeshBatch& other, const osg::CopyOp& copyOp)
    : osg::Drawable(other, copyOp)
    , m_arena(other.m_arena)
    , m_fronts(other.m_fronts)
    , m_areBackFacesCulled(other.m_areBackFacesCulled)
    , m_partUniform(other.m_partUniform)
    , m_items(other.m_items)
{
}

KrMeshBatch::~KrMeshBatch() = default;

void KrMeshBatch::begin(const KrMeshArena& arena, const osg::ref_ptr<const KrMeshArena::FrontStates>& fronts,
                        bool areBackFacesCulled, const char* partUniform)
{
    m_partUniform = partUniform;
    m_arena = &arena;
    m_fronts = fronts;
    m_areBackFacesCulled = areBackFacesCulled;
    m_items.clear();
}

void KrMeshBatch::drawImplementation(osg::RenderInfo& renderInfo) const
{
    osg::State& state = *renderInfo.getState();
    if (m_partUniform != nullptr) {
        drawParts(state);
        return;
    }
    KrMeshArena::Binding binding = m_arena->bind(state, false);
    bool isTextured = false;
    const osg::StateSet* last = nullptr;
    const osg::StateSet* look = nullptr;
    const double near = nearOf(state.getProjectionMatrix());
    std::optional<KrTriangleSieve::View> view = viewOf(binding, state, false);
    for (const Item& item : m_items) {
        if (item.look != look) {
            // The state weighs it against what is above and below, as for a node of the graph.
            pushLook(state, look, item.look);
            look = item.look;
            last = nullptr;
        }
        const KrMeshArena::Faces faces = facesOf(item, near);
        // Through the state, which knows afterwards that the matrix is another one than the leaf's.
        state.applyModelViewMatrix(item.modelView);
        const KrTriangleSieve::View* const seenFrom = viewOfItem(view, item, faces);
        for (const KrMeshArena::Part& part : item.mesh->parts) {
            const osg::StateSet* const states = m_arena->states(part.states, faces, *m_fronts);
            if (states != last) {
                state.apply(states);
                if (isTextured != m_arena->isTextured(part.states)) {
                    isTextured = !isTextured;
                    binding = m_arena->bind(state, isTextured);
                }
                last = states;
            }
            m_arena->draw(binding, *item.mesh, part.levels[item.level], seenFrom);
        }
    }
    pushLook(state, look, nullptr);
    KrMeshArena::unbind(state);
}

/// Which faces of an item are drawn.
KrMeshArena::Faces KrMeshBatch::facesOf(const Item& item, double near) const
{
    using Faces = KrMeshArena::Faces;
    if (m_areBackFacesCulled) {
        return Faces::Fronts;
    }
    // An eye in a body, and a plane that cuts it open, show its inside.
    return item.depth > 0.0f && static_cast<double>(item.depth) > near ? Faces::FrontsOnly : Faces::Both;
}

/// The same triangles as in colours, whatever they look like.
void KrMeshBatch::drawParts(osg::State& state) const
{
    const osg::Program::PerContextProgram* const program = state.getLastAppliedProgramObject();
    const KrMeshArena::Binding binding = m_arena->bind(state, false);
    const GLint part = program != nullptr ? program->getUniformLocation(osg::Uniform::getNameID(m_partUniform)) : -1;
    const double near = nearOf(state.getProjectionMatrix());
    std::optional<KrTriangleSieve::View> view = viewOf(binding, state, true);
    bool isSolid = false;
    for (const Item& item : m_items) {
        const KrMeshArena::Faces faces = facesOf(item, near);
        const bool isNextSolid = faces == KrMeshArena::Faces::FrontsOnly;
        if (isNextSolid != isSolid) {
            isSolid = isNextSolid;
            state.apply(isSolid ? m_arena->solid() : nullptr);
        }
        state.applyModelViewMatrix(item.modelView);
        binding.gl->glUniform4uiv(part, 1, item.part.data());
        const KrTriangleSieve::View* const seenFrom = viewOfItem(view, item, faces);
        for (const KrMeshArena::Part& range : item.mesh->parts) {
            m_arena->draw(binding, *item.mesh, range.levels[item.level], seenFrom);
        }
    }
    // For what the scene graph draws next, which says itself what it is.
    constexpr GLuint kNone[4] = {};
    binding.gl->glUniform4uiv(part, 1, kNone);
    KrMeshArena::unbind(state);
}
