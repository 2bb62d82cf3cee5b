#include <toolkit/context/KrGlxWindowImpl.h>

#include <toolkit/context/private/KrCurrentContext.h>
#include <toolkit/context/private/KrForkGuard.h>
#include <toolkit/context/private/KrXConnection.h>
#include <toolkit/context/private/KrXErrorTrap.h>
#include <toolkit/foundation/KrLimits.h>

#include <GL/gl.h>
#include <GL/glx.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <tuple>
#include <utility>
#include <vector>

namespace
{

/// Owns what a Display made. `destroy` says how it goes.
template <typename Handle, auto destroy>
class XOwner
{
public:
    XOwner() = default;
    XOwner(Display* display, Handle handle)
        : m_display(display)
        , m_handle(handle)
    {
    }
    XOwner(XOwner&& other) noexcept { swap(other); }
    XOwner& operator=(XOwner&& other) noexcept
    {
        XOwner taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~XOwner()
    {
        if (m_handle) {
            destroy(m_display, m_handle);
        }
    }
    Handle get() const { return m_handle; }
    explicit operator bool() const { return m_handle != Handle(); }

private:
    void swap(XOwner& other)
    {
        std::swap(m_display, other.m_display);
        std::swap(m_handle, other.m_handle);
    }

    Display* m_display = nullptr;
    Handle m_handle = Handle();
};

using OwnedColormap = XOwner<Colormap, &XFreeColormap>;
using OwnedWindow = XOwner<Window, &XDestroyWindow>;
using OwnedGlxWindow = XOwner<GLXWindow, &glXDestroyWindow>;
using OwnedPbuffer = XOwner<GLXPbuffer, &glXDestroyPbuffer>;
using OwnedContext = XOwner<GLXContext, &glXDestroyContext>;

struct XFreeDeleter
{
    void operator()(void* memory) const { XFree(memory); }
};
template <typename T>
using UniqueXMemory = std::unique_ptr<T, XFreeDeleter>;

int configValue(Display* display, GLXFBConfig config, int attribute)
{
    int value = 0;
    glXGetFBConfigAttrib(display, config, attribute, &value);
    return value;
}

/// How many samples a pixel has more or less than wanted.
int samplesOff(Display* display, GLXFBConfig config, unsigned int samples)
{
    return std::abs(configValue(display, config, GLX_SAMPLES) -
                    static_cast<int>(std::min(samples, Kr::Limits::kWindowSamples)));
}

bool isExact(Display* display, GLXFBConfig config)
{
    const int depth = configValue(display, config, GLX_DEPTH_SIZE);
    return configValue(display, config, GLX_RED_SIZE) == 8 && configValue(display, config, GLX_GREEN_SIZE) == 8 &&
           configValue(display, config, GLX_BLUE_SIZE) == 8 && (depth == 32 || depth == 24) &&
           configValue(display, config, GLX_VISUAL_ID) != 0;
}

/// Smaller is better; see the EGL window, which ranks alike. A visual with alpha may shine through on the desktop.
auto rank(Display* display, GLXFBConfig config, unsigned int samples)
{
    return std::make_tuple(configValue(display, config, GLX_CONFIG_CAVEAT) == GLX_NON_CONFORMANT_CONFIG,
                           samplesOff(display, config, samples), -configValue(display, config, GLX_DEPTH_SIZE),
                           configValue(display, config, GLX_ALPHA_SIZE), configValue(display, config, GLX_STENCIL_SIZE),
                           configValue(display, config, GLX_CONFIG_CAVEAT) == GLX_SLOW_CONFIG);
}

/// Good for a window and for a pbuffer, so that both hold the same pixels. Null when there is no exact one.
GLXFBConfig chooseConfig(Display* display, bool stereo, unsigned int samples)
{
    const int wanted[] = {GLX_DRAWABLE_TYPE,
                          GLX_WINDOW_BIT | GLX_PBUFFER_BIT,
                          GLX_RENDER_TYPE,
                          GLX_RGBA_BIT,
                          GLX_X_RENDERABLE,
                          True,
                          GLX_DOUBLEBUFFER,
                          True,
                          GLX_STEREO,
                          stereo ? True : False,
                          GLX_RED_SIZE,
                          8,
                          GLX_GREEN_SIZE,
                          8,
                          GLX_BLUE_SIZE,
                          8,
                          GLX_DEPTH_SIZE,
                          24,
                          None};
    int number = 0;
    const UniqueXMemory<GLXFBConfig> found(glXChooseFBConfig(display, DefaultScreen(display), wanted, &number));
    std::vector<GLXFBConfig> configs;
    for (int i = 0; found && i < number; ++i) {
        if (isExact(display, found.get()[i])) {
            configs.push_back(found.get()[i]);
        }
    }
    const auto best = std::min_element(configs.begin(), configs.end(), [=](GLXFBConfig a, GLXFBConfig b) {
        return rank(display, a, samples) < rank(display, b, samples);
    });
    return best == configs.end() ? nullptr : *best;
}

// Keyboard mappings are told to everybody; somebody must take them out of the queue.
Bool isForWindow(Display*, XEvent* event, XPointer window)
{
    return event->type == MappingNotify || event->xany.window == *reinterpret_cast<const Window*>(window);
}

/// A context, its window on the screen, and while hidden its pbuffer. Members go in reverse order.
struct OpenWindow
{
    std::shared_ptr<KrXConnection> connection; ///< one for those that share: Mesa shares within a connection only
    GLXFBConfig config = nullptr;
    OwnedColormap colormap;
    OwnedWindow window;
    OwnedContext context;
    OwnedGlxWindow glxWindow;
    OwnedPbuffer pbuffer; ///< what is drawn into while it exists
    unsigned int width = 0;
    unsigned int height = 0;
    bool isStereo = false;
    bool isCloseRequested = false;
    bool isMinimised = false;
    bool isListening = false; ///< somebody takes events
    bool isResized = false;   ///< since `glxWindow` was made or swapped
    std::vector<KrWindowEvent> events;
    std::size_t nextEvent = 0;
    KrWindowEvent lastPress;
    Time lastPressTime = 0;

    ~OpenWindow() { destroy(); }

    Display* display() const { return connection->display(); }
    GLXDrawable drawable() const { return pbuffer ? pbuffer.get() : glxWindow.get(); }
    bool isCurrent() const { return context && glXGetCurrentContext() == context.get(); }
    Atom atom(const char* name) const { return XInternAtom(display(), name, False); }

    void destroy()
    {
        if (isCurrent()) {
            KrCurrentContext::leaveGlx();
        }
        if (!connection) {
            return;
        }
        const KrXErrorTrap trap(display());
        pbuffer = OwnedPbuffer();
        glxWindow = OwnedGlxWindow();
        context = OwnedContext();
        window = OwnedWindow();
        colormap = OwnedColormap();
    }

    bool makeCurrent()
    {
        if (connection->isLost()) {
            return false;
        }
        if (isResized && !pbuffer) {
            renewGlxWindow();
        }
        if (isCurrent() && glXGetCurrentDrawable() == drawable() && glXGetCurrentReadDrawable() == drawable()) {
            return true;
        }
        KrCurrentContext::leaveEgl();
        KrXErrorTrap trap(display());
        return glXMakeContextCurrent(display(), drawable(), drawable(), context.get()) && trap.isClean();
    }

    /// Drivers ask for the size of what they draw into when it is new and when it is swapped, and at no other time for
    /// sure: frames that are not swapped would go on having the old size.
    void renewGlxWindow()
    {
        if (isCurrent()) {
            KrCurrentContext::leaveGlx();
        }
        isResized = false;
        const KrXErrorTrap trap(display());
        glxWindow = OwnedGlxWindow(); // an X window has one at a time
        glxWindow = OwnedGlxWindow(display(), glXCreateWindow(display(), config, window.get(), nullptr));
    }

    OwnedPbuffer createPbuffer(unsigned int pixelWidth, unsigned int pixelHeight) const
    {
        const int size[] = {GLX_PBUFFER_WIDTH,
                            static_cast<int>(pixelWidth),
                            GLX_PBUFFER_HEIGHT,
                            static_cast<int>(pixelHeight),
                            GLX_PRESERVED_CONTENTS,
                            True,
                            None};
        KrXErrorTrap trap(display());
        OwnedPbuffer created(display(), glXCreatePbuffer(display(), config, size));
        return trap.isClean() ? std::move(created) : OwnedPbuffer();
    }

    /// Draws into `target` from now on; false leaves everything as it was.
    bool moveTo(OwnedPbuffer target)
    {
        std::swap(pbuffer, target);
        if (makeCurrent()) {
            return true;
        }
        std::swap(pbuffer, target);
        makeCurrent();
        return false;
    }

    bool createWindow(const KrWindowImpl::Settings& settings);
    void setTitle(const std::string& title) const;
    bool setTopMost(bool topMost, bool isMapped) const;
    bool show() const;
    bool resizeWindow(unsigned int pixelWidth, unsigned int pixelHeight) const;
    void listen();
    void readEvents();
    void readEvent(XEvent& event);
    void tell(const KrWindowEvent& event);
    void tellResize(const XConfigureEvent& event);
    void tellKey(XKeyEvent& event);
    void tellButton(const XButtonEvent& event);
    void tellMotion(const XMotionEvent& event);
};

bool OpenWindow::createWindow(const KrWindowImpl::Settings& settings)
{
    const UniqueXMemory<XVisualInfo> visual(glXGetVisualFromFBConfig(display(), config));
    if (!visual) {
        return false;
    }
    const Window root = RootWindow(display(), visual->screen);
    colormap = OwnedColormap(display(), XCreateColormap(display(), root, visual->visual, AllocNone));

    XSetWindowAttributes attributes = {};
    attributes.colormap = colormap.get();
    attributes.event_mask = StructureNotifyMask;
    window = OwnedWindow(display(), XCreateWindow(display(), root, settings.x, settings.y, settings.width,
                                                  settings.height, 0, visual->depth, InputOutput, visual->visual,
                                                  CWBorderPixel | CWColormap | CWEventMask, &attributes));
    glxWindow = OwnedGlxWindow(display(), glXCreateWindow(display(), config, window.get(), nullptr));

    XSizeHints hints = {};
    hints.flags = USPosition | USSize;
    XSetWMNormalHints(display(), window.get(), &hints);
    // Without this the window manager would cut the connection, and Xlib end the process, when the user closes it.
    Atom deleteWindow = atom("WM_DELETE_WINDOW");
    XSetWMProtocols(display(), window.get(), &deleteWindow, 1);
    setTitle(settings.name);
    setTopMost(settings.topMost, false);
    return true;
}

void OpenWindow::setTitle(const std::string& title) const
{
    XStoreName(display(), window.get(), title.c_str());
    XChangeProperty(display(), window.get(), atom("_NET_WM_NAME"), atom("UTF8_STRING"), 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(title.data()), static_cast<int>(title.size()));
}

// A mapped window asks the window manager; an unmapped one only leaves word for when it is mapped.
bool OpenWindow::setTopMost(bool topMost, bool isMapped) const
{
    const Atom state = atom("_NET_WM_STATE");
    const Atom above = atom("_NET_WM_STATE_ABOVE");
    KrXErrorTrap trap(display());
    if (!isMapped) {
        XChangeProperty(display(), window.get(), state, XA_ATOM, 32, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(&above), topMost ? 1 : 0);
        return trap.isClean();
    }
    XEvent event = {};
    event.xclient.type = ClientMessage;
    event.xclient.window = window.get();
    event.xclient.message_type = state;
    event.xclient.format = 32;
    event.xclient.data.l[0] = topMost ? 1 : 0; // _NET_WM_STATE_ADD, _NET_WM_STATE_REMOVE
    event.xclient.data.l[1] = static_cast<long>(above);
    event.xclient.data.l[3] = 1; // from an ordinary application
    XSendEvent(display(), DefaultRootWindow(display()), False, SubstructureRedirectMask | SubstructureNotifyMask,
               &event);
    return trap.isClean();
}

constexpr useconds_t kPollMicroseconds = 5000;
constexpr int kPolls = 200; // one second, for a window manager to answer in

bool OpenWindow::show() const
{
    KrXErrorTrap trap(display());
    XMapWindow(display(), window.get());
    XWindowAttributes now = {};
    for (int i = 0; i < kPolls; ++i) {
        XSync(display(), False);
        if (!XGetWindowAttributes(display(), window.get(), &now)) {
            return false;
        }
        if (now.map_state == IsViewable) {
            break;
        }
        usleep(kPollMicroseconds);
    }
    return trap.isClean(); // a minimised window is as good as a visible one
}

/// False when the window manager, or the server, gives another size; the window then has its old one.
bool OpenWindow::resizeWindow(unsigned int pixelWidth, unsigned int pixelHeight) const
{
    KrXErrorTrap trap(display());
    XResizeWindow(display(), window.get(), pixelWidth, pixelHeight);
    XWindowAttributes now = {};
    for (int i = 0; i < kPolls && trap.isClean(); ++i) {
        if (!XGetWindowAttributes(display(), window.get(), &now)) {
            return false;
        }
        if (static_cast<unsigned int>(now.width) == pixelWidth &&
            static_cast<unsigned int>(now.height) == pixelHeight) {
            return true;
        }
        usleep(kPollMicroseconds);
    }
    XResizeWindow(display(), window.get(), width, height);
    return false;
}

void OpenWindow::listen()
{
    if (isListening) {
        return;
    }
    isListening = true;
    const KrXErrorTrap trap(display()); // another client may have the buttons; the rest is told all the same
    XSelectInput(display(), window.get(),
                 StructureNotifyMask | ExposureMask | KeyPressMask | KeyReleaseMask | PointerMotionMask);
    XSelectInput(display(), window.get(),
                 StructureNotifyMask | ExposureMask | KeyPressMask | KeyReleaseMask | PointerMotionMask |
                     ButtonPressMask | ButtonReleaseMask);
}

void OpenWindow::readEvents()
{
    if (connection->isLost()) {
        return;
    }
    Window own = window.get();
    XEvent event;
    while (XCheckIfEvent(display(), &event, isForWindow, reinterpret_cast<XPointer>(&own))) {
        readEvent(event);
    }
}

void OpenWindow::readEvent(XEvent& event)
{
    switch (event.type) {
    case MappingNotify:
        XRefreshKeyboardMapping(&event.xmapping);
        break;
    case ConfigureNotify:
        if (!pbuffer) {
            tellResize(event.xconfigure);
        }
        break;
    case MapNotify:
    case UnmapNotify:
        isMinimised = event.type == UnmapNotify && !pbuffer;
        break;
    case ClientMessage:
        if (static_cast<Atom>(event.xclient.data.l[0]) == atom("WM_DELETE_WINDOW")) {
            isCloseRequested = true;
            KrWindowEvent told;
            told.kind = KrWindowEvent::Kind::CloseAsked;
            tell(told);
        }
        break;
    case Expose:
        if (event.xexpose.count == 0) {
            tell(KrWindowEvent());
        }
        break;
    case KeyPress:
    case KeyRelease:
        tellKey(event.xkey);
        break;
    case ButtonPress:
    case ButtonRelease:
        tellButton(event.xbutton);
        break;
    case MotionNotify:
        tellMotion(event.xmotion);
        break;
    default:
        break;
    }
}

/// Motions and sizes are told once for all that came together.
void OpenWindow::tell(const KrWindowEvent& event)
{
    using Kind = KrWindowEvent::Kind;
    if (!isListening) {
        return;
    }
    const bool isState = event.kind == Kind::Motion || event.kind == Kind::Resized || event.kind == Kind::Exposed;
    if (isState && nextEvent < events.size() && events.back().kind == event.kind) {
        events.back() = event;
    } else {
        events.push_back(event);
    }
}

void OpenWindow::tellResize(const XConfigureEvent& event)
{
    const auto newWidth = static_cast<unsigned int>(event.width);
    const auto newHeight = static_cast<unsigned int>(event.height);
    if (newWidth == width && newHeight == height) {
        return; // moved only
    }
    width = newWidth;
    height = newHeight;
    isResized = true;
    KrWindowEvent told;
    told.kind = KrWindowEvent::Kind::Resized;
    told.width = width;
    told.height = height;
    tell(told);
}

std::uint32_t modifiersOf(unsigned int state)
{
    return (state & ShiftMask ? KrWindowEvent::Shift : 0u) | (state & ControlMask ? KrWindowEvent::Control : 0u) |
           (state & Mod1Mask ? KrWindowEvent::Alt : 0u);
}

void OpenWindow::tellKey(XKeyEvent& event)
{
    KeySym symbol = NoSymbol;
    XLookupString(&event, nullptr, 0, &symbol, nullptr); // heeds Shift, Lock and NumLock
    KrWindowEvent told;
    told.kind = event.type == KeyPress ? KrWindowEvent::Kind::KeyDown : KrWindowEvent::Kind::KeyUp;
    told.x = event.x;
    told.y = event.y;
    told.modifiers = modifiersOf(event.state);
    told.key = static_cast<std::uint32_t>(symbol);
    tell(told);
}

constexpr Time kDoubleClickMs = 400;
constexpr int kDoubleClickPixels = 4;

void OpenWindow::tellButton(const XButtonEvent& event)
{
    KrWindowEvent told;
    told.kind = event.type == ButtonPress ? KrWindowEvent::Kind::ButtonDown : KrWindowEvent::Kind::ButtonUp;
    told.x = event.x;
    told.y = event.y;
    told.modifiers = modifiersOf(event.state);
    if (event.button == Button4 || event.button == Button5) { // X's wheel is a pair of buttons
        told.kind = KrWindowEvent::Kind::Wheel;
        told.wheel = event.button == Button4 ? 1 : -1;
        if (event.type == ButtonPress) {
            tell(told);
        }
        return;
    }
    if (event.button > Button3) {
        return;
    }
    told.button = event.button;
    if (event.type == ButtonPress) {
        told.isDoubleClick = lastPress.button == told.button && !lastPress.isDoubleClick &&
                             event.time - lastPressTime <= kDoubleClickMs &&
                             std::abs(told.x - lastPress.x) <= kDoubleClickPixels &&
                             std::abs(told.y - lastPress.y) <= kDoubleClickPixels;
        lastPress = told;
        lastPressTime = event.time;
    }
    tell(told);
}

void OpenWindow::tellMotion(const XMotionEvent& event)
{
    KrWindowEvent told;
    told.kind = KrWindowEvent::Kind::Motion;
    told.x = event.x;
    told.y = event.y;
    told.modifiers = modifiersOf(event.state);
    tell(told);
}

using UniqueOpenWindow = std::unique_ptr<OpenWindow>;

/// One attempt to open a window: each step says what failed and what would mend it.
class Opening
{
public:
    Opening(const KrWindowImpl::Settings& settings, const OpenWindow* share, unsigned int samples)
        : m_settings(settings)
        , m_share(share)
        , m_samples(samples)
        , m_size(settings.sizeText())
        , m_open(std::make_unique<OpenWindow>())
    {
        m_attempt.backEnd = "GLX";
    }

    /// The open window, its context current; null when a step failed. The attempt goes into the report either way.
    UniqueOpenWindow run(KrWindowReport& report)
    {
        m_attempt.succeeded = connect() && finish();
        report.attempts.push_back(m_attempt);
        return m_attempt.succeeded ? std::move(m_open) : nullptr;
    }

private:
    static constexpr const char* kHeadless = "draw without a display (KR_WINDOW=egl)";

    bool fail(const std::string& outcome, const std::string& driverError, const std::string& remedy)
    {
        m_attempt.outcome = outcome;
        m_attempt.driverError = driverError;
        m_attempt.remedy = remedy;
        return false;
    }

    bool connect()
    {
        m_open->connection = m_share ? m_share->connection : KrXConnection::acquire();
        if (m_open->connection) {
            return true;
        }
        const char* name = std::getenv("DISPLAY");
        return fail("no X display answers", name ? "DISPLAY is \"" + std::string(name) + "\"" : "DISPLAY is not set",
                    std::string("set DISPLAY to a running X server, start one (xvfb-run), or ") + kHeadless);
    }

    bool finish()
    {
        KrXErrorTrap trap(m_open->display());
        return haveGlx() && choose() && createContext(trap) && createSurface(trap) && start(trap);
    }

    bool haveGlx()
    {
        int major = 0;
        int minor = 0;
        Display* display = m_open->display();
        if (!glXQueryExtension(display, nullptr, nullptr) || !glXQueryVersion(display, &major, &minor)) {
            return fail("the X server has no GLX", DisplayString(display),
                        "start the server with it (+extension GLX), install libglx-mesa0 and libgl1-mesa-dri");
        }
        if (major == 1 && minor < 3) {
            return fail("the X server's GLX is older than 1.3", std::to_string(major) + "." + std::to_string(minor),
                        std::string("use another server, or ") + kHeadless);
        }
        return true;
    }

    bool choose()
    {
        Display* display = m_open->display();
        if (m_share) {
            m_open->config = m_share->config;
        } else if (m_settings.wantsStereo) {
            m_open->config = chooseConfig(display, true, m_samples);
        }
        if (!m_open->config) {
            m_open->config = chooseConfig(display, false, m_samples);
        }
        if (!m_open->config) {
            return fail("no configuration with 8/8/8 bits of colour and 32 or 24 of depth", DisplayString(display),
                        "start the X server with 24 bits of colour (Xvfb -screen 0 1280x1024x24)");
        }
        m_open->isStereo = configValue(display, m_open->config, GLX_STEREO) != 0;
        return true;
    }

    // Without attributes a compatibility profile of the highest version is made.
    bool createContext(KrXErrorTrap& trap)
    {
        Display* display = m_open->display();
        const GLXContext share = m_share ? m_share->context.get() : nullptr;
        m_open->context =
            OwnedContext(display, glXCreateNewContext(display, m_open->config, GLX_RGBA_TYPE, share, True));
        if (!m_open->context || !trap.isClean()) {
            return fail(m_share ? "glXCreateNewContext fails for a shared context" : "glXCreateNewContext fails",
                        trap.error(), "install the driver of the display's graphics hardware, libgl1-mesa-dri");
        }
        KrForkGuard::noteContext();
        return true;
    }

    bool createSurface(KrXErrorTrap& trap)
    {
        if (m_settings.width > Kr::Limits::kWindowSide || m_settings.height > Kr::Limits::kWindowSide) {
            return fail("X windows have no " + m_size + " pixels", std::string(), "ask for a smaller window");
        }
        m_open->width = m_settings.width;
        m_open->height = m_settings.height;
        if (!m_open->createWindow(m_settings) || !trap.isClean()) {
            return fail("there can be no window of " + m_size + " pixels", trap.error(), "ask for a smaller window");
        }
        if (m_settings.hidden) {
            m_open->pbuffer = m_open->createPbuffer(m_settings.width, m_settings.height);
        }
        if (m_settings.hidden && !m_open->pbuffer) {
            return fail("there can be no pbuffer of " + m_size + " pixels", trap.error(), "ask for a smaller window");
        }
        return true;
    }

    bool start(KrXErrorTrap& trap)
    {
        if (!m_open->makeCurrent()) {
            return fail("glXMakeContextCurrent fails", trap.error(), "install libgl1-mesa-dri");
        }
        if (!KrCurrentContext::canDraw(m_settings.width, m_settings.height)) {
            return fail("the renderer cannot draw " + m_size + " pixels", std::string(), "ask for a smaller window");
        }
        if (!m_settings.hidden && !m_open->show()) {
            return fail("the window cannot be shown", trap.error(), kHeadless);
        }
        m_attempt.outcome = "opened " + m_size + " pixels on display " + DisplayString(m_open->display());
        if (m_settings.hidden) {
            m_attempt.outcome += ", hidden";
        }
        if (m_settings.wantsStereo && !m_open->isStereo) {
            m_attempt.remedy = "the display has no stereo visual; the window draws one eye's view";
        }
        return true;
    }

    const KrWindowImpl::Settings& m_settings;
    const OpenWindow* m_share;
    unsigned int m_samples;
    std::string m_size;
    KrWindowReport::Attempt m_attempt;
    UniqueOpenWindow m_open;
};

} // namespace

struct KrGlxWindowImpl::Private
{
    unsigned int samples = 0;
    UniqueOpenWindow open;
};

KrGlxWindowImpl::KrGlxWindowImpl(unsigned int samples)
    : m_private(std::make_unique<Private>())
{
    m_private->samples = samples;
}

KrGlxWindowImpl::~KrGlxWindowImpl()
{
    KrGlxWindowImpl::close();
}

const char* KrGlxWindowImpl::kind() const
{
    return "GLX";
}

bool KrGlxWindowImpl::open(const Settings& settings, KrWindowImpl* share, KrWindowReport& report)
{
    close();
    const KrCurrentContext before;
    const auto* sharing = dynamic_cast<const KrGlxWindowImpl*>(share);
    m_private->open =
        Opening(settings, sharing ? sharing->m_private->open.get() : nullptr, m_private->samples).run(report);
    if (!m_private->open) {
        before.restore();
        return false;
    }
    report.readCurrentContext();
    return true;
}

bool KrGlxWindowImpl::isOpen() const
{
    return m_private->open && !KrForkGuard::isForked();
}

void KrGlxWindowImpl::close()
{
    if (KrForkGuard::isForked()) {
        static_cast<void>(m_private->open.release()); // the parent's, as is its place on the connection
    }
    if (!isOpen()) {
        return;
    }
    const KrCurrentContext before;
    const bool wasOwn = before.isGlx(m_private->open->context.get());
    makeCurrent();
    m_private->open.reset();
    if (!wasOwn) {
        before.restore();
    }
}

bool KrGlxWindowImpl::makeCurrent()
{
    return isOpen() && m_private->open->makeCurrent();
}

void KrGlxWindowImpl::releaseCurrent()
{
    if (isCurrent()) {
        KrCurrentContext::leaveGlx();
    }
}

bool KrGlxWindowImpl::isCurrent() const
{
    return isOpen() && m_private->open->isCurrent();
}

void KrGlxWindowImpl::swapBuffers()
{
    if (!makeCurrent()) {
        return;
    }
    m_private->open->readEvents();
    glXSwapBuffers(m_private->open->display(), m_private->open->drawable());
    if (!m_private->open->pbuffer) {
        m_private->open->isResized = false;
    }
}

bool KrGlxWindowImpl::setSize(unsigned int width, unsigned int height)
{
    if (!makeCurrent() || width > Kr::Limits::kWindowSide || height > Kr::Limits::kWindowSide ||
        !KrCurrentContext::canDraw(width, height)) {
        return false;
    }
    OpenWindow& open = *m_private->open;
    // First as the client knows it: a size that the user chose a moment ago must not be fought.
    if (width == open.width && height == open.height) {
        return true;
    }
    open.readEvents();
    if (open.pbuffer) {
        OwnedPbuffer pbuffer = open.createPbuffer(width, height);
        if (!pbuffer || !open.moveTo(std::move(pbuffer))) {
            return false;
        }
    }
    // The hidden window takes the size too, for when it is shown; its word counts only when it is what is drawn.
    if (!open.resizeWindow(width, height) && !open.pbuffer) {
        return false;
    }
    open.width = width;
    open.height = height;
    open.isResized = true;
    return makeCurrent();
}

bool KrGlxWindowImpl::setPosition(int x, int y)
{
    if (!isOpen()) {
        return false;
    }
    KrXErrorTrap trap(m_private->open->display());
    XMoveWindow(m_private->open->display(), m_private->open->window.get(), x, y);
    return trap.isClean();
}

bool KrGlxWindowImpl::setHidden(bool hidden)
{
    if (!makeCurrent()) {
        return false;
    }
    OpenWindow& open = *m_private->open;
    open.readEvents();
    if (hidden == static_cast<bool>(open.pbuffer)) {
        return true;
    }
    if (hidden) {
        OwnedPbuffer pbuffer = open.createPbuffer(open.width, open.height);
        if (!pbuffer || !open.moveTo(std::move(pbuffer))) {
            return false;
        }
        KrXErrorTrap trap(open.display());
        XWithdrawWindow(open.display(), open.window.get(), DefaultScreen(open.display()));
        return trap.isClean();
    }
    return open.show() && open.moveTo(OwnedPbuffer());
}

bool KrGlxWindowImpl::setTopMost(bool topMost)
{
    return isOpen() && m_private->open->setTopMost(topMost, !m_private->open->pbuffer);
}

bool KrGlxWindowImpl::setTitle(const std::string& name)
{
    if (!isOpen()) {
        return false;
    }
    KrXErrorTrap trap(m_private->open->display());
    m_private->open->setTitle(name);
    return trap.isClean();
}

bool KrGlxWindowImpl::isStereoSupported() const
{
    return isOpen() && m_private->open->isStereo;
}

unsigned int KrGlxWindowImpl::defaultFramebuffer() const
{
    return 0;
}

void KrGlxWindowImpl::size(unsigned int& width, unsigned int& height) const
{
    width = isOpen() ? m_private->open->width : 0;
    height = isOpen() ? m_private->open->height : 0;
}

bool KrGlxWindowImpl::isCloseRequested() const
{
    return isOpen() && m_private->open->isCloseRequested;
}

bool KrGlxWindowImpl::isMinimised() const
{
    return isOpen() && m_private->open->isMinimised;
}

bool KrGlxWindowImpl::isLost() const
{
    return isOpen() && m_private->open->connection->isLost();
}

bool KrGlxWindowImpl::minimise()
{
    if (!isOpen() || isLost() || m_private->open->pbuffer) {
        return false;
    }
    Display* display = m_private->open->display();
    KrXErrorTrap trap(display);
    return XIconifyWindow(display, m_private->open->window.get(), DefaultScreen(display)) != 0 && trap.isClean();
}

bool KrGlxWindowImpl::nextEvent(KrWindowEvent& event)
{
    if (!isOpen()) {
        return false;
    }
    OpenWindow& open = *m_private->open;
    open.listen();
    if (open.nextEvent == open.events.size()) {
        open.events.clear(); // keeps its memory
        open.nextEvent = 0;
        open.readEvents();
    }
    if (open.nextEvent == open.events.size()) {
        return false;
    }
    event = open.events[open.nextEvent++];
    return true;
}

bool KrGlxWindowImpl::waitForEvent(double seconds)
{
    using Clock = std::chrono::steady_clock;
    if (!isOpen()) {
        return false;
    }
    OpenWindow& open = *m_private->open;
    open.listen();
    const Clock::time_point end = Clock::now() + std::chrono::microseconds(std::llround(1e6 * seconds));
    while (!isLost()) {
        // Events of other windows on the connection stay in Xlib's queue: only what is new on the wire wakes.
        open.readEvents();
        if (open.nextEvent < open.events.size()) {
            return true;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd wire = {ConnectionNumber(open.display()), POLLIN, 0};
        if (left < 0 || poll(&wire, 1, static_cast<int>(left)) <= 0) {
            return false;
        }
    }
    return false;
}
