#include <toolkit/context/private/KrXErrorTrap.h>

#include <X11/Xlib.h>

#include <mutex>

namespace
{

// Guarded by trapMutex(): Xlib's handler has no user pointer.
KrXErrorTrap* s_innermost = nullptr;
XErrorHandler s_handlerBefore = nullptr;

// Recursive: traps lie inside each other, and the handler runs in the thread that waits.
std::recursive_mutex& trapMutex()
{
    static std::recursive_mutex s_mutex;
    return s_mutex;
}

int handle(Display* display, XErrorEvent* event)
{
    const std::lock_guard<std::recursive_mutex> lock(trapMutex());
    if (KrXErrorTrap::keep(display, event->error_code, event->request_code, event->minor_code)) {
        return 0;
    }
    return s_handlerBefore ? s_handlerBefore(display, event) : 0;
}

} // namespace

// Xlib's handler is one for the process, so the trap holds a lock for as long as it lives.
KrXErrorTrap::KrXErrorTrap(void* display)
    : m_display(display)
{
    trapMutex().lock();
    XSync(static_cast<Display*>(display), False); // earlier errors are somebody else's
    // Traps form a chain, so that an error reaches the innermost one of its display.
    m_outer = s_innermost;
    if (!m_outer) {
        s_handlerBefore = XSetErrorHandler(handle);
    }
    s_innermost = this;
}

KrXErrorTrap::~KrXErrorTrap()
{
    // Errors come later than the requests that cause them; those of this trap's time are waited for.
    XSync(static_cast<Display*>(m_display), False);
    s_innermost = m_outer;
    // An error is not forgotten with its trap: the next outer one of the display has it.
    if (m_code != 0) {
        keep(m_display, m_code, m_request, m_minorRequest);
    }
    if (!m_outer) {
        XSetErrorHandler(s_handlerBefore);
    }
    trapMutex().unlock();
}

bool KrXErrorTrap::keep(void* display, unsigned char code, unsigned char request, unsigned char minorRequest)
{
    // Another display's errors are not this trap's.
    for (KrXErrorTrap* trap = s_innermost; trap; trap = trap->m_outer) {
        if (trap->m_display != display) {
            continue;
        }
        if (trap->m_code == 0) {
            trap->m_code = code;
            trap->m_request = request;
            trap->m_minorRequest = minorRequest;
        }
        return true;
    }
    return false;
}

// The first error of the trap's time, in Xlib's words, with the request that caused it; empty for none.
std::string KrXErrorTrap::error()
{
    // Asked for, errors that are still under way are waited for.
    auto* display = static_cast<Display*>(m_display);
    XSync(display, False);
    if (m_code == 0) {
        return std::string();
    }
    char text[128] = "";
    XGetErrorText(display, m_code, text, sizeof text);
    return std::string(text) + ", request " + std::to_string(m_request) + "." + std::to_string(m_minorRequest);
}
