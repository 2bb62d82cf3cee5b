#pragma once

#include <toolkit/image/KrImage.h>

#include <string>
#include <vector>

class KrAppMessages;

/// Names and checks of what the program writes. Checks come before the work: each throws KrAppFailure.
namespace KrAppFiles
{

/// WrongUsage unless the extension names a picture format that is written here.
void checkPictureFormat(const std::string& path);
/// CouldNot unless a file can be made at `path`, or where the link leads that is there. What is there and no file (a
/// pipe, a device) is refused, too.
void checkWritable(const std::string& path);
/// WrongUsage when two of `outputs` are one file, or one is among `inputs`, however they are spelled. Empty names count
/// for nothing.
void checkDistinct(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs);
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

} // namespace KrAppFiles
