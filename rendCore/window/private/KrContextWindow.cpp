#include <rendCore/window/private/KrContextWindow.h>

#include <toolkit/context/KrExternalWindowImpl.h>
#include <toolkit/guest/KrClientState.h>
#include <toolkit/window/KrWindow.h>

#include <utility>

KrContextWindow::KrContextWindow(Traits* traits, KrWindow& window, Release release)
    : osgViewer::GraphicsWindowEmbedded(traits)
    , m_window(&window)
    , m_release(std::move(release))
{
    // Only a client's context has a state of the client's to keep.
    if (dynamic_cast<KrExternalWindowImpl*>(window.getImpl())) {
        m_clientState = std::make_shared<KrClientState>();
    }
}

// The base destructor cannot reach the overrides any more.
KrContextWindow::~KrContextWindow()
{
    if (m_window) {
        close(true);
    }
}

bool KrContextWindow::makeCurrentImplementation()
{
    // The viewer asks for it whenever it releases something: in a place where the window
    // cannot be used nothing happens.
    return m_window != nullptr && m_window->isUsableHere() && m_window->makeCurrent();
}

bool KrContextWindow::releaseContextImplementation()
{
    KrWindowImpl* const impl = m_window ? m_window->getImpl() : nullptr;
    // A client's context stays current where it was; whoever makes it current otherwise puts back what was.
    if (impl && !m_clientState) {
        impl->releaseCurrent();
    }
    return impl != nullptr;
}

void KrContextWindow::closeImplementation()
{
    // While there is a state, and with it a context: what is released later would be another one's.
    if (m_window && getState()) {
        m_release(*getState());
    }
    // Closed for good: a window that opens again makes a new one of these.
    m_window = nullptr;
}

std::shared_ptr<KrClientState> KrContextWindow::clientStateOf(osg::GraphicsContext* context)
{
    const auto* const window = dynamic_cast<const KrContextWindow*>(context);
    return window ? window->clientState() : nullptr;
}
