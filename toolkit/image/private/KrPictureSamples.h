#pragma once

#include <toolkit/image/private/KrPicture.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>

/// What the picture formats share.
namespace KrPictureSamples
{

/// Never longer than the failures that end in it are told once.
constexpr const char* kTooLarge = "no picture is as large as it claims to be";
constexpr const char* kEndsEarly = "the file ends before its picture does";

/// One sample as a byte, rounded to the nearest.
inline unsigned char toByte(std::uint16_t value)
{
    return static_cast<unsigned char>((value + 128u) / 257u);
}
inline unsigned char toByte(std::uint32_t value)
{
    return toByte(static_cast<std::uint16_t>(value >> 16));
}
/// Of 0 to 1; what is outside, and NaN, becomes the nearest bound, NaN the lower one.
inline unsigned char toByte(float value)
{
    return value > 0.0f ? static_cast<unsigned char>(std::lround(std::min(value, 1.0f) * 255.0f)) : 0;
}
/// Of 0 to `largest`, which is not 0.
inline unsigned char toByte(std::uint32_t value, std::uint32_t largest)
{
    return static_cast<unsigned char>((std::uint64_t{value} * 255u + largest / 2) / largest);
}

/// The reason of damaged data, with what the library said of it.
inline std::string damaged(const char* format, const std::string& remark)
{
    return std::string("its ") + format + " data are damaged" + (remark.empty() ? "" : " (" + remark + ")");
}

/// Turns the picture upright. `orientation` is that of Exif and TIFF 6.0 ("Orientation", tag 274): 1 is upright; other
/// values than 2 to 8 count as 1.
void turnUpright(KrPicture& picture, unsigned int orientation);

} // namespace KrPictureSamples
