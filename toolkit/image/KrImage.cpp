#include <toolkit/image/KrImage.h>

#include <toolkit/foundation/KrFileReplacement.h>
#include <toolkit/foundation/KrGL.h>
#include <toolkit/foundation/KrPrint.h>

#include <osg/Image>
#include <osg/Notify>
#include <osgDB/FileNameUtils>
#include <osgDB/ReadFile>
#include <osgDB/Registry>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <limits>
#include <mutex>
#include <new>
#include <sstream>
#include <utility>

namespace
{

using Bytes = std::vector<unsigned char>;

/// Keeps the scene graph library's own remarks off the screen: what goes wrong is told once, by the caller. One at a
/// time: the level is the whole process's.
class QuietLibrary
{
public:
    QuietLibrary()
        : m_level(osg::getNotifyLevel())
    {
        osg::setNotifyLevel(osg::ALWAYS);
    }
    ~QuietLibrary() { osg::setNotifyLevel(m_level); }
    QuietLibrary(const QuietLibrary&) = delete;
    QuietLibrary& operator=(const QuietLibrary&) = delete;

private:
    static std::mutex& mutex()
    {
        static std::mutex s_mutex;
        return s_mutex;
    }

    const std::lock_guard<std::mutex> m_lock{mutex()};
    osg::NotifySeverity m_level;
};

bool refuse(const char* method, const std::string& path, const std::string& reason)
{
    Kr::Print::instance()->write(Kr::Print::Warning, "KrImage::%s - %s: %s.\n", method, path.c_str(), reason.c_str());
    return false;
}

/// False when the bytes of such a picture cannot be counted or stored.
bool fits(unsigned int channels, unsigned int width, unsigned int height)
{
    const std::size_t most = std::numeric_limits<std::ptrdiff_t>::max();
    return channels >= 1 && channels <= 4 && (width == 0 || height <= most / width / channels);
}

/// Makes `storage` of that size; false, after one message, and no change when it cannot be had.
bool fill(Bytes& storage, unsigned int channels, unsigned int value, unsigned int width, unsigned int height)
{
    try {
        if (fits(channels, width, height)) {
            storage.assign(std::size_t(width) * height * channels, static_cast<unsigned char>(value));
            return true;
        }
    } catch (const std::exception&) {
        // The message below tells all there is.
    }
    Kr::Print::instance()->write(Kr::Print::Warning, "KrImage - no storage for %u x %u pixels of %u channels.\n", width,
                                 height, channels);
    return false;
}

/// Copies rows in reverse order. `rowBytes` is not 0.
void copyFlipped(const unsigned char* from, unsigned char* to, std::size_t rowBytes, std::size_t rows)
{
    for (std::size_t row = 0; row < rows; ++row) {
        std::memcpy(to + row * rowBytes, from + (rows - 1 - row) * rowBytes, rowBytes);
    }
}

/// One sample of a picture as a byte.
unsigned char toByte(unsigned char value)
{
    return value;
}
unsigned char toByte(std::uint16_t value)
{
    return static_cast<unsigned char>((value + 128u) / 257u);
}
unsigned char toByte(float value)
{
    // Written so that NaN becomes 0.
    return value > 0.0f ? static_cast<unsigned char>(std::lround(std::min(value, 1.0f) * 255.0f)) : 0;
}

template <typename Sample>
void convertRow(const unsigned char* from, std::size_t samples, unsigned char* to)
{
    for (std::size_t i = 0; i < samples; ++i) {
        Sample sample;
        std::memcpy(&sample, from + i * sizeof sample, sizeof sample);
        to[i] = toByte(sample);
    }
}

using RowConverter = void (*)(const unsigned char*, std::size_t, unsigned char*);

/// Null for samples that no picture file of ours has.
RowConverter rowConverter(GLenum dataType)
{
    switch (dataType) {
    case GL_UNSIGNED_BYTE:
        return convertRow<unsigned char>;
    case GL_UNSIGNED_SHORT:
        return convertRow<std::uint16_t>;
    case GL_FLOAT:
        return convertRow<float>;
    default:
        return nullptr;
    }
}

/// Exchanges red and blue.
void swapRedAndBlue(Bytes& pixels, std::size_t channels)
{
    for (std::size_t i = 0; i + 2 < pixels.size(); i += channels) {
        std::swap(pixels[i], pixels[i + 2]);
    }
}

unsigned int numChannels(const osg::Image& image)
{
    // Compressed and indexed pixels have no channels that could be copied.
    const bool isPlain = !image.isCompressed() && image.getPixelFormat() != GL_COLOR_INDEX;
    return isPlain ? osg::Image::computeNumComponents(image.getPixelFormat()) : 0;
}

/// The pixels of `image` with its rows in the wanted order; empty when their format is not known here.
Bytes pixelsOf(const osg::Image& image, KrImage::Orientation orientation)
{
    const unsigned int channels = numChannels(image);
    const RowConverter convert = rowConverter(image.getDataType());
    const std::size_t width = image.s() > 0 ? image.s() : 0;
    const int rows = image.t();
    if (image.data() == nullptr || channels == 0 || channels > 4 || convert == nullptr || width == 0 || rows <= 0) {
        return {};
    }
    const bool topRowFirst = image.getOrigin() == osg::Image::TOP_LEFT;
    const bool flip = topRowFirst != (orientation == KrImage::TopRowFirst);

    Bytes pixels(width * channels * rows);
    for (int row = 0; row < rows; ++row) {
        convert(image.data(0, flip ? rows - 1 - row : row), width * channels,
                pixels.data() + std::size_t(row) * width * channels);
    }
    if (image.getPixelFormat() == GL_BGR || image.getPixelFormat() == GL_BGRA) {
        swapRedAndBlue(pixels, channels);
    }
    return pixels;
}

/// Most pixels that a picture file may promise: far above any screen or texture, far below any memory.
constexpr double kMostPixels = 16384.0 * 16384.0;

std::uint32_t bigEndian(const unsigned char* bytes, unsigned int count)
{
    std::uint32_t value = 0;
    for (unsigned int i = 0; i < count; ++i) {
        value = value << 8 | bytes[i];
    }
    return value;
}

double pngPixels(const Bytes& head)
{
    // PNG specification, 5.2 and 11.2.2: signature, length and name of the header chunk, then width and height.
    const bool isPng = head.size() >= 24 && bigEndian(head.data(), 4) == 0x89504E47u;
    return isPng ? double(bigEndian(&head[16], 4)) * bigEndian(&head[20], 4) : 0.0;
}

double jpegPixels(const Bytes& head)
{
    // ITU-T T.81, B.1 and B.2: segments of a marker and a length; the frame header tells height and width.
    if (head.size() < 4 || bigEndian(head.data(), 2) != 0xFFD8u) {
        return 0.0;
    }
    for (std::size_t at = 2; at + 9 <= head.size() && head[at] == 0xFF;) {
        const unsigned int marker = head[at + 1];
        const bool isTable = marker == 0xC4 || marker == 0xC8 || marker == 0xCC;
        if (marker >= 0xC0 && marker <= 0xCF && !isTable) {
            return double(bigEndian(&head[at + 5], 2)) * bigEndian(&head[at + 7], 2);
        }
        at += marker == 0xFF ? 1 : 2 + bigEndian(&head[at + 2], 2);
    }
    return 0.0;
}

/// Whether a file promises more pixels than any picture has: a few bytes could otherwise ask for all memory.
bool isAbsurd(const std::string& path)
{
    Bytes head(std::size_t(256) * 1024);
    std::ifstream stream(path, std::ios::binary);
    stream.read(reinterpret_cast<char*>(head.data()), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(stream.gcount()));
    return std::max(pngPixels(head), jpegPixels(head)) > kMostPixels;
}

/// Why `path` cannot be read at all; empty when it can be tried.
std::string whyNoPicture(const std::string& path)
{
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status)) {
        return "there is no such file";
    }
    if (!std::filesystem::is_regular_file(status)) {
        return "it is no file";
    }
    if (std::filesystem::file_size(path, error) == 0 && !error) {
        return "the file is empty";
    }
    if (isAbsurd(path)) {
        return "no picture is as large as it claims to be";
    }
    return {};
}

/// A picture format, and which channel counts its writer knows (bit n - 1 for n channels).
struct Format
{
    const char* extension;
    unsigned int channelCounts;
};

constexpr unsigned int kGrey = 1u;
constexpr unsigned int kGreyAlpha = 2u;
constexpr unsigned int kRgb = 4u;
constexpr unsigned int kRgba = 8u;
constexpr unsigned int kAll = kGrey | kGreyAlpha | kRgb | kRgba;

// The library's writers of other formats, and of other channel counts, take bytes for what they are not and read
// beyond them.
constexpr Format kWritable[] = {{"png", kAll},         {"tif", kAll}, {"tiff", kAll},        {"rgb", kAll},
                                {"rgba", kAll},        {"sgi", kAll}, {"jpg", kGrey | kRgb}, {"jpeg", kGrey | kRgb},
                                {"tga", kRgb | kRgba}, {"bmp", kRgb}, {"ppm", kRgb},         {"pnm", kRgb}};

/// The channel count that loses least of a picture of `channels` channels; 0 when the format is not writable.
unsigned int writableChannels(const std::string& extension, unsigned int channels)
{
    static constexpr unsigned int kPreferred[4][4] = {{1, 3, 2, 4}, {2, 4, 1, 3}, {3, 4, 1, 2}, {4, 3, 2, 1}};
    for (const Format& format : kWritable) {
        if (extension != format.extension) {
            continue;
        }
        for (const unsigned int candidate : kPreferred[channels - 1]) {
            if ((format.channelCounts & (1u << (candidate - 1))) != 0) {
                return candidate;
            }
        }
    }
    return 0;
}

/// The same picture with another channel count: grey becomes red, green and blue, missing opacity is full.
Bytes withChannels(const Bytes& pixels, unsigned int from, unsigned int to)
{
    Bytes result;
    result.reserve(pixels.size() / from * to);
    for (std::size_t i = 0; i + from <= pixels.size(); i += from) {
        const unsigned char* pixel = pixels.data() + i;
        const bool isGrey = from < 3;
        for (unsigned int k = 0; k < (to < 3 ? 1u : 3u); ++k) {
            result.push_back(pixel[isGrey ? 0 : k]);
        }
        if (to % 2 == 0) {
            result.push_back(from % 2 == 0 ? pixel[from - 1] : 255);
        }
    }
    return result;
}

/// The picture (lowest row first) in the bytes of the format that `extension` names. Empty, and the reason, when that
/// fails.
std::string encode(Bytes pixels, unsigned int width, unsigned int height, unsigned int channels,
                   const std::string& extension, std::string& reason)
{
    const unsigned int written = writableChannels(extension, channels);
    osgDB::ReaderWriter* writer =
        written == 0 ? nullptr : osgDB::Registry::instance()->getReaderWriterForExtension(extension);
    if (writer == nullptr) {
        reason = "\"" + extension + "\" is no picture format that can be written";
        return {};
    }
    if (written != channels) {
        pixels = withChannels(pixels, channels, written);
    }
    const osg::ref_ptr<osg::Image> image = new osg::Image;
    const GLenum format = KrGL::pixelFormat(written);
    image->setImage(static_cast<int>(width), static_cast<int>(height), 1, static_cast<GLint>(format), format,
                    GL_UNSIGNED_BYTE, pixels.data(), osg::Image::NO_DELETE);
    std::ostringstream stream;
    const osgDB::ReaderWriter::WriteResult result = writer->writeImage(*image, stream, nullptr);
    if (!result.success() || !stream.good() || stream.str().empty()) {
        reason = "a picture like this cannot be written as \"" + extension + "\"";
        return {};
    }
    return stream.str();
}

} // namespace

void KrImage::allocate(unsigned int channels, unsigned int value, unsigned int width, unsigned int height)
{
    if (fill(m_data, channels, value, width, height)) {
        m_flipped.clear();
        setSize(width, height, channels);
    }
}

void KrImage::zeroFlippedImage(unsigned int channels, unsigned int value, unsigned int width, unsigned int height)
{
    if (fill(m_flipped, channels, value, width, height)) {
        m_data.clear();
        setSize(width, height, channels);
    }
}

void KrImage::setSize(unsigned int width, unsigned int height, unsigned int channels)
{
    m_width = width;
    m_height = height;
    m_channels = channels;
}

bool KrImage::flippedToOrdinary()
{
    if (m_flipped.empty() || !fill(m_data, m_channels, 0, m_width, m_height)) {
        return false;
    }
    copyFlipped(m_flipped.data(), m_data.data(), std::size_t(m_width) * m_channels, m_height);
    return true;
}

bool KrImage::getSubimage(const KrImageBlock& block, KrImage& out) const
{
    const bool isInside = block.x <= m_width && block.width <= m_width - block.x && block.y <= m_height &&
                          block.height <= m_height - block.y;
    if (m_data.empty() || block.width == 0 || block.height == 0 || !isInside) {
        return false;
    }

    const std::size_t rowBytes = std::size_t(m_width) * m_channels;
    const std::size_t blockRowBytes = std::size_t(block.width) * m_channels;
    Bytes pixels;
    if (!fill(pixels, m_channels, 0, block.width, block.height)) {
        return false;
    }
    for (std::size_t row = 0; row < block.height; ++row) {
        std::memcpy(pixels.data() + row * blockRowBytes,
                    m_data.data() + (block.y + row) * rowBytes + std::size_t(block.x) * m_channels, blockRowBytes);
    }
    out.m_data.swap(pixels);
    out.m_flipped.clear();
    out.setSize(block.width, block.height, m_channels);
    return true;
}

bool KrImage::readFile(const std::string& path, Orientation orientation)
{
    try {
        const std::string reason = whyNoPicture(path);
        if (!reason.empty()) {
            return refuse("readFile", path, reason);
        }
        const QuietLibrary quiet;
        const osg::ref_ptr<osg::Image> image = osgDB::readRefImageFile(path);
        if (!image) {
            return refuse("readFile", path, "it is no picture that can be read");
        }
        Bytes pixels = pixelsOf(*image, orientation);
        if (pixels.empty()) {
            return refuse("readFile", path, "pixels of its format are not known here");
        }
        m_data.swap(pixels);
        m_flipped.clear();
        setSize(static_cast<unsigned int>(image->s()), static_cast<unsigned int>(image->t()), numChannels(*image));
        return true;
    } catch (const std::bad_alloc&) {
        return refuse("readFile", path, "the picture is too large");
    } catch (const std::exception& failure) {
        return refuse("readFile", path, failure.what());
    }
}

bool KrImage::writeFile(const std::string& path, Orientation orientation) const
{
    try {
        if (m_data.empty()) {
            return refuse("writeFile", path, "the image has no pixels");
        }
        if (m_width > INT_MAX || m_height > INT_MAX) {
            return refuse("writeFile", path, "the image is too large");
        }
        // The library's writers begin with the lowest row of the picture.
        Bytes pixels = m_data;
        if (orientation == TopRowFirst) {
            copyFlipped(m_data.data(), pixels.data(), std::size_t(m_width) * m_channels, m_height);
        }
        const QuietLibrary quiet;
        std::string reason;
        const std::string bytes =
            encode(std::move(pixels), m_width, m_height, m_channels, osgDB::getLowerCaseFileExtension(path), reason);
        if (reason.empty()) {
            reason = KrFileReplacement::write(path, bytes);
        }
        return reason.empty() || refuse("writeFile", path, reason);
    } catch (const std::bad_alloc&) {
        return refuse("writeFile", path, "the picture is too large");
    } catch (const std::exception& failure) {
        return refuse("writeFile", path, failure.what());
    }
}
