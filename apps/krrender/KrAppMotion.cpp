#include "KrAppMotion.h"

#include <utility>

KrAppMotion::KrAppMotion(const KrStatedSystem& system)
    : KrAppMotion(system, {})
{
    add(system.systemState().time(), {});
}

KrAppMotion::KrAppMotion(const KrStatedSystem& system, std::vector<Joint> joints)
    : m_system(system)
    , m_joints(std::move(joints))
{
}

void KrAppMotion::add(double time, const std::vector<double>& positions)
{
    m_values.push_back(time);
    m_values.insert(m_values.end(), positions.begin(), positions.end());
}

const KrManipulatorSystemState& KrAppMotion::state(std::size_t i)
{
    const double* const row = m_values.data() + i * (1 + m_joints.size());
    for (std::size_t k = 0; k < m_joints.size(); ++k) {
        m_system.setJointPosition(m_joints[k].manipulator, m_joints[k].name, row[1 + k]);
    }
    m_state = m_system.systemState();
    m_state.setTime(row[0]);
    return m_state;
}
