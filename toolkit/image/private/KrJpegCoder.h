#pragma once

#include <toolkit/image/private/KrPicture.h>

#include <string>

/// JPEG files, through libjpeg. Failures are told as in KrPictureFile.
namespace KrJpegCoder
{

bool isFormat(const KrPictureBytes& file);
std::string decode(const KrPictureBytes& file, const KrPictureLimits& limits, KrPicture& picture);
/// `picture` has one channel or three. Best quality.
std::string encode(const KrPicture& picture, std::string& bytes);

} // namespace KrJpegCoder
