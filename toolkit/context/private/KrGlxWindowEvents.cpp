// What the user and the window manager do to a window, of KrGlxWindow.

#include <toolkit/context/private/KrGlxWindow.h>

#include <toolkit/context/private/KrXErrorTrap.h>

#include <X11/Xutil.h>

#include <cstdint>
#include <cstdlib>

namespace
{

// As desktops have it by default; X itself knows no double click.
constexpr Time kDoubleClickMs = 400;
constexpr int kDoubleClickPixels = 4;

// Keyboard mappings are told to everybody; somebody must take them out of the queue.
Bool isForWindow(Display*, XEvent* event, XPointer window)
{
    return event->type == MappingNotify || event->xany.window == *reinterpret_cast<const Window*>(window);
}

// Mod1 is Alt on all common keyboards.
std::uint32_t modifiersOf(unsigned int state)
{
    return (state & ShiftMask ? KrWindowEvent::Shift : 0u) | (state & ControlMask ? KrWindowEvent::Control : 0u) |
           (state & Mod1Mask ? KrWindowEvent::Alt : 0u);
}

} // namespace

void KrGlxWindow::listen()
{
    if (isListening) {
        return;
    }
    isListening = true;
    const KrXErrorTrap trap(display()); // another client may have the buttons; the rest is told all the same
    // Without the buttons first: a selection that the server refuses is refused whole.
    XSelectInput(display(), window.get(),
                 StructureNotifyMask | ExposureMask | KeyPressMask | KeyReleaseMask | PointerMotionMask);
    XSelectInput(display(), window.get(),
                 StructureNotifyMask | ExposureMask | KeyPressMask | KeyReleaseMask | PointerMotionMask |
                     ButtonPressMask | ButtonReleaseMask);
}

void KrGlxWindow::readEvents()
{
    if (connection->isLost()) {
        return;
    }
    // Events of other windows on the connection stay in the queue for them.
    Window own = window.get();
    XEvent event;
    while (XCheckIfEvent(display(), &event, isForWindow, reinterpret_cast<XPointer>(&own))) {
        readEvent(event);
    }
}

// States are noted whether anybody listens or not; events are only told to listeners.
void KrGlxWindow::readEvent(XEvent& event)
{
    switch (event.type) {
    // Xlib keeps the keyboard's mapping and has to be told when it changes.
    case MappingNotify:
        XRefreshKeyboardMapping(&event.xmapping);
        break;
    case ConfigureNotify:
        // A hidden window's own size is not what is drawn.
        if (!pbuffer) {
            tellResize(event.xconfigure);
        }
        break;
    case MapNotify:
    case UnmapNotify:
        // Hiding a window unmaps it as well, which is no minimising.
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
        // The last of several areas; the whole window is drawn in any case.
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
void KrGlxWindow::tell(const KrWindowEvent& event)
{
    using Kind = KrWindowEvent::Kind;
    if (!isListening) {
        return;
    }
    const bool isState = event.kind == Kind::Motion || event.kind == Kind::Resized || event.kind == Kind::Exposed;
    // Only into an event that nobody has read yet.
    if (isState && nextEvent < events.size() && events.back().kind == event.kind) {
        events.back() = event;
    } else {
        events.push_back(event);
    }
}

void KrGlxWindow::tellResize(const XConfigureEvent& event)
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

// Keys are told as X names them (keysyms), which are the same on every keyboard.
void KrGlxWindow::tellKey(XKeyEvent& event)
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

void KrGlxWindow::tellButton(const XButtonEvent& event)
{
    KrWindowEvent told;
    told.kind = event.type == ButtonPress ? KrWindowEvent::Kind::ButtonDown : KrWindowEvent::Kind::ButtonUp;
    told.x = event.x;
    told.y = event.y;
    told.modifiers = modifiersOf(event.state);
    if (event.button == Button4 || event.button == Button5) { // X's wheel is a pair of buttons
        told.kind = KrWindowEvent::Kind::Wheel;
        told.wheel = event.button == Button4 ? 1 : -1;
        // The release of a wheel says nothing.
        if (event.type == ButtonPress) {
            tell(told);
        }
        return;
    }
    // Sideways wheels and further buttons are told to nobody.
    if (event.button > Button3) {
        return;
    }
    told.button = event.button;
    if (event.type == ButtonPress) {
        // A third click in a row is a first one again.
        told.isDoubleClick = lastPress.button == told.button && !lastPress.isDoubleClick &&
                             event.time - lastPressTime <= kDoubleClickMs &&
                             std::abs(told.x - lastPress.x) <= kDoubleClickPixels &&
                             std::abs(told.y - lastPress.y) <= kDoubleClickPixels;
        lastPress = told;
        lastPressTime = event.time;
    }
    tell(told);
}

void KrGlxWindow::tellMotion(const XMotionEvent& event)
{
    KrWindowEvent told;
    told.kind = KrWindowEvent::Kind::Motion;
    told.x = event.x;
    told.y = event.y;
    told.modifiers = modifiersOf(event.state);
    tell(told);
}
