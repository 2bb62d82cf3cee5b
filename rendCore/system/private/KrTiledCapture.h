#pragma once

#include <rendCore/window/KrSGDrawCallbacks.h>

#include <osg/Camera>
#include <osg/Image>
#include <osgUtil/RenderStage>

#include <vector>

/// Reads every view of a frame and puts them together as they stand in the window. For use inside the library.
class KrTiledCapture : public KrSGWindow::ImageCaptureDrawCallback
{
public:
    /// @param target  where the frame goes; borrowed
    /// @param flags   KrSGWindow::CaptureFlag bits
    /// @param width   of the window, pixels
    /// @param height  of the window, pixels
    KrTiledCapture(KrImage& target, unsigned int flags, int width, int height);

    bool preRender(osgViewer::Viewer* viewer) override;
    bool postRender(osgViewer::Viewer* viewer) override;
    /// Whether the latest frame is in the target.
    bool isDone() const { return m_isDone; }

protected:
    ~KrTiledCapture() override = default;

private:
    struct Tile
    {
        osg::ref_ptr<osgUtil::RenderStage> stage;
        osg::ref_ptr<osg::Image> image;
        unsigned int x = 0; ///< pixels in the window, from the lower left
        unsigned int y = 0;
    };

    osg::Camera::BufferComponent buffer() const
    {
        return m_isDepth ? osg::Camera::DEPTH_BUFFER : osg::Camera::COLOR_BUFFER;
    }
    std::size_t bytesPerPixel() const { return m_isDepth ? sizeof(std::uint32_t) : 3; }
    void attach(osg::Camera& camera, osgViewer::Viewer& viewer);
    void fill(const osg::Vec4& color);
    void paste(const Tile& tile);

    bool m_isDepth;
    bool m_isDone = false;
    std::vector<Tile> m_tiles;
};
