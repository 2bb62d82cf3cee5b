#pragma once

#include <toolkit/image/private/KrPicture.h>

#include <string>

/// PNG files, read by libpng. Failures are told as in KrPictureFile.
namespace KrPngCoder
{

bool isFormat(const KrPictureBytes& file);
std::string decode(const KrPictureBytes& file, const KrPictureLimits& limits, KrPicture& picture);
/// For one picture; those that follow one another are for a KrPngEncoder.
std::string encode(const KrPicture& picture, std::string& bytes);

} // namespace KrPngCoder
