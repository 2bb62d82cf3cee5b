#pragma once

#include <picture/KrMotion.h>

#include <string>
#include <utility>
#include <vector>

class KrAppMessages;

/// Joint positions by name, from the command line and from files.
///
/// A joint is named as it is called, or MANIPULATOR/JOINT where several manipulators have one of that name. Values are
/// in radians or metres, or carry a unit (KrValueText::position). Each throws KrAppFailure.
namespace KrAppPose
{

/// Sets joints, and those that mimic them, one after the other.
/// @param warnings  gets a sentence for each position outside its joint's limits; such a position is kept
void setJoints(KrStatedSystem& system, const std::vector<std::pair<std::string, std::string>>& joints,
               std::vector<std::string>& warnings);
/// Reads a manipulatorSystemState.
void readState(KrStatedSystem& system, const std::string& path, KrAppMessages& messages);

/// One state for each row of a CSV file whose header names joints. Joints that are not named keep
/// the position they have in `system`. A column "time" is read into the states' time, s, and has to grow; blank lines
/// and lines that begin with # are skipped, and columns of joints that follow another, those with a warning.
KrMotion readTrajectory(const KrStatedSystem& system, const std::string& path, std::vector<std::string>& warnings);

} // namespace KrAppPose
