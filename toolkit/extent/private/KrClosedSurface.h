#pragma once

#include <cstdint>
#include <vector>

/// Whether triangles enclose bodies.
namespace KrClosedSurface
{

/// True when an eye outside can only see faces whose corners run counter-clockwise.
///
/// That is so where the surface has no border, so that every point has a winding number, and where none of these is
/// negative. The first follows from the edges: at each one as many triangles run one way as the other. (At an edge of
/// more than two triangles this must hold for every part of the surface that hangs together without that edge.) For
/// the second each part must enclose a positive volume; the walls of hollows, whose volume is negative, must lie
/// inside others, which is tried along lines. False where any of this is not sure. Triangles with two corners in one
/// place do not matter.
///
/// @param positions  three numbers each, m
/// @param triangles  three positions each, counter-clockwise; corners in the same place have the same number
bool isClosed(const std::vector<float>& positions, const std::vector<std::uint32_t>& triangles);

} // namespace KrClosedSurface
