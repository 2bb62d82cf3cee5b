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
/// Computed by qhull (Barber, Dobkin and Huhdanpaa, "The Quickhull algorithm for convex hulls", 1996) in coordinates
/// in which the points reach equally far along their principal axes. Flat and straight sets get a body 2e-7 of the
/// diagonal thick. Where the exact hull has more than kMostVertices vertices, the hull of so many of them is enlarged
/// about its middle until it holds all points. Where rounding defeats qhull, the box along the principal axes takes
/// the hull's place.
///
/// @return null where all points are the same one or there are none, and for one that is not finite
boost::shared_ptr<KrTriPhysicalExtent> make(const std::vector<KrVector>& points, const std::string& groupName);

} // namespace KrConvexHull
