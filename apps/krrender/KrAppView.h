#pragma once

#include <rendCore/system/KrRenderWindow.h>

#include <string>

class KrAppMessages;
class KrMotion;
struct KrAppOptions;
struct KrAppRobot;

/// A window on the screen in which the user walks around the robot. Nothing is drawn while nothing changes.
class KrAppView
{
public:
    /// Opens the window. Throws KrAppFailure (CouldNot) without a display.
    KrAppView(const KrAppOptions& options, KrAppMessages& messages);

    /// Shows `motion`, by its times or at the options' frames per second, over and over, until the user closes the
    /// window. Throws KrAppFailure (CouldNot) when the window cannot be drawn any more.
    ///
    /// @param parameters     as for the picture; the aids' look is added
    /// @param isOwnLighting  the parameters' lights are this program's
    void run(KrAppRobot& robot, KrVisualizationParameters& parameters, bool isOwnLighting, KrMotion& motion);

    /// What mouse and keys do, one a line.
    static std::string bindings();

private:
    class Keys;

    const KrAppOptions& m_options;
    KrAppMessages& m_messages;
    KrRenderWindow m_window;
};
