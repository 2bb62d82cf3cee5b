// Where the views of a window of several look from, and what they draw into, frame by frame.

#include <rendCore/system/KrMultiRenderWindow.h>

#include <rendCore/system/private/KrViewPlacement.h>
#include <rendCore/window/KrSGBaseInputHandler.h>
#include <rendCore/window/private/KrRenderStages.h>

#include <toolkit/foundation/KrPrint.h>

#include <osg/FrameBufferObject>
#include <osg/Math>
#include <osgUtil/RenderStage>
#include <osgViewer/Viewer>

#include <algorithm>
#include <cmath>

namespace
{

void warn(const char* message)
{
    Kr::Print::instance()->write(Kr::Print::Warning, "%s", message);
}

void setFrameBufferObject(osg::Camera& camera, osg::FrameBufferObject* target)
{
    osgUtil::RenderStage* const stage = KrRenderStages::of(camera);
    // Only where it is another one: an attachment map that is dirty costs a set-up of the stage.
    if (stage && stage->getFrameBufferObject() != target) {
        stage->setFrameBufferObject(target);
        camera.dirtyAttachmentMap();
    }
}

/// Colour and depth of that size.
osg::ref_ptr<osg::FrameBufferObject> makeTarget(int width, int height)
{
    using osg::FrameBufferAttachment;
    const osg::ref_ptr<osg::FrameBufferObject> target = new osg::FrameBufferObject;
    target->setAttachment(osg::Camera::COLOR_BUFFER,
                          FrameBufferAttachment(new osg::RenderBuffer(width, height, GL_RGBA)));
    target->setAttachment(osg::Camera::DEPTH_BUFFER,
                          FrameBufferAttachment(new osg::RenderBuffer(width, height, GL_DEPTH_COMPONENT24)));
    return target;
}

bool hasSize(const osg::FrameBufferObject& target, int width, int height)
{
    const osg::RenderBuffer* const color = target.getAttachment(osg::Camera::COLOR_BUFFER).getRenderBuffer();
    // The two attachments are made together, so that one tells for both.
    return color->getWidth() == width && color->getHeight() == height;
}

} // namespace

bool KrMultiRenderWindow::updateScene()
{
    // The scene first: the views are placed by the point of view that it leaves.
    const bool isUpdated = KrRenderWindow::updateScene();
    // A point of view that is still dirty was not applied: the views would be placed by the one before.
    if (!isInitialized() || !m_viewer || (m_dirtyFlags & DirtyPov)) {
        return isUpdated;
    }
    // Lens, settings and target of the main camera first; the views take theirs from it.
    fitProjectionToTile();
    shareCameraSettings();
    shareRenderTarget();
    if (m_inputHandler.valid()) {
        // The viewer does this too, but only once the frame has begun: the views would be placed by the frame before.
        m_viewer->getCamera()->setViewMatrix(m_inputHandler->getInverseMatrix());
    }
    // What the other views are placed by: `followMainCamera` compares with it when the frame has begun.
    m_reference = m_viewer->getCamera()->getViewMatrix();
    // A client may have cast any number to a mode.
    if (m_viewMode > PovParameters) {
        warn("KrMultiRenderWindow::setGL - invalid view mode.\n");
        m_viewer->updateSlaves();
        return isUpdated;
    }
    if (m_viewMode == NoViews && m_views.size() > 1) {
        // Kept: in every frame, so that a client that gave no list hears of it as long as its views are all alike.
        warn("KrMultiRenderWindow::setGL - No view mode specified.\n");
    }
    placeViews();
    m_viewer->updateSlaves();
    return isUpdated;
}

/// The base class draws in the proportions of the whole window. A camera given by intrinsics has its own.
void KrMultiRenderWindow::fitProjectionToTile()
{
    osg::Camera* const camera = m_viewer->getCamera();
    double left, right, bottom, top, near, far;
    if (m_grid.width == 0 || m_grid.height == 0 || cameraIntrinsics() ||
        !camera->getProjectionMatrixAsFrustum(left, right, bottom, top, near, far)) {
        return;
    }
    // The height is kept and the width follows the tile, as for a window of one view.
    right = top * m_grid.width / m_grid.height;
    camera->setProjectionMatrixAsFrustum(-right, right, bottom, top, near, far);
}

void KrMultiRenderWindow::shareCameraSettings()
{
    const osg::Camera& main = *m_viewer->getCamera();
    for (std::size_t k = 1; k < m_views.size(); ++k) {
        if (m_views[k].valid()) {
            // In every frame that updates: the background may have changed.
            m_views[k]->setClearColor(main.getClearColor());
            m_views[k]->setClearMask(main.getClearMask());
        }
    }
}

/// Off-screen, left to themselves, the main camera would make a target of its own tile's size and the others none.
void KrMultiRenderWindow::shareRenderTarget()
{
    osg::Camera& main = *m_viewer->getCamera();
    if (!m_views.empty() && m_views.front() == &main && m_grid.rows > 0) {
        // Going off-screen, or back, gave it the whole window.
        main.getViewport()->setViewport(0, m_grid.height * (m_grid.rows - 1), std::max(1u, m_grid.width),
                                        std::max(1u, m_grid.height));
    }
    const bool isOffScreen = getOffScreenRendering();
    if (!isOffScreen && !m_target) {
        return;
    }
    if (!isOffScreen) {
        // On screen again: the stages are told below that there is no target.
        m_target = nullptr;
    } else if (!m_target || !hasSize(*m_target, surfaceWidth(), surfaceHeight())) {
        m_target = makeTarget(surfaceWidth(), surfaceHeight());
    }
    setFrameBufferObject(main, m_target);
    for (std::size_t k = 1; k < m_views.size(); ++k) {
        if (m_views[k].valid()) {
            m_views[k]->setRenderTargetImplementation(main.getRenderTargetImplementation());
            setFrameBufferObject(*m_views[k], m_target);
        }
    }
}

void KrMultiRenderWindow::followMainCamera()
{
    const osg::Matrixd& present = m_viewer->getCamera()->getViewMatrix();
    // Within the frame an input handler may have moved the main camera: the others follow it at once.
    if (m_viewMode <= PovParameters && present != m_reference) {
        m_reference = present;
        placeViews();
    }
}

/// Lens and centre of interest by which the other views are made, then all of them.
void KrMultiRenderWindow::placeViews()
{
    const KrPovParameters& own = m_visualizationParameters.povParameters();
    m_referencePov = own;
    if (m_inputHandler.valid()) {
        m_inputHandler->getPovParameters(m_referencePov);
        // The handler moves; the lens is the window's.
        m_referencePov.setFieldOfView(own.fieldOfView());
    }
    // A list that is too short places no view at all.
    if (listLength() < m_views.size()) {
        return;
    }
    const osg::Matrixd cameraToWorld = osg::Matrixd::inverse(m_reference);
    for (unsigned int k = 1; k < m_views.size(); ++k) {
        osg::View::Slave* const slave = m_views[k].valid() ? m_viewer->findSlaveForCamera(m_views[k]) : nullptr;
        if (slave) {
            // A slave's matrix is the main camera's times its offset: the offset takes the
            // main camera's part out again.
            slave->_viewOffset = m_viewMode == NoViews ? osg::Matrixd() : cameraToWorld * viewMatrix(k);
            slave->_projectionOffset = projectionOffset(k);
        }
    }
}

std::size_t KrMultiRenderWindow::listLength() const
{
    switch (m_viewMode) {
    case CameraFrames:
    case ObjectFrames:
        return m_coords.size();
    case EyePoints:
        return m_eyePoints.size();
    case PovParameters:
        return m_povParametersVector.size();
    case NoViews:
        break;
    }
    // Without a mode no list is asked, and none is too short.
    return m_views.size();
}

/// World to camera of view `view`, whose list entry is there. One that looks nowhere shows the window's point of view.
osg::Matrixd KrMultiRenderWindow::viewMatrix(unsigned int view) const
{
    osg::Matrixd matrix = m_reference;
    if (m_viewMode == CameraFrames) {
        matrix = KrViewPlacement::worldToFrame(m_coords[view]);
    } else if (m_viewMode == ObjectFrames) {
        // The object stands where the world's origin is seen by the main camera.
        matrix = KrViewPlacement::worldToFrame(m_coords[view]) * m_reference;
    } else if (m_viewMode == EyePoints) {
        KrViewPlacement::lookAt(m_eyePoints[view], m_referencePov.centerOfInterest(), m_referencePov.up(), matrix);
    } else if (m_viewMode == PovParameters) {
        const KrPovParameters& pov = m_povParametersVector[view];
        KrViewPlacement::lookAt(pov.eyepoint(), pov.centerOfInterest(), pov.up(), matrix);
    }
    return matrix;
}

/// From the main camera's projection to the view's, where its lens or distance differs.
osg::Matrixd KrMultiRenderWindow::projectionOffset(unsigned int view) const
{
    double fieldOfView = m_referencePov.fieldOfView();
    double distance = 0.0;
    if (m_viewMode == EyePoints) {
        distance = (m_referencePov.centerOfInterest() - m_eyePoints[view]).length();
    } else if (m_viewMode == PovParameters) {
        const KrPovParameters& pov = m_povParametersVector[view];
        distance = pov.viewingDistance();
        fieldOfView = pov.fieldOfView();
    }
    const osg::Matrixd& main = m_viewer->getCamera()->getProjectionMatrix();
    double left, right, bottom, top, near, far;
    osg::Matrixd inverse;
    // Otherwise the main camera's projection as it is: with intrinsics all views have one lens.
    const bool isOwn = distance > 0.0 && std::isfinite(distance) && fieldOfView > 0.0 && fieldOfView < osg::PI &&
                       !cameraIntrinsics() && main.getFrustum(left, right, bottom, top, near, far);
    return isOwn && inverse.invert(main) ? inverse * projection(fieldOfView, distance) : osg::Matrixd();
}

/// As the base class makes the main camera's.
osg::Matrixd KrMultiRenderWindow::projection(double fieldOfView, double distance) const
{
    double near = 0.0;
    double far = 0.0;
    clippingPlanes(distance, near, far);
    return KrViewPlacement::projection(fieldOfView, std::max(1u, m_grid.width), std::max(1u, m_grid.height), near, far);
}
