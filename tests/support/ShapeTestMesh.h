#pragma once

#include <toolkit/extent/KrTriPhysicalExtent.h>

#include <string>
#include <vector>

/// Meshes for tests of what draws them.
namespace ShapeTestMesh
{

/// One triangle a name, each a group: triangle g has its corners at (g, 0, z), (g + 1, 0, z), (g, 1, z), looks along
/// +z and has the texture coordinates (0, 0), (1, 0), (0, 1) if there are any.
inline bool setTriangles(KrTriPhysicalExtent& mesh, const std::vector<std::string>& names, double z = 0.0,
                         bool hasTextureCoordinates = false)
{
    KrXmlVectorVector vertices, normals;
    KrXmlVectorType<KrPlanarVector> coordinates;
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    normals.push_back(KrVector(0.0, 0.0, 1.0));
    if (hasTextureCoordinates) {
        coordinates.push_back(KrPlanarVector(0.0, 0.0));
        coordinates.push_back(KrPlanarVector(1.0, 0.0));
        coordinates.push_back(KrPlanarVector(0.0, 1.0));
    }
    for (const std::string& name : names) {
        const std::uint32_t first = vertices.size();
        const double x = groups.size();
        vertices.push_back(KrVector(x, 0.0, z));
        vertices.push_back(KrVector(x + 1.0, 0.0, z));
        vertices.push_back(KrVector(x, 1.0, z));
        KrTriangle triangle;
        for (std::uint32_t corner = 0; corner < 3; ++corner) {
            triangle.setCorner(corner, first + corner, 0, hasTextureCoordinates ? corner : 0);
        }
        KrXmlVectorType<KrTriangle> triangles;
        triangles.push_back(triangle);
        groups.push_back(KrTriPhysicalExtent::Group(KrXmlBasicType<std::string>(name), triangles));
    }
    return mesh.setMesh(vertices, normals, coordinates, groups);
}

} // namespace ShapeTestMesh
