#pragma once

#include <import/description/KrRobotDescription.h>
#include <import/report/KrImportReport.h>

#include <cstddef>
#include <string>

/// Turns a robot description as people write it into one that a robot can be built from.
///
/// Afterwards links and joints have names of their own, the joints make one tree of all links, axes have a direction,
/// limits are in order, joints follow joints that are there and never themselves, and each
/// material in use is there under a name of its own. Everything filled in, changed or left out is a warning of the
/// report.
class KrRobotRepair
{
public:
    struct Limits
    {
        std::size_t maxLinks = 0; ///< of the robot
        std::size_t maxChain = 0; ///< links in a row, from the base outwards
    };

    /// @param description  at least one link, none of them there twice
    /// @param report       gets the robot's name as well
    /// @param why          on failure one clause that says what is wrong
    /// @return false for more links than the limits allow; `description` is of no use then
    static bool run(KrRobotDescription& description, const Limits& limits, KrImportReport& report, std::string& why);
};
