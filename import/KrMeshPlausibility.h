#pragma once

#include <string>
#include <string_view>

/// Looks at a mesh file before the mesh library does, for damage that would cost it all memory or the process: counts
/// that are none or do not fit what the file holds, headers that do not end, and index lists with something else in
/// them.
class KrMeshPlausibility
{
public:
    /// @param content    the whole file
    /// @param extension  in lower case: dae, ply, off, gltf, glb; empty where the content alone tells the format
    /// @param why        on refusal one clause
    static bool check(std::string_view content, const std::string& extension, std::string& why);
    /// Whether `check` has something to say about such files.
    static bool concerns(const std::string& extension);
};
