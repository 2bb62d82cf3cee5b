#pragma once

#include <osg/Matrixd>
#include <osg/Vec3>

#include <cstddef>
#include <cstdint>
#include <vector>

/// Finds the triangles of a range of indices that cannot show in a picture: those that miss the middle of every pixel,
/// and backs where backs are left out.
///
/// For drivers that draw with the processor: to shade a triangle's vertices, and to set it up, takes them ten times as
/// long as it takes to see that nothing comes of it, and of a robot from afar most triangles are smaller than a pixel.
/// What shows is never left out, whatever the driver's rounding. Immutable.
class KrTriangleSieve
{
public:
    /// From where a mesh is seen.
    struct View
    {
        osg::Matrixd modelView; ///< of the mesh
        osg::Matrixd projection;
        double width = 0.0; ///< of the viewport, pixels
        double height = 0.0;
        bool areBacksLeftOut = false; ///< by the driver; fronts are counter-clockwise in the window
        double rounding = 0.0;        ///< how far the driver moves a corner at the most, pixels
    };
    /// Where a vertex is in the window.
    struct Spot
    {
        float x; ///< from the middle of the first pixel, parts of a pixel
        float y;
        std::uint32_t cell;   ///< the columns and rows of pixels between whose middles it lies, 16 bits each
        std::uint32_t across; ///< the bits in which that cell differs from others where it may lie as well
    };

    /// So many at once: numbers of what they share fit into 16 bits, and what is found out of it into a cache.
    static constexpr std::size_t kMostIndices = std::size_t{3} << 14;
    static constexpr std::uint16_t kNoNumber = 0xffff;

    /// @param vertices  of the mesh
    /// @param indices   16 or 32 bits each, three a triangle
    /// @param count     of indices, kMostIndices at the most
    /// @param numbers   room to work in, one for each vertex of the mesh: kNoNumber before and after
    template <typename Index>
    KrTriangleSieve(const osg::Vec3* vertices, const Index* indices, std::size_t count,
                    std::vector<std::uint16_t>& numbers);

    /// Copies the corners of the triangles that may show, in their order.
    ///
    /// @param indices  those of the constructor
    /// @param spots    for the vertices: no memory is asked for where it has enough from before
    /// @param kept     room for `count` indices
    /// @return the number of indices copied. `count`, and `kept` is of no use, where nothing is known: the mesh may be
    ///         beside or behind the eye, or so far from its origin that the driver's numbers are not exact
    template <typename Index>
    std::size_t sift(const Index* indices, const View& view, std::vector<Spot>& spots, Index* kept) const;

private:
    static constexpr std::size_t kBlock = 8;
    /// Eight vertices, which the compiler takes side by side.
    struct Block
    {
        float x[kBlock];
        float y[kBlock];
        float z[kBlock];
    };

    bool findSpots(const View& view, std::vector<Spot>& spots, float& margin) const;
    template <bool kAreBacksLeftOut, typename Index>
    std::size_t sift(const Index* indices, const Spot* spots, float margin, Index* kept) const;

    std::vector<std::uint16_t> m_corners; ///< numbers of vertices in the blocks
    std::vector<Block> m_blocks;          ///< the last vertex once more behind it
    bool m_isFinite = true;
    osg::Vec3d m_center; ///< of the box around the vertices
    double m_radius = 0.0;
    osg::Vec3d m_farthest; ///< largest absolute coordinates
};
