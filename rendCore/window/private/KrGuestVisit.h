#pragma once

#include <memory>

class KrClientState;
class KrWindow;

/// The library's stay in a client's context: from construction to destruction the library's state is in place. For use
/// inside the library.
class KrGuestVisit
{
public:
    /// @param state   null for a context that is the library's own: nothing is done
    /// @param window  open and current; asked for the framebuffer to draw into
    /// A visit inside another one of the same state does nothing.
    KrGuestVisit(std::shared_ptr<KrClientState> state, KrWindow& window);
    KrGuestVisit(const KrGuestVisit&) = delete;
    KrGuestVisit& operator=(const KrGuestVisit&) = delete;
    ~KrGuestVisit();

private:
    std::shared_ptr<KrClientState> m_state; ///< null when there is nothing to put back
    KrWindow& m_window;
};
