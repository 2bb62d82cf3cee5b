#include <toolkit/extent/private/KrEqualPositions.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace
{

/// Of a part: its entries and their table stay in a cache of 256 KiB.
constexpr std::size_t kPartSize = 4096;
/// Written to in turns, so that their ends should stay in a cache as well.
constexpr unsigned int kMostPartBits = 12;
constexpr std::uint32_t kFree = 0xffffffffu;

struct Entry
{
    float place[3];
    std::uint32_t index; ///< in the list

    bool isSamePlace(const Entry& other) const { return std::memcmp(place, other.place, sizeof place) == 0; }
    std::uint64_t hash() const { return KrEqualPositions::hash(place[0], place[1], place[2]); }
};

// Adding 0 makes 0 of -0, which is the same place.
Entry entryOf(const KrXmlVectorVector& positions, std::uint32_t index)
{
    const KrVector& p = positions[index];
    return {{static_cast<float>(p.x()) + 0.0f, static_cast<float>(p.y()) + 0.0f, static_cast<float>(p.z()) + 0.0f},
            index};
}

/// Finds equal positions part by part.
class EqualPositions
{
public:
    explicit EqualPositions(const KrXmlVectorVector& positions)
        : m_positions(positions)
        , m_firstOf(positions.size())
    {
    }

    std::vector<std::uint32_t> run();

private:
    void split();
    void join(Entry* begin, Entry* end);
    void joinSorted(Entry* begin, Entry* end);
    std::size_t partOf(const Entry& entry) const { return entry.hash() >> (64 - kMostPartBits) & m_partMask; }

    const KrXmlVectorVector& m_positions;
    std::vector<std::uint32_t> m_firstOf;
    std::vector<Entry> m_entries; ///< part by part, those of a part in the order of the list
    std::vector<std::size_t> m_ends;
    std::size_t m_partMask = 0;
    std::vector<std::uint32_t> m_table; ///< a power of two of entries of the part, by their number in it
};

std::vector<std::uint32_t> EqualPositions::run()
{
    split();
    std::size_t begin = 0;
    for (const std::size_t end : m_ends) {
        join(m_entries.data() + begin, m_entries.data() + end);
        begin = end;
    }
    return std::move(m_firstOf);
}

void EqualPositions::split()
{
    const auto count = static_cast<std::uint32_t>(m_positions.size());
    std::size_t numParts = 1;
    while (numParts * kPartSize < count && numParts < std::size_t{1} << kMostPartBits) {
        numParts *= 2;
    }
    m_partMask = numParts - 1;
    m_ends.resize(numParts);
    m_entries.resize(count);
    if (numParts == 1) {
        m_ends[0] = count;
        for (std::uint32_t i = 0; i < count; ++i) {
            m_entries[i] = entryOf(m_positions, i);
        }
        return;
    }
    std::vector<std::size_t> sizes(numParts);
    for (std::uint32_t i = 0; i < count; ++i) {
        ++sizes[partOf(entryOf(m_positions, i))];
    }
    for (std::size_t part = 1; part < numParts; ++part) {
        m_ends[part] = m_ends[part - 1] + sizes[part - 1];
    }
    // From where each part begins; filling it in moves that to where it ends.
    for (std::uint32_t i = 0; i < count; ++i) {
        const Entry entry = entryOf(m_positions, i);
        m_entries[m_ends[partOf(entry)]++] = entry;
    }
}

void EqualPositions::join(Entry* begin, Entry* end)
{
    const auto count = static_cast<std::size_t>(end - begin);
    std::size_t size = 16;
    while (size < 2 * count) {
        size *= 2;
    }
    m_table.assign(size, kFree);
    // At most half full, a table needs less than two on average.
    std::size_t probesLeft = 16 * count + 1024;
    for (Entry* entry = begin; entry != end; ++entry) {
        std::size_t at = entry->hash() & (size - 1);
        while (m_table[at] != kFree && !begin[m_table[at]].isSamePlace(*entry)) {
            at = (at + 1) & (size - 1);
            if (--probesLeft == 0) {
                joinSorted(begin, end);
                return;
            }
        }
        if (m_table[at] == kFree) {
            m_table[at] = static_cast<std::uint32_t>(entry - begin);
        }
        m_firstOf[entry->index] = begin[m_table[at]].index;
    }
}

// For places that were chosen so that the hash does not tell them apart: never much slower, whatever they are.
void EqualPositions::joinSorted(Entry* begin, Entry* end)
{
    std::sort(begin, end, [](const Entry& a, const Entry& b) {
        const int order = std::memcmp(a.place, b.place, sizeof a.place);
        return order != 0 ? order < 0 : a.index < b.index;
    });
    const Entry* first = begin;
    for (const Entry* entry = begin; entry != end; ++entry) {
        first = entry->isSamePlace(*first) ? first : entry;
        m_firstOf[entry->index] = first->index;
    }
}

} // namespace

std::uint64_t KrEqualPositions::hash(float x, float y, float z)
{
    const float place[3] = {x, y, z};
    std::uint32_t bits[3];
    std::memcpy(bits, place, sizeof bits);
    // Round numbers differ in their upper bits only; multiplying carries bits upwards, and the last steps down again.
    std::uint64_t sum = (std::uint64_t{bits[0]} << 32 | bits[1]) * 0x9e3779b97f4a7c15u;
    sum = (sum ^ sum >> 32 ^ bits[2]) * 0xd6e8feb86659fd93u;
    return sum ^ sum >> 32;
}

std::vector<std::uint32_t> KrEqualPositions::firstOf(const KrXmlVectorVector& positions)
{
    return EqualPositions(positions).run();
}
