#include <toolkit/image/private/KrPictureFile.h>
#include <toolkit/image/private/KrPngEncoder.h>

#include <tests/support/Allocations.h>

#include <gtest/gtest.h>

namespace
{

std::vector<std::uint8_t> noise(std::size_t size)
{
    std::vector<std::uint8_t> bytes(size);
    std::uint32_t state = 1;
    for (std::uint8_t& byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    return bytes;
}

} // namespace

// The reader is another library's, which also checks the sums of the file.
TEST(KrPngEncoder, PicturesOfAnySizeFollowOneAnother)
{
    KrPngEncoder encoder;
    std::vector<std::uint8_t> file;
    // Large before small: what is left of the one before is not in the next.
    for (const unsigned int width : {257u, 64u, 17u, 5u, 1u}) {
        for (const unsigned int height : {31u, 1u}) {
            for (const unsigned int channels : {1u, 2u, 3u, 4u}) {
                const std::vector<std::uint8_t> samples = noise(std::size_t{width} * height * channels);
                ASSERT_EQ(encoder.encode({samples.data(), width, height, channels, 8, false}, file), "");
                KrPicture back;
                ASSERT_EQ(KrPictureFile::decode(file.data(), file.size(), {}, back), "");
                EXPECT_EQ(back.width, width);
                EXPECT_EQ(back.channels, channels);
                EXPECT_EQ(back.pixels, samples) << width << " x " << height << " x " << channels;
            }
        }
    }
}

TEST(KrPngEncoder, DeepSamplesKeepTheirOrderAndRowsMayBeginAtTheBottom)
{
    KrPngEncoder encoder;
    std::vector<std::uint8_t> file;
    // Bytes b as b * 257, which the reader makes b again; swapped ones would be the same, so one is not of that kind.
    const std::vector<std::uint16_t> samples = {0, 257, 514, 65535, 25700, 300};
    ASSERT_EQ(encoder.encode({samples.data(), 3, 2, 1, 16, true}, file), "");
    KrPicture back;
    ASSERT_EQ(KrPictureFile::decode(file.data(), file.size(), {}, back), "");
    EXPECT_EQ(back.pixels, (std::vector<unsigned char>{255, 100, 1, 0, 1, 2}));
}

TEST(KrPngEncoder, ASeriesAllocatesNothingAndARefusalKeepsTheFile)
{
    KrPngEncoder encoder;
    std::vector<std::uint8_t> file;
    const std::vector<std::uint8_t> samples = noise(64 * 48 * 3);
    encoder.encode({samples.data(), 64, 48, 3, 8, false}, file);
    const std::vector<std::uint8_t> first = file;
    const Allocations before = Allocations::now();
    for (int i = 0; i < 10; ++i) {
        encoder.encode({samples.data(), 64, 48, 3, 8, i % 2 == 1}, file);
    }
    const Allocations made = Allocations::now() - before;
    EXPECT_EQ(made.withNew + made.withMalloc, 0u);
    EXPECT_NE(file, first); // the other way up
    for (const KrPngEncoder::Picture& picture : {KrPngEncoder::Picture{samples.data(), 0, 48, 3, 8, false},
                                                 KrPngEncoder::Picture{samples.data(), 64, 48, 5, 8, false},
                                                 KrPngEncoder::Picture{samples.data(), 64, 48, 3, 12, false}}) {
        EXPECT_NE(encoder.encode(picture, file), "");
    }
    EXPECT_FALSE(file.empty());
}
