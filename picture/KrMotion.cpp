#include <picture/KrMotion.h>

#include <cmath>
#include <utility>

KrMotion::KrMotion(const KrStatedSystem& system)
    : KrMotion(system, {})
{
    // One state, so that a picture is a motion of one frame.
    add(system.systemState().time(), {});
}

KrMotion::KrMotion(const KrStatedSystem& system, std::vector<Joint> joints)
    : m_system(system)
    , m_joints(std::move(joints))
{
}

void KrMotion::add(double time, const std::vector<double>& positions)
{
    // A row: the time, then the positions in the order of the joints.
    m_values.push_back(time);
    m_values.insert(m_values.end(), positions.begin(), positions.end());
}

double KrMotion::framesPerSecond() const
{
    constexpr double kDefault = 30.0;
    // By the first and the last time, because rows need not be even.
    return hasTimes() ? static_cast<double>(size() - 1) / (time(size() - 1) - time(0)) : kDefault;
}

bool KrMotion::isEven() const
{
    const double rate = framesPerSecond();
    for (std::size_t i = 0; hasTimes() && i < size(); ++i) {
        // Half a step: farther away a row would be nearer to another frame's time.
        if (std::abs((time(i) - time(0)) * rate - static_cast<double>(i)) > 0.5) {
            return false;
        }
    }
    return true;
}

std::vector<double> KrMotion::schedule(std::optional<double> rate) const
{
    // A rate that is given counts before the times.
    const bool isTimed = hasTimes() && !rate;
    const double step = 1.0 / rate.value_or(framesPerSecond());
    std::vector<double> due;
    due.reserve(size() + 1);
    for (std::size_t i = 0; i < size(); ++i) {
        due.push_back(isTimed ? time(i) - time(0) : step * static_cast<double>(i));
    }
    // When it begins anew, one step behind the last state.
    due.push_back((due.empty() ? 0.0 : due.back()) + step);
    return due;
}

const KrManipulatorSystemState& KrMotion::state(std::size_t i)
{
    const double* const row = m_values.data() + i * (1 + m_joints.size());
    for (std::size_t k = 0; k < m_joints.size(); ++k) {
        // Through the system, so that joints that follow others do.
        m_system.setJointPosition(m_joints[k].manipulator, m_joints[k].name, row[1 + k]);
    }
    m_state = m_system.systemState();
    m_state.setTime(row[0]);
    return m_state;
}
