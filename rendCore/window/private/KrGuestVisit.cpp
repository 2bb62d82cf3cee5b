#include <rendCore/window/private/KrGuestVisit.h>

#include <toolkit/context/KrWindowImpl.h>
#include <toolkit/guest/KrClientState.h>
#include <toolkit/window/KrWindow.h>

#include <utility>

KrGuestVisit::KrGuestVisit(std::shared_ptr<KrClientState> state, KrWindow& window)
    : m_window(window)
{
    // A frame within a frame of the same context finds the library's state in place.
    if (state && !state->isEntered()) {
        m_state = std::move(state);
        m_state->enter(window.getImpl()->defaultFramebuffer());
    }
}

// A callback in the frame may have left another context current, or closed the window.
KrGuestVisit::~KrGuestVisit()
{
    const bool isThere =
        m_state && m_window.isInitialized() && (m_window.getImpl()->isCurrent() || m_window.makeCurrent());
    // Without the context there is nothing to put back into.
    if (isThere) {
        m_state->leave();
    }
}
