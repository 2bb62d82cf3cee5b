#pragma once

#include <toolkit/extent/private/KrFloat3.h>

#include <cstdint>

/// A point of level 0, found again on a coarser level.
struct KrLevelSample
{
    KrFloat3 position;      ///< m
    KrFloat3 face;          ///< unit: across level 0 there
    KrFloat3 normal;        ///< unit: that by which level 0 is shaded there
    std::uint32_t triangle; ///< of the level, by its place in the list of indices
    float weights[3];       ///< of the triangle's corners, sum 1
};
