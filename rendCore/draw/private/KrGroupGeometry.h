#pragma once

#include <osg/Geometry>

#include <cstdint>

/// The drawable of a triangle group. It counts what would have its display list or buffers made anew: copies of its
/// arrays that are kept elsewhere are out of date from then on.
class KrGroupGeometry : public osg::Geometry
{
public:
    /// Counts calls of `dirtyGLObjects`, in the upper half, and of `dirty` of the arrays and indices that are there:
    /// that is what vertex buffers are filled anew for, while display lists stay as they are.
    std::uint64_t version() const
    {
        std::uint32_t arrays = 0;
        for (const osg::BufferData* const data :
             {static_cast<const osg::BufferData*>(_vertexArray), static_cast<const osg::BufferData*>(_normalArray),
              static_cast<const osg::BufferData*>(_colorArray)}) {
            arrays += data != nullptr ? data->getModifiedCount() : 0;
        }
        for (const osg::ref_ptr<osg::Array>& coordinates : _texCoordList) {
            arrays += coordinates ? coordinates->getModifiedCount() : 0;
        }
        for (const osg::ref_ptr<osg::PrimitiveSet>& primitives : _primitives) {
            arrays += primitives->getModifiedCount();
        }
        return (std::uint64_t{m_version} << 32) | arrays;
    }

    void dirtyGLObjects() override
    {
        ++m_version;
        osg::Geometry::dirtyGLObjects();
    }

protected:
    ~KrGroupGeometry() override = default;

private:
    std::uint32_t m_version = 0;
};
