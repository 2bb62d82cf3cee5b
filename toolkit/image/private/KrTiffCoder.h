#pragma once

#include <toolkit/image/private/KrPicture.h>

#include <string>

/// TIFF files, through libtiff. Failures are told as in KrPictureFile.
namespace KrTiffCoder
{

bool isFormat(const KrPictureBytes& file);
std::string decode(const KrPictureBytes& file, const KrPictureLimits& limits, KrPicture& picture);
std::string encode(const KrPicture& picture, std::string& bytes);

} // namespace KrTiffCoder
