#pragma once

#include <optional>
#include <string>
#include <vector>

class KrFraming;
class KrRenderWindow;
class KrStatedSystem;
class KrVisualizationParameters;
struct KrAppRobot;

/// What is drawn beside the robot, or to set a part of it off.
struct KrAppAids
{
    bool axes = false;
    bool volumes = false;
    bool mass = false;
    bool collisions = false;           ///< collision shapes
    bool shapes = true;                ///< what is visible of the links
    bool areCollisionsSolid = false;   ///< there is nothing else to see: they hide what is behind them
    std::optional<double> axisScale;   ///< length of a link's axes, m
    std::vector<std::string> selected; ///< links, LINK or MANIPULATOR/LINK
    double fade = 0.15;                ///< opacity of the other links, in [0, 1]

    /// Adds what a list as "axes,mass" names; the word that names nothing, or the empty string.
    std::string addShown(const std::string& list);
    /// What can be shown, as words of such a list.
    static const std::vector<std::string>& words();
    bool areShown() const { return axes || volumes || mass || collisions; }

    /// A robot that has collision shapes only is drawn with them, and that is told.
    void complete(const KrAppRobot& robot, std::vector<std::string>& warnings);

    /// Of a link's axes, m: `axisScale`, or a part of the size of the system in its state.
    double axisLength(const KrStatedSystem& system) const;

    /// Lets everything that is shown be in the picture.
    void frame(const KrStatedSystem& system, KrFraming& framing) const;

    /// Before the robot is loaded: tells of aids that will show nothing. Where they are not shown, a single line
    /// tells of impossible ones, unless the import has.
    void foldMasses(const KrAppRobot& robot, std::vector<std::string>& warnings) const;
    /// Before the robot is loaded: selects links, gives volumes a look that lets the robot be seen, and chooses the
    /// axes' length. Links that are selected get shapes of their own. Throws KrAppFailure (CouldNot) for a link that is
    /// not there.
    void prepare(KrAppRobot& robot, KrVisualizationParameters& parameters) const;
    /// When the window has its system: shows the aids.
    void show(KrRenderWindow& window) const;
    /// When shapes have bent: lets the volumes, where they are shown, enclose them as they are now.
    static void follow(KrRenderWindow& window);
};
