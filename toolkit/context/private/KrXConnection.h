#pragma once

#include <memory>
#include <string>

// Xlib's own type, without Xlib's macros (None, Bool, Status), which break other people's headers.
struct _XDisplay;

/// A connection to an X server, and what becomes of the process when it breaks: nothing. Xlib would end it.
///
/// Connections of the client's are not touched: for them Xlib does what it did before.
class KrXConnection
{
public:
    /// A connection to the server that DISPLAY names, nobody else's; null when none answers.
    ///
    /// The last one to be let go stays open for the next caller: a virtual server starts over, and answers nobody
    /// meanwhile, when its last client leaves, and Mesa loads its driver anew for every first connection.
    static std::shared_ptr<KrXConnection> acquire();

    ~KrXConnection();
    KrXConnection(const KrXConnection&) = delete;
    KrXConnection& operator=(const KrXConnection&) = delete;

    /// Owned by the connection.
    _XDisplay* display() const { return m_display; }
    /// True once the server has gone. Xlib's calls do nothing then.
    bool isLost() const { return m_isLost; }

private:
    explicit KrXConnection(_XDisplay* display, const std::string& name);
    static void release(KrXConnection* connection);
    static void lost(_XDisplay* display, void* connection);

    _XDisplay* m_display;
    std::string m_name; ///< the value of DISPLAY
    bool m_isLost = false;
};
