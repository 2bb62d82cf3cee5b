#include <toolkit/image/KrImage.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/private/KrFileReplacement.h>
#include <toolkit/foundation/private/KrInputFile.h>
#include <toolkit/foundation/private/KrText.h>
#include <toolkit/image/private/KrPictureFile.h>
#include <toolkit/image/private/KrPngEncoder.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <exception>
#include <filesystem>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

namespace
{

using Bytes = std::vector<unsigned char>;

// Path and reason on one line each, however long or strange they are.
bool refuse(const char* method, const std::string& path, const std::string& reason)
{
    // The name may come from a file. A path is longer than a name.
    Kr::Print::instance()->write(Kr::Print::Warning, "KrImage::%s - %s: %s.\n", method,
                                 KrText::oneLine(path, 4 * Kr::Limits::kMessageName).c_str(),
                                 KrText::oneLine(reason, 4 * Kr::Limits::kMessageName).c_str());
    return false;
}

/// False when the bytes of such a picture cannot be counted or stored.
bool fits(unsigned int channels, unsigned int width, unsigned int height)
{
    // What one object can have; indices are counted in it.
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

// In place: a picture may be most of the memory there is.
void reverseRows(Bytes& pixels, std::size_t rowBytes, std::size_t rows)
{
    for (std::size_t row = 0; row < rows / 2; ++row) {
        unsigned char* const upper = pixels.data() + row * rowBytes;
        std::swap_ranges(upper, upper + rowBytes, pixels.data() + (rows - 1 - row) * rowBytes);
    }
}

/// What `work` returns, or the reason of its exception.
template <typename Work>
// Libraries and containers may run out of memory at any point; a picture that does not fit is one message.
std::string withoutExceptions(Work work)
{
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return "the picture is too large";
    } catch (const std::length_error&) {
        return "the picture is too large"; // more than any storage holds, where pointers have 32 bits
    } catch (const std::exception& failure) {
        return failure.what();
    }
}

} // namespace

void KrImage::allocate(unsigned int channels, unsigned int value, unsigned int width, unsigned int height)
{
    // Nothing is changed before the new storage is there.
    if (fill(m_data, channels, value, width, height)) {
        m_flipped.clear();
        setSize(width, height, channels);
    }
}

// The other rows go: a picture has one kind of rows at a time, until they are made from each other.
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

// Only of the ordinary rows; a flipped picture has none until they are made.
bool KrImage::getSubimage(const KrImageBlock& block, KrImage& out) const
{
    // Written so that no sum can wrap around.
    const bool isInside = block.x <= m_width && block.width <= m_width - block.x && block.y <= m_height &&
                          block.height <= m_height - block.y;
    if (m_data.empty() || block.width == 0 || block.height == 0 || !isInside) {
        return false;
    }

    const std::size_t rowBytes = std::size_t(m_width) * m_channels;
    const std::size_t blockRowBytes = std::size_t(block.width) * m_channels;
    // In a picture of its own where `out` is this one; else in the storage that is there, which a block of the size of
    // the one before fills again.
    Bytes own;
    Bytes& pixels = &out == this ? own : out.m_data;
    if (!fill(pixels, m_channels, 0, block.width, block.height)) {
        return false;
    }
    for (std::size_t row = 0; row < block.height; ++row) {
        std::memcpy(pixels.data() + row * blockRowBytes,
                    m_data.data() + (block.y + row) * rowBytes + std::size_t(block.x) * m_channels, blockRowBytes);
    }
    if (&out == this) {
        out.m_data.swap(own);
    }
    out.m_flipped.clear();
    out.setSize(block.width, block.height, m_channels);
    return true;
}

bool KrImage::readFile(const std::string& path, Orientation orientation)
{
    const std::string reason = withoutExceptions([&] {
        // Asked for by the size in the file's header, before memory is.
        const KrPictureLimits limits;
        std::string file;
        KrPicture picture;
        std::string failure = KrInputFile::readWhole(path, KrInputFile::Accept::Files, limits.bytes, file);
        if (failure.empty()) {
            failure = KrPictureFile::decode(reinterpret_cast<const unsigned char*>(file.data()), file.size(), limits,
                                            picture);
        }
        if (!failure.empty()) {
            return failure;
        }
        // Files have the top row first.
        if (orientation == BottomRowFirst) {
            reverseRows(picture.pixels, std::size_t(picture.width) * picture.channels, picture.height);
        }
        // Last, so that a picture which cannot be read leaves the old one.
        m_data.swap(picture.pixels);
        m_flipped.clear();
        setSize(picture.width, picture.height, picture.channels);
        return failure;
    });
    return reason.empty() || refuse("readFile", path, reason);
}

// In the orientation that the caller says the rows have; files have the top row first.
bool KrImage::writeFile(const std::string& path, Orientation orientation) const
{
    const std::string reason = withoutExceptions([&]() -> std::string {
        if (m_data.empty()) {
            return "the image has no pixels";
        }
        // The libraries count in int.
        if (m_width > INT_MAX || m_height > INT_MAX) {
            return "the image is too large";
        }
        // The name chooses the format only in writing; in reading the content does.
        const std::string extension = std::filesystem::path(path).extension().string();
        // What most pictures are written as is made of them where they stand, without a copy.
        if (KrText::lowered(extension) == ".png") {
            KrPngEncoder encoder;
            std::vector<std::uint8_t> file;
            const std::string failure =
                encoder.encode({m_data.data(), m_width, m_height, m_channels, 8, orientation == BottomRowFirst}, file);
            return failure.empty() ? KrFileReplacement::write(path, file.data(), file.size()) : failure;
        }
        KrPicture picture = {m_width, m_height, m_channels, m_data};
        if (orientation == BottomRowFirst) {
            reverseRows(picture.pixels, std::size_t(m_width) * m_channels, m_height);
        }
        std::string bytes;
        const std::string failure =
            KrPictureFile::encode(picture, extension.empty() ? extension : extension.substr(1), bytes);
        return failure.empty() ? KrFileReplacement::write(path, bytes) : failure;
    });
    return reason.empty() || refuse("writeFile", path, reason);
}
