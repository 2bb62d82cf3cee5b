#include <rendCore/window/private/KrCapturedImage.h>

#include <rendCore/base/private/KrPixelTransferGuard.h>

#include <toolkit/foundation/KrPrint.h>

#include <osg/GLExtensions>
#include <osg/State>

#include <cstdint>
#include <new>

namespace
{

// The scene graph's images count their bytes in 32 bits.
constexpr std::uint64_t kMostBytes = 0x7fffffff;

} // namespace

// Divided, not multiplied: no product can overflow.
bool KrCapturedImage::canHold(int width, int height, unsigned int bytesPerPixel)
{
    return width >= 0 && height >= 0 &&
           (width == 0 ||
            static_cast<std::uint64_t>(height) <= kMostBytes / bytesPerPixel / static_cast<std::uint64_t>(width));
}

void KrCapturedImage::setContext(const osg::State* state)
{
    m_contextId = state ? state->getContextID() : 0;
}

bool KrCapturedImage::allocate(osg::Image& image, int width, int height, bool isDepth)
{
    try {
        if (canHold(width, height, isDepth ? 4 : 3)) {
            image.allocateImage(width, height, 1, isDepth ? GL_DEPTH_COMPONENT : GL_RGB,
                                isDepth ? GL_UNSIGNED_INT : GL_UNSIGNED_BYTE, 1);
            return true;
        }
    } catch (const std::bad_alloc&) {
        // Told below.
    }
    // Empty, so that nobody takes the frame before for this one.
    image.setImage(0, 0, 0, 0, 0, 0, nullptr, osg::Image::NO_DELETE);
    Kr::Print::instance()->write(
        Kr::Print::Warning, "KrCapturedImage::allocate - no memory for a frame of %d x %d pixels.\n", width, height);
    return false;
}

void KrCapturedImage::readPixels(int x, int y, int width, int height, GLenum pixelFormat, GLenum type, int packing)
{
    // A render stage says where to read and not in which context: `setContext` has.
    const KrPixelTransferGuard guard(*osg::GLExtensions::Get(m_contextId, true), packing);
    osg::Image::readPixels(x, y, width, height, pixelFormat, type, packing);
}
