#pragma once

#include <cstdint>
#include <vector>

class KrIndexedMesh;

/// Where the corners of a mesh are, whatever their normals: what a simplification moves corners between.
///
/// Corners of one position have the same place, but for those of different groups and of different texture coordinates:
/// there is a border between these, which stays one where both sides move alike.
struct KrMeshPlaces
{
    /// @param mesh  level 0 of it is used; read during the call only
    explicit KrMeshPlaces(const KrIndexedMesh& mesh);

    const float* position(std::uint32_t place) const { return &positions[std::size_t{3} * place]; }

    std::vector<std::uint32_t> corners;  ///< a place for each index of level 0, groups behind one another
    std::vector<std::uint32_t> vertices; ///< the vertex for each of `corners`
    std::vector<float> positions;        ///< three numbers a place, m
    std::vector<std::uint32_t> groups;   ///< by place
    std::vector<std::uint32_t> spots;    ///< by place, a number for its position
    std::uint32_t numSpots = 0;
};
