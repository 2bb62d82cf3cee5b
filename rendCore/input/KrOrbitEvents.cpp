// What mouse and keys do, of KrOrbitInputHandler.

#include <rendCore/input/KrOrbitInputHandler.h>

#include <rendCore/window/KrSGWindow.h>

#include <osg/Math>
#include <osgGA/GUIActionAdapter>
#include <osgGA/GUIEventAdapter>
#include <osgViewer/Viewer>

#include <cmath>

namespace
{

using Event = osgGA::GUIEventAdapter;

const double kTurnPerPicture = 0.5 * osg::PI; // rad for a unit of y: the picture's height is half a turn
constexpr double kZoomPerNotch = 1.15;
constexpr double kZoomPerPicture = 2.0; // of the natural logarithm, for a unit of y
constexpr double kMostNotches = 20.0;
const double kTurnPerKey = osg::PI / 36.0; // 5 degrees
constexpr double kPanPerKey = 0.05;

// Keys with and without Num Lock, and letters with and without Shift, do the same.
int withoutKeypad(int key)
{
    switch (key) {
    case Event::KEY_KP_1:
        return '1';
    case Event::KEY_KP_3:
        return '3';
    case Event::KEY_KP_5:
        return '5';
    case Event::KEY_KP_7:
        return '7';
    case Event::KEY_KP_Add:
    case '=': // the same key, without Shift
        return '+';
    case Event::KEY_KP_Subtract:
        return '-';
    default:
        return key >= 'A' && key <= 'Z' ? key - 'A' + 'a' : key;
    }
}

bool isArrow(int key)
{
    return key == Event::KEY_Left || key == Event::KEY_Right || key == Event::KEY_Up || key == Event::KEY_Down;
}

// Upwards is positive; a touch pad sends parts of a notch, and at times very many at once.
double notches(const Event& event)
{
    switch (event.getScrollingMotion()) {
    case Event::SCROLL_UP:
        return 1.0;
    case Event::SCROLL_DOWN:
        return -1.0;
    case Event::SCROLL_2D:
        return osg::clampBetween(static_cast<double>(event.getScrollingDeltaY()), -kMostNotches, kMostNotches);
    default:
        return 0.0;
    }
}

} // namespace

const char* KrOrbitInputHandler::bindings()
{
    return "left drag                    orbit\n"
           "middle drag, Shift+left drag pan\n"
           "wheel                        zoom to the cursor\n"
           "+ and -                      zoom to the middle\n"
           "right drag                   zoom, upwards is nearer\n"
           "left double click            look at what was clicked, and orbit about it\n"
           "arrows, Shift+arrows         orbit, pan\n"
           "f                            fit everything into the picture\n"
           "h, Home, space               home\n"
           "1 3 7, with Ctrl             front, right, top; back, left, bottom, and fit\n"
           "5                            perspective or parallel projection\n";
}

bool KrOrbitInputHandler::handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    // Somebody before has used it.
    if (event.getHandled()) {
        return false;
    }
    const bool isUsed = event.getEventType() == Event::KEYDOWN ? handleKey(event) : handlePointer(event);
    // Others may want it: nothing is drawn for it here.
    if (!isUsed) {
        return false;
    }
    // Within a frame: its near and far planes were those of the point of view before.
    // Where the event came from another viewer the window's next frame does it.
    if (window() && window()->getViewer() == &action) {
        window()->updateScene();
    }
    action.requestRedraw();
    return true;
}

bool KrOrbitInputHandler::handlePointer(const osgGA::GUIEventAdapter& event)
{
    const osg::Vec2d at = position(event);
    const double x = at.x();
    const double y = at.y();
    if (!std::isfinite(x) || !std::isfinite(y)) {
        return false; // a window without a size
    }
    // A drag goes on beyond the tile in which it began.
    const bool isInTile = std::abs(x) <= 1.0 && std::abs(y) <= 1.0;
    if (!isInTile && tile() && m_drag == Drag::None) {
        return false; // over another view
    }
    switch (event.getEventType()) {
    case Event::PUSH:
        beginDrag(event);
        return m_drag != Drag::None;
    case Event::DRAG:
        drag(x, y);
        return m_drag != Drag::None;
    case Event::RELEASE:
        m_drag = Drag::None;
        return false;
    case Event::DOUBLECLICK:
        m_drag = Drag::None;
        // A double click begins with a single one, whose drag it ends.
        return event.getButton() == Event::LEFT_MOUSE_BUTTON && centerOnSurface(x, y);
    case Event::SCROLL:
        if (notches(event) == 0.0) {
            return false;
        }
        zoomAt(std::pow(kZoomPerNotch, notches(event)), x, y);
        return true;
    default:
        return false;
    }
}

void KrOrbitInputHandler::beginDrag(const osgGA::GUIEventAdapter& event)
{
    const bool isShifted = (event.getModKeyMask() & Event::MODKEY_SHIFT) != 0;
    switch (event.getButton()) {
    case Event::LEFT_MOUSE_BUTTON:
        m_drag = isShifted ? Drag::Pan : Drag::Orbit;
        break;
    case Event::MIDDLE_MOUSE_BUTTON:
        m_drag = Drag::Pan;
        break;
    case Event::RIGHT_MOUSE_BUTTON:
        m_drag = Drag::Zoom;
        break;
    default:
        m_drag = Drag::None;
        break;
    }
    const osg::Vec2d at = position(event);
    // Also for a button that drags nothing: the next motion is measured from here.
    m_firstX = m_lastX = at.x();
    m_firstY = m_lastY = at.y();
}

void KrOrbitInputHandler::drag(double x, double y)
{
    // From event to event: a drag that was missed in part is caught up with by the next.
    const double dx = x - m_lastX;
    const double dy = y - m_lastY;
    m_lastX = x;
    m_lastY = y;
    switch (m_drag) {
    case Drag::Orbit:
        // The near side of the scene goes along with the cursor, so the eye goes the other way.
        orbit(-dx * aspectRatio() * kTurnPerPicture, -dy * kTurnPerPicture);
        break;
    case Drag::Pan:
        pan(dx, dy);
        break;
    case Drag::Zoom:
        // About where the drag began: the cursor itself moves.
        zoomAt(std::exp(kZoomPerPicture * dy), m_firstX, m_firstY);
        break;
    case Drag::None:
        break;
    }
}

bool KrOrbitInputHandler::handleKey(const osgGA::GUIEventAdapter& event)
{
    const int key = withoutKeypad(event.getKey());
    const bool isControl = (event.getModKeyMask() & Event::MODKEY_CTRL) != 0;
    // Ctrl means the opposite side, half a turn about the axis.
    const double side = isControl ? osg::PI : 0.0;
    switch (key) {
    case '1':
        lookFrom(side, 0.0);
        fit();
        return true;
    case '3':
        lookFrom(side - osg::PI_2, 0.0);
        fit();
        return true;
    case '7':
        lookFrom(-osg::PI_2, isControl ? -osg::PI_2 : osg::PI_2);
        fit();
        return true;
    default:
        break;
    }
    // Ctrl with other keys is the application's.
    if (isControl) {
        return false;
    }
    switch (key) {
    case '5':
        setParallel(!isParallel());
        // Without a window there is no projection to change.
        return window() != nullptr;
    case 'f':
        return fit();
    case 'h':
    case ' ':
    case Event::KEY_Home:
        home();
        return true;
    case '+':
    case '-':
        zoomAt(key == '+' ? kZoomPerNotch : 1.0 / kZoomPerNotch, 0.0, 0.0);
        return true;
    default:
        return isArrow(key) && handleArrow(key, (event.getModKeyMask() & Event::MODKEY_SHIFT) != 0);
    }
}

bool KrOrbitInputHandler::handleArrow(int key, bool isPan)
{
    const double x = key == Event::KEY_Left ? -1.0 : key == Event::KEY_Right ? 1.0 : 0.0;
    const double y = key == Event::KEY_Down ? -1.0 : key == Event::KEY_Up ? 1.0 : 0.0;
    // In units of half the picture, so that a step looks the same at every distance.
    if (isPan) {
        pan(x * kPanPerKey, y * kPanPerKey);
    } else {
        // As a drag in that direction.
        orbit(-x * kTurnPerKey, -y * kTurnPerKey);
    }
    return true;
}
