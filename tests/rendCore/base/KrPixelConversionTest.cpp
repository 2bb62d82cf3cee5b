#include <rendCore/base/private/KrPixelConversion.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace
{

using namespace KrPixelConversion;

/// Depths as pictures have them: runs of the far plane, the ends of the range and anything between.
std::vector<std::uint32_t> depths(std::size_t count, std::uint32_t far)
{
    std::vector<std::uint32_t> values(count);
    std::uint32_t state = 12345;
    for (std::size_t i = 0; i < count; ++i) {
        state = state * 1664525u + 1013904223u;
        values[i] = i / 100 % 3 == 1 || state % 5 == 0 ? far : state % 97 == 0 ? 0u : state;
    }
    return values;
}

bool isSame(float a, float b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// Around the sizes of vectors and blocks, and an odd picture's row.
constexpr std::size_t kCounts[] = {0, 1, 3, 4, 5, 63, 64, 65, 127, 641, 5000};

} // namespace

// Bit for bit what the formulas give that are told to callers, whatever instructions are used.
TEST(KrPixelConversion, MetresAreThoseOfTheFormula)
{
    const DepthTerms kinds[] = {{-1.02f, -0.202f, -1.0, 0.0}, {-0.25f, -1.5f, 0.0, 1.0}};
    for (const std::size_t count : kCounts) {
        for (const unsigned int bits : {16u, 24u, 32u}) {
            for (const DepthTerms& t : kinds) {
                for (const bool isSlanted : {false, true}) {
                    const std::vector<std::uint32_t> in = depths(count, 0xFFFFFFFFu);
                    std::vector<double> squares(count);
                    for (std::size_t i = 0; i < count; ++i) {
                        squares[i] = 1.0 + 0.0001 * double(i);
                    }
                    std::vector<float> out(count, -7.0f);
                    toMetres(in.data(), count, {bits}, t, INFINITY, isSlanted ? squares.data() : nullptr, 0.3,
                             out.data());
                    for (std::size_t i = 0; i < count; ++i) {
                        const std::uint32_t step = in[i] >> (32 - bits);
                        const std::uint32_t farthest = 0xFFFFFFFFu >> (32 - bits);
                        const double e = 2.0 * (double(step) / farthest) - 1.0;
                        const double planar = (t.b - t.d * e) / (t.a - t.c * e);
                        const double depth = isSlanted ? planar * std::sqrt(squares[i] + 0.3) : planar;
                        ASSERT_TRUE(isSame(out[i], step == farthest ? INFINITY : float(depth)))
                            << bits << " bits, pixel " << i << " of " << count;
                    }
                }
            }
        }
    }
}

TEST(KrPixelConversion, FractionsAreTheQuotients)
{
    // Every depth of 16 and 24 bits, and many of 32.
    for (const unsigned int bits : {16u, 24u, 32u}) {
        const std::uint32_t farthest = 0xFFFFFFFFu >> (32 - bits);
        const std::uint32_t stride = bits == 32 ? 257 : 1;
        std::vector<std::uint32_t> in(4096);
        std::vector<float> out(in.size());
        for (std::uint64_t first = 0; first <= farthest; first += in.size() * stride) {
            for (std::size_t i = 0; i < in.size(); ++i) {
                in[i] = static_cast<std::uint32_t>(std::min<std::uint64_t>(first + i * stride, farthest))
                        << (32 - bits);
            }
            toFractions(in.data(), in.size(), {bits}, out.data());
            for (std::size_t i = 0; i < in.size(); ++i) {
                ASSERT_EQ(out[i], float(double(in[i] >> (32 - bits)) / farthest)) << bits << " bits, " << in[i];
            }
        }
    }
}

TEST(KrPixelConversion, GreysAreThoseOfTheFormulaWhateverTheFarPlane)
{
    for (const std::size_t count : kCounts) {
        // A far plane below the largest depth: what lies behind it is drawn.
        for (const std::uint32_t far : {0xFFFFFFFFu, 0xFFFFF700u}) {
            std::vector<std::uint32_t> in = depths(count, far);
            if (count > 1) {
                in[1] = 0xFFFFFF00u;
            }
            std::uint32_t largest = 0, least = far;
            for (const std::uint32_t depth : in) {
                largest = depth == far ? largest : std::max(largest, depth);
                least = depth == far ? least : std::min(least, depth);
            }
            const DepthRange range = rangeOf(in.data(), count, far);
            ASSERT_EQ(range.least, least);
            ASSERT_EQ(range.largest, largest);
            std::vector<unsigned char> out(count, 77);
            toGrey(in.data(), count, far, range, out.data());
            for (std::size_t i = 0; i < count; ++i) {
                const double value = double(in[i] - least) / double(largest - least) * 256.0;
                // The far plane, and no number where all depths are one.
                const bool isDrawn = in[i] != far && largest != least;
                const unsigned int byte = isDrawn ? static_cast<unsigned int>(value) & 0xFFu : 0u;
                ASSERT_EQ(out[i], byte) << i << " of " << count;
            }
        }
    }
    // One depth alone: 0 / 0.
    const std::uint32_t flat[] = {5, 5, 0xFFFFFFFFu};
    unsigned char grey[] = {1, 1, 1};
    toGrey(flat, 3, 0xFFFFFFFFu, rangeOf(flat, 3, 0xFFFFFFFFu), grey);
    EXPECT_EQ(grey[0] + grey[1] + grey[2], 0);
}

TEST(KrPixelConversion, OpacityIsLeftOutAndNothingIsWrittenBehindThePicture)
{
    for (const std::size_t count : kCounts) {
        std::vector<unsigned char> in(4 * count);
        for (std::size_t i = 0; i < in.size(); ++i) {
            in[i] = static_cast<unsigned char>(i * 7 + 1);
        }
        std::vector<unsigned char> out(3 * count + 8, 99);
        toRgb(in.data(), count, out.data());
        for (std::size_t i = 0; i < 3 * count; ++i) {
            ASSERT_EQ(out[i], in[i / 3 * 4 + i % 3]) << i << " of " << count;
        }
        EXPECT_EQ(std::count(out.end() - 8, out.end(), 99), 8);
    }
}
