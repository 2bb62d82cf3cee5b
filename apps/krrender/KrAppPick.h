#pragma once

#include <rendCore/capture/KrFrameCapture.h>

#include <string>
#include <vector>

class KrStatedSystem;
class KrManipulatorSystemState;

/// What a pixel shows, in words.
namespace KrAppPick
{

/// The parts of the line that `line` tells, for where there is room below each other:
///
///   link_3               the link; MANIPULATOR/LINK where there are several manipulators
///   joint_3 = 0.698132 rad (40 deg)   its joint and where it is; "= 0.02 m" for one that moves straight, "joint_3
///                        (fixed)" for one that does not move; nothing for a base, or for a body between two links
///   world (0.4123, -0.0210, 0.9310) m   the point of the surface; and the same for the link's frame: link (...) m
///   distance 1.8321 m    from the eye
///
/// @param system, state  that were drawn; the pick is of them
std::vector<std::string> parts(const KrFrameCapture::Pick& pick, const KrStatedSystem& system,
                               const KrManipulatorSystemState& state);
/// In one line: the link and a colon, then the others with semicolons between them. Without a line end.
std::string line(const std::vector<std::string>& parts);

} // namespace KrAppPick
