#include <rendCore/capture/KrRenderCaptureManager.h>

#include <rendCore/base/private/KrPixelTransferGuard.h>
#include <rendCore/window/private/KrCapturedImage.h>

#include <toolkit/foundation/KrPrint.h>

#include <osg/GLExtensions>
#include <osg/GraphicsContext>
#include <osg/State>
#include <osgViewer/Viewer>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <GL/glu.h>

#include <cstdint>
#include <new>

namespace
{

constexpr unsigned int kCaptureFlags = 9; // the colour buffer; the image is handed out, no target is filled
constexpr unsigned int kLargestSide = 0x7fffffff;
constexpr unsigned int kScalingBytes = 6; // a pixel while it is scaled: three channels of two bytes each
constexpr float kLongestPeriodMs = 1e14f; // beyond it the clock's arithmetic overflows

boost::posix_time::ptime now()
{
    // Kept: local time, with microseconds. Only the next capture's time is made of it, which nothing is known to read.
    return boost::posix_time::microsec_clock::local_time();
}

boost::posix_time::time_duration duration(float periodMs)
{
    // NaN, too.
    if (!(periodMs <= kLongestPeriodMs)) {
        return boost::posix_time::pos_infin;
    }
    // Kept: whole milliseconds. Only the next capture's time shows it, which nothing is known to read.
    return boost::posix_time::microseconds(static_cast<std::int64_t>(periodMs) * 1000);
}

// Kept: without the names of class and method, as filters of clients' logs match it.
void warnOfScaling()
{
    Kr::Print::instance()->write(Kr::Print::Warning, "Unable to scale image.\n");
}

} // namespace

KrRenderCaptureManager::KrRenderCaptureManager()
    : KrSGWindow::ImageCaptureDrawCallback(nullptr, kCaptureFlags)
    , m_nextCaptureTime(now())
    , m_capturedImage(m_sceneImage)
{
}

void KrRenderCaptureManager::setFrameRate(float framesPerSecond)
{
    // Kept: nothing waits for it, and clients get every frame whatever the rate; 0 for NaN as well, so that the clock
    // is never given one.
    m_framePeriodMs = framesPerSecond > 0.0f ? 1000.0f / framesPerSecond : 0.0f;
}

void KrRenderCaptureManager::setCaptureSize(unsigned int width, unsigned int height)
{
    // Kept: half a size is none: `preRender` takes zeros for the size of the next frame.
    const bool isGiven = width != 0 && height != 0;
    m_captureWidth = isGiven ? width : 0;
    m_captureHeight = isGiven ? height : 0;
}

bool KrRenderCaptureManager::preRender(osgViewer::Viewer* viewer)
{
    // Kept: before anything is asked or changed, so that a suspended manager goes on giving out its last image.
    if (m_mode != Capture) {
        return false;
    }
    now(); // Kept: the clock is read here, too; nothing is known to depend on it.
    if (!ImageCaptureDrawCallback::preRender(viewer)) {
        return false;
    }
    m_nextCaptureTime = now() + duration(m_framePeriodMs);
    // Kept: the size of this frame stays the wanted one from now on, also when the window grows: all images that the
    // callback gets have one size.
    if (m_captureWidth == 0 && m_captureHeight == 0) {
        m_captureWidth = m_width;
        m_captureHeight = m_height;
    }
    m_scaling = m_captureWidth != m_width || m_captureHeight != m_height;
    if (m_scaling && !prepareScaledImage()) {
        warnOfScaling();
        m_scaling = false;
    }
    if (!m_scaling) {
        // The same object, so that nothing is copied; a scaled picture of before is let go.
        m_capturedImage = m_sceneImage;
    }
    return true;
}

/// False, and no image of its own, when there can be none of that size.
bool KrRenderCaptureManager::prepareScaledImage()
{
    if (m_captureWidth > kLargestSide || m_captureHeight > kLargestSide ||
        !KrCapturedImage::canHold(static_cast<int>(m_captureWidth), static_cast<int>(m_captureHeight), kScalingBytes)) {
        return false;
    }
    const int width = static_cast<int>(m_captureWidth);
    const int height = static_cast<int>(m_captureHeight);
    try {
        // Made once: it is kept while sizes differ.
        if (m_capturedImage == m_sceneImage) {
            m_capturedImage = new osg::Image(*m_sceneImage, osg::CopyOp());
        }
        const bool fits = m_capturedImage->data() && m_capturedImage->s() == width && m_capturedImage->t() == height &&
                          m_capturedImage->getPixelFormat() == m_sceneImage->getPixelFormat() &&
                          m_capturedImage->getDataType() == m_sceneImage->getDataType();
        if (!fits) {
            // Kept: depth 0 and the packing in the place of the data type; nothing is known to depend on it. It leaves
            // no storage (and the scene graph complains about the type), so that the image is made a second time, with
            // what the scaling is going to write into.
            m_capturedImage->allocateImage(width, height, 0, m_sceneImage->getPixelFormat(), m_sceneImage->getPacking(),
                                           1);
            m_capturedImage->allocateImage(width, height, 1, m_sceneImage->getPixelFormat(),
                                           m_sceneImage->getDataType(), static_cast<int>(m_sceneImage->getPacking()));
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

bool KrRenderCaptureManager::postRender(osgViewer::Viewer* viewer)
{
    // Kept: the base is not asked to post-render. There is no target to fill, of which it would warn in every frame.
    detach(viewer);
    if (m_scaling) {
        scaleImage(viewer);
    }
    // On this thread, before the frame's call returns.
    if (callbackFunction) {
        callbackFunction(m_capturedImage);
    }
    return true;
}

/// From the size that was read to the one that there is storage for: whoever is called in the frame may have asked for
/// others, which are for the next.
void KrRenderCaptureManager::scaleImage(osgViewer::Viewer* viewer)
{
    const GLint packing = static_cast<GLint>(m_sceneImage->getPacking());
    // Kept: both are set and left so, whoever scales: a callback that reads or writes pixels does it with them.
    glPixelStorei(GL_PACK_ALIGNMENT, packing);
    glPixelStorei(GL_UNPACK_ALIGNMENT, packing);
    const osg::GraphicsContext* const context = viewer ? viewer->getCamera()->getGraphicsContext() : nullptr;
    const osg::State* const state = context ? context->getState() : nullptr;
    const osg::GLExtensions* const gl = state ? state->get<osg::GLExtensions>() : nullptr;
    GLint result = GLU_INVALID_OPERATION;
    if (gl && m_sceneImage->data() && m_capturedImage->data() &&
        KrCapturedImage::canHold(m_sceneImage->s(), m_sceneImage->t(), kScalingBytes)) {
        const KrPixelTransferGuard guard(*gl, packing);
        const GLenum type = m_sceneImage->getDataType();
        result = gluScaleImage(m_sceneImage->getPixelFormat(), m_sceneImage->s(), m_sceneImage->t(), type,
                               m_sceneImage->data(), m_capturedImage->s(), m_capturedImage->t(), type,
                               m_capturedImage->data());
    }
    if (result != 0) {
        warnOfScaling();
    }
}
