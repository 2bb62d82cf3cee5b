#pragma once

#include <toolkit/image/private/KrPicture.h>

#include <string>

/// PNG files, through libpng. Failures are told as in KrPictureFile.
namespace KrPngCoder
{

bool isFormat(const KrPictureBytes& file);
std::string decode(const KrPictureBytes& file, const KrPictureLimits& limits, KrPicture& picture);
/// @param samples  `height` rows of `width` x `channels` samples; of 16 bits with the most significant byte first
/// @param bits     of a sample: 8 or 16
std::string encode(const unsigned char* samples, unsigned int width, unsigned int height, unsigned int channels,
                   unsigned int bits, std::string& bytes);

} // namespace KrPngCoder
