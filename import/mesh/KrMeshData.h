#pragma once

#include <toolkit/extent/KrTriangle.h>
#include <toolkit/material/KrDataMap.h>
#include <toolkit/math/KrPlanarVector.h>
#include <toolkit/math/KrVector.h>

#include <cstdint>
#include <string>
#include <vector>

/// What a mesh file holds, in metres, before the robot description's scale: a triangle soup with shared vertices.
///
/// Not validated beyond indices: triangles may be degenerate and vertices not finite. KrMeshBuilder sorts that out.
struct KrMeshData
{
    /// The normal index of a corner whose normal is to be computed from the triangles.
    static constexpr std::uint32_t noNormal = UINT32_MAX;

    struct Group
    {
        std::string name; ///< of the material, unique in the mesh; empty without a look
        KrDataMap look;
        bool hasLook = false; ///< false: the robot description's material, or the default
        std::vector<KrTriangle> triangles;
    };

    std::vector<KrVector> vertices;
    std::vector<KrVector> normals; ///< unit length
    std::vector<KrPlanarVector> textureCoordinates;
    std::vector<Group> groups;
    double unit = 1.0;  ///< metres per unit of length in the file; applied already
    std::string upAxis; ///< "Z_UP" and the like, as the file declares it; not applied. Empty where it tells none
    std::vector<std::string> textures;
    std::vector<std::string> warnings; ///< one sentence each

    /// Another file that the mesh is made of: looked for, there or not.
    struct OtherFile
    {
        std::string path;
        bool isRead = false; ///< false: only whether it is there counts
    };
    std::vector<OtherFile> otherFiles;
};
