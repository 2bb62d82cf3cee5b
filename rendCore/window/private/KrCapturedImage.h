#pragma once

#include <osg/Image>

#include <vector>

namespace osg
{
class State;
}

/// An image that a render stage reads a buffer into, whatever state the client's callbacks have left: those of the same
/// frame run just before. For use inside the library.
class KrCapturedImage : public osg::Image
{
public:
    /// What the frame is drawn in; null: it is not known.
    void setContext(const osg::State* state);

    void readPixels(int x, int y, int width, int height, GLenum pixelFormat, GLenum type, int packing) override;

    /// Storage in `image` for a frame: RGB bytes, or depths as 32-bit unsigned integers; `packing` 1.
    /// @return false, after one message, when there can be none: the image is then empty
    static bool allocate(osg::Image& image, int width, int height, bool isDepth);
    /// Whether there can be an image of so many bytes: the scene graph counts them in 32 bits.
    static bool canHold(int width, int height, unsigned int bytesPerPixel);

protected:
    ~KrCapturedImage() override = default;

private:
    bool readOpaque(int x, int y, int width, int height);

    std::vector<unsigned char> m_rgba; ///< rows on their way from a buffer with opacity; kept
    unsigned int m_contextId = 0;
};
