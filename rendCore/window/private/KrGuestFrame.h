#pragma once

#include <rendCore/window/private/KrContextRestorer.h>

#include <toolkit/context/KrExternalWindowImpl.h>

#include <optional>

namespace osgViewer
{
class Viewer;
}

/// A frame that a window draws in its client's context: when it goes, what was current before it is current again.
///
/// Nothing for a window with a context of the library's own. For use inside the library.
class KrGuestFrame
{
public:
    /// @param window  borrowed until this goes
    explicit KrGuestFrame(KrWindow& window)
        : m_window(window)
    {
        if (dynamic_cast<KrExternalWindowImpl*>(window.getImpl())) {
            m_restorer.emplace(&window);
        }
    }
    KrGuestFrame(const KrGuestFrame&) = delete;
    KrGuestFrame& operator=(const KrGuestFrame&) = delete;
    ~KrGuestFrame()
    {
        KrWindowImpl* const impl = m_window.getImpl();
        if (m_restorer && impl && !KrForkGuard::isForked() && !m_before.isStillCurrent()) {
            impl->releaseCurrent(); // the client keeps a record of its own
        }
    }

    /// What `viewer` has drawn into the client's framebuffer on an opaque background is opaque everywhere afterwards.
    ///
    /// Blending lowers the alpha of what it is blended over. On a screen nobody sees that; a client that puts the frame
    /// together with pictures of its own would see through it. The context is current.
    static void makeOpaque(osgViewer::Viewer& viewer);

private:
    KrWindow& m_window;
    std::optional<KrContextRestorer> m_restorer;
    KrCurrentContext m_before;
};
