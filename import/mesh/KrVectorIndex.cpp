#include <import/mesh/KrVectorIndex.h>

#include <cstring>

namespace
{

std::uint64_t hashOf(const KrVector& value)
{
    std::uint64_t hash = 0;
    for (unsigned int i = 0; i < 3; ++i) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, value.data() + i, sizeof bits);
        // Mixing step of splitmix64: every bit of the input reaches every bit of the slot number.
        hash = (hash ^ bits) * 0xBF58476D1CE4E5B9u;
        hash ^= hash >> 31;
    }
    return hash;
}

bool isSame(const KrVector& a, const KrVector& b)
{
    // As bits: a NaN equals itself, so that the search ends.
    return std::memcmp(a.data(), b.data(), 3 * sizeof(double)) == 0;
}

} // namespace

std::uint32_t KrVectorIndex::add(const KrVector& value)
{
    // Zeros lose their sign here, so that the two become one value.
    const KrVector plain = value + KrVector(0.0, 0.0, 0.0);
    // Half full at most, which keeps the searches short.
    if (2 * (m_values.size() + 1) > m_slots.size()) {
        grow();
    }
    std::uint32_t& slot = m_slots[slotOf(plain)];
    if (slot == kFree) {
        slot = static_cast<std::uint32_t>(m_values.size());
        m_values.push_back(plain);
    }
    return slot;
}

std::vector<KrVector> KrVectorIndex::take()
{
    // The slots count the values, so both go.
    m_slots.clear();
    std::vector<KrVector> values;
    values.swap(m_values);
    return values;
}

std::size_t KrVectorIndex::slotOf(const KrVector& value) const
{
    // A power of two, see grow().
    const std::size_t mask = m_slots.size() - 1;
    std::size_t slot = static_cast<std::size_t>(hashOf(value)) & mask;
    while (m_slots[slot] != kFree && !isSame(m_values[m_slots[slot]], value)) {
        slot = (slot + 1) & mask;
    }
    return slot;
}

void KrVectorIndex::grow()
{
    // A power of two, from the first size on: slotOf() cuts numbers down by a mask.
    m_slots.assign(m_slots.empty() ? 64 : 2 * m_slots.size(), kFree);
    for (std::size_t i = 0; i < m_values.size(); ++i) {
        m_slots[slotOf(m_values[i])] = static_cast<std::uint32_t>(i);
    }
}
