#include <rendCore/window/private/KrCapturedImage.h>

#include <rendCore/base/private/KrPixelConversion.h>
#include <rendCore/base/private/KrPixelTransferGuard.h>

#include <toolkit/foundation/KrPrint.h>

#include <osg/GLExtensions>
#include <osg/State>

#include <algorithm>
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

/// Colours of a buffer with opacity, which is copied as it stands, where three channels of it would be packed pixel by
/// pixel. False where there is no memory for that.
bool KrCapturedImage::readOpaque(int x, int y, int width, int height)
{
    // So many that the pictures of most windows come in one call, and few enough for the largest ones' memory.
    constexpr int kMostPixels = 1 << 22;
    const int rows = std::min(height, std::max(1, kMostPixels / std::max(1, width)));
    try {
        allocateImage(width, height, 1, GL_RGB, GL_UNSIGNED_BYTE, 1);
        m_rgba.resize(std::size_t{4} * static_cast<unsigned int>(width) * static_cast<unsigned int>(rows));
    } catch (const std::bad_alloc&) {
        return false;
    }
    for (int row = 0; row < height; row += rows) {
        const int count = std::min(rows, height - row);
        glReadPixels(x, y + row, width, count, GL_RGBA, GL_UNSIGNED_BYTE, m_rgba.data());
        KrPixelConversion::toRgb(m_rgba.data(), std::size_t(width) * static_cast<unsigned int>(count), data(0, row));
    }
    return true;
}

void KrCapturedImage::readPixels(int x, int y, int width, int height, GLenum pixelFormat, GLenum type, int packing)
{
    // A render stage says where to read and not in which context: `setContext` has.
    const KrPixelTransferGuard guard(*osg::GLExtensions::Get(m_contextId, true), packing);
    GLint alphaBits = 0;
    glGetIntegerv(GL_ALPHA_BITS, &alphaBits);
    if (alphaBits > 0 && pixelFormat == GL_RGB && type == GL_UNSIGNED_BYTE && packing == 1 && width > 0 && height > 0 &&
        readOpaque(x, y, width, height)) {
        return;
    }
    osg::Image::readPixels(x, y, width, height, pixelFormat, type, packing);
}
