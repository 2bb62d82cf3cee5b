#pragma once

#include <picture/KrFraming.h>

#include <optional>
#include <string>
#include <vector>

class KrRenderWindow;
class KrStatedSystem;
class KrVisualizationParameters;

/// What is drawn beside a robot, or to set a part of it off: axes of the links, bounding volumes, mass ellipsoids,
/// collision shapes, links that are selected.
///
/// Before the window gets its system: `prepare`. When it has it: `show`. When shapes have bent: `follow`.
struct KrAids
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

    /// The names of the aids that `add` takes: "axes", "volumes", "mass", "collision".
    static const std::vector<std::string>& names();
    /// Adds the aid of that name; false when there is none.
    bool add(const std::string& name);
    bool areShown() const { return axes || volumes || mass || collisions; }

    /// Of a link's axes, m: `axisScale`, or a part of the size of the system in its state.
    double axisLength(const KrStatedSystem& system) const;
    /// Everything that is shown of `system`, to be in the picture.
    KrFraming::Shown shown(const KrStatedSystem& system) const;

    /// Selects links, gives volumes a look that lets the robot be seen, and chooses the axes' length.
    /// @param system    to be shown afterwards: a selection lets links have shapes of their own
    /// @param reason    why not: there is no link of a name, and which ones resemble it. Without a full stop
    /// @param warnings  gets a sentence for each link that has nothing to be seen
    /// @return false when a link is not there; the links before it are selected
    bool prepare(KrStatedSystem& system, KrVisualizationParameters& parameters, std::string& reason,
                 std::vector<std::string>& warnings) const;
    /// When the window has its system: shows the aids. Once more for each new scene.
    void show(KrRenderWindow& window) const;
    /// When shapes have bent: lets the volumes, where they are shown, enclose them as they are now.
    static void follow(KrRenderWindow& window);
};
