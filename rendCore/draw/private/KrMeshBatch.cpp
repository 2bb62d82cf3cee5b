#include <rendCore/draw/private/KrMeshBatch.h>

#include <osg/GLExtensions>
#include <osg/Program>
#include <osg/RenderInfo>
#include <osg/State>
#include <osg/Uniform>
#include <osg/Viewport>

namespace
{

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

/// Whether backs are sorted out before the driver, which draws with the processor, sees them. A graphics card has its
/// indices already, and is faster in leaving backs out than in being sent others.
/// @param sight  set where they are
bool isSortedOut(const KrMeshArena::Binding& binding, KrMeshArena::Faces faces, const KrMeshBatch::Item& item,
                 const osg::State& state, KrMeshArena::Sight& sight)
{
    const osg::Viewport* const viewport = state.getCurrentViewport();
    if (!binding.isSoftware || faces == KrMeshArena::Faces::Both || viewport == nullptr) {
        return false;
    }
    sight = {item.modelView * state.getProjectionMatrix(), viewport->width(), viewport->height()};
    return true;
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
    KrMeshArena::Sight sight;
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
        const bool isSorted = isSortedOut(binding, faces, item, state, sight);
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
            m_arena->draw(binding, *item.mesh, part.levels[item.level], isSorted ? &sight : nullptr);
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
    KrMeshArena::Sight sight;
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
        const bool isSorted = isSortedOut(binding, faces, item, state, sight);
        for (const KrMeshArena::Part& range : item.mesh->parts) {
            m_arena->draw(binding, *item.mesh, range.levels[item.level], isSorted ? &sight : nullptr);
        }
    }
    // For what the scene graph draws next, which says itself what it is.
    constexpr GLuint kNone[4] = {};
    binding.gl->glUniform4uiv(part, 1, kNone);
    KrMeshArena::unbind(state);
}
