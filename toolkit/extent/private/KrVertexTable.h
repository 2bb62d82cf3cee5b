#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

/// Numbers rows of floats in the order in which they come: the same bits get the same number.
///
/// An open hash table over the rows themselves; the numbers depend on nothing but the rows and their order.
class KrVertexTable
{
public:
    /// @param width  floats of a row, at least 1
    explicit KrVertexTable(std::size_t width)
        : m_width(width)
        , m_slots(kFirstSlots, kFree)
    {
    }

    /// @param row  `width` floats, copied
    /// @return the number of the row, from 0 on; fewer than 2^32 - 1 rows fit
    std::uint32_t number(const float* row)
    {
        // At most half full: probes stay short.
        if (2 * m_size >= m_slots.size()) {
            grow();
        }
        std::uint32_t& slot = find(row);
        if (slot == kFree) {
            slot = static_cast<std::uint32_t>(m_size++);
            m_rows.insert(m_rows.end(), row, row + m_width);
        }
        return slot;
    }

    std::size_t size() const { return m_size; }
    /// `width` floats a row, by number.
    const std::vector<float>& rows() const { return m_rows; }

private:
    static constexpr std::size_t kFirstSlots = 1024;
    static constexpr std::uint32_t kFree = 0xffffffffu;

    // The slot of the row, or the free one where it belongs.
    std::uint32_t& find(const float* row)
    {
        const std::size_t mask = m_slots.size() - 1;
        std::size_t at = hash(row) & mask;
        while (m_slots[at] != kFree && std::memcmp(&m_rows[m_slots[at] * m_width], row, m_width * sizeof(float)) != 0) {
            at = (at + 1) & mask;
        }
        return m_slots[at];
    }

    std::size_t hash(const float* row) const
    {
        std::uint64_t sum = 0;
        for (std::size_t i = 0; i < m_width; ++i) {
            std::uint32_t bits = 0;
            std::memcpy(&bits, row + i, sizeof bits);
            // Round numbers differ in their upper bits only, so those are brought down after each step.
            sum = (sum ^ bits) * 0x9e3779b97f4a7c15u;
            sum ^= sum >> 32;
        }
        return static_cast<std::size_t>(sum);
    }

    void grow()
    {
        m_slots.assign(2 * m_slots.size(), kFree);
        for (std::size_t i = 0; i < m_size; ++i) {
            find(&m_rows[i * m_width]) = static_cast<std::uint32_t>(i);
        }
    }

    std::size_t m_width;
    std::size_t m_size = 0;
    std::vector<float> m_rows;
    std::vector<std::uint32_t> m_slots; ///< a power of two of them
};
