#include <toolkit/system/private/KrShapeLookup.h>

const KrManipulatorLink* KrShapeLookup::link(const KrShapeStateCacheKey& key)
{
    if (key.manipID() >= m_system.manipulators().size()) {
        return nullptr;
    }
    const KrIndividualManipulator& manipulator = m_system.manipulators()[key.manipID()];
    // The base link is the manipulator itself and has no joint.
    if (key.linkID() == KrShapeStateCacheKey::kBaseLink) {
        return &manipulator;
    }
    const bool isAhead = m_walk && m_manipulator == key.manipID() && m_link != nullptr &&
                         static_cast<std::uint32_t>(m_walk->index()) <= key.linkID();
    if (!isAhead) {
        m_manipulator = key.manipID();
        m_walk.emplace(manipulator);
        m_link = m_walk->next();
    }
    while (m_link != nullptr && static_cast<std::uint32_t>(m_walk->index()) != key.linkID()) {
        m_link = m_walk->next();
    }
    return m_link;
}

const KrShape* KrShapeLookup::shape(const KrShapeStateCacheKey& key)
{
    const KrManipulatorLink* const found = link(key);
    return found == nullptr ? nullptr : found->shape(key.shapeID());
}
