#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// STL files, text or binary: their facets, without names, colours and normals.
///
/// The two kinds are hard to tell apart, and readers disagree about files with a wrong count or one letter more. What
/// is left when that is settled are numbers, so no other reader is asked.
class KrStlText
{
public:
    /// x, y and z of three corners; any numbers but minus zero, which is 0 here.
    using Facet = std::array<float, 9>;
    struct Mesh
    {
        std::vector<Facet> facets;
        bool isCut = false; ///< a text ended inside a facet; what is before it is there
    };

    /// @param why  on failure one clause
    /// @return false when there is no triangle, a number is none, or a binary file ends before its last triangle
    static bool read(std::string_view content, std::uint64_t maxTriangles, Mesh& mesh, std::string& why);

    /// Whether `content` is surely an STL file, whatever its name says.
    static bool isStl(std::string_view content);
};
