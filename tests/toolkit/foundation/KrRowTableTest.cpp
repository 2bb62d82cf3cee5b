#include <toolkit/foundation/private/KrRowTable.h>
#include <toolkit/math/KrVector.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <vector>

namespace
{

template <std::size_t N>
using Floats = std::array<float, N>;

/// The numbers that a table gives, against those of a tree that compares bits.
template <typename Row>
void expectFirstComeNumbers(KrRowTable<Row>& table, const std::vector<Row>& rows)
{
    std::map<std::array<std::uint32_t, sizeof(Row) / 4>, std::uint32_t> known;
    for (const Row& row : rows) {
        std::array<std::uint32_t, sizeof(Row) / 4> bits;
        std::memcpy(bits.data(), &row, sizeof row);
        const auto number = known.emplace(bits, static_cast<std::uint32_t>(known.size())).first->second;
        ASSERT_EQ(table.number(row), number);
        ASSERT_EQ(std::memcmp(&table.rows()[number], &row, sizeof row), 0);
    }
    EXPECT_EQ(table.size(), known.size());
}

/// Rows of few different numbers, so that many are equal and many differ in one of them only.
template <std::size_t N>
void expectEqualRowsFound()
{
    std::mt19937 random(N);
    const float numbers[] = {0.0f, -0.0f, 1.0f, -1.0f, 0.1f, std::nanf(""), INFINITY, 1e-44f};
    std::vector<Floats<N>> rows(20000);
    for (Floats<N>& row : rows) {
        for (float& number : row) {
            number = numbers[random() % 8];
        }
    }
    KrRowTable<Floats<N>> table;
    expectFirstComeNumbers(table, rows);
    EXPECT_FALSE(table.isTree());
}

} // namespace

TEST(KrRowTable, FindsRowsOfTheSameBits)
{
    expectEqualRowsFound<1>();
    expectEqualRowsFound<3>();
    expectEqualRowsFound<6>();
    expectEqualRowsFound<8>();
}

// As long as they are in the slots, each row that is looked for goes past all that came before it.
TEST(KrRowTable, RowsThatAreNotSpreadGoIntoATree)
{
    std::mt19937 random(5);
    std::vector<Floats<3>> rows;
    while (rows.size() < 2000) {
        const Floats<3> row = {static_cast<float>(random() % 100000), static_cast<float>(random() % 100000), 1.0f};
        if ((KrRowTable<Floats<3>>::hash(row) & 0xfff) == 0) {
            rows.push_back(row);
            rows.push_back(rows[random() % rows.size()]);
        }
    }
    KrRowTable<Floats<3>> table;
    expectFirstComeNumbers(table, rows);
    EXPECT_TRUE(table.isTree());
    // Nothing of it is left for the next ones.
    table.restart(10);
    expectFirstComeNumbers(table, {rows[3], rows[0], rows[3]});
    EXPECT_FALSE(table.isTree());
    expectFirstComeNumbers(table, {rows[3], rows[0], rows.back()});
    table.take();
    expectFirstComeNumbers(table, rows);
    EXPECT_TRUE(table.isTree());
}

// Round numbers have zeros in all but their upper bits.
TEST(KrRowTable, SpreadsThePlacesOfAGrid)
{
    std::set<std::uint32_t> hashes;
    for (int i = 0; i < 64 * 64 * 64; ++i) {
        hashes.insert(KrRowTable<KrVector>::hash({1.0 * (i / 4096), 1.0 * (i / 64 % 64), 1.0 * (i % 64)}));
    }
    EXPECT_GT(hashes.size(), 64u * 64 * 64 * 99 / 100);
}
