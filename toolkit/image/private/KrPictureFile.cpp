#include <toolkit/image/private/KrPictureFile.h>

#include <toolkit/foundation/private/KrText.h>
#include <toolkit/image/private/KrJpegCoder.h>
#include <toolkit/image/private/KrPictureSamples.h>
#include <toolkit/image/private/KrPngCoder.h>
#include <toolkit/image/private/KrSimplePictures.h>
#include <toolkit/image/private/KrTiffCoder.h>

#include <algorithm>
#include <utility>

namespace
{

// Bits of Writable::channelCounts.
constexpr unsigned int kGrey = 1u;
constexpr unsigned int kGreyAlpha = 2u;
constexpr unsigned int kRgb = 4u;
constexpr unsigned int kRgba = 8u;
constexpr unsigned int kAll = kGrey | kGreyAlpha | kRgb | kRgba;

/// A format that is read. The order is that in which a content is asked: what has no first bytes of its own comes last.
struct Readable
{
    bool (*isFormat)(const KrPictureBytes& file);
    std::string (*decode)(const KrPictureBytes& file, const KrPictureLimits& limits, KrPicture& picture);
};

constexpr Readable kReadable[] = {
    {KrPngCoder::isFormat, KrPngCoder::decode},   {KrJpegCoder::isFormat, KrJpegCoder::decode},
    {KrTiffCoder::isFormat, KrTiffCoder::decode}, {KrBmpCoder::isFormat, KrBmpCoder::decode},
    {KrPnmCoder::isFormat, KrPnmCoder::decode},   {KrTgaCoder::isFormat, KrTgaCoder::decode}};

/// A format that is written, and the channel counts that it can hold (bit n - 1 for n channels).
struct Writable
{
    const char* extension;
    unsigned int channelCounts;
    std::string (*encode)(const KrPicture& picture, std::string& bytes);
};

// By extension, the format that a name asks for; ".jpg" has no opacity to hold.
constexpr Writable kWritable[] = {{"png", kAll, KrPngCoder::encode},
                                  {"jpg", kGrey | kRgb, KrJpegCoder::encode},
                                  {"jpeg", kGrey | kRgb, KrJpegCoder::encode},
                                  {"tif", kAll, KrTiffCoder::encode},
                                  {"tiff", kAll, KrTiffCoder::encode},
                                  {"bmp", kRgb, KrBmpCoder::encode},
                                  {"tga", kRgb | kRgba, KrTgaCoder::encode},
                                  {"ppm", kRgb, KrPnmCoder::encode},
                                  {"pnm", kRgb, KrPnmCoder::encode}};

/// The channel count of `counts` that loses least of a picture of `channels` channels.
unsigned int nearestChannels(unsigned int counts, unsigned int channels)
{
    // Without losing colour first, then without losing opacity.
    static constexpr unsigned int kPreferred[4][4] = {{1, 3, 2, 4}, {2, 4, 1, 3}, {3, 4, 1, 2}, {4, 3, 2, 1}};
    for (const unsigned int candidate : kPreferred[channels - 1]) {
        if ((counts & (1u << (candidate - 1))) != 0) {
            return candidate;
        }
    }
    return channels;
}

/// The same picture with another channel count: grey becomes red, green and blue, missing opacity is full.
/// Colours that become grey keep their red channel; nearestChannels avoids that where it can.
KrPicture withChannels(const KrPicture& picture, unsigned int channels)
{
    KrPicture result = {picture.width, picture.height, channels, {}};
    // Sizes are those of a picture that exists, so the product fits.
    const unsigned int from = picture.channels;
    result.pixels.reserve(picture.pixels.size() / from * channels);
    for (std::size_t i = 0; i + from <= picture.pixels.size(); i += from) {
        const unsigned char* const pixel = picture.pixels.data() + i;
        for (unsigned int k = 0; k < (channels < 3 ? 1u : 3u); ++k) {
            result.pixels.push_back(pixel[from < 3 ? 0 : k]);
        }
        if (channels % 2 == 0) {
            result.pixels.push_back(from % 2 == 0 ? pixel[from - 1] : 255);
        }
    }
    return result;
}

} // namespace

std::string KrPictureFile::decode(const unsigned char* data, std::size_t size, const KrPictureLimits& limits,
                                  KrPicture& picture)
{
    if (size == 0) {
        return "the file is empty";
    }
    const KrPictureBytes file = {data, size};
    // The first format that knows the content decides; what it then refuses is refused.
    for (const Readable& format : kReadable) {
        if (format.isFormat(file)) {
            return format.decode(file, limits, picture);
        }
    }
    return "it is no picture that can be read (PNG, JPEG, TIFF, BMP, TGA and PNM are)";
}

// The extension decides; what the format cannot hold is converted first.
std::string KrPictureFile::encode(const KrPicture& picture, const std::string& extension, std::string& bytes)
{
    // In small letters or large ones: ".PNG" is the same format.
    const std::string small = KrText::lowered(extension);
    for (const Writable& format : kWritable) {
        if (small == format.extension) {
            const unsigned int channels = nearestChannels(format.channelCounts, picture.channels);
            return channels == picture.channels ? format.encode(picture, bytes)
                                                : format.encode(withChannels(picture, channels), bytes);
        }
    }
    return "\"" + extension + "\" is no picture format that can be written";
}
