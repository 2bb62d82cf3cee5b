#include "KrAppView.h"

#include "KrAppAids.h"
#include "KrAppFailure.h"
#include "KrAppInterrupt.h"
#include "KrAppMessages.h"
#include "KrAppPick.h"
#include "KrAppRobot.h"

#include <picture/KrLighting.h>
#include <picture/KrMotion.h>
#include <rendCore/input/KrOrbitInputHandler.h>
#include <rendCore/input/KrWindowInput.h>
#include <toolkit/context/KrGlxWindowImpl.h>
#include <toolkit/system/KrPoseDriver.h>

#include <osgGA/GUIEventHandler>
#include <osgViewer/Viewer>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace
{

constexpr double kIdleSeconds = 1.0;          // a signal that comes just before the wait is noticed after it
constexpr std::chrono::seconds kTextTime(10); // long enough to read some numbers
constexpr float kClickPixels = 3.0f;          // that a hand moves the mouse while it clicks
// Of the window's text, pixels.
constexpr unsigned int kTextLeft = 12;
constexpr unsigned int kTextTop = 36;

/// Which state is due: time that runs, or stands still.
class Player
{
public:
    using Clock = std::chrono::steady_clock;

    /// @param schedule  when each state is due, s; last, when it begins anew
    explicit Player(std::vector<double> schedule)
        : m_schedule(std::move(schedule))
        , m_isRunning(hasMotion())
    {
    }

    // One state and the time at which it begins anew are no motion.
    bool hasMotion() const { return m_schedule.size() > 2; }
    void toggle()
    {
        m_played = played();
        m_start = Clock::now();
        m_isRunning = !m_isRunning && hasMotion();
    }
    std::size_t state() const
    {
        const auto next = std::upper_bound(m_schedule.begin(), m_schedule.end() - 1, time());
        return static_cast<std::size_t>(next - m_schedule.begin()) - 1;
    }
    /// Until the next state is due; not long.
    double secondsToNext() const
    {
        const double now = time();
        const double next = *std::upper_bound(m_schedule.begin(), m_schedule.end() - 1, now);
        return m_isRunning ? std::min(next - now, kIdleSeconds) : kIdleSeconds;
    }

private:
    /// Within one round.
    double time() const { return std::fmod(played(), m_schedule.back()); }
    double played() const
    {
        return m_played + (m_isRunning ? std::chrono::duration<double>(Clock::now() - m_start).count() : 0.0);
    }

    std::vector<double> m_schedule;
    bool m_isRunning;
    double m_played = 0.0; ///< s, before m_start
    Clock::time_point m_start = Clock::now();
};

} // namespace

/// The program's own keys and clicks; they come before those of the camera.
class KrAppView::Input : public osgGA::GUIEventHandler
{
public:
    Input(KrRenderWindow& window, Player& player)
        : m_window(window)
        , m_player(player)
    {
    }

    /// A pixel from the window's upper left corner.
    using Pixel = std::pair<unsigned int, unsigned int>;

    bool isDone() const { return m_isDone; }
    /// What was clicked since the last call.
    std::optional<Pixel> takeClick() { return std::exchange(m_click, std::nullopt); }

    using osgGA::GUIEventHandler::handle;
    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter&) override
    {
        if (event.getEventType() == osgGA::GUIEventAdapter::KEYDOWN) {
            return press(event);
        }
        followMouse(event);
        return false; // the camera has its share of every click
    }

private:
    using Event = osgGA::GUIEventAdapter;

    bool press(const Event& event)
    {
        switch (event.getKey()) {
        case osgGA::GUIEventAdapter::KEY_Escape:
        case 'q':
            m_isDone = true;
            return true;
        case 'a':
            return toggle(KrRenderTypes::LinkAxes);
        case 'v':
            return toggle(KrRenderTypes::BoundingVolumes);
        case 'm':
            return toggle(KrRenderTypes::MassProperties);
        case 'c':
            return toggle(KrRenderTypes::CollisionShapes);
        case 's':
            return toggle(KrRenderTypes::SceneContent);
        case 'w':
            m_window.setViewerAttribute(KrSGWindow::Wireframe,
                                        (m_window.viewerAttribute() & KrSGWindow::Wireframe) == 0);
            m_window.updateScene(); // for this frame, which has begun
            return true;
        case ' ':
        case 'p':
            m_player.toggle();
            return m_player.hasMotion(); // else the space bar is the camera's
        default:
            return false;
        }
    }

    void followMouse(const Event& event)
    {
        const bool isLeft = event.getButton() == Event::LEFT_MOUSE_BUTTON;
        const bool isFar = m_pressed && std::max(std::abs(event.getX() - m_pressed->x()),
                                                 std::abs(event.getY() - m_pressed->y())) > kClickPixels;
        switch (event.getEventType()) {
        case Event::PUSH:
            m_pressed = isLeft ? std::optional<osg::Vec2f>(osg::Vec2f(event.getX(), event.getY())) : std::nullopt;
            break;
        case Event::RELEASE:
            if (isLeft && m_pressed && !isFar) {
                m_click = pixelOf(event);
            }
            m_pressed.reset();
            break;
        case Event::DOUBLECLICK: // the camera goes there; what it is has been told with the first click
            m_pressed.reset();
            break;
        case Event::DRAG:
            // A way out and back again is no click.
            m_pressed = isFar ? std::nullopt : m_pressed;
            break;
        default:
            break;
        }
    }

    Pixel pixelOf(const Event& event) const
    {
        const auto place = [](double fraction, unsigned int size) {
            const long pixel = std::lround(fraction * (size - 1.0));
            return static_cast<unsigned int>(std::clamp(pixel, 0l, static_cast<long>(size) - 1));
        };
        // Events count from -1 to 1 between the middles of the outer pixels, upwards.
        return {place(0.5 * (1.0 + static_cast<double>(event.getXnormalized())), m_window.windowWidth()),
                place(0.5 * (1.0 - static_cast<double>(event.getYnormalized())), m_window.windowHeight())};
    }

    bool toggle(unsigned int mask)
    {
        m_window.setDisplayMask(mask, !m_window.displayMask(mask), false);
        KrAids::follow(m_window); // volumes do while they are shown only
        return true;
    }

    KrRenderWindow& m_window;
    Player& m_player;
    bool m_isDone = false;
    std::optional<osg::Vec2f> m_pressed; ///< where the left button went down
    std::optional<Pixel> m_click;
};

KrAppView::KrAppView(const std::string& title, unsigned int width, unsigned int height, unsigned int samples,
                     float levelOfDetail, KrAppMessages& messages)
    : m_messages(messages)
{
    m_window.setName(title);
    m_window.setWindowSize(width, height);
    m_window.setLevelOfDetail(levelOfDetail);
    // By GLX: pictures may be drawn without a display, a window may not.
    m_window.setImpl(std::make_unique<KrGlxWindowImpl>(samples > 1 ? samples : 0));
    if (!m_window.init()) {
        // The last attempt tells more than the message does.
        std::string reason = m_messages.lastReason("it cannot be opened");
        if (!m_window.report().attempts.empty()) {
            const KrWindowReport::Attempt& attempt = m_window.report().attempts.back();
            reason = attempt.outcome + (attempt.driverError.empty() ? "" : " (" + attempt.driverError + ")");
        }
        throw KrAppFailure(KrAppFailure::CouldNot,
                           "--view needs a window on a display: " + reason + "; -o PICTURE draws without one");
    }
}

std::string KrAppView::bindings()
{
    return std::string(KrOrbitInputHandler::bindings()) +
           "left click                   what it is: link, joint, point, distance\n"
           "a  v  m  c                   axes, bounding volumes, mass ellipsoids, collision shapes\n"
           "s  w                         visible shapes, wire frame\n"
           "p, space with --trajectory   pause, go on\n"
           "Escape, q                    close\n";
}

void KrAppView::run(KrAppRobot& robot, KrVisualizationParameters& parameters, bool isOwnLighting, const KrAids& aids,
                    KrMotion& motion, std::vector<double> schedule, bool tellsClicks)
{
    // Every aid is made ready; which are seen is a matter of the mask.
    KrAids all = aids;
    all.axes = all.volumes = all.mass = true;
    KrAppAids::prepare(all, robot, parameters);
    KrStatedSystem& system = robot.statedSystem();
    KrPoseDriver poses(system.manipulatorSystem());
    // Shapes that bend are told before the scene is built.
    system.addChangedShapes(poses.shapes());
    m_window.setStatedSystem(system, parameters);
    // Seen before the background, and before a robot as far as that differs from it.
    const KrColor& background = parameters.renderParameters().backgroundColor();
    const bool isBright = background.red() + background.green() + background.blue() > 1.5;
    m_textColor = isBright ? KrColor(0.0, 0.0, 0.0) : KrColor(1.0, 1.0, 1.0);
    if (isOwnLighting) {
        m_window.setAmbientLight(KrLighting::ambientLight());
    }
    poses.drive(motion.state(0));
    m_window.setState(motion.state(0));
    all.show(m_window);
    // Ready, but not seen before their keys are pressed.
    m_window.setDisplayMask(KrRenderTypes::LinkAxes, aids.axes, false);
    m_window.setDisplayMask(KrRenderTypes::BoundingVolumes, aids.volumes, false);
    m_window.setDisplayMask(KrRenderTypes::MassProperties, aids.mass, false);

    const KrAppInterrupt interrupt;
    Player player(std::move(schedule));
    const osg::ref_ptr<Input> own = new Input(m_window, player);
    // Before the camera's, so that the program's own keys come first.
    m_window.getViewer()->addEventHandler(own);
    m_window.setInputHandler(new KrOrbitInputHandler(&m_window));
    KrWindowInput input(m_window);
    // None yet: the first one is drawn whatever comes in.
    std::size_t shown = motion.size();
    bool isAnswered = false;
    while (!own->isDone() && !input.isCloseRequested() && !KrAppInterrupt::isRequested()) {
        bool isDue = input.take() || endText() || isAnswered;
        // A state that is shown already costs no frame.
        if (const std::size_t state = player.state(); state != shown) {
            poses.drive(motion.state(state));
            KrAids::follow(m_window);
            m_window.setState(motion.state(state));
            shown = state;
            isDue = true;
        }
        if (isDue && !m_window.renderScene(true)) {
            throw KrAppFailure(KrAppFailure::CouldNot, "the window cannot be drawn any more: " +
                                                           m_messages.lastReason("the driver gives no reason"));
        }
        // Behind the frame: what was clicked is what it shows.
        isAnswered = answerClick(*own, motion.state(shown), tellsClicks);
        // A window that is being closed waits for nothing.
        if (!own->isDone() && !isAnswered) {
            input.wait(player.secondsToNext());
        }
    }
}

bool KrAppView::answerClick(Input& input, const KrManipulatorSystemState& state, bool isTold)
{
    const std::optional<Input::Pixel> click = input.takeClick();
    if (!click) {
        return false;
    }
    const std::vector<std::string> lines = pick(click->first, click->second, state);
    if (isTold && !lines.empty()) {
        std::printf("%s\n", KrAppPick::line(lines).c_str());
        // Somebody looks at it now, or a program behind a pipe.
        std::fflush(stdout);
    }
    showText(lines);
    return true;
}

std::vector<std::string> KrAppView::pick(unsigned int x, unsigned int y, const KrManipulatorSystemState& state)
{
    std::optional<KrFrameCapture::Pick> pick;
    if (!m_capture.pick(m_window, x, y, 1, pick)) {
        // A driver that cannot: told where the user looks.
        return {m_messages.lastReason("this cannot be told")};
    }
    return pick ? KrAppPick::parts(*pick, *m_window.statedSystem(), state) : std::vector<std::string>();
}

void KrAppView::showText(const std::vector<std::string>& lines)
{
    m_window.clearAllOverlayText();
    m_textEnd.reset();
    if (lines.empty()) {
        return;
    }
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    m_window.setOverlayText(text, kTextLeft, kTextTop, m_textColor);
    m_textEnd = Clock::now() + kTextTime;
}

bool KrAppView::endText()
{
    const bool isOver = m_textEnd && Clock::now() >= *m_textEnd;
    if (isOver) {
        showText({});
    }
    return isOver;
}
