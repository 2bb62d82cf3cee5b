#include <toolkit/context/KrGlxWindowImpl.h>

#include <toolkit/context/private/KrCurrentContext.h>
#include <toolkit/context/private/KrForkGuard.h>
#include <toolkit/context/private/KrGlxOpening.h>
#include <toolkit/context/private/KrGlxWindow.h>
#include <toolkit/context/private/KrXErrorTrap.h>
#include <toolkit/foundation/KrLimits.h>

#include <X11/Xutil.h>

#include <poll.h>

#include <chrono>
#include <cmath>
#include <utility>

// Behind a pointer, so that clients of the header need no headers of X, which make macros of common words.
struct KrGlxWindowImpl::Private
{
    unsigned int samples = 0;
    std::unique_ptr<KrGlxWindow> open;
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

// On success the context is current when this returns.
bool KrGlxWindowImpl::open(const Settings& settings, KrWindowImpl* share, KrWindowReport& report)
{
    // An object can be opened again.
    close();
    // Restored on failure: an attempt switches contexts.
    const KrCurrentContext before;
    // A window of another kind shares nothing; KrWindow has asked before.
    const auto* sharing = dynamic_cast<const KrGlxWindowImpl*>(share);
    m_private->open =
        KrGlxOpening::run(settings, sharing ? sharing->m_private->open.get() : nullptr, m_private->samples, report);
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
    // Deleting the context takes making it current, so that its objects are freed; the client's comes back.
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
    // Read here, so that a program which never asks for events still notices a new size.
    m_private->open->readEvents();
    glXSwapBuffers(m_private->open->display(), m_private->open->drawable());
    // A swap brings the buffers to the new size by itself.
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
    KrGlxWindow& open = *m_private->open;
    // First as the client knows it: a size that the user chose a moment ago must not be fought.
    if (width == open.width && height == open.height) {
        return true;
    }
    open.readEvents();
    if (open.pbuffer) {
        // Made and moved to before anything is noted: on failure the window keeps its old pixels.
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

// In pixels from the screen's upper left corner; the window manager may place the window otherwise.
bool KrGlxWindowImpl::setPosition(int x, int y)
{
    if (!isOpen()) {
        return false;
    }
    // Errors of X come later and end the process by default; the trap waits for them.
    KrXErrorTrap trap(m_private->open->display());
    XMoveWindow(m_private->open->display(), m_private->open->window.get(), x, y);
    return trap.isClean();
}

bool KrGlxWindowImpl::setHidden(bool hidden)
{
    if (!makeCurrent()) {
        return false;
    }
    KrGlxWindow& open = *m_private->open;
    open.readEvents();
    // A hidden window draws into a pbuffer, so its presence tells which it is.
    if (hidden == static_cast<bool>(open.pbuffer)) {
        return true;
    }
    // The pbuffer first: where there can be none, the window stays visible and goes on.
    if (hidden) {
        OwnedPbuffer pbuffer = open.createPbuffer(open.width, open.height);
        if (!pbuffer || !open.moveTo(std::move(pbuffer))) {
            return false;
        }
        KrXErrorTrap trap(open.display());
        XWithdrawWindow(open.display(), open.window.get(), DefaultScreen(open.display()));
        return trap.isClean();
    }
    // Shown before it is drawn into: an X window that is not mapped has no pixels.
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

// What is drawn: the pbuffer's size while the window is hidden.
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

// A window whose server has gone cannot be made current any more.
bool KrGlxWindowImpl::isLost() const
{
    return isOpen() && m_private->open->connection->isLost();
}

// By the window manager, which may refuse; isMinimised() tells what came of it.
bool KrGlxWindowImpl::minimise()
{
    // A hidden window is not on the screen, and a lost one nowhere.
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
    KrGlxWindow& open = *m_private->open;
    // Events are selected with the first question, so that programs which never ask cost the server nothing.
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

// Waits on the connection itself: Xlib's own waiting calls cannot be given an end.
bool KrGlxWindowImpl::waitForEvent(double seconds)
{
    using Clock = std::chrono::steady_clock;
    if (!isOpen()) {
        return false;
    }
    KrGlxWindow& open = *m_private->open;
    open.listen();
    // A clock that is not set back: the time left must not grow.
    const Clock::time_point end = Clock::now() + std::chrono::microseconds(std::llround(1e6 * seconds));
    while (!isLost()) {
        // Events of other windows on the connection stay in Xlib's queue: only what is new on the wire wakes.
        open.readEvents();
        if (open.nextEvent < open.events.size()) {
            return true;
        }
        // Rounded down to whole milliseconds: the wait may end a little early, never late.
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd wire = {ConnectionNumber(open.display()), POLLIN, 0};
        if (left < 0 || poll(&wire, 1, static_cast<int>(left)) <= 0) {
            return false;
        }
    }
    return false;
}
