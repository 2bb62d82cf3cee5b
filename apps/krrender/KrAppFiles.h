#pragma once

#include <toolkit/image/KrImage.h>

#include <string>

class KrAppMessages;

/// Names and checks of what the program writes. Checks come before the work: each throws KrAppFailure.
namespace KrAppFiles
{

/// WrongUsage unless the extension names a picture format that is written here.
void checkPictureFormat(const std::string& path);
/// CouldNot unless a file can be made at `path`.
void checkWritable(const std::string& path);
/// Whether the extension is that of a video.
bool isVideo(const std::string& path);

/// The file of frame `number` (from 1): "%04d" or "%d" in `pattern` becomes the number, otherwise "_0001" is put before
/// the extension. WrongUsage for any other "%" (two for one).
std::string frameFile(const std::string& pattern, std::size_t number);

/// Writes `picture` (row 0 at the bottom), complete or not at all; CouldNot when that fails.
void writePicture(const KrImage& picture, const std::string& path, const KrAppMessages& messages);

/// Writes `bytes`, complete or not at all; CouldNot when that fails.
void writeBytes(const std::string& bytes, const std::string& path);

/// In small letters, with its point; empty for none.
std::string extensionOf(const std::string& path);

/// "picture.png" -> "picture.tmp1234.png": what is written first, in the same folder, with the same extension.
std::string temporaryName(const std::string& path);

} // namespace KrAppFiles
