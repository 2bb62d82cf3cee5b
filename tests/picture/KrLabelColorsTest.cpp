#include <picture/KrLabelColors.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace
{

int distance(std::uint32_t a, std::uint32_t b)
{
    const auto x = KrLabelColors::color(a), y = KrLabelColors::color(b);
    return std::abs(x[0] - y[0]) + std::abs(x[1] - y[1]) + std::abs(x[2] - y[2]);
}

} // namespace

TEST(KrLabelColors, AreToldApartAndAreTheSameEverywhere)
{
    // Pictures that were made last year are compared with those of today.
    EXPECT_EQ(KrLabelColors::text(0), "#000000");
    EXPECT_EQ(KrLabelColors::text(1), "#1459ff");
    EXPECT_EQ(KrLabelColors::text(65535), "#ff14dd");
    for (std::uint32_t a = 0; a < 64; ++a) {
        for (std::uint32_t b = a + 1; b < 64; ++b) {
            // Links of one arm stand next to each other in the table.
            ASSERT_GE(distance(a, b), b - a <= 12 ? 75 : 20) << a << " and " << b;
        }
    }
    EXPECT_GT(distance(0, 4294967295u), 150);

    const std::vector<std::uint32_t> labels = {0, 7, 7, 3, 0};
    std::vector<unsigned char> rgb(15, 1);
    KrLabelColors::paint(labels.data(), labels.size(), rgb.data());
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const auto color = KrLabelColors::color(labels[i]);
        EXPECT_TRUE(std::equal(color.begin(), color.end(), rgb.begin() + static_cast<std::ptrdiff_t>(3 * i))) << i;
    }
}
