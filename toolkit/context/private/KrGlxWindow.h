#pragma once

#include <toolkit/context/KrWindowEvent.h>
#include <toolkit/context/KrWindowImpl.h>
#include <toolkit/context/private/KrXConnection.h>

#include <GL/glx.h>
#include <X11/Xlib.h>

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

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

/// A context, its window on the screen, and while hidden its pbuffer. Members go in reverse order. For use inside the
/// library.
struct KrGlxWindow
{
    KrGlxWindow() = default;
    KrGlxWindow(const KrGlxWindow&) = delete;
    KrGlxWindow& operator=(const KrGlxWindow&) = delete;
    ~KrGlxWindow() { destroy(); }

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

    Display* display() const { return connection->display(); }
    GLXDrawable drawable() const { return pbuffer ? pbuffer.get() : glxWindow.get(); }
    bool isCurrent() const { return context && glXGetCurrentContext() == context.get(); }
    Atom atom(const char* name) const { return XInternAtom(display(), name, False); }

    /// Everything goes but the connection.
    void destroy();
    /// Also after the user has resized the window. False when the server is gone.
    bool makeCurrent();
    /// Drivers ask for the size of what they draw into when it is new and when it is swapped, and at no other time for
    /// sure: frames that are not swapped would go on having the old size.
    void renewGlxWindow();
    /// None when there can be none of that size.
    OwnedPbuffer createPbuffer(unsigned int pixelWidth, unsigned int pixelHeight) const;
    /// Draws into `target` from now on; false leaves everything as it was.
    bool moveTo(OwnedPbuffer target);
    /// Not shown yet. False when the configuration has no visual.
    bool createWindow(const KrWindowImpl::Settings& settings);
    /// @param title  UTF-8
    void setTitle(const std::string& title) const;
    /// A mapped window asks the window manager; an unmapped one only leaves word for when it is mapped.
    bool setTopMost(bool topMost, bool isMapped) const;
    /// Waits until it is on the screen, a second at most. False when it is gone.
    bool show() const;
    /// False when the window manager, or the server, gives another size; the window then has its old one.
    bool resizeWindow(unsigned int pixelWidth, unsigned int pixelHeight) const;

    // KrGlxWindowEvents.cpp
    /// Begins to take mouse and keys.
    void listen();
    /// Takes what has come, without waiting; what somebody listens for goes to `events`.
    void readEvents();

private:
    void readEvent(XEvent& event);
    void tell(const KrWindowEvent& event);
    void tellResize(const XConfigureEvent& event);
    void tellKey(XKeyEvent& event);
    void tellButton(const XButtonEvent& event);
    void tellMotion(const XMotionEvent& event);
};
