#include <rendCore/capture/KrDepthCapture.h>
#include <rendCore/capture/KrFrameStream.h>
#include <rendCore/system/KrRenderWindow.h>

#include <tests/support/Allocations.h>
#include <tests/support/MessageRecorder.h>
#include <tests/support/Systems.h>

#include <osg/GLExtensions>
#include <osg/State>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

namespace
{

using Content = KrFrameStream::Content;
using Bytes = std::vector<unsigned char>;

/// A frame that was handed out, copied.
struct Received
{
    explicit Received(const KrFrameStream::Frame& frame)
        : info(frame)
        , bytes(frame.data, frame.data + frame.sizeInBytes)
    {
    }
    KrFrameStream::Frame info;
    Bytes bytes;
};

/// Two boxes from the side and a little above: nothing in the picture is symmetric.
void lookAtTheBoxes(KrRenderWindow& window)
{
    KrPovParameters pov = window.getPovParameters();
    pov.setEyepoint(KrVector(3.0, -6.0, 3.0));
    pov.setCenterOfInterest(KrVector(0.5, 0.0, 0.7));
    window.setPovParameters(pov);
}

class KrFrameStreamTest : public testing::Test
{
protected:
    void SetUp() override
    {
        window->setHideWindow(true);
        window->setWindowSize(64, 48);
        window->setBackgroundColor(KrColor(0.0, 0.0, 1.0));
        window->setStatedSystem(system);
        if (!window->init()) {
            GTEST_SKIP() << window->report().text();
        }
        lookAtTheBoxes(*window);
    }
    void TearDown() override
    {
        if (window && window->makeCurrent()) {
            EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        }
    }

    osg::ref_ptr<KrFrameStream> install(Content content)
    {
        const osg::ref_ptr<KrFrameStream> stream = new KrFrameStream(content);
        stream->setReceiver([this](const KrFrameStream::Frame& frame) { received.emplace_back(frame); });
        window->setDrawCallback(stream);
        return stream;
    }
    /// The arm turned to frame `i`'s place.
    void pose(int i)
    {
        system.setJointPosition(0, "arm_joint", 0.4 * i);
        window->setState(system.systemState());
    }
    void draw(int i)
    {
        pose(i);
        ASSERT_TRUE(window->renderScene(true));
    }
    /// What an ordinary capture reads in that place.
    Bytes captured(int i, unsigned int flags)
    {
        const osg::ref_ptr<KrSGWindow::ImageCaptureDrawCallback> capture =
            new KrSGWindow::ImageCaptureDrawCallback(&image, flags);
        window->setDrawCallback(capture);
        draw(i);
        const osg::ref_ptr<osg::Image> read = capture->getCapturedImage();
        return Bytes(read->data(), read->data() + read->getTotalSizeInBytes());
    }
    GLint boundPackBuffer()
    {
        GLint bound = -1;
        glGetIntegerv(GL_PIXEL_PACK_BUFFER_BINDING, &bound);
        return bound;
    }

    KrStatedSystem system{Systems::twoBoxes()};
    std::unique_ptr<KrRenderWindow> window = std::make_unique<KrRenderWindow>();
    std::vector<Received> received;
    KrImage image;
};

// In both targets and for both buffers, each frame is the one that an ordinary capture reads, in order.
TEST_F(KrFrameStreamTest, HandsOutEveryFrameInOrderAsACaptureReadsIt)
{
    constexpr int kFrames = 7;
    for (const bool offScreen : {false, true}) {
        for (const Content content : {Content::Color, Content::DepthRaw}) {
            window->setOffScreenRendering(offScreen);
            received.clear();
            const osg::ref_ptr<KrFrameStream> stream = install(content);
            for (int i = 0; i < kFrames; ++i) {
                draw(i);
                // One or two frames later, never in the frame itself.
                ASSERT_LE(received.size(), std::size_t(i));
                ASSERT_GE(received.size() + 2, std::size_t(i + 1));
                ASSERT_EQ(stream->numInFlight(), i + 1 - received.size());
            }
            EXPECT_TRUE(stream->flush());
            ASSERT_EQ(received.size(), std::size_t(kFrames));
            EXPECT_EQ(stream->numInFlight(), 0u);
            const bool isColor = content == Content::Color;
            for (int i = 0; i < kFrames; ++i) {
                EXPECT_EQ(received[i].info.number, std::uint64_t(i));
                EXPECT_EQ(received[i].info.width, 64u);
                EXPECT_EQ(received[i].bytes, captured(i, isColor ? KrSGWindow::CaptureColor : KrSGWindow::CaptureDepth))
                    << "frame " << i << (isColor ? " colour" : " depth") << (offScreen ? " off screen" : "");
                EXPECT_TRUE(i == 0 || received[i].bytes != received[i - 1].bytes);
            }
        }
    }
}

TEST_F(KrFrameStreamTest, FloatDepthsAndTheirCameraGiveBackPointsInTheScene)
{
    const osg::ref_ptr<KrFrameStream> stream = install(Content::DepthFloat);
    draw(0);
    EXPECT_TRUE(stream->flush());
    // The camera of the frame, not the one that stands there when the frame arrives.
    KrPovParameters pov = window->getPovParameters();
    pov.setEyepoint(KrVector(9.0, 9.0, 9.0));
    window->setPovParameters(pov);
    window->renderScene(true);
    ASSERT_EQ(received.size(), 1u);
    const KrFrameStream::Frame& frame = received[0].info;
    ASSERT_EQ(received[0].bytes.size(), 64u * 48u * sizeof(float));
    const osg::Matrixd pixelToWorld =
        osg::Matrixd::inverse(frame.worldToEye * frame.projection * osg::Matrixd::translate(1.0, 1.0, 1.0) *
                              osg::Matrixd::scale(0.5 * 64, 0.5 * 48, 0.5));
    int drawn = 0;
    for (unsigned int y = 0; y < 48; ++y) {
        for (unsigned int x = 0; x < 64; ++x) {
            float depth = 0.0f;
            std::memcpy(&depth, received[0].bytes.data() + (y * 64 + x) * sizeof depth, sizeof depth);
            if (depth == 1.0f) {
                continue;
            }
            ++drawn;
            const osg::Vec3d point = osg::Vec3d(x + 0.5, y + 0.5, depth) * pixelToWorld;
            // Base: 1 x 1 x 1 about the origin; arm: from x = 0 to 2, 0.5 wide, about z = 1.
            const auto outside = [&point](const osg::Vec3d& low, const osg::Vec3d& high) {
                double most = 0.0;
                for (int k = 0; k < 3; ++k) {
                    most = std::max({most, low[k] - point[k], point[k] - high[k]});
                }
                return most;
            };
            EXPECT_LT(
                std::min(outside({-0.5, -0.5, -0.5}, {0.5, 0.5, 0.5}), outside({0, -0.25, 0.75}, {2, 0.25, 1.25})),
                1e-3)
                << x << ", " << y;
        }
    }
    EXPECT_GT(drawn, 150);
}

TEST_F(KrFrameStreamTest, AllocatesNothingAFrame)
{
    const auto allocationsOf = [this](unsigned int frames) {
        const std::size_t before = Allocations::now().withNew;
        for (unsigned int i = 0; i < frames; ++i) {
            window->renderScene(true);
        }
        return Allocations::now().withNew - before;
    };
    constexpr unsigned int kFrames = 20;
    allocationsOf(5);
    const std::size_t withoutStream = allocationsOf(kFrames);
    for (const Content content : {Content::Color, Content::DepthRaw, Content::DepthFloat}) {
        const osg::ref_ptr<KrFrameStream> stream = new KrFrameStream(content);
        std::size_t bytes = 0;
        stream->setReceiver([&bytes](const KrFrameStream::Frame& frame) { bytes += frame.sizeInBytes; });
        window->setDrawCallback(stream);
        allocationsOf(4);
        EXPECT_EQ(allocationsOf(kFrames), withoutStream);
        EXPECT_GE(bytes, 22u * 64u * 48u * 3u);
    }
    window->setDrawCallback(nullptr);

    // Captures one by one: all the same, a block of a frame, and grey and metric depths.
    const auto capturesOf = [](unsigned int frames, const std::function<void()>& capture) {
        capture();
        const std::size_t before = Allocations::now().withNew;
        for (unsigned int i = 0; i < frames; ++i) {
            capture();
        }
        return Allocations::now().withNew - before;
    };
    constexpr unsigned int kKinds[] = {KrSGWindow::CaptureColor, KrSGWindow::CaptureColor | KrSGWindow::CaptureFlipped,
                                       KrSGWindow::CaptureDepth};
    for (const unsigned int flags : kKinds) {
        const auto capture = [&] { window->renderSceneAndCaptureImage(image, flags); };
        EXPECT_EQ(capturesOf(kFrames, capture), withoutStream) << "flags " << flags;
    }
    const KrImageBlock block = {5, 7, 33, 20};
    KrImage part;
    EXPECT_EQ(capturesOf(kFrames, [&] { window->renderSceneAndCaptureImage(part, KrSGWindow::CaptureColor, &block); }),
              withoutStream);
    KrDepthCapture depth;
    std::vector<float> depths;
    EXPECT_EQ(capturesOf(kFrames, [&] { depth.render(*window, {}, depths); }), withoutStream);
    // An image that is new each time: the counts above can fail.
    EXPECT_GT(capturesOf(kFrames,
                         [&] {
                             KrImage another;
                             window->renderSceneAndCaptureImage(another, KrSGWindow::CaptureColor);
                         }),
              withoutStream);
}

TEST_F(KrFrameStreamTest, ACaptureThatSomebodyKeepsIsNotReadInto)
{
    // A subclass may take hold of what the window installs for a capture.
    class Holder : public KrRenderWindow
    {
    public:
        void setDrawCallback(osg::ref_ptr<DrawCallback> callback) override
        {
            if (auto* const capture = dynamic_cast<ImageCaptureDrawCallback*>(callback.get())) {
                captured = capture->getCapturedImage();
            }
            KrRenderWindow::setDrawCallback(callback);
        }
        osg::ref_ptr<osg::Image> captured;
    };
    Holder holder;
    holder.setHideWindow(true);
    holder.setWindowSize(16, 16);
    holder.setBackgroundColor(KrColor(1.0, 0.0, 0.0));
    ASSERT_TRUE(holder.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
    const osg::ref_ptr<osg::Image> kept = holder.captured;
    holder.setBackgroundColor(KrColor(0.0, 1.0, 0.0));
    ASSERT_TRUE(holder.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
    EXPECT_NE(holder.captured, kept);
    EXPECT_EQ(kept->data()[0], 255);
    EXPECT_EQ(image.data()[0], 0);
}

TEST_F(KrFrameStreamTest, FollowsTheWindowsSize)
{
    const osg::ref_ptr<KrFrameStream> stream = install(Content::Color);
    const unsigned int widths[] = {64, 64, 101, 101, 33, 150, 64};
    for (int i = 0; i < 7; ++i) {
        ASSERT_TRUE(window->setWindowSize(widths[i], 48));
        draw(i);
    }
    EXPECT_TRUE(stream->flush());
    ASSERT_EQ(received.size(), 7u);
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(received[i].info.width, widths[i]);
        EXPECT_EQ(received[i].bytes.size(), widths[i] * 48u * 3u);
        ASSERT_TRUE(window->setWindowSize(widths[i], 48));
        EXPECT_EQ(received[i].bytes, captured(i, KrSGWindow::CaptureColor)) << "frame " << i;
    }
}

TEST_F(KrFrameStreamTest, WritesIntoLentMemoryAndLetsGoWhatNobodyWants)
{
    const osg::ref_ptr<KrFrameStream> stream = install(Content::Color);
    std::vector<Bytes> memory;
    stream->setLender([&memory](const KrFrameStream::Frame& frame) -> unsigned char* {
        EXPECT_EQ(frame.data, nullptr);
        memory.emplace_back(frame.sizeInBytes + 1, static_cast<unsigned char>(0xAB));
        return frame.number == 1 ? nullptr : memory.back().data();
    });
    for (int i = 0; i < 3; ++i) {
        draw(i);
    }
    EXPECT_TRUE(stream->flush());
    EXPECT_EQ(stream->numLost(), 0u);
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].info.data, memory[0].data());
    EXPECT_EQ(received[1].info.number, 2u);
    EXPECT_EQ(memory[2].back(), 0xAB) << "nothing behind the frame";
    EXPECT_EQ(memory[1], Bytes(memory[1].size(), 0xAB));
    memory[2].pop_back();
    EXPECT_EQ(memory[2], captured(2, KrSGWindow::CaptureColor));
}

TEST_F(KrFrameStreamTest, LeavesPixelStoreAndBindingsAsTheyWere)
{
    window->setOffScreenRendering(true);
    const osg::ref_ptr<KrFrameStream> stream = install(Content::Color);
    window->renderScene(true);
    const osg::GLExtensions* const gl =
        window->getViewer()->getCamera()->getGraphicsContext()->getState()->get<osg::GLExtensions>();
    GLuint own = 0;
    gl->glGenBuffers(1, &own);
    gl->glBindBuffer(GL_PIXEL_PACK_BUFFER, own);
    const GLenum names[] = {GL_PACK_ALIGNMENT,   GL_PACK_ROW_LENGTH, GL_PACK_SKIP_ROWS,
                            GL_PACK_SKIP_PIXELS, GL_PACK_SWAP_BYTES, GL_PACK_LSB_FIRST};
    const GLint values[] = {8, 100, 3, 2, 1, 1};
    for (int i = 0; i < 6; ++i) {
        glPixelStorei(names[i], values[i]);
    }
    GLint readTarget = -1;
    glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &readTarget);
    for (int i = 0; i < 4; ++i) {
        draw(i);
    }
    EXPECT_TRUE(stream->flush());

    EXPECT_EQ(boundPackBuffer(), GLint(own));
    for (int i = 0; i < 6; ++i) {
        GLint value = -1;
        glGetIntegerv(names[i], &value);
        EXPECT_EQ(value, values[i]) << std::hex << names[i];
        glPixelStorei(names[i], i == 0 ? 4 : 0);
    }
    GLint readTargetAfter = -1;
    glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &readTargetAfter);
    EXPECT_EQ(readTargetAfter, readTarget);
    gl->glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    gl->glDeleteBuffers(1, &own);
    ASSERT_EQ(received.size(), 5u);
    EXPECT_EQ(received[4].bytes, captured(3, KrSGWindow::CaptureColor));
}

TEST_F(KrFrameStreamTest, SurvivesCapturesInBetweenAndARepeatedFlush)
{
    const osg::ref_ptr<KrFrameStream> stream = install(Content::Color);
    draw(0);
    const Bytes one = captured(1, KrSGWindow::CaptureColor); // puts another callback in the stream's place
    window->setDrawCallback(stream);
    draw(2);
    EXPECT_TRUE(stream->flush());
    EXPECT_TRUE(stream->flush());
    ASSERT_EQ(received.size(), 2u);
    EXPECT_NE(received[1].bytes, one);
    EXPECT_EQ(received[1].bytes, captured(2, KrSGWindow::CaptureColor));
}

TEST_F(KrFrameStreamTest, WhatAReceiverThrowsReachesTheCallerAndTheStreamGoesOn)
{
    const osg::ref_ptr<KrFrameStream> stream = install(Content::Color);
    stream->setReceiver([this](const KrFrameStream::Frame& frame) {
        if (frame.number == 0) {
            throw std::runtime_error("no more");
        }
        received.emplace_back(frame);
    });
    draw(0);
    EXPECT_THROW(stream->flush(), std::runtime_error);
    draw(1);
    EXPECT_TRUE(stream->flush());
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].bytes, captured(1, KrSGWindow::CaptureColor));
}

TEST_F(KrFrameStreamTest, AWindowThatClosesTakesItsBuffersAlongAndTheStreamServesItsNextContext)
{
    MessageRecorder messages;
    const osg::ref_ptr<KrFrameStream> stream = install(Content::Color);
    draw(0);
    draw(1);
    const std::size_t handedOut = received.size();
    window->closeWindow();
    EXPECT_EQ(stream->numInFlight(), 0u);
    EXPECT_FALSE(stream->flush()) << "frames were lost";
    EXPECT_EQ(stream->numLost(), 2 - handedOut);
    EXPECT_TRUE(stream->flush()) << "told once";

    received.clear();
    window->setStatedSystem(system);
    ASSERT_TRUE(window->init());
    lookAtTheBoxes(*window);
    draw(2);
    EXPECT_TRUE(stream->flush());
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].bytes, captured(2, KrSGWindow::CaptureColor));
    EXPECT_EQ(messages.all(), "");
}

// Another window's context is current while one is closed, or while the stream goes: names are per context, so that
// deleting in the wrong one takes the other window's buffers.
TEST_F(KrFrameStreamTest, FreesItsBuffersInTheirOwnContextInAnyOrderOfDestruction)
{
    const auto numBuffers = [](KrRenderWindow& of) {
        EXPECT_TRUE(of.makeCurrent());
        osg::State& state = *of.getViewer()->getCamera()->getGraphicsContext()->getState();
        state.initializeExtensionProcs(); // done already where something was drawn
        const auto* const gl = state.get<osg::GLExtensions>();
        int found = 0;
        for (GLuint name = 1; name < 200; ++name) {
            found += gl->glIsBuffer(name) ? 1 : 0;
        }
        return found;
    };
    KrRenderWindow other;
    other.setHideWindow(true);
    other.setWindowSize(64, 48);
    ASSERT_TRUE(other.init());
    std::size_t frames = 0;
    osg::ref_ptr<KrFrameStream> second = new KrFrameStream(Content::Color);
    second->setReceiver([&frames](const KrFrameStream::Frame&) { ++frames; });
    const int otherBefore = numBuffers(other);
    const int windowBefore = numBuffers(*window);
    other.setDrawCallback(second);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(other.renderScene(true));
    }
    ASSERT_EQ(numBuffers(other), otherBefore + 3);

    osg::ref_ptr<KrFrameStream> first = install(Content::Color);
    for (int i = 0; i < 3; ++i) {
        draw(i);
    }
    const int windowWith = numBuffers(*window);
    ASSERT_GT(windowWith, windowBefore);
    ASSERT_EQ(numBuffers(other), otherBefore + 3); // current now
    // The stream goes while its window stays.
    window->setDrawCallback(nullptr);
    first = nullptr;
    EXPECT_EQ(KrWindow::getWindow(), &other);
    EXPECT_EQ(numBuffers(*window), windowWith - 3);
    EXPECT_EQ(numBuffers(other), otherBefore + 3);

    // The window goes while its stream stays, frames on their way.
    first = install(Content::Color);
    draw(0);
    draw(1);
    ASSERT_EQ(numBuffers(other), otherBefore + 3);
    window.reset();
    EXPECT_EQ(numBuffers(other), otherBefore + 3);
    EXPECT_FALSE(first->flush());
    first = nullptr;

    // One stream for two windows, one after the other: what was on its way arrives.
    ASSERT_TRUE(other.renderScene(true));
    KrRenderWindow third;
    third.setHideWindow(true);
    third.setWindowSize(32, 32);
    ASSERT_TRUE(third.init());
    third.setDrawCallback(second);
    ASSERT_TRUE(third.renderScene(true));
    EXPECT_EQ(frames, 4u);
    EXPECT_EQ(numBuffers(other), otherBefore);
    third.makeCurrent();
    EXPECT_TRUE(second->flush());
    EXPECT_EQ(frames, 5u);
    EXPECT_EQ(KrWindow::getWindow(), &third);
}

TEST_F(KrFrameStreamTest, RefusesAViewerThatIsNotThere)
{
    MessageRecorder messages;
    const osg::ref_ptr<KrFrameStream> stream = new KrFrameStream(Content::Color);
    EXPECT_FALSE(stream->render(nullptr));
    EXPECT_EQ(messages.count(), 1u);
    EXPECT_TRUE(stream->flush());
}

} // namespace

// All kinds of a frame come together, in the order that was asked for, and are what a capture of kinds reads.
TEST_F(KrFrameStreamTest, HandsOutAllKindsOfAFrameTogether)
{
    const std::vector<Content> contents = {Content::Labels, Content::Color, Content::Normals, Content::Depth};
    const osg::ref_ptr<KrFrameStream> stream = new KrFrameStream(contents);
    KrFrameCapture::Options options;
    options.depthKind = KrDepthCapture::Kind::Euclidean;
    options.normalFrame = KrFrameCapture::NormalFrame::World;
    options.rowOrder = KrDepthCapture::RowOrder::BottomRowFirst;
    stream->setOptions(options);
    // Memory that begins at an odd address.
    Bytes memory(64 * 48 * 12 + 1);
    stream->setLender([&](const KrFrameStream::Frame&) { return memory.data() + 1; });
    stream->setReceiver([this](const KrFrameStream::Frame& frame) { received.emplace_back(frame); });
    constexpr int kFrames = 5;
    for (int i = 0; i < kFrames; ++i) {
        window->setDrawCallback(stream);
        draw(i);
        EXPECT_LE(stream->numInFlight(), 2u);
    }
    EXPECT_TRUE(stream->flush());
    ASSERT_EQ(received.size(), kFrames * contents.size());
    KrFrameCapture capture;
    for (int i = 0; i < kFrames; ++i) {
        pose(i);
        constexpr std::size_t kCount = 64 * 48;
        Bytes color(3 * kCount);
        std::vector<float> depth(kCount), normals(3 * kCount);
        std::vector<std::uint32_t> labels(kCount);
        ASSERT_TRUE(
            capture.render(*window, options, {64, 48, color.data(), depth.data(), labels.data(), normals.data()}));
        const void* const expected[] = {labels.data(), color.data(), normals.data(), depth.data()};
        for (std::size_t k = 0; k < contents.size(); ++k) {
            const Received& got = received[i * contents.size() + k];
            EXPECT_EQ(got.info.number, std::uint64_t(i));
            EXPECT_EQ(got.info.content, contents[k]);
            EXPECT_EQ(std::memcmp(got.bytes.data(), expected[k], got.bytes.size()), 0) << i << ", " << k;
        }
    }
    // Closing takes the target of the labels along, and another window gets one of its own.
    window->closeWindow();
    ASSERT_TRUE(window->init());
    window->setStatedSystem(system);
    lookAtTheBoxes(*window);
    received.clear();
    window->setDrawCallback(stream);
    draw(1);
    draw(2);
    EXPECT_TRUE(stream->flush());
    ASSERT_EQ(received.size(), 2 * contents.size());
    EXPECT_GT(std::count(received[0].bytes.begin(), received[0].bytes.end(), 2), 50);
}
