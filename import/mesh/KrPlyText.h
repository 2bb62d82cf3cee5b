#pragma once

#include <import/mesh/KrMeshSource.h>

#include <string>
#include <string_view>

/// Looks at a mesh file before the mesh library does, for damage that would cost it all memory or the process: counts
/// that are none or do not fit what the file holds, headers that do not end, and index lists with something else in
/// them.
class KrPlyText
{
public:
    /// @param content  the whole file
    /// @param why      on refusal one clause
    static bool check(std::string_view content, KrMeshSource::Format format, std::string& why);
};
