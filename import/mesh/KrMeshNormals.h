#pragma once

#include <toolkit/extent/KrTriangle.h>
#include <toolkit/math/KrVector.h>

#include <cstddef>
#include <cstdint>
#include <vector>

/// Corner normals from the triangles themselves.
class KrMeshNormals
{
public:
    /// Edges sharper than this stay sharp, rad.
    static constexpr double creaseAngle = 0.6108652381980153; // 35 degrees

    /// Gives every corner whose normal index is `missing` a normal: that of its triangle, blended with those of the
    /// triangles around the same vertex that lean less than the crease angle, each weighted by its angle there. The
    /// result depends on nothing but the mesh.
    ///
    /// @param lists    borrowed; fewer than 2^32 / 3 triangles, none of them degenerate
    /// @param numThreads  that may work at it; the result does not depend on them
    /// @param normals  takes the new normals, unit length, behind what is there. Of equal ones nearly all share an
    /// index
    static void fill(const std::vector<KrVector>& vertices, const std::vector<std::vector<KrTriangle>*>& lists,
                     std::uint32_t missing, std::size_t numThreads, std::vector<KrVector>& normals);

    /// Whether a triangle has no direction: corners on a line, or not finite.
    static bool isDegenerate(const KrVector& a, const KrVector& b, const KrVector& c);
};
