#pragma once

#include <osg/Matrixd>

class KrCoordinateSystemTransformation;
class KrVector;

/// Where a view of several looks from, and through which lens. Needs no OpenGL. For use inside the library.
namespace KrViewPlacement
{

/// The inverse of a pose, for row vectors.
osg::Matrixd worldToFrame(const KrCoordinateSystemTransformation& frameToWorld);

/// World to camera, world frame in metres. Where `upward` is parallel to the line of sight, z, else y is up.
/// @return false, and `worldToCamera` as it was, where there is no line of sight
bool lookAt(const KrVector& from, const KrVector& to, const KrVector& upward, osg::Matrixd& worldToCamera);

/// A symmetric perspective for a picture of `width` x `height` pixels, neither of them 0.
/// @param fieldOfView  full vertical angle, rad, in (0, pi)
osg::Matrixd projection(double fieldOfView, unsigned int width, unsigned int height, double near, double far);

} // namespace KrViewPlacement
