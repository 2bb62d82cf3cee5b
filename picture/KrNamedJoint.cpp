#include <picture/KrNamedJoint.h>

#include <picture/KrValueText.h>
#include <toolkit/foundation/private/KrText.h>
#include <toolkit/system/KrStatedSystem.h>

#include <cstdio>
#include <vector>

namespace
{

using Type = KrJointKinematics::Type;

/// With the digits that a person reads.
std::string text(double value)
{
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.6g", value);
    return buffer;
}

/// The joint (or, failing that, the link) of that name among the manipulator's links; null when there is none.
const KrJointKinematics* findJoint(const KrIndividualManipulator& manipulator, const std::string& name)
{
    // By the toolkit's own rule, so that all ways to name a joint agree.
    const int index = manipulator.jointIndex(name);
    return index < 0 ? nullptr : &manipulator.links()[static_cast<std::size_t>(index)]->jointKinematics();
}

/// Proposes joints that can be set only.
std::string unknownJoint(const KrStatedSystem& system, const std::string& name)
{
    std::vector<std::string> joints;
    for (const KrIndividualManipulator& manipulator : system.manipulatorSystem().manipulators()) {
        for (const KrManipulatorLink* link : manipulator.links()) {
            if (link->jointKinematics().isMovable() && !link->jointKinematics().isMimic()) {
                joints.push_back(link->jointKinematics().name());
            }
        }
    }
    return "there is no joint \"" + KrText::oneLine(name) + "\"" +
           (joints.empty() ? ": nothing in this system moves" : KrValueText::suggestion(name, joints));
}

/// A number without a unit is in the joint's own.
bool fits(KrValueText::Unit unit, Type type)
{
    // Prismatic joints take lengths, all others angles.
    return unit == KrValueText::Unit::Plain || (unit == KrValueText::Unit::Length) == (type == Type::Prismatic);
}

} // namespace

bool KrNamedJoint::find(const KrStatedSystem& system, const std::string& name, KrNamedJoint& joint, std::string& reason)
{
    const KrXmlVectorType<KrIndividualManipulator>& manipulators = system.manipulatorSystem().manipulators();
    // All of that name: which one of two is meant, nobody can tell.
    std::vector<KrNamedJoint> found;
    for (unsigned int i = 0; i < manipulators.size(); ++i) {
        // MANIPULATOR/JOINT, for joints of several robots that bear one name.
        const std::string prefix = manipulators[i].name() + "/";
        std::string inside = name;
        // The whole name first: a joint's own may hold a slash.
        const KrJointKinematics* kinematics = findJoint(manipulators[i], name);
        if (!kinematics && name.compare(0, prefix.size(), prefix) == 0) {
            inside = name.substr(prefix.size());
            kinematics = findJoint(manipulators[i], inside);
        }
        if (kinematics) {
            found.push_back({i, inside, kinematics});
        }
    }
    if (found.empty()) {
        reason = unknownJoint(system, name);
        return false;
    }
    if (found.size() > 1) {
        reason = "joint \"" + name + "\" is in " + std::to_string(found.size()) + " manipulators; write " +
                 manipulators[found[0].manipulator].name() + "/" + name + " for the first one";
        return false;
    }
    joint = found.front();
    return true;
}

bool KrNamedJoint::findFree(const KrStatedSystem& system, const std::string& name, KrNamedJoint& joint,
                            std::string& reason)
{
    // Apart from `joint`, which stays as it was for one that cannot be set.
    KrNamedJoint found;
    if (!find(system, name, found, reason)) {
        return false;
    }
    // Each with its own reason: what the user has to do differs.
    if (!found.kinematics->isMovable()) {
        reason = "joint \"" + name + "\" is fixed";
        return false;
    }
    if (found.kinematics->isMimic()) {
        reason = "joint \"" + name + "\" follows joint \"" + found.kinematics->mimicMaster() + "\": set that one";
        return false;
    }
    joint = found;
    return true;
}

bool KrNamedJoint::readPosition(const std::string& word, double& position, std::string& reason) const
{
    double read = 0.0;
    KrValueText::Unit unit = KrValueText::Unit::Plain;
    if (!KrValueText::position(word, read, unit)) {
        reason = "\"" + KrText::oneLine(word) + "\" is no number";
        return false;
    }
    // 20mm for an angle is a slip, and not 0.02 rad.
    if (!fits(unit, kinematics->type())) {
        const char* const needs = kinematics->type() == Type::Prismatic ? "a length (m, mm)" : "an angle (rad, deg)";
        reason = "\"" + KrText::oneLine(word) + "\" has the wrong unit, this joint takes " + needs;
        return false;
    }
    position = read;
    return true;
}

bool KrNamedJoint::isBeyond(double position) const
{
    // Degrees become radians with rounding; a limit that was typed is no farther than that limit.
    constexpr double kRounding = 1e-9;
    const KrJointKinematics& k = *kinematics;
    return k.hasLimits() && (position < k.lowerLimit() - kRounding || position > k.upperLimit() + kRounding);
}

std::string KrNamedJoint::beyondText(double position) const
{
    const KrJointKinematics& k = *kinematics;
    return text(position) + " is outside the limits " + text(k.lowerLimit()) + " to " + text(k.upperLimit()) +
           " of joint \"" + name + "\"";
}
