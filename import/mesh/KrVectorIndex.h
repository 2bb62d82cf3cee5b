#pragma once

#include <toolkit/foundation/private/KrRowTable.h>
#include <toolkit/math/KrVector.h>

#include <cstddef>
#include <cstdint>
#include <vector>

/// A list of vectors in which equal ones share an index, in the order of their first appearance.
class KrVectorIndex
{
public:
    /// The index of `value` among the different ones; minus zero counts as zero.
    std::uint32_t add(const KrVector& value)
    {
        // Zeros lose their sign here, so that the two become one value.
        return m_table.number(value + KrVector(0.0, 0.0, 0.0));
    }
    /// Memory for that many values more, so that they do not move.
    void reserve(std::size_t more) { m_table.reserve(more); }
    /// Gives the different vectors away; the list is empty afterwards.
    std::vector<KrVector> take() { return m_table.take(); }

private:
    KrRowTable<KrVector> m_table;
};
