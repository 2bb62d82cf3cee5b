#pragma once

#include <toolkit/math/KrVector.h>

#include <boost/shared_ptr.hpp>

#include <string>

class KrTriPhysicalExtent;

/// Triangle meshes of simple solids about the origin, closed, with one group of the given name.
///
/// Smooth surfaces have the normals of the true surface, edges are sharp. Curved surfaces have 32 segments
/// around the z axis. Texture coordinates run once around (u) and along the outline from the bottom to the top (v);
/// flat ends and the faces of a box each show the whole picture. Each gives null where there is no surface: where a
/// size that a surface needs is zero, negative or not finite.
namespace KrPrimitiveMesh
{

/// @param semiAxes  along x, y, z, m
boost::shared_ptr<KrTriPhysicalExtent> ellipsoid(const KrVector& semiAxes, const std::string& groupName);

/// @param size  full edge lengths along x, y, z, m; at most one may be zero: two faces back to back
boost::shared_ptr<KrTriPhysicalExtent> box(const KrVector& size, const std::string& groupName);

/// A (truncated) cone or cylinder along z.
/// @param bottomRadius  at -length / 2, m; one of the radii may be zero
/// @param topRadius     at +length / 2, m
boost::shared_ptr<KrTriPhysicalExtent> cone(double bottomRadius, double topRadius, double length,
                                            const std::string& groupName);

/// @param length  of the cylinder between the half balls, m; may be zero
boost::shared_ptr<KrTriPhysicalExtent> capsule(double radius, double length, const std::string& groupName);

} // namespace KrPrimitiveMesh
