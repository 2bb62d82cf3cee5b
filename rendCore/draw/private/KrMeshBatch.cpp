#include <rendCore/draw/private/KrMeshBatch.h>

#include <osg/RenderInfo>
#include <osg/State>

namespace
{

/// The distance of the near plane, of a perspective or a parallel projection. m
double nearOf(const osg::Matrixd& projection)
{
    return projection(3, 3) == 0.0 ? projection(3, 2) / (projection(2, 2) - 1.0)
                                   : (projection(3, 2) + 1.0) / projection(2, 2);
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
    , m_frontLight(other.m_frontLight)
    , m_areBackFacesCulled(other.m_areBackFacesCulled)
    , m_items(other.m_items)
{
}

KrMeshBatch::~KrMeshBatch() = default;

void KrMeshBatch::begin(const KrMeshArena& arena, bool areBackFacesCulled)
{
    m_arena = &arena;
    m_frontLight = arena.frontLight();
    m_areBackFacesCulled = areBackFacesCulled;
    m_items.clear();
}

void KrMeshBatch::drawImplementation(osg::RenderInfo& renderInfo) const
{
    osg::State& state = *renderInfo.getState();
    KrMeshArena::Binding binding = m_arena->bind(state, false);
    bool isTextured = false;
    const osg::StateSet* last = nullptr;
    const double near = nearOf(state.getProjectionMatrix());
    using Faces = KrMeshArena::Faces;
    // A scene may have more than one light model: what has been culled since then may have brought another.
    const bool isLightKnown = m_frontLight == m_arena->frontLight();
    for (const Item& item : m_items) {
        // An eye in a body, and a plane that cuts it open, show its inside.
        const Faces faces = !isLightKnown                                                 ? Faces::Both
                            : m_areBackFacesCulled                                        ? Faces::Fronts
                            : item.depth > 0.0f && static_cast<double>(item.depth) > near ? Faces::FrontsOnly
                                                                                          : Faces::Both;
        // Through the state, which knows afterwards that the matrix is another one than the leaf's.
        state.applyModelViewMatrix(item.modelView);
        for (const KrMeshArena::Part& part : item.mesh->parts) {
            const osg::StateSet* const states = m_arena->states(part.states, faces);
            if (states != last) {
                state.apply(states);
                if (isTextured != m_arena->isTextured(part.states)) {
                    isTextured = !isTextured;
                    binding = m_arena->bind(state, isTextured);
                }
                last = states;
            }
            if (part.levels[item.level].count != 0) {
                KrMeshArena::draw(binding, *item.mesh, part.levels[item.level]);
            }
        }
    }
    KrMeshArena::unbind(state);
}
