#pragma once

#include <toolkit/system/KrStatedSystem.h>

#include <cstddef>
#include <vector>

/// The system under test and the poses it goes through.
namespace KrBenchSystem
{

/// `copies` of every manipulator of `system`, side by side on a square grid, m apart as far as they are wide. Copies
/// share their meshes.
KrStatedSystem copied(const KrStatedSystem& system, unsigned int copies);
/// Keeps the first triangle of every group of every mesh; primitives become meshes.
void keepOneTriangle(KrStatedSystem& system);
/// `count` states in which every free joint swings about its present position by a tenth of its range.
std::vector<KrManipulatorSystemState> swinging(const KrStatedSystem& system, unsigned int count);

/// As often as they are drawn: what links share counts for each of them.
std::size_t numMeshes(const KrStatedSystem& system);
std::size_t numTriangles(const KrStatedSystem& system);
/// Triangle groups, each with a material of its own.
std::size_t numGroups(const KrStatedSystem& system);

} // namespace KrBenchSystem
