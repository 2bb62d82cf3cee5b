#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Wavefront OBJ and MTL files, written anew with what a picture needs.
///
/// The mesh library trusts these files in many places. What is written here holds nothing that it could stumble over:
/// statements that are known, numbers that are numbers, absolute indices that are there, short names in UTF-8.
class KrObjText
{
public:
    struct Mesh
    {
        std::string text;                   ///< one `usemtl` for each material: its faces stand side by side
        std::vector<std::string> libraries; ///< what the mtllib statements name, as they do
        bool hasForeignNames = false;       ///< some were no UTF-8; they are read as Latin-1
    };
    struct Materials
    {
        std::string text;
        std::size_t count = 0;
        std::size_t strays = 0; ///< statements before the first `newmtl`, which are left out
        bool hasForeignNames = false;
        bool hasLongTextureNames = false; ///< those textures are left out
    };

    /// @param maxTriangles  more than these are refused
    /// @param why           on failure one clause
    /// @return false when there is no face, or one of a vertex that is not there
    static bool cleanMesh(std::string_view content, std::uint64_t maxTriangles, Mesh& mesh, std::string& why);

    /// Statements before the first `newmtl` belong to no material and go.
    static Materials cleanMaterials(std::string_view content);
};
