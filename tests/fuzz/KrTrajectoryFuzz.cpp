// Trajectories as CSV, for a system of two manipulators with joints of every kind.
#include <picture/KrTrajectoryFile.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{

KrManipulatorLink jointed(const std::string& name, KrJointKinematics::Type type)
{
    KrManipulatorLink link(name);
    link.jointKinematics().setName(name);
    link.jointKinematics().setType(type);
    if (link.jointKinematics().hasLimits()) {
        link.jointKinematics().setLimits(-1.0, 1.0);
    }
    return link;
}

KrStatedSystem twoRobots()
{
    using Type = KrJointKinematics::Type;
    KrIndividualManipulator a("a");
    a.addChildLink(jointed("turn", Type::Revolute));
    a.addChildLink(jointed("slide", Type::Prismatic));
    a.addChildLink(jointed("weld", Type::Fixed));
    KrManipulatorLink follower = jointed("shadow", Type::Revolute);
    follower.jointKinematics().setMimic("turn", 2.0, 0.1);
    a.addChildLink(follower);
    KrIndividualManipulator b("b");
    b.addChildLink(jointed("turn", Type::Continuous));
    KrManipulatorSystem system;
    system.manipulators().push_back(a);
    system.manipulators().push_back(b);
    return KrStatedSystem(system);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const KrStatedSystem system = twoRobots();
    KrMotion motion(system);
    std::vector<std::string> warnings;
    std::string reason;
    if (!KrTrajectoryFile::readText(system, std::string(reinterpret_cast<const char*>(data), size), "text", motion,
                                    warnings, reason)) {
        if (reason.empty() || reason.size() > 1000) {
            std::abort();
        }
        return 0;
    }
    // What is read can be played.
    if (motion.size() == 0 || motion.schedule(std::nullopt).size() != motion.size() + 1) {
        std::abort();
    }
    motion.isEven();
    const KrManipulatorSystemState& last = motion.state(motion.size() - 1);
    for (const auto& state : last.positionStates()) {
        for (unsigned int i = 0; i < state.jointPositions().size(); ++i) {
            if (!std::isfinite(state.jointPositions()[i].value())) {
                std::abort();
            }
        }
    }
    return 0;
}
