#include "KrAppPose.h"

#include "KrAppFailure.h"
#include "KrAppFiles.h"
#include "KrAppMessages.h"

#include <picture/KrNamedJoint.h>
#include <picture/KrTrajectoryFile.h>
#include <toolkit/foundation/KrLimits.h>

#include <unistd.h>

namespace
{

[[noreturn]] void couldNot(const std::string& sentence)
{
    // A name that resembles none: the program can list those that there are.
    const bool isUnknown = sentence.find("there is no joint \"") != std::string::npos && sentence.back() == '"';
    throw KrAppFailure(KrAppFailure::CouldNot, sentence + (isUnknown ? " (--info lists the joints)" : ""));
}

} // namespace

void KrAppPose::setJoints(KrStatedSystem& system, const std::vector<std::pair<std::string, std::string>>& joints,
                          std::vector<std::string>& warnings)
{
    for (const auto& [name, word] : joints) {
        const std::string where = "--joint " + name + ": ";
        KrNamedJoint joint;
        double position = 0.0;
        std::string reason;
        // A name that is wrong may be the file's fault; a value that is none is the command line's.
        if (!KrNamedJoint::findFree(system, name, joint, reason)) {
            couldNot(reason);
        }
        if (!joint.readPosition(word, position, reason)) {
            throw KrAppFailure(KrAppFailure::WrongUsage, where + reason);
        }
        // Drawn all the same: a picture of what cannot be may be what is wanted.
        if (joint.isBeyond(position)) {
            warnings.push_back(where + joint.beyondText(position));
        }
        system.setJointPosition(joint.manipulator, joint.name, position);
    }
}

void KrAppPose::readState(KrStatedSystem& system, const std::string& path, KrAppMessages& messages)
{
    const std::string text = KrAppFiles::readText(path, Kr::Limits::kStateBytes);
    const std::string name = KrAppFiles::spoken(path, KrAppFiles::Standard::Input);
    KrManipulatorSystemState state;
    // Both say by a message what is wrong; the system is as it was then.
    if (!state.readBuffer(text.data(), text.size(), name) || !system.setSystemState(state)) {
        couldNot(messages.lastReason(name + " cannot be read"));
    }
}

KrMotion KrAppPose::readTrajectory(const KrStatedSystem& system, const std::string& path,
                                   std::vector<std::string>& warnings)
{
    const std::string name = KrAppFiles::spoken(path, KrAppFiles::Standard::Input);
    // One state until it is read, so that there is always one to draw.
    KrMotion motion(system);
    std::string reason;
    const bool isRead = KrAppFiles::isStandard(path)
                            ? KrTrajectoryFile::readDescriptor(system, STDIN_FILENO, name, motion, warnings, reason)
                            : KrTrajectoryFile::readFile(system, path, motion, warnings, reason);
    if (!isRead) {
        couldNot(reason);
    }
    return motion;
}
