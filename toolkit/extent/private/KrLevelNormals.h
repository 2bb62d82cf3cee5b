#pragma once

#include <toolkit/extent/private/KrFloat3.h>
#include <toolkit/extent/private/KrVertexTable.h>

#include <cstddef>
#include <cstdint>
#include <vector>

class KrIndexedMesh;
struct KrMeshPlaces;

/// Gives the corners of coarser levels their normals.
///
/// A normal of level 0 stands for the surface around it: a narrow fillet's, at the corner of a large flat triangle,
/// would shade all of it. So each triangle gets the three normals between which the shading of level 0, seen on the
/// part of the surface that the triangle stands for, varies with the least squared error. Those of neighbours are
/// joined where they hardly differ, and level 0's own vertices serve where they do.
class KrLevelNormals
{
public:
    /// A point of level 0, found again on a level.
    struct Sample
    {
        std::uint32_t triangle; ///< of the level, by its place in the list of indices
        float weights[3];       ///< of the triangle's corners, sum 1
        KrFloat3 normal;        ///< unit: that by which level 0 is shaded there
    };

    /// @param mesh    level 0; borrowed, as `places` are
    KrLevelNormals(const KrIndexedMesh& mesh, const KrMeshPlaces& places);

    static constexpr std::uint32_t kNone = 0xffffffffu;
    /// @param corners    a place for each index of the level
    /// @param survivors  for each triangle of the level the one of level 0 with the same corners, or kNone: these keep
    ///                   their vertices
    /// @param result     gets the vertices that level 0 does not have, behind its own
    /// @return a vertex of `result` for each index
    std::vector<std::uint32_t> vertices(const std::vector<std::uint32_t>& corners,
                                        const std::vector<std::uint32_t>& survivors, const std::vector<Sample>& samples,
                                        KrIndexedMesh& result);

private:
    /// A corner's normal, and how much of the surface tells it.
    struct Corner
    {
        KrFloat3 normal;
        float weight;
    };

    const float* normalOf(std::uint32_t vertex) const;
    std::uint32_t likeliest(std::uint32_t place, const KrFloat3& normal) const;
    void fit(const std::vector<std::uint32_t>& corners, const std::vector<Sample>& samples,
             std::vector<Corner>& fitted) const;
    std::uint32_t vertexWith(std::uint32_t place, const KrFloat3& normal, KrIndexedMesh& result);

    const KrIndexedMesh& m_mesh;
    const KrMeshPlaces& m_places;
    std::vector<std::uint32_t> m_firstAt; ///< by place, and one behind the last: in m_at
    std::vector<std::uint32_t> m_at;      ///< the vertices of level 0 at each place; some more than once
    KrVertexTable m_added;
};
