#pragma once

#include <toolkit/image/private/KrPicture.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// The door for picture files: what is read is decided by a file's content, in the formats that are named here.
///
/// PNG, JPEG, TIFF, BMP, PNM (P5, P6) are told by their first bytes, TGA, which has none of its own, by a header in
/// which every value is possible. Limits are held before memory is asked for: of the file, of the picture that it
/// promises, and of what so few bytes can promise in its format. Nothing is chosen by a name, nothing is loaded.
///
/// Any thread may call any of these at any time. Each returns the reason of its failure, empty for none; a result is
/// then as it was. Memory that is not there is told by std::bad_alloc.
namespace KrPictureFile
{

/// Makes the picture of a file's content. 16-bit samples become the nearest bytes, floats between 0 and 1 as well;
/// the orientation that a JPEG or a TIFF tells is applied.
std::string decode(const unsigned char* data, std::size_t size, const KrPictureLimits& limits, KrPicture& picture);

/// The content of a file of the format that `extension` names, without its point, in any letters: png, jpg, jpeg, tif,
/// tiff, bmp, tga, ppm, pnm. What a format cannot hold is written as the nearest that it can: grey as equal colours,
/// opacity left out.
std::string encode(const KrPicture& picture, const std::string& extension, std::string& bytes);

} // namespace KrPictureFile
