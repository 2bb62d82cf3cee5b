#include <picture/KrDownscale.h>
#include <toolkit/image/KrImage.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

// 4 x 2 pixels of two channels become 2 x 1: each mean is worked out by hand.
TEST(KrDownscale, AveragesSquaresOfPixelsAndPicksTheLowerLeftOfThem)
{
    KrImage large;
    large.allocate(2, 0, 4, 2);
    const unsigned char bytes[16] = {10, 0, 20, 0, 200, 255, 200, 255, 30, 1, 40, 1, 200, 255, 201, 255};
    std::copy(std::begin(bytes), std::end(bytes), large.data());
    KrImage small;
    KrDownscale::average(large, 2, small);
    ASSERT_EQ(small.width(), 2u);
    ASSERT_EQ(small.height(), 1u);
    EXPECT_EQ(small.data()[0], 25); // (10 + 20 + 30 + 40) / 4
    EXPECT_EQ(small.data()[1], 1);  // 0.5 is rounded up
    EXPECT_EQ(small.data()[2], 200);
    EXPECT_EQ(small.data()[3], 255);
    KrDownscale::pick(large, 2, small);
    EXPECT_EQ(small.data()[0], 10);
    EXPECT_EQ(small.data()[2], 200);
}

// Of three channels, in squares of every size that frames are drawn with and one more; a column and a row are left
// over.
TEST(KrDownscale, EveryMeanIsTheNearestByte)
{
    for (const unsigned int factor : {2u, 3u, 4u, 5u}) {
        const unsigned int width = 7 * factor + 1;
        KrImage large, small;
        large.allocate(3, 0, width, 3 * factor + 1);
        for (std::size_t i = 0; i < large.sizeInBytes(); ++i) {
            large.data()[i] = static_cast<unsigned char>(i * i / 3 + i * 31);
        }
        KrDownscale::average(large, factor, small);
        ASSERT_EQ(small.width(), 7u);
        ASSERT_EQ(small.height(), 3u);
        for (unsigned int i = 0; i < 7 * 3 * 3; ++i) {
            double mean = 0.0;
            for (unsigned int k = 0; k < factor * factor; ++k) {
                const unsigned int x = i / 3 % 7 * factor + k % factor;
                const unsigned int y = i / 21 * factor + k / factor;
                mean += large.data()[(y * width + x) * 3 + i % 3] / double(factor * factor);
            }
            // Half a byte is rounded up; the sum of doubles may be a little below it.
            EXPECT_EQ(small.data()[i], static_cast<unsigned int>(mean + 0.5 + 1e-9)) << factor << ", " << i;
        }
    }
}
