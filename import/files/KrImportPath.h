#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Questions about files and the text of their names. Nothing here throws; what cannot be read is not there.
namespace KrImportPath
{

/// Whether there is a regular file, or a link to one: no pipe and no device.
bool isFile(const std::string& path);
/// Whether there is a folder, or a link to one.
bool isDirectory(const std::string& path);
/// Names (not paths) in a folder, sorted; at most `limit` are looked at. Empty for what is no folder.
std::vector<std::string> entries(const std::string& directory, std::size_t limit);
/// The folders among the first `limit` entries of a folder, sorted: no links to one, and none whose name begins with a
/// dot. @param numEntries  becomes the number of entries that were looked at
std::vector<std::string> folders(const std::string& directory, std::size_t limit, std::size_t& numEntries);

/// What stands before the last slash; "/" for what lies in the root folder, empty without a slash.
std::string directoryOf(const std::string& path);
/// What follows the last slash; the whole path without one.
std::string nameOf(const std::string& path);
/// Without the last dot and what follows it.
std::string stemOf(const std::string& path);
/// What follows the last dot, in lower case; empty without one.
std::string extensionOf(const std::string& path);
/// `directory` and `rest` with one slash between; "." and ".." inside are resolved as text.
std::string join(const std::string& directory, const std::string& rest);
/// As join with the working folder; the path itself when it is absolute already.
std::string absolute(const std::string& path);

/// Backslashes become slashes, leading and trailing white space goes.
std::string withSlashes(std::string_view text);
/// Each %XX of two hexadecimal digits becomes its byte.
std::string percentDecoded(std::string_view text);
/// The parts between slashes, empty ones and "." left out.
std::vector<std::string> components(std::string_view path);

} // namespace KrImportPath
