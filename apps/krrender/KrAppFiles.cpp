#include "KrAppFiles.h"

#include "KrAppFailure.h"
#include "KrAppMessages.h"

#include <toolkit/foundation/KrFileReplacement.h>

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

namespace
{

namespace fs = std::filesystem;

constexpr const char* kPictureFormats[] = {".png", ".jpg", ".jpeg", ".tif", ".tiff", ".bmp", ".tga"};
constexpr const char* kVideoFormats[] = {".mp4", ".mkv", ".webm", ".gif", ".mov", ".avi"};

/// A run of "%", digits and "d"; npos for none.
struct Number
{
    std::size_t start = std::string::npos;
    std::size_t length = 0;
    unsigned int width = 0;
};

Number findNumber(const std::string& pattern, std::size_t from)
{
    Number found;
    const std::size_t start = pattern.find('%', from);
    if (start == std::string::npos) {
        return found;
    }
    std::size_t end = start + 1;
    while (end < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[end]))) {
        found.width = std::min(found.width * 10 + static_cast<unsigned int>(pattern[end] - '0'), 100u);
        ++end;
    }
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
    std::error_code error;
    const fs::path whole = fs::absolute(KrFileReplacement::target(path), error);
    const fs::path found = fs::weakly_canonical(whole, error);
    return (error ? whole : found).string();
}

[[noreturn]] void cannotWrite(const std::string& path, const std::string& reason)
{
    throw KrAppFailure(KrAppFailure::CouldNot, "cannot write " + path + ": " + reason);
}

} // namespace

std::string KrAppFiles::extensionOf(const std::string& path)
{
    std::string extension = fs::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

void KrAppFiles::checkPictureFormat(const std::string& path)
{
    const std::string extension = extensionOf(path);
    if (std::find(std::begin(kPictureFormats), std::end(kPictureFormats), extension) != std::end(kPictureFormats)) {
        return;
    }
    if (isVideo(path)) {
        throw KrAppFailure(KrAppFailure::WrongUsage, path + " is a video: it needs --trajectory");
    }
    throw KrAppFailure(KrAppFailure::WrongUsage,
                       path + (extension.empty() ? ": a picture's name ends in" : ": pictures are written as") +
                           " .png, .jpg, .tif, .bmp or .tga");
}

void KrAppFiles::checkWritable(const std::string& path)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        cannotWrite(path, fs::is_directory(status) ? "it is a folder" : "it is no regular file");
    }
    if (fs::exists(status) && access(path.c_str(), W_OK) != 0) {
        cannotWrite(path, std::strerror(errno));
    }
    fs::path folder = fs::path(KrFileReplacement::target(path)).parent_path();
    folder = folder.empty() ? fs::path(".") : folder;
    if (!fs::is_directory(folder, error)) {
        cannotWrite(path, "there is no folder " + folder.string());
    }
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        cannotWrite(path, std::strerror(errno));
    }
}

void KrAppFiles::checkDistinct(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs)
{
    std::set<std::string> read;
    for (const std::string& path : inputs) {
        if (!path.empty()) {
            read.insert(identity(path));
        }
    }
    std::set<std::string> written;
    for (const std::string& path : outputs) {
        if (path.empty()) {
            continue;
        }
        const std::string file = identity(path);
        if (read.count(file) > 0) {
            throw KrAppFailure(KrAppFailure::WrongUsage, path + ": this file is read, and would be overwritten");
        }
        if (!written.insert(file).second) {
            throw KrAppFailure(KrAppFailure::WrongUsage, path + ": two outputs cannot have one name");
        }
    }
}

bool KrAppFiles::isVideo(const std::string& path)
{
    const std::string extension = extensionOf(path);
    return std::find(std::begin(kVideoFormats), std::end(kVideoFormats), extension) != std::end(kVideoFormats);
}

std::string KrAppFiles::frameFile(const std::string& pattern, std::size_t number)
{
    const std::string digits = std::to_string(number);
    const auto padded = [&digits](unsigned int width) {
        return digits.size() < width ? std::string(width - digits.size(), '0') + digits : digits;
    };
    const Number place = findNumber(pattern, 0);
    if (place.start == std::string::npos) {
        const fs::path path(pattern);
        return (path.parent_path() / (path.stem().string() + "_" + padded(4) + path.extension().string())).string();
    }
    if (pattern.find('%', place.start + place.length) != std::string::npos) {
        throw KrAppFailure(KrAppFailure::WrongUsage, pattern + ": one frame number is enough");
    }
    return pattern.substr(0, place.start) + padded(place.width) + pattern.substr(place.start + place.length);
}

void KrAppFiles::writePicture(const KrImage& picture, const std::string& path, const KrAppMessages& messages)
{
    if (!picture.writeFile(path, KrImage::BottomRowFirst)) {
        const std::string reason = messages.lastReason("the disk refuses it");
        const std::string prefix = path + ": ";
        cannotWrite(path, reason.compare(0, prefix.size(), prefix) == 0 ? reason.substr(prefix.size()) : reason);
    }
}

void KrAppFiles::writeBytes(const std::string& bytes, const std::string& path)
{
    const std::string reason = KrFileReplacement::write(path, bytes);
    if (!reason.empty()) {
        cannotWrite(path, reason);
    }
}
