#pragma once

#include <rendCore/capture/KrFrameCapture.h>
#include <rendCore/system/KrRenderWindow.h>
#include <toolkit/math/KrColor.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

class KrAppMessages;
class KrManipulatorSystemState;
class KrMotion;
struct KrAids;
struct KrAppRobot;

/// A window on the screen in which the user walks around the robot. Nothing is drawn while nothing changes.
class KrAppView
{
public:
    /// Opens the window. Throws KrAppFailure (CouldNot) without a display.
    /// @param width, height  pixels
    /// @param samples        drawn for each pixel
    /// @param levelOfDetail  error that meshes may show, pixels
    KrAppView(const std::string& title, unsigned int width, unsigned int height, unsigned int samples,
              float levelOfDetail, KrAppMessages& messages);

    /// Shows `motion` over and over, until the user closes the window. Throws KrAppFailure (CouldNot) when the window
    /// cannot be drawn any more.
    ///
    /// @param parameters     as for the picture; the aids' look is added
    /// @param isOwnLighting  the parameters' lights are this program's
    /// @param aids           that are seen at first
    /// @param schedule       KrMotion::schedule
    /// @param tellsClicks    what is clicked is told on standard output, too (KrAppPick)
    void run(KrAppRobot& robot, KrVisualizationParameters& parameters, bool isOwnLighting, const KrAids& aids,
             KrMotion& motion, std::vector<double> schedule, bool tellsClicks);

    /// What mouse and keys do, one a line.
    static std::string bindings();

private:
    class Input;

    /// Tells what was clicked in the frame that was drawn last, of `state`.
    /// @param isTold  on standard output, too
    /// @return whether anything was clicked: a frame is due then
    bool answerClick(Input& input, const KrManipulatorSystemState& state, bool isTold);
    /// What the pixel shows in `state`, as lines; none where there is no link.
    std::vector<std::string> pick(unsigned int x, unsigned int y, const KrManipulatorSystemState& state);
    /// Lets these lines stand in the window, in place of those before.
    void showText(const std::vector<std::string>& lines);
    /// Takes them away when their time is over; true when they went, so that a frame is due.
    bool endText();

    using Clock = std::chrono::steady_clock;

    KrAppMessages& m_messages;
    KrRenderWindow m_window;
    KrFrameCapture m_capture;                   ///< for what is clicked
    std::optional<Clock::time_point> m_textEnd; ///< none where there is no text
    KrColor m_textColor;
};
