#include <rendCore/window/KrSGWindow.h>

#include <rendCore/aids/KrRenderAxis.h>
#include <rendCore/appearance/KrMaterialProperties.h>
#include <rendCore/appearance/KrSGTexture.h>
#include <rendCore/base/private/KrPixelTransferGuard.h>
#include <rendCore/window/KrSGBaseInputHandler.h>
#include <rendCore/window/KrSGDrawCallbacks.h>
#include <rendCore/window/private/KrContextRestorer.h>
#include <rendCore/window/private/KrGuestFrame.h>
#include <rendCore/window/private/KrGuestVisit.h>
#include <rendCore/window/private/KrRenderStages.h>

#include <toolkit/context/KrExternalWindowImpl.h>
#include <toolkit/context/KrWindowImpl.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/guest/KrClientState.h>

#include <osg/CullFace>
#include <osg/GLExtensions>
#include <osg/Geode>
#include <osg/LightModel>
#include <osg/LightSource>
#include <osg/PolygonMode>
#include <osg/ShadeModel>
#include <osg/Shape>
#include <osg/ShapeDrawable>
#include <osg/Timer>
#include <osgUtil/RenderStage>
#include <osgViewer/GraphicsWindow>
#include <osgViewer/Viewer>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <functional>
#include <mutex>
#include <utility>

namespace
{

constexpr osg::StateAttribute::GLModeValue kOn = osg::StateAttribute::ON;
constexpr osg::StateAttribute::GLModeValue kOnOverride = osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE;
constexpr osg::StateAttribute::GLModeValue kOffOverride = osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE;

/// The viewer's side of a window's context: what the viewer asks of it goes to the window.
///
/// The stock embedded window answers every request with yes and lets a viewer delete GL objects in whatever context
/// happens to be current. This one makes its own context current, and is closed once the window is.
class ContextWindow : public osgViewer::GraphicsWindowEmbedded
{
public:
    using Release = std::function<void(osg::State&)>;

    /// @param release  called when it is closed, with the state that is about to go
    ContextWindow(Traits* traits, KrWindow& window, Release release)
        : osgViewer::GraphicsWindowEmbedded(traits)
        , m_window(&window)
        , m_release(std::move(release))
    {
        if (dynamic_cast<KrExternalWindowImpl*>(window.getImpl())) {
            m_clientState = std::make_shared<KrClientState>();
        }
    }

    /// Null in a context of the library's own.
    const std::shared_ptr<KrClientState>& clientState() const { return m_clientState; }

    bool valid() const override { return m_window != nullptr; }
    bool isRealizedImplementation() const override { return m_window != nullptr; }
    bool makeCurrentImplementation() override
    {
        return m_window != nullptr && m_window->isUsableHere() && m_window->makeCurrent();
    }
    bool releaseContextImplementation() override
    {
        KrWindowImpl* const impl = m_window ? m_window->getImpl() : nullptr;
        // A client's context stays current where it was; whoever makes it current otherwise puts back what was.
        if (impl && !m_clientState) {
            impl->releaseCurrent();
        }
        return impl != nullptr;
    }
    void closeImplementation() override
    {
        if (m_window && getState()) {
            m_release(*getState());
        }
        m_window = nullptr;
    }

protected:
    // The base destructor cannot reach the overrides any more.
    ~ContextWindow() override
    {
        if (m_window) {
            close(true);
        }
    }

private:
    KrWindow* m_window;
    Release m_release;
    std::shared_ptr<KrClientState> m_clientState;
};

std::shared_ptr<KrClientState> clientState(osg::GraphicsContext* context)
{
    const auto* const window = dynamic_cast<const ContextWindow*>(context);
    return window ? window->clientState() : nullptr;
}

/// The scene graph keeps tables with an entry for each context, which grow when one with a new number begins, and which
/// frames of other threads read without a lock meanwhile. This makes them large enough before there is a second thread.
void reserveContexts()
{
    constexpr unsigned int kMostContexts = 16;
    static std::once_flag s_isReserved;
    std::call_once(s_isReserved, [] {
        std::array<unsigned int, kMostContexts> numbers = {};
        for (unsigned int& number : numbers) {
            number = osg::GraphicsContext::createNewContextID();
        }
        for (const unsigned int number : numbers) {
            osg::GraphicsContext::decrementContextIDUsageCount(number);
        }
    });
}

/// The context whose GL objects `window` shares, for the viewer's book-keeping; null when it shares none.
osg::GraphicsContext* sharedContext(const KrWindow& window)
{
    for (KrWindow* other : window.getShare()) {
        auto* scene = dynamic_cast<KrSGWindow*>(other);
        osgViewer::Viewer* viewer = scene ? scene->getViewer() : nullptr;
        osg::GraphicsContext* context = viewer ? viewer->getCamera()->getGraphicsContext() : nullptr;
        if (context && context->getState()) {
            return context;
        }
    }
    return nullptr;
}

} // namespace

KrSGWindow::KrSGWindow()
{
    KrWindow::setName("KrSGWindow");
}

KrSGWindow::~KrSGWindow()
{
    KrSGWindow::closeWindow();
    *m_link = nullptr;
}

bool KrSGWindow::init()
{
    if (!isInitialized() && !KrWindow::init()) {
        return false;
    }
    if (m_viewer.valid()) {
        return true;
    }

    m_viewer = new osgViewer::Viewer;
    // One thread owns the context. Left to choose, the viewer would start threads that want it.
    m_viewer->setThreadingModel(osgViewer::ViewerBase::SingleThreaded);
    m_viewer->setUseConfigureAffinity(false);
    m_viewer->setReleaseContextAtEndOfFrameHint(false);
    // A viewer that is "done" ignores frame() for ever; whether a key ends anything is the application's business.
    m_viewer->setKeyEventSetsDone(0);
    m_viewer->setQuitEventSetsDone(false);

    createGraphicsWindow();
    setUpCamera();
    if (!m_sceneRoot) {
        createSceneRoot();
    }
    if (!m_tempGroup) {
        createFixedNodes();
    }
    fitOverlay(); // made for an earlier size, maybe
    m_viewer->setSceneData(m_sceneRoot);

    const KrPovParameters pov = m_visualizationParameters.povParameters();
    if (!m_inputHandler) {
        m_inputHandler = new KrSGBaseInputHandler(this);
    }
    // Installing a manipulator sends it home, which would lose a point of view given since the home position was set.
    setInputHandler(m_inputHandler);
    if (!(m_visualizationParameters.povParameters() == pov)) {
        setPovParameters(pov);
    }
    if (m_viewerAttributes & OffScreen) {
        setOffScreenRendering(true);
    }
    return loadScene();
}

int KrSGWindow::surfaceWidth() const
{
    return static_cast<int>(std::max(1u, windowWidth()));
}

int KrSGWindow::surfaceHeight() const
{
    return static_cast<int>(std::max(1u, windowHeight()));
}

void KrSGWindow::createGraphicsWindow()
{
    // A stored context without a state was closed with an earlier viewer.
    if (m_graphicsWindow.valid() && m_graphicsWindow->getState()) {
        return;
    }
    reserveContexts();
    const osg::ref_ptr<osg::GraphicsContext::Traits> traits = new osg::GraphicsContext::Traits;
    traits->x = windowX();
    traits->y = windowY();
    traits->width = surfaceWidth();
    traits->height = surfaceHeight();
    traits->sharedContext = sharedContext(*this);
    m_graphicsWindow = new ContextWindow(traits, *this, [this](osg::State& state) { releaseNames(state); });
}

void KrSGWindow::setUpCamera()
{
    osg::Camera* const camera = m_viewer->getCamera();
    camera->setClearColor(osg::Vec4f(KrRenderTypes::ec2osg(getBackgroundColor())));
    camera->setViewport(new osg::Viewport(0.0, 0.0, surfaceWidth(), surfaceHeight()));
    // A resize of the context would otherwise rescale the projection that updateScene writes.
    camera->setProjectionResizePolicy(osg::Camera::FIXED);
    // A picture loses nothing: parts smaller than a pixel are drawn, too.
    camera->setCullingMode(camera->getCullingMode() & ~osg::CullSettings::SMALL_FEATURE_CULLING);
    camera->setGraphicsContext(m_graphicsWindow);
}

void KrSGWindow::createSceneRoot()
{
    m_sceneRoot = new osg::LightSource;
    m_sceneRoot->setName("Global Light");
    osg::StateSet* const states = m_sceneRoot->getOrCreateStateSet();
    states->setGlobalDefaults();
    // Kept in this order although it clears the defaults just set: the viewer's own supply them.
    m_sceneRoot->setLocalStateSetModes(kOn);
    const osg::ref_ptr<osg::LightModel> model = new osg::LightModel;
    model->setAmbientIntensity(osg::Vec4(KrRenderTypes::ec2osg(m_ambientLight)));
    model->setLocalViewer(true);
    model->setTwoSided(true);
    states->setAttribute(model);
}

void KrSGWindow::createFixedNodes()
{
    m_tempGroup = new osg::Group;
    m_tempGroup->setName("Temp Group");
    createCenterOfInterestMarker();

    m_globalAxisTransform = new osg::MatrixTransform(osg::Matrixd::scale(0.0, 0.0, 0.0));
    m_globalAxisTransform->setName("Global Axis Matrix");
    m_globalAxisTransform->addChild(KrRenderAxis::linkAxis(true));
    m_globalAxisTransform->setNodeMask(KrRenderTypes::GlobalAxisMarker);
    m_tempGroup->addChild(m_globalAxisTransform);

    createOverlayCamera();
}

void KrSGWindow::createCenterOfInterestMarker()
{
    m_coiTransform = new osg::MatrixTransform;
    m_coiTransform->setName("COI Matrix");
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->setName("COI");
    geode->addDrawable(new osg::ShapeDrawable(new osg::Sphere(osg::Vec3(0.0f, 0.0f, 0.0f), 1.0f)));
    const osg::ref_ptr<osg::StateSet> states = new osg::StateSet;
    KrMaterialProperties material;
    material.set(0.4, 0.03, 0.0);
    material.setState(states);
    geode->setStateSet(states);
    m_coiTransform->addChild(geode);
    m_coiTransform->setMatrix(osg::Matrixd::scale(0.0, 0.0, 0.0));
    m_coiTransform->setNodeMask(KrRenderTypes::CenterOfInterestMarker);
    m_tempGroup->addChild(m_coiTransform);
}

void KrSGWindow::createOverlayCamera()
{
    m_overlayCamera = new osg::Camera;
    m_overlayCamera->setName("Overlay Camera");
    m_overlayCamera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    m_overlayCamera->setViewMatrix(osg::Matrixd::identity());
    m_overlayCamera->setClearMask(GL_DEPTH_BUFFER_BIT);
    m_tempGroup->addChild(m_overlayCamera);
}

/// Its units are the window's pixels, whatever part of the window the camera above it draws into.
void KrSGWindow::fitOverlay()
{
    placeOverlayTexts();
    m_overlayCamera->setViewport(0, 0, surfaceWidth(), surfaceHeight());
    m_overlayCamera->setProjectionMatrixAsOrtho2D(0.0, windowWidth(), 0.0, windowHeight());
}

void KrSGWindow::attachToRoot(osg::Node* node)
{
    if (m_sceneRoot->getChildIndex(node) == m_sceneRoot->getNumChildren()) {
        m_sceneRoot->addChild(node);
    }
}

bool KrSGWindow::loadScene()
{
    if (!m_sceneRoot || !m_tempGroup) {
        return false; // there is nothing to attach before the window was opened
    }
    attachToRoot(m_coiTransform);
    attachToRoot(m_globalAxisTransform);
    attachToRoot(m_overlayCamera);
    m_displayMask = 0;
    setDisplayMask(KrRenderTypes::SceneContent, true, false);
    return true;
}

bool KrSGWindow::setNode(osg::ref_ptr<osg::Group> node)
{
    if (!node || !demandUsable("KrSGWindow::setNode") || ((!isInitialized() || !m_viewer) && !init())) {
        return false;
    }
    osg::LightSource* const root = dynamic_cast<osg::LightSource*>(node.get());
    if (!root) {
        attachToRoot(node);
        return true;
    }
    // The old root is out of reach once the window closes.
    releaseGLObjects();
    // Two windows never hold the same root.
    m_sceneRoot = getShare().empty() ? root : new osg::LightSource(*root, osg::CopyOp());
    // New scene data send the camera home; the point of view stays what the client made it.
    const KrPovParameters pov = m_visualizationParameters.povParameters();
    m_viewer->setSceneData(m_sceneRoot);
    setPovParameters(pov);
    return true;
}

osg::ref_ptr<osg::Group> KrSGWindow::getNode() const
{
    return m_sceneRoot;
}

void KrSGWindow::deleteContents()
{
    releaseGLObjects();
    m_lights.clear();
    if (m_sceneRoot.valid() && m_sceneRoot->getNumChildren() > 0) {
        m_sceneRoot->removeChildren(0, m_sceneRoot->getNumChildren());
    }
    m_dirtyFlags |= DirtyAll;
}

bool KrSGWindow::closeWindow()
{
    const KrContextRestorer restorer(this);
    {
        const KrGuestFrame guest(*this);
        const std::shared_ptr<KrClientState> client = clientState(m_graphicsWindow);
        releaseGLObjects();
        deleteContents();
        m_viewerAttributes &= ~std::uint32_t(OffScreen);
        if (m_inputHandler.valid()) {
            m_inputHandler->setNode(nullptr);
        }
        releaseViewer();
        m_sceneRoot = nullptr;
        KrSGTexture::removeTexturesFromContext(this);
        // Within a frame: whoever draws it does not get at the context any more.
        if (client && isInitialized() && getImpl()->isCurrent()) {
            client->leave();
        }
    }
    return KrWindow::closeWindow();
}

// Objects that outlive the context (the shared axis, shapes that another window shows, nodes masked out in the last
// frame) would otherwise keep names in it, and the next window on the same context id would draw with them.
void KrSGWindow::releaseGLObjects()
{
    osg::State* const state = m_graphicsWindow.valid() ? m_graphicsWindow->getState() : nullptr;
    if (!m_viewer || !state) {
        return;
    }
    const KrContextRestorer restorer(this);
    const KrGuestFrame guest(*this);
    if (isUsableHere()) {
        makeCurrent(); // where it cannot be, the names are forgotten all the same
    }
    releaseNames(*state);
}

void KrSGWindow::releaseNames(osg::State& state) const
{
    if (m_sceneRoot.valid()) {
        m_sceneRoot->releaseGLObjects(&state);
    }
    if (m_tempGroup.valid()) {
        m_tempGroup->releaseGLObjects(&state);
    }
    KrRenderAxis::linkAxis(false)->releaseGLObjects(&state);
    KrSGTexture::releaseGLObjects(this, &state);
}

// By the queue of its events, by a handler that closes it: the viewer's side of the window is all that they know.
bool KrSGWindow::closeWithContext()
{
    if (!m_viewer || (m_graphicsWindow.valid() && m_graphicsWindow->getState())) {
        return false;
    }
    Kr::Print::instance()->write(
        Kr::Print::Warning,
        "KrSGWindow::renderScene - the graphics context of \"%s\" was closed, and the window is "
        "closed with it.\n",
        getName().c_str());
    closeWindow();
    return true;
}

void KrSGWindow::releaseViewer()
{
    if (m_graphicsWindow.valid()) {
        m_graphicsWindow->close();
    }
    if (m_viewer.valid()) {
        // A frame that closes its window ends here; one without a context would open windows of its own.
        m_viewer->setDone(true);
        // A closed context has no state, and releasing "for no state" means for every window's.
        m_viewer->getCamera()->setGraphicsContext(nullptr);
        for (unsigned int i = 0; i < m_viewer->getNumSlaves(); ++i) {
            m_viewer->getSlave(i)._camera->setGraphicsContext(nullptr);
        }
    }
    m_viewer = nullptr;
    m_graphicsWindow = nullptr;
}

namespace
{

/// The scene graph does not dispatch an array again that lies at the address of the last one. Between two frames that
/// one may go, and another take its place: it would be drawn from a buffer that is no more.
void forgetVertexArrays(osg::State& state)
{
    state.lazyDisablingOfVertexAttributes();
    state.applyDisablingOfVertexAttributes();
}

/// What a callback of the frame before has left set would have textures read beyond their images.
void resetUnpacking(const osg::State& state)
{
    if (const osg::GLExtensions* const gl = state.get<osg::GLExtensions>()) {
        KrPixelTransferGuard::resetUnpacking(*gl);
    }
}

} // namespace

bool KrSGWindow::renderScene(bool swapBuffers)
{
    if (!demandUsable("KrSGWindow::renderScene")) {
        return false;
    }
    const KrGuestFrame guest(*this);
    if (closeWithContext() || (!m_viewer && !init())) {
        return false;
    }
    // Nothing may be drawn into somebody else's context.
    if (!makeCurrent()) {
        return false;
    }
    // Whoever is called in a frame may close the window: what the frame uses stays until its end.
    const osg::ref_ptr<osgViewer::Viewer> viewer = m_viewer;
    const osg::ref_ptr<osgViewer::GraphicsWindow> context = m_graphicsWindow;
    {
        const KrGuestVisit visit(clientState(context), *this);
        context->setDefaultFboId(getImpl()->defaultFramebuffer());
        resetUnpacking(*context->getState());
        updateScene();
        KrRenderStages::compileInFrame(*viewer);
        const osg::ref_ptr<DrawCallback> callback = m_drawCallback;
        if (m_viewer == viewer && callback.valid()) {
            callback->render(viewer);
        } else if (m_viewer == viewer) {
            viewer->frame(DBL_MAX);
        }
        if (m_viewer == viewer && context->getState()) {
            forgetVertexArrays(*context->getState());
            if (clientState(context)) {
                KrGuestFrame::makeOpaque(*viewer);
            }
        }
    }
    if (m_viewer == viewer && closeWithContext()) {
        return false;
    }
    if (swapBuffers) {
        this->swapBuffers();
    }
    return true;
}

bool KrSGWindow::updateScene()
{
    if (!isInitialized() || !m_viewer || m_dirtyFlags == 0) {
        return true;
    }
    if ((m_dirtyFlags & DirtyPov) && m_inputHandler.valid()) {
        m_inputHandler->setPovParameters(m_visualizationParameters.povParameters());
    }
    if (m_dirtyFlags & DirtyAxisScale) {
        KrRenderAxis::scaleAxis(m_visualizationParameters.GUIObjectParameters().axisScale());
    }
    const bool orthographicChanged =
        (m_dirtyFlags & DirtyAttributes) && ((m_viewerAttributes & Orthographic) != 0) != m_appliedOrthographic;
    if ((m_dirtyFlags & DirtyProjection) || orthographicChanged) {
        updateProjection();
    }
    if (m_dirtyFlags & DirtyAttributes) {
        applyViewerAttributes();
    }
    setLights();
    m_viewer->getCamera()->setCullMask(m_displayMask | m_secondaryDisplayMask);
    m_dirtyFlags = 0;
    return true;
}

void KrSGWindow::updateProjection()
{
    osg::Camera* const camera = m_viewer->getCamera();
    m_appliedOrthographic = (m_viewerAttributes & Orthographic) != 0;
    if (m_appliedOrthographic) {
        // Kept: a unit box whatever the window's size.
        camera->setProjectionMatrixAsOrtho(0.0, 1.0, 0.0, 1.0, -1.0, 1.0);
        return;
    }
    const KrPovParameters& pov = m_visualizationParameters.povParameters();
    double near = 0.0;
    double far = 0.0;
    clippingPlanes(pov.viewingDistance(), near, far);
    if (m_intrinsics) {
        camera->setProjectionMatrix(m_intrinsics->projection(near, far));
        return;
    }
    const double top = std::tan(pov.fieldOfView() * 0.5) * near;
    const double right = top * m_aspectRatio;
    camera->getProjectionMatrix().makeFrustum(-right, right, -top, top, near, far);
}

void KrSGWindow::clippingPlanes(double distance, double& near, double& far) const
{
    near = std::max(0.001, 0.125 * distance);
    far = std::max(2.0 * distance, m_visualizationParameters.renderParameters().farClipping());
}

bool KrSGWindow::setCameraIntrinsics(const KrCameraIntrinsics& intrinsics)
{
    if (!intrinsics.isValid()) {
        Kr::Print::instance()->write(
            Kr::Print::Warning,
            "KrSGWindow::setCameraIntrinsics - no camera: %u x %u pixels, focal lengths %g and %g, principal point "
            "(%g, %g).\n",
            intrinsics.width, intrinsics.height, intrinsics.fx, intrinsics.fy, intrinsics.cx, intrinsics.cy);
        return false;
    }
    m_intrinsics = intrinsics;
    m_dirtyFlags |= DirtyProjection;
    return true;
}

void KrSGWindow::clearCameraIntrinsics()
{
    m_intrinsics.reset();
    m_dirtyFlags |= DirtyProjection;
}

void KrSGWindow::applyViewerAttributes()
{
    if (!m_sceneRoot) {
        return;
    }
    osg::StateSet* const states = m_sceneRoot->getOrCreateStateSet();
    const auto isOn = [this](ViewerAttribute attribute) { return (m_viewerAttributes & attribute) != 0; };
    using osg::StateAttribute;

    states->setMode(GL_LIGHTING, isOn(Lighting) ? kOn : kOffOverride);
    states->setTextureMode(0, GL_TEXTURE_2D, isOn(Texturing) ? kOn : kOffOverride);

    auto* polygonMode = static_cast<osg::PolygonMode*>(states->getAttribute(StateAttribute::POLYGONMODE));
    if (isOn(Wireframe)) {
        polygonMode = new osg::PolygonMode(osg::PolygonMode::FRONT_AND_BACK, osg::PolygonMode::LINE);
        states->setAttributeAndModes(polygonMode, kOnOverride);
    } else if (polygonMode) {
        polygonMode->setMode(osg::PolygonMode::FRONT_AND_BACK, osg::PolygonMode::FILL);
    }

    auto* shadeModel = static_cast<osg::ShadeModel*>(states->getAttribute(StateAttribute::SHADEMODEL));
    if (isOn(SmoothShading)) {
        states->setAttributeAndModes(new osg::ShadeModel(osg::ShadeModel::SMOOTH), kOnOverride);
    } else if (shadeModel) {
        shadeModel->setMode(osg::ShadeModel::FLAT);
    }

    if (isOn(CullBackFaces)) {
        states->setAttributeAndModes(new osg::CullFace(osg::CullFace::BACK), kOnOverride);
    } else {
        states->setMode(GL_CULL_FACE, StateAttribute::OFF);
    }
}

bool KrSGWindow::setWindowSize(unsigned int width, unsigned int height)
{
    const bool resized = KrWindow::setWindowSize(width, height);
    const bool isFlat = width == 0 || height == 0;
    setAspectRatio(isFlat ? 1.0 : static_cast<double>(width) / static_cast<double>(height));
    if (isInitialized() && resized && m_graphicsWindow.valid()) {
        resizeGraphicsWindow();
    }
    return resized;
}

void KrSGWindow::resizeGraphicsWindow()
{
    const int width = surfaceWidth();
    const int height = surfaceHeight();
    m_graphicsWindow->getEventQueue()->windowResize(windowX(), windowY(), width, height,
                                                    osg::Timer::instance()->time_s());
    m_graphicsWindow->resized(windowX(), windowY(), width, height);
    fitOverlay();
    if (m_viewerAttributes & OffScreen) {
        refreshRenderTarget();
    }
}

bool KrSGWindow::setOffScreenRendering(bool on)
{
    m_viewerAttributes = on ? m_viewerAttributes | OffScreen : m_viewerAttributes & ~std::uint32_t(OffScreen);
    if (isInitialized() && m_viewer.valid()) {
        m_viewer->getCamera()->setRenderTargetImplementation(on ? osg::Camera::FRAME_BUFFER_OBJECT
                                                                : osg::Camera::FRAME_BUFFER);
        refreshRenderTarget();
    }
    setHideWindow(on);
    return true;
}

// The render stage keeps its framebuffer object until it is told that the camera's target is another one.
void KrSGWindow::refreshRenderTarget()
{
    osg::Camera* const camera = m_viewer->getCamera();
    camera->setViewport(0, 0, surfaceWidth(), surfaceHeight());
    if (osgUtil::RenderStage* const stage = KrRenderStages::of(*camera)) {
        stage->setFrameBufferObject(nullptr);
    }
    camera->dirtyAttachmentMap();
}

bool KrSGWindow::getOffScreenRendering() const
{
    return (m_viewerAttributes & OffScreen) != 0;
}

void KrSGWindow::setDisplayMask(unsigned int mask, bool on, bool secondary)
{
    std::uint32_t& chosen = secondary ? m_secondaryDisplayMask : m_displayMask;
    chosen = on ? chosen | mask : chosen & ~mask;
    if (m_viewer.valid()) {
        m_viewer->getCamera()->setCullMask(m_displayMask | m_secondaryDisplayMask);
    }
}

unsigned int KrSGWindow::displayMask() const
{
    return m_displayMask;
}

bool KrSGWindow::displayMask(unsigned int bits) const
{
    return (m_displayMask & bits) != 0;
}

void KrSGWindow::setViewerAttribute(unsigned int bits, bool on)
{
    m_viewerAttributes = on ? m_viewerAttributes | bits : m_viewerAttributes & ~bits;
    m_dirtyFlags |= DirtyAttributes;
}

unsigned int KrSGWindow::viewerAttribute() const
{
    return m_viewerAttributes;
}

bool KrSGWindow::stereoOn() const
{
    return getStereoSupported() && (m_viewerAttributes & Stereo) != 0;
}

void KrSGWindow::setAspectRatio(double aspectRatio)
{
    m_aspectRatio = aspectRatio;
    m_dirtyFlags |= DirtyProjection;
}

double KrSGWindow::aspectRatio() const
{
    return m_aspectRatio;
}

bool KrSGWindow::setVisualizationParameters(const KrVisualizationParameters& parameters)
{
    m_visualizationParameters = parameters;
    if (m_inputHandler.valid()) {
        const KrPovParameters& pov = parameters.povParameters();
        m_inputHandler->setHomePosition(KrRenderTypes::ec2osg(pov.eyepoint()),
                                        KrRenderTypes::ec2osg(pov.centerOfInterest()), KrRenderTypes::ec2osg(pov.up()),
                                        false);
    }
    m_dirtyFlags |= DirtyPov;
    loadRenderParameters(parameters.renderParameters());
    loadLight(parameters.lightParameters());
    return true;
}

const KrVisualizationParameters& KrSGWindow::visualizationParameters() const
{
    return m_visualizationParameters;
}

bool KrSGWindow::setPovParameters(const KrPovParameters& pov)
{
    m_visualizationParameters.setPovParameters(pov);
    m_dirtyFlags |= DirtyPov | DirtyProjection;
    return true;
}

const KrPovParameters& KrSGWindow::getPovParameters() const
{
    return m_visualizationParameters.povParameters();
}

bool KrSGWindow::loadRenderParameters(const KrRenderParameters& parameters)
{
    if (parameters.isAutoClipping()) {
        KrRenderParameters automatic(parameters);
        automatic.setNearClipping(0.01);
        automatic.setFarClipping(2.0 * m_visualizationParameters.povParameters().viewingDistance());
        m_visualizationParameters.setRenderParameters(automatic);
    } else if (!(parameters == m_visualizationParameters.renderParameters())) {
        m_visualizationParameters.setRenderParameters(parameters);
    }
    setBackgroundColor(parameters.backgroundColor());
    m_dirtyFlags |= DirtyProjection;
    return true;
}

void KrSGWindow::setInputHandler(KrSGBaseInputHandler* handler)
{
    if (m_inputHandler != handler) {
        m_inputHandler = handler;
    }
    if (isInitialized() && m_viewer.valid()) {
        m_viewer->setCameraManipulator(m_inputHandler);
    }
}

KrSGBaseInputHandler* KrSGWindow::getInputHandler() const
{
    return m_inputHandler;
}

void KrSGWindow::setDrawCallback(osg::ref_ptr<DrawCallback> callback)
{
    m_drawCallback = callback;
}

osg::ref_ptr<KrSGWindow::DrawCallback> KrSGWindow::getDrawCallback() const
{
    return m_drawCallback;
}

osgViewer::Viewer* KrSGWindow::getViewer() const
{
    return m_viewer;
}
