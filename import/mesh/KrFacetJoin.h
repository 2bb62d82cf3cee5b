#pragma once

#include <import/mesh/KrStlText.h>

#include <toolkit/extent/KrTriangle.h>
#include <toolkit/math/KrVector.h>

#include <cstdint>
#include <vector>

/// Makes triangles with shared vertices out of facets that have their corners each for themselves.
class KrFacetJoin
{
public:
    /// Corners at the same numbers, bit by bit, share a vertex; 0 and -0 are one number. Vertices stand in the order in
    /// which they are first used.
    ///
    /// @param facets     fewer than 2^32 / 3
    /// @param normal     the index of the normal that every corner gets
    /// @param triangles  takes one for each facet, behind what is there
    /// @param vertices   replaced
    static void join(const std::vector<KrStlText::Facet>& facets, std::uint32_t normal,
                     std::vector<KrTriangle>& triangles, std::vector<KrVector>& vertices);
};
