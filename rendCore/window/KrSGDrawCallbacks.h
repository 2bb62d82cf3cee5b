#pragma once

#include <rendCore/window/KrSGWindow.h>

#include <osg/Image>
#include <osg/Referenced>
#include <osg/ref_ptr>

#include <cstdint>

/// Drives a frame: brackets the viewer's frame with hooks.
class KrSGWindow::DrawCallback : public osg::Referenced
{
public:
    /// Called before the frame. False leaves `postRender` out, but not the frame.
    virtual bool preRender(osgViewer::Viewer* viewer);
    /// preRender, the viewer's frame whatever that returned, then, if it returned true, postRender.
    virtual bool render(osgViewer::Viewer* viewer);
    /// Called after the frame, its context current. The result is that of `render`.
    virtual bool postRender(osgViewer::Viewer* viewer);

protected:
    ~DrawCallback() override = default;
};

/// Reads the colour or depth buffer of each frame into an image.
class KrSGWindow::ImageCaptureDrawCallback : public KrSGWindow::DrawCallback
{
public:
    /// @param target  where frames go; borrowed, may be null until the first frame
    /// @param flags   CaptureFlag bits; others are ignored
    ImageCaptureDrawCallback(KrImage* target, unsigned int flags);

    bool preRender(osgViewer::Viewer* viewer) override;
    bool postRender(osgViewer::Viewer* viewer) override;
    /// Where the next frames go and what is read, as in the constructor.
    virtual void setCapture(KrImage* target, unsigned int flags);
    /// Turns 32-bit depths into bytes in the target: 0 at the nearest drawn depth, growing with the depth to 255 just
    /// before the farthest one, which wraps to 0 like the background.
    virtual void remapDepthBuffer();

    /// The frame as it was read: width x height, row 0 at the bottom; RGB bytes, or depths as 32-bit unsigned integers.
    osg::ref_ptr<osg::Image> getCapturedImage() const { return m_sceneImage; }
    /// For its one holder, after a frame: whether it may serve for another capture. No, when somebody else holds it or
    /// its image, or the image takes too much memory to be kept.
    bool isReusable() const;

protected:
    ~ImageCaptureDrawCallback() override = default;

    /// Ends the reading of this capture's buffer: left attached, it would be read back in every later frame.
    void detach(osgViewer::Viewer* viewer) const;

    KrImage* m_target = nullptr;
    std::uint32_t m_captureFlags = 0;
    osg::ref_ptr<osg::Image> m_sceneImage;
    std::uint32_t m_width = 0;
    std::uint32_t m_height = 0;

private:
    unsigned char* fittedTarget(unsigned int channels);
};
