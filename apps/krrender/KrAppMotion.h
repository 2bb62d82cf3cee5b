#pragma once

#include <toolkit/system/KrStatedSystem.h>

#include <cstddef>
#include <string>
#include <vector>

/// The states of a motion, made as they are asked for: of each only the time and the joints that move are kept, 8 bytes
/// a number.
class KrAppMotion
{
public:
    /// A joint that moves.
    struct Joint
    {
        unsigned int manipulator = 0;
        std::string name;
    };

    /// A motion of one state, which is the one of `system`.
    explicit KrAppMotion(const KrStatedSystem& system);
    /// A motion without states, to be added.
    /// @param system  its state is that of the joints that do not move
    /// @param joints  each is there, is free to move and follows no other
    KrAppMotion(const KrStatedSystem& system, std::vector<Joint> joints);

    /// Adds a state. @param time  s  @param positions  of the joints that move, in their order, rad or m
    void add(double time, const std::vector<double>& positions);

    std::size_t size() const { return m_values.size() / (1 + m_joints.size()); }
    /// State `i`, below size(); it is there until the next call.
    const KrManipulatorSystemState& state(std::size_t i);

private:
    KrStatedSystem m_system;
    std::vector<Joint> m_joints;
    std::vector<double> m_values; ///< size() x (time, positions)
    KrManipulatorSystemState m_state;
};
