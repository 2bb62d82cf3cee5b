#pragma once

#include <import/mesh/KrMeshData.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

/// Makes the toolkit's triangle mesh from what a mesh file holds.
class KrMeshBuilder
{
public:
    struct Options
    {
        KrVector scale = KrVector(1.0, 1.0, 1.0); ///< negative mirrors: the winding turns with it
        std::string material;                     ///< group name for triangles without a look of their own
        bool materialHasTexture = false;
        bool useLooks = true;       ///< false: all triangles are in one group called `material`
        std::string name;           ///< for messages
        std::size_t numThreads = 1; ///< that may work at it; the result does not depend on them
    };
    struct Result
    {
        boost::shared_ptr<KrTriPhysicalExtent> extent; ///< null when no triangle is left
        std::size_t triangles = 0;
        std::size_t degenerate = 0; ///< skipped: corners on a line, or not finite
        bool isIndexed = false;     ///< the indexed form of the extent is made
        std::string why;            ///< there is no extent in spite of triangles; one clause
    };

    /// Scales the mesh, skips degenerate triangles and computes the normals that are absent.
    static Result build(const KrMeshData& data, const Options& options);
    /// The same in less memory: the triangles of the data are used up.
    static Result build(KrMeshData&& data, const Options& options);

    /// One mesh of one group out of the surfaces of several extents, their placements applied.
    static boost::shared_ptr<KrTriPhysicalExtent>
    merge(const std::vector<boost::shared_ptr<KrBasePhysicalExtent>>& parts, const std::string& material);
};
