#include <import/mesh/KrFacetJoin.h>

#include <import/mesh/KrVectorIndex.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace
{

/// A bumpy sheet, corner by corner.
std::vector<KrStlText::Facet> sheet(int side)
{
    std::vector<KrStlText::Facet> facets;
    const auto put = [](KrStlText::Facet& facet, int k, int i, int j) {
        const float at[3] = {static_cast<float>(i), static_cast<float>(j), std::sin(static_cast<float>(i * j))};
        std::copy_n(at, 3, facet.begin() + 3 * k);
    };
    for (int i = 0; i < side; ++i) {
        for (int j = 0; j < side; ++j) {
            for (const int other : {0, 1}) {
                KrStlText::Facet& facet = facets.emplace_back();
                put(facet, 0, i, j);
                put(facet, 1, i + 1, j + other);
                put(facet, 2, i + other, j + 1);
            }
        }
    }
    return facets;
}

/// Places that one table of the class keeps in the same row of slots, whatever its size: their product with the first
/// factor of its hash ends with the same 32 bits, and the third coordinate makes up for the others.
std::vector<KrStlText::Facet> crowd(std::uint32_t count)
{
    constexpr std::uint64_t kFactor = 0x9e3779b97f4a7c15u;
    std::uint64_t inverse = 1;
    for (int i = 0; i < 6; ++i) {
        inverse *= 2 - kFactor * inverse;
    }
    std::vector<KrStlText::Facet> facets(count);
    for (std::uint32_t i = 0; i < 3 * count; ++i) {
        const std::uint32_t low = 0x9e3779b9u * (i / 2);
        const std::uint64_t xy = inverse * (std::uint64_t{0x12345678} << 32 | low);
        const std::uint32_t bits[3] = {static_cast<std::uint32_t>(xy >> 32), static_cast<std::uint32_t>(xy), low};
        std::memcpy(facets[i / 3].data() + 3 * (i % 3), bits, sizeof bits);
    }
    return facets;
}

} // namespace

TEST(KrFacetJoin, JoinsEqualCornersInTheirOrderWhateverTheyAre)
{
    std::vector<KrStlText::Facet> odd = sheet(2);
    odd[0] = {0.0f, 0.0f, 0.0f, -0.0f, -0.0f, -0.0f, NAN, INFINITY, 1e-45f};
    odd[1] = odd[0];
    // Of the crowd each one is looked for among all before it, unless somebody notices.
    for (const std::vector<KrStlText::Facet>& facets : {sheet(120), crowd(30000), odd, {}}) {
        std::vector<KrTriangle> triangles(1);
        std::vector<KrVector> vertices(3);
        KrFacetJoin::join(facets, 7, triangles, vertices);

        KrVectorIndex expected;
        ASSERT_EQ(triangles.size(), facets.size() + 1);
        for (std::size_t t = 0; t < facets.size(); ++t) {
            for (unsigned int k = 0; k < 3; ++k) {
                const float* const at = facets[t].data() + 3 * k;
                ASSERT_EQ(triangles[t + 1].vertex(k), expected.add({at[0], at[1], at[2]})) << t;
                ASSERT_EQ(triangles[t + 1].normal(k), 7u);
            }
        }
        const std::vector<KrVector> values = expected.take();
        ASSERT_EQ(vertices.size(), values.size());
        EXPECT_TRUE(vertices.empty() ||
                    std::memcmp(vertices.data(), values.data(), sizeof(KrVector) * values.size()) == 0);
    }
}
