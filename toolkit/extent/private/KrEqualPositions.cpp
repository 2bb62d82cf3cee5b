#include <toolkit/extent/private/KrEqualPositions.h>

#include <toolkit/extent/private/KrFloat3.h>
#include <toolkit/foundation/private/KrRowTable.h>

#include <cstddef>

namespace
{

/// Of a part: its entries and their table stay in a cache of 256 KiB.
constexpr std::size_t kPartSize = 4096;
/// Written to in turns, so that their ends should stay in a cache as well.
constexpr unsigned int kMostPartBits = 12;
using PlaceTable = KrRowTable<KrFloat3>;

struct Entry
{
    KrFloat3 place;
    std::uint32_t index; ///< in the list
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
    void join(const Entry* begin, const Entry* end);
    std::size_t partOf(const Entry& entry) const
    {
        return PlaceTable::hash(entry.place) >> (32 - kMostPartBits) & m_partMask;
    }

    const KrXmlVectorVector& m_positions;
    std::vector<std::uint32_t> m_firstOf;
    std::vector<Entry> m_entries; ///< part by part, those of a part in the order of the list
    std::vector<std::size_t> m_ends;
    std::size_t m_partMask = 0;
    PlaceTable m_table;                   ///< of the part in hand
    std::vector<std::uint32_t> m_numbers; ///< of its entries, in the table
    std::vector<std::uint32_t> m_firsts;  ///< the first entry of each of its places
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

void EqualPositions::join(const Entry* begin, const Entry* end)
{
    m_table.restart(static_cast<std::size_t>(end - begin));
    m_numbers.clear();
    m_firsts.clear();
    for (const Entry* entry = begin; entry != end; ++entry) {
        m_numbers.push_back(m_table.number(entry->place));
        if (m_numbers.back() == m_firsts.size()) {
            m_firsts.push_back(entry->index);
        }
    }
    // The list is too long for a cache. By itself, several of its lines are on their way at once.
    for (std::size_t i = 0; i < m_numbers.size(); ++i) {
        m_firstOf[begin[i].index] = m_firsts[m_numbers[i]];
    }
}

} // namespace

std::vector<std::uint32_t> KrEqualPositions::firstOf(const KrXmlVectorVector& positions)
{
    return EqualPositions(positions).run();
}
