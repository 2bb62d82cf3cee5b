#pragma once

#include <toolkit/system/KrStatedSystem.h>

#include <string>

/// Systems without shapes, whose joints are of every kind.
namespace JointedSystems
{

inline KrManipulatorLink jointed(const std::string& name, KrJointKinematics::Type type)
{
    KrManipulatorLink link(name);
    link.jointKinematics().setName(name + "_joint");
    link.jointKinematics().setType(type);
    if (link.jointKinematics().hasLimits()) {
        link.jointKinematics().setLimits(-1.0, 1.0);
    }
    return link;
}

/// Two manipulators: "a" with turn, slide, weld and a mimic of turn, "b" with another turn.
inline KrStatedSystem twoRobots()
{
    using Type = KrJointKinematics::Type;
    KrManipulatorSystem system;
    KrIndividualManipulator a("a");
    a.addChildLink(jointed("turn", Type::Revolute));
    a.addChildLink(jointed("slide", Type::Prismatic));
    a.addChildLink(jointed("weld", Type::Fixed));
    KrManipulatorLink mimic = jointed("shadow", Type::Revolute);
    mimic.jointKinematics().setMimic("turn_joint", 2.0, 0.1);
    a.addChildLink(mimic);
    KrIndividualManipulator b("b");
    b.addChildLink(jointed("turn", Type::Revolute));
    b.addChildLink(jointed("spin", Type::Continuous));
    system.manipulators().push_back(a);
    system.manipulators().push_back(b);
    return KrStatedSystem(system);
}

inline double jointAt(const KrManipulatorSystemState& state, unsigned int manipulator, unsigned int joint)
{
    return state.positionStates()[manipulator].jointPositions()[joint];
}

} // namespace JointedSystems
