#pragma once

#include <string>

class KrJointKinematics;
class KrStatedSystem;

/// A joint of a stated system that was called by its name: JOINT, or MANIPULATOR/JOINT where several manipulators have
/// one of that name. The name of the link that it moves will do, too.
struct KrNamedJoint
{
    unsigned int manipulator = 0;
    std::string name;                              ///< in its manipulator, for KrStatedSystem::setJointPosition
    const KrJointKinematics* kinematics = nullptr; ///< borrowed from the system

    /// @return false, with a reason and no change, for a joint that is not there, or in several manipulators
    static bool find(const KrStatedSystem& system, const std::string& name, KrNamedJoint& joint, std::string& reason);
    /// As `find`; false, too, for joints that are fixed or follow another one.
    static bool findFree(const KrStatedSystem& system, const std::string& name, KrNamedJoint& joint,
                         std::string& reason);

    /// Reads a position, in rad or m, or with a unit (KrValueText::position).
    /// @return false, with a reason and no change, for what is no number or has the wrong unit
    bool readPosition(const std::string& word, double& position, std::string& reason) const;
    /// Whether a position is outside the joint's limits. One that was typed in degrees is not beyond itself.
    bool isBeyond(double position) const;
    /// A clause that says so of such a position.
    std::string beyondText(double position) const;
};
