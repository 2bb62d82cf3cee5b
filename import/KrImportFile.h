#pragma once

#include <cstdint>
#include <string>

/// The one door through which the importer opens files.
namespace KrImportFile
{

enum class Kind
{
    Regular,      ///< nothing else: a pipe without a writer would be waited for, a device has no end
    RegularOrPipe ///< what a person names, who may mean a pipe; it is read to its end
};

/// Reads a whole file.
///
/// @param content  becomes what the file holds; unspecified on failure
/// @param why      on failure one clause that says what is wrong
/// @return false for what is missing, no regular file (or pipe, where that is asked for), larger than `maxBytes` or
///         cannot be read
bool read(const std::string& path, Kind kind, std::uint64_t maxBytes, std::string& content, std::string& why);

} // namespace KrImportFile
