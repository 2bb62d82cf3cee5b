#pragma once

#include <toolkit/system/KrManipulatorSystem.h>
#include <toolkit/system/KrShapeStateCacheKey.h>
#include <toolkit/system/private/KrLinkWalk.h>

#include <cstdint>
#include <optional>

/// Finds links and shapes by their keys, for those who ask for many. Where each key names the link of the one before,
/// or one behind it, all of them cost one walk through each manipulator. The system does not change meanwhile: nothing
/// can be kept for longer, since clients may change it at any time.
class KrShapeLookup
{
public:
    /// @param system  borrowed
    explicit KrShapeLookup(const KrManipulatorSystem& system)
        : m_system(system)
    {
    }

    /// Null for a key that names no link. Whether the link has that shape is not asked. Borrowed from the system.
    const KrManipulatorLink* link(const KrShapeStateCacheKey& key);
    /// Null for a key that names no shape. Borrowed from the system.
    const KrShape* shape(const KrShapeStateCacheKey& key);

private:
    const KrManipulatorSystem& m_system;
    std::uint32_t m_manipulator = 0;
    std::optional<KrLinkWalk> m_walk;          ///< through that manipulator; none before the first key
    const KrManipulatorLink* m_link = nullptr; ///< that the walk has come to; null behind the last one
};
