#pragma once

#include <toolkit/math/KrVector.h>

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

class KrTriPhysicalExtent;

/// Convex hulls of point sets.
namespace KrConvexHull
{

/// A hull has at most this many vertices.
constexpr unsigned int kMostVertices = 250;

/// A closed, flat-shaded convex mesh that encloses `points` within 1e-6 of the diagonal of their bounding box.
///
/// Quickhull (Barber, Dobkin and Huhdanpaa, 1996); the point comes first that the hull so far would have to grow most
/// to reach. Points are moved by up to 1e-7 of the diagonal along each axis, each place always the same way, so that no
/// four lie in a plane; hence flat and straight sets have a (very thin) hull, too. Where the exact hull has more than
/// kMostVertices vertices, the hull of so many is enlarged about its middle until it holds all points.
///
/// @return null for fewer than four different points, for one that is not finite, and where rounding defeats the
///         computation
boost::shared_ptr<KrTriPhysicalExtent> make(const std::vector<KrVector>& points, const std::string& groupName);

} // namespace KrConvexHull
