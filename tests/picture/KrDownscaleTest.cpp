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
