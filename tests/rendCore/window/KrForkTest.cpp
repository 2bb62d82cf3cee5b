// What a process that was forked off this one can do with windows.

#include <rendCore/system/KrRenderWindow.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/Systems.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <osg/GL>

#include <functional>
#include <memory>
#include <string>

namespace
{

constexpr unsigned int kSeconds = 60; // a frame takes a tenth of one

/// What became of `work` in a child: "" when it returned true, else what went wrong.
std::string inChild(const std::function<bool()>& work)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(kSeconds);
        _exit(work() ? 0 : 1);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        return "no child";
    }
    if (WIFSIGNALED(status)) {
        return WTERMSIG(status) == SIGALRM ? "it hangs" : "signal " + std::to_string(WTERMSIG(status));
    }
    return WEXITSTATUS(status) == 0 ? "" : "it fails";
}

/// A window with a system, which is not open.
std::unique_ptr<KrRenderWindow> makeWindow(const KrStatedSystem& system)
{
    auto window = std::make_unique<KrRenderWindow>();
    window->setWindowSize(64, 48);
    window->setStatedSystem(system);
    KrPovParameters pov;
    pov.setEyepoint(KrVector(4.0, -6.0, 5.0));
    window->setPovParameters(pov);
    return window;
}

bool draws(KrRenderWindow& window)
{
    KrImage image;
    return window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor) && image.sizeInBytes() == 64u * 48u * 3u;
}

/// True when `work` fails with one message that names the way out.
bool isRefused(const std::function<bool()>& work)
{
    MessageRecorder messages;
    return !work() && messages.count() == 1 && messages.all().find("spawn or exec") != std::string::npos;
}

} // namespace

// In this order, in one process: children that are forked off before it has drawn anything, and after.
TEST(KrFork, ChildrenDrawUntilTheParentDoesAndAreRefusedThen)
{
    const KrStatedSystem system(Systems::twoBoxes());
    std::unique_ptr<KrRenderWindow> window = makeWindow(system);
    std::unique_ptr<KrRenderWindow> closed = makeWindow(system);
    {
        KrRenderWindow probe;
        const std::string child = inChild([&probe] { return probe.init(); });
        if (child == "it fails") {
            GTEST_SKIP() << "no context";
        }
        EXPECT_EQ(child, "");
    }
    EXPECT_EQ(inChild([&window] { return draws(*window); }), "") << "nothing was drawn yet";

    ASSERT_TRUE(draws(*window));
    ASSERT_TRUE(draws(*closed));
    closed->closeWindow();
    EXPECT_EQ(inChild([&] { return isRefused([&] { return window->renderScene(true); }); }), "");
    EXPECT_EQ(inChild([&] { return isRefused([&] { return draws(*window); }); }), "");
    EXPECT_EQ(inChild([&] { return isRefused([&] { return window->makeCurrent(); }); }), "");
    EXPECT_EQ(inChild([&] { return isRefused([&] { return window->setWindowSize(80, 60); }); }), "");
    EXPECT_EQ(inChild([&] { return isRefused([&] { return closed->init(); }); }), "") << "closed in the parent";
    EXPECT_EQ(inChild([&] { return isRefused([&] { return KrRenderWindow().init(); }); }), "") << "the child's own";
    EXPECT_EQ(inChild([&] {
                  MessageRecorder messages;
                  window.reset();
                  closed.reset();
                  return messages.count() == 0;
              }),
              "")
        << "destroyed";

    // The parent's are as they were.
    EXPECT_TRUE(draws(*window));
    window->makeCurrent();
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    EXPECT_TRUE(closed->init());
}
