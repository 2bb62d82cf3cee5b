#include <import/mesh/KrFacetJoin.h>

#include <import/mesh/KrVectorIndex.h>

#include <cstring>

namespace
{

/// Numbers of places, in the order in which they come: an open hash table.
class Places
{
public:
    /// The bits of x and y, and those of z.
    struct Place
    {
        std::uint64_t xy = 0;
        std::uint32_t z = 0;
        bool operator==(const Place& other) const { return xy == other.xy && z == other.z; }
    };

    /// @param numFacets  a closed surface has half as many places, and the table is made for that
    explicit Places(std::size_t numFacets)
    {
        std::size_t size = 64;
        while (size < numFacets) {
            size *= 2;
        }
        m_slots.resize(size, kFree);
        m_places.reserve(numFacets / 2 + 2);
    }

    /// @param at  x, y and z
    std::uint32_t number(const float* at)
    {
        const Place place = placeOf(at);
        std::uint32_t* slot = find(place);
        if (*slot == kFree) {
            if (2 * m_places.size() >= m_slots.size()) {
                grow();
                slot = find(place);
            }
            *slot = static_cast<std::uint32_t>(m_places.size());
            m_places.push_back(place);
        }
        return *slot;
    }

    /// Slots that were looked at and held another place.
    std::size_t numInVain() const { return m_numInVain; }
    std::vector<KrVector> vectors() const;

private:
    static constexpr std::uint32_t kFree = UINT32_MAX;

    static Place placeOf(const float* at)
    {
        // Adding 0 makes 0 of -0.
        const float numbers[3] = {at[0] + 0.0f, at[1] + 0.0f, at[2] + 0.0f};
        std::uint32_t bits[3];
        std::memcpy(bits, numbers, sizeof bits);
        return {std::uint64_t{bits[0]} << 32 | bits[1], bits[2]};
    }

    /// The slot of a place, or the free one where it belongs.
    std::uint32_t* find(const Place& place)
    {
        // Round numbers differ in their upper bits only; multiplying carries bits upwards, and the last step down
        // again.
        std::uint64_t hash = place.xy * 0x9e3779b97f4a7c15u;
        hash = (hash ^ hash >> 32 ^ place.z) * 0xd6e8feb86659fd93u;
        const std::size_t mask = m_slots.size() - 1;
        std::size_t at = static_cast<std::size_t>(hash >> 32) & mask;
        while (m_slots[at] != kFree && !(m_places[m_slots[at]] == place)) {
            at = (at + 1) & mask;
            ++m_numInVain;
        }
        return &m_slots[at];
    }

    void grow()
    {
        m_slots.assign(2 * m_slots.size(), kFree);
        for (std::size_t i = 0; i < m_places.size(); ++i) {
            *find(m_places[i]) = static_cast<std::uint32_t>(i);
        }
    }

    std::vector<Place> m_places;
    std::vector<std::uint32_t> m_slots; ///< a power of two of them, half full at most
    std::size_t m_numInVain = 0;
};

std::vector<KrVector> Places::vectors() const
{
    std::vector<KrVector> vectors;
    vectors.reserve(m_places.size());
    for (const Place& place : m_places) {
        const std::uint32_t bits[3] = {static_cast<std::uint32_t>(place.xy >> 32), static_cast<std::uint32_t>(place.xy),
                                       place.z};
        float numbers[3];
        std::memcpy(numbers, bits, sizeof numbers);
        vectors.emplace_back(numbers[0], numbers[1], numbers[2]);
    }
    return vectors;
}

/// At most half full, a table looks at less than one slot in vain on average.
constexpr std::size_t kMostInVain = 16;
constexpr std::size_t kFirstInVain = 4096;

/// For places that were chosen so that the table does not tell them apart: another one, which sees to that.
void joinSlowly(const std::vector<KrStlText::Facet>& facets, std::uint32_t normal, KrTriangle* triangle,
                std::vector<KrVector>& vertices)
{
    KrVectorIndex index;
    for (const KrStlText::Facet& facet : facets) {
        for (unsigned int k = 0; k < 3; ++k) {
            const float* const at = facet.data() + 3 * k;
            triangle->setCorner(k, index.add({at[0], at[1], at[2]}), normal, 0);
        }
        ++triangle;
    }
    vertices = index.take();
}

} // namespace

void KrFacetJoin::join(const std::vector<KrStlText::Facet>& facets, std::uint32_t normal,
                       std::vector<KrTriangle>& triangles, std::vector<KrVector>& vertices)
{
    const std::size_t first = triangles.size();
    triangles.resize(first + facets.size());
    KrTriangle* triangle = triangles.data() + first;
    Places places(facets.size());
    std::size_t mostInVain = kFirstInVain;
    for (const KrStlText::Facet& facet : facets) {
        for (unsigned int k = 0; k < 3; ++k) {
            triangle->setCorner(k, places.number(facet.data() + 3 * k), normal, 0);
        }
        ++triangle;
        mostInVain += 3 * kMostInVain;
        if (places.numInVain() > mostInVain) {
            joinSlowly(facets, normal, triangles.data() + first, vertices);
            return;
        }
    }
    vertices = places.vectors();
}
