#pragma once

#include <rendCore/window/KrSGDrawCallbacks.h>

#include <osg/Image>
#include <osg/ref_ptr>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/function.hpp>

/// A source of frames: hands every drawn frame, scaled on request, to a function of the application's.
///
/// Construct it, set `callbackFunction`, install it with `KrSGWindow::setDrawCallback` and draw. On the rendering
/// thread; the function is called before `renderScene` returns.
class KrRenderCaptureManager : public KrSGWindow::ImageCaptureDrawCallback
{
public:
    enum CurrentMode : int
    {
        Capture = 0,
        Suspended = 1 ///< as is any other value than Capture
    };

    /// Hands out every frame in the window's size until something else is set.
    KrRenderCaptureManager();

    /// Frames a second; zero, negative and NaN mean a period of 0. Kept: it throttles nothing, and clients that draw at
    /// a pace of their own are handed every frame.
    void setFrameRate(float framesPerSecond);
    /// Pixels of the images that are handed out; a zero means the window's own size as of the next frame, for good.
    void setCaptureSize(unsigned int width, unsigned int height);
    void setMode(CurrentMode mode) { m_mode = mode; }
    CurrentMode getMode() const { return m_mode; }
    /// The image that is handed out: RGB bytes, row 0 at the bottom.
    osg::ref_ptr<const osg::Image> getCapturedImage() const { return m_capturedImage.get(); }

    bool preRender(osgViewer::Viewer* viewer) override;
    bool postRender(osgViewer::Viewer* viewer) override;
    /// Draws and judges in windows of its own, see KrSelfTest. False, after one message, when something is wrong.
    virtual bool selfTest() const;

    /// Receives each frame's image, which is borrowed for the call and overwritten by the next frame.
    boost::function<void(const osg::Image*)> callbackFunction;

protected:
    ~KrRenderCaptureManager() override = default;

private:
    bool prepareScaledImage();
    void scaleImage(osgViewer::Viewer* viewer);

    boost::posix_time::ptime m_nextCaptureTime;
    osg::ref_ptr<osg::Image> m_capturedImage;
    bool m_scaling = false;
    float m_framePeriodMs = 0.0f;
    unsigned int m_captureWidth = 0;
    unsigned int m_captureHeight = 0;
    CurrentMode m_mode = Capture;
};
