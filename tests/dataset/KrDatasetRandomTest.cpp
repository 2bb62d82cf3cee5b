#include <dataset/KrDatasetRandom.h>

#include <gtest/gtest.h>

#include <cmath>
#include <set>

namespace
{

using Words2 = KrDatasetRandom::Words2;
using Words4 = KrDatasetRandom::Words4;

TEST(KrDatasetRandom, IsThePublishedGenerator)
{
    // Known answers that the generator's authors publish with it: philox4x32, 10 rounds.
    EXPECT_EQ(KrDatasetRandom::philox(Words4{0, 0, 0, 0}, Words2{0, 0}),
              (Words4{0x6627e8d5, 0xe169c58d, 0xbc57ac4c, 0x9b00dbd8}));
    EXPECT_EQ(
        KrDatasetRandom::philox(Words4{0xffffffff, 0xffffffff, 0xffffffff, 0xffffffff}, Words2{0xffffffff, 0xffffffff}),
        (Words4{0x408f276d, 0x41c83b0e, 0xa20bc7c6, 0x6d5451fd}));
    EXPECT_EQ(
        KrDatasetRandom::philox(Words4{0x243f6a88, 0x85a308d3, 0x13198a2e, 0x03707344}, Words2{0xa4093822, 0x299f31d0}),
        (Words4{0xd16cfe09, 0x94fdcceb, 0x5001e420, 0x24126ea1}));
    // Known answers of the hash, from its authors' test suite.
    EXPECT_EQ(KrDatasetRandom::hash(""), 0xcbf29ce484222325u);
    EXPECT_EQ(KrDatasetRandom::hash("a"), 0xaf63dc4c8601ec8cu);
    EXPECT_EQ(KrDatasetRandom::hash("foobar"), 0x85944171f73967e8u);
}

TEST(KrDatasetRandom, TakesEveryWordOfSeedSampleAndName)
{
    std::set<std::uint64_t> seen;
    for (const std::uint64_t seed : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{1} << 32}) {
        for (const std::uint64_t sample : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{1} << 32}) {
            for (const char* const name : {"joint/a", "joint/b"}) {
                seen.insert(KrDatasetRandom(seed, sample).bits(name));
            }
        }
    }
    EXPECT_EQ(seen.size(), 18u);
}

TEST(KrDatasetRandom, ValuesFillTheirRangeEvenly)
{
    constexpr unsigned int kNumSamples = 20000;
    unsigned int counts[10] = {};
    double sum = 0.0;
    double product = 0.0;
    for (unsigned int k = 0; k < kNumSamples; ++k) {
        const KrDatasetRandom random(7, k);
        const double x = random.uniform("x", -2.0, 3.0);
        ASSERT_TRUE(x >= -2.0 && x < 3.0);
        sum += x;
        product += (random.uniform("x") - 0.5) * (random.uniform("y") - 0.5);
        ++counts[random.choice("c", 10)];
        ASSERT_EQ(random.uniform("fixed", 0.1, 0.1), 0.1);
    }
    // Five standard deviations of a sum of that many.
    EXPECT_NEAR(sum / kNumSamples, 0.5, 5.0 * 5.0 / std::sqrt(12.0 * kNumSamples));
    // Quantities with other names have nothing to do with each other.
    EXPECT_NEAR(product / kNumSamples, 0.0, 5.0 / 12.0 / std::sqrt(1.0 * kNumSamples));
    for (const unsigned int count : counts) {
        EXPECT_NEAR(count, kNumSamples / 10.0, 5.0 * std::sqrt(kNumSamples * 0.09));
    }
}

} // namespace
