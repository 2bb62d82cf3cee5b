#pragma once

#include <toolkit/image/private/KrPicture.h>

#include <string>

// Three formats so plain that they are read and written here. Failures are told as in KrPictureFile.

/// Windows and OS/2 bitmaps: 1, 4, 8 (also run-length encoded), 16, 24 and 32 bits a pixel.
namespace KrBmpCoder
{

bool isFormat(const KrPictureBytes& file);
std::string decode(const KrPictureBytes& file, const KrPictureLimits& limits, KrPicture& picture);
std::string encode(const KrPicture& picture, std::string& bytes); ///< of three channels

} // namespace KrBmpCoder

/// Targa: grey, palette and true colour, also run-length encoded.
namespace KrTgaCoder
{

/// Whether every value of the header is possible: the format has no first bytes of its own.
bool isFormat(const KrPictureBytes& file);
std::string decode(const KrPictureBytes& file, const KrPictureLimits& limits, KrPicture& picture);
std::string encode(const KrPicture& picture, std::string& bytes); ///< of three or four channels

} // namespace KrTgaCoder

/// Netpbm's binary grey (P5) and colour (P6) pictures.
namespace KrPnmCoder
{

bool isFormat(const KrPictureBytes& file);
std::string decode(const KrPictureBytes& file, const KrPictureLimits& limits, KrPicture& picture);
std::string encode(const KrPicture& picture, std::string& bytes); ///< of three channels

} // namespace KrPnmCoder
