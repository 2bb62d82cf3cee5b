#include <toolkit/context/private/KrGlxWindow.h>

#include <toolkit/context/private/KrCurrentContext.h>
#include <toolkit/context/private/KrXErrorTrap.h>

#include <X11/Xatom.h>
#include <X11/Xutil.h>

#include <unistd.h>

namespace
{

constexpr useconds_t kPollMicroseconds = 5000;
constexpr int kPolls = 200; // one second, for a window manager to answer in

} // namespace

void KrGlxWindow::destroy()
{
    // A context that is destroyed while it is current lives on until it is not.
    if (isCurrent()) {
        KrCurrentContext::leaveGlx();
    }
    if (!connection) {
        return;
    }
    // The server may have closed some of them already.
    const KrXErrorTrap trap(display());
    // In the reverse order of making: what draws before what it is drawn into.
    pbuffer = OwnedPbuffer();
    glxWindow = OwnedGlxWindow();
    context = OwnedContext();
    window = OwnedWindow();
    colormap = OwnedColormap();
}

bool KrGlxWindow::makeCurrent()
{
    if (connection->isLost()) {
        return false;
    }
    // Without a swap the buffers keep their size until the GLX window is made anew.
    if (isResized && !pbuffer) {
        renewGlxWindow();
    }
    if (isCurrent() && glXGetCurrentDrawable() == drawable() && glXGetCurrentReadDrawable() == drawable()) {
        return true;
    }
    // The other API's context goes first, so that a thread never has one of each.
    KrCurrentContext::leaveEgl();
    KrXErrorTrap trap(display());
    return glXMakeContextCurrent(display(), drawable(), drawable(), context.get()) && trap.isClean();
}

void KrGlxWindow::renewGlxWindow()
{
    if (isCurrent()) {
        KrCurrentContext::leaveGlx();
    }
    isResized = false;
    const KrXErrorTrap trap(display());
    glxWindow = OwnedGlxWindow(); // an X window has one at a time
    glxWindow = OwnedGlxWindow(display(), glXCreateWindow(display(), config, window.get(), nullptr));
}

OwnedPbuffer KrGlxWindow::createPbuffer(unsigned int pixelWidth, unsigned int pixelHeight) const
{
    const int size[] = {GLX_PBUFFER_WIDTH, static_cast<int>(pixelWidth), GLX_PBUFFER_HEIGHT,
                        static_cast<int>(pixelHeight),
                        // The contents stay when the server runs short of memory.
                        GLX_PRESERVED_CONTENTS, True, None};
    KrXErrorTrap trap(display());
    OwnedPbuffer created(display(), glXCreatePbuffer(display(), config, size));
    return trap.isClean() ? std::move(created) : OwnedPbuffer();
}

bool KrGlxWindow::moveTo(OwnedPbuffer target)
{
    // Swapped in, and back where that fails, so that the window always has something to draw into.
    std::swap(pbuffer, target);
    if (makeCurrent()) {
        return true;
    }
    std::swap(pbuffer, target);
    makeCurrent();
    return false;
}

bool KrGlxWindow::createWindow(const KrWindowImpl::Settings& settings)
{
    const std::unique_ptr<XVisualInfo, int (*)(void*)> visual(glXGetVisualFromFBConfig(display(), config), &XFree);
    if (!visual) {
        return false;
    }
    const Window root = RootWindow(display(), visual->screen);
    // A visual other than the root's needs a colour map of its own, and a border pixel, or the server refuses the
    // window.
    colormap = OwnedColormap(display(), XCreateColormap(display(), root, visual->visual, AllocNone));

    XSetWindowAttributes attributes = {};
    attributes.colormap = colormap.get();
    attributes.event_mask = StructureNotifyMask;
    window = OwnedWindow(display(), XCreateWindow(display(), root, settings.x, settings.y, settings.width,
                                                  settings.height, 0, visual->depth, InputOutput, visual->visual,
                                                  CWBorderPixel | CWColormap | CWEventMask, &attributes));
    glxWindow = OwnedGlxWindow(display(), glXCreateWindow(display(), config, window.get(), nullptr));

    // As from the user: window managers place a window themselves otherwise.
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

void KrGlxWindow::setTitle(const std::string& title) const
{
    // Twice: in Latin-1 for old window managers, in UTF-8 for the others.
    XStoreName(display(), window.get(), title.c_str());
    XChangeProperty(display(), window.get(), atom("_NET_WM_NAME"), atom("UTF8_STRING"), 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(title.data()), static_cast<int>(title.size()));
}

// As the conventions of window managers have it (EWMH, _NET_WM_STATE).
bool KrGlxWindow::setTopMost(bool topMost, bool isMapped) const
{
    const Atom state = atom("_NET_WM_STATE");
    const Atom above = atom("_NET_WM_STATE_ABOVE");
    KrXErrorTrap trap(display());
    // Before the window is mapped its state is a property; from then on the window manager keeps it and takes requests.
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

// Waits until the window is there, since drawing begins right after.
bool KrGlxWindow::show() const
{
    KrXErrorTrap trap(display());
    XMapWindow(display(), window.get());
    XWindowAttributes now = {};
    // The window manager decides when; drawing before that would be lost.
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

// Waits for the window manager's answer; the size that a client reads afterwards is the real one.
bool KrGlxWindow::resizeWindow(unsigned int pixelWidth, unsigned int pixelHeight) const
{
    KrXErrorTrap trap(display());
    XResizeWindow(display(), window.get(), pixelWidth, pixelHeight);
    XWindowAttributes now = {};
    // A window manager may refuse or round the size; what counts is what the window has in the end.
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
    // Back to what it was, so that a refusal leaves the window alone.
    XResizeWindow(display(), window.get(), width, height);
    return false;
}
