#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <set>
#include <type_traits>
#include <utility>
#include <vector>

/// Numbers rows in the order in which they come first: the same bits get the same number.
///
/// A hash table with open addressing. Who writes a file may choose rows that the hash does not tell apart: as soon as
/// such rows cost much more than others, they are kept in a tree. What comes out depends on nothing but the rows and
/// their order.
///
/// @tparam Row  numbers of 4 or 8 bytes side by side and nothing else, 4 to 32 bytes of them
template <typename Row>
class KrRowTable
{
public:
    KrRowTable() = default;
    /// The tree knows where the rows are.
    KrRowTable(const KrRowTable&) = delete;
    KrRowTable& operator=(const KrRowTable&) = delete;

    /// The number of the row, from 0 on; fewer than 2^32 - 1 rows fit.
    std::uint32_t number(const Row& row) { return number(row, hash(row)); }
    /// The same for who has its hash() already.
    std::uint32_t number(const Row& row, std::uint32_t rowHash)
    {
        // Half full at most, which keeps the searches short.
        if (m_room == 0 && !grow()) {
            return numberInTree(row);
        }
        Slot* const slot = find(row, rowHash);
        if (slot == nullptr) {
            plantTree();
            return numberInTree(row);
        }
        if (slot->number == kFree) {
            m_rows.push_back(row);
            *slot = {static_cast<std::uint32_t>(m_rows.size() - 1), rowHash};
            --m_room;
        }
        return slot->number;
    }

    /// All different rows so far, by number.
    const std::vector<Row>& rows() const { return m_rows; }
    std::size_t size() const { return m_rows.size(); }
    /// Memory for that many rows more, so that they do not move.
    void reserve(std::size_t more) { m_rows.reserve(m_rows.size() + more); }
    /// Forgets all rows; the memory stays, and is enough for `count` of them.
    void restart(std::size_t count)
    {
        m_rows.clear();
        m_rows.reserve(count);
        m_tree.clear();
        m_isTree = false;
        std::size_t size = kFirstSlots;
        while (size < 2 * count) {
            size *= 2;
        }
        m_slots.assign(size, Slot());
        m_room = size / 2;
    }
    /// Gives rows() away; the table is empty afterwards.
    std::vector<Row> take()
    {
        std::vector<Row> rows;
        rows.swap(m_rows);
        m_slots.clear();
        m_room = 0;
        m_tree.clear();
        m_isTree = false;
        return rows;
    }

    /// By which rows are spread: the lower bits choose their place in the table.
    static std::uint32_t hash(const Row& row)
    {
        // A sum of products, one for each word, which wait for none of the others. Multiplying carries bits upwards, so
        // the upper half depends on all of them.
        std::uint64_t sum = sumOf(row, Words());
        sum = (sum ^ sum >> 32) * kFactors[0];
        return static_cast<std::uint32_t>(sum >> 32);
    }
    /// Whether there were rows that the hash did not spread.
    bool isTree() const { return m_isTree; }

private:
    static_assert(std::is_trivially_copyable_v<Row> && sizeof(Row) % 4 == 0 && sizeof(Row) <= 32);
    /// Gone through one by one, without a loop.
    using Words = std::make_index_sequence<(sizeof(Row) + 7) / 8>;
    static constexpr std::uint64_t kFactors[4] = {0xbf58476d1ce4e5b9u, 0x94d049bb133111ebu, 0x9e3779b97f4a7c15u,
                                                  0xd6e8feb86659fd93u};
    static constexpr std::uint32_t kFree = UINT32_MAX;
    static constexpr std::size_t kFirstSlots = 64;
    /// Of a search. The longest one among 10 million rows that are spread evenly takes some 80 (B. Pittel, "Linear
    /// probing: the probable largest search time grows logarithmically with the number of records", 1987).
    static constexpr unsigned int kMostSteps = 256;

    /// The hash stands beside the number: most rows that are another one are told apart by it.
    struct Slot
    {
        std::uint32_t number = kFree;
        std::uint32_t hash = 0;
    };
    struct Less
    {
        const std::vector<Row>* rows;
        bool operator()(std::uint32_t a, std::uint32_t b) const
        {
            return std::memcmp(&(*rows)[a], &(*rows)[b], sizeof(Row)) < 0;
        }
    };

    /// Eight bytes of the row, or its last four. Round numbers differ in their upper bits only, so halves change
    /// places: as products the numbers of a grid would be a few multiples of a high power of two.
    template <std::size_t I>
    static std::uint64_t word(const Row& row)
    {
        const char* const bytes = reinterpret_cast<const char*>(&row) + 8 * I;
        if constexpr (8 * (I + 1) <= sizeof(Row)) {
            std::uint64_t word = 0;
            std::memcpy(&word, bytes, sizeof word);
            return word << 32 | word >> 32;
        } else {
            std::uint32_t word = 0;
            std::memcpy(&word, bytes, sizeof word);
            return word;
        }
    }
    template <std::size_t... I>
    static std::uint64_t sumOf(const Row& row, std::index_sequence<I...>)
    {
        return ((word<I>(row) * kFactors[I]) + ...);
    }
    /// As bits: NaN equals itself, so that the search ends.
    template <std::size_t... I>
    static bool isSame(const Row& a, const Row& b, std::index_sequence<I...>)
    {
        return ((word<I>(a) ^ word<I>(b)) | ...) == 0;
    }

    /// The slot of the row, or the free one where it belongs; null when it is too far.
    Slot* find(const Row& row, std::uint32_t rowHash)
    {
        // Their number is a power of two.
        const std::size_t mask = m_slots.size() - 1;
        std::size_t at = rowHash & mask;
        for (unsigned int step = 0; step < kMostSteps; ++step) {
            Slot& slot = m_slots[at];
            if (slot.number == kFree || (slot.hash == rowHash && isSame(m_rows[slot.number], row, Words()))) {
                return &slot;
            }
            at = (at + 1) & mask;
        }
        return nullptr;
    }

    /// False where rows are kept in the tree.
    bool grow()
    {
        if (m_isTree) {
            return false;
        }
        std::vector<Slot> before(std::max(4 * m_slots.size(), kFirstSlots));
        before.swap(m_slots);
        m_room = m_slots.size() / 2 - m_rows.size();
        for (const Slot& old : before) {
            if (old.number == kFree) {
                continue;
            }
            Slot* const slot = find(m_rows[old.number], old.hash);
            if (slot == nullptr) {
                plantTree();
                return false;
            }
            *slot = old;
        }
        return true;
    }

    void plantTree()
    {
        m_isTree = true;
        // Without room each row comes by grow(), which sends it to the tree.
        std::vector<Slot>().swap(m_slots);
        m_room = 0;
        for (std::uint32_t i = 0; i < m_rows.size(); ++i) {
            m_tree.insert(i);
        }
    }

    std::uint32_t numberInTree(const Row& row)
    {
        // The tree compares rows by their numbers, so this one needs one.
        m_rows.push_back(row);
        const auto [known, isNew] = m_tree.insert(static_cast<std::uint32_t>(m_rows.size() - 1));
        if (!isNew) {
            m_rows.pop_back();
        }
        return *known;
    }

    std::vector<Row> m_rows;
    std::vector<Slot> m_slots; ///< a power of two of them, or none
    std::size_t m_room = 0;    ///< rows that are missing until half of the slots are taken
    std::set<std::uint32_t, Less> m_tree{Less{&m_rows}};
    bool m_isTree = false;
};
