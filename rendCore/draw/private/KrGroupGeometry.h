#pragma once

#include <osg/Geometry>

#include <cstdint>

/// The drawable of a triangle group. It counts what would have its display list compiled anew: copies of its arrays
/// that are kept elsewhere are out of date from then on.
class KrGroupGeometry : public osg::Geometry
{
public:
    std::uint32_t version() const { return m_version; }
    /// Changes with every `dirty()` of an array or of indices, which is what has vertex buffers filled anew: the graph
    /// draws what it says from then on, or goes on as before where it has display lists.
    std::uint32_t arraysVersion() const
    {
        std::uint32_t count = 0;
        for (const osg::BufferData* const data :
             {static_cast<const osg::BufferData*>(_vertexArray), static_cast<const osg::BufferData*>(_normalArray),
              static_cast<const osg::BufferData*>(_colorArray)}) {
            count += data != nullptr ? data->getModifiedCount() : 0;
        }
        for (const osg::ref_ptr<osg::Array>& coordinates : _texCoordList) {
            count += coordinates ? coordinates->getModifiedCount() : 0;
        }
        for (const osg::ref_ptr<osg::PrimitiveSet>& primitives : _primitives) {
            count += primitives->getModifiedCount();
        }
        return count;
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
