#include <rendCore/window/KrSGDrawCallbacks.h>

#include <rendCore/base/private/KrPixelConversion.h>
#include <rendCore/window/private/KrCapturedImage.h>
#include <rendCore/window/private/KrRenderStages.h>

#include <toolkit/foundation/KrPrint.h>

#include <osgUtil/RenderStage>
#include <osgViewer/Viewer>

#include <algorithm>
#include <cfloat>
#include <cstring>

namespace
{

// A picture of 8192 x 8192 pixels. Larger ones are rare, and a window may never capture again; what is not kept comes
// as new pages from the system, which takes a quarter of such a frame.
constexpr unsigned int kMostBytesKept = 256u << 20;

osg::Camera::BufferComponent bufferFor(std::uint32_t flags)
{
    return (flags & KrSGWindow::CaptureDepth) ? osg::Camera::DEPTH_BUFFER : osg::Camera::COLOR_BUFFER;
}

/// The depth value that means "nothing was drawn here" in the current context.
std::uint32_t clearedDepth()
{
    GLint greenBits = 0;
    GLint depthBits = 0;
    glGetIntegerv(GL_GREEN_BITS, &greenBits);
    glGetIntegerv(GL_DEPTH_BITS, &depthBits);
    // Kept: with sixteen green bits or more the depth's own bits are not asked. What `remapDepthBuffer` takes for
    // background depends on it.
    if (greenBits > 15) {
        return 0xFFFFFFFFu;
    }
    switch (depthBits) {
    case 16:
        return 0xFFFF0000u;
    case 24:
        return 0xFFFFF700u; // Kept: this alone is background; 0xFFFFFF00 counts as drawn in depth pictures.
    default:
        return 0xFFFFFFFFu;
    }
}

} // namespace

bool KrSGWindow::DrawCallback::preRender(osgViewer::Viewer*)
{
    return true;
}

bool KrSGWindow::DrawCallback::postRender(osgViewer::Viewer*)
{
    return true;
}

bool KrSGWindow::DrawCallback::render(osgViewer::Viewer* viewer)
{
    const bool ok = preRender(viewer);
    if (viewer) {
        // Kept: the frame is drawn whatever preRender says, so that a window goes on while its capture manager is
        // suspended; only what comes behind it depends on that.
        viewer->frame(DBL_MAX);
    }
    return ok && postRender(viewer);
}

KrSGWindow::ImageCaptureDrawCallback::ImageCaptureDrawCallback(KrImage* target, unsigned int flags)
    : m_target(target)
    , m_captureFlags(flags)
    , m_sceneImage(new KrCapturedImage)
{
}

bool KrSGWindow::ImageCaptureDrawCallback::isReusable() const
{
    return referenceCount() == 1 && m_sceneImage->referenceCount() == 1 &&
           m_sceneImage->getTotalSizeInBytes() <= kMostBytesKept;
}

void KrSGWindow::ImageCaptureDrawCallback::setCapture(KrImage* target, unsigned int flags)
{
    // Kept: nothing else changes, so that between frames `getCapturedImage` goes on giving the last one.
    m_target = target;
    m_captureFlags = flags;
}

bool KrSGWindow::ImageCaptureDrawCallback::preRender(osgViewer::Viewer* viewer)
{
    osgUtil::RenderStage* const stage = KrRenderStages::ofMain(viewer);
    if (!stage || !viewer->getCamera()->getViewport()) {
        // Kept: the name in this message is not the class's, as filters of clients' logs match it.
        Kr::Print::instance()->write(Kr::Print::Error, "ImageCaptureCallback::Invalid viewer pointer.\n");
        return false;
    }
    const osg::Camera::BufferComponent buffer = bufferFor(m_captureFlags);
    // Before `attach`: a stage that is set up later drops what is attached.
    KrRenderStages::setUp(*stage, *viewer->getCamera(), *viewer);
    if (auto* const image = dynamic_cast<KrCapturedImage*>(m_sceneImage.get())) {
        const osg::GraphicsContext* const context = viewer->getCamera()->getGraphicsContext();
        image->setContext(context ? context->getState() : nullptr);
    }
    stage->attach(buffer, m_sceneImage);
    const osg::Viewport* const viewport = viewer->getCamera()->getViewport();
    // The viewport's, not the window's: a camera may draw into a part of it.
    m_width = static_cast<std::uint32_t>(viewport->width());
    m_height = static_cast<std::uint32_t>(viewport->height());
    switch (buffer) {
    case osg::Camera::DEPTH_BUFFER:
    case osg::Camera::COLOR_BUFFER:
        if (!KrCapturedImage::allocate(*m_sceneImage, static_cast<int>(m_width), static_cast<int>(m_height),
                                       buffer == osg::Camera::DEPTH_BUFFER)) {
            stage->attach(buffer, nullptr);
            return false;
        }
        break;
    default:
        Kr::Print::instance()->write(Kr::Print::Warning, "Invalid buffer set for image capture.\n");
        break;
    }
    return true;
}

/// The target's storage, sized for the capture.
unsigned char* KrSGWindow::ImageCaptureDrawCallback::fittedTarget(unsigned int channels)
{
    const bool flipped = (m_captureFlags & CaptureFlipped) != 0;
    unsigned char* const present = flipped ? m_target->flippedData() : m_target->data();
    // Storage that fits is kept, so that a series of captures allocates once.
    const bool fits =
        present && m_target->width() == m_width && m_target->height() == m_height && m_target->channels() == channels;
    if (fits) {
        return present;
    }
    if (flipped) {
        m_target->zeroFlippedImage(channels, 0, m_width, m_height);
        return m_target->flippedData();
    }
    m_target->allocate(channels, 0, m_width, m_height);
    return m_target->data();
}

void KrSGWindow::ImageCaptureDrawCallback::detach(osgViewer::Viewer* viewer) const
{
    // An image that stays attached would be read in every later frame.
    if (osgUtil::RenderStage* const stage = KrRenderStages::ofMain(viewer)) {
        stage->attach(bufferFor(m_captureFlags), nullptr);
    }
}

bool KrSGWindow::ImageCaptureDrawCallback::postRender(osgViewer::Viewer* viewer)
{
    detach(viewer);
    // Kept: found out only after the frame, which a client without storage sees drawn all the same.
    if (!m_target) {
        Kr::Print::instance()->write(Kr::Print::Warning, "Capturing image without KrImage allocated for storage.\n");
        return false;
    }
    // The frame itself may have resized the window: what was read tells.
    m_width = static_cast<std::uint32_t>(m_sceneImage->s());
    m_height = static_cast<std::uint32_t>(m_sceneImage->t());
    if (m_captureFlags & CaptureDepth) {
        fittedTarget(1);
        remapDepthBuffer();
        return true;
    }
    // Null without memory, which KrImage has told.
    unsigned char* const out = fittedTarget(3);
    const std::size_t rowBytes =
        osg::Image::computeRowWidthInBytes(m_sceneImage->s(), m_sceneImage->getPixelFormat(),
                                           m_sceneImage->getDataType(), static_cast<int>(m_sceneImage->getPacking()));
    const std::size_t bytes =
        rowBytes * static_cast<std::size_t>(m_sceneImage->t()) * static_cast<std::size_t>(m_sceneImage->r());
    // Kept: true also where there was nothing to copy: the answer is about the target alone.
    if (out && m_sceneImage->data()) {
        std::memcpy(out, m_sceneImage->data(), std::min(bytes, m_target->sizeInBytes()));
    }
    return true;
}

void KrSGWindow::ImageCaptureDrawCallback::remapDepthBuffer()
{
    if (!m_sceneImage->data() || !m_target) {
        return;
    }
    unsigned char* const out = fittedTarget(1);
    // The target need not have become as large as it should.
    const std::size_t count =
        std::min({std::size_t(m_width) * m_height, m_sceneImage->getTotalSizeInBytes() / sizeof(std::uint32_t),
                  m_target->sizeInBytes()});
    const auto* const depths = reinterpret_cast<const std::uint32_t*>(m_sceneImage->data());

    // Asked of the context that the frame was drawn in, which is still current.
    const std::uint32_t far = clearedDepth();
    // Kept: unsigned differences, a scale of 256, and 0/0 where every drawn depth is the same. Readers of depth
    // pictures find the farthest drawn depth at 0, as the nearest and the background.
    if (out) {
        KrPixelConversion::toGrey(depths, count, far, KrPixelConversion::rangeOf(depths, count, far), out);
    }
}
