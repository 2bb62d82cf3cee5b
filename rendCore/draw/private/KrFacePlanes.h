#pragma once

#include <osg/Matrixd>
#include <osg/Vec3>
#include <osg/Vec3d>

#include <cstddef>
#include <vector>

/// The planes of a mesh's triangles: which of them turn their backs to an eye is told without their corners.
///
/// Where the driver draws with the processor, and leaves backs out anyway, half of the vertices need not reach it.
/// Immutable.
class KrFacePlanes
{
public:
    /// @param vertices  of the mesh
    /// @param indices   16 or 32 bits each, three a triangle
    /// @param count     of indices
    template <typename Index>
    KrFacePlanes(const osg::Vec3* vertices, const Index* indices, std::size_t count);

    /// Copies the corners of every triangle that a driver may find to be a front, in their order. Of backs it takes
    /// along those that are so narrow in the window that rounding to its grid may turn them over.
    ///
    /// @param indices  those of the constructor
    /// @param toClip   from the mesh's frame to clip coordinates; rows are multiplied from the left
    /// @param width    of the viewport, pixels, as the height
    /// @param fronts   room for as many indices
    /// @return the number of indices copied; `count` of the constructor, and `fronts` is of no use, where no triangle
    ///         is wide enough to be left out
    template <typename Index>
    std::size_t copyFronts(const Index* indices, const osg::Matrixd& toClip, double width, double height,
                           Index* fronts) const;

private:
    static constexpr std::size_t kBlock = 8;
    /// Of eight triangles, so that the compiler takes them side by side: a normal as long as the triangle is high above
    /// its longest side, m, and the plane's distance from the center times that length. Zero behind the last triangle.
    struct Block
    {
        float x[kBlock];
        float y[kBlock];
        float z[kBlock];
        float offset[kBlock];
    };
    /// What each plane is multiplied with.
    struct Eye
    {
        float x;
        float y;
        float z;
        float offset;
        float limit; ///< a product below it is that of a back for sure
    };

    bool look(const osg::Matrixd& toClip, double width, double height, Eye& eye) const;

    std::size_t m_count;
    std::vector<Block> m_blocks;
    osg::Vec3d m_center;    ///< of the box around the triangles: numbers relative to it are the most exact ones
    double m_radius = 0.0;  ///< around all of them, m
    double m_highest = 0.0; ///< the longest normal, m
};
