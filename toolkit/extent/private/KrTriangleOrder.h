#pragma once

#include <cstddef>
#include <cstdint>

/// The order in which triangles are drawn.
namespace KrTriangleOrder
{

/// Whether so many triangles meet in some places that looking at all neighbours of each, which the library does, would
/// take forever: the fan of a hostile file.
///
/// @param corners  numbers below `numPlaces`
bool isCrowded(const std::uint32_t* corners, std::size_t count, std::size_t numPlaces);

/// Changes the order of triangles so that a vertex cache serves them well; each keeps the order of its corners, one of
/// which gives flat shading its colour. Triangles of which two cover each other stay as they are (of equal depths the
/// first one drawn is seen), and so do crowded ones.
///
/// @param indices    of vertices, three a triangle
/// @param positions  a number for each index: corners in the same place have the same number; `indices` may serve
/// @param count      of indices
void optimize(std::uint32_t* indices, const std::uint32_t* positions, std::size_t count);

} // namespace KrTriangleOrder
