#include <rendCore/input/KrWindowInput.h>

#include <rendCore/system/KrMultiRenderWindow.h>

#include <toolkit/context/KrGlxWindowImpl.h>

#include <osg/Timer>
#include <osgGA/EventQueue>
#include <osgGA/GUIEventAdapter>
#include <osgViewer/Viewer>

#include <algorithm>
#include <chrono>
#include <thread>

namespace
{

using Kind = KrWindowEvent::Kind;
using Adapter = osgGA::GUIEventAdapter;

constexpr double kLongestWait = 1e6; // s

osgGA::EventQueue* queueOf(const KrSGWindow& window)
{
    osgViewer::Viewer* const viewer = window.getViewer();
    auto* const context =
        viewer ? dynamic_cast<osgViewer::GraphicsWindow*>(viewer->getCamera()->getGraphicsContext()) : nullptr;
    // Null for a context without events: an off-screen one that a client has put in.
    return context ? context->getEventQueue() : nullptr;
}

int modifierMask(const KrWindowEvent& event)
{
    int mask = 0;
    mask |= event.modifiers & KrWindowEvent::Shift ? int(Adapter::MODKEY_LEFT_SHIFT) : 0;
    mask |= event.modifiers & KrWindowEvent::Control ? int(Adapter::MODKEY_LEFT_CTRL) : 0;
    mask |= event.modifiers & KrWindowEvent::Alt ? int(Adapter::MODKEY_LEFT_ALT) : 0;
    return mask;
}

/// @param time  on the viewer's clock, s: it takes no event of the future
void enqueue(const KrWindowEvent& event, osgGA::EventQueue& queue, double time)
{
    const auto x = static_cast<float>(event.x);
    const auto y = static_cast<float>(event.y);
    // Before the event: it is stamped with the state of that moment.
    queue.getCurrentEventState()->setModKeyMask(static_cast<unsigned int>(modifierMask(event)));
    switch (event.kind) {
    case Kind::KeyDown:
        queue.keyPress(static_cast<int>(event.key), time);
        break;
    case Kind::KeyUp:
        queue.keyRelease(static_cast<int>(event.key), time);
        break;
    case Kind::ButtonDown:
        if (event.isDoubleClick) {
            queue.mouseDoubleButtonPress(x, y, event.button, time);
        } else {
            queue.mouseButtonPress(x, y, event.button, time);
        }
        break;
    case Kind::ButtonUp:
        queue.mouseButtonRelease(x, y, event.button, time);
        break;
    case Kind::Motion:
        queue.mouseMotion(x, y, time);
        break;
    case Kind::Wheel:
        // A scroll tells no place of its own: the state's counts.
        queue.getCurrentEventState()->setX(x);
        queue.getCurrentEventState()->setY(y);
        queue.mouseScroll(event.wheel > 0 ? Adapter::SCROLL_UP : Adapter::SCROLL_DOWN, time);
        break;
    default:
        break;
    }
}

/// Whether that changed anything. The size of a window of several views is that of one of them.
bool fit(KrSGWindow& window, unsigned int width, unsigned int height)
{
    // What the user drags is the whole window.
    if (auto* const views = dynamic_cast<KrMultiRenderWindow*>(&window)) {
        return views->shareOut(width, height);
    }
    window.setWindowSize(width, height);
    return true;
}

} // namespace

KrWindowInput::KrWindowInput(KrSGWindow& window)
    : m_window(window)
{
}

KrGlxWindowImpl* KrWindowInput::impl() const
{
    return m_window.isInitialized() ? dynamic_cast<KrGlxWindowImpl*>(m_window.getImpl()) : nullptr;
}

bool KrWindowInput::take()
{
    KrGlxWindowImpl* const glx = impl();
    osgGA::EventQueue* const queue = queueOf(m_window);
    // Without a screen there is no input; the window is drawn by whoever asks for frames.
    if (!glx || !queue) {
        return false;
    }
    const osg::Timer& timer = *osg::Timer::instance();
    bool isDue = false;
    KrWindowEvent event;
    // All that have come since the last frame, so that none lags behind.
    while (glx->nextEvent(event)) {
        // Motion without a button changes nothing that is drawn: only the place is recorded, and no frame is due.
        if (event.kind == Kind::Motion && !m_isHeld) {
            queue->getCurrentEventState()->setX(static_cast<float>(event.x));
            queue->getCurrentEventState()->setY(static_cast<float>(event.y));
            continue;
        }
        if (event.kind == Kind::ButtonDown || event.kind == Kind::ButtonUp) {
            // Of several buttons the last one counts: what matters is whether motion is a drag.
            m_isHeld = event.kind == Kind::ButtonDown;
        }
        // Stamped with the time of taking, which is never ahead of the frame that handles it.
        enqueue(event, *queue, timer.delta_s(m_window.getViewer()->getStartTick(), timer.tick()));
        isDue = true;
    }
    unsigned int width = 0;
    unsigned int height = 0;
    // Asked once for all resizes of a frame: a drag of the border sends many.
    glx->size(width, height);
    if (width != std::max(1u, m_window.windowWidth()) || height != std::max(1u, m_window.windowHeight())) {
        isDue = fit(m_window, width, height) || isDue;
    }
    return isDue;
}

bool KrWindowInput::wait(double seconds)
{
    const double limited = seconds > 0.0 ? std::min(seconds, kLongestWait) : 0.0; // no number is no time
    KrGlxWindowImpl* const glx = impl();
    if (glx && !glx->isLost()) {
        return glx->waitForEvent(limited);
    }
    // Nothing can happen, but whoever loops about this must not run at full load.
    std::this_thread::sleep_for(std::chrono::duration<double>(limited));
    return false;
}

bool KrWindowInput::isCloseRequested() const
{
    // A window that is closed asks for nothing more, and whoever loops about it must end.
    if (!m_window.isInitialized()) {
        return true;
    }
    const KrGlxWindowImpl* const glx = impl();
    return glx && (glx->isCloseRequested() || glx->isLost());
}
