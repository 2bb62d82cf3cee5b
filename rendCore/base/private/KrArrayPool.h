#pragma once

#include <osg/Array>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/ref_ptr>

#include <cstddef>
#include <unordered_map>

/// Lets geometries with the same vertices, normals or texture coordinates share them: the aids of a scene are many and
/// alike (all spheres have the same normals). Not for geometries whose arrays change.
class KrArrayPool
{
public:
    /// Puts arrays that an earlier call has seen in place of equal ones.
    void share(osg::Geode& geode);
    void share(osg::Geometry& geometry);

private:
    osg::Array* shared(osg::Array* array);

    std::unordered_multimap<std::size_t, osg::ref_ptr<osg::Array>> m_arrays; ///< by the hash of their bytes
};
