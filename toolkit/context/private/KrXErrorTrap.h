#pragma once

#include <string>

/// Keeps X errors of one connection from ending the process, which is what Xlib does with them, while one of these is
/// alive. Errors of other connections go to the handler that was in place before. Traps nest: what an inner one kept,
/// the outer one of the same connection knows too.
///
/// Xlib has one handler in a process, so a second thread's trap waits for the first one's end. The loss of the
/// connection itself is another matter, see KrXConnection.
class KrXErrorTrap
{
public:
    /// @param display an Xlib Display; used until the trap is gone
    explicit KrXErrorTrap(void* display);
    ~KrXErrorTrap();
    KrXErrorTrap(const KrXErrorTrap&) = delete;
    KrXErrorTrap& operator=(const KrXErrorTrap&) = delete;

    /// Waits for the server and tells the first error since the trap was set: "BadAlloc (insufficient resources for
    /// operation), request 150.5"; empty when there was none.
    std::string error();
    bool isClean() { return error().empty(); }

    /// For Xlib's handler: true when the error was one for a trap.
    static bool keep(void* display, unsigned char code, unsigned char request, unsigned char minorRequest);

private:
    void* m_display;
    KrXErrorTrap* m_outer;
    unsigned char m_code = 0; ///< 0 for no error
    unsigned char m_request = 0;
    unsigned char m_minorRequest = 0;
};
