#pragma once

#include <toolkit/extent/private/KrLevelSample.h>

#include <cstdint>
#include <vector>

struct KrMeshPlaces;

/// Moves the corners of coarser levels to where these lie nearest to the mesh.
///
/// A simplification leaves corners where the mesh has them, so every round body lies inside what it stands for, by its
/// whole error: it is seen smaller. Between the best places the error has either sign, its mean is less than half of
/// that, and so is the part of a picture that changes.
namespace KrLevelPositions
{

constexpr std::uint32_t kNone = 0xffffffffu;

/// Least squares of the distances of `samples` from the planes of the mesh. Corners that lie at one position in
/// `places` stay together, those of triangles that are the mesh's own stay where they are, and no triangle turns over.
///
/// @param corners    a place for each index of the level
/// @param survivors  for each triangle of the level the one of level 0 with the same corners, or kNone
/// @return three numbers for each index of the level, m
std::vector<float> fitted(const KrMeshPlaces& places, const std::vector<std::uint32_t>& corners,
                          const std::vector<std::uint32_t>& survivors, const std::vector<KrLevelSample>& samples);

} // namespace KrLevelPositions
