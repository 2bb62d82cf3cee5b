#include <rendCore/draw/private/KrMeshBatch.h>

#include <osg/GLExtensions>
#include <osg/Program>
#include <osg/RenderInfo>
#include <osg/State>
#include <osg/Uniform>
#include <osg/VertexArrayState>

#include <algorithm>
#include <cmath>

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

/// Whether, as the driver's state is now, of two surfaces before a pixel the nearer one is all that is left, whichever
/// is drawn first.
bool isNearerSeen(const osg::GLExtensions& gl)
{
    for (const GLenum way :
         {GL_BLEND, GL_ALPHA_TEST, GL_STENCIL_TEST, GL_COLOR_LOGIC_OP, GL_POLYGON_STIPPLE, GL_POLYGON_OFFSET_FILL}) {
        if (glIsEnabled(way) == GL_TRUE) {
            return false;
        }
    }
    GLint numPlanes = 0;
    glGetIntegerv(GL_MAX_CLIP_PLANES, &numPlanes);
    for (GLint plane = 0; plane < numPlanes; ++plane) {
        if (glIsEnabled(GL_CLIP_PLANE0 + static_cast<GLenum>(plane)) == GL_TRUE) {
            return false;
        }
    }
    GLboolean areDepthsWritten = GL_FALSE;
    GLint comparison = GL_ALWAYS;
    GLfloat range[2] = {};
    glGetBooleanv(GL_DEPTH_WRITEMASK, &areDepthsWritten);
    glGetIntegerv(GL_DEPTH_FUNC, &comparison);
    glGetFloatv(GL_DEPTH_RANGE, range);
    // A client may count what is drawn.
    GLint query = 0;
    if (gl.glGetQueryiv != nullptr) {
        gl.glGetQueryiv(GL_SAMPLES_PASSED, GL_CURRENT_QUERY, &query);
    }
    return glIsEnabled(GL_DEPTH_TEST) == GL_TRUE && areDepthsWritten == GL_TRUE &&
           (comparison == GL_LESS || comparison == GL_LEQUAL) && range[0] == 0.0f && range[1] == 1.0f && query == 0;
}

} // namespace

/// From where a batch is seen, for drivers that draw with the processor. A graphics card has its indices already, and
/// is faster in leaving triangles out than in being sent those that are left.
class KrMeshBatch::Eye
{
public:
    /// @param isProgramOurs  the program that places vertices, as the matrices say; else there must be none
    Eye(const KrMeshArena::Binding& binding, const osg::State& state, bool isProgramOurs)
        : m_isOpen(binding.pace != nullptr && areMiddlesDrawn() && (isProgramOurs || areVerticesPlaced()))
    {
        if (!m_isOpen) {
            return;
        }
        // The driver's own: the scene graph's may have fractions, which are cut off.
        GLint viewport[4] = {};
        GLint numBits = 0;
        GLint numDepthBits = 0;
        glGetIntegerv(GL_VIEWPORT, viewport);
        glGetIntegerv(GL_SUBPIXEL_BITS, &numBits);
        glGetIntegerv(GL_DEPTH_BITS, &numDepthBits);
        m_view.projection = state.getProjectionMatrix();
        m_view.width = static_cast<double>(viewport[2]);
        m_view.height = static_cast<double>(viewport[3]);
        m_view.rounding = std::ldexp(1.0, -std::max(numBits, kFewestSubpixelBits));
        m_view.depthRounding = std::ldexp(1.0, -numDepthBits);
        m_areDepthsKept = numDepthBits != 0;
    }
    /// Whether it looks at triangles at all.
    bool isOpen() const { return m_isOpen; }
    /// Of the viewport.
    std::uint32_t width() const { return static_cast<std::uint32_t>(m_view.width); }
    std::uint32_t height() const { return static_cast<std::uint32_t>(m_view.height); }
    /// From now on leaves out triangles behind others, where these may be left out.
    /// @return whether it does
    bool hideWhatIsBehind(KrSiftingPass& pass, const osg::GLExtensions& gl)
    {
        if (m_nearest == nullptr && m_areDepthsKept &&
            std::size_t{width()} * height() <= KrNearestDepths::kMostPixels && isNearerSeen(gl)) {
            m_nearest = &pass.nearest();
        }
        return m_nearest != nullptr;
    }
    /// Null where all triangles go to the driver.
    /// @param isHiding  whether what is behind a part does not show
    const KrTriangleSieve::View* viewOf(const Item& item, KrMeshArena::Faces faces, bool isHiding)
    {
        m_view.modelView = item.modelView;
        m_view.areBacksLeftOut = faces != KrMeshArena::Faces::Both;
        m_view.nearest = isHiding ? m_nearest : nullptr;
        return m_isOpen ? &m_view : nullptr;
    }

private:
    bool m_isOpen;
    KrTriangleSieve::View m_view;
    bool m_areDepthsKept = false;
    KrNearestDepths* m_nearest = nullptr;
};

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
    if (m_arena != &arena) {
        // What is known of the arrays goes by their addresses, which those of another arena may get.
        releaseGLObjects();
    }
    m_partUniform = partUniform;
    m_arena = &arena;
    m_fronts = fronts;
    m_areBackFacesCulled = areBackFacesCulled;
    m_items.clear();
    m_next = nullptr;
    m_pass = 0;
}

osg::VertexArrayState* KrMeshBatch::createVertexArrayStateImplementation(osg::RenderInfo& renderInfo) const
{
    osg::VertexArrayState* const arrays = osg::Drawable::createVertexArrayStateImplementation(renderInfo);
    // Without one the batches would share the context's, of which each knows only what it set itself.
    arrays->generateVertexArrayObject();
    return arrays;
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
    Eye eye(binding, state, false);
    std::size_t nextSeen = sift(eye, near, *binding.gl);
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
            m_arena->draw(binding, *item.mesh, part.levels[item.level],
                          eye.viewOf(item, faces, m_arena->isHiding(part.states)), nextSeen);
        }
    }
    pushLook(state, look, nullptr);
    KrMeshArena::unbind(state);
}

/// Looks through all items, and those of the batches that follow, so that each is drawn with all known that may hide
/// it.
/// @return where the items are found, among what has been looked through
std::size_t KrMeshBatch::sift(Eye& eye, double near, const osg::GLExtensions& gl) const
{
    KrSiftingPass& pass = m_arena->sifting();
    if (!eye.isOpen()) {
        return pass.numAdded();
    }
    if (m_pass == 0 || (m_pass != kNoPass && m_pass != pass.number())) {
        std::size_t numIndices = 0;
        for (const KrMeshBatch* batch = this; batch != nullptr; batch = batch->m_next) {
            numIndices += batch->numIndices();
        }
        const bool isWorthwhile = numIndices >= KrSiftingPass::kFewestIndices && eye.hideWhatIsBehind(pass, gl);
        if (isWorthwhile) {
            pass.begin(eye.width(), eye.height());
        }
        for (const KrMeshBatch* batch = this; batch != nullptr; batch = batch->m_next) {
            batch->m_pass = isWorthwhile ? pass.number() : kNoPass;
            batch->m_firstSeen = pass.numAdded();
            if (isWorthwhile) {
                batch->addToPass(eye, near);
            }
        }
        if (isWorthwhile) {
            pass.run();
        }
    }
    return m_pass != kNoPass && eye.hideWhatIsBehind(pass, gl) ? m_firstSeen : pass.numAdded();
}

/// Three for each triangle, of all items.
std::size_t KrMeshBatch::numIndices() const
{
    std::size_t sum = 0;
    for (const Item& item : m_items) {
        for (const KrMeshArena::Part& part : item.mesh->parts) {
            sum += static_cast<std::size_t>(part.levels[item.level].count);
        }
    }
    return sum;
}

void KrMeshBatch::addToPass(Eye& eye, double near) const
{
    for (const Item& item : m_items) {
        const KrMeshArena::Faces faces = facesOf(item, near);
        for (const KrMeshArena::Part& part : item.mesh->parts) {
            const bool isHiding = m_partUniform != nullptr || m_arena->isHiding(part.states);
            m_arena->sift(*item.mesh, part.levels[item.level], *eye.viewOf(item, faces, isHiding));
        }
    }
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
    Eye eye(binding, state, true);
    std::size_t nextSeen = sift(eye, near, *binding.gl);
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
        for (const KrMeshArena::Part& range : item.mesh->parts) {
            m_arena->draw(binding, *item.mesh, range.levels[item.level], eye.viewOf(item, faces, true), nextSeen);
        }
    }
    // For what the scene graph draws next, which says itself what it is.
    constexpr GLuint kNone[4] = {};
    binding.gl->glUniform4uiv(part, 1, kNone);
    KrMeshArena::unbind(state);
}
