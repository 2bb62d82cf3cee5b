#pragma once

#include <toolkit/extent/private/KrFloat3.h>

#include <cstddef>
#include <cstdint>
#include <vector>

/// Tells how much of a picture changes where a coarser surface takes the place of a mesh.
///
/// Both are drawn from directions spread over the sphere, far away, a few thousand points each, and compared point by
/// point. What share of its pixels a body changes depends on the direction, but not on how far away it is: a pixel
/// shows the point in its middle.
class KrLevelPictures
{
public:
    /// Triangles with a normal at each corner. Borrowed.
    struct Surface
    {
        const std::vector<float>& positions;      ///< nine numbers a triangle, m
        const std::vector<float>& normals;        ///< nine numbers a triangle, unit vectors
        const std::vector<std::uint32_t>& groups; ///< of each triangle
    };

    /// @param mesh      read during the call only
    /// @param isClosed  only fronts of faces are seen
    KrLevelPictures(const Surface& mesh, bool isClosed);

    /// @param enough  a change beyond that is told from half of the directions
    /// @return of the points where one of both is seen, over all directions: the share that shows another group, a
    ///         brightness that differs by more than 16 of 255, or only one of both; or the mean difference, where 1 of
    ///         255 counts as 0.72 %, whichever is larger
    float changed(const Surface& level, float enough = 1.0f) const;

private:
    /// What a point shows.
    struct Point
    {
        std::uint32_t group; ///< kNothing where there is none
        float brightness;    ///< in [0, 1]
    };
    using Picture = std::vector<Point>;

    /// Eye's axes, row by row: right, up, towards the eye; and what is shown.
    struct View
    {
        KrFloat3 axes[3];
        float low[2];   ///< of what is shown, right and up, m
        float scale[2]; ///< points of a metre
    };

    struct Block;
    static std::vector<Block> blocksOf(const std::vector<float>& positions);
    View viewFrom(std::size_t number, const std::vector<Block>& blocks) const;
    void draw(const Surface& surface, const std::vector<Block>& blocks, const View& view, Picture& picture) const;

    bool m_isClosed;
    std::size_t m_width; ///< of each picture, points; its height, too
    std::vector<View> m_views;
    std::vector<Picture> m_pictures;
};
