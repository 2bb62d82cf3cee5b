#pragma once

#include <toolkit/context/KrWindowImpl.h>
#include <toolkit/context/private/KrCurrentContext.h>
#include <toolkit/context/private/KrForkGuard.h>
#include <toolkit/window/KrWindow.h>

/// Puts back, when it goes, the context that was current when it came. For use inside the library.
class KrContextRestorer
{
public:
    /// @param own  a window that is about to close or to draw: where its own context was current nothing is put back;
    ///             null when every context is to be put back
    explicit KrContextRestorer(const KrWindow* own)
        : m_window(KrWindow::getWindow())
        , m_wasOwn(own && isCurrent(*own))
        , m_wasWindow(m_window && m_window != own && isCurrent(*m_window))
    {
    }
    KrContextRestorer(const KrContextRestorer&) = delete;
    KrContextRestorer& operator=(const KrContextRestorer&) = delete;
    ~KrContextRestorer()
    {
        if (KrForkGuard::isForked()) {
            return; // it was current in the parent
        }
        if (m_wasWindow) {
            m_window->makeCurrent();
        } else if (!m_wasOwn) {
            m_native.restore();
        }
    }

private:
    static bool isCurrent(const KrWindow& window)
    {
        return window.isInitialized() && window.getImpl() && window.getImpl()->isCurrent();
    }

    KrCurrentContext m_native;
    KrWindow* m_window;
    bool m_wasOwn;
    bool m_wasWindow;
};
