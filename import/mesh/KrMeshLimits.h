#pragma once

#include <toolkit/foundation/KrLimits.h>

#include <cstdint>

/// How much a mesh file may ask for.
struct KrMeshLimits
{
    std::uint64_t maxBytes = Kr::Limits::kMeshBytes;         ///< of the file, and of all its side files together
    std::uint64_t maxTriangles = Kr::Limits::kMeshTriangles; ///< of the file; three times as many vertices
};
