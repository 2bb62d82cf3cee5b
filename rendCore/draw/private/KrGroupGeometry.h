#pragma once

#include <osg/Geometry>

#include <cstdint>

/// The drawable of a triangle group. It counts what would have its display list compiled anew: copies of its arrays
/// that are kept elsewhere are out of date from then on.
class KrGroupGeometry : public osg::Geometry
{
public:
    std::uint32_t version() const { return m_version; }

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
