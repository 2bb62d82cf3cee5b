#pragma once

#include <string>
#include <string_view>

/// Looks at a PLY file before the mesh library does, which trusts its header.
class KrPlyText
{
public:
    /// Walks the file by its own header, looking for damage that would cost all memory or the process: counts that are
    /// none, types that are unknown, headers that do not end, and fewer values than declared.
    ///
    /// @param content  the whole file, text or binary
    /// @param why      on refusal one clause
    static bool check(std::string_view content, std::string& why);
};
