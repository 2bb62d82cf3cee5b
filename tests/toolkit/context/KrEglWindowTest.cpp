#include <toolkit/context/KrEglWindowImpl.h>
#include <toolkit/context/KrExternalWindowImpl.h>
#include <toolkit/context/KrGlxWindowImpl.h>
#include <toolkit/window/KrWindow.h>

#include "WindowTestTools.h"

#include <tests/support/Process.h>

#include <EGL/egl.h>
#include <GL/glext.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace
{

/// Opens, or skips the test with the reason.
#define OPEN_OR_SKIP(window)                                                                                           \
    if (!(window).init())                                                                                              \
    GTEST_SKIP() << (window).report().text()

class KrEglWindow : public testing::Test
{
protected:
    void SetUp() override { setenv("KR_WINDOW", "egl", 1); }
    void TearDown() override
    {
        EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT) << "a window left its context behind";
    }
};

void expectDraws(const Pixel& colour, unsigned int width, unsigned int height)
{
    fill(colour);
    EXPECT_EQ(pixelAt(0, 0), colour);
    EXPECT_EQ(pixelAt(static_cast<int>(width) - 1, static_cast<int>(height) - 1), colour);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(KrEglWindow, HasExactBitsAndACompatibilityContext)
{
    KrWindow window;
    OPEN_OR_SKIP(window);
    EXPECT_EQ(KrWindow::getWindow(), &window);
    expectDraws(kRed, 640, 480);

    const KrWindowReport& report = window.report();
    std::puts(report.text().c_str());
    EXPECT_EQ(report.redBits, 8);
    EXPECT_EQ(report.greenBits, 8);
    EXPECT_EQ(report.blueBits, 8);
    if (report.renderer.find("llvmpipe") != std::string::npos) { // known to have 32 bits
        EXPECT_EQ(report.depthBits, 32);
        EXPECT_TRUE(report.isSoftware);
    }
    EXPECT_GE(report.depthBits, 24);
    EXPECT_TRUE(report.attempts.back().succeeded || report.isSoftware);

    // Immediate mode and display lists are gone from a core profile.
    const GLuint list = glGenLists(1);
    EXPECT_NE(list, 0u);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(KrEglWindow, ResizesOnTheSameContextAndRefusesWhatCannotBeDrawn)
{
    KrWindow window;
    window.setWindowSize(32, 16);
    OPEN_OR_SKIP(window);
    const GLuint texture = createTexture(kGreen);
    const EGLContext context = eglGetCurrentContext();

    ASSERT_TRUE(window.setWindowSize(300, 200));
    EXPECT_EQ(eglGetCurrentContext(), context);
    EXPECT_EQ(texelOf(texture), kGreen);
    expectDraws(kRed, 300, 200);

    MessageRecorder messages;
    EXPECT_FALSE(window.setWindowSize(100000, 100000));
    EXPECT_FALSE(window.setWindowSize(4000000000u, 10));
    EXPECT_EQ(messages.count(), 2u);
    EXPECT_EQ(window.windowWidth(), 300u);
    EXPECT_EQ(window.windowHeight(), 200u);
    expectDraws(kGreen, 300, 200);

    // Nothing at all is stored, and drawn with one row.
    EXPECT_TRUE(window.setWindowSize(640, 0));
    EXPECT_EQ(window.windowHeight(), 0u);
    expectDraws(kRed, 640, 1);
    EXPECT_EQ(messages.count(), 2u);
}

TEST_F(KrEglWindow, ClosingOneLeavesTheOtherAsItWas)
{
    KrWindow a, b;
    OPEN_OR_SKIP(a);
    ASSERT_TRUE(b.init());
    EXPECT_TRUE(b.getShare().empty());
    const GLuint textureOfB = createTexture(kGreen);
    ASSERT_TRUE(a.makeCurrent());
    const GLuint textureOfA = createTexture(kRed);
    EXPECT_EQ(textureOfA, textureOfB); // the same name in two contexts, so that a delete in the wrong one is seen

    for (int frame = 0; frame < 3; ++frame) {
        ASSERT_TRUE(b.makeCurrent());
        expectDraws(kGreen, 640, 480);
        ASSERT_TRUE(a.makeCurrent());
        EXPECT_EQ(KrWindow::getWindow(), &a);
        EXPECT_EQ(pixelAt(5, 5), frame == 0 ? pixelAt(6, 6) : kRed);
        expectDraws(kRed, 640, 480);
    }
    ASSERT_TRUE(b.makeCurrent());
    const EGLContext contextOfB = eglGetCurrentContext();
    EXPECT_TRUE(a.closeWindow()); // not the current one
    EXPECT_EQ(eglGetCurrentContext(), contextOfB);
    EXPECT_EQ(KrWindow::getWindow(), &b);
    EXPECT_EQ(texelOf(textureOfB), kGreen);
    EXPECT_EQ(pixelAt(5, 5), kGreen);

    EXPECT_FALSE(a.makeCurrent());
    EXPECT_FALSE(a.swapBuffers());
    EXPECT_TRUE(a.closeWindow());
    EXPECT_TRUE(b.closeWindow()); // the current one
    EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT);
    EXPECT_EQ(KrWindow::getWindow(), nullptr);
}

TEST_F(KrEglWindow, OpensAgainWithAContextOfItsOwn)
{
    KrWindow window;
    OPEN_OR_SKIP(window);
    const GLuint texture = createTexture(kRed);
    EXPECT_TRUE(window.init());
    EXPECT_TRUE(glIsTexture(texture)) << "init on an open window must not open it again";
    window.closeWindow();
    EXPECT_FALSE(window.isInitialized());

    ASSERT_TRUE(window.init());
    EXPECT_FALSE(glIsTexture(texture));
    expectDraws(kGreen, 640, 480);

    window.setImpl(std::make_unique<KrEglWindowImpl>());
    EXPECT_FALSE(window.isInitialized());
    ASSERT_TRUE(window.init());
    expectDraws(kRed, 640, 480);
}

TEST_F(KrEglWindow, SharedObjectsOutliveTheWindowThatMadeThem)
{
    auto first = std::make_unique<KrWindow>();
    KrWindow second, third;
    OPEN_OR_SKIP(*first);
    const GLuint texture = createTexture(kRed);
    ASSERT_TRUE(second.share(first.get()));
    ASSERT_TRUE(third.share(&second));
    MessageRecorder messages;
    ASSERT_TRUE(second.init());
    ASSERT_TRUE(third.init());
    EXPECT_EQ(messages.count(), 0u);
    EXPECT_FALSE(second.share(nullptr)) << "open already";
    EXPECT_EQ(texelOf(texture), kRed);
    EXPECT_EQ(first->getShare(), (std::vector<KrWindow*>{&second, &third}));
    EXPECT_EQ(third.getShare(), (std::vector<KrWindow*>{first.get(), &second}));

    first.reset();
    EXPECT_EQ(second.getShareWindow(), nullptr);
    EXPECT_EQ(second.getShare(), std::vector<KrWindow*>{&third});
    ASSERT_TRUE(second.makeCurrent());
    EXPECT_EQ(texelOf(texture), kRed);

    third.closeWindow();
    EXPECT_TRUE(second.getShare().empty());
    EXPECT_EQ(third.getShareWindow(), &second);
    EXPECT_EQ(texelOf(texture), kRed);
}

TEST_F(KrEglWindow, OpensAloneAndSaysSoWhenThereIsNothingToShareWith)
{
    KrWindow closed, window;
    closed.setName("closed");
    ASSERT_TRUE(window.share(&closed));
    EXPECT_FALSE(window.share(&window));
    MessageRecorder messages;
    OPEN_OR_SKIP(window);
    ASSERT_EQ(messages.count(), 1u);
    EXPECT_EQ(messages.type(0), Kr::Print::Notice);
    EXPECT_NE(messages.text(0).find("closed"), std::string::npos) << messages.text(0);
    EXPECT_TRUE(window.getShare().empty());
    EXPECT_EQ(window.getShareWindow(), &closed);
}

TEST_F(KrEglWindow, FailsWithOneMessageAndAReportWhenTheSizeIsTooLarge)
{
    KrWindow other, window;
    OPEN_OR_SKIP(other);
    const EGLContext context = eglGetCurrentContext();
    window.setWindowSize(100000, 100000);
    MessageRecorder messages;
    EXPECT_FALSE(window.init());
    ASSERT_EQ(messages.count(), 1u);
    EXPECT_NE(messages.text(0).find("EGL surfaceless"), std::string::npos) << messages.text(0);
    EXPECT_FALSE(window.report().hasContext());
    EXPECT_EQ(eglGetCurrentContext(), context) << "the failure took the other window's context away";
    window.setWindowSize(64, 64);
    EXPECT_TRUE(window.init());
}

// A process of its own each: libEGL reads its environment once.
class KrEglWindowDeathTest : public testing::Test
{
protected:
    void SetUp() override { testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

/// Prints how opening a window ends and leaves with 0 when that is as `opens` says, with one message at most.
[[noreturn]] void openAndExit(bool opens)
{
    int status = 0;
    {
        KrWindow window;
        window.setName("doomed");
        MessageRecorder messages;
        const bool isOpen = window.init();
        if (isOpen != opens || messages.count() > 1 || (!isOpen && messages.count() != 1)) {
            status = 1;
        }
        for (std::size_t i = 0; i < messages.count(); ++i) {
            std::fprintf(stderr, "%s", messages.text(i).c_str());
        }
        std::fprintf(stderr, "%s", window.report().text().c_str());
    }
    std::exit(status);
}

TEST_F(KrEglWindowDeathTest, NoDriverIsAFailureWithARemedy)
{
    EXPECT_EXIT(
        {
            setenv("KR_WINDOW", "egl", 1);
            setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent.json", 1);
            openAndExit(false);
        },
        testing::ExitedWithCode(0), "libegl-mesa0.*/nonexistent.json");
}

TEST_F(KrEglWindowDeathTest, ABrokenDriverIsAFailureInTheDriversWords)
{
    EXPECT_EXIT(
        {
            setenv("KR_WINDOW", "egl", 1);
            setenv("LIBGL_DRIVERS_PATH", "/nonexistent", 1);
            setenv("GBM_BACKENDS_PATH", "/nonexistent", 1);
            unsetenv("DISPLAY");
            unsetenv("WAYLAND_DISPLAY");
            openAndExit(access("/dev/nvidiactl", F_OK) == 0); // that driver is not Mesa's and stays whole
        },
        testing::ExitedWithCode(0), "EGL_NOT_INITIALIZED.*libgl1-mesa-dri|OpenGL context");
}

TEST_F(KrEglWindowDeathTest, ADisplayThatIsAskedForAndMissingIsAFailure)
{
    EXPECT_EXIT(
        {
            setenv("KR_WINDOW", "glx", 1);
            setenv("DISPLAY", ":4711", 1);
            openAndExit(false);
        },
        testing::ExitedWithCode(0), "DISPLAY is \":4711\".*xvfb-run");
}

TEST_F(KrEglWindowDeathTest, WithoutADisplayTheChoiceFallsOnEglAndTheReportNamesBoth)
{
    {
        setenv("KR_WINDOW", "egl", 1);
        KrWindow window;
        OPEN_OR_SKIP(window);
    }
    EXPECT_EXIT(
        {
            setenv("KR_WINDOW", "glut", 1); // unknown: one warning
            unsetenv("DISPLAY");
            openAndExit(true);
        },
        testing::ExitedWithCode(0), "KR_WINDOW is \"glut\".*GLX +failed  no X display answers.*EGL .* ok");
    EXPECT_EXIT(
        {
            unsetenv("KR_WINDOW");
            setenv("DISPLAY", ":4711", 1); // the user waits for a window
            openAndExit(true);
        },
        testing::ExitedWithCode(0), "\"doomed\" is not shown on the screen: GLX: .*:4711");
}

TEST_F(KrEglWindowDeathTest, WindowsThatAreStillOpenAtExitDoNoHarm)
{
    EXPECT_EXIT(
        {
            setenv("KR_WINDOW", "egl", 1);
            static KrWindow s_window;
            static KrWindow s_other;
            s_window.init();
            s_other.share(&s_window);
            s_other.init();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

class KrExternalWindow : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("KR_WINDOW", "egl", 1);
        if (!m_host.init()) {
            GTEST_SKIP() << m_host.report().text();
        }
    }

    /// What a widget would hand over for `host`.
    KrExternalWindowImpl::Callbacks callbacks(KrWindow& host)
    {
        KrExternalWindowImpl::Callbacks calls;
        calls.makeCurrent = [&host] { return host.makeCurrent(); };
        calls.doneCurrent = [&host] { host.getImpl()->releaseCurrent(); };
        calls.isCurrent = [&host] { return host.getImpl()->isCurrent(); };
        calls.swapBuffers = [this] { ++m_swaps; };
        calls.defaultFramebuffer = [] { return 7u; };
        return calls;
    }

    KrWindow m_host;
    int m_swaps = 0;
};

TEST_F(KrExternalWindow, WrapsTheClientsContextAndLeavesItAlone)
{
    const GLuint texture = createTexture(kGreen);
    const EGLContext context = eglGetCurrentContext();
    KrWindow window;
    window.setImpl(std::make_unique<KrExternalWindowImpl>(callbacks(m_host)));
    ASSERT_TRUE(window.init());
    EXPECT_EQ(KrWindow::getWindow(), &window);
    EXPECT_EQ(window.report().renderer, m_host.report().renderer);
    EXPECT_EQ(window.getImpl()->defaultFramebuffer(), 7u);
    EXPECT_TRUE(window.swapBuffers());
    EXPECT_EQ(m_swaps, 1);

    KrWindow other;
    ASSERT_TRUE(other.init());
    EXPECT_FALSE(window.getImpl()->isCurrent());
    ASSERT_TRUE(window.makeCurrent());
    EXPECT_EQ(eglGetCurrentContext(), context);

    window.closeWindow();
    EXPECT_EQ(eglGetCurrentContext(), context);
    EXPECT_EQ(texelOf(texture), kGreen);
    EXPECT_TRUE(m_host.makeCurrent());
    ASSERT_TRUE(window.init());
    EXPECT_TRUE(glIsTexture(texture));
}

TEST_F(KrExternalWindow, FailsWithoutAContextOrWithABrokenCallback)
{
    KrWindow window;
    window.setImpl(std::make_unique<KrExternalWindowImpl>(KrExternalWindowImpl::Callbacks()));
    m_host.getImpl()->releaseCurrent();
    MessageRecorder messages;
    EXPECT_FALSE(window.init());
    ASSERT_EQ(messages.count(), 1u);
    EXPECT_NE(messages.text(0).find("no OpenGL context is current"), std::string::npos) << messages.text(0);

    KrExternalWindowImpl::Callbacks broken;
    broken.makeCurrent = []() -> bool { throw std::runtime_error("the widget is gone"); };
    window.setImpl(std::make_unique<KrExternalWindowImpl>(broken));
    EXPECT_FALSE(window.init());
    EXPECT_EQ(messages.count(), 2u);
}

TEST_F(KrExternalWindow, BelievesInSharingOnlyWhenTheContextsDoShare)
{
    KrWindow sharingHost, strangeHost;
    ASSERT_TRUE(sharingHost.share(&m_host));
    ASSERT_TRUE(sharingHost.init());
    ASSERT_TRUE(strangeHost.init());
    KrWindow window, sharing, strange;
    window.setImpl(std::make_unique<KrExternalWindowImpl>(callbacks(m_host)));
    sharing.setImpl(std::make_unique<KrExternalWindowImpl>(callbacks(sharingHost)));
    strange.setImpl(std::make_unique<KrExternalWindowImpl>(callbacks(strangeHost)));
    sharing.share(&window);
    strange.share(&window);
    ASSERT_TRUE(window.init());
    MessageRecorder messages;
    ASSERT_TRUE(sharing.init());
    EXPECT_EQ(messages.count(), 0u);
    ASSERT_TRUE(strange.init());
    EXPECT_EQ(messages.count(), 1u);
    EXPECT_EQ(window.getShare(), std::vector<KrWindow*>{&sharing});
}

#if defined(KR_SANITIZED)
constexpr long kAllowedGrowthKiB = 256 * 1024; // freed memory stays in quarantine
#else
constexpr long kAllowedGrowthKiB = 2 * 1024;
#endif

TEST_F(KrEglWindow, LeavesNothingBehindHoweverOftenItIsOpened)
{
    const auto cycle = [] {
        KrWindow window;
        window.setWindowSize(320, 240);
        if (!window.init()) {
            return false;
        }
        createTexture(kRed);
        fill(kRed);
        return pixelAt(1, 1) == kRed && window.setWindowSize(200, 100);
    };
    {
        KrWindow window;
        OPEN_OR_SKIP(window);
    }
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(cycle());
    }
    const long descriptors = Process::numOpenDescriptors();
    const long resident = Process::residentKiB();
    for (int i = 0; i < 200; ++i) {
        ASSERT_TRUE(cycle()) << "cycle " << i;
    }
    EXPECT_EQ(Process::numOpenDescriptors(), descriptors);
    EXPECT_LT(Process::residentKiB() - resident, kAllowedGrowthKiB);
}

} // namespace
