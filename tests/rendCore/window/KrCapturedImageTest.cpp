// Everything that reads a frame back, whatever the client's callbacks leave set in it.

#define GL_GLEXT_PROTOTYPES

#include <rendCore/capture/KrDepthCapture.h>
#include <rendCore/capture/KrFrameStream.h>
#include <rendCore/capture/KrRenderCaptureManager.h>
#include <rendCore/system/KrMultiRenderWindow.h>
#include <toolkit/context/KrExternalWindowImpl.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/Systems.h>

#include <osg/Camera>
#include <osg/GLExtensions>
#include <osg/Notify>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr GLenum kPackBuffer = 0x88EB;        // GL_PIXEL_PACK_BUFFER
constexpr GLenum kPackBufferBinding = 0x88ED; // GL_PIXEL_PACK_BUFFER_BINDING

struct Value
{
    GLenum name;
    GLint value;
};
constexpr Value kStores[] = {{GL_PACK_SKIP_PIXELS, 7},   {GL_PACK_SKIP_ROWS, 9},   {GL_PACK_ROW_LENGTH, 200},
                             {GL_PACK_SWAP_BYTES, 1},    {GL_PACK_LSB_FIRST, 1},   {GL_PACK_ALIGNMENT, 8},
                             {GL_UNPACK_SKIP_PIXELS, 5}, {GL_UNPACK_SKIP_ROWS, 3}, {GL_UNPACK_ROW_LENGTH, 300},
                             {GL_UNPACK_SWAP_BYTES, 1},  {GL_UNPACK_ALIGNMENT, 2}};
constexpr Value kTransfers[] = {{GL_RED_SCALE, 0}, {GL_BLUE_BIAS, 1}, {GL_DEPTH_SCALE, 0}, {GL_DEPTH_BIAS, 1}};

/// Leaves pixel state of a client's own behind the scene, just before the frame is read.
class OddPixels : public osg::Camera::DrawCallback
{
public:
    void operator()(osg::RenderInfo& info) const override
    {
        for (const Value& store : kStores) {
            glPixelStorei(store.name, store.value);
        }
        for (const Value& transfer : kTransfers) {
            glPixelTransferi(transfer.name, transfer.value);
        }
        const osg::GLExtensions& gl = *info.getState()->get<osg::GLExtensions>();
        if (m_buffer == 0) {
            gl.glGenBuffers(1, &m_buffer);
        }
        gl.glBindBuffer(kPackBuffer, m_buffer);
    }

    /// Empty when the context has all of it still.
    std::string lost() const
    {
        std::string text;
        for (const Value& store : kStores) {
            GLint value = -1;
            glGetIntegerv(store.name, &value);
            text += value == store.value ? "" : " store " + std::to_string(store.name);
        }
        for (const Value& transfer : kTransfers) {
            GLint value = -1;
            glGetIntegerv(transfer.name, &value);
            text += value == transfer.value ? "" : " transfer " + std::to_string(transfer.name);
        }
        GLint buffer = -1;
        glGetIntegerv(kPackBufferBinding, &buffer);
        return text + (buffer == GLint(m_buffer) ? "" : " buffer");
    }

private:
    mutable GLuint m_buffer = 0;
};

void prepare(KrRenderWindow& window, const KrStatedSystem& system)
{
    window.setBackgroundColor(KrColor(0.2, 0.4, 0.6));
    window.setStatedSystem(system);
    KrPovParameters pov;
    pov.setEyepoint(KrVector(6.0, -5.0, 4.0));
    pov.setCenterOfInterest(KrVector(0.5, 0.0, 0.5));
    window.setPovParameters(pov);
}

class KrCapturedImageTest : public testing::Test
{
protected:
    void SetUp() override
    {
        window.setWindowSize(63, 47); // rows of 189 bytes, which nothing aligns
        prepare(window, system);
        if (!window.init()) {
            GTEST_SKIP() << window.report().text();
        }
    }

    static std::vector<unsigned char> capture(KrSGWindow& from, unsigned int flags)
    {
        KrImage image;
        EXPECT_TRUE(from.renderSceneAndCaptureImage(image, flags));
        return std::vector<unsigned char>(image.data(), image.data() + image.sizeInBytes());
    }
    /// What a manager hands out, scaled to 40 x 30.
    std::vector<unsigned char> scaled()
    {
        const osg::ref_ptr<KrRenderCaptureManager> manager = new KrRenderCaptureManager;
        manager->setCaptureSize(40, 30);
        return frameOf(*manager);
    }
    std::vector<unsigned char> frameOf(KrRenderCaptureManager& manager)
    {
        std::vector<unsigned char> bytes;
        manager.callbackFunction = [&bytes](const osg::Image* image) {
            bytes.assign(image->data(), image->data() + image->getTotalSizeInBytes());
        };
        window.setDrawCallback(&manager);
        EXPECT_TRUE(window.renderScene(true));
        window.setDrawCallback(nullptr);
        return bytes;
    }
    std::vector<unsigned char> streamed() { return streamed(window, KrFrameStream::Content::Color); }
    static std::vector<unsigned char> streamed(KrRenderWindow& from, KrFrameStream::Content content)
    {
        std::vector<unsigned char> bytes;
        const osg::ref_ptr<KrFrameStream> stream = new KrFrameStream(content);
        stream->setReceiver(
            [&bytes](const KrFrameStream::Frame& frame) { bytes.assign(frame.data, frame.data + frame.sizeInBytes); });
        from.setDrawCallback(stream);
        EXPECT_TRUE(from.renderScene(true));
        from.setDrawCallback(nullptr);
        EXPECT_TRUE(stream->flush());
        return bytes;
    }
    std::vector<float> depths()
    {
        KrDepthCapture capture;
        std::vector<float> result;
        EXPECT_TRUE(capture.render(window, KrDepthCapture::Options(), result));
        return result;
    }
    osg::Camera& camera() { return *window.getViewer()->getCamera(); }

    const KrStatedSystem system{Systems::twoBoxes()};
    KrRenderWindow window;
};

TEST_F(KrCapturedImageTest, FramesComeBackWholeAndTheClientsPixelStateStays)
{
    const auto color = capture(window, KrSGWindow::CaptureColor);
    const auto flipped = capture(window, KrSGWindow::CaptureDepth);
    const auto small = scaled();
    const auto stream = streamed();
    const auto metres = depths();
    ASSERT_EQ(color.size(), std::size_t{63} * 47 * 3);
    ASSERT_EQ(small.size(), std::size_t{40} * 30 * 3);

    const osg::ref_ptr<OddPixels> odd = new OddPixels;
    camera().addPostDrawCallback(odd);
    EXPECT_EQ(capture(window, KrSGWindow::CaptureColor), color);
    EXPECT_EQ(odd->lost(), "");
    EXPECT_EQ(capture(window, KrSGWindow::CaptureDepth), flipped);
    EXPECT_EQ(scaled(), small);
    EXPECT_EQ(streamed(), stream);
    EXPECT_EQ(odd->lost(), "");
    EXPECT_EQ(depths(), metres);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

// A client's framebuffer with opacity and depths of 24 bits, which are read in other forms than the window's own.
TEST_F(KrCapturedImageTest, AClientsFramebufferIsReadAsTheWindowIs)
{
    const auto color = capture(window, KrSGWindow::CaptureColor);
    KrWindow host;
    host.setHideWindow(true);
    host.setWindowSize(63, 47);
    ASSERT_TRUE(host.init() && host.makeCurrent());
    GLuint frame = 0, buffers[2] = {};
    glGenFramebuffers(1, &frame);
    glGenRenderbuffers(2, buffers);
    glBindFramebuffer(GL_FRAMEBUFFER, frame);
    constexpr GLenum kFormats[] = {GL_RGBA8, GL_DEPTH_COMPONENT24};
    constexpr GLenum kPoints[] = {GL_COLOR_ATTACHMENT0, GL_DEPTH_ATTACHMENT};
    for (int i = 0; i < 2; ++i) {
        glBindRenderbuffer(GL_RENDERBUFFER, buffers[i]);
        glRenderbufferStorage(GL_RENDERBUFFER, kFormats[i], 63, 47);
        glFramebufferRenderbuffer(GL_FRAMEBUFFER, kPoints[i], GL_RENDERBUFFER, buffers[i]);
    }
    ASSERT_EQ(glCheckFramebufferStatus(GL_FRAMEBUFFER), GLenum(GL_FRAMEBUFFER_COMPLETE));
    {
        const KrStatedSystem same{Systems::twoBoxes()};
        KrExternalWindowImpl::Callbacks callbacks;
        callbacks.makeCurrent = [&host] { return host.makeCurrent(); };
        callbacks.isCurrent = [&host] { return host.getImpl()->isCurrent(); };
        callbacks.defaultFramebuffer = [frame] { return frame; };
        KrRenderWindow guest;
        guest.setImpl(std::make_unique<KrExternalWindowImpl>(callbacks));
        guest.setHideWindow(true);
        guest.setWindowSize(63, 47);
        prepare(guest, same);
        ASSERT_TRUE(guest.init());
        EXPECT_EQ(capture(guest, KrSGWindow::CaptureColor), color);
        EXPECT_EQ(streamed(guest, KrFrameStream::Content::Color), color);
        const auto raw = streamed(guest, KrFrameStream::Content::DepthRaw);
        const auto fractions = streamed(guest, KrFrameStream::Content::DepthFloat);
        ASSERT_EQ(raw.size(), fractions.size());
        for (std::size_t i = 0; i < raw.size(); i += 4) {
            std::uint32_t integer = 0;
            float fraction = -1.0f;
            std::memcpy(&integer, &raw[i], 4);
            std::memcpy(&fraction, &fractions[i], 4);
            ASSERT_EQ(fraction, float((integer >> 8) / 16777215.0)) << i / 4;
        }
        GLint read = -1;
        glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &read);
        EXPECT_EQ(read, GLint(frame));
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        guest.closeWindow();
    }
    host.makeCurrent();
    glDeleteFramebuffers(1, &frame);
    glDeleteRenderbuffers(2, buffers);
}

TEST_F(KrCapturedImageTest, EveryViewOfAWindowComesBackWhole)
{
    KrMultiRenderWindow views(31, 23, 4);
    prepare(views, system);
    views.setEyePoints(
        {KrVector(6.0, 0.0, 1.0), KrVector(0.0, 6.0, 1.0), KrVector(4.0, 4.0, 3.0), KrVector(1.0, 0.0, 6.0)});
    ASSERT_TRUE(views.init());
    KrImage before, after;
    ASSERT_TRUE(views.captureWindow(before, KrSGWindow::CaptureColor));
    views.getViewer()->getCamera()->addPostDrawCallback(new OddPixels);
    ASSERT_TRUE(views.captureWindow(after, KrSGWindow::CaptureColor));
    ASSERT_EQ(after.sizeInBytes(), before.sizeInBytes());
    EXPECT_TRUE(std::equal(after.data(), after.data() + after.sizeInBytes(), before.data()));
}

/// Skips what a client's own textures skip.
class OddUnpacking : public osg::Camera::DrawCallback
{
public:
    void operator()(osg::RenderInfo&) const override
    {
        glPixelStorei(GL_UNPACK_SKIP_PIXELS, 17);
        glPixelStorei(GL_UNPACK_SKIP_ROWS, 5);
    }
};

TEST_F(KrCapturedImageTest, TexturesAreReadFromTheirOwnMemory)
{
    KrImage picture;
    picture.allocate(3, 0, 64, 64);
    for (std::size_t i = 0; i < picture.sizeInBytes(); ++i) {
        picture.data()[i] = static_cast<unsigned char>(i % 192 / 2 + i / 192);
    }
    const auto shown = [&] {
        EXPECT_TRUE(window.setImageBuffer(picture, false));
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        std::vector<unsigned char> pixels(std::size_t{63} * 47 * 3);
        glReadPixels(0, 0, 63, 47, GL_RGB, GL_UNSIGNED_BYTE, pixels.data());
        return pixels;
    };
    const std::vector<unsigned char> before = shown();
    camera().addPostDrawCallback(new OddUnpacking);
    ASSERT_TRUE(window.renderScene(false));
    EXPECT_EQ(shown(), before);
}

/// Calls a function in the update of each frame.
class InUpdate : public osg::NodeCallback
{
public:
    explicit InUpdate(std::function<void()> function)
        : m_function(std::move(function))
    {
    }
    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override
    {
        m_function();
        traverse(node, visitor);
    }

private:
    std::function<void()> m_function;
};

TEST_F(KrCapturedImageTest, AFrameKeepsTheCaptureSizeThatItBeganWith)
{
    const osg::ref_ptr<KrRenderCaptureManager> manager = new KrRenderCaptureManager;
    manager->setCaptureSize(20, 10);
    const std::vector<unsigned char> expected = frameOf(*manager);
    ASSERT_EQ(expected.size(), std::size_t{20} * 10 * 3);
    const osg::ref_ptr<osg::NodeCallback> grow = new InUpdate([&manager] { manager->setCaptureSize(800, 600); });
    window.getNode()->addUpdateCallback(grow);
    EXPECT_EQ(frameOf(*manager), expected);
    EXPECT_EQ(frameOf(*manager).size(), std::size_t{800} * 600 * 3) << "the next one has the new size";
    window.getNode()->removeUpdateCallback(grow);

    // No size, not even one that no memory holds, ends anything.
    MessageRecorder messages;
    for (const unsigned int side : {40000u, 4000000000u}) {
        manager->setCaptureSize(side, side);
        EXPECT_EQ(frameOf(*manager).size(), std::size_t{63} * 47 * 3) << "as it is";
    }
    EXPECT_EQ(messages.count(Kr::Print::Warning, "Unable to scale image.\n"), 2u);
}

TEST_F(KrCapturedImageTest, AWindowResizedInItsFrameIsCapturedAsItIsThen)
{
    const osg::ref_ptr<KrRenderCaptureManager> manager = new KrRenderCaptureManager;
    manager->setCaptureSize(40, 30);
    bool isLarge = false;
    window.getNode()->addUpdateCallback(
        new InUpdate([&] { window.setWindowSize(isLarge ? 63 : 31, isLarge ? 47 : 21); }));
    for (const bool wasLarge : {true, false, true}) {
        isLarge = !wasLarge;
        EXPECT_EQ(frameOf(*manager).size(), std::size_t{40} * 30 * 3);
        isLarge = wasLarge;
        KrImage image;
        EXPECT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
        // The top right corner shows the background: rows are where they belong.
        const unsigned char* const corner = image.data() + image.sizeInBytes() - 3;
        EXPECT_EQ(corner[0], 51);
        EXPECT_EQ(corner[2], 153);
    }
}

/// Does in each frame what OpenGL refuses.
class Mistaken : public osg::Camera::DrawCallback
{
public:
    void operator()(osg::RenderInfo&) const override { glEnable(0xFFFF); }
};

TEST_F(KrCapturedImageTest, AnErrorThatAClientLeavesCostsNoDepths)
{
    const std::vector<float> before = depths();
    camera().addPreDrawCallback(new Mistaken);
    // The scene graph would report it, and so take it away.
    camera().getGraphicsContext()->getState()->setCheckForGLErrors(osg::State::NEVER_CHECK_GL_ERRORS);
    EXPECT_EQ(depths(), before);
}

} // namespace
