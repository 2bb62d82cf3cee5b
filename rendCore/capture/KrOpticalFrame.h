#pragma once

#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/visualization/KrPovParameters.h>

#include <osg/Matrixd>

/// Optical camera frames (x right, y down, z forward), beside OpenGL's (x right, y up, z backward).
namespace KrOpticalFrame
{

/// World to optical axes from world to OpenGL eye axes, and the other way round.
osg::Matrixd otherConvention(const osg::Matrixd& view);

/// Looks from the origin of an optical frame along its z axis, -y up in the picture. The field of view is kept.
///
/// @param opticalToWorld  the camera's pose
/// @param distance        of the centre of interest, m, > 0: what an orbiting camera turns about
/// @return false, after one message, and `pov` as it was, for numbers that are no pose or no distance
bool toPov(const KrCoordinateSystemTransformation& opticalToWorld, double distance, KrPovParameters& pov);

} // namespace KrOpticalFrame
