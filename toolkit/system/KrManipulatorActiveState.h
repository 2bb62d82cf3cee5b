#pragma once

#include <toolkit/system/KrPositionState.h>

/// The state from which a manipulator's derived quantities (intra-link placements) are computed.
class KrManipulatorActiveState
{
public:
    /// Base pose and joint positions.
    const KrPositionState& positionState() const { return m_positionState; }
    void setPositionState(const KrPositionState& state) { m_positionState = state; }

private:
    KrPositionState m_positionState;
};
