// What a client sets in a scene window and asks of it: recorded here, applied by the next frame.

#include <rendCore/window/KrSGWindow.h>

#include <rendCore/base/private/KrDrawSettings.h>
#include <rendCore/window/KrSGBaseInputHandler.h>
#include <rendCore/window/KrSGDrawCallbacks.h>
#include <rendCore/window/private/KrRenderStages.h>

#include <toolkit/foundation/KrPrint.h>

#include <osg/Timer>
#include <osgUtil/RenderStage>
#include <osgViewer/GraphicsWindow>
#include <osgViewer/Viewer>

#include <cmath>

bool KrSGWindow::setCameraIntrinsics(const KrCameraIntrinsics& intrinsics)
{
    // Checked where they enter: a frame divides by these numbers.
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
    // The field of view decides again, with the next update.
    m_intrinsics.reset();
    m_dirtyFlags |= DirtyProjection;
}

bool KrSGWindow::setWindowSize(unsigned int width, unsigned int height)
{
    const bool resized = KrWindow::setWindowSize(width, height);
    // Kept: 1 where there is no ratio, so that a frustum can be made of it.
    const bool isFlat = width == 0 || height == 0;
    // Kept: through the virtual table, and also where the window has refused the size. A derived class hears of every
    // ratio that was asked for.
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
    // Both: the queue is for handlers of events, the context for the viewer's cameras.
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
    // Kept: a window that draws off screen is hidden, and shown when it does not. Clients see it go and come back
    // without a call of their own.
    setHideWindow(on);
    return true;
}

// The render stage keeps its framebuffer object until it is told that the camera's target is another one.
void KrSGWindow::refreshRenderTarget()
{
    osg::Camera* const camera = m_viewer->getCamera();
    camera->setViewport(0, 0, surfaceWidth(), surfaceHeight());
    if (osgUtil::RenderStage* const stage = KrRenderStages::of(*camera)) {
        // Made anew, in the size of now, by the next frame.
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
    // Markers are in the secondary mask, so that loading a scene leaves them as they are.
    std::uint32_t& chosen = secondary ? m_secondaryDisplayMask : m_displayMask;
    chosen = on ? chosen | mask : chosen & ~mask;
    if (m_viewer.valid()) {
        // At once and not with the next update: masks are no dirty flag.
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
    // Kept: only told, to clients that draw for two eyes. Nothing here does.
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
    // A copy: whatever the client changes afterwards has to be set again.
    m_visualizationParameters = parameters;
    if (m_inputHandler.valid()) {
        const KrPovParameters& pov = parameters.povParameters();
        // Home is where the parameters look from, whatever the camera does afterwards.
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
        // Kept: stored for clients that read the parameters back, though only the far plane is drawn with.
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
    // Kept: the viewer is told also when the handler is the same: `init` stores it before it installs it in a new
    // viewer.
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
    // Borrowed: it goes with the window, and a window that opens again has another.
    return m_viewer;
}

bool KrSGWindow::setLevelOfDetail(float pixels)
{
    if (!(pixels >= 0.0f) || !std::isfinite(pixels)) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrSGWindow::setLevelOfDetail - no error in pixels: %g.\n",
                                     static_cast<double>(pixels));
        return false;
    }
    m_levelOfDetail = pixels;
    applyDrawSettings();
    return true;
}

void KrSGWindow::setSteadyLevels(bool on)
{
    m_areLevelsSteady = on;
    applyDrawSettings();
}

void KrSGWindow::setDirectDrawing(bool on)
{
    m_isDirectDrawing = on;
    applyDrawSettings();
}

/// To the viewer, whose cameras they are for: a window that is not open has none yet.
void KrSGWindow::applyDrawSettings()
{
    if (auto* const settings = dynamic_cast<KrDrawSettings*>(m_viewer.get())) {
        settings->isDirect = m_isDirectDrawing;
        settings->levelOfDetail = m_levelOfDetail;
        settings->areLevelsSteady = m_areLevelsSteady;
    }
}
