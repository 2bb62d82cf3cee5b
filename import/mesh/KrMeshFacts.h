#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// What there is to say of a mesh file besides its surface.
struct KrMeshFacts
{
    double unit = 1.0;  ///< as in KrMeshData
    std::string upAxis; ///< as in KrMeshData
    std::vector<std::string> textures;
    std::vector<std::string> warnings; ///< one sentence each
    std::size_t numLooks = 0;
    bool hasPlainGroups = false; ///< triangles without a look
    bool hasTextureCoordinates = false;
};
