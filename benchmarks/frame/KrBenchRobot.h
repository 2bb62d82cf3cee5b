#pragma once

#include <toolkit/system/KrStatedSystem.h>

#include <stdexcept>
#include <string>
#include <vector>

/// Ends a benchmark with one sentence: thrown where the reason is known, caught in main.
class KrBenchFailure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The system that a benchmark is given by name.
struct KrBenchRobot
{
    KrStatedSystem system;
    std::string name;

    /// Makes the robot of a name like "made:arm" (KrBenchMade), or reads a native system file (.xml) or else a robot
    /// description. Throws KrBenchFailure.
    explicit KrBenchRobot(const std::string& path, const std::vector<std::string>& packagePaths = {});
};
