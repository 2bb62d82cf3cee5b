#pragma once

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/system/KrManipulatorSystem.h>

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

/// Robots made here, of a size that no file says: what is measured with them can be measured anywhere.
namespace KrBenchMade
{

/// "arm": 11 meshes in a row, 59 triangle groups of different colours, 135,168 triangles. "humanoid": 30 meshes on
/// five limbs, 60 groups, 108,000 triangles. Throws KrBenchFailure for any other name.
KrManipulatorSystem robot(const std::string& name);

/// A body of revolution along z, from 0 to `length` (m): `rings` times `segments` times two triangles, with its bands
/// of colours as `groups` groups. Corners next to one another share vertices and normals.
boost::shared_ptr<KrTriPhysicalExtent> body(double length, double radius, unsigned int rings, unsigned int segments,
                                            unsigned int groups, unsigned int firstColor = 0);

using Shapes = std::vector<boost::shared_ptr<KrBasePhysicalExtent>>;

/// A robot of one link for each shape: each on the one before it, or all on the base.
KrManipulatorSystem chain(const Shapes& shapes, double length);
KrManipulatorSystem star(const Shapes& shapes, double distance);

} // namespace KrBenchMade
