// Threads with a window each, and a window that is used by a thread that it does not belong to.

#include <rendCore/aids/KrRenderMorphLink.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/system/KrMultiRenderWindow.h>
#include <toolkit/context/KrWindowImpl.h>
#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <tests/support/MessageRecorder.h>

#include <gtest/gtest.h>

#include <osg/Group>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{

using Pixels = std::vector<unsigned char>;

void append(Pixels& pixels, const KrImage& image)
{
    EXPECT_GT(image.sizeInBytes(), 0u);
    pixels.insert(pixels.end(), image.data(), image.data() + image.sizeInBytes());
}

/// Reads a document, shows it with all that windows of several threads have in common, and closes the window again.
Pixels drawDocument(const std::string& path)
{
    KrVisualizableStatedSystem document;
    EXPECT_TRUE(document.readFile(path));
    KrStatedSystem& system = document.statedSystem();
    KrRenderWindow window;
    window.setWindowSize(96, 72);
    EXPECT_TRUE(window.init());
    window.setVisualizableStatedSystem(document);
    window.setDisplayMask(KrRenderTypes::LinkAxes | KrRenderTypes::BoundingVolumes | KrRenderTypes::MassProperties,
                          true, false);
    window.setOverlayText(path, 5, 40, KrColor(1.0, 0.0, 0.0));
    Pixels pixels;
    KrImage image;
    for (int frame = 0; frame < 3; ++frame) {
        system.setTransparency(0.3 + 0.1 * frame);
        system.selectShape(KrShapeStateCacheKey(0, KrShapeStateCacheKey::kBaseLink, 0));
        EXPECT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
        append(pixels, image);
        const KrImageBlock block = {10, 10, 50, 40};
        EXPECT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureDepth, &block));
        append(pixels, image);
    }
    const osg::ref_ptr<KrRenderManipulator> manipulator =
        new KrRenderManipulator(system.manipulatorSystem().manipulators()[0], 0);
    EXPECT_TRUE(KrRenderMorphLink::updateVertexTexture(manipulator).valid());
    EXPECT_TRUE(window.setImageBuffer(image, true));
    window.makeCurrent();
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    return pixels;
}

const char* const kDocuments[] = {KR_SAMPLES "/textured_rover.xml", KR_SAMPLES "/industrial_arm.xml"};

bool haveContext()
{
    KrWindow window;
    return window.init();
}

} // namespace

TEST(KrTwoThreads, DrawAtOnceWhatOneDraws)
{
    if (!haveContext()) {
        GTEST_SKIP() << "no context";
    }
    std::vector<std::vector<Pixels>> drawn(2);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < 2; ++t) {
        threads.emplace_back([t, &drawn] {
            for (int i = 0; i < 3; ++i) {
                drawn[t].push_back(drawDocument(kDocuments[t]));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::size_t t = 0; t < 2; ++t) {
        const Pixels alone = drawDocument(kDocuments[t]);
        for (const Pixels& pixels : drawn[t]) {
            EXPECT_TRUE(pixels == alone) << kDocuments[t];
        }
    }
}

TEST(KrTwoThreads, AWindowBelongsToTheThreadThatOpenedIt)
{
    KrMultiRenderWindow window(64, 48, 1);
    if (!window.init()) {
        GTEST_SKIP() << window.report().text();
    }
    KrVisualizableStatedSystem document;
    ASSERT_TRUE(document.readFile(kDocuments[1]));
    window.setVisualizableStatedSystem(document);
    KrImage before, image;
    ASSERT_TRUE(window.renderSceneAndCaptureImage(before, KrSGWindow::CaptureColor));

    const auto elsewhere = [](const std::function<void()>& work) { std::thread(work).join(); };
    const KrImageBlock block = {0, 0, 5, 5};
    const std::function<bool()> entries[] = {
        [&] { return window.renderScene(true); },
        [&] { return window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor); },
        [&] { return window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor, &block); },
        [&] { return window.captureWindow(image, KrSGWindow::CaptureColor); },
        [&] { return window.setImageBuffer(before, true); },
        [&] { return window.setNode(new osg::Group); },
        [&] { return window.makeCurrent(); },
        [&] { return window.swapBuffers(); },
        [&] { return window.KrWindow::setWindowSize(80, 60); },
    };
    // Also where its own thread has let go of the context.
    for (const bool isLetGo : {false, true}) {
        if (isLetGo) {
            window.getImpl()->releaseCurrent();
        }
        for (std::size_t i = 0; i < std::size(entries); ++i) {
            SCOPED_TRACE(i);
            MessageRecorder messages;
            elsewhere([&] {
                EXPECT_FALSE(entries[i]());
                EXPECT_EQ(KrWindow::getWindow(), nullptr);
            });
            EXPECT_EQ(messages.count(), 1u) << messages.all();
            EXPECT_NE(messages.all().find("belongs to the thread that opened it"), std::string::npos);
        }
    }
    EXPECT_EQ(image.sizeInBytes(), 0u);
    EXPECT_EQ(KrWindow::getWindow(), &window);
    ASSERT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
    EXPECT_EQ(std::memcmp(image.data(), before.data(), before.sizeInBytes()), 0);

    window.closeWindow();
    elsewhere([&] {
        MessageRecorder messages;
        EXPECT_TRUE(window.init());
        window.setVisualizableStatedSystem(document);
        EXPECT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
        EXPECT_EQ(std::memcmp(image.data(), before.data(), before.sizeInBytes()), 0);
        EXPECT_EQ(messages.count(), 0u) << messages.all();
    });
    // That thread has ended without closing it.
    MessageRecorder messages;
    EXPECT_TRUE(window.closeWindow());
    EXPECT_EQ(messages.count(), 1u) << messages.all();
    ASSERT_TRUE(window.init());
    window.setVisualizableStatedSystem(document);
    ASSERT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
    EXPECT_EQ(std::memcmp(image.data(), before.data(), before.sizeInBytes()), 0);
}

// What a thread remembers of a window that another one has destroyed.
TEST(KrTwoThreads, AWindowMayBeDestroyedElsewhere)
{
    auto window = std::make_unique<KrSGWindow>();
    if (!window->init()) {
        GTEST_SKIP() << window->report().text();
    }
    ASSERT_TRUE(window->renderScene(true));
    MessageRecorder messages;
    std::thread([&window] { window.reset(); }).join();
    EXPECT_EQ(messages.count(), 1u) << messages.all();
    EXPECT_EQ(KrWindow::getWindow(), nullptr);
    KrSGWindow next;
    EXPECT_TRUE(next.renderScene(true));
    next.makeCurrent();
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}
