#include <import/mesh/KrVectorIndex.h>

#include <cstring>

namespace
{

/// A vector as bits: a NaN equals itself, so that the search ends.
struct Bits
{
    explicit Bits(const KrVector& value)
    {
        static_assert(sizeof numbers == 3 * sizeof(double));
        std::memcpy(numbers, value.data(), sizeof numbers);
    }
    bool operator==(const Bits& other) const
    {
        return ((numbers[0] ^ other.numbers[0]) | (numbers[1] ^ other.numbers[1]) | (numbers[2] ^ other.numbers[2])) ==
               0;
    }
    /// A sum of products, one for each number, which wait for none of the others; its upper half depends on all bits.
    std::uint32_t hash() const
    {
        std::uint64_t sum =
            numbers[0] * 0xBF58476D1CE4E5B9u + numbers[1] * 0x94D049BB133111EBu + numbers[2] * 0x9E3779B97F4A7C15u;
        sum = (sum ^ sum >> 32) * 0xBF58476D1CE4E5B9u;
        return static_cast<std::uint32_t>(sum >> 32);
    }

    std::uint64_t numbers[3];
};

} // namespace

std::uint32_t KrVectorIndex::add(const KrVector& value)
{
    // Zeros lose their sign here, so that the two become one value.
    const KrVector plain = value + KrVector(0.0, 0.0, 0.0);
    // Half full at most, which keeps the searches short.
    if (2 * (m_values.size() + 1) > m_slots.size()) {
        grow();
    }
    const Bits bits(plain);
    const std::uint32_t hash = bits.hash();
    // A power of two, see grow().
    const std::size_t mask = m_slots.size() - 1;
    std::size_t place = hash & mask;
    while (m_slots[place].index != kFree &&
           (m_slots[place].hash != hash || !(Bits(m_values[m_slots[place].index]) == bits))) {
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
