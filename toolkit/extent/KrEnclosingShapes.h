#pragma once

#include <toolkit/math/KrVector.h>

#include <boost/shared_ptr.hpp>

#include <vector>

class KrBasePhysicalExtent;
class KrDataMap;
class KrTriPhysicalExtent;

/// Simple solids that enclose a triangle mesh.
///
/// Each encloses every corner of a triangle of the mesh within kTolerance of the diagonal of their bounding box, and so
/// does its triangle form, which of a curved solid is up to 1 % larger than the solid itself. No solids for a mesh
/// without triangles, one whose corners are all the same point, and one too large or too small to be measured.
/// Points in the frame of the mesh, m; the results' groups have the name materialName().
namespace KrEnclosingShapes
{

constexpr double kTolerance = 1e-6;

/// "boundingVolume".
const char* materialName();
/// A translucent orange. The triangle forms of the solids carry it themselves: what is inside stays visible.
const KrDataMap& look();

/// The corners of the mesh's triangles, each vertex once.
std::vector<KrVector> corners(const KrTriPhysicalExtent& mesh);

/// The box along the axes about the corners; false, and no change, where the mesh has no solids. Quick beside making
/// one.
bool findBox(const KrTriPhysicalExtent& mesh, KrVector& low, KrVector& high);

/// All solids, from the coarsest to the finest: box along the axes, sphere, capsule or oriented box, and convex hull
/// where there is one.
std::vector<boost::shared_ptr<KrBasePhysicalExtent>> all(const KrTriPhysicalExtent& mesh);

/// The first three of them, without the cost of a hull.
std::vector<boost::shared_ptr<KrBasePhysicalExtent>> simple(const KrTriPhysicalExtent& mesh);

} // namespace KrEnclosingShapes
