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
    if (m_window && getState()) {
        m_release(*getState());
    }
    m_window = nullptr;
}

std::shared_ptr<KrClientState> KrContextWindow::clientStateOf(osg::GraphicsContext* context)
{
    const auto* const window = dynamic_cast<const KrContextWindow*>(context);
    return window ? window->clientState() : nullptr;
}
