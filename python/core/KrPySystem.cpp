#include "KrPySystem.h"

#include "KrPyFailure.h"

#include <import/KrSystemFile.h>
#include <picture/KrNamedJoint.h>
#include <toolkit/foundation/KrReason.h>
#include <toolkit/system/KrPoseDriver.h>

#include <filesystem>
#include <limits>
#include <mutex>

namespace
{

/// Through its written form, which leaves nothing out and shares nothing.
KrStatedSystem copyOf(const KrStatedSystem& system, const std::string& name)
{
    const KrReason said;
    std::string text;
    KrStatedSystem copy;
    if (!system.writeBuffer(text) || !copy.readBuffer(text.data(), text.size(), name)) {
        throw KrPyFailure(KrPyFailure::Kind::Render, name + " cannot be copied: " + said.text("no reason is known"));
    }
    return copy;
}

} // namespace

std::shared_ptr<KrPySystem> KrPySystem::load(const std::string& path, const KrImportOptions& options)
{
    // The importer is for one thread at a time.
    static std::mutex s_importer;
    KrSystemFile file;
    std::string reason;
    {
        const std::lock_guard<std::mutex> lock(s_importer);
        if (!file.read(path, options, KrSystemFile::Accept::SystemsAndMeshes, reason)) {
            std::error_code error;
            const bool isMissing = !std::filesystem::exists(path, error);
            throw KrPyFailure(isMissing ? KrPyFailure::Kind::MissingFile : KrPyFailure::Kind::Format, reason);
        }
    }
    const std::shared_ptr<KrPySystem> system(new KrPySystem);
    system->m_system = file.system.statedSystem();
    system->m_name = file.report.robot();
    system->m_report = file.report.json();
    std::vector<std::string> baseNames;
    for (const KrIndividualManipulator& manipulator : system->m_system.manipulatorSystem().manipulators()) {
        baseNames.push_back(manipulator.name());
    }
    // A manipulator bears its base link's name; one that is alone is better known by the robot's.
    system->m_robots = baseNames.size() == 1 ? std::vector<std::string>{system->m_name} : baseNames;
    system->index(baseNames);
    return system;
}

std::shared_ptr<KrPySystem> KrPySystem::compose(const std::vector<Part>& parts)
{
    const std::shared_ptr<KrPySystem> scene(new KrPySystem);
    KrManipulatorSystem manipulators;
    std::vector<const KrPositionState*> states;
    std::vector<std::string> baseNames;
    std::vector<KrStatedSystem> systems;
    for (const Part& part : parts) {
        systems.push_back(part.system->forDrawing());
    }
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const auto& own = systems[i].manipulatorSystem().manipulators();
        for (unsigned int k = 0; k < own.size(); ++k) {
            KrIndividualManipulator manipulator = own[k];
            manipulator.setPlacement(parts[i].toWorld * manipulator.placement());
            // By this name the libraries know the manipulator; its base link's own is kept aside.
            const std::string name =
                own.size() == 1 ? parts[i].name : parts[i].name + "/" + parts[i].system->m_robots[k];
            manipulator.setName(name);
            scene->m_robots.push_back(name);
            baseNames.push_back(parts[i].system->linkName(k, 0));
            manipulators.manipulators().push_back(std::move(manipulator));
            states.push_back(&systems[i].systemState().positionStates()[k]);
        }
    }
    scene->m_system = KrStatedSystem(manipulators);
    // As the parts stand in their files.
    KrManipulatorSystemState state = scene->m_system.systemState();
    for (unsigned int i = 0; i < states.size(); ++i) {
        state.positionStates()[i] = *states[i];
    }
    scene->m_system.setSystemState(state);
    scene->m_name = "scene";
    scene->index(baseNames);
    return scene;
}

void KrPySystem::index(const std::vector<std::string>& baseNames)
{
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const auto& manipulators = m_system.manipulatorSystem().manipulators();
    for (unsigned int i = 0; i < manipulators.size(); ++i) {
        m_links.push_back({baseNames[i]});
        const std::vector<const KrManipulatorLink*> links = manipulators[i].links();
        for (std::uint32_t k = 0; k < links.size(); ++k) {
            m_links.back().push_back(links[k]->name());
            const KrJointKinematics& joint = links[k]->jointKinematics();
            if (joint.isMovable() && !joint.isMimic()) {
                m_joints.push_back({joint.name(), KrJointKinematics::typeName(joint.type()),
                                    joint.hasLimits() ? joint.lowerLimit() : -kInfinity,
                                    joint.hasLimits() ? joint.upperLimit() : kInfinity, i, k});
            }
        }
    }
}

std::string KrPySystem::whyNoJoint(const std::string& name) const
{
    KrNamedJoint joint;
    std::string reason;
    // One that is there is so under its link's name, which this module does not take for the joint's.
    return KrNamedJoint::findFree(m_system, name, joint, reason)
               ? "there is no joint \"" + name + "\"; the joint of that link is \"" + joint.kinematics->name() + "\""
               : reason;
}

const KrStatedSystem& KrPySystem::ofThread() const
{
    const std::thread::id thread = std::this_thread::get_id();
    if (thread == m_thread) {
        return m_system;
    }
    // Kept: a thread that opens one renderer after the other copies once. A later thread of the same number may have
    // it, because there are no two of one number at a time.
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_copies.find(thread);
    return found != m_copies.end() ? found->second : m_copies.emplace(thread, copyOf(m_system, m_name)).first->second;
}

KrStatedSystem KrPySystem::forDrawing() const
{
    const KrStatedSystem& own = ofThread();
    const bool isBending = !KrPoseDriver(own.manipulatorSystem()).shapes().empty();
    return isBending ? copyOf(own, m_name) : own;
}
