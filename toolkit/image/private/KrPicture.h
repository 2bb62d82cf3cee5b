#pragma once

#include <toolkit/foundation/KrLimits.h>

#include <cstddef>
#include <cstdint>
#include <vector>

/// A picture as files hold it: `width` x `height` pixels of 1 to 4 channels, one byte each, rows without padding, the
/// upper row first. Channels: grey; grey and opacity; red, green and blue; these and opacity.
struct KrPicture
{
    unsigned int width = 0;
    unsigned int height = 0;
    unsigned int channels = 0;
    std::vector<unsigned char> pixels;
};

/// What a picture file may ask for at most.
struct KrPictureLimits
{
    std::uint64_t bytes = Kr::Limits::kPictureBytes;   ///< of the file
    std::uint64_t pixels = Kr::Limits::kPicturePixels; ///< width times height
    std::uint64_t side = Kr::Limits::kPictureSide;     ///< of width and of height, pixels

    bool allow(std::uint64_t width, std::uint64_t height) const
    {
        return width <= side && height <= side && width * height <= pixels;
    }
};

/// The bytes of a file. Borrowed.
struct KrPictureBytes
{
    const unsigned char* data = nullptr;
    std::size_t size = 0;

    /// Unsigned, the least significant byte first; 0 where the file has ended.
    std::uint32_t little(std::size_t at, unsigned int count) const
    {
        std::uint32_t value = 0;
        for (unsigned int i = count; i-- > 0;) {
            value = value << 8 | (at < size && i < size - at ? data[at + i] : 0u);
        }
        return value;
    }
    /// Unsigned, the most significant byte first; 0 where the file has ended.
    std::uint32_t big(std::size_t at, unsigned int count) const
    {
        std::uint32_t value = 0;
        for (unsigned int i = 0; i < count; ++i) {
            value = value << 8 | (at < size && i < size - at ? data[at + i] : 0u);
        }
        return value;
    }
};
