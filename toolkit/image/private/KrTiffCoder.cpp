#include <toolkit/image/private/KrTiffCoder.h>

#include <toolkit/image/private/KrPictureSamples.h>

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

namespace
{

using KrPictureSamples::kTooLarge;
using KrPictureSamples::toByte;

constexpr tmsize_t kMostLibraryBytes = tmsize_t{1} << 28; ///< in one piece
constexpr std::uint64_t kPixelsPerByteOfJpeg = 8 * 64;    ///< a block of 8 x 8 takes one bit at least

/// A file in memory: what the library reads from, or what it writes.
struct Memory
{
    KrPictureBytes file;            ///< read
    std::string* written = nullptr; ///< or written
    std::uint64_t at = 0;
    bool isOutOfMemory = false;
    char remark[120] = {};

    static Memory& of(thandle_t handle) { return *static_cast<Memory*>(handle); }
    std::uint64_t size() const { return written ? written->size() : file.size; }
};

// The library reads through these where it does not map the file.
tmsize_t readBytes(thandle_t handle, void* out, tmsize_t count)
{
    Memory& memory = Memory::of(handle);
    // It may have sought beyond the end.
    const std::uint64_t left = memory.size() - std::min(memory.at, memory.size());
    const std::size_t size = static_cast<std::size_t>(std::min<std::uint64_t>(left, static_cast<std::size_t>(count)));
    const void* const from = memory.written ? static_cast<const void*>(memory.written->data()) : memory.file.data;
    if (size > 0) {
        std::memcpy(out, static_cast<const char*>(from) + memory.at, size);
    }
    memory.at += size;
    return static_cast<tmsize_t>(size);
}

tmsize_t writeBytes(thandle_t handle, void* data, tmsize_t count)
{
    Memory& memory = Memory::of(handle);
    if (!memory.written) {
        return 0;
    }
    // No exception may pass through the library.
    try {
        // The library seeks back to fill in what it did not know before.
        const auto end = static_cast<std::size_t>(memory.at) + static_cast<std::size_t>(count);
        memory.written->resize(std::max(memory.written->size(), end));
        std::memcpy(&(*memory.written)[static_cast<std::size_t>(memory.at)], data, static_cast<std::size_t>(count));
        memory.at = end;
        return count;
    } catch (const std::exception&) {
        memory.isOutOfMemory = true;
        return 0;
    }
}

toff_t seek(thandle_t handle, toff_t offset, int whence)
{
    Memory& memory = Memory::of(handle);
    memory.at = offset + (whence == SEEK_CUR ? memory.at : whence == SEEK_END ? memory.size() : 0);
    return memory.at;
}

int closeNothing(thandle_t)
{
    return 0;
}

// Asked for by the library in its own checks of what a file claims.
toff_t sizeOf(thandle_t handle)
{
    return Memory::of(handle).size();
}

// Mapping costs nothing here: the file is in memory already. What is being written moves when it grows, so it is not
// mapped.
int giveWhole(thandle_t handle, void** base, toff_t* size)
{
    const Memory& memory = Memory::of(handle);
    // The library does not write to what it maps.
    *base = const_cast<unsigned char*>(memory.file.data);
    *size = memory.size();
    return memory.written ? 0 : 1;
}

void takeBack(thandle_t, void*, toff_t) {}

int keepRemark(TIFF*, void* memory, const char*, const char* format, va_list arguments)
{
    char* const remark = static_cast<Memory*>(memory)->remark;
    // The first remark is the cause of the others.
    if (remark[0] == '\0') {
        std::vsnprintf(remark, sizeof Memory::remark, format, arguments);
    }
    return 1; // the process's handler is not asked
}

int ignore(TIFF*, void*, const char*, const char*, va_list)
{
    return 1;
}

struct TiffCloser
{
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using UniqueTiff = std::unique_ptr<TIFF, TiffCloser>;

struct OptionsDeleter
{
    void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};

// The handlers belong to the one file: those of the process would print.
// Null when the library cannot make sense of the header; the remark then says why.
UniqueTiff open(Memory& memory, const char* mode)
{
    const std::unique_ptr<TIFFOpenOptions, OptionsDeleter> options(TIFFOpenOptionsAlloc());
    if (!options) {
        throw std::bad_alloc();
    }
    // A file may claim pieces of any size; the library asks for memory before it reads them.
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), kMostLibraryBytes);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keepRemark, &memory);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), ignore, nullptr);
    return UniqueTiff(TIFFClientOpenExt("", mode, &memory, readBytes, writeBytes, seek, closeNothing, sizeOf, giveWhole,
                                        takeBack, options.get()));
}

/// What the first directory of a file says.
struct Layout
{
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint16_t samples = 1; ///< of a pixel
    std::uint16_t bits = 1;    ///< of a sample
    std::uint16_t sampleFormat = SAMPLEFORMAT_UINT;
    std::uint16_t photometric = 0;
    std::uint16_t compression = COMPRESSION_NONE;
    std::uint16_t planes = PLANARCONFIG_CONTIG;
    std::uint16_t orientation = ORIENTATION_TOPLEFT;
    bool hasOpacity = false;

    bool isGrey() const { return photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE; }
    /// Whether samples can be taken as they are; the library converts the others.
    bool isPlain() const
    {
        const bool isWhole = sampleFormat != SAMPLEFORMAT_INT && sampleFormat != SAMPLEFORMAT_IEEEFP;
        const bool isFloat = sampleFormat == SAMPLEFORMAT_IEEEFP && bits == 32;
        const bool isNumber = isFloat || (isWhole && (bits == 8 || bits == 16 || bits == 32));
        return (isGrey() || (photometric == PHOTOMETRIC_RGB && samples >= 3)) && isNumber && samples <= 4;
    }
    unsigned int channels() const { return isPlain() ? samples : (isGrey() ? 1u : 3u) + (hasOpacity ? 1u : 0u); }
};

bool readLayout(TIFF* tiff, Layout& layout)
{
    // The tags that have defaults, then those that a picture cannot be without.
    std::uint16_t numExtra = 0;
    std::uint16_t* extra = nullptr;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &layout.samples);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &layout.bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &layout.sampleFormat);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &layout.compression);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &layout.planes);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_ORIENTATION, &layout.orientation);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &numExtra, &extra);
    layout.hasOpacity = numExtra > 0;
    return TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &layout.photometric) == 1 &&
           TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &layout.width) == 1 &&
           TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &layout.height) == 1 && layout.width > 0 && layout.height > 0 &&
           layout.samples > 0 && layout.bits > 0;
}

/// How many bytes one byte of the file can become; 0 for a compression that is not read.
std::uint64_t mostPerByte(std::uint16_t compression)
{
    switch (compression) {
    case COMPRESSION_NONE:
        return 1;
    case COMPRESSION_PACKBITS:
        return 64; // two bytes for a run of 128
    case COMPRESSION_LZW:
        return 4096; // a code of at least nine bits for a string of at most 4093 bytes
    case COMPRESSION_DEFLATE:
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_CCITTRLE: // these have no bound of their own; empty pages of paper are below it
    case COMPRESSION_CCITTFAX3:
    case COMPRESSION_CCITTFAX4:
        return 1032;
    case COMPRESSION_JPEG:
        return kPixelsPerByteOfJpeg * 4;
    default:
        return 0;
    }
}

bool isBelievable(const Layout& layout, std::uint64_t fileSize, TIFF* tiff)
{
    // A file cannot hold more than its compression can make of its bytes.
    const std::uint64_t most = fileSize * mostPerByte(layout.compression);
    const std::uint64_t rowBits = std::uint64_t{layout.width} * layout.samples * layout.bits;
    // JPEG may keep colours at a quarter of the resolution.
    const std::uint64_t picture = (rowBits + 7) / 8 * layout.height / (layout.compression == COMPRESSION_JPEG ? 2 : 1);
    const std::uint64_t tile = TIFFIsTiled(tiff) ? TIFFTileSize64(tiff) : 0;
    // Tiles reach over the edge of the picture.
    return picture <= most && tile <= std::max<std::uint64_t>(most, 1u << 16) &&
           tile <= static_cast<std::uint64_t>(kMostLibraryBytes);
}

template <typename Sample>
// By way of a copy: samples in the library's buffer need not be aligned.
void convert(const unsigned char* from, std::size_t count, std::size_t step, unsigned char* to)
{
    for (std::size_t i = 0; i < count; ++i) {
        Sample sample;
        std::memcpy(&sample, from + i * sizeof sample, sizeof sample);
        to[i * step] = toByte(sample);
    }
}

/// `count` samples of `layout`, in this machine's byte order, to every `step`-th byte.
void takeSamples(const Layout& layout, const unsigned char* from, std::size_t count, std::size_t step,
                 unsigned char* to)
{
    // `isPlain` has let nothing else pass: 8, 16 and 32 bits, the latter also as floating point.
    if (layout.bits == 16) {
        convert<std::uint16_t>(from, count, step, to);
    } else if (layout.bits == 32 && layout.sampleFormat == SAMPLEFORMAT_UINT) {
        convert<std::uint32_t>(from, count, step, to);
    } else if (layout.bits == 32) {
        convert<float>(from, count, step, to);
    } else if (step == 1) {
        std::copy_n(from, count, to);
    } else {
        for (std::size_t i = 0; i < count; ++i) {
            to[i * step] = from[i];
        }
    }
}

/// One plane of a file whose samples are taken as they are: all channels, or channel `plane` of a file that keeps each
/// by itself.
class PlaneReader
{
public:
    PlaneReader(TIFF* tiff, const Layout& layout, KrPicture& picture)
        : m_tiff(tiff)
        , m_layout(layout)
        , m_picture(picture)
        , m_isApart(layout.planes == PLANARCONFIG_SEPARATE && layout.samples > 1)
    {
    }
    bool read(std::uint16_t plane) { return TIFFIsTiled(m_tiff) ? readTiles(plane) : readRows(plane); }
    unsigned int numPlanes() const { return m_isApart ? m_layout.samples : 1; }

private:
    std::size_t perPixel() const { return m_isApart ? 1 : m_layout.samples; } ///< samples of a plane
    void take(const unsigned char* from, std::size_t x, std::size_t y, std::size_t pixels, std::uint16_t plane)
    {
        const std::size_t channels = m_layout.samples;
        unsigned char* const to = m_picture.pixels.data() + (y * m_layout.width + x) * channels + plane;
        takeSamples(m_layout, from, pixels * perPixel(), m_isApart ? channels : 1, to);
    }
    bool readRows(std::uint16_t plane)
    {
        std::vector<unsigned char> row(static_cast<std::size_t>(TIFFScanlineSize64(m_tiff)));
        // The library writes as many bytes as it says; fewer than the layout needs would be read beyond their end.
        if (row.size() < std::size_t{m_layout.width} * perPixel() * (m_layout.bits / 8)) {
            return false;
        }
        for (std::uint32_t y = 0; y < m_layout.height; ++y) {
            if (TIFFReadScanline(m_tiff, row.data(), y, plane) < 0) {
                return false;
            }
            take(row.data(), 0, y, m_layout.width, plane);
        }
        return true;
    }
    // Tile by tile, from left to right and from top to bottom; all have the same size.
    bool readTiles(std::uint16_t plane)
    {
        std::uint32_t width = 0;
        std::uint32_t height = 0;
        TIFFGetField(m_tiff, TIFFTAG_TILEWIDTH, &width);
        TIFFGetField(m_tiff, TIFFTAG_TILELENGTH, &height);
        const std::size_t rowBytes = std::size_t{width} * perPixel() * (m_layout.bits / 8);
        std::vector<unsigned char> tile(static_cast<std::size_t>(TIFFTileSize64(m_tiff)));
        if (width == 0 || height == 0 || rowBytes == 0 || tile.size() / rowBytes < height) {
            return false;
        }
        for (std::uint64_t top = 0; top < m_layout.height; top += height) {
            for (std::uint64_t left = 0; left < m_layout.width; left += width) {
                // Failures leave the tile undefined, so the picture is given up.
                if (TIFFReadTile(m_tiff, tile.data(), static_cast<std::uint32_t>(left), static_cast<std::uint32_t>(top),
                                 0, plane) < 0) {
                    return false;
                }
                // The last tiles reach over the edges; what is outside is left out.
                const std::size_t rows =
                    static_cast<std::size_t>(std::min<std::uint64_t>(height, m_layout.height - top));
                const std::size_t pixels =
                    static_cast<std::size_t>(std::min<std::uint64_t>(width, m_layout.width - left));
                for (std::size_t y = 0; y < rows; ++y) {
                    take(tile.data() + y * rowBytes, static_cast<std::size_t>(left), static_cast<std::size_t>(top) + y,
                         pixels, plane);
                }
            }
        }
        return true;
    }

    TIFF* m_tiff;
    const Layout& m_layout;
    KrPicture& m_picture;
    bool m_isApart;
};

// Sample by sample, which keeps 16 and 32 bits until they become bytes here.
bool readPlain(TIFF* tiff, const Layout& layout, KrPicture& picture)
{
    PlaneReader reader(tiff, layout, picture);
    for (unsigned int plane = 0; plane < reader.numPlanes(); ++plane) {
        if (!reader.read(static_cast<std::uint16_t>(plane))) {
            return false;
        }
    }
    // Grey of this kind counts ink: 0 is white.
    if (layout.photometric == PHOTOMETRIC_MINISWHITE) {
        for (std::size_t i = 0; i < picture.pixels.size(); i += layout.samples) {
            picture.pixels[i] = static_cast<unsigned char>(255 - picture.pixels[i]);
        }
    }
    return true;
}

/// Palettes, single bits, ink, luminance and colour differences: the library makes red, green, blue and opacity.
bool readConverted(TIFF* tiff, const Layout& layout, KrPicture& picture)
{
    std::vector<std::uint32_t> raster(std::size_t{layout.width} * layout.height);
    // The orientation that the file has: nothing is turned here.
    if (!TIFFReadRGBAImageOriented(tiff, layout.width, layout.height, raster.data(), layout.orientation, 1)) {
        return false;
    }
    unsigned char* to = picture.pixels.data();
    for (const std::uint32_t pixel : raster) {
        const unsigned int values[] = {TIFFGetR(pixel), TIFFGetG(pixel), TIFFGetB(pixel)};
        for (std::size_t i = 0; i < (layout.isGrey() ? 1u : 3u); ++i) {
            *to++ = static_cast<unsigned char>(values[i]);
        }
        if (layout.hasOpacity) {
            *to++ = static_cast<unsigned char>(TIFFGetA(pixel));
        }
    }
    return true;
}

} // namespace

bool KrTiffCoder::isFormat(const KrPictureBytes& file)
{
    const std::uint32_t head = file.big(0, 4);
    // TIFF 6.0, section 2, and its successor with offsets of 64 bits, in both byte orders.
    return head == 0x49492A00u || head == 0x4D4D002Au || head == 0x49492B00u || head == 0x4D4D002Bu;
}

std::string KrTiffCoder::decode(const KrPictureBytes& file, const KrPictureLimits& limits, KrPicture& picture)
{
    Memory memory;
    memory.file = file;
    const UniqueTiff tiff = open(memory, "r");
    Layout layout;
    if (!tiff || !readLayout(tiff.get(), layout)) {
        return KrPictureSamples::damaged("TIFF", memory.remark);
    }
    // Only what is listed there is read, whatever else the library was built with.
    if (mostPerByte(layout.compression) == 0) {
        return "TIFF data of compression " + std::to_string(layout.compression) + " are not read here";
    }
    // Converted ones take four bytes more for each pixel on their way.
    const std::uint64_t divisor = layout.isPlain() ? 1 : 4;
    if (!limits.allow(layout.width, layout.height) ||
        std::uint64_t{layout.width} * layout.height > limits.pixels / divisor ||
        !isBelievable(layout, file.size, tiff.get())) {
        return kTooLarge;
    }
    KrPicture read;
    read.width = layout.width;
    read.height = layout.height;
    read.channels = layout.channels();
    read.pixels.resize(std::size_t{read.width} * read.height * read.channels);
    if (!(layout.isPlain() ? readPlain : readConverted)(tiff.get(), layout, read)) {
        return KrPictureSamples::damaged("TIFF", memory.remark);
    }
    // Last: rows and columns may trade places.
    KrPictureSamples::turnUpright(read, layout.orientation);
    picture = std::move(read);
    return {};
}

std::string KrTiffCoder::encode(const KrPicture& picture, std::string& bytes)
{
    std::string written;
    Memory memory;
    memory.written = &written;
    UniqueTiff tiff = open(memory, "w");
    const auto channels = static_cast<std::uint16_t>(picture.channels);
    bool isWritten = bool(tiff);
    if (isWritten) {
        TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, picture.width);
        TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, picture.height);
        TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, channels);
        TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC, channels < 3 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
        TIFFSetField(tiff.get(), TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        // Lossless, and read by everything that reads TIFF.
        TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS);
        if (channels % 2 == 0) {
            // Opacity that is not multiplied into the colours, as in all pictures here.
            const std::uint16_t opacity = EXTRASAMPLE_UNASSALPHA;
            TIFFSetField(tiff.get(), TIFFTAG_EXTRASAMPLES, 1, &opacity);
        }
        // Strips of the library's own size, about 8 KiB.
        TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff.get(), 0));
    }
    const std::size_t rowBytes = std::size_t{picture.width} * channels;
    for (std::uint32_t row = 0; row < picture.height && isWritten; ++row) {
        // The library takes pointers to what it does not change.
        void* const from = const_cast<unsigned char*>(picture.pixels.data() + row * rowBytes);
        isWritten = TIFFWriteScanline(tiff.get(), from, row, 0) == 1;
    }
    isWritten = isWritten && TIFFFlush(tiff.get()) == 1;
    // Closing writes the directory, so failures are asked about afterwards.
    tiff.reset();
    if (memory.isOutOfMemory) {
        throw std::bad_alloc();
    }
    if (!isWritten) {
        return std::string("no TIFF can hold it (") + memory.remark + ")";
    }
    bytes = std::move(written);
    return {};
}
