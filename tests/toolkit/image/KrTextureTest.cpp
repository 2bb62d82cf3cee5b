#include <toolkit/image/KrTexture.h>

#include <tests/support/MessageRecorder.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace
{

/// Keeps what `load` was given, as a renderer's texture would.
class RecordingTexture : public KrTexture
{
public:
    using KrTexture::operator=;
    bool load(const unsigned char* data, unsigned int size) override
    {
        pixels.assign(data, data + size);
        loadedWidth = width();
        loadedFormat = textureParameters().pixelFormat();
        return succeeds;
    }
    bool succeeds = true;
    std::vector<unsigned char> pixels;
    unsigned int loadedWidth = 0;
    unsigned int loadedFormat = 0;
};

KrImage picture(unsigned int channels, unsigned int width, unsigned int height)
{
    KrImage image;
    image.allocate(channels, 0, width, height);
    for (std::size_t i = 0; i < image.sizeInBytes(); ++i) {
        image.data()[i] = static_cast<unsigned char>(i);
    }
    return image;
}

} // namespace

TEST(KrTexture, ChannelsDecideTheFormatAndTheRestIsTheCallers)
{
    const unsigned int formats[] = {0x1909, 0x190A, 0x1907, 0x1908}; // GL_LUMINANCE ... GL_RGBA
    KrTextureParameters parameters;
    parameters.setWrap(0x812F); // GL_CLAMP_TO_EDGE
    for (const unsigned int channels : {1u, 2u, 3u, 4u}) {
        RecordingTexture texture;
        ASSERT_TRUE(texture.loadFromImage(picture(channels, 3, 2), parameters));
        // Size and format stand before the pixels are handed on.
        EXPECT_EQ(texture.loadedWidth, 3u);
        EXPECT_EQ(texture.loadedFormat, formats[channels - 1]);
        EXPECT_EQ(texture.pixels.size(), 6u * channels);
        EXPECT_EQ(texture.pixels[5], 5);
        EXPECT_EQ(texture.textureParameters().internalFormat(), static_cast<int>(formats[channels - 1]));
        EXPECT_EQ(texture.textureParameters().wrap(), 0x812Fu);
    }
}

TEST(KrTexture, FilesAreLoadedInTheWantedRowOrder)
{
    const std::string name = testing::TempDir() + "krTextureTest.png";
    const KrImage image = picture(3, 2, 3);
    ASSERT_TRUE(image.writeFile(name, KrImage::TopRowFirst));
    RecordingTexture texture;
    ASSERT_TRUE(texture.loadFromFile(name, {}, KrImage::BottomRowFirst));
    EXPECT_EQ(texture.height(), 3u);
    EXPECT_EQ(texture.pixels[0], image.data()[12]); // the lowest row
    ASSERT_TRUE(texture.loadFromFile(name, {}, KrImage::TopRowFirst));
    EXPECT_EQ(texture.pixels[0], 0);
    std::filesystem::remove(name);
}

TEST(KrTexture, RefusalsLeaveTheTextureAsItWas)
{
    MessageRecorder silence;
    RecordingTexture texture;
    ASSERT_TRUE(texture.loadFromImage(picture(4, 8, 4), {}));
    RecordingTexture before = texture;

    KrTextureParameters other;
    other.setMinFilter(0x2600);
    EXPECT_FALSE(texture.loadFromFile("no such picture.png", other, KrImage::TopRowFirst));
    EXPECT_FALSE(texture.loadFromImage(KrImage(), other));
    EXPECT_FALSE(texture.loadShell(0, 4, other));
    EXPECT_EQ(silence.count(), 3u);
    texture.succeeds = false;
    EXPECT_FALSE(texture.loadFromImage(picture(1, 2, 2), other));
    EXPECT_TRUE(texture == before);
    EXPECT_EQ(texture.width(), 8u);
}

TEST(KrTexture, OnlyPowersOfTwoSettleTheSizeInTheBase)
{
    KrTexture texture;
    EXPECT_TRUE(texture.calculatePOT(64, 1));
    EXPECT_FALSE(texture.calculatePOT(63, 64));
    EXPECT_FALSE(texture.calculatePOT(64, 65));
    EXPECT_FALSE(texture.calculatePOT(0, 64));
    EXPECT_EQ(texture.width(), 64u);
    EXPECT_EQ(texture.height(), 1u);
}

TEST(KrTexture, RectangleTexturesCountInPixels)
{
    RecordingTexture texture;
    double u = 0.0;
    double v = 0.0;
    ASSERT_TRUE(texture.loadShell(6, 4, {}));
    EXPECT_TRUE(texture.pixels.empty());
    texture.textureCoords(u, v);
    EXPECT_EQ(u, 1.0);
    KrTextureParameters rectangle;
    rectangle.setTextureType(0x84F5);
    ASSERT_TRUE(texture.loadShell(6, 4, rectangle));
    texture.textureCoords(u, v);
    EXPECT_EQ(u, 6.0);
    EXPECT_EQ(v, 4.0);

    KrTexture copy(texture);
    EXPECT_TRUE(copy == texture);
    copy.setFloat(true);
    EXPECT_FALSE(copy == texture);
    copy = texture;
    EXPECT_TRUE(copy == texture);
    copy.release();
    EXPECT_EQ(copy.width(), 0u);
}
