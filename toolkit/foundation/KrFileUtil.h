#pragma once

#include <string>

/// The toolkit's file search path.
///
/// Process-wide; not for use by several threads at once.
class KrFileUtil
{
public:
    /// Appends `directory` to the search path unless it is already there.
    static void addDirectory(const std::string& directory);

    /// The full path of a regular file called `name`, which may hold folders of its own.
    ///
    /// An absolute path is answered as it is when the file exists. Otherwise the
    /// directories are asked in the order in which they were added.
    /// @return the empty string when there is no such file
    static std::string findFile(const std::string& name);
};
