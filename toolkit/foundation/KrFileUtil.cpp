#include <toolkit/foundation/KrFileUtil.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <vector>

namespace
{

std::mutex s_mutex; // guards searchPath()

// Inside a function: static objects of other files may add folders before this file's would be made.
std::vector<std::string>& searchPath()
{
    static std::vector<std::string> s_directories;
    return s_directories;
}

bool isRegularFile(const std::filesystem::path& path)
{
    // With an error code: a folder that may not be entered is no exception, the file is just not found there.
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

} // namespace

void KrFileUtil::addDirectory(const std::string& directory)
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    std::vector<std::string>& directories = searchPath();
    // A folder that is there already keeps its place, and an empty name would stand for the working folder.
    if (!directory.empty() && std::find(directories.begin(), directories.end(), directory) == directories.end()) {
        directories.push_back(directory);
    }
}

std::string KrFileUtil::findFile(const std::string& name)
{
    const std::filesystem::path wanted(name);
    // The search path is for relative names alone.
    if (wanted.is_absolute()) {
        return isRegularFile(wanted) ? name : std::string();
    }
    const std::lock_guard<std::mutex> lock(s_mutex);
    for (const std::string& directory : searchPath()) {
        const std::filesystem::path candidate = std::filesystem::path(directory) / wanted;
        if (isRegularFile(candidate)) {
            // Absolute, so that a later change of the working folder does not change what is meant.
            std::error_code error;
            const std::filesystem::path full = std::filesystem::absolute(candidate, error);
            return error ? candidate.string() : full.string();
        }
    }
    return std::string();
}
