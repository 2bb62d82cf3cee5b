#include <rendCore/input/KrOrbitInputHandler.h>
#include <rendCore/input/KrWindowInput.h>
#include <rendCore/system/KrMultiRenderWindow.h>
#include <toolkit/context/KrEglWindowImpl.h>
#include <toolkit/context/KrGlxWindowImpl.h>
#include <toolkit/math/KrAngle.h>

#include <tests/support/Pictures.h>

#include <osg/Geode>
#include <osg/ShapeDrawable>

// Before X11: Xlib's macros (None, Bool) break GoogleTest.
#include <gtest/gtest.h>
#include <tests/support/XWindows.h>

#include <GL/glx.h>
#include <X11/Xlib.h>
#include <X11/keysym.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <memory>

namespace
{

struct DisplayCloser
{
    void operator()(Display* display) const { XCloseDisplay(display); }
};

/// Windows as the user has them, who is another client of the X server.
class KrWindowInputTest : public testing::Test
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
        ASSERT_TRUE(open(window, "input"));
        handler = new KrOrbitInputHandler(&window);
        window.setInputHandler(handler);
    }

    static bool open(KrSGWindow& opened, const char* name)
    {
        opened.setName(name);
        opened.setWindowSize(160, 120);
        opened.setBackgroundColor(KrColor(0.0, 0.0, 1.0));
        KrPovParameters pov;
        pov.setEyepoint(KrVector(6.0, 0.0, 0.0));
        opened.setPovParameters(pov);
        return opened.init();
    }
    static osg::ref_ptr<osg::Group> ball()
    {
        const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        geode->addDrawable(new osg::ShapeDrawable(new osg::Sphere(osg::Vec3(), 1.0f)));
        const osg::ref_ptr<osg::Group> group = new osg::Group;
        group->addChild(geode);
        return group;
    }

    Window idOf(const std::string& title) const
    {
        return findWindow(m_display.get(), [&title](const std::string& name) { return name == title; });
    }
    void send(XEvent event, long mask) const
    {
        event.xany.window = idOf("input");
        XSendEvent(m_display.get(), event.xany.window, False, mask, &event);
        XSync(m_display.get(), False);
    }
    void sendButton(int type, unsigned int button, int x, int y, unsigned int state = 0, Time time = 0) const
    {
        XEvent event = {};
        event.type = type;
        event.xbutton.button = button;
        event.xbutton.x = x;
        event.xbutton.y = y;
        event.xbutton.state = state;
        event.xbutton.time = time;
        send(event, NoEventMask);
    }
    void sendMotion(int x, int y) const
    {
        XEvent event = {};
        event.type = MotionNotify;
        event.xmotion.x = x;
        event.xmotion.y = y;
        send(event, NoEventMask);
    }
    void sendKey(KeySym symbol) const
    {
        XEvent event = {};
        event.type = KeyPress;
        event.xkey.keycode = XKeysymToKeycode(m_display.get(), symbol);
        send(event, NoEventMask);
    }
    /// Until what was sent has come: the server tells it in its own time.
    void take(KrWindowInput& input)
    {
        ASSERT_TRUE(input.wait(5.0));
        EXPECT_TRUE(input.take());
        draw();
    }
    void draw()
    {
        EXPECT_TRUE(window.renderScene(true));
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    }
    void expectBall(unsigned int width, unsigned int height)
    {
        KrImage image;
        ASSERT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
        ASSERT_EQ(image.width(), width);
        ASSERT_EQ(image.height(), height);
        // A unit ball 6 m away under 45 degrees, seen round: the height of its disc is the window's, 2 x 0.4082.
        const double radius = 0.5 * height * 0.16903 / 0.41421; // tan asin 1/6, tan 22.5 degrees
        const double area = Kr::Angle::kPi * radius * radius;
        EXPECT_NEAR(static_cast<double>(countLit(image, {0, 0, 255})), area, 0.05 * area + 10.0);
        EXPECT_LT(meanColour(image, width / 2, height / 2, 2)[2], 250.0);
    }

    std::unique_ptr<Display, DisplayCloser> m_display;
    KrSGWindow window;
    osg::ref_ptr<KrOrbitInputHandler> handler;
};

// Without a display, or before the first frame: the loop of a program ends, and one that goes on does not spin.
TEST(KrWindowInputUnopened, CountsAsClosedAndWaits)
{
    using Clock = std::chrono::steady_clock;
    KrSGWindow window;
    KrWindowInput input(window);
    EXPECT_TRUE(input.isCloseRequested());
    EXPECT_FALSE(input.take());
    Clock::time_point start = Clock::now();
    EXPECT_FALSE(input.wait(0.2));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(200));
    EXPECT_FALSE(input.wait(-1.0));
    EXPECT_FALSE(input.wait(std::nan("")));

    window.setImpl(std::make_unique<KrEglWindowImpl>());
    if (window.init()) { // open, with nobody to close it
        EXPECT_FALSE(input.isCloseRequested());
        start = Clock::now();
        EXPECT_FALSE(input.wait(0.2));
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(200));
    }
}

TEST_F(KrWindowInputTest, AFrameThatIsNotSwappedHasTheNewSize)
{
    window.setNode(ball());
    draw();
    const auto corner = [this](int width, int height) {
        window.makeCurrent();
        GLubyte pixel[3] = {1, 2, 3};
        glReadPixels(width - 2, height - 2, 1, 1, GL_RGB, GL_UNSIGNED_BYTE, pixel);
        return std::array<int, 3>{pixel[0], pixel[1], pixel[2]};
    };
    const std::array<int, 3> blue = {0, 0, 255};
    for (const unsigned int width : {300u, 310u, 320u}) {
        ASSERT_TRUE(window.setWindowSize(width, 200));
        EXPECT_TRUE(window.renderScene(false));
        EXPECT_EQ(corner(static_cast<int>(width), 200), blue) << width;
    }
    // By the user, as far as the window is concerned.
    XResizeWindow(m_display.get(), idOf("input"), 330, 220);
    XSync(m_display.get(), False);
    KrWindowInput input(window);
    for (int i = 0; i < 100 && window.windowWidth() != 330; ++i) {
        input.wait(0.1);
        input.take();
    }
    EXPECT_TRUE(window.renderScene(false));
    EXPECT_EQ(corner(330, 220), blue);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(KrWindowInputTest, HandsMouseAndKeysToTheCamera)
{
    window.setNode(ball());
    KrWindowInput input(window);
    EXPECT_FALSE(input.isCloseRequested());
    input.take();
    draw();
    input.wait(0.2); // what the server tells of a new window
    input.take();
    const KrVector start = window.getPovParameters().eyepoint();

    sendMotion(10, 10);
    EXPECT_TRUE(input.wait(5.0));
    EXPECT_FALSE(input.take()) << "a mouse that only passes asks for no frame";
    EXPECT_FALSE(input.wait(0.02)) << "nothing happens, and yet it wakes";

    sendButton(ButtonPress, 1, 80, 60);
    sendMotion(90, 60);
    sendMotion(100, 60);
    sendButton(ButtonRelease, 1, 100, 60);
    take(input);
    const KrVector turned = window.getPovParameters().eyepoint();
    EXPECT_NEAR(turned.y(), -6.0 * std::sin(Kr::Angle::kPi / 6.0), 0.05); // a sixth of the height, of half a turn
    sendButton(ButtonPress, 4, 80, 60);
    sendButton(ButtonRelease, 4, 80, 60);
    take(input);
    EXPECT_LT(window.getPovParameters().viewingDistance(), 5.5);
    sendButton(ButtonPress, 1, 80, 60, ShiftMask, 5000);
    sendMotion(60, 60);
    sendButton(ButtonRelease, 1, 60, 60, ShiftMask, 5100);
    take(input);
    EXPECT_GT(window.getPovParameters().centerOfInterest().length(), 0.3);
    sendKey(XK_h);
    take(input);
    EXPECT_LT((window.getPovParameters().eyepoint() - start).length(), 1e-5);
    sendButton(ButtonPress, 1, 80, 60, 0, 9000);
    sendButton(ButtonRelease, 1, 80, 60, 0, 9050);
    sendButton(ButtonPress, 1, 81, 60, 0, 9200);
    take(input);
    EXPECT_NEAR(window.getPovParameters().centerOfInterest().x(), 1.0, 0.05);

    XEvent event = {};
    event.xclient.type = ClientMessage;
    event.xclient.message_type = XInternAtom(m_display.get(), "WM_PROTOCOLS", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] = static_cast<long>(XInternAtom(m_display.get(), "WM_DELETE_WINDOW", False));
    send(event, NoEventMask);
    EXPECT_TRUE(input.wait(5.0));
    input.take();
    EXPECT_TRUE(input.isCloseRequested());
    EXPECT_TRUE(window.isInitialized());
}

TEST_F(KrWindowInputTest, DrawsRightResizedHiddenAndMinimised)
{
    window.setNode(ball());
    KrWindowInput input(window);
    input.take();
    draw();
    expectBall(160, 120);
    ASSERT_TRUE(window.setWindowSize(240, 100)); // the client
    expectBall(240, 100);
    XResizeWindow(m_display.get(), idOf("input"), 300, 200); // the user
    XSync(m_display.get(), False);
    for (int i = 0; i < 50 && window.windowWidth() != 300; ++i) {
        input.wait(0.1);
        input.take();
    }
    EXPECT_EQ(window.windowHeight(), 200u);
    EXPECT_EQ(window.aspectRatio(), 1.5);
    expectBall(300, 200);

    ASSERT_TRUE(window.setHideWindow(true));
    expectBall(300, 200);
    ASSERT_TRUE(window.setHideWindow(false));
    expectBall(300, 200);

    // What a window manager does with a window that it minimises, and restores.
    auto* const impl = dynamic_cast<KrGlxWindowImpl*>(window.getImpl());
    ASSERT_NE(impl, nullptr);
    EXPECT_TRUE(impl->minimise()); // nobody is there to hear it
    XUnmapWindow(m_display.get(), idOf("input"));
    XSync(m_display.get(), False);
    for (int i = 0; i < 50 && !impl->isMinimised(); ++i) {
        input.wait(0.1);
        input.take();
    }
    EXPECT_TRUE(impl->isMinimised());
    draw();
    expectBall(300, 200);
    XMapWindow(m_display.get(), idOf("input"));
    XSync(m_display.get(), False);
    for (int i = 0; i < 50 && impl->isMinimised(); ++i) {
        input.wait(0.1);
        input.take();
    }
    EXPECT_FALSE(impl->isMinimised());
    expectBall(300, 200);
}

TEST_F(KrWindowInputTest, GivesEachOfSeveralViewsItsShareOfTheUsersSize)
{
    KrMultiRenderWindow views(80, 60, 5);
    views.setNumColumnsHint(3);
    views.setName("views");
    ASSERT_TRUE(views.init());
    views.setNumColumnsHint(0); // one row of five
    KrWindowInput input(views);
    input.take();
    const auto resize = [&](unsigned int width, unsigned int height, unsigned int awaited) {
        XResizeWindow(m_display.get(), idOf("views"), width, height);
        XSync(m_display.get(), False);
        for (int i = 0; i < 50 && views.windowWidth() != awaited; ++i) {
            input.wait(0.1);
            input.take();
        }
        EXPECT_EQ(views.windowWidth(), awaited);
    };
    resize(202, 71, 200);
    EXPECT_EQ(views.windowHeight(), 71u);
    resize(1900, 300, 1900);
    EXPECT_EQ(views.windowHeight(), 300u) << "the grid stays what it was";
    resize(200, 100, 200);
    EXPECT_TRUE(views.renderScene(true));
    while (input.wait(0.2)) {
        input.take();
    }
    EXPECT_FALSE(input.take()) << "it comes to rest";
    unsigned int width = 0, height = 0;
    views.getSingleWindowSize(width, height);
    EXPECT_EQ(width, 40u);
    EXPECT_EQ(height, 100u);
    EXPECT_EQ(views.getNumWindows(), 5u);
}

/// Lists and buffers in the current context.
unsigned int numObjects()
{
    using IsBuffer = GLboolean (*)(GLuint);
    const auto isBuffer = reinterpret_cast<IsBuffer>(glXGetProcAddress(reinterpret_cast<const GLubyte*>("glIsBuffer")));
    unsigned int number = 0;
    for (GLuint name = 1; name < 500; ++name) {
        number += glIsList(name) + glIsTexture(name) + isBuffer(name);
    }
    return number;
}

TEST_F(KrWindowInputTest, TwoWindowsThatShareHoldTheirObjectsOnce)
{
    const osg::ref_ptr<osg::Group> scene = ball();
    window.setNode(scene);
    draw();
    draw();
    const unsigned int before = numObjects();
    EXPECT_GT(before, 0u);
    auto second = std::make_unique<KrSGWindow>();
    second->share(&window);
    ASSERT_TRUE(open(*second, "second"));
    EXPECT_EQ(second->getShare(), std::vector<KrWindow*>{&window});
    second->setNode(scene);
    KrImage first, other;
    ASSERT_TRUE(second->renderSceneAndCaptureImage(other, KrSGWindow::CaptureColor));
    EXPECT_EQ(numObjects(), before); // what is drawn is there once; what is hidden has none
    ASSERT_TRUE(window.renderSceneAndCaptureImage(first, KrSGWindow::CaptureColor));
    EXPECT_TRUE(std::equal(first.data(), first.data() + first.sizeInBytes(), other.data()));
    second.reset();
    expectBall(160, 120);
}

TEST_F(KrWindowInputTest, TellsStereoWhereTheVisualHasIt)
{
    const int wanted[] = {GLX_STEREO, True, GLX_DOUBLEBUFFER, True, GLX_DEPTH_SIZE, 24, 0};
    int number = 0;
    GLXFBConfig* const configs = glXChooseFBConfig(m_display.get(), DefaultScreen(m_display.get()), wanted, &number);
    XFree(configs);
    KrSGWindow stereo;
    stereo.setStereoSupported(true);
    stereo.setViewerAttribute(KrSGWindow::Stereo, true);
    ASSERT_TRUE(open(stereo, "stereo"));
    EXPECT_EQ(stereo.stereoOn(), number > 0);
    EXPECT_FALSE(window.stereoOn()) << "nobody asked for it";
}

} // namespace
