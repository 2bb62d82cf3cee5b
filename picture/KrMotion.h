#pragma once

#include <toolkit/system/KrStatedSystem.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// The states of a motion, made as they are asked for: of each only the time and the joints that move are kept, 8 bytes
/// a number.
class KrMotion
{
public:
    /// A joint that moves.
    struct Joint
    {
        unsigned int manipulator = 0;
        std::string name;
    };

    /// A motion of one state, which is the one of `system`.
    explicit KrMotion(const KrStatedSystem& system);
    /// A motion without states, to be added.
    /// @param system  its state is that of the joints that do not move
    /// @param joints  each is there, is free to move and follows no other
    KrMotion(const KrStatedSystem& system, std::vector<Joint> joints);

    /// Adds a state. @param time  s, later than the one before; the same for all when they have none  @param positions
    /// of the joints that move, in their order, rad or m
    void add(double time, const std::vector<double>& positions);

    /// Number of states.
    std::size_t size() const { return m_values.size() / (1 + m_joints.size()); }
    double time(std::size_t i) const { return m_values[i * (1 + m_joints.size())]; } ///< of state `i`, s

    /// At which the states follow each other, 1/s: by their times, on the whole; 30 where they have none.
    double framesPerSecond() const;
    /// Whether no state comes more than half a step earlier or later than at that rate.
    bool isEven() const;
    /// When each state is due, from the first one on, s; last, when the first one is due again.
    /// @param rate  at which they follow each other instead, 1/s; by default as their times have it
    std::vector<double> schedule(std::optional<double> rate) const;

    /// State `i`, below size(); it is there until the next call.
    const KrManipulatorSystemState& state(std::size_t i);

private:
    bool hasTimes() const { return size() > 1 && time(1) > time(0); }

    KrStatedSystem m_system;
    std::vector<Joint> m_joints;
    std::vector<double> m_values; ///< size() x (time, positions)
    KrManipulatorSystemState m_state;
};
