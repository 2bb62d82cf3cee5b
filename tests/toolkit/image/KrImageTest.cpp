#include <toolkit/image/KrImage.h>

#include <tests/support/Folder.h>
#include <tests/support/MessageRecorder.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace
{

using Bytes = std::vector<unsigned char>;

constexpr KrImage::Orientation kOrientations[] = {KrImage::TopRowFirst, KrImage::BottomRowFirst};

Bytes bytesOf(const KrImage& image)
{
    return image.data() == nullptr ? Bytes() : Bytes(image.data(), image.data() + image.sizeInBytes());
}

/// No two pixels, rows or channels alike; odd sizes, so that padded rows show.
KrImage unevenPicture(unsigned int channels, unsigned int width = 5, unsigned int height = 3)
{
    KrImage image;
    image.allocate(channels, 0, width, height);
    for (std::size_t i = 0; i < image.sizeInBytes(); ++i) {
        image.data()[i] = static_cast<unsigned char>(7 + 4 * i);
    }
    return image;
}

Bytes rowsReversed(const KrImage& image)
{
    Bytes result;
    const std::size_t rowBytes = std::size_t(image.width()) * image.channels();
    for (unsigned int row = image.height(); row-- > 0;) {
        result.insert(result.end(), image.data() + row * rowBytes, image.data() + (row + 1) * rowBytes);
    }
    return result;
}

/// A folder of its own for each test, and its messages.
class KrImageTest : public testing::Test
{
protected:
    std::string path(const std::string& name) const { return m_folder.path(name); }
    std::string file(const std::string& name, const std::string& content) const
    {
        return m_folder.write(name, content);
    }
    std::size_t filesInFolder() const { return m_folder.names().size(); }

    Folder m_folder;
    MessageRecorder m_messages;
};

} // namespace

TEST_F(KrImageTest, FlippedStorageIsTheSamePictureUpsideDown)
{
    KrImage image;
    EXPECT_FALSE(image.flippedToOrdinary());
    image.allocate(2, 9, 7, 5);
    image.zeroFlippedImage(3, 17, 2, 3);
    EXPECT_EQ(image.data(), nullptr);
    ASSERT_NE(image.flippedData(), nullptr);
    EXPECT_EQ(image.flippedData()[17], 17);
    image.flippedData()[0] = 1;  // first row, first pixel, red
    image.flippedData()[11] = 2; // second row, second pixel, blue
    ASSERT_TRUE(image.flippedToOrdinary());
    EXPECT_EQ(bytesOf(image), (Bytes{17, 17, 17, 17, 17, 17, 17, 17, 17, 17, 17, 2, 1, 17, 17, 17, 17, 17}));
    EXPECT_NE(image.flippedData(), nullptr);

    image.allocate(1, 4, 1, 1);
    EXPECT_EQ(image.flippedData(), nullptr);
    EXPECT_EQ(bytesOf(image), Bytes{4});
}

TEST_F(KrImageTest, StorageThatCannotBeHadLeavesThePictureAsItWas)
{
    KrImage image = unevenPicture(3);
    const Bytes before = bytesOf(image);
    const unsigned int huge = 0xFFFFFFFFu;
    image.allocate(4, 0, huge, huge);
    image.zeroFlippedImage(4, 0, huge, huge);
    image.allocate(0, 0, 4, 4);
    image.allocate(5, 0, 4, 4);
    EXPECT_EQ(m_messages.count(), 4u);
    EXPECT_EQ(image.width(), 5u);
    EXPECT_EQ(bytesOf(image), before);
}

TEST_F(KrImageTest, SubimagesAreCutWhereTheBlockSaysAndNowhereElse)
{
    KrImage image = unevenPicture(2, 4, 3); // byte i is 7 + 4 i
    KrImage out;
    ASSERT_TRUE(image.getSubimage({1, 1, 2, 2}, out));
    // Rows 1 and 2 begin at bytes 8 and 16; column 1 two bytes on.
    EXPECT_EQ(bytesOf(out), (Bytes{47, 51, 55, 59, 79, 83, 87, 91}));
    EXPECT_EQ(out.width(), 2u);

    const Bytes before = bytesOf(out);
    const KrImageBlock refused[] = {{0, 0, 0, 1}, {0, 0, 1, 0}, {3, 0, 2, 1},          {0, 2, 1, 2},
                                    {5, 0, 1, 1}, {0, 4, 1, 1}, {2, 2, 0xFFFFFFFFu, 1}};
    for (const KrImageBlock& block : refused) {
        EXPECT_FALSE(image.getSubimage(block, out)) << block.x << " " << block.y;
    }
    EXPECT_FALSE(KrImage().getSubimage({0, 0, 1, 1}, out));
    EXPECT_EQ(bytesOf(out), before);

    ASSERT_TRUE(image.getSubimage({3, 0, 1, 3}, image)); // onto itself
    EXPECT_EQ(bytesOf(image), (Bytes{31, 35, 63, 67, 95, 99}));
}

TEST_F(KrImageTest, RowsStandAsTheOrientationSays)
{
    // Written by hand: red and green above, blue and white below. The format's first row is the upper one.
    const std::string red("\xff\0\0", 3), green("\0\xff\0", 3), blue("\0\0\xff", 3), white("\xff\xff\xff", 3);
    const std::string name = file("hand.ppm", "P6\n2 2\n255\n" + red + green + blue + white);
    KrImage image;
    ASSERT_TRUE(image.readFile(name, KrImage::TopRowFirst));
    EXPECT_EQ(bytesOf(image), (Bytes{255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 255}));
    ASSERT_TRUE(image.readFile(name, KrImage::BottomRowFirst));
    EXPECT_EQ(bytesOf(image), (Bytes{0, 0, 255, 255, 255, 255, 255, 0, 0, 0, 255, 0}));

    ASSERT_TRUE(image.writeFile(path("again.ppm"), KrImage::BottomRowFirst));
    std::ifstream stream(path("again.ppm"), std::ios::binary);
    const std::string content((std::istreambuf_iterator<char>(stream)), {});
    EXPECT_NE(content.find(red + green + blue + white), std::string::npos);
}

TEST_F(KrImageTest, SixteenBitSamplesBecomeTheNearestBytes)
{
    // A PNG of 1 x 2 pixels: 0x1234 0x8080 0xFEDC above, 0x0000 0xFFFF 0x0303 below.
    constexpr unsigned char png[] = {0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48,
                                     0x44, 0x52, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x02, 0x10, 0x02, 0x00, 0x00,
                                     0x00, 0x46, 0x73, 0xfd, 0x33, 0x00, 0x00, 0x00, 0x16, 0x49, 0x44, 0x41, 0x54, 0x78,
                                     0xda, 0x63, 0x10, 0x32, 0x69, 0x68, 0xf8, 0x77, 0x87, 0x81, 0x81, 0xe1, 0xff, 0x7f,
                                     0x66, 0x66, 0x00, 0x24, 0xb8, 0x05, 0x25, 0x01, 0xeb, 0x23, 0x31, 0x00, 0x00, 0x00,
                                     0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};
    const std::string name = file("deep.png", std::string(std::begin(png), std::end(png)));
    KrImage image;
    ASSERT_TRUE(image.readFile(name, KrImage::TopRowFirst));
    EXPECT_EQ(image.channels(), 3u);
    EXPECT_EQ(bytesOf(image), (Bytes{0x12, 0x80, 0xfe, 0x00, 0xff, 0x03})); // 65244 / 257 = 253.9
    ASSERT_TRUE(image.readFile(name, KrImage::BottomRowFirst));
    EXPECT_EQ(bytesOf(image), (Bytes{0x00, 0xff, 0x03, 0x12, 0x80, 0xfe}));
}

TEST_F(KrImageTest, LosslessFormatsBringEveryChannelBack)
{
    for (const std::string extension : {"png", "TIFF", "tga", "bmp", "ppm"}) {
        const bool all = extension == "png" || extension == "TIFF";
        for (const unsigned int channels : {1u, 2u, 3u, 4u}) {
            if (!all && channels != 3 && !(extension == "tga" && channels == 4)) {
                continue;
            }
            const std::string name = path("picture." + extension);
            for (const KrImage::Orientation orientation : kOrientations) {
                SCOPED_TRACE(extension + " " + std::to_string(channels) + " " + std::to_string(orientation));
                const KrImage image = unevenPicture(channels);
                ASSERT_TRUE(image.writeFile(name, orientation));
                KrImage back;
                ASSERT_TRUE(back.readFile(name, orientation));
                EXPECT_EQ(back.width(), 5u);
                EXPECT_EQ(back.channels(), channels);
                EXPECT_EQ(bytesOf(back), bytesOf(image));
                const bool other = orientation == KrImage::TopRowFirst;
                ASSERT_TRUE(back.readFile(name, other ? KrImage::BottomRowFirst : KrImage::TopRowFirst));
                EXPECT_EQ(bytesOf(back), rowsReversed(image));
            }
        }
    }
    EXPECT_EQ(filesInFolder(), 5u); // nothing temporary is left
    EXPECT_EQ(m_messages.count(), 0u);
}

TEST_F(KrImageTest, JpegKeepsPlaceAndColour)
{
    // Four quarters of 16 x 16 pixels, one colour each; JPEG blurs nothing so large and even.
    KrImage image;
    image.allocate(3, 0, 32, 32);
    const unsigned char colours[4][3] = {{220, 30, 30}, {30, 220, 30}, {30, 30, 220}, {220, 220, 30}};
    for (unsigned int i = 0; i < 32 * 32; ++i) {
        std::copy_n(colours[(i / 32 / 16) * 2 + i % 32 / 16], 3, image.data() + 3 * i);
    }
    ASSERT_TRUE(image.writeFile(path("picture.jpg"), KrImage::TopRowFirst));
    KrImage back;
    ASSERT_TRUE(back.readFile(path("picture.jpg"), KrImage::TopRowFirst));
    ASSERT_EQ(back.sizeInBytes(), image.sizeInBytes());
    for (const unsigned int pixel : {8u * 32 + 8, 8u * 32 + 24, 24u * 32 + 8, 24u * 32 + 24}) {
        for (unsigned int channel = 0; channel < 3; ++channel) {
            EXPECT_NEAR(back.data()[3 * pixel + channel], image.data()[3 * pixel + channel], 6) << pixel;
        }
    }
}

TEST_F(KrImageTest, FormatsWithoutGreyOrOpacityTakeTheNearestTheyHave)
{
    const KrImage grey = unevenPicture(1);
    KrImage back;
    for (const std::string extension : {"bmp", "tga", "ppm"}) {
        ASSERT_TRUE(grey.writeFile(path("grey." + extension), KrImage::TopRowFirst)) << extension;
        ASSERT_TRUE(back.readFile(path("grey." + extension), KrImage::TopRowFirst)) << extension;
        ASSERT_EQ(back.channels(), 3u);
        for (unsigned int i = 0; i < 15; ++i) {
            EXPECT_EQ(back.data()[3 * i], grey.data()[i]) << extension;
            EXPECT_EQ(back.data()[3 * i + 2], grey.data()[i]) << extension;
        }
    }
    const KrImage translucent = unevenPicture(4);
    ASSERT_TRUE(translucent.writeFile(path("colour.bmp"), KrImage::TopRowFirst));
    ASSERT_TRUE(back.readFile(path("colour.bmp"), KrImage::TopRowFirst));
    EXPECT_EQ(back.data()[3], translucent.data()[4]);
    EXPECT_EQ(back.data()[3 * 14 + 2], translucent.data()[4 * 14 + 2]);
    ASSERT_TRUE(translucent.writeFile(path("colour.jpg"), KrImage::TopRowFirst));

    const KrImage greyAlpha = unevenPicture(2);
    ASSERT_TRUE(greyAlpha.writeFile(path("translucent.tga"), KrImage::TopRowFirst));
    ASSERT_TRUE(back.readFile(path("translucent.tga"), KrImage::TopRowFirst));
    ASSERT_EQ(back.channels(), 4u);
    EXPECT_EQ(back.data()[5], greyAlpha.data()[2]);
    EXPECT_EQ(back.data()[7], greyAlpha.data()[3]);
}

TEST_F(KrImageTest, UnreadableFilesAreToldOnceAndLeaveThePicture)
{
    KrImage image = unevenPicture(3);
    const Bytes before = bytesOf(image);
    // Headers that promise 65 thousand million pixels, and 4 thousand million.
    const std::string hugePng("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\x03\xe8\0\0\x03\xe8\0\x08\x06\0\0\0", 29);
    const std::string hugeJpeg("\xff\xd8\xff\xe0\0\x04xx\xff\xc0\0\x11\x08\xff\xff\xff\xff\x03", 18);
    const std::string unreadable[] = {path("missing.png"),
                                      m_folder.path(""),
                                      file("empty.png", ""),
                                      file("words.png", "these are words, not pixels"),
                                      file("words.jpg", "these are words, not pixels"),
                                      file("words.tiff", "these are words, not pixels"),
                                      file("words.bmp", "these are words, not pixels"),
                                      file("noextension", "these are words, not pixels"),
                                      file("unknown.xyzzy", "these are words, not pixels"),
                                      file("huge.png", hugePng),
                                      file("huge.jpg", hugeJpeg)};
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    std::size_t expected = 0;
    for (const std::string& name : unreadable) {
        EXPECT_FALSE(image.readFile(name, KrImage::TopRowFirst)) << name;
        EXPECT_EQ(m_messages.count(), ++expected) << name;
        EXPECT_NE(m_messages.last().find(name), std::string::npos) << m_messages.last();
        const bool isHuge = name.find("huge") != std::string::npos;
        EXPECT_EQ(m_messages.last().find("as large as") != std::string::npos, isHuge) << m_messages.last();
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(bytesOf(image), before);
}

TEST_F(KrImageTest, FilesThatCannotBeWrittenAreToldOnceAndKeepTheirContent)
{
    const KrImage image = unevenPicture(3);
    std::filesystem::create_directory(path("folder.png"));
    const std::string kept = file("kept.png", "old");
    const std::string refused[] = {path("nofolder/picture.png"), path("folder.png"), path("picture.xyzzy"),
                                   path("picture.lua"),          path("picture"),    ""};
    const std::size_t files = filesInFolder();
    std::size_t expected = 0;
    for (const std::string& name : refused) {
        EXPECT_FALSE(image.writeFile(name, KrImage::TopRowFirst)) << name;
        EXPECT_EQ(m_messages.count(), ++expected) << name;
    }
    EXPECT_FALSE(KrImage().writeFile(kept, KrImage::TopRowFirst));
    EXPECT_EQ(std::filesystem::file_size(kept), 3u);
    EXPECT_EQ(filesInFolder(), files);

    EXPECT_TRUE(image.writeFile(kept, KrImage::TopRowFirst)); // in place of what was there
    KrImage back;
    EXPECT_TRUE(back.readFile(kept, KrImage::TopRowFirst));
    EXPECT_EQ(filesInFolder(), files);
}
