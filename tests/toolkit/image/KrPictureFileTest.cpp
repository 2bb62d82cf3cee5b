#include <toolkit/image/KrImage.h>
#include <toolkit/image/private/KrPictureFile.h>

#include <toolkit/foundation/private/KrInputFile.h>
#include <toolkit/image/private/KrPictureSamples.h>

#include <tests/support/Folder.h>
#include <tests/support/MessageRecorder.h>

#include <gtest/gtest.h>
#include <tiffio.h>
#include <zlib.h>

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace
{

namespace fs = std::filesystem;

using Bytes = std::vector<unsigned char>;

/// A picture; its reason instead where there is none.
struct Decoded : KrPicture
{
    explicit Decoded(const std::string& file, const KrPictureLimits& limits = {})
        : reason(KrPictureFile::decode(reinterpret_cast<const unsigned char*>(file.data()), file.size(), limits, *this))
    {
    }
    std::string reason;
};

std::string little(std::uint32_t value, unsigned int count)
{
    std::string bytes;
    for (unsigned int i = 0; i < count; ++i) {
        bytes.push_back(static_cast<char>(i < 4 ? value >> (8 * i) : 0));
    }
    return bytes;
}

std::string big(std::uint32_t value)
{
    const std::string reversed = little(value, 4);
    return {reversed.rbegin(), reversed.rend()};
}

std::string bytes(std::initializer_list<int> values)
{
    return {values.begin(), values.end()};
}

std::string chunk(const std::string& name, const std::string& data)
{
    const std::string body = name + data;
    const auto* const from = reinterpret_cast<const unsigned char*>(body.data());
    return big(static_cast<std::uint32_t>(data.size())) + body +
           big(static_cast<std::uint32_t>(crc32(0, from, static_cast<uInt>(body.size()))));
}

/// @param rows   each begins with its filter's byte
/// @param extra  chunks before the pixels
std::string png(unsigned int width, unsigned int height, int bits, int type, const std::string& rows,
                const std::string& extra = {})
{
    uLongf size = compressBound(static_cast<uLong>(rows.size()));
    std::string packed(size, '\0');
    compress(reinterpret_cast<unsigned char*>(packed.data()), &size,
             reinterpret_cast<const unsigned char*>(rows.data()), static_cast<uLong>(rows.size()));
    packed.resize(size);
    return "\x89PNG\r\n\x1a\n" + chunk("IHDR", big(width) + big(height) + bytes({bits, type, 0, 0, 0})) + extra +
           chunk("IDAT", packed) + chunk("IEND", "");
}

/// @param tail  what follows a header of 40 bytes and no more; pixels come after `palette` bytes of it
std::string bmp(int width, int height, int bits, int compression, const std::string& tail, unsigned int palette = 0,
                unsigned int colours = 0)
{
    return "BM" + little(0, 8) + little(54 + palette, 4) + little(40, 4) +
           little(static_cast<std::uint32_t>(width), 4) + little(static_cast<std::uint32_t>(height), 4) + little(1, 2) +
           little(static_cast<std::uint32_t>(bits), 2) + little(static_cast<std::uint32_t>(compression), 4) +
           little(0, 12) + little(colours, 4) + little(0, 4) + tail;
}

std::string tga(int type, unsigned int width, unsigned int height, int bits, int descriptor, const std::string& tail,
                unsigned int colours = 0, int colourBits = 0)
{
    return bytes({0, colours > 0 ? 1 : 0, type}) + little(0, 2) + little(colours, 2) + bytes({colourBits}) +
           little(0, 4) + little(width, 2) + little(height, 2) + bytes({bits, descriptor}) + tail;
}

/// No two bytes of it alike, up to 63 of them.
KrPicture uneven(unsigned int channels, unsigned int width = 5, unsigned int height = 4)
{
    KrPicture picture = {width, height, channels, {}};
    for (std::size_t i = 0; i < std::size_t{width} * height * channels; ++i) {
        picture.pixels.push_back(static_cast<unsigned char>(3 + 4 * i));
    }
    return picture;
}

std::string encoded(const KrPicture& picture, const std::string& extension)
{
    std::string file;
    EXPECT_EQ(KrPictureFile::encode(picture, extension, file), "");
    return file;
}

/// A folder of its own for each test, which is the current one meanwhile; no message is shown.
class KrPictureFileTest : public testing::Test
{
protected:
    KrPictureFileTest() { fs::current_path(m_folder.path("")); }
    ~KrPictureFileTest() override { fs::current_path(m_current); }
    static void write(const std::string& name, const std::string& content)
    {
        std::ofstream(name, std::ios::binary) << content;
    }
    static bool reads(const std::string& name) { return KrImage().readFile(name, KrImage::TopRowFirst); }

    const fs::path m_current = fs::current_path();
    Folder m_folder;
    MessageRecorder m_messages;
};

/// Writes one TIFF; what is not said otherwise is 8 bits, in rows, whole, uncompressed.
class TiffWriter
{
public:
    TiffWriter(const char* path, const char* mode, unsigned int width, unsigned int height, int samples, int bits,
               int photometric)
        : m_tiff(TIFFOpen(path, mode))
    {
        set(TIFFTAG_IMAGEWIDTH, width);
        set(TIFFTAG_IMAGELENGTH, height);
        set(TIFFTAG_SAMPLESPERPIXEL, samples);
        set(TIFFTAG_BITSPERSAMPLE, bits);
        set(TIFFTAG_PHOTOMETRIC, photometric);
        set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    }
    ~TiffWriter() { TIFFClose(m_tiff); }
    TiffWriter(const TiffWriter&) = delete;
    TiffWriter& operator=(const TiffWriter&) = delete;
    template <typename... Values>
    TiffWriter& set(int tag, Values... values)
    {
        EXPECT_EQ(TIFFSetField(m_tiff, static_cast<std::uint32_t>(tag), values...), 1);
        return *this;
    }
    template <typename Sample>
    TiffWriter& row(unsigned int row, std::vector<Sample> samples, int plane = 0)
    {
        EXPECT_EQ(TIFFWriteScanline(m_tiff, samples.data(), row, static_cast<std::uint16_t>(plane)), 1);
        return *this;
    }
    TIFF* tiff() { return m_tiff; }

private:
    TIFF* m_tiff;
};

} // namespace

TEST_F(KrPictureFileTest, ANameNeitherRunsAScriptNorLoadsAPlugin)
{
    write("evil.lua", "io.open('canary', 'w'):close()\n");
    write("t.evilfmt", "anything");
    write("picture.png.evilfmt", encoded(uneven(3), "png"));
    fs::create_directory("osgPlugins-3.6.5");
    for (const char* const name : {"evilfmt", "png", "lua"}) {
        fs::copy_file(KR_CANARY_PLUGIN, std::string("osgPlugins-3.6.5/osgdb_") + name + ".so");
    }
    ASSERT_EQ(setenv("KR_CANARY", m_folder.path("canary").c_str(), 1), 0);
    EXPECT_FALSE(reads("evil.lua"));
    EXPECT_NE(m_messages.last().find("evil.lua: it is no picture that can be read"), std::string::npos)
        << m_messages.last();
    EXPECT_FALSE(reads("t.evilfmt"));
    EXPECT_FALSE(reads("http://localhost/picture.png"));
    EXPECT_TRUE(reads("picture.png.evilfmt"));
    KrImage image;
    image.allocate(3, 7, 2, 2);
    EXPECT_FALSE(image.writeFile("t.evilfmt", KrImage::TopRowFirst) || image.writeFile("t.lua", KrImage::TopRowFirst));
    EXPECT_TRUE(image.writeFile("t.png", KrImage::TopRowFirst));
    EXPECT_FALSE(fs::exists("canary"));
}

TEST_F(KrPictureFileTest, OnlyRegularFilesWithinTheLimitAreOpened)
{
    ASSERT_EQ(mkfifo("pipe.png", 0600), 0);
    fs::create_symlink("/dev/zero", "zeros.png");
    fs::create_directory("folder.png");
    write("file.png", "123456789");
    std::string content;
    const auto read = [&content](const char* name, std::uint64_t mostBytes) {
        return KrInputFile::readWhole(name, KrInputFile::Accept::Files, mostBytes, content);
    };
    EXPECT_EQ(read("pipe.png", 100), "it is no regular file");
    EXPECT_EQ(read("zeros.png", 100), "it is no regular file");
    EXPECT_EQ(read("folder.png", 100), "it is a folder");
    EXPECT_EQ(read("file.png", 8), "it is larger than 8 bytes");
    EXPECT_TRUE(content.empty());
    EXPECT_EQ(read("file.png", 9), "");
    EXPECT_FALSE(reads("pipe.png") || reads("zeros.png"));
    EXPECT_EQ(content.size(), 9u);
}

TEST_F(KrPictureFileTest, AFileThatEndsEarlyIsRefusedWhereverItEnds)
{
    for (const std::string extension : {"png", "jpg", "tif", "bmp", "tga", "ppm"}) {
        const std::string whole = encoded(uneven(3), extension);
        ASSERT_EQ(Decoded(whole).reason, "") << extension;
        // All pixels stand before the two bytes that end a JPEG.
        const std::size_t most = whole.size() - (extension == "jpg" ? 3 : 1);
        for (std::size_t size = 0; size <= most; ++size) {
            const Decoded cut(whole.substr(0, size));
            EXPECT_TRUE(!cut.reason.empty() && cut.pixels.empty()) << extension << " " << size;
        }
    }
}

TEST_F(KrPictureFileTest, FewBytesDoNotAskForMuchMemory)
{
    const std::string little64k = little(65535, 2);
    TiffWriter("huge.tif", "w", 20000, 20000, 1, 8, PHOTOMETRIC_MINISBLACK)
        .set(TIFFTAG_ROWSPERSTRIP, 20000)
        .set(TIFFTAG_COMPRESSION, COMPRESSION_LZW)
        .row(0, Bytes(20000));
    std::string tiff;
    ASSERT_EQ(KrInputFile::readWhole("huge.tif", KrInputFile::Accept::Files, 1 << 20, tiff), "");
    std::string jpeg = encoded(uneven(3), "jpg");
    const std::size_t frame = jpeg.find("\xff\xc0");
    ASSERT_NE(frame, std::string::npos);
    jpeg.replace(frame + 5, 4, "\x40\x00\x40\x00", 4);
    const std::string absurd[] = {png(16000, 16000, 8, 6, "\0\0"),
                                  bmp(30000, 30000, 24, 0, std::string(1300, 'x')),
                                  bmp(-2147483647 - 1, 1, 24, 0, std::string(1300, 'x')),
                                  bmp(16000, 16000, 8, 1, std::string(1300, 'x'), 1024),
                                  tga(10, 16000, 16000, 32, 8, std::string(1300, '\xff')),
                                  tga(2, 65535, 65535, 24, 0, std::string(1300, '\xff')),
                                  "P6 16000 16000 255\n" + std::string(1300, 'x'),
                                  jpeg,
                                  std::string(tiff.begin(), tiff.end())};
    for (const std::string& file : absurd) {
        const Decoded picture(file);
        EXPECT_TRUE(picture.reason == KrPictureSamples::kTooLarge || picture.reason == KrPictureSamples::kEndsEarly)
            << &file - absurd << ": " << picture.reason;
    }
    KrPictureLimits limits;
    limits.pixels = 19;
    for (const std::string extension : {"png", "jpg", "tif", "bmp", "tga", "ppm"}) {
        EXPECT_EQ(Decoded(encoded(uneven(3), extension), limits).reason, KrPictureSamples::kTooLarge) << extension;
    }
}

TEST_F(KrPictureFileTest, PngOfEveryKind)
{
    const std::string palette = chunk("PLTE", bytes({1, 2, 3, 40, 50, 60}));
    const Decoded opaque(png(3, 1, 1, 3, bytes({0, 0x40}), palette));
    EXPECT_EQ(opaque.channels, 3u) << opaque.reason;
    EXPECT_EQ(opaque.pixels, (Bytes{1, 2, 3, 40, 50, 60, 1, 2, 3}));
    const Decoded translucent(png(2, 1, 8, 3, bytes({0, 1, 0}), palette + chunk("tRNS", bytes({9}))));
    EXPECT_EQ(translucent.pixels, (Bytes{40, 50, 60, 255, 1, 2, 3, 9})) << translucent.reason;
    EXPECT_EQ(Decoded(png(3, 1, 2, 0, bytes({0, 0x1B}))).pixels, (Bytes{0, 85, 170}));
    EXPECT_EQ(Decoded(png(1, 1, 8, 0, bytes({0, 7}), chunk("tRNS", bytes({0, 7})))).pixels, (Bytes{7, 0}));
    EXPECT_EQ(Decoded(png(1, 2, 16, 4, bytes({0, 1, 0x81, 0, 0x80, 0, 2, 2, 0, 0x81}))).pixels, (Bytes{1, 0, 2, 1}));
    // What is not asked for does not count, however much it would unpack to.
    const std::string text = chunk("zTXt", std::string("a\0\0damaged", 10));
    EXPECT_EQ(Decoded(png(1, 1, 8, 0, bytes({0, 7}), text)).pixels, Bytes{7});
    EXPECT_NE(Decoded(png(1, 1, 8, 0, bytes({9, 7}))).reason, "");
}

TEST_F(KrPictureFileTest, BitmapsOfEveryKind)
{
    const std::string colours = bytes({3, 2, 1, 0, 6, 5, 4, 0}); // blue, green, red, nothing
    const Bytes first = {1, 2, 3, 255}, second = {4, 5, 6, 255};
    const auto pixels = [&](std::initializer_list<int> indices) {
        Bytes all;
        for (const int i : indices) {
            all.insert(all.end(), (i ? second : first).begin(), (i ? second : first).end());
        }
        return all;
    };
    // The lowest row comes first; a negative height says otherwise.
    EXPECT_EQ(Decoded(bmp(2, 2, 1, 0, colours + bytes({0x40, 0, 0, 0, 0x80, 0, 0, 0}), 8, 2)).pixels,
              pixels({1, 0, 0, 1}));
    EXPECT_EQ(Decoded(bmp(2, -2, 1, 0, colours + bytes({0x40, 0, 0, 0, 0xC0, 0, 0, 0}), 8, 2)).pixels,
              pixels({0, 1, 1, 1}));
    // A run of three, the row's end, a jump of one to the right, one index by itself and its padding, the end.
    EXPECT_EQ(Decoded(bmp(3, 2, 8, 1, colours + bytes({3, 1, 0, 0, 0, 2, 1, 0, 0, 3, 1, 0, 1, 0, 0, 1}), 8, 2)).pixels,
              pixels({0, 1, 0, 1, 1, 1}));
    EXPECT_EQ(Decoded(bmp(3, 1, 4, 2, colours + bytes({3, 0x10, 0, 1}), 8, 2)).pixels, pixels({1, 0, 1}));
    // Runs that leave the picture, and a jump that does.
    EXPECT_EQ(Decoded(bmp(1, 1, 8, 1, colours + bytes({255, 1, 0, 2, 255, 255, 9, 0}), 8, 2)).pixels, pixels({1}));
    EXPECT_EQ(Decoded(bmp(1, 1, 8, 1, colours + bytes({0, 200, 1}), 8, 2)).reason, KrPictureSamples::kEndsEarly);
    // An index that the palette does not have is black.
    EXPECT_EQ(Decoded(bmp(1, 1, 8, 0, colours + bytes({9, 0, 0, 0}), 8, 2)).pixels, (Bytes{0, 0, 0, 255}));

    const Decoded fifteen(bmp(1, 1, 16, 0, bytes({0x1F, 0x7C, 0, 0}))); // 5 bits each: red and blue full
    EXPECT_EQ(fifteen.pixels, (Bytes{255, 0, 255})) << fifteen.reason;
    const std::string masks = little(0xF800, 4) + little(0x07E0, 4) + little(0x001F, 4);
    EXPECT_EQ(Decoded(bmp(1, 1, 16, 3, masks + bytes({0xE0, 0x07, 0, 0}), 12)).pixels, (Bytes{0, 255, 0}));
    const std::string four = little(0xFF, 4) + little(0xFF00, 4) + little(0xFF0000, 4) + little(0xFF000000, 4);
    EXPECT_EQ(Decoded(bmp(1, 1, 32, 6, four + bytes({1, 2, 3, 4}), 16)).pixels, (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(Decoded(bmp(1, 1, 32, 0, bytes({3, 2, 1, 0}))).pixels, (Bytes{1, 2, 3, 255}));
    EXPECT_NE(Decoded(bmp(1, 1, 16, 3, little(5, 4) + little(0, 10), 12)).reason, ""); // a mask with a gap
    EXPECT_NE(Decoded(bmp(1, 1, 13, 0, std::string(64, 'x'))).reason, "");
}

TEST_F(KrPictureFileTest, TargasOfEveryKind)
{
    const std::string colours = bytes({3, 2, 1, 6, 5, 4});
    EXPECT_EQ(Decoded(tga(1, 2, 1, 8, 0, colours + bytes({1, 0}), 2, 24)).pixels, (Bytes{4, 5, 6, 1, 2, 3}));
    EXPECT_NE(Decoded(tga(1, 2, 1, 8, 0, colours + bytes({1, 2}), 2, 24)).reason, ""); // not in the palette
    // From the upper right corner; the packets are a run of two and two by themselves.
    EXPECT_EQ(Decoded(tga(11, 2, 2, 8, 0x30, bytes({0x81, 9, 1, 7, 8}))).pixels, (Bytes{9, 9, 8, 7}));
    EXPECT_EQ(Decoded(tga(3, 1, 2, 8, 0, bytes({5, 6}))).pixels, (Bytes{6, 5}));
    EXPECT_EQ(Decoded(tga(3, 1, 1, 16, 8, bytes({5, 6}))).pixels, (Bytes{5, 6}));
    EXPECT_EQ(Decoded(tga(2, 1, 1, 16, 1, bytes({0x00, 0xFC}))).pixels, (Bytes{255, 0, 0, 255}));
    EXPECT_EQ(Decoded(tga(2, 1, 1, 16, 0, bytes({0x1F, 0x00}))).pixels, (Bytes{0, 0, 255}));
    EXPECT_EQ(Decoded(tga(10, 2, 1, 32, 8, bytes({0x81, 3, 2, 1, 4}))).pixels, (Bytes{1, 2, 3, 4, 1, 2, 3, 4}));
    // The extension area denies opacity: its attributes' type, at 494 of 495, is 0.
    const std::string extended = tga(2, 1, 1, 32, 8, bytes({3, 2, 1, 4}));
    const std::string area = little(495, 2) + std::string(493, '\0');
    const std::string footer =
        little(static_cast<std::uint32_t>(extended.size()), 4) + little(0, 4) + std::string("TRUEVISION-XFILE.\0", 18);
    EXPECT_EQ(Decoded(extended + area + footer).pixels, (Bytes{1, 2, 3}));
    // Every value of the header must be possible.
    EXPECT_NE(Decoded(tga(4, 1, 1, 8, 0, "xx")).reason, "");
    EXPECT_NE(Decoded(tga(3, 1, 1, 24, 0, "xxxx")).reason, "");
    EXPECT_NE(Decoded(tga(3, 0, 1, 8, 0, "xx")).reason, "");
    EXPECT_NE(Decoded(tga(3, 1, 1, 8, 0xC0, "xx")).reason, "");
}

TEST_F(KrPictureFileTest, TiffsOfEveryKind)
{
    const auto decoded = [](const char* name) {
        std::string content;
        EXPECT_EQ(KrInputFile::readWhole(name, KrInputFile::Accept::Files, 1 << 20, content), "");
        return Decoded(content);
    };
    TiffWriter("a.tif", "wb", 2, 1, 3, 16, PHOTOMETRIC_RGB)
        .row(0, std::vector<std::uint16_t>{0, 257, 514, 65535, 128, 129});
    EXPECT_EQ(decoded("a.tif").pixels, (Bytes{0, 1, 2, 255, 0, 1}));
    TiffWriter("b.tif", "w", 4, 1, 1, 32, PHOTOMETRIC_MINISBLACK)
        .set(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP)
        .row(0, std::vector<float>{0.0f, 0.5f, 7.0f, NAN});
    EXPECT_EQ(decoded("b.tif").pixels, (Bytes{0, 128, 255, 0}));
    TiffWriter("c.tif", "w", 2, 1, 3, 8, PHOTOMETRIC_RGB)
        .set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE)
        .row(0, Bytes{1, 4}, 0)
        .row(0, Bytes{2, 5}, 1)
        .row(0, Bytes{3, 6}, 2);
    EXPECT_EQ(decoded("c.tif").pixels, (Bytes{1, 2, 3, 4, 5, 6}));
    TiffWriter("d.tif", "w8", 3, 1, 1, 8, PHOTOMETRIC_MINISWHITE)
        .set(TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE)
        .row(0, Bytes{0, 5, 255});
    EXPECT_EQ(decoded("d.tif").pixels, (Bytes{255, 250, 0}));
    {
        std::uint16_t red[256] = {257, 4 * 257}, green[256] = {514, 5 * 257}, blue[256] = {771, 6 * 257};
        TiffWriter("e.tif", "w", 2, 1, 1, 8, PHOTOMETRIC_PALETTE)
            .set(TIFFTAG_COLORMAP, red, green, blue)
            .row(0, Bytes{1, 0});
    }
    EXPECT_EQ(decoded("e.tif").pixels, (Bytes{4, 5, 6, 1, 2, 3}));
    TiffWriter("f.tif", "w", 10, 1, 1, 1, PHOTOMETRIC_MINISBLACK)
        .set(TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4)
        .row(0, Bytes{0x80, 0x40});
    EXPECT_EQ(decoded("f.tif").pixels, (Bytes{255, 0, 0, 0, 0, 0, 0, 0, 0, 255}));
    TiffWriter("g.tif", "w", 2, 1, 1, 8, PHOTOMETRIC_MINISBLACK).set(TIFFTAG_ORIENTATION, 6).row(0, Bytes{1, 2});
    const Decoded turned = decoded("g.tif"); // its first row stands at the right
    EXPECT_EQ(turned.width, 1u);
    EXPECT_EQ(turned.pixels, (Bytes{1, 2}));
    {
        // Two tiles of 16 x 16 for 17 x 1 pixels.
        TiffWriter tiled("h.tif", "w", 17, 1, 1, 8, PHOTOMETRIC_MINISBLACK);
        tiled.set(TIFFTAG_TILEWIDTH, 16).set(TIFFTAG_TILELENGTH, 16);
        Bytes tile(256);
        for (unsigned int i = 0; i < 2; ++i) {
            tile[0] = static_cast<unsigned char>(7 + i);
            ASSERT_EQ(TIFFWriteTile(tiled.tiff(), tile.data(), 16 * i, 0, 0, 0), 256);
        }
    }
    const Decoded tiled = decoded("h.tif");
    ASSERT_EQ(tiled.pixels.size(), 17u) << tiled.reason;
    EXPECT_EQ(tiled.pixels[0], 7);
    EXPECT_EQ(tiled.pixels[16], 8);
}

TEST_F(KrPictureFileTest, PnmOfBothKinds)
{
    EXPECT_EQ(Decoded("P5\n#a comment\n 2 1 65535\n" + bytes({1, 1, 255, 255})).pixels, (Bytes{1, 255}));
    EXPECT_EQ(Decoded("P6 1 1 100\n" + bytes({0, 50, 200})).pixels, (Bytes{0, 128, 255}));
    for (const char* const wrong : {"P6", "P6 1", "P6 0 1 255\nabc", "P6 1 1 0\nabc", "P6 1 1 70000\nabcdef",
                                    "P6 99999999999 1 255\nabc", "P6 -1 1 255\nabc"}) {
        EXPECT_NE(Decoded(wrong).reason, "") << wrong;
    }
}

TEST_F(KrPictureFileTest, JpegsStandUprightAsTheirOrientationSays)
{
    // One bright quarter, the upper left one.
    KrPicture picture = {32, 16, 1, Bytes(32 * 16, 10)};
    for (unsigned int i = 0; i < 8 * 16; ++i) {
        picture.pixels[i / 16 * 32 + i % 16] = 240;
    }
    const std::string jpeg = encoded(picture, "jpg");
    // Where the bright quarter stands, and whether width and height are exchanged: Exif 2.3, 4.6.4.
    const struct
    {
        bool right, below, turned;
    } expected[] = {{false, false, false}, {true, false, false}, {true, true, false}, {false, true, false},
                    {false, false, true},  {true, false, true},  {true, true, true},  {false, true, true}};
    for (int orientation = 1; orientation <= 8; ++orientation) {
        const std::string entry = bytes({0x01, 0x12, 0, 3, 0, 0, 0, 1, 0, orientation, 0, 0});
        const std::string exif = std::string("Exif\0\0MM\0\x2a\0\0\0\x08\0\x01", 16) + entry;
        const std::string marker = "\xff\xe1" + bytes({0, static_cast<int>(exif.size()) + 2}) + exif;
        const Decoded upright(jpeg.substr(0, 2) + marker + jpeg.substr(2));
        const auto& corner = expected[orientation - 1];
        ASSERT_EQ(upright.width, corner.turned ? 16u : 32u) << orientation << upright.reason;
        for (const bool right : {false, true}) {
            for (const bool below : {false, true}) {
                const std::size_t x = right ? upright.width - 4 : 3;
                const std::size_t y = below ? upright.height - 4 : 3;
                const bool isBright = right == corner.right && below == corner.below;
                EXPECT_NEAR(upright.pixels[y * upright.width + x], isBright ? 240 : 10, 12) << orientation;
            }
        }
    }
}
