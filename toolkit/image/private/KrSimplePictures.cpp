#include <toolkit/image/private/KrSimplePictures.h>

#include <toolkit/image/private/KrPictureSamples.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace
{

using Colour = std::array<unsigned char, 4>; ///< red, green, blue, opacity
using KrPictureSamples::kEndsEarly;
using KrPictureSamples::kTooLarge;
using KrPictureSamples::toByte;

// Little endian, as BMP and TGA have it.
void put(std::string& bytes, std::uint32_t value, unsigned int count)
{
    for (unsigned int i = 0; i < count; ++i) {
        bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFFu));
    }
}

/// The colour's first bytes; of two channels, grey and opacity.
void put(const Colour& colour, unsigned int channels, unsigned char* to)
{
    to[0] = colour[0];
    if (channels == 2) {
        to[1] = colour[3];
    } else {
        std::copy_n(colour.begin() + 1, channels - 1, to + 1);
    }
}

/// Bits in a row inside a number of 32.
struct BitField
{
    unsigned int shift = 0;
    std::uint32_t largest = 0; ///< 0 for none

    explicit BitField(std::uint32_t mask)
    {
        // Masks come from the file: any bits, or none.
        while (mask != 0 && (mask & 1u) == 0) {
            mask >>= 1;
            ++shift;
        }
        largest = mask;
    }
    /// False when the bits have a gap.
    bool isWhole() const { return (largest & (largest + 1)) == 0; }
    unsigned char of(std::uint32_t value, unsigned char without) const
    {
        return largest == 0 ? without : toByte(value >> shift & largest, largest);
    }
};

// Bitmaps. Sources: "Bitmap Storage" and the structures BITMAPFILEHEADER to BITMAPV5HEADER of the Windows graphics
// interface, and the core header of OS/2 1.x.

constexpr std::size_t kFileHeader = 14;
constexpr std::size_t kCoreHeader = 12;
constexpr std::size_t kInfoHeader = 40;

// What a header of any of the versions says.
struct Bitmap
{
    enum Compression : std::uint32_t
    {
        Plain = 0,
        RunLength8 = 1,
        RunLength4 = 2,
        BitFields = 3,
        OpaqueBitFields = 6 ///< with one for opacity
    };

    std::size_t pixelsAt = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    bool topRowFirst = false;
    std::uint32_t bits = 0; ///< of a pixel
    std::uint32_t compression = Plain;
    std::array<std::uint32_t, 4> masks = {}; ///< red, green, blue, opacity
    std::array<Colour, 256> palette = {};
    unsigned int channels = 0;

    bool isRunLength() const { return compression == RunLength8 || compression == RunLength4; }
    std::size_t rowBytes() const { return (std::size_t{width} * bits + 31) / 32 * 4; }
};

// The combinations that the format knows; run lengths always go from the bottom row up.
bool isPossible(const Bitmap& bitmap)
{
    switch (bitmap.compression) {
    case Bitmap::Plain:
        return bitmap.bits == 1 || bitmap.bits == 4 || bitmap.bits == 8 || bitmap.bits == 16 || bitmap.bits == 24 ||
               bitmap.bits == 32;
    case Bitmap::RunLength8:
        return bitmap.bits == 8 && !bitmap.topRowFirst;
    case Bitmap::RunLength4:
        return bitmap.bits == 4 && !bitmap.topRowFirst;
    case Bitmap::BitFields:
    case Bitmap::OpaqueBitFields:
        return (bitmap.bits == 16 || bitmap.bits == 32) &&
               std::all_of(bitmap.masks.begin(), bitmap.masks.end(),
                           [](std::uint32_t mask) { return BitField(mask).isWhole(); });
    default:
        return false;
    }
}

// Which bits of a pixel are which colour; without masks of its own a file has the usual ones.
void readMasks(const KrPictureBytes& file, std::size_t headerSize, Bitmap& bitmap)
{
    if (bitmap.compression == Bitmap::BitFields || bitmap.compression == Bitmap::OpaqueBitFields) {
        // Inside the later headers, behind the first one: at the same place.
        const bool hasOpacity = bitmap.compression == Bitmap::OpaqueBitFields || headerSize >= kInfoHeader + 16;
        for (std::size_t i = 0; i < (hasOpacity ? 4u : 3u); ++i) {
            bitmap.masks[i] = file.little(kFileHeader + kInfoHeader + 4 * i, 4);
        }
    } else if (bitmap.bits == 16) {
        bitmap.masks = {0x7C00u, 0x03E0u, 0x001Fu, 0u};
    } else {
        bitmap.masks = {0xFF0000u, 0xFF00u, 0xFFu, 0u};
    }
}

// Empty when the header is sound; nothing of the pixels has been looked at then.
std::string readHeader(const KrPictureBytes& file, const KrPictureLimits& limits, Bitmap& bitmap)
{
    const std::size_t headerSize = file.little(kFileHeader, 4);
    const bool isCore = headerSize == kCoreHeader;
    // || Later headers are longer and begin alike; what they add is not asked for, but for the masks.
    if (!isCore && (headerSize < kInfoHeader || headerSize > 256)) {
        return KrPictureSamples::damaged("BMP", "a header of " + std::to_string(headerSize) + " bytes");
    }
    std::uint32_t colours = 0;
    bitmap.pixelsAt = file.little(10, 4);
    bitmap.width = file.little(18, isCore ? 2 : 4);
    // The core header has sizes of 16 bits and nothing behind them.
    if (isCore) {
        bitmap.height = file.little(20, 2);
        bitmap.bits = file.little(24, 2);
    } else {
        bitmap.height = file.little(22, 4);
        // A negative height means that the top row comes first.
        bitmap.topRowFirst = (bitmap.height & 0x80000000u) != 0;
        bitmap.height = bitmap.topRowFirst ? 0u - bitmap.height : bitmap.height;
        bitmap.bits = file.little(28, 2);
        bitmap.compression = file.little(30, 4);
        colours = file.little(46, 4);
    }
    readMasks(file, headerSize, bitmap);
    // Before sizes are multiplied and before a palette is read.
    if (bitmap.width == 0 || bitmap.height == 0 || !isPossible(bitmap)) {
        return KrPictureSamples::damaged("BMP", std::to_string(bitmap.bits) + " bits a pixel, compression " +
                                                    std::to_string(bitmap.compression));
    }
    if (!limits.allow(bitmap.width, bitmap.height)) {
        return kTooLarge;
    }
    // The core header's palette has three bytes a colour, the others four.
    const std::size_t entrySize = isCore ? 3 : 4;
    // Pixels that are opaque by nature have kept the channel that they came with.
    bitmap.channels = bitmap.bits == 32 || (bitmap.bits <= 8 && !isCore) || bitmap.masks[3] != 0 ? 4 : 3;
    if (bitmap.bits <= 8) {
        const std::uint32_t all = 1u << bitmap.bits;
        const std::size_t at = kFileHeader + headerSize;
        // A file may name fewer colours than its pixels can, and claim more.
        for (std::uint32_t i = 0; i < (colours == 0 ? all : std::min(colours, all)); ++i) {
            const std::size_t entry = at + i * entrySize;
            bitmap.palette[i] = {static_cast<unsigned char>(file.little(entry + 2, 1)),
                                 static_cast<unsigned char>(file.little(entry + 1, 1)),
                                 static_cast<unsigned char>(file.little(entry, 1)), 255};
        }
        // What the palette does not name is black, as in the rest of it.
        for (Colour& colour : bitmap.palette) {
            colour[3] = 255;
        }
    }
    return {};
}

/// Rows of whole pixels, padded to multiples of four bytes.
void readRows(const KrPictureBytes& file, const Bitmap& bitmap, KrPicture& picture)
{
    const BitField red(bitmap.masks[0]), green(bitmap.masks[1]), blue(bitmap.masks[2]), opacity(bitmap.masks[3]);
    const unsigned int bytes = bitmap.bits / 8;
    for (std::size_t row = 0; row < bitmap.height; ++row) {
        const unsigned char* const from = file.data + bitmap.pixelsAt + row * bitmap.rowBytes();
        const std::size_t y = bitmap.topRowFirst ? row : bitmap.height - 1 - row;
        unsigned char* to = picture.pixels.data() + y * picture.width * picture.channels;
        for (std::size_t x = 0; x < bitmap.width; ++x, to += picture.channels) {
            if (bitmap.bits <= 8) {
                const std::size_t bit = x * bitmap.bits;
                const unsigned int shift = static_cast<unsigned int>(8 - bitmap.bits - bit % 8);
                put(bitmap.palette[from[bit / 8] >> shift & ((1u << bitmap.bits) - 1)], picture.channels, to);
                continue;
            }
            const std::uint32_t value = KrPictureBytes{from + x * bytes, bytes}.little(0, bytes);
            put({red.of(value, 0), green.of(value, 0), blue.of(value, 0), opacity.of(value, 255)}, picture.channels,
                to);
        }
    }
}

/// Runs of one index, stretches of indices, and jumps over what stays as it was. What lies outside the picture is left
/// out. False when the file ends too early.
bool readRuns(const KrPictureBytes& file, const Bitmap& bitmap, KrPicture& picture)
{
    std::size_t x = 0;
    std::size_t row = 0;
    // Runs may lead out of the picture; what is drawn there is lost.
    const auto draw = [&](unsigned int index) {
        if (x < bitmap.width && row < bitmap.height) {
            const std::size_t y = bitmap.height - 1 - row;
            put(bitmap.palette[index], picture.channels,
                picture.pixels.data() + (y * picture.width + x) * picture.channels);
        }
        ++x;
    };
    const bool isHalf = bitmap.bits == 4; // two indices a byte, the upper half first
    for (std::size_t at = bitmap.pixelsAt; row < bitmap.height;) {
        // `at` never passes the end, so the difference is no wrap.
        if (file.size - at < 2) {
            return false;
        }
        const unsigned int count = file.data[at];
        const unsigned int value = file.data[at + 1];
        at += 2;
        if (count > 0) {
            for (unsigned int i = 0; i < count; ++i) {
                draw(!isHalf ? value : i % 2 == 0 ? value >> 4 : value & 15u);
            }
        } else if (value == 0) { // end of the row
            x = 0;
            ++row;
        } else if (value == 1) { // end of the picture
            return true;
        } else if (value == 2) { // a jump to the right and up
            if (file.size - at < 2) {
                return false;
            }
            x += file.data[at];
            row += file.data[at + 1];
            at += 2;
        } else {
            const std::size_t bytes = isHalf ? (value + 1) / 2 : value;
            if (file.size - at < bytes) {
                return false;
            }
            for (unsigned int i = 0; i < value; ++i) {
                const unsigned int pair = file.data[at + (isHalf ? i / 2 : i)];
                draw(!isHalf ? pair : i % 2 == 0 ? pair >> 4 : pair & 15u);
            }
            // Stretches end on even bytes.
            at += std::min((bytes + 1) / 2 * 2, file.size - at);
        }
    }
    return true;
}

// Targa. Source: "Truevision TGA File Format Specification", version 2.0.

constexpr std::size_t kTgaHeader = 18;
constexpr std::size_t kTgaFooter = 26;

// The header as it stands; isPossible() judges it.
struct Targa
{
    enum Kind : unsigned int
    {
        Palette = 1,
        TrueColour = 2,
        Grey = 3,
        RunLength = 8 ///< besides one of these
    };

    explicit Targa(const KrPictureBytes& file)
        : type(file.little(2, 1))
        , hasPalette(file.little(1, 1) == 1)
        , firstIndex(file.little(3, 2))
        , numColours(file.little(5, 2))
        , colourBits(file.little(7, 1))
        , width(file.little(12, 2))
        , height(file.little(14, 2))
        , bits(file.little(16, 1))
        , descriptor(file.little(17, 1))
        , paletteAt(kTgaHeader + file.little(0, 1))
    {
    }
    unsigned int kind() const { return type & 7u; }
    bool isRunLength() const { return (type & RunLength) != 0; }
    unsigned int pixelBytes() const { return (bits + 7) / 8; }
    unsigned int colourBytes() const { return (colourBits + 7) / 8; }
    unsigned int opacityBits() const { return descriptor & 15u; }
    std::size_t pixelsAt() const { return paletteAt + (hasPalette ? std::size_t{numColours} * colourBytes() : 0); }

    unsigned int type;
    bool hasPalette;
    std::uint32_t firstIndex;
    std::uint32_t numColours;
    std::uint32_t colourBits; ///< of a palette's entry
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t bits; ///< of a pixel
    std::uint32_t descriptor;
    std::size_t paletteAt;
};

// Of a pixel or a palette's entry, in bits.
bool isColourSize(std::uint32_t bits)
{
    return bits == 15 || bits == 16 || bits == 24 || bits == 32;
}

bool isPossible(const Targa& targa, const KrPictureBytes& file)
{
    // The format has no first bytes of its own, so every field has to be possible.
    const bool isKnown = (targa.type & ~std::uint32_t{Targa::RunLength}) == targa.kind() && file.little(1, 1) <= 1 &&
                         targa.width > 0 && targa.height > 0 && (targa.descriptor & 0xC0u) == 0 &&
                         (targa.opacityBits() <= 1 || targa.opacityBits() == 8);
    const bool isPalettePossible = targa.hasPalette ? isColourSize(targa.colourBits) && targa.numColours > 0
                                                    : targa.numColours == 0 && targa.firstIndex == 0;
    switch (targa.kind()) {
    case Targa::Palette:
        return isKnown && isPalettePossible && targa.hasPalette && (targa.bits == 8 || targa.bits == 16);
    case Targa::TrueColour:
        return isKnown && isPalettePossible && isColourSize(targa.bits);
    case Targa::Grey:
        return isKnown && isPalettePossible && (targa.bits == 8 || targa.bits == 16);
    default:
        return false;
    }
}

/// Whether the extension area, where there is one, says that what looks like opacity is none.
bool isOpacityDenied(const KrPictureBytes& file)
{
    constexpr char kSignature[] = "TRUEVISION-XFILE.";
    if (file.size < kTgaHeader + kTgaFooter ||
        std::memcmp(file.data + file.size - sizeof kSignature, kSignature, sizeof kSignature) != 0) {
        return false;
    }
    const std::size_t extension = file.little(file.size - kTgaFooter, 4);
    // The field at 494 tells what the fourth channel is; below 3 it is no opacity.
    return extension != 0 && extension < file.size && file.size - extension > 494 &&
           file.little(extension + 494, 1) < 3;
}

// From the order in the file, which is blue, green, red.
Colour colourOf(const unsigned char* from, std::uint32_t bits, bool hasOpacity)
{
    // Five bits a colour and one for opacity.
    if (bits <= 16) {
        const std::uint32_t value = from[0] + 256u * from[1];
        return {toByte(value >> 10 & 31u, 31u), toByte(value >> 5 & 31u, 31u), toByte(value & 31u, 31u),
                static_cast<unsigned char>(hasOpacity && (value & 0x8000u) == 0 ? 0 : 255)};
    }
    return {from[2], from[1], from[0], bits == 32 ? from[3] : static_cast<unsigned char>(255)};
}

/// Takes a pixel's bytes to where it stands.
class TargaPainter
{
public:
    TargaPainter(const KrPictureBytes& file, const Targa& targa, KrPicture& picture)
        : m_targa(targa)
        , m_picture(picture)
    {
        const std::uint32_t bits = targa.kind() == Targa::Palette ? targa.colourBits : targa.bits;
        // 32 bits have opacity unless it is denied; the others only where they say so.
        m_hasOpacity = !isOpacityDenied(file) && (bits == 32 || (bits == 16 && targa.opacityBits() == 1) ||
                                                  (bits == 16 && targa.kind() == Targa::Grey));
        picture.width = targa.width;
        picture.height = targa.height;
        picture.channels = (targa.kind() == Targa::Grey ? 1u : 3u) + (m_hasOpacity ? 1u : 0u);
        for (std::size_t i = 0; targa.kind() == Targa::Palette && i < targa.numColours; ++i) {
            m_palette.push_back(
                colourOf(file.data + targa.paletteAt + i * targa.colourBytes(), targa.colourBits, m_hasOpacity));
        }
    }
    /// False for an index outside the palette.
    bool paint(std::size_t pixel, const unsigned char* from)
    {
        std::size_t x = pixel % m_targa.width;
        std::size_t y = pixel / m_targa.width;
        // The descriptor says from which side rows and columns run.
        x = (m_targa.descriptor & 0x10u) != 0 ? m_targa.width - 1 - x : x;
        y = (m_targa.descriptor & 0x20u) != 0 ? y : m_targa.height - 1 - y;
        unsigned char* const to = m_picture.pixels.data() + (y * m_targa.width + x) * m_picture.channels;
        if (m_targa.kind() == Targa::Grey) {
            std::copy_n(from, m_picture.channels, to);
            return true;
        }
        if (m_targa.kind() == Targa::TrueColour) {
            put(colourOf(from, m_targa.bits, m_hasOpacity), m_picture.channels, to);
            return true;
        }
        // An index of 16 bits is little endian.
        const std::size_t index = std::size_t{from[0]} + (m_targa.bits == 16 ? 256u * from[1] : 0u);
        if (index < m_targa.firstIndex || index - m_targa.firstIndex >= m_palette.size()) {
            return false;
        }
        put(m_palette[index - m_targa.firstIndex], m_picture.channels, to);
        return true;
    }

private:
    const Targa& m_targa;
    KrPicture& m_picture;
    bool m_hasOpacity = false;
    std::vector<Colour> m_palette;
};

constexpr const char* kOutsidePalette = "a pixel's colour is not in its palette";

// A packet is a byte of length and kind, then one pixel or several.
std::string paintRuns(const KrPictureBytes& file, const Targa& targa, TargaPainter& painter)
{
    const std::size_t count = std::size_t{targa.width} * targa.height;
    const std::size_t bytes = targa.pixelBytes();
    std::size_t at = targa.pixelsAt();
    for (std::size_t pixel = 0; pixel < count;) {
        if (at >= file.size) {
            return kEndsEarly;
        }
        const unsigned int packet = file.data[at++];
        // A run repeats one pixel; other packets have each.
        const bool isRun = (packet & 0x80u) != 0;
        // Packets may reach over the ends of rows; over the end of the picture they are cut.
        const std::size_t length = std::min<std::size_t>((packet & 0x7Fu) + 1, count - pixel);
        if (file.size - at < bytes * (isRun ? 1 : length)) {
            return kEndsEarly;
        }
        for (std::size_t i = 0; i < length; ++i) {
            if (!painter.paint(pixel++, file.data + at + (isRun ? 0 : i * bytes))) {
                return kOutsidePalette;
            }
        }
        at += bytes * (isRun ? 1 : length);
    }
    return {};
}

// Netpbm. Source: the manual pages ppm(5) and pgm(5).

/// The next number of a header, over white space and comments; nothing longer than a picture's numbers are. False at
/// anything else.
bool takeNumber(const KrPictureBytes& file, std::size_t& at, std::uint32_t& value)
{
    const auto isSpace = [](unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    while (at < file.size && (isSpace(file.data[at]) || file.data[at] == '#')) {
        if (file.data[at] == '#') {
            while (at < file.size && file.data[at] != '\n') {
                ++at;
            }
        } else {
            ++at;
        }
    }
    const std::size_t start = at;
    value = 0;
    // Eight digits hold every size that is allowed, and no product of them wraps around.
    for (; at < file.size && file.data[at] >= '0' && file.data[at] <= '9' && at - start < 8; ++at) {
        value = value * 10 + (file.data[at] - unsigned{'0'});
    }
    return at > start && at < file.size && isSpace(file.data[at]);
}

} // namespace

// "BM".
bool KrBmpCoder::isFormat(const KrPictureBytes& file)
{
    return file.big(0, 2) == 0x424Du;
}

std::string KrBmpCoder::decode(const KrPictureBytes& file, const KrPictureLimits& limits, KrPicture& picture)
{
    Bitmap bitmap;
    const std::string reason = readHeader(file, limits, bitmap);
    if (!reason.empty()) {
        return reason;
    }
    if (bitmap.pixelsAt > file.size) {
        return kEndsEarly;
    }
    // In 64 bits: sizes from the file may not fit into a pointer of 32.
    const std::uint64_t left = file.size - bitmap.pixelsAt;
    const std::uint64_t needed = bitmap.isRunLength() ? 0 : std::uint64_t{bitmap.rowBytes()} * bitmap.height;
    const std::uint64_t pixels = std::uint64_t{bitmap.width} * bitmap.height;
    if (left < needed) {
        return kEndsEarly;
    }
    // Two bytes draw 255 pixels at most; that they may jump over more is used by small pictures only.
    if (bitmap.isRunLength() && pixels > std::max<std::uint64_t>(128 * left, 1u << 20)) {
        return kTooLarge;
    }
    KrPicture read;
    read.width = bitmap.width;
    read.height = bitmap.height;
    read.channels = bitmap.channels;
    read.pixels.resize(static_cast<std::size_t>(pixels) * read.channels);
    if (!bitmap.isRunLength()) {
        readRows(file, bitmap, read);
    } else {
        for (std::size_t i = 0; i < pixels; ++i) {
            // What runs jump over has the first colour.
            put(bitmap.palette[0], read.channels, read.pixels.data() + i * read.channels);
        }
        if (!readRuns(file, bitmap, read)) {
            return kEndsEarly;
        }
    }
    picture = std::move(read);
    return {};
}

std::string KrBmpCoder::encode(const KrPicture& picture, std::string& bytes)
{
    // About 25 dots per inch. Nothing here depends on it.
    constexpr std::uint32_t kDotsPerMetre = 1000;
    const std::size_t rowBytes = std::size_t{picture.width} * 3;
    const std::size_t padded = (rowBytes + 3) / 4 * 4;
    const std::uint64_t size = kFileHeader + kInfoHeader + std::uint64_t{padded} * picture.height;
    if (size > 0xFFFFFFFFu) {
        // The format counts its bytes in 32 bits.
        return "no BMP is so large";
    }
    std::string out = "BM";
    out.reserve(static_cast<std::size_t>(size));
    put(out, static_cast<std::uint32_t>(size), 4);
    put(out, 0, 4);
    put(out, kFileHeader + kInfoHeader, 4);
    put(out, kInfoHeader, 4);
    put(out, picture.width, 4);
    put(out, picture.height, 4);
    put(out, 1, 2); // planes
    put(out, 24, 2);
    put(out, Bitmap::Plain, 4);
    put(out, static_cast<std::uint32_t>(padded * picture.height), 4);
    put(out, kDotsPerMetre, 4);
    put(out, kDotsPerMetre, 4);
    put(out, 0, 4);
    put(out, 0, 4);
    for (std::size_t row = picture.height; row-- > 0;) {
        const unsigned char* const from = picture.pixels.data() + row * rowBytes;
        for (std::size_t i = 0; i < rowBytes; i += 3) {
            out.push_back(static_cast<char>(from[i + 2]));
            out.push_back(static_cast<char>(from[i + 1]));
            out.push_back(static_cast<char>(from[i]));
        }
        out.append(padded - rowBytes, '\0');
    }
    bytes = std::move(out);
    return {};
}

// Asked last of all formats, since it has no first bytes.
bool KrTgaCoder::isFormat(const KrPictureBytes& file)
{
    return file.size > kTgaHeader && isPossible(Targa(file), file);
}

std::string KrTgaCoder::decode(const KrPictureBytes& file, const KrPictureLimits& limits, KrPicture& picture)
{
    const Targa targa(file);
    if (!isPossible(targa, file)) {
        return KrPictureSamples::damaged("TGA", {});
    }
    if (!limits.allow(targa.width, targa.height)) {
        return kTooLarge;
    }
    const std::uint64_t pixels = std::uint64_t{targa.width} * targa.height;
    // A packet of a byte and a pixel makes 128 pixels at most.
    // Asked before memory is: a short file cannot stand for a large picture.
    const std::uint64_t needed =
        targa.isRunLength() ? (pixels + 127) / 128 * (1 + targa.pixelBytes()) : pixels * targa.pixelBytes();
    if (targa.pixelsAt() > file.size || file.size - targa.pixelsAt() < needed) {
        return kEndsEarly;
    }
    KrPicture read;
    TargaPainter painter(file, targa, read);
    read.pixels.resize(static_cast<std::size_t>(pixels) * read.channels);
    if (targa.isRunLength()) {
        const std::string reason = paintRuns(file, targa, painter);
        if (!reason.empty()) {
            return reason;
        }
    } else {
        const unsigned char* const from = file.data + targa.pixelsAt();
        for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
            if (!painter.paint(pixel, from + pixel * targa.pixelBytes())) {
                return kOutsidePalette;
            }
        }
    }
    picture = std::move(read);
    return {};
}

std::string KrTgaCoder::encode(const KrPicture& picture, std::string& bytes)
{
    if (picture.width > 0xFFFFu || picture.height > 0xFFFFu) {
        // The format counts rows and columns in 16 bits.
        return "no TGA is so large";
    }
    std::string out;
    out.reserve(kTgaHeader + picture.pixels.size());
    put(out, 0, 2);
    put(out, Targa::TrueColour, 1);
    put(out, 0, 4); // no palette
    put(out, 0, 1);
    put(out, 0, 4); // where its lower left corner stands
    put(out, picture.width, 2);
    put(out, picture.height, 2);
    put(out, picture.channels * 8, 1);
    put(out, picture.channels == 4 ? 8 : 0, 1); // bits of opacity; the lowest row first
    const std::size_t rowBytes = std::size_t{picture.width} * picture.channels;
    for (std::size_t row = picture.height; row-- > 0;) {
        const unsigned char* const from = picture.pixels.data() + row * rowBytes;
        for (std::size_t i = 0; i < rowBytes; i += picture.channels) {
            out.push_back(static_cast<char>(from[i + 2]));
            out.push_back(static_cast<char>(from[i + 1]));
            out.push_back(static_cast<char>(from[i]));
            if (picture.channels == 4) {
                out.push_back(static_cast<char>(from[i + 3]));
            }
        }
    }
    bytes = std::move(out);
    return {};
}

// "P5" is grey, "P6" is colour, both in binary; the forms in text are not read.
bool KrPnmCoder::isFormat(const KrPictureBytes& file)
{
    const std::uint32_t head = file.big(0, 2);
    return head == 0x5035u || head == 0x5036u;
}

std::string KrPnmCoder::decode(const KrPictureBytes& file, const KrPictureLimits& limits, KrPicture& picture)
{
    std::size_t at = 2;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t largest = 0;
    if (!takeNumber(file, at, width) || !takeNumber(file, at, height) || !takeNumber(file, at, largest) || width == 0 ||
        height == 0 || largest == 0 || largest > 65535) {
        return KrPictureSamples::damaged("PNM", {});
    }
    if (!limits.allow(width, height)) {
        return kTooLarge;
    }
    ++at; // one white space before the samples
    KrPicture read;
    read.width = width;
    read.height = height;
    read.channels = file.data[1] == '6' ? 3 : 1;
    const unsigned int bytes = largest > 255 ? 2 : 1;
    const std::uint64_t samples = std::uint64_t{width} * height * read.channels;
    // Pictures that follow the first one in the file are left alone.
    if (file.size - at < samples * bytes) {
        return kEndsEarly;
    }
    read.pixels.resize(static_cast<std::size_t>(samples));
    for (std::size_t i = 0; i < read.pixels.size(); ++i) {
        // Samples above the largest value are not allowed by the format, and cut off here.
        read.pixels[i] = toByte(std::min(file.big(at + i * bytes, bytes), largest), largest);
    }
    picture = std::move(read);
    return {};
}

// Always in colour: picture formats are told channel counts that they can hold.
std::string KrPnmCoder::encode(const KrPicture& picture, std::string& bytes)
{
    std::string out = "P6\n" + std::to_string(picture.width) + " " + std::to_string(picture.height) + "\n255\n";
    out.append(reinterpret_cast<const char*>(picture.pixels.data()), picture.pixels.size());
    bytes = std::move(out);
    return {};
}
