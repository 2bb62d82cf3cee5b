#pragma once

#include <cstdint>

/// Names one shape of a stated system.
class KrShapeStateCacheKey
{
public:
    /// The link id of a manipulator's base.
    static constexpr std::uint32_t kBaseLink = 0xFFFFFFFEu;

    KrShapeStateCacheKey() = default;
    /// Numbers from 0, kBaseLink for the base link; whether such a shape exists is not asked.
    KrShapeStateCacheKey(std::uint32_t manipulator, std::uint32_t link, std::uint32_t shape)
        : m_manipulator(manipulator)
        , m_link(link)
        , m_shape(shape)
    {
    }

    /// The three numbers.
    std::uint32_t manipID() const { return m_manipulator; }
    std::uint32_t linkID() const { return m_link; } ///< joint index of the link, or kBaseLink
    std::uint32_t shapeID() const { return m_shape; }

    friend bool operator==(const KrShapeStateCacheKey& a, const KrShapeStateCacheKey& b)
    {
        return a.m_manipulator == b.m_manipulator && a.m_link == b.m_link && a.m_shape == b.m_shape;
    }

private:
    std::uint32_t m_manipulator = 0;
    std::uint32_t m_link = kBaseLink;
    std::uint32_t m_shape = 0;
};
