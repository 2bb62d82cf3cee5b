#pragma once

#include <toolkit/math/KrXmlVectorVector.h>

#include <cstdint>
#include <vector>

/// Which positions of a list are one place.
namespace KrEqualPositions
{

/// For each position the first one of the list in the same place: that has the same numbers in single precision, where
/// 0 and -0 are one.
///
/// Takes time in proportion to the list, however long: it is split by a hash of the numbers into parts that fit a
/// processor's cache, and each part goes through a table of its own.
///
/// @param positions  fewer than 2^32, finite
std::vector<std::uint32_t> firstOf(const KrXmlVectorVector& positions);

} // namespace KrEqualPositions
