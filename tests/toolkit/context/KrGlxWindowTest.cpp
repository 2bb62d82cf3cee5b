#include <toolkit/context/KrEglWindowImpl.h>
#include <toolkit/context/KrExternalWindowImpl.h>
#include <toolkit/context/KrGlxWindowImpl.h>
#include <toolkit/window/KrWindow.h>

#include "WindowTestTools.h"

// Before X11: Xlib's macros (None, Bool) break GoogleTest.
#include <gtest/gtest.h>
#include <tests/support/Process.h>
#include <tests/support/XWindows.h>

#include <GL/glx.h>
#include <X11/Xlib.h>

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace
{

struct DisplayCloser
{
    void operator()(Display* display) const { XCloseDisplay(display); }
};
using UniqueDisplay = std::unique_ptr<Display, DisplayCloser>;

class KrGlxWindow : public testing::Test
{
protected:
    void SetUp() override
    {
        const char* display = std::getenv("DISPLAY");
        if (!display || !*display) {
            GTEST_SKIP() << "DISPLAY is not set; run under xvfb-run";
        }
        m_display.reset(XOpenDisplay(nullptr));
        if (!m_display) {
            GTEST_SKIP() << "no X display answers at " << display;
        }
        setenv("KR_WINDOW", "glx", 1);
    }
    void TearDown() override { EXPECT_EQ(glXGetCurrentContext(), nullptr) << "a window left its context behind"; }

    /// The window of that title below the root; 0 when there is none.
    Window find(const std::string& title) const
    {
        return findWindow(m_display.get(), [&title](const std::string& name) { return name == title; });
    }

    /// As another client of the server sees it.
    XWindowAttributes attributes(const std::string& title) const
    {
        XWindowAttributes found = {};
        XGetWindowAttributes(m_display.get(), find(title), &found);
        return found;
    }

    UniqueDisplay m_display; ///< another client's
};

void expectDraws(const Pixel& colour, unsigned int width, unsigned int height)
{
    fill(colour);
    EXPECT_EQ(pixelAt(0, 0), colour);
    EXPECT_EQ(pixelAt(static_cast<int>(width) - 1, static_cast<int>(height) - 1), colour);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(KrGlxWindow, ShowsWhatIsDrawnAndFollowsItsSettings)
{
    KrWindow window;
    window.setName("shown");
    window.setWindowSizeAndPos(120, 90, 10, 20);
    ASSERT_TRUE(window.init());
    std::puts(window.report().text().c_str());
    EXPECT_EQ(window.report().redBits + window.report().greenBits + window.report().blueBits, 24);
    EXPECT_GE(window.report().depthBits, 24);
    EXPECT_EQ(attributes("shown").map_state, IsViewable);

    expectDraws(kRed, 120, 90);
    EXPECT_TRUE(window.swapBuffers());
    glFinish();
    XImage* seen = XGetImage(m_display.get(), find("shown"), 60, 45, 1, 1, AllPlanes, ZPixmap);
    ASSERT_NE(seen, nullptr);
    EXPECT_EQ(XGetPixel(seen, 0, 0) & 0xffffff, 0xff0000u);
    XDestroyImage(seen);

    const GLuint texture = createTexture(kGreen);
    ASSERT_TRUE(window.setWindowSizeAndPos(300, 200, 40, 50));
    EXPECT_EQ(texelOf(texture), kGreen);
    expectDraws(kGreen, 300, 200);
    EXPECT_TRUE(window.setTopMost(true));
    window.setName("renamed");
    window.swapBuffers();
    const XWindowAttributes now = attributes("renamed");
    EXPECT_EQ(now.width, 300);
    EXPECT_EQ(now.height, 200);
    EXPECT_EQ(now.x, 40);
    EXPECT_EQ(now.y, 50);

    MessageRecorder messages;
    EXPECT_FALSE(window.setWindowSize(100000, 100000));
    EXPECT_EQ(messages.count(), 1u);
    EXPECT_EQ(window.windowWidth(), 300u);
    expectDraws(kRed, 300, 200);
}

TEST_F(KrGlxWindow, DrawsTheSameWhileHidden)
{
    KrWindow window;
    window.setName("hidden");
    window.setWindowSize(64, 48);
    window.setHideWindow(true);
    ASSERT_TRUE(window.init());
    EXPECT_NE(attributes("hidden").map_state, IsViewable);
    const GLXContext context = glXGetCurrentContext();
    const GLuint texture = createTexture(kGreen);
    expectDraws(kRed, 64, 48);
    ASSERT_TRUE(window.setWindowSize(200, 150));
    expectDraws(kGreen, 200, 150);

    ASSERT_TRUE(window.setHideWindow(false));
    EXPECT_EQ(attributes("hidden").map_state, IsViewable);
    EXPECT_EQ(attributes("hidden").width, 200);
    expectDraws(kRed, 200, 150);
    ASSERT_TRUE(window.setHideWindow(true));
    EXPECT_NE(attributes("hidden").map_state, IsViewable);
    expectDraws(kGreen, 200, 150);
    EXPECT_EQ(glXGetCurrentContext(), context);
    EXPECT_EQ(texelOf(texture), kGreen);
}

TEST_F(KrGlxWindow, SmoothsEdgesOnTheScreenOnDemand)
{
    // How many pixels along a slanted edge between black and red are neither.
    const auto numBlended = [this](KrWindow& window, const std::string& title) {
        window.setName(title);
        window.setWindowSize(64, 48);
        EXPECT_TRUE(window.init());
        fill({0, 0, 0});
        glColor3f(1.0f, 0.0f, 0.0f);
        glBegin(GL_TRIANGLES);
        glVertex2f(-1.0f, -0.7f);
        glVertex2f(1.0f, 0.6f);
        glVertex2f(-1.0f, 1.0f);
        glEnd();
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        EXPECT_TRUE(window.swapBuffers());
        glFinish();
        XImage* const seen = XGetImage(m_display.get(), find(title), 0, 0, 64, 48, AllPlanes, ZPixmap);
        int number = 0;
        for (int i = 0; seen && i < 64 * 48; ++i) {
            number += (XGetPixel(seen, i % 64, i / 64) >> 16 & 0xff) % 0xff != 0;
        }
        if (seen) {
            XDestroyImage(seen);
        }
        return number;
    };
    KrWindow plain, smooth, sharing;
    EXPECT_EQ(numBlended(plain, "plain"), 0);
    EXPECT_EQ(plain.report().samples, 0);
    smooth.setImpl(std::make_unique<KrGlxWindowImpl>(1000));
    const int number = numBlended(smooth, "smooth");
    if (smooth.report().samples == 0) {
        GTEST_SKIP() << "the display has no visual with several samples a pixel";
    }
    EXPECT_GT(number, 20);
    sharing.share(&smooth);
    EXPECT_EQ(numBlended(sharing, "sharing"), number);
    EXPECT_EQ(sharing.report().samples, smooth.report().samples);
}

TEST_F(KrGlxWindow, ClosingOneLeavesTheOthersSharedOrNot)
{
    KrWindow alone, sharing;
    auto first = std::make_unique<KrWindow>();
    ASSERT_TRUE(alone.init());
    const GLuint ownTexture = createTexture(kGreen);
    ASSERT_TRUE(first->init());
    const GLuint texture = createTexture(kRed);
    sharing.share(first.get());
    MessageRecorder messages;
    ASSERT_TRUE(sharing.init());
    EXPECT_EQ(messages.count(), 0u);
    EXPECT_EQ(texelOf(texture), kRed);
    EXPECT_EQ(first->getShare(), std::vector<KrWindow*>{&sharing});

    ASSERT_TRUE(alone.makeCurrent());
    const GLXContext context = glXGetCurrentContext();
    first.reset();
    EXPECT_EQ(glXGetCurrentContext(), context);
    EXPECT_EQ(texelOf(ownTexture), kGreen);
    ASSERT_TRUE(sharing.makeCurrent());
    EXPECT_EQ(texelOf(texture), kRed);
    EXPECT_TRUE(sharing.getShare().empty());
    sharing.closeWindow();
    ASSERT_TRUE(sharing.init());
    EXPECT_FALSE(glIsTexture(texture));
}

TEST_F(KrGlxWindow, StandsBesideAnEglWindow)
{
    KrWindow onScreen, headless, embedded;
    headless.setImpl(std::make_unique<KrEglWindowImpl>());
    ASSERT_TRUE(onScreen.init());
    ASSERT_TRUE(headless.init()) << headless.report().text();
    expectDraws(kGreen, 640, 480);
    for (int frame = 0; frame < 2; ++frame) {
        ASSERT_TRUE(onScreen.makeCurrent());
        expectDraws(kRed, 640, 480);
        ASSERT_TRUE(headless.makeCurrent());
        EXPECT_EQ(pixelAt(5, 5), kGreen);
    }
    onScreen.closeWindow();
    EXPECT_EQ(pixelAt(5, 5), kGreen) << "the headless context is not current any more";
    headless.share(nullptr);
    ASSERT_TRUE(onScreen.init());
    headless.closeWindow();
    expectDraws(kRed, 640, 480);

    // A client's GLX context, with nothing but what it has current.
    embedded.setImpl(std::make_unique<KrExternalWindowImpl>(KrExternalWindowImpl::Callbacks()));
    ASSERT_TRUE(embedded.init());
    EXPECT_EQ(embedded.report().renderer, onScreen.report().renderer);
    embedded.closeWindow();
    expectDraws(kGreen, 640, 480);
}

TEST_F(KrGlxWindow, HearsTheUserCloseAndResizeIt)
{
    KrWindow window;
    window.setName("user");
    window.setWindowSize(100, 80);
    ASSERT_TRUE(window.init());
    auto* impl = dynamic_cast<KrGlxWindowImpl*>(window.getImpl());
    ASSERT_NE(impl, nullptr);
    EXPECT_FALSE(impl->isCloseRequested());

    const Window id = find("user");
    XResizeWindow(m_display.get(), id, 150, 70);
    XEvent event = {};
    event.xclient.type = ClientMessage;
    event.xclient.window = id;
    event.xclient.message_type = XInternAtom(m_display.get(), "WM_PROTOCOLS", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] = static_cast<long>(XInternAtom(m_display.get(), "WM_DELETE_WINDOW", False));
    XSendEvent(m_display.get(), id, False, NoEventMask, &event);
    XSync(m_display.get(), False);

    glFinish();
    // Told by the server in its own time; the round trip of a title makes sure that it has.
    window.setName("user");
    window.swapBuffers();
    EXPECT_TRUE(impl->isCloseRequested());
    unsigned int width = 0, height = 0;
    impl->size(width, height);
    EXPECT_EQ(width, 150u);
    EXPECT_EQ(height, 70u);
}

TEST_F(KrGlxWindow, OutlivesAWindowThatSomebodyElseDestroyed)
{
    KrWindow window, other;
    window.setName("destroyed");
    ASSERT_TRUE(other.init());
    ASSERT_TRUE(window.init());
    XDestroyWindow(m_display.get(), find("destroyed"));
    XSync(m_display.get(), False);
    MessageRecorder messages;
    EXPECT_FALSE(window.setWindowSize(100, 100));
    EXPECT_FALSE(window.setHideWindow(true) && window.setHideWindow(false));
    fill(kRed);
    window.swapBuffers();
    window.closeWindow();
    ASSERT_TRUE(other.makeCurrent());
    expectDraws(kRed, 640, 480);
}

TEST_F(KrGlxWindow, OpensAgainAndAgainAndLeavesNoDescriptorBehind)
{
    m_display.reset(); // with its last client a virtual server starts over, and answers nobody meanwhile
    std::ptrdiff_t before = 0;
    for (int i = 0; i < 30; ++i) {
        KrWindow window, sharing;
        sharing.share(&window);
        window.setHideWindow(i % 2 == 0);
        ASSERT_TRUE(window.init());
        ASSERT_TRUE(sharing.init());
        expectDraws(kRed, 640, 480);
        window.closeWindow();
        sharing.closeWindow();
        if (i == 5) {
            before = Process::numOpenDescriptors();
        }
    }
    EXPECT_EQ(Process::numOpenDescriptors(), before);
}

/// An X server of the test's own; `pid` is 0 when there is none to be had.
struct XServer
{
    pid_t pid = 0;
    std::string display;

    XServer()
    {
        int channel[2] = {-1, -1};
        if (pipe(channel) != 0) {
            return;
        }
        pid = fork();
        if (pid == 0) {
            const std::string number = std::to_string(channel[1]);
            execlp("Xvfb", "Xvfb", "-displayfd", number.c_str(), "-screen", "0", "640x480x24", nullptr);
            _exit(1);
        }
        close(channel[1]);
        char name[16] = "";
        const ssize_t length = read(channel[0], name, sizeof name - 1); // once it is ready; nothing when it never will
        close(channel[0]);
        if (length > 0) {
            display = ":" + std::to_string(std::atoi(name));
        } else {
            kill();
        }
    }
    ~XServer() { kill(); }
    void kill()
    {
        if (pid > 0 && ::kill(pid, SIGKILL) == 0) {
            waitpid(pid, nullptr, 0);
        }
        pid = 0;
    }
};

TEST_F(KrGlxWindow, OutlivesTheServer)
{
    const std::string before = std::getenv("DISPLAY");
    KrWindow survivor, window, hidden;
    ASSERT_TRUE(survivor.init());
    XServer server;
    if (server.display.empty()) {
        GTEST_SKIP() << "Xvfb does not start";
    }
    setenv("DISPLAY", server.display.c_str(), 1);
    hidden.setHideWindow(true);
    const bool areOpen = window.init() && hidden.init();
    setenv("DISPLAY", before.c_str(), 1);
    ASSERT_TRUE(areOpen);

    server.kill();
    MessageRecorder messages;
    for (KrWindow* lost : {&window, &hidden}) {
        lost->makeCurrent(); // notices at the latest when it swaps
        fill(kRed);
        lost->swapBuffers();
        EXPECT_FALSE(lost->setWindowSize(50, 50));
        EXPECT_FALSE(lost->makeCurrent());
    }
    window.closeWindow();
    ASSERT_TRUE(survivor.makeCurrent());
    expectDraws(kGreen, 640, 480);
    EXPECT_TRUE(window.init()) << "on the first server again";
}

} // namespace
