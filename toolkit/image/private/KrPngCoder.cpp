#include <toolkit/image/private/KrPngCoder.h>

#include <toolkit/image/private/KrPictureSamples.h>
#include <toolkit/image/private/KrPngEncoder.h>

#include <png.h>

#include <csetjmp>
#include <cstring>
#include <new>
#include <vector>

namespace
{

using KrPictureSamples::kEndsEarly;
using KrPictureSamples::kTooLarge;

/// Deflate makes at most this many bytes of one (zlib's technical notes, "maximum compression factor").
constexpr std::uint64_t kMostPerByte = 1032;
// What pictures are made for when they do not say (sRGB is about that).
constexpr double kScreenGamma = 2.2;

/// Texts, colour profiles and the like: not asked for, so not unpacked.
constexpr unsigned char kUnread[] = "eXIf\0hIST\0iCCP\0iTXt\0oFFs\0pCAL\0pHYs\0sCAL\0sPLT\0tEXt\0tIME\0zTXt";
constexpr int kNumUnread = sizeof kUnread / 5;

/// The library jumps back to where `setjmp` was called: functions that call it make no objects with destructors.
class Reader
{
public:
    explicit Reader(const KrPictureBytes& file)
        : m_file(file)
    {
        m_png = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, fail, ignore);
        m_info = m_png ? png_create_info_struct(m_png) : nullptr;
        if (!m_info) {
            png_destroy_read_struct(&m_png, nullptr, nullptr);
            throw std::bad_alloc();
        }
        png_set_read_fn(m_png, this, give);
    }
    ~Reader() { png_destroy_read_struct(&m_png, &m_info, nullptr); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    /// Settles how pixels come out: bytes or big-endian pairs, 1 to 4 channels.
    bool readHeader()
    {
        if (setjmp(png_jmpbuf(m_png))) {
            return false;
        }
        // Chunks that are only kept would be unpacked, and a small file may hold much in them.
        png_set_keep_unknown_chunks(m_png, PNG_HANDLE_CHUNK_NEVER, kUnread, kNumUnread);
        png_read_info(m_png, m_info);
        // Before conversions are asked for: what the file must contain is counted in its own bytes.
        m_storedRowBytes = png_get_rowbytes(m_png, m_info);
        const int type = png_get_color_type(m_png, m_info);
        // Palettes, single bits and transparent colours come out as plain channels.
        if (type == PNG_COLOR_TYPE_PALETTE) {
            png_set_palette_to_rgb(m_png);
        }
        if (type == PNG_COLOR_TYPE_GRAY) {
            png_set_expand_gray_1_2_4_to_8(m_png);
        }
        if (png_get_valid(m_png, m_info, PNG_INFO_tRNS)) {
            png_set_tRNS_to_alpha(m_png);
        }
        double fileGamma = 0.0;
        // A file that names its gamma is brought to the screen's.
        if (png_get_gAMA(m_png, m_info, &fileGamma)) {
            png_set_gamma(m_png, kScreenGamma, fileGamma);
        }
        // The library goes over interlaced rows as often as it takes.
        png_set_interlace_handling(m_png);
        png_read_update_info(m_png, m_info);
        return true;
    }
    bool readPixels(png_bytepp rows)
    {
        if (setjmp(png_jmpbuf(m_png))) {
            return false;
        }
        png_read_image(m_png, rows);
        // Reads the rest, so that a damaged end is noticed.
        png_read_end(m_png, nullptr);
        return true;
    }

    // Before conversions, which may make more of a row than the file has.
    std::size_t storedRowBytes() const { return m_storedRowBytes; } ///< before anything is converted
    std::size_t rowBytes() const { return png_get_rowbytes(m_png, m_info); }
    unsigned int width() const { return png_get_image_width(m_png, m_info); }
    unsigned int height() const { return png_get_image_height(m_png, m_info); }
    unsigned int channels() const { return png_get_channels(m_png, m_info); }
    // 16 bits a sample come out as two bytes.
    bool isDeep() const { return png_get_bit_depth(m_png, m_info) == 16; }
    std::string reason() const
    {
        return m_hasEnded ? std::string(kEndsEarly) : KrPictureSamples::damaged("PNG", m_remark);
    }

private:
    static void give(png_structp png, png_bytep out, std::size_t count)
    {
        Reader& self = *static_cast<Reader*>(png_get_io_ptr(png));
        // The library waits for as many bytes as it asked for, so a short file ends here.
        if (count > self.m_file.size - self.m_at) {
            self.m_hasEnded = true;
            png_error(png, "end of file");
        }
        std::memcpy(out, self.m_file.data + self.m_at, count);
        self.m_at += count;
    }
    [[noreturn]] static void fail(png_structp png, png_const_charp text)
    {
        Reader& self = *static_cast<Reader*>(png_get_error_ptr(png));
        // Kept in a fixed buffer: the jump that follows would skip a string's destructor.
        std::strncpy(self.m_remark, text, sizeof self.m_remark - 1);
        png_longjmp(png, 1);
    }
    static void ignore(png_structp, png_const_charp) {}

    KrPictureBytes m_file;
    std::size_t m_at = 0;
    std::size_t m_storedRowBytes = 0;
    bool m_hasEnded = false;
    char m_remark[80] = {};
    png_structp m_png = nullptr;
    png_infop m_info = nullptr;
};

} // namespace

bool KrPngCoder::isFormat(const KrPictureBytes& file)
{
    // PNG specification, 5.2.
    return file.big(0, 4) == 0x89504E47u && file.big(4, 4) == 0x0D0A1A0Au;
}

std::string KrPngCoder::decode(const KrPictureBytes& file, const KrPictureLimits& limits, KrPicture& picture)
{
    // PNG specification, 11.2.2: the first chunk tells the size. Asked before the library is.
    // Width, then height.
    if (!limits.allow(file.big(16, 4), file.big(20, 4))) {
        return kTooLarge;
    }
    Reader reader(file);
    if (!reader.readHeader()) {
        return reader.reason();
    }
    const std::size_t height = reader.height();
    // More than deflate can make of the file cannot be in it.
    if (std::uint64_t{reader.storedRowBytes()} * height / kMostPerByte > file.size) {
        return kTooLarge;
    }
    const std::size_t rowBytes = reader.rowBytes();
    KrPicture read;
    read.width = reader.width();
    read.height = reader.height();
    read.channels = reader.channels();
    read.pixels.resize(rowBytes * height);
    std::vector<png_bytep> rows(height);
    for (std::size_t row = 0; row < height; ++row) {
        rows[row] = read.pixels.data() + row * rowBytes;
    }
    if (!reader.readPixels(rows.data())) {
        return reader.reason();
    }
    // The high bytes and the low ones become one; in place, since the result is shorter.
    if (reader.isDeep()) {
        const std::size_t samples = read.pixels.size() / 2;
        for (std::size_t i = 0; i < samples; ++i) {
            const unsigned int value = read.pixels[2 * i] * 256u + read.pixels[2 * i + 1];
            read.pixels[i] = KrPictureSamples::toByte(static_cast<std::uint16_t>(value));
        }
        read.pixels.resize(samples);
        read.pixels.shrink_to_fit();
    }
    picture = std::move(read);
    return {};
}

std::string KrPngCoder::encode(const KrPicture& picture, std::string& bytes)
{
    KrPngEncoder encoder;
    std::vector<std::uint8_t> file;
    const std::string reason =
        encoder.encode({picture.pixels.data(), picture.width, picture.height, picture.channels, 8, false}, file);
    if (reason.empty()) {
        bytes.assign(file.begin(), file.end());
    }
    return reason;
}
