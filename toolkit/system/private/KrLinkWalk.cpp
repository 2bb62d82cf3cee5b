#include <toolkit/system/private/KrLinkWalk.h>

const KrManipulatorLink* KrLinkWalk::next()
{
    // The root itself is not visited: it has no joint.
    const KrManipulatorLink* const last = m_path.empty() ? m_root : &m_path.back().link();
    m_root = nullptr;
    // Depth first, parents before children; this order numbers the joints.
    if (last != nullptr && !last->childLinks().empty()) {
        m_path.push_back({&last->childLinks(), 0, m_next++});
        return &m_path.back().link();
    }
    // Up to the next link that has a sibling still to come.
    while (!m_path.empty()) {
        Step& step = m_path.back();
        if (++step.place < step.siblings->size()) {
            step.index = m_next++;
            return &step.link();
        }
        m_path.pop_back();
    }
    return nullptr;
}
