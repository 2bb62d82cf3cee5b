#pragma once

#include <picture/KrMotion.h>

#include <string>
#include <vector>

/// Motions as text: a header that names joints (KrNamedJoint), then a row of positions for each state.
///
/// Values are separated by commas and may stand in quotation marks; positions are in rad or m or carry a unit
/// (KrValueText::position). Joints that are not named keep the position they have in the system. A column "time" (or
/// "t") is read into the states' time, s, and has to grow. Blank lines and lines that begin with # are skipped, and so
/// are columns of joints that follow another, those with a warning. What is read at all has limits (Kr::Limits).
///
/// What fails gives false, no change of `motion`, and a sentence without a full stop that says where and why; warnings
/// are such sentences, too.
class KrTrajectoryFile
{
public:
    /// @param system  whose joints are named
    static bool readFile(const KrStatedSystem& system, const std::string& path, KrMotion& motion,
                         std::vector<std::string>& warnings, std::string& reason);
    /// Reads what a descriptor has, a pipe's for one, to its end; it stays the caller's. @param name  for messages
    static bool readDescriptor(const KrStatedSystem& system, int descriptor, const std::string& name, KrMotion& motion,
                               std::vector<std::string>& warnings, std::string& reason);
    /// @param text  what such a file holds  @param name  for messages
    static bool readText(const KrStatedSystem& system, const std::string& text, const std::string& name,
                         KrMotion& motion, std::vector<std::string>& warnings, std::string& reason);
};
