#pragma once

#include <picture/KrMotion.h>

#include <string>
#include <utility>
#include <vector>

class KrAppMessages;

/// Joint positions by name, from the command line and from files.
///
/// What a joint is called is told by KrNamedJoint, what its position is by KrValueText::position. Each throws
/// KrAppFailure.
namespace KrAppPose
{

/// Sets joints, and those that mimic them, one after the other.
/// @param warnings  gets a sentence for each position outside its joint's limits; such a position is kept
void setJoints(KrStatedSystem& system, const std::vector<std::pair<std::string, std::string>>& joints,
               std::vector<std::string>& warnings);
/// Reads a manipulatorSystemState.
void readState(KrStatedSystem& system, const std::string& path, KrAppMessages& messages);

/// Reads a KrTrajectoryFile; "-" is standard input.
KrMotion readTrajectory(const KrStatedSystem& system, const std::string& path, std::vector<std::string>& warnings);

} // namespace KrAppPose
