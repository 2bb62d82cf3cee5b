#pragma once

#include <rendCore/capture/KrFrameCapture.h>
#include <rendCore/window/KrSGDrawCallbacks.h>

#include <osg/Matrixd>
#include <osg/ref_ptr>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

/// Hands out the frames of a window one after the other, without waiting for the frame that is being drawn: colours,
/// depths, labels and normals, or several of them, of the first view of a window that shows several.
///
/// Each frame's pixels are asked for when it is drawn, go into one of a ring of buffers of the driver's, and are handed
/// out in order while one of the next two frames is drawn: the next one when the driver says that they have arrived,
/// the one after it in any case. What is left at the end comes with `flush`.
///
///     const osg::ref_ptr<KrFrameStream> stream = new KrFrameStream(KrFrameStream::Content::Color);
///     stream->setReceiver([&](const KrFrameStream::Frame& frame) { ... });
///     window.setDrawCallback(stream);
///     for (...) { window.setState(...); window.renderScene(true); }
///     stream->flush();
///
/// On the thread that draws; works with window and off-screen targets. A frame of the size and content of the one
/// before allocates nothing. The GL objects go with the window or with the stream, whichever goes first; frames that
/// are on their way when the window closes are lost. `renderSceneAndCaptureImage` drops the window's draw callback,
/// this one, too: install it again, nothing is lost.
class KrFrameStream : public KrSGWindow::DrawCallback
{
public:
    /// What is read. Rows have no padding; row 0 is the lowest one.
    enum class Content
    {
        Color,      ///< red, green, blue: three bytes a pixel
        DepthRaw,   ///< window depth, std::uint32_t: 0 at the near plane, the largest value at the far plane
        DepthFloat, ///< window depth, float: 0 at the near plane, 1 at the far plane
        // Of links alone, as KrFrameCapture tells them; read in one pass behind the frame, however many of them:
        Depth,  ///< float, m
        Labels, ///< std::uint32_t
        Normals ///< three floats
    };

    struct Frame
    {
        /// Null while memory is asked for; valid during the receiver's call, or as long as the lender keeps it.
        const unsigned char* data = nullptr;
        std::size_t sizeInBytes = 0;
        std::uint32_t width = 0; ///< pixels
        std::uint32_t height = 0;
        Content content = Content::Color;
        std::uint64_t number = 0; ///< counts the frames that were read, from 0
        osg::Matrixd worldToEye;  ///< the camera's when this frame was drawn (row vectors, OpenGL eye axes)
        osg::Matrixd projection;  ///< the camera's, eye axes to clip coordinates
    };

    /// Takes a frame. What it throws reaches the caller of `renderScene` or `flush`; the frame counts as handed out.
    using Receiver = std::function<void(const Frame& frame)>;
    /// Names the memory that a frame is written into, `frame.sizeInBytes` bytes at least; null lets the frame go: it is
    /// not handed out.
    using Lender = std::function<unsigned char*(const Frame& frame)>;

    /// Reads `content` of every frame from the first one on that is drawn with the stream installed.
    explicit KrFrameStream(Content content);
    /// Reads several contents, each of another kind, of each frame: they are handed out one after the other in that
    /// order, with the same number.
    explicit KrFrameStream(const std::vector<Content>& contents);

    /// For the frames from the next one on. Of the options of captures the kind of depths, their background, the level
    /// of labels and the axes of normals count here.
    void setOptions(const KrFrameCapture::Options& options) { m_options = options; }

    // Neither function may be replaced from within one of the two, nor draw, nor close the window.
    /// Held; an empty one (the default) takes no frames, and those that were read are let go.
    void setReceiver(Receiver receiver);
    /// An empty one (the default): frames are written into memory of the stream's, kept from frame to frame.
    void setLender(Lender lender);

    bool preRender(osgViewer::Viewer* viewer) override;
    bool postRender(osgViewer::Viewer* viewer) override;

    /// Hands out what is on its way, waiting for it. The context that was current stays so.
    /// @return false when frames were lost since the last call: their window was closed, or memory could not be had
    bool flush();

    /// Frames that were read but not yet handed out, at most 2 between frames; each counts once, however many contents.
    unsigned int numInFlight() const;
    /// Images of frames that were read but can never be handed out.
    std::uint64_t numLost() const;

    /// Checks this object, and draws and judges in windows of its own, see KrSelfTest. False, after one message, when
    /// something is wrong.
    bool selfTest() const;

protected:
    ~KrFrameStream() override;

private:
    class Ring;
    class Reader;

    void attach(osg::Camera& camera);
    void detach();
    void handOut(unsigned int mostLeft);
    void handOut(Ring& ring);
    unsigned char* memoryFor(const Frame& frame);

    Receiver m_receiver;
    Lender m_lender;
    bool readLabelPass(osgViewer::Viewer& viewer);
    bool isReady() const;

    KrFrameCapture::Options m_options;
    std::vector<std::shared_ptr<Ring>> m_rings; ///< of each content
    osg::ref_ptr<Reader> m_reader;
    struct LabelPass;
    std::unique_ptr<LabelPass> m_labels; ///< null where no content needs it
    std::vector<unsigned char> m_memory;
    std::uint64_t m_number = 0; ///< of the next frame
    std::uint64_t m_lostAtFlush = 0;
};
