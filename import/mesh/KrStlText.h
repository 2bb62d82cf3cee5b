#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// STL files, text or binary, written anew as binary ones without names, colours and normals.
///
/// The two kinds are hard to tell apart, and readers disagree about files with a wrong count or one letter more.
class KrStlText
{
public:
    struct Mesh
    {
        std::string bytes;
        bool isCut = false; ///< a text ended inside a facet; what is before it is there
    };

    /// @param why  on failure one clause
    /// @return false when there is no triangle, a number is none, or a binary file ends before its last triangle
    static bool clean(std::string_view content, std::uint64_t maxTriangles, Mesh& mesh, std::string& why);

    /// Whether `content` is surely an STL file, whatever its name says.
    static bool isStl(std::string_view content);
};
