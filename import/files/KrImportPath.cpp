#include <import/files/KrImportPath.h>

#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <charconv>
#include <filesystem>

namespace fs = std::filesystem;

namespace
{

/// Whether nothing of a path is to be left out or resolved. Hidden names count as if there were.
bool isPlain(std::string_view path)
{
    char before = '/';
    // A slash at the front is no empty name before it.
    for (const char letter : path.substr(path.empty() || path[0] != '/' ? 0 : 1)) {
        if (before == '/' && (letter == '/' || letter == '.')) {
            return false;
        }
        before = letter;
    }
    return true;
}

} // namespace

bool KrImportPath::isFile(const std::string& path)
{
    // With error codes, here and below: what cannot be looked at counts as absent, and nothing throws.
    std::error_code error;
    return !path.empty() && fs::is_regular_file(path, error);
}

bool KrImportPath::isDirectory(const std::string& path)
{
    std::error_code error;
    return !path.empty() && fs::is_directory(path, error);
}

std::vector<std::string> KrImportPath::entries(const std::string& directory, std::size_t limit)
{
    std::vector<std::string> names;
    std::error_code error;
    // Sorted, because the order of a folder is the file system's own: a guess must be the same everywhere.
    fs::directory_iterator entry(directory, fs::directory_options::skip_permission_denied, error);
    // The limit holds before the sort, so that a folder of millions of files costs no memory.
    for (; !error && entry != fs::directory_iterator() && names.size() < limit; entry.increment(error)) {
        names.push_back(entry->path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> KrImportPath::folders(const std::string& directory, std::size_t limit, std::size_t& numEntries)
{
    std::vector<std::string> names;
    std::error_code error;
    numEntries = 0;
    fs::directory_iterator entry(directory, fs::directory_options::skip_permission_denied, error);
    for (; !error && entry != fs::directory_iterator() && numEntries < limit; entry.increment(error)) {
        ++numEntries;
        std::error_code ignored;
        // Most file systems tell the kind with the name: a walk through a large tree asks for nothing else.
        if (!entry->is_symlink(ignored) && entry->is_directory(ignored)) {
            const std::string name = entry->path().filename().string();
            if (name[0] != '.') {
                names.push_back(name);
            }
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string KrImportPath::directoryOf(const std::string& path)
{
    return fs::path(path).parent_path().string();
}

std::string KrImportPath::nameOf(const std::string& path)
{
    return fs::path(path).filename().string();
}

std::string KrImportPath::stemOf(const std::string& path)
{
    return fs::path(path).stem().string();
}

std::string KrImportPath::extensionOf(const std::string& path)
{
    const std::string extension = fs::path(path).extension().string();
    // In lower case, because file systems that ignore letters' sizes let people write either.
    return extension.empty() ? extension : KrText::lowered(extension.substr(1));
}

std::string KrImportPath::join(const std::string& directory, const std::string& rest)
{
    // Slashes at the front are dropped: std::filesystem takes a right side that is absolute for the whole result.
    std::size_t first = 0;
    while (first < rest.size() && rest[first] == '/') {
        ++first;
    }
    // A robot's meshes are looked for under dozens of such paths each.
    if (!directory.empty() && isPlain(directory) && isPlain(std::string_view(rest).substr(first))) {
        return directory + (directory.back() == '/' ? "" : "/") + rest.substr(first);
    }
    // By the text alone: ".." goes with the folder before it, even where that one is a link.
    return (fs::path(directory) / rest.substr(first)).lexically_normal().string();
}

std::string KrImportPath::absolute(const std::string& path)
{
    std::error_code error;
    const fs::path result = fs::absolute(path, error);
    // Without a current folder the path stays as it is: it will not be found, and the message shows what was asked
    // for.
    return error ? path : result.lexically_normal().string();
}

std::string KrImportPath::withSlashes(std::string_view text)
{
    // Some exporters write backslashes; in a description nobody means one as a part of a name.
    std::string slashed(KrText::trimmed(text));
    std::replace(slashed.begin(), slashed.end(), '\\', '/');
    return slashed;
}

std::string KrImportPath::percentDecoded(std::string_view text)
{
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned int byte = 0;
        const char* digits = text.data() + i + 1;
        // A zero byte would end the name early.
        if (text[i] == '%' && i + 2 < text.size() && std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2 &&
            byte != 0) {
            decoded += static_cast<char>(byte);
            i += 2;
            // What is no escape stays as it stands: a percent sign is a letter of a file's name like others.
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

std::vector<std::string> KrImportPath::components(std::string_view path)
{
    std::vector<std::string> parts;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find('/'), path.size());
        const std::string_view part = path.substr(0, end);
        // Only what says nothing goes: ".." stays for join() to resolve.
        if (!part.empty() && part != ".") {
            parts.emplace_back(part);
        }
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return parts;
}
