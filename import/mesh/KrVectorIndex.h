#pragma once

#include <toolkit/math/KrVector.h>

#include <cstdint>
#include <vector>

/// A list of vectors in which equal ones share an index, in the order of their first appearance.
class KrVectorIndex
{
public:
    /// The index of `value` in values(); minus zero counts as zero.
    std::uint32_t add(const KrVector& value);
    /// All different vectors so far.
    const std::vector<KrVector>& values() const { return m_values; }
    /// Gives values() away; the list is empty afterwards.
    std::vector<KrVector> take();

private:
    static constexpr std::uint32_t kFree = UINT32_MAX;
    std::size_t slotOf(const KrVector& value) const;
    void grow();

    std::vector<KrVector> m_values;
    std::vector<std::uint32_t> m_slots; ///< open addressing; the size is a power of two
};
