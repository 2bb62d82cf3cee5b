// Buffers of whole numbers are cleared through the GL library itself: the scene graph's table of functions lacks it.
#define GL_GLEXT_PROTOTYPES

#include <rendCore/capture/private/KrLabelPass.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/base/private/KrPixelConversion.h>
#include <rendCore/base/private/KrPixelTransferGuard.h>

#include <osg/ColorMask>
#include <osg/GLExtensions>
#include <osg/GLObjects>
#include <osg/LogicOp>
#include <osg/Scissor>
#include <osg/Uniform>
#include <osgViewer/Viewer>

namespace
{

constexpr unsigned int kOnOverride = osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE;

// What belongs to no part is moved out of sight as a whole. Positions are those of the fixed pipeline, to the last bit:
// so the same pixels are covered as by colours.
constexpr const char* kVertexShader = R"(#version 130
uniform uvec4 krPart;
uniform uvec4 krMeshPart;
void main()
{
    gl_Position = (krPart | krMeshPart) == uvec4(0u) ? vec4(2.0, 0.0, 0.0, 1.0) : ftransform();
    gl_ClipVertex = gl_ModelViewMatrix * gl_Vertex;
}
)";

constexpr const char* kPartShader = R"(#version 130
uniform uvec4 krPart;
uniform uvec4 krMeshPart;
out uvec4 result;
void main()
{
    result = krPart | krMeshPart;
}
)";

constexpr const char* kNormalVertexShader = R"(#version 130
uniform uvec4 krPart;
uniform uvec4 krMeshPart;
out vec3 normal;
void main()
{
    gl_Position = (krPart | krMeshPart) == uvec4(0u) ? vec4(2.0, 0.0, 0.0, 1.0) : ftransform();
    gl_ClipVertex = gl_ModelViewMatrix * gl_Vertex;
    vec3 n = gl_NormalMatrix * gl_Normal;
    normal = n * inversesqrt(max(dot(n, n), 1e-30));
}
)";

// As little as can be: most triangles are smaller than what a driver shades at once. See
// KrPixelConversion::LabelledNormals for the layout.
constexpr const char* kNormalShader = R"(#version 130
uniform uvec4 krPart;
uniform uvec4 krMeshPart;
in vec3 normal;
out uvec4 result;
void main()
{
    ivec3 n = ivec3(normal * 16383.0 + 16384.5);
    result = uvec4((krPart | krMeshPart).x | uint(n.z << 19), uint(n.x | n.y << 15 | n.z >> 13 << 30), 0u, 0u);
}
)";

osg::ref_ptr<osg::StateSet> makeStates(const char* name, const char* vertexShader, const char* fragmentShader)
{
    const osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName(name);
    program->addShader(new osg::Shader(osg::Shader::VERTEX, vertexShader));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, fragmentShader));
    osg::ref_ptr<osg::StateSet> states = new osg::StateSet;
    states->setAttributeAndModes(program, kOnOverride);
    // Whole numbers are never blended; a mask of colours would leave out what hides the rest.
    states->setAttribute(new osg::ColorMask(true, true, true, true), kOnOverride);
    // What nobody speaks for is no part. The uniform of meshes is left to who draws them.
    const osg::ref_ptr<osg::Uniform> none = new osg::Uniform(osg::Uniform::UNSIGNED_INT_VEC4, KrLabelCamera::kPart);
    none->set(0u, 0u, 0u, 0u);
    states->addUniform(none);
    return states;
}

bool isComplete(const osg::GLExtensions& gl)
{
    return gl.glCheckFramebufferStatus(GL_FRAMEBUFFER_EXT) == GL_FRAMEBUFFER_COMPLETE_EXT;
}

} // namespace

KrLabelPass::KrLabelPass()
    : m_camera(new KrLabelCamera)
    , m_visitor(new osgUtil::CullVisitor)
    , m_graph(new osgUtil::StateGraph)
    , m_stage(new osgUtil::RenderStage)
    , m_projection(new osg::RefMatrix)
    , m_view(new osg::RefMatrix)
    , m_viewport(new osg::Viewport)
    , m_scissor(new osg::Scissor)
    , m_cut(new osg::StateSet)
    , m_labelStates(makeStates("labels", kVertexShader, kPartShader))
    , m_normalStates(makeStates("labels and normals", kNormalVertexShader, kNormalShader))
    , m_bitStates(makeStates("parts alone", kVertexShader, kPartShader))
{
    m_cut->setAttributeAndModes(m_scissor, kOnOverride);
    // Whole numbers are not blended, but they are combined.
    for (osg::StateSet* const states : {m_labelStates.get(), m_normalStates.get()}) {
        states->setMode(GL_COLOR_LOGIC_OP, osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
    }
    // A camera's own states hold its viewport, which is larger than the target's where the picture is reduced.
    for (osg::StateSet* const states : {m_labelStates.get(), m_normalStates.get(), m_bitStates.get()}) {
        states->setAttribute(m_viewport, kOnOverride);
    }
    // Every part by itself: what is before it does not matter, and bits are added.
    m_bitStates->setMode(GL_DEPTH_TEST, osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
    m_bitStates->setAttributeAndModes(new osg::LogicOp(osg::LogicOp::OR), kOnOverride);
}

KrLabelPass::~KrLabelPass() = default;

void KrLabelPass::attach(osg::Camera& camera)
{
    // By itself an observer of what is gone equals whatever lies there now.
    if (m_owner.valid() && m_owner.get() == &camera) {
        return;
    }
    detach();
    // A camera that is gone has left its chain of callbacks behind, in which this one stood.
    setNestedCallback(nullptr);
    camera.addPostDrawCallback(this);
    m_owner = &camera;
}

void KrLabelPass::detach()
{
    if (m_owner.valid()) {
        const osg::GraphicsContext* const context = m_owner->getGraphicsContext();
        // They are deleted with the next frame of that context.
        if (context && context->getState()) {
            releaseOwnObjects(const_cast<osg::State*>(context->getState()));
        }
        m_owner->removePostDrawCallback(this);
    }
    m_owner = nullptr;
    // Those of another context, with whatever else was of it.
    m_target = nullptr;
}

const char* KrLabelPass::whyImpossible(const osg::State& state)
{
    const osg::GLExtensions* const gl = state.get<osg::GLExtensions>();
    return gl != nullptr && gl->glVersion >= 3.0f && gl->isFrameBufferObjectSupported && gl->glUniform4uiv != nullptr
               ? nullptr
               : "the driver has no framebuffers of whole numbers (OpenGL 3.0)";
}

/// A target of that size and content, bound.
const char* KrLabelPass::prepare(osg::State& state, int width, int height, Content content)
{
    const GLenum format = content == Content::Labels    ? GL_R32UI
                          : content == Content::Normals ? GL_RG32UI
                                                        : GL_RGBA32UI_EXT;
    const osg::GLExtensions& gl = *state.get<osg::GLExtensions>();
    if (!m_target || m_width != width || m_height != height || m_content != content) {
        if (m_target) {
            m_target->releaseGLObjects(&state);
            osg::flushAllDeletedGLObjects(state.getContextID());
        }
        m_target = new osg::FrameBufferObject;
        m_target->setAttachment(osg::Camera::COLOR_BUFFER, osg::FrameBufferAttachment(new osg::RenderBuffer(
                                                               width, height, static_cast<int>(format))));
        m_target->setAttachment(osg::Camera::DEPTH_BUFFER,
                                osg::FrameBufferAttachment(new osg::RenderBuffer(width, height, GL_DEPTH_COMPONENT24)));
        m_width = width;
        m_height = height;
        m_content = content;
    }
    m_target->apply(state, osg::FrameBufferObject::READ_DRAW_FRAMEBUFFER);
    if (isComplete(gl)) {
        return nullptr;
    }
    m_target->releaseGLObjects(&state);
    m_target = nullptr;
    return "the driver has no framebuffer of that size for whole numbers";
}

const char* KrLabelPass::draw(osgViewer::Viewer& viewer, int width, int height, const Request& request,
                              std::vector<View>& views, const Area* scissor)
{
    osg::State& state = *viewer.getCamera()->getGraphicsContext()->getState();
    attach(*viewer.getCamera());
    if (!state.get<osg::GLExtensions>()) {
        state.initializeExtensionProcs();
    }
    const char* failure = whyImpossible(state);
    if (failure == nullptr) {
        failure = prepare(state, width, height, request.content);
        if (failure != nullptr) {
            end(viewer);
        }
    }
    if (failure != nullptr) {
        return failure;
    }
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDepthMask(GL_TRUE);
    state.haveAppliedAttribute(osg::StateAttribute::COLORMASK);
    state.haveAppliedAttribute(osg::StateAttribute::DEPTH);
    const Area cleared = scissor != nullptr ? *scissor : Area{0, 0, width, height};
    state.applyMode(GL_SCISSOR_TEST, true);
    glScissor(cleared.x, cleared.y, cleared.width, cleared.height);
    state.haveAppliedAttribute(osg::StateAttribute::SCISSOR);
    m_scissor->setScissor(cleared.x, cleared.y, cleared.width, cleared.height);
    constexpr GLuint kNothing[4] = {};
    constexpr GLfloat kFarthest = 1.0f;
    glClearBufferuiv(GL_COLOR, 0, kNothing);
    glClearBufferfv(GL_DEPTH, 0, &kFarthest);
    for (View& view : views) {
        cull(viewer, request, view, scissor != nullptr);
        if (request.content == Content::Normals && m_camera->largest() > KrPixelConversion::kLargestLabel) {
            failure = "it has more than 524287 parts, which are told without normals only";
        }
        osg::RenderInfo renderInfo(&state, &viewer);
        renderInfo.pushCamera(m_camera);
        osgUtil::RenderLeaf* previous = nullptr;
        m_stage->drawImplementation(renderInfo, previous);
        renderInfo.popCamera();
        state.popAllStateSets();
        state.apply();
        // What was drawn is let go: it may be taken out of the scene before the next pass.
        m_visitor->reset();
        m_graph->clean();
        m_stage->reset();
    }
    if (failure != nullptr) {
        end(viewer);
    }
    return failure;
}

void KrLabelPass::cull(osgViewer::Viewer& viewer, const Request& request, View& view, bool isCut)
{
    const osg::FrameStamp* const stamp = viewer.getFrameStamp();
    osg::StateSet* const program = request.content == Content::Labels    ? m_labelStates
                                   : request.content == Content::Normals ? m_normalStates
                                                                         : m_bitStates;
    m_camera->stand(*view.camera, request.level, request.content == Content::Bits ? request.firstBit : 0, program);
    m_viewport->setViewport(view.area.x, view.area.y, view.area.width, view.area.height);
    m_projection->set(view.camera->getProjectionMatrix());
    m_view->set(view.camera->getViewMatrix());

    m_visitor->reset();
    m_visitor->inheritCullSettings(*view.camera);
    // Links and shapes alone.
    m_visitor->setTraversalMask(view.camera->getCullMask() & KrRenderTypes::SceneContent);
    m_visitor->setFrameStamp(viewer.getFrameStamp());
    m_visitor->setTraversalNumber(stamp->getFrameNumber());
    m_visitor->setStateGraph(m_graph);
    m_visitor->setRenderStage(m_stage);
    osg::RenderInfo renderInfo(view.camera->getGraphicsContext()->getState(), &viewer);
    m_visitor->setRenderInfo(renderInfo);
    m_stage->reset();
    m_stage->setViewport(m_viewport);
    m_stage->setClearMask(0);
    m_stage->setCamera(m_camera);
    m_graph->clean();

    // As the viewer has it: what the main camera says holds for all views.
    osg::StateSet* const main = viewer.getCamera()->getStateSet();
    osg::StateSet* const own = view.camera->getStateSet();
    osg::StateSet* const above[] = {program, isCut ? m_cut.get() : nullptr, main, own != main ? own : nullptr};
    for (osg::StateSet* const states : above) {
        if (states != nullptr) {
            m_visitor->pushStateSet(states);
        }
    }
    m_visitor->pushViewport(m_viewport);
    m_visitor->pushProjectionMatrix(m_projection);
    m_visitor->pushModelViewMatrix(m_view, osg::Transform::ABSOLUTE_RF);
    view.camera->traverse(*m_visitor);
    m_visitor->popModelViewMatrix();
    m_visitor->popProjectionMatrix();
    m_visitor->popViewport();
    for (const osg::StateSet* const states : above) {
        if (states != nullptr) {
            m_visitor->popStateSet();
        }
    }
    m_stage->sort();
    m_graph->prune();
    view.projection = *m_projection;
    view.worldToEye = *m_view;
}

void KrLabelPass::readPixels(const osg::State& state, const Area& area, Content content, std::uint32_t* out)
{
    const KrPixelTransferGuard guard(*state.get<osg::GLExtensions>(), 4);
    askForPixels(area, content, out);
}

void KrLabelPass::askForPixels(const Area& area, Content content, void* out)
{
    const GLenum format = content == Content::Labels    ? GL_RED_INTEGER_EXT
                          : content == Content::Normals ? GL_RG_INTEGER
                                                        : GL_RGBA_INTEGER_EXT;
    glReadPixels(area.x, area.y, area.width, area.height, format, GL_UNSIGNED_INT, out);
}

void KrLabelPass::readDepths(const osg::State& state, const Area& area, std::uint32_t* out)
{
    const KrPixelTransferGuard guard(*state.get<osg::GLExtensions>(), 4);
    askForDepths(area, out);
}

void KrLabelPass::askForDepths(const Area& area, void* out)
{
    glReadPixels(area.x, area.y, area.width, area.height, GL_DEPTH_COMPONENT, GL_UNSIGNED_INT, out);
}

void KrLabelPass::end(osgViewer::Viewer& viewer)
{
    osg::GraphicsContext& context = *viewer.getCamera()->getGraphicsContext();
    osg::State& state = *context.getState();
    state.get<osg::GLExtensions>()->glBindFramebuffer(GL_FRAMEBUFFER_EXT, context.getDefaultFboId());
}

void KrLabelPass::releaseGLObjects(osg::State* state) const
{
    // Of what stands behind it in the camera's chain.
    osg::Camera::DrawCallback::releaseGLObjects(state);
    releaseOwnObjects(state);
}

void KrLabelPass::releaseOwnObjects(osg::State* state) const
{
    if (m_target) {
        m_target->releaseGLObjects(state);
    }
    for (const osg::StateSet* const states : {m_labelStates.get(), m_normalStates.get(), m_bitStates.get()}) {
        states->releaseGLObjects(state);
    }
}
