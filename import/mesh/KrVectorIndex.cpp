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
    const auto hash = static_cast<std::uint32_t>(hashOf(plain));
    // A power of two, see grow().
    const std::size_t mask = m_slots.size() - 1;
    std::size_t place = hash & mask;
    while (m_slots[place].index != kFree &&
           (m_slots[place].hash != hash || !isSame(m_values[m_slots[place].index], plain))) {
        place = (place + 1) & mask;
    }
    Slot& slot = m_slots[place];
    if (slot.index == kFree) {
        slot = {static_cast<std::uint32_t>(m_values.size()), hash};
        m_values.push_back(plain);
    }
    return slot.index;
}

std::vector<KrVector> KrVectorIndex::take()
{
    // The slots count the values, so both go.
    m_slots.clear();
    std::vector<KrVector> values;
    values.swap(m_values);
    return values;
}

void KrVectorIndex::grow()
{
    std::vector<Slot> before(m_slots.empty() ? 64 : 4 * m_slots.size());
    before.swap(m_slots);
    // A power of two, from the first size on: add() cuts numbers down by a mask. The values need not be looked at,
    // since all of them are different.
    const std::size_t mask = m_slots.size() - 1;
    for (const Slot& slot : before) {
        std::size_t place = slot.hash & mask;
        while (slot.index != kFree && m_slots[place].index != kFree) {
            place = (place + 1) & mask;
        }
        if (slot.index != kFree) {
            m_slots[place] = slot;
        }
    }
}
