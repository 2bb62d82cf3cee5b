// Windows and what hangs on them go in any order; memory faults are the sanitizers' to find.

#include <rendCore/capture/KrFrameStream.h>
#include <rendCore/capture/KrRenderCaptureManager.h>
#include <rendCore/input/KrOrbitInputHandler.h>
#include <rendCore/system/KrRenderWindow.h>

#include <tests/support/Systems.h>

#include <GL/gl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <memory>

namespace
{

/// Two windows that share GL objects, with everything that a client may hold of them.
struct Application
{
    KrStatedSystem system{Systems::twoBoxes()}; // borrowed by both
    std::unique_ptr<KrRenderWindow> first = std::make_unique<KrRenderWindow>();
    std::unique_ptr<KrRenderWindow> second = std::make_unique<KrRenderWindow>();
    osg::ref_ptr<KrOrbitInputHandler> orbit;
    osg::ref_ptr<KrFrameStream> stream;
    osg::ref_ptr<KrRenderCaptureManager> manager;
    osg::ref_ptr<osg::Node> scene;
    osg::ref_ptr<const osg::Image> image;
    KrImage picture;

    /// False where there is no OpenGL.
    bool open()
    {
        for (KrRenderWindow* const window : {first.get(), second.get()}) {
            window->setHideWindow(true);
            window->setWindowSize(24, 16);
        }
        second->share(first.get());
        if (!first->init() || !second->init()) {
            return false;
        }
        orbit = new KrOrbitInputHandler(first.get());
        first->setInputHandler(orbit);
        stream = new KrFrameStream(KrFrameStream::Content::Color);
        manager = new KrRenderCaptureManager;
        manager->setCaptureSize(12, 8);
        first->setStatedSystem(system);
        second->setStatedSystem(system);
        EXPECT_TRUE(first->renderSceneAndCaptureImage(picture, KrSGWindow::CaptureColor));
        first->setDrawCallback(stream);
        second->setDrawCallback(manager);
        EXPECT_TRUE(first->renderScene(true)); // its frame is still on the way
        EXPECT_TRUE(second->renderScene(true));
        EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
        scene = first->getNode();
        image = manager->getCapturedImage();
        return true;
    }

    /// What is left goes on working.
    void use()
    {
        for (KrRenderWindow* const window : {first.get(), second.get()}) {
            if (window) {
                EXPECT_TRUE(window->renderScene(true));
                EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
            }
        }
        if (orbit) {
            orbit->orbit(0.1, 0.1);
            orbit->fit();
            orbit->setParallel(true);
            orbit->setParallel(false);
        }
        if (stream) {
            stream->flush();
        }
    }
};

} // namespace

TEST(KrDestructionOrder, EveryOrderIsSafeAndLeavesTheRestWorking)
{
    using Part = std::function<void(Application&)>;
    const std::array<Part, 5> parts = {
        [](Application& app) { app.first = nullptr; },
        [](Application& app) { app.second = nullptr; },
        [](Application& app) { app.orbit = nullptr; },
        [](Application& app) { app.stream = nullptr; },
        [](Application& app) {
            app.manager = nullptr;
            app.image = nullptr;
            app.scene = nullptr;
        },
    };
    std::array<std::size_t, parts.size()> order = {0, 1, 2, 3, 4};
    do {
        Application app;
        if (!app.open()) {
            GTEST_SKIP() << "no OpenGL: " << app.first->report().text();
        }
        for (const std::size_t part : order) {
            parts[part](app);
            app.use();
        }
        ASSERT_FALSE(HasFailure()) << order[0] << order[1] << order[2] << order[3] << order[4];
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST(KrDestructionOrder, AClosedWindowCanBeClosedAndOpenedAgainWithAllThatHangsOnIt)
{
    Application app;
    if (!app.open()) {
        GTEST_SKIP() << "no OpenGL: " << app.first->report().text();
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(app.first->closeWindow());
        app.first->closeWindow(); // once more does nothing
        app.use();                // opens it
        EXPECT_TRUE(app.first->isInitialized());
        EXPECT_EQ(app.first->getInputHandler(), app.orbit.get());
    }
}
