#include "KrAppFiles.h"

#include "KrAppFailure.h"
#include "KrAppMessages.h"

#include <toolkit/foundation/private/KrFileReplacement.h>
#include <toolkit/foundation/private/KrInputFile.h>
#include <toolkit/foundation/private/KrText.h>

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <set>

namespace
{

namespace fs = std::filesystem;

// Of the formats that the toolkit writes, those that the help names.
constexpr const char* kPictureFormats[] = {".png", ".jpg", ".jpeg", ".tif", ".tiff", ".bmp", ".tga"};
constexpr const char* kVideoFormats[] = {".mp4", ".mkv", ".webm", ".gif", ".mov", ".avi"};

/// A run of "%", digits and "d"; npos for none.
struct Number
{
    std::size_t start = std::string::npos;
    std::size_t length = 0;
    unsigned int width = 0;
};

/// The first one behind `from`. A percent sign that begins no number is refused: nothing else is meant by one.
Number findNumber(const std::string& pattern, std::size_t from)
{
    Number found;
    const std::size_t start = pattern.find('%', from);
    if (start == std::string::npos) {
        return found;
    }
    std::size_t end = start + 1;
    while (end < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[end]))) {
        // Bounded on the way: a long row of digits overflows nothing.
        found.width = std::min(found.width * 10 + static_cast<unsigned int>(pattern[end] - '0'), 100u);
        ++end;
    }
    // No number of frames has more than 20 digits.
    if (end >= pattern.size() || pattern[end] != 'd' || found.width > 20) {
        throw KrAppFailure(KrAppFailure::WrongUsage,
                           pattern + ": the frame number is written %d or %04d, nothing else follows a %");
    }
    found.start = start;
    found.length = end + 1 - start;
    return found;
}

/// The same for every spelling of one file.
std::string identity(const std::string& path)
{
    if (KrAppFiles::isStandard(path)) {
        return path;
    }
    // A link is written through: what it leads to would be overwritten.
    std::error_code error;
    const fs::path whole = fs::absolute(KrFileReplacement::target(path), error);
    // The file need not be there yet.
    const fs::path found = fs::weakly_canonical(whole, error);
    return (error ? whole : found).string();
}

/// In the words of messages: a stream has no path to show.
[[noreturn]] void cannotWrite(const std::string& path, const std::string& reason)
{
    throw KrAppFailure(KrAppFailure::CouldNot,
                       "cannot write " + KrAppFiles::spoken(path, KrAppFiles::Standard::Output) + ": " + reason);
}

/// A bare name stands in the current folder.
fs::path folderOf(const std::string& path)
{
    const fs::path folder = fs::path(path).parent_path();
    return folder.empty() ? fs::path(".") : folder;
}

/// The folders of the path that are not there, the outermost first, and the one that is there above them.
struct Missing
{
    fs::path there = ".";
    std::vector<fs::path> folders;
};

/// From the front, so that the folders come in the order in which they can be made.
Missing missingFolders(const fs::path& folder)
{
    Missing found;
    fs::path whole;
    for (const fs::path& part : folder) {
        whole /= part;
        std::error_code error;
        // A link that leads nowhere is there, too: no folder can be made in its place.
        if (found.folders.empty() && fs::exists(fs::symlink_status(whole, error))) {
            found.there = whole;
        } else if (!part.empty()) {
            found.folders.push_back(whole);
        }
    }
    return found;
}

/// Whether all of them can be made without leaving the path: ".." leads elsewhere once they are there.
bool canBeMade(const Missing& missing)
{
    return std::none_of(missing.folders.begin(), missing.folders.end(),
                        [](const fs::path& folder) { return folder.filename() == ".."; });
}

/// All of the bytes, however few the other end takes at a time.
void writeStandardOutput(const void* bytes, std::size_t size)
{
    // What printf still holds comes first.
    std::fflush(stdout);
    for (std::size_t done = 0; done < size;) {
        const ssize_t count = write(STDOUT_FILENO, static_cast<const char*>(bytes) + done, size - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
            // Somebody else made the pipe non-blocking: wait until it takes more.
        } else if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            pollfd wait = {STDOUT_FILENO, POLLOUT, 0};
            poll(&wait, 1, -1);
        } else if (count == 0 || errno != EINTR) {
            cannotWrite("-", std::strerror(errno));
        }
    }
}

/// Complete or not at all.
void writeBytes(const void* bytes, std::size_t size, const std::string& path)
{
    if (KrAppFiles::isStandard(path)) {
        writeStandardOutput(bytes, size);
        return;
    }
    // In one step: a reader of the file sees the old content or the new one.
    const std::string reason = KrFileReplacement::write(path, bytes, size);
    if (!reason.empty()) {
        cannotWrite(path, reason);
    }
}

} // namespace

void KrAppFiles::nameStandard(std::string& path, Standard stream)
{
    const std::string number = stream == Standard::Input ? "0" : "1";
    const std::string names[] = {stream == Standard::Input ? "/dev/stdin" : "/dev/stdout", "/dev/fd/" + number,
                                 "/proc/self/fd/" + number};
    // Opened by such a name, a file behind the stream would be written from its beginning again.
    if (std::find(std::begin(names), std::end(names), path) != std::end(names)) {
        path = "-";
    }
}

std::string KrAppFiles::spoken(const std::string& path, Standard stream)
{
    return !isStandard(path) ? path : stream == Standard::Input ? "standard input" : "standard output";
}

std::string KrAppFiles::readText(const std::string& path, std::uint64_t mostBytes)
{
    KrInputFile file(mostBytes);
    std::string text;
    // What another program pipes in is read from where the stream stands.
    const bool isOpen = isStandard(path) ? file.openDescriptor(STDIN_FILENO) : file.open(path);
    if (!isOpen || !file.readAll(text)) {
        throw KrAppFailure(KrAppFailure::CouldNot, spoken(path, Standard::Input) + ": " + file.reason());
    }
    return text;
}

// In lower case: whoever asks compares with small letters.
std::string KrAppFiles::extensionOf(const std::string& path)
{
    return KrText::lowered(fs::path(path).extension().string());
}

void KrAppFiles::checkPictureFormat(const std::string& path)
{
    // By the name, because that is what a viewer goes by, too.
    const std::string extension = extensionOf(path);
    if (isStandard(path)) {
        return;
    }
    if (std::find(std::begin(kPictureFormats), std::end(kPictureFormats), extension) != std::end(kPictureFormats)) {
        return;
    }
    // A video's name alone: what is missing is the motion.
    if (isVideo(path)) {
        throw KrAppFailure(KrAppFailure::WrongUsage, path + " is a video: it needs --trajectory");
    }
    throw KrAppFailure(KrAppFailure::WrongUsage,
                       path + (extension.empty() ? ": a picture's name ends in" : ": pictures are written as") +
                           " .png, .jpg, .tif, .bmp or .tga");
}

void KrAppFiles::checkWritable(const std::string& path, bool isFolderMade)
{
    if (isStandard(path)) {
        return;
    }
    std::error_code error;
    // Of what a link leads to: that is what is written.
    const fs::file_status status = fs::status(path, error);
    // A device or a pipe cannot be replaced in one step, which is how files are written.
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        cannotWrite(path, fs::is_directory(status) ? "it is a folder" : "it is no regular file");
    }
    if (fs::exists(status) && access(path.c_str(), W_OK) != 0) {
        cannotWrite(path, std::strerror(errno));
    }
    // Where a link leads, no folder is made.
    const Missing missing = missingFolders(folderOf(path));
    const bool isLink = fs::is_symlink(fs::symlink_status(path, error));
    const fs::path folder = isLink                               ? folderOf(KrFileReplacement::target(path))
                            : isFolderMade && canBeMade(missing) ? missing.there
                                                                 : folderOf(path);
    if (!fs::is_directory(folder, error)) {
        cannotWrite(path, "there is no folder " + folder.string());
    }
    // The new file is made beside the old one, so the folder must let it.
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        cannotWrite(path, std::strerror(errno));
    }
}

std::vector<std::string> KrAppFiles::makeFolder(const std::string& path)
{
    std::vector<std::string> made;
    const Missing missing = missingFolders(folderOf(path));
    for (const fs::path& folder : missing.folders) {
        // As for any new folder: the umask takes its part.
        if (mkdir(folder.c_str(), 0777) == 0) {
            made.push_back(folder.string());
        } else if (errno != EEXIST) { // another program may have made it
            const std::string reason = std::strerror(errno);
            removeEmpty(made);
            cannotWrite(path, reason);
        }
    }
    return made;
}

void KrAppFiles::removeEmpty(const std::vector<std::string>& folders)
{
    // Innermost first. A folder that holds something by now stays, because rmdir() refuses it.
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        rmdir(folder->c_str());
    }
}

void KrAppFiles::checkDistinct(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs)
{
    std::set<std::string> read;
    for (const std::string& path : inputs) {
        // A file may be read twice, a stream may not.
        if (!path.empty() && !read.insert(identity(path)).second && isStandard(path)) {
            throw KrAppFailure(KrAppFailure::WrongUsage, "standard input can be read but once: two files are -");
        }
    }
    read.erase("-"); // as an output that is something else
    std::set<std::string> written;
    for (const std::string& path : outputs) {
        if (path.empty()) {
            continue;
        }
        // So that another spelling, or a link, does not slip through.
        const std::string file = identity(path);
        if (read.count(file) > 0) {
            throw KrAppFailure(KrAppFailure::WrongUsage, path + ": this file is read, and would be overwritten");
        }
        if (!written.insert(file).second) {
            throw KrAppFailure(KrAppFailure::WrongUsage, isStandard(path)
                                                             ? "standard output takes one output: two are -"
                                                             : path + ": two outputs cannot have one name");
        }
    }
}

bool KrAppFiles::isVideo(const std::string& path)
{
    const std::string extension = extensionOf(path);
    return std::find(std::begin(kVideoFormats), std::end(kVideoFormats), extension) != std::end(kVideoFormats);
}

bool KrAppFiles::isPattern(const std::string& path)
{
    for (std::size_t at = path.find('%'); at != std::string::npos; at = path.find('%', at + 1)) {
        // A percent sign without a number may be a part of the name.
        const std::size_t end = path.find_first_not_of("0123456789", at + 1);
        if (end != std::string::npos && path[end] == 'd') {
            return true;
        }
    }
    return false;
}

std::string KrAppFiles::frameFile(const std::string& pattern, std::size_t number)
{
    const std::string digits = std::to_string(number);
    const auto padded = [&digits](unsigned int width) {
        return digits.size() < width ? std::string(width - digits.size(), '0') + digits : digits;
    };
    const Number place = findNumber(pattern, 0);
    // A name without a number gets one before its extension.
    if (place.start == std::string::npos) {
        const fs::path path(pattern);
        return (path.parent_path() / (path.stem().string() + "_" + padded(4) + path.extension().string())).string();
    }
    // Two numbers would count alike, and nobody means that.
    if (pattern.find('%', place.start + place.length) != std::string::npos) {
        throw KrAppFailure(KrAppFailure::WrongUsage, pattern + ": one frame number is enough");
    }
    return pattern.substr(0, place.start) + padded(place.width) + pattern.substr(place.start + place.length);
}

void KrAppFiles::writePicture(const KrImage& picture, const std::string& path, const KrAppMessages& messages,
                              PngFile& png)
{
    // A stream has no extension to choose a format by: it gets a PNG.
    if (isStandard(path) || extensionOf(path) == ".png") {
        writePng({picture.data(), picture.width(), picture.height(), picture.channels(), 8, true}, path, png);
        return;
    }
    if (!picture.writeFile(path, KrImage::BottomRowFirst)) {
        const std::string reason = messages.lastReason("the disk refuses it");
        // The reason may begin with the file's name, which stands in the message already.
        const std::string prefix = path + ": ";
        cannotWrite(path, reason.compare(0, prefix.size(), prefix) == 0 ? reason.substr(prefix.size()) : reason);
    }
}

void KrAppFiles::writePng(const KrPngEncoder::Picture& picture, const std::string& path, PngFile& png)
{
    const std::string reason = png.encoder.encode(picture, png.bytes);
    if (!reason.empty()) {
        cannotWrite(path, reason);
    }
    ::writeBytes(png.bytes.data(), png.bytes.size(), path);
}

void KrAppFiles::writeBytes(const std::string& bytes, const std::string& path)
{
    ::writeBytes(bytes.data(), bytes.size(), path);
}
