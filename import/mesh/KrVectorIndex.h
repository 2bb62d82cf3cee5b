#pragma once

#include <toolkit/math/KrVector.h>

#include <cstddef>
#include <cstdint>
#include <vector>

/// A list of vectors in which equal ones share an index, in the order of their first appearance.
class KrVectorIndex
{
public:
    /// The index of `value` in values(); minus zero counts as zero.
    std::uint32_t add(const KrVector& value);
    /// Memory for that many values more, so that they do not move.
    void reserve(std::size_t more) { m_values.reserve(m_values.size() + more); }
    /// All different vectors so far.
    const std::vector<KrVector>& values() const { return m_values; }
    /// Gives values() away; the list is empty afterwards.
    std::vector<KrVector> take();

private:
    static constexpr std::uint32_t kFree = UINT32_MAX;
    /// Part of the hash stands beside the number: most vectors that are another one are told apart by it.
    struct Slot
    {
        std::uint32_t index = kFree;
        std::uint32_t hash = 0;
    };
    void grow();

    std::vector<KrVector> m_values;
    std::vector<Slot> m_slots; ///< open addressing; the size is a power of two
};
