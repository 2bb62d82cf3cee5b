#pragma once

#include <toolkit/math/KrVector.h>

#include <osg/Vec3>

/// A vector as vertices have it: single precision. Inline, because meshes ask for it corner by corner.
inline osg::Vec3 vec3(const KrVector& v)
{
    return {static_cast<float>(v.x()), static_cast<float>(v.y()), static_cast<float>(v.z())};
}
