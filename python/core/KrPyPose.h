#pragma once

#include <toolkit/system/KrManipulatorSystemState.h>

#include <cstdint>
#include <utility>
#include <vector>

class KrPySystem;

/// What a caller says about one state: joints and places that are not named stay where the system has them.
struct KrPyPose
{
    std::vector<std::uint32_t> joints; ///< indices into KrPySystem::joints
    std::vector<double> positions;     ///< of those, rad or m
    /// Manipulators and where their base links are, in the world frame.
    std::vector<std::pair<std::uint32_t, KrCoordinateSystemTransformation>> bases;
};

/// Makes states from poses, without allocation from the second one on.
class KrPyPoser
{
public:
    /// @param system  borrowed, outlives this object
    explicit KrPyPoser(const KrPySystem& system);

    /// The state is there until the next call. Each depends on `pose` alone.
    const KrManipulatorSystemState& state(const KrPyPose& pose);

private:
    const KrPySystem& m_system;
    const KrManipulatorSystemState& m_initial;
    KrManipulatorSystemState m_state;
    std::vector<std::uint32_t> m_withMimics; ///< manipulators
};
