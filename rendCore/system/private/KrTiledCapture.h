#pragma once

#include <rendCore/window/KrSGDrawCallbacks.h>
#include <rendCore/window/private/KrCapturedImage.h>

#include <osg/Camera>
#include <osgUtil/RenderStage>

#include <cstddef>
#include <vector>

/// Reads every view of a frame and puts them together as they stand in the window. For use inside the library.
class KrTiledCapture : public KrSGWindow::ImageCaptureDrawCallback
{
public:
    KrTiledCapture();

    /// For the next frame; where it goes is told by `setCapture`.
    /// @param width   of the window, pixels
    /// @param height  of the window, pixels
    void setWindowSize(int width, int height);

    bool preRender(osgViewer::Viewer* viewer) override;
    bool postRender(osgViewer::Viewer* viewer) override;
    /// Whether the latest frame is in the target.
    bool isDone() const { return m_isDone; }

protected:
    ~KrTiledCapture() override = default;

private:
    struct Tile
    {
        osg::ref_ptr<osgUtil::RenderStage> stage; ///< during the frame
        osg::ref_ptr<KrCapturedImage> image;      ///< kept from frame to frame
        unsigned int x = 0;                       ///< pixels in the window, from the lower left
        unsigned int y = 0;
    };

    osg::Camera::BufferComponent buffer() const
    {
        return isDepth() ? osg::Camera::DEPTH_BUFFER : osg::Camera::COLOR_BUFFER;
    }
    bool isDepth() const { return (m_captureFlags & KrSGWindow::CaptureDepth) != 0; }
    std::size_t bytesPerPixel() const { return isDepth() ? sizeof(std::uint32_t) : 3; }
    void attach(osg::Camera& camera, osgViewer::Viewer& viewer);
    void fill(const osg::Vec4& color);
    void paste(const Tile& tile);

    bool m_isDone = false;
    std::vector<Tile> m_tiles;
    std::size_t m_numTiles = 0; ///< of m_tiles, which are part of this frame
};
