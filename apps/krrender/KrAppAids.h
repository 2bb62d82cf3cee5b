#pragma once

#include <optional>
#include <string>
#include <vector>

class KrRenderWindow;
class KrVisualizationParameters;
struct KrAppRobot;

/// What is drawn beside the robot, or to set a part of it off.
struct KrAppAids
{
    bool axes = false;
    bool volumes = false;
    bool mass = false;
    std::optional<double> axisScale;   ///< length of a link's axes, m
    std::vector<std::string> selected; ///< links, LINK or MANIPULATOR/LINK
    double fade = 0.15;                ///< opacity of the other links, in [0, 1]

    /// Adds what a list as "axes,mass" names; the word that names nothing, or the empty string.
    std::string addShown(const std::string& list);

    /// Before the robot is loaded: selects links, gives volumes a look that lets the robot be seen, and chooses the
    /// axes' length. Throws KrAppFailure (CouldNot) for a link that is not there.
    void prepare(KrAppRobot& robot, KrVisualizationParameters& parameters) const;
    /// When the window has its system: shows the aids.
    void show(KrRenderWindow& window) const;
};
