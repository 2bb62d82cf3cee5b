#include <rendCore/window/KrSGWindow.h>

#include <rendCore/aids/KrRenderAxis.h>
#include <rendCore/appearance/KrMaterialProperties.h>
#include <rendCore/appearance/KrSGTexture.h>
#include <rendCore/draw/private/KrDrawPace.h>
#include <rendCore/window/KrSGBaseInputHandler.h>
#include <rendCore/window/KrSGDrawCallbacks.h>
#include <rendCore/window/private/KrContextRestorer.h>
#include <rendCore/window/private/KrContextWindow.h>
#include <rendCore/window/private/KrGuestFrame.h>
#include <rendCore/window/private/KrSceneViewer.h>

#include <toolkit/context/KrWindowImpl.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/guest/KrClientState.h>

#include <osg/Geode>
#include <osg/LightModel>
#include <osg/LightSource>
#include <osg/Shape>
#include <osg/ShapeDrawable>
#include <osgViewer/GraphicsWindow>
#include <osgViewer/Viewer>

#include <algorithm>
#include <array>
#include <mutex>

namespace
{

/// The scene graph keeps tables with an entry for each context, which grow when one with a new number begins, and which
/// frames of other threads read without a lock meanwhile. This makes them large enough before there is a second thread.
void reserveContexts()
{
    // More windows than a program has as a rule; with more, threads must not be drawing while one opens.
    constexpr unsigned int kMostContexts = 16;
    static std::once_flag s_isReserved;
    std::call_once(s_isReserved, [] {
        std::array<unsigned int, kMostContexts> numbers = {};
        for (unsigned int& number : numbers) {
            // All numbers first, then all given back: each is a new one while the others are in use.
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
        // A window that was closed has no state, and nothing to share.
        if (context && context->getState()) {
            return context;
        }
    }
    return nullptr;
}

} // namespace

KrSGWindow::KrSGWindow()
{
    // Kept: the class name is the window's name until a client gives another; its title and its messages show it.
    KrWindow::setName("KrSGWindow");
}

KrSGWindow::~KrSGWindow()
{
    KrSGWindow::closeWindow();
    // Input handlers may live on, held by a client: they ask this for their window.
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

    m_viewer = new KrSceneViewer;
    applyDrawSettings();
    // One thread owns the context. Left to choose, the viewer would start threads that want it.
    m_viewer->setThreadingModel(osgViewer::ViewerBase::SingleThreaded);
    m_viewer->setUseConfigureAffinity(false);
    m_viewer->setReleaseContextAtEndOfFrameHint(false);
    // A viewer that is "done" ignores frame() for ever; whether a key ends anything is the application's business.
    m_viewer->setKeyEventSetsDone(0);
    m_viewer->setQuitEventSetsDone(false);

    // The context before the camera, which is given it; the scene before the input handler, which is sent home in it.
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
    // Asked for before there was a camera to tell.
    if (m_viewerAttributes & OffScreen) {
        setOffScreenRendering(true);
    }
    // Last, through the virtual table: subclasses add their content to a window that is complete.
    return loadScene();
}

int KrSGWindow::surfaceWidth() const
{
    // No surface has less than a pixel, though a window may be told to.
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
    m_graphicsWindow = new KrContextWindow(traits, *this, [this](osg::State& state) { releaseNames(state); });
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
    // Kept, as all names here: clients look up nodes by them.
    m_sceneRoot->setName("Global Light");
    osg::StateSet* const states = m_sceneRoot->getOrCreateStateSet();
    states->setGlobalDefaults();
    // Kept: in this order, although it clears the defaults just set; the viewer's own supply them. The light model
    // below would be cleared as well.
    m_sceneRoot->setLocalStateSetModes(osg::StateAttribute::ON);
    const osg::ref_ptr<osg::LightModel> model = new osg::LightModel;
    model->setAmbientIntensity(osg::Vec4(KrRenderTypes::ec2osg(m_ambientLight)));
    model->setLocalViewer(true);
    // Kept: the inside of an open surface is lit, too, so that clients' open meshes have no dark side.
    model->setTwoSided(true);
    // Without its mode, which is lighting: that is switched by the viewer attributes.
    states->setAttribute(model);
}

void KrSGWindow::createFixedNodes()
{
    m_tempGroup = new osg::Group;
    // Kept: it is in no scene. It holds the fixed nodes while `deleteContents` removes the root's children, and
    // `loadScene` hangs them up again.
    m_tempGroup->setName("Temp Group");
    createCenterOfInterestMarker();

    // Of no size until `setGuiMarkerMatrix` gives it one.
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
    // A unit sphere: the matrix above is its radius in metres.
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
    // Over the scene: its colours stay, its depths do not count.
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
    // The scene graph's answer for what is no child is the number of children.
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
    // Kept: exactly the scene is shown after loading, and clients switch their aids on again; markers, which the
    // secondary mask shows, stay.
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
    // Their scene objects go with the children of the root, below.
    m_lights.clear();
    if (m_sceneRoot.valid() && m_sceneRoot->getNumChildren() > 0) {
        m_sceneRoot->removeChildren(0, m_sceneRoot->getNumChildren());
    }
    // Whatever comes next is a new scene: everything is applied to it once more.
    m_dirtyFlags |= DirtyAll;
}

bool KrSGWindow::closeWindow()
{
    // Another context may be the client's current one, and stays so.
    const KrContextRestorer restorer(this);
    {
        const KrGuestFrame guest(*this);
        const std::shared_ptr<KrClientState> client = KrContextWindow::clientStateOf(m_graphicsWindow);
        releaseGLObjects();
        // Through the virtual table: subclasses forget their system, too.
        deleteContents();
        // Kept: a window that is opened again draws into itself, since `init` finds the bit clear.
        m_viewerAttributes &= ~std::uint32_t(OffScreen);
        if (m_inputHandler.valid()) {
            // A client may hold the handler longer than the scene lives.
            m_inputHandler->setNode(nullptr);
        }
        releaseViewer();
        m_sceneRoot = nullptr;
        m_capture = nullptr;
        // Kept: after the viewer and the root, so that nothing is left to draw with what the table of textures lets go.
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
    // Never opened, or closed: there are no names to release.
    if (!m_viewer || !state) {
        return;
    }
    const KrContextRestorer restorer(this);
    const KrGuestFrame guest(*this);
    // Where it cannot be current, the names are forgotten all the same.
    if (isUsableHere() && makeCurrent()) {
        state->get<KrDrawPace>()->release();
    }
    releaseNames(*state);
}

void KrSGWindow::releaseNames(osg::State& state) const
{
    if (m_sceneRoot.valid()) {
        m_sceneRoot->releaseGLObjects(&state);
    }
    // The fixed nodes may hang in no scene at the moment.
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
        // Before the viewer goes, while names can still be released in their own context.
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
