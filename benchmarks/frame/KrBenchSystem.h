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

std::size_t numTriangles(const KrStatedSystem& system);
/// Triangle groups, each of them one draw call; shared ones count as often as they are drawn.
std::size_t numGroups(const KrStatedSystem& system);

} // namespace KrBenchSystem
