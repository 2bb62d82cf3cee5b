#pragma once

#include <toolkit/extent/private/KrLevelSample.h>
#include <toolkit/foundation/private/KrRowTable.h>

#include <array>
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
    struct Corner
    {
        KrFloat3 normal; ///< unit
        float weight;    ///< how much of the surface tells it
    };

    /// @param mesh    level 0; borrowed, as `places` are
    KrLevelNormals(const KrIndexedMesh& mesh, const KrMeshPlaces& places);

    static constexpr std::uint32_t kNone = 0xffffffffu;
    /// @param corners    a place for each index of the level
    /// @param survivors  for each triangle of the level the one of level 0 with the same corners, or kNone: these keep
    ///                   their normals
    /// @return the normals for each index, each triangle by itself
    std::vector<Corner> fitted(const std::vector<std::uint32_t>& corners, const std::vector<std::uint32_t>& survivors,
                               const std::vector<KrLevelSample>& samples) const;
    /// @param corners    as above, `survivors`, too: these keep their vertices
    /// @param positions  three numbers for each index, m; indices of one place have one position
    /// @param fitted     as given for these
    /// @param result     gets the vertices that level 0 does not have, behind its own
    /// @return a vertex of `result` for each index
    std::vector<std::uint32_t> vertices(const std::vector<std::uint32_t>& corners,
                                        const std::vector<std::uint32_t>& survivors,
                                        const std::vector<float>& positions, const std::vector<Corner>& fitted,
                                        KrIndexedMesh& result);

private:
    const float* normalOf(std::uint32_t vertex) const;
    std::uint32_t likeliest(std::uint32_t place, const KrFloat3& normal) const;
    std::uint32_t vertexWith(std::uint32_t place, const float* position, const KrFloat3& normal, KrIndexedMesh& result);

    const KrIndexedMesh& m_mesh;
    const KrMeshPlaces& m_places;
    std::vector<std::uint32_t> m_firstAt;     ///< by place, and one behind the last: in m_at
    std::vector<std::uint32_t> m_at;          ///< the vertices of level 0 at each place; some more than once
    KrRowTable<std::array<float, 8>> m_added; ///< position, normal, texture coordinates or zeros
};
