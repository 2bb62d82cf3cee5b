#include <toolkit/context/private/KrXConnection.h>

#include <X11/Xlib.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

namespace
{

/// Whose loss is ours to bear. Xlib's handler is one for the process and tells the display only.
struct Registry
{
    std::mutex mutex;
    std::vector<Display*> displays;
    XIOErrorHandler handlerBefore = nullptr;
};

Registry& registry()
{
    static auto& s_registry = *new Registry; // connections may be lost until the very end of the process
    return s_registry;
}

// The client may have connections of its own, whose loss it treats itself.
bool isOurs(Display* display)
{
    const std::lock_guard<std::mutex> lock(registry().mutex);
    const std::vector<Display*>& ours = registry().displays;
    return std::find(ours.begin(), ours.end(), display) != ours.end();
}

// When this returns, Xlib calls the display's exit handler: ours below, or the default one, which ends the process.
int handleLoss(Display* display)
{
    return isOurs(display) || !registry().handlerBefore ? 0 : registry().handlerBefore(display);
}

void add(Display* display)
{
    const std::lock_guard<std::mutex> lock(registry().mutex);
    registry().displays.push_back(display);
    // Stays for good: a handler that the client sets later may call it.
    static const bool s_isInstalled = [] {
        registry().handlerBefore = XSetIOErrorHandler(handleLoss);
        return true;
    }();
    static_cast<void>(s_isInstalled);
}

// After closing: until then a loss is ours.
void remove(Display* display)
{
    const std::lock_guard<std::mutex> lock(registry().mutex);
    std::vector<Display*>& ours = registry().displays;
    ours.erase(std::remove(ours.begin(), ours.end(), display), ours.end());
}

/// The connection that waits for its next user: opening a display takes long.
struct Idle
{
    std::mutex mutex;
    std::unique_ptr<KrXConnection> connection;
};

Idle& idle()
{
    static auto& s_idle = *new Idle; // closed by the end of the process: Mesa may be gone before a destructor runs
    return s_idle;
}

// As XOpenDisplay reads it; a changed variable asks for another connection.
std::string displayName()
{
    const char* name = std::getenv("DISPLAY");
    return name ? name : "";
}

} // namespace

// One connection waits at most; windows that are open at the same time have more.
std::shared_ptr<KrXConnection> KrXConnection::acquire()
{
    std::unique_ptr<KrXConnection> connection;
    {
        const std::lock_guard<std::mutex> lock(idle().mutex);
        connection = std::move(idle().connection);
    }
    // Outside the lock: a server that does not answer must not hold up other threads.
    const std::string name = displayName();
    if (connection) {
        XSync(connection->m_display, True); // the last user's events go, and a loss is noticed
        if (connection->m_isLost || connection->m_name != name) {
            connection.reset();
        }
    }
    if (!connection) {
        if (Display* display = XOpenDisplay(nullptr)) {
            connection.reset(new KrXConnection(display, name));
        }
    }
    if (!connection) {
        return nullptr;
    }
    // The last user hands it back instead of closing it.
    return {connection.release(), release};
}

// A lost connection is of no use to the next window.
void KrXConnection::release(KrXConnection* connection)
{
    std::unique_ptr<KrXConnection> unneeded(connection);
    const std::lock_guard<std::mutex> lock(idle().mutex);
    if (!connection->m_isLost) {
        std::swap(idle().connection, unneeded); // the one that waited before is closed
    }
}

KrXConnection::KrXConnection(Display* display, const std::string& name)
    : m_display(display)
    , m_name(name)
{
    // Before the exit handler is set: a loss in between must be known as ours.
    add(m_display);
    XSetIOErrorExitHandler(m_display, lost, this);
}

KrXConnection::~KrXConnection()
{
    XCloseDisplay(m_display);
    remove(m_display);
}

void KrXConnection::lost(Display*, void* connection)
{
    static_cast<KrXConnection*>(connection)->m_isLost = true;
}
