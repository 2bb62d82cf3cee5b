#include <toolkit/image/private/KrJpegCoder.h>

#include <toolkit/image/private/KrPictureSamples.h>

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

// These come after <cstdio>, of which they use names.
#include <jerror.h>
#include <jpeglib.h>

namespace
{

using KrPictureSamples::kEndsEarly;
using KrPictureSamples::kTooLarge;

// A block of 8 x 8 pixels takes one bit at least.
constexpr std::uint64_t kMostPixelsPerByte = 8 * 64;
// Each scan of a progressive file goes over the whole picture again; ten are usual.
constexpr int kMostScans = 64;
constexpr std::uint64_t kMostScannedPixels = std::uint64_t{1} << 31;
constexpr int kExif = JPEG_APP0 + 1;
constexpr int kBestQuality = 100;

/// What the library calls back, for reading and for writing.
struct Callbacks
{
    // The library's own handlers print, and end the process.
    Callbacks()
    {
        jpeg_std_error(&errors);
        errors.error_exit = [](j_common_ptr codec) {
            Callbacks& self = of(codec);
            codec->err->format_message(codec, self.remark);
            std::longjmp(self.back, 1);
        };
        errors.emit_message = [](j_common_ptr codec, int) {
            // Everything else that is odd is mended as the library sees fit.
            if (codec->err->msg_code == JWRN_JPEG_EOF) {
                of(codec).hasEnded = true;
                codec->err->error_exit(codec);
            }
        };
        errors.output_message = [](j_common_ptr) {};
    }
    /// Back to where `setjmp` was called.
    /// As when the library fails by itself.
    [[noreturn]] void leave(const char* reason)
    {
        std::strncpy(remark, reason, sizeof remark - 1);
        std::longjmp(back, 1);
    }
    static Callbacks& of(j_common_ptr codec) { return *static_cast<Callbacks*>(codec->client_data); }

    jpeg_error_mgr errors = {};
    std::jmp_buf back = {};
    bool hasEnded = false;
    char remark[JMSG_LENGTH_MAX] = {};
};

/// The library jumps back to where `setjmp` was called: functions that call it make no objects with destructors.
class Reader
{
public:
    explicit Reader(const KrPictureBytes& file)
        : m_file(file)
    {
        m_jpeg.err = &m_callbacks.errors;
        m_jpeg.client_data = &m_callbacks;
    }
    ~Reader() { jpeg_destroy_decompress(&m_jpeg); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    bool readHeader()
    {
        if (setjmp(m_callbacks.back)) {
            return false;
        }
        // Inside setjmp: it may fail for want of memory.
        jpeg_create_decompress(&m_jpeg);
        // Borrowed: the library reads from the file's own bytes.
        jpeg_mem_src(&m_jpeg, m_file.data, static_cast<unsigned long>(m_file.size));
        // The orientation of the camera stands in there.
        jpeg_save_markers(&m_jpeg, kExif, 0xFFFF);
        jpeg_read_header(&m_jpeg, TRUE);
        return true;
    }
    bool start()
    {
        if (setjmp(m_callbacks.back)) {
            return false;
        }
        if (m_jpeg.arith_code) {
            m_callbacks.leave("arithmetic coding is not read here");
        }
        const bool isInk = m_jpeg.jpeg_color_space == JCS_CMYK || m_jpeg.jpeg_color_space == JCS_YCCK;
        const bool isGrey = m_jpeg.jpeg_color_space == JCS_GRAYSCALE;
        // Grey stays grey; ink is turned into light here, since the library does not.
        m_jpeg.out_color_space = isGrey ? JCS_GRAYSCALE : isInk ? JCS_CMYK : JCS_RGB;
        // Called while scans are read: a small file may have thousands over the same picture.
        m_progress.progress_monitor = [](j_common_ptr codec) {
            const int scans = reinterpret_cast<j_decompress_ptr>(codec)->input_scan_number;
            const jpeg_decompress_struct& jpeg = *reinterpret_cast<j_decompress_ptr>(codec);
            const std::uint64_t pixels = std::uint64_t{jpeg.image_width} * jpeg.image_height;
            if (scans > kMostScans || (scans > 16 && pixels * static_cast<unsigned int>(scans) > kMostScannedPixels)) {
                Callbacks::of(codec).leave("too many scans");
            }
        };
        m_jpeg.progress = &m_progress;
        // Reads all scans of a progressive file, so the limit has to be set before.
        jpeg_start_decompress(&m_jpeg);
        return true;
    }
    // Row by row into the picture itself; `rowBytes` is that of the colours the library makes.
    bool readRows(unsigned char* out, std::size_t rowBytes)
    {
        if (setjmp(m_callbacks.back)) {
            return false;
        }
        while (m_jpeg.output_scanline < m_jpeg.output_height) {
            JSAMPROW row = out + m_jpeg.output_scanline * rowBytes;
            jpeg_read_scanlines(&m_jpeg, &row, 1);
        }
        // What follows the last row is not looked at: some cameras end their files too early.
        return true;
    }

    const jpeg_decompress_struct& jpeg() const { return m_jpeg; }
    std::string reason() const
    {
        return m_callbacks.hasEnded ? std::string(kEndsEarly) : KrPictureSamples::damaged("JPEG", m_callbacks.remark);
    }

private:
    KrPictureBytes m_file;
    Callbacks m_callbacks;
    jpeg_progress_mgr m_progress = {};
    jpeg_decompress_struct m_jpeg = {};
};

class Writer
{
public:
    Writer()
    {
        m_jpeg.err = &m_callbacks.errors;
        m_jpeg.client_data = &m_callbacks;
    }
    ~Writer()
    {
        jpeg_destroy_compress(&m_jpeg);
        // The library has allocated it with malloc.
        std::free(m_bytes);
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    bool write(const KrPicture& picture)
    {
        if (setjmp(m_callbacks.back)) {
            return false;
        }
        jpeg_create_compress(&m_jpeg);
        jpeg_mem_dest(&m_jpeg, &m_bytes, &m_size);
        m_jpeg.image_width = picture.width;
        m_jpeg.image_height = picture.height;
        m_jpeg.input_components = static_cast<int>(picture.channels);
        m_jpeg.in_color_space = picture.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
        jpeg_set_defaults(&m_jpeg);
        // Flat colours and thin lines are the first to suffer from stronger compression.
        jpeg_set_quality(&m_jpeg, kBestQuality, TRUE);
        jpeg_start_compress(&m_jpeg, TRUE);
        const std::size_t rowBytes = std::size_t{picture.width} * picture.channels;
        while (m_jpeg.next_scanline < m_jpeg.image_height) {
            // The library takes pointers to what it does not change.
            JSAMPROW row = const_cast<JSAMPROW>(picture.pixels.data() + m_jpeg.next_scanline * rowBytes);
            jpeg_write_scanlines(&m_jpeg, &row, 1);
        }
        // Writes what is still held back, and the end.
        jpeg_finish_compress(&m_jpeg);
        return true;
    }
    const char* bytes() const { return reinterpret_cast<const char*>(m_bytes); }
    std::size_t size() const { return m_size; }
    const char* remark() const { return m_callbacks.remark; }

private:
    Callbacks m_callbacks;
    jpeg_compress_struct m_jpeg = {};
    unsigned char* m_bytes = nullptr;
    unsigned long m_size = 0;
};

/// The size in the frame header, before the library reads anything. False when there is none to be found.
/// The library would ask for memory by a size that nobody has looked at.
bool isAllowed(const KrPictureBytes& file, const KrPictureLimits& limits)
{
    // ITU-T T.81, B.1 and B.2: segments of a marker and a length; the frame header tells height and width.
    for (std::size_t at = 2; at + 9 <= file.size && file.data[at] == 0xFF;) {
        const unsigned int marker = file.data[at + 1];
        const bool isTable = marker == 0xC4 || marker == 0xC8 || marker == 0xCC;
        // Height before width.
        if (marker >= 0xC0 && marker <= 0xCF && !isTable) {
            return limits.allow(file.big(at + 7, 2), file.big(at + 5, 2));
        }
        // Fill bytes may stand before a marker.
        at += marker == 0xFF ? 1 : 2 + file.big(at + 2, 2);
    }
    return true;
}

/// Exif 2.3, 4.5.4 and 4.6.4: a TIFF header, then the entries of the first directory. 1 when nothing is told.
/// Cameras store what they see and tell how they were held.
unsigned int orientation(const jpeg_decompress_struct& jpeg)
{
    for (jpeg_saved_marker_ptr marker = jpeg.marker_list; marker; marker = marker->next) {
        if (marker->marker != kExif || marker->data_length < 14 || std::memcmp(marker->data, "Exif\0", 6) != 0) {
            continue;
        }
        const KrPictureBytes tiff = {marker->data + 6, marker->data_length - 6};
        const bool isBig = tiff.big(0, 2) == 0x4D4Du;
        const auto number = [&](std::size_t at, unsigned int count) {
            return isBig ? tiff.big(at, count) : tiff.little(at, count);
        };
        const std::size_t first = number(4, 4);
        for (std::size_t entry = first + 2; first < tiff.size && entry < first + 2 + 12 * number(first, 2);
             entry += 12) {
            if (number(entry, 2) == 0x0112u) {
                return number(entry + 8, 2);
            }
        }
    }
    return 1;
}

/// Cyan, magenta, yellow and black become red, green and blue. Files of one maker store them inverted and say so.
void inkToLight(std::vector<unsigned char>& pixels, bool isInverted)
{
    // In place: three bytes for four.
    const std::size_t count = pixels.size() / 4;
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned char* const ink = pixels.data() + 4 * i;
        const unsigned int black = isInverted ? ink[3] : 255u - ink[3];
        for (std::size_t k = 0; k < 3; ++k) {
            const unsigned int light = isInverted ? ink[k] : 255u - ink[k];
            pixels[3 * i + k] = static_cast<unsigned char>((light * black + 127u) / 255u);
        }
    }
    pixels.resize(3 * count);
}

} // namespace

bool KrJpegCoder::isFormat(const KrPictureBytes& file)
{
    return file.big(0, 3) == 0xFFD8FFu;
}

std::string KrJpegCoder::decode(const KrPictureBytes& file, const KrPictureLimits& limits, KrPicture& picture)
{
    if (!isAllowed(file, limits)) {
        return kTooLarge;
    }
    Reader reader(file);
    if (!reader.readHeader()) {
        return reader.reason();
    }
    const jpeg_decompress_struct& jpeg = reader.jpeg();
    // Again: there are files with a second frame header.
    // As the library has understood the header, which is what memory is asked for by.
    if (!limits.allow(jpeg.image_width, jpeg.image_height) ||
        std::uint64_t{jpeg.image_width} * jpeg.image_height / kMostPixelsPerByte > file.size) {
        return kTooLarge;
    }
    if (!reader.start()) {
        return reader.reason();
    }
    KrPicture read;
    read.width = jpeg.output_width;
    read.height = jpeg.output_height;
    read.channels = static_cast<unsigned int>(std::min(jpeg.output_components, 3));
    const std::size_t rowBytes = std::size_t{read.width} * static_cast<unsigned int>(jpeg.output_components);
    read.pixels.resize(rowBytes * read.height);
    if (!reader.readRows(read.pixels.data(), rowBytes)) {
        return reader.reason();
    }
    if (jpeg.out_color_space == JCS_CMYK) {
        inkToLight(read.pixels, jpeg.saw_Adobe_marker);
    }
    KrPictureSamples::turnUpright(read, orientation(jpeg));
    picture = std::move(read);
    return {};
}

std::string KrJpegCoder::encode(const KrPicture& picture, std::string& bytes)
{
    Writer writer;
    if (!writer.write(picture)) {
        return std::string("no JPEG can hold it (") + writer.remark() + ")";
    }
    bytes.assign(writer.bytes(), writer.size());
    return {};
}
