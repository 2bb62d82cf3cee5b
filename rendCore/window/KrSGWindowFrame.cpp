// One frame of a scene window: what changed is applied, then it is drawn, shown or captured.

#include <rendCore/window/KrSGWindow.h>

#include <rendCore/aids/KrRenderAxis.h>
#include <rendCore/base/private/KrPixelTransferGuard.h>
#include <rendCore/window/KrSGBaseInputHandler.h>
#include <rendCore/window/KrSGDrawCallbacks.h>
#include <rendCore/window/private/KrContextWindow.h>
#include <rendCore/window/private/KrGuestFrame.h>
#include <rendCore/window/private/KrGuestVisit.h>
#include <rendCore/window/private/KrRenderStages.h>

#include <toolkit/context/KrWindowImpl.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/guest/KrClientState.h>

#include <osg/CullFace>
#include <osg/GLExtensions>
#include <osg/LightSource>
#include <osg/PolygonMode>
#include <osg/ShadeModel>
#include <osgViewer/GraphicsWindow>
#include <osgViewer/Viewer>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <utility>

namespace
{

constexpr osg::StateAttribute::GLModeValue kOn = osg::StateAttribute::ON;
constexpr osg::StateAttribute::GLModeValue kOnOverride = osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE;
// Kept: off overrides what shapes say of themselves, whose materials switch lighting on, and on leaves it to them: the
// axes stay unlit.
constexpr osg::StateAttribute::GLModeValue kOffOverride = osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE;

/// The scene graph does not dispatch an array again that lies at the address of the last one. Between two frames that
/// one may go, and another take its place: it would be drawn from a buffer that is no more.
void forgetVertexArrays(osg::State& state)
{
    // A callback may have left the first frame undrawn: then there are none.
    if (!state.getCurrentVertexArrayState()) {
        return;
    }
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
    // A context cannot be drawn with behind a fork, nor on a thread that it does not belong to.
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
        const KrGuestVisit visit(KrContextWindow::clientStateOf(context), *this);
        // Asked for in every frame: a client may have made its framebuffer anew.
        context->setDefaultFboId(getImpl()->defaultFramebuffer());
        resetUnpacking(*context->getState());
        // Through the virtual table, and with the context current: scenes are loaded here.
        updateScene();
        KrRenderStages::compileInFrame(*viewer);
        const osg::ref_ptr<DrawCallback> callback = m_drawCallback;
        // `updateScene` may have called somebody who closed the window.
        if (m_viewer == viewer && callback.valid()) {
            callback->render(viewer);
        } else if (m_viewer == viewer) {
            // Kept: that time means the viewer's own clock, which clients' update callbacks are given.
            viewer->frame(DBL_MAX);
        }
        if (m_viewer == viewer && context->getState()) {
            forgetVertexArrays(*context->getState());
            if (KrContextWindow::clientStateOf(context)) {
                KrGuestFrame::makeOpaque(*viewer);
            }
        }
    }
    if (m_viewer == viewer && closeWithContext()) {
        return false;
    }
    // After the client's state is back: what is shown is the window's business.
    if (swapBuffers) {
        this->swapBuffers();
    }
    return true;
}

bool KrSGWindow::updateScene()
{
    // A frame without changes applies nothing; lights that follow the eye change with the point of view.
    if (!isInitialized() || !m_viewer || m_dirtyFlags == 0) {
        return true;
    }
    if ((m_dirtyFlags & DirtyPov) && m_inputHandler.valid()) {
        m_inputHandler->setPovParameters(m_visualizationParameters.povParameters());
    }
    if (m_dirtyFlags & DirtyAxisScale) {
        KrRenderAxis::scaleAxis(m_visualizationParameters.GUIObjectParameters().axisScale());
    }
    // The attribute decides the projection, though it sets another bit than the lens does.
    const bool orthographicChanged =
        (m_dirtyFlags & DirtyAttributes) && ((m_viewerAttributes & Orthographic) != 0) != m_appliedOrthographic;
    if ((m_dirtyFlags & DirtyProjection) || orthographicChanged) {
        updateProjection();
    }
    if (m_dirtyFlags & DirtyAttributes) {
        applyViewerAttributes();
    }
    // Kept: whenever anything has changed, behind the attributes. Headlights follow the eye, and a derived class's
    // `setLights` finds the rest applied.
    setLights();
    m_viewer->getCamera()->setCullMask(m_displayMask | m_secondaryDisplayMask);
    // Kept: all of them, those too that are for subclasses, which read them before; KrMultiRenderWindow asks afterwards
    // whether the point of view was applied.
    m_dirtyFlags = 0;
    return true;
}

void KrSGWindow::updateProjection()
{
    osg::Camera* const camera = m_viewer->getCamera();
    m_appliedOrthographic = (m_viewerAttributes & Orthographic) != 0;
    if (m_appliedOrthographic) {
        // Kept: a unit box whatever the window's size, which the quad of `setImageBuffer` fills.
        camera->setProjectionMatrixAsOrtho(0.0, 1.0, 0.0, 1.0, -1.0, 1.0);
        return;
    }
    const KrPovParameters& pov = m_visualizationParameters.povParameters();
    double near = 0.0;
    double far = 0.0;
    clippingPlanes(pov.viewingDistance(), near, far);
    // A camera that was given by its numbers has no field of view to take them from.
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
    // Kept: the near plane of the render parameters has no part in it. The depths of clients' pictures spread between
    // planes that follow the viewing distance.
    near = std::max(0.001, 0.125 * distance);
    far = std::max(2.0 * distance, m_visualizationParameters.renderParameters().farClipping());
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

    // Kept: made when it is first asked for; switched off, it stays and overrides shapes as before. Until then shapes
    // draw as they say themselves.
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
        // Kept: off without override, so that a shape may cull for itself, as the mass ellipsoids of pictures do.
        states->setMode(GL_CULL_FACE, StateAttribute::OFF);
    }
}

bool KrSGWindow::renderSceneAndCaptureImage(KrImage& image, unsigned int flags)
{
    if (!demandUsable("KrSGWindow::renderSceneAndCaptureImage") || !init()) {
        return false;
    }
    osg::ref_ptr<DrawCallback> previous = getDrawCallback();
    // Kept: told, and then replaced, so that a client gets its picture in any case.
    if (previous.valid()) {
        Kr::Print::instance()->write(Kr::Print::Error, "Capturing image with a callback already in place.\n");
    }
    // Nobody else holds the one of the capture before, nor its image: then this one is as good as new.
    osg::ref_ptr<ImageCaptureDrawCallback> capture = std::exchange(m_capture, nullptr);
    if (!capture.valid() || !capture->isReusable()) {
        capture = new ImageCaptureDrawCallback(nullptr, flags);
    }
    capture->setCapture(&image, flags);
    setDrawCallback(capture);
    const bool rendered = renderScene(true);
    // Kept: the callback that was there is not put back. A capture manager gets no more frames until its client sets it
    // again.
    setDrawCallback(nullptr);
    previous = nullptr;
    // The image is the caller's. A window that was closed in the frame, or is, keeps no memory.
    capture->setCapture(nullptr, flags);
    if (m_viewer && capture->isReusable()) {
        m_capture = capture;
    }
    return rendered;
}

bool KrSGWindow::renderSceneAndCaptureImage(KrImage& image, unsigned int flags, const KrImageBlock* block)
{
    if (!block) {
        return false;
    }
    static thread_local KrImage frame; // one for all windows of a thread
    if (!renderSceneAndCaptureImage(frame, flags)) {
        return false;
    }
    // Blocks are cut out of ordinary storage.
    if (flags & CaptureFlipped) {
        frame.flippedToOrdinary();
    }
    return frame.getSubimage(*block, image);
}
