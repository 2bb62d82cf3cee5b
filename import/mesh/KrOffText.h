#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// OFF files, written anew with positions, normals and colours, and faces of at most nine corners.
///
/// The mesh library takes a face of more corners, and any line behind the last face, for damage that it counts wrongly.
class KrOffText
{
public:
    /// @param mesh  becomes the text
    /// @param why   on failure one clause
    /// @return false when the counts do not fit what the file holds, or a face uses a vertex that is not there
    static bool clean(std::string_view content, std::uint64_t maxTriangles, std::string& mesh, std::string& why);
};
