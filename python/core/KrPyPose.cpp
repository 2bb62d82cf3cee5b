#include "KrPyPose.h"

#include "KrPySystem.h"

#include <algorithm>

KrPyPoser::KrPyPoser(const KrPySystem& system)
    : m_system(system)
    , m_initial(system.stated().systemState())
    , m_state(m_initial)
{
    const auto& manipulators = system.stated().manipulatorSystem().manipulators();
    for (unsigned int i = 0; i < manipulators.size(); ++i) {
        const std::vector<const KrManipulatorLink*> links = manipulators[i].links();
        if (std::any_of(links.begin(), links.end(),
                        [](const auto* link) { return link->jointKinematics().isMimic(); })) {
            m_withMimics.push_back(i);
        }
    }
}

const KrManipulatorSystemState& KrPyPoser::state(const KrPyPose& pose)
{
    KrXmlVectorType<KrPositionState>& states = m_state.positionStates();
    for (unsigned int i = 0; i < states.size(); ++i) {
        const KrPositionState& initial = m_initial.positionStates()[i];
        // Number by number: assigning the list would allocate.
        for (unsigned int k = 0; k < initial.jointPositions().size(); ++k) {
            states[i].jointPositions()[k] = initial.jointPositions()[k];
        }
        states[i].setBaseTransformation(initial.baseTransformation());
    }
    for (std::size_t i = 0; i < pose.joints.size(); ++i) {
        const KrPySystem::Joint& joint = m_system.joints()[pose.joints[i]];
        states[joint.manipulator].jointPositions()[joint.index] = pose.positions[i];
    }
    const auto& manipulators = m_system.stated().manipulatorSystem().manipulators();
    for (const auto& [manipulator, baseToWorld] : pose.bases) {
        // The manipulator's placement stands above its base's pose.
        states[manipulator].setBaseTransformation(manipulators[manipulator].placement().inverse() * baseToWorld);
    }
    for (const std::uint32_t manipulator : m_withMimics) {
        manipulators[manipulator].applyMimics(states[manipulator]);
    }
    return m_state;
}
