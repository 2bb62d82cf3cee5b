#include "KrAppPick.h"

#include "KrAppMessages.h"

#include <toolkit/math/KrAngle.h>
#include <toolkit/system/KrManipulatorSystemState.h>
#include <toolkit/system/KrStatedSystem.h>

#include <cmath>
#include <cstdio>

namespace
{

/// Tenths of a millimetre, and none with a sign before nothing.
std::string metres(double value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.4f", std::round(value * 1e4) / 1e4 + 0.0);
    return text;
}

std::string metres(const KrVector& point)
{
    return "(" + metres(point.x()) + ", " + metres(point.y()) + ", " + metres(point.z()) + ") m";
}

std::string jointText(const KrJointKinematics& joint, double position)
{
    char text[64];
    switch (joint.type()) {
    case KrJointKinematics::Type::Fixed:
        return joint.name() + " (fixed)";
    case KrJointKinematics::Type::Prismatic:
        std::snprintf(text, sizeof text, " = %.6g m", position);
        break;
    default:
        std::snprintf(text, sizeof text, " = %.6g rad (%.4g deg)", position, Kr::Angle::degrees(position));
    }
    return joint.name() + text;
}

} // namespace

std::vector<std::string> KrAppPick::parts(const KrFrameCapture::Pick& pick, const KrStatedSystem& system,
                                          const KrManipulatorSystemState& state)
{
    const KrXmlVectorType<KrIndividualManipulator>& manipulators = system.manipulatorSystem().manipulators();
    const KrLabelTable::Part& part = pick.part;
    std::vector<std::string> parts = {manipulators.size() > 1 ? part.manipulator + "/" + part.link : part.link};
    // A base has no joint, and a body between two links is moved by theirs.
    const std::vector<const KrManipulatorLink*> links = manipulators[part.manipulatorIndex].links();
    if (part.linkIndex > 0 && part.linkIndex <= links.size()) {
        const unsigned int joint = part.linkIndex - 1;
        parts.push_back(jointText(links[joint]->jointKinematics(),
                                  state.positionStates()[part.manipulatorIndex].jointPositions()[joint]));
    }
    parts.push_back("world " + metres(pick.point));
    parts.push_back("link " + metres(pick.pointInLink));
    parts.push_back("distance " + metres(pick.distance) + " m");
    // Names come from files.
    for (std::string& text : parts) {
        text = KrAppMessages::printable(text);
    }
    return parts;
}

std::string KrAppPick::line(const std::vector<std::string>& parts)
{
    std::string text = parts.front();
    for (std::size_t i = 1; i < parts.size(); ++i) {
        text += (i == 1 ? ": " : "; ") + parts[i];
    }
    return text;
}
