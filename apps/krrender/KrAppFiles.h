#pragma once

#include <toolkit/image/KrImage.h>
#include <toolkit/image/private/KrPngEncoder.h>

#include <cstdint>
#include <string>
#include <vector>

class KrAppMessages;

/// Names of what the program reads and writes, and checks of them. Checks come before the work: each throws
/// KrAppFailure.
///
/// The name "-" means standard input or output.
namespace KrAppFiles
{

enum class Standard
{
    Input,
    Output
};
inline bool isStandard(const std::string& path)
{
    return path == "-";
}
/// Turns other names of it, "/dev/stdin" for one, into "-".
void nameStandard(std::string& path, Standard stream);
/// For messages: "standard input" for "-".
std::string spoken(const std::string& path, Standard stream);

/// What is in a file or comes through a pipe, of at most `mostBytes`; CouldNot when that cannot be read.
std::string readText(const std::string& path, std::uint64_t mostBytes);

/// WrongUsage unless the extension names a picture format that is written here.
void checkPictureFormat(const std::string& path);
/// CouldNot unless a file can be made at `path`, or where the link leads that is there. What is there and no file (a
/// pipe, a device) is refused, too.
/// @param isFolderMade  a folder that is not there will be made, by `makeFolder`
void checkWritable(const std::string& path, bool isFolderMade = false);
/// Makes the folder of the file `path` and those above it that are not there, each as the path names it.
/// @return what was made, the outermost first. CouldNot, and nothing is left, when that fails
std::vector<std::string> makeFolder(const std::string& path);
/// Removes those of `folders` that hold nothing, the last one first.
void removeEmpty(const std::vector<std::string>& folders);
/// WrongUsage when two of `outputs` are one file, or one is among `inputs`, however they are spelled, or two of these
/// are standard input. Empty names count for nothing.
void checkDistinct(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs);
/// Whether the extension is that of a video.
bool isVideo(const std::string& path);

/// Whether there is a place for a frame's number in it: "%d", "%04d".
bool isPattern(const std::string& path);
/// The file of frame `number` (from 1): "%04d" or "%d" in `pattern` becomes the number, otherwise "_0001" is put before
/// the extension. WrongUsage for any other "%" (two for one).
std::string frameFile(const std::string& pattern, std::size_t number);

/// What makes PNG files, kept: in a series of pictures nothing is allocated again. For one thread at a time.
struct PngFile
{
    KrPngEncoder encoder;
    std::vector<std::uint8_t> bytes;
};
/// Writes `picture` (row 0 at the bottom), complete or not at all, to standard output as PNG; CouldNot when that fails.
void writePicture(const KrImage& picture, const std::string& path, const KrAppMessages& messages, PngFile& png);
/// Writes a PNG, whatever the name; complete or not at all; CouldNot when that fails.
void writePng(const KrPngEncoder::Picture& picture, const std::string& path, PngFile& png);

/// Writes `bytes`, complete or not at all; CouldNot when that fails.
void writeBytes(const std::string& bytes, const std::string& path);

/// In small letters, with its point; empty for none.
std::string extensionOf(const std::string& path);

} // namespace KrAppFiles
