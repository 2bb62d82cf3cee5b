#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// Finds points of a set of triangles that lie near given ones.
///
/// Points that come one after another mostly lie near each other, so the search walks over the surface from where the
/// last one ended, and falls back to a tree of bounding boxes, which is made when it is needed first.
class KrNearestSurface
{
public:
    struct Point
    {
        float position[3];
        float normal[3]; ///< unit: the side to which the surface looks there; 0 where it does not matter
    };
    struct Hit
    {
        float distance = 0.0f;    ///< m
        std::size_t triangle = 0; ///< by its place in the list of indices
        float weights[3] = {};    ///< of the triangle's corners, sum 1
    };

    /// @param positions  three numbers each; read during the call only, as `indices` are
    /// @param indices    of positions, three a triangle; triangles without an area are never found
    KrNearestSurface(const std::vector<float>& positions, const std::vector<std::uint32_t>& indices);

    /// Looks at the triangles that do not look away from where the point's surface looks: the other side of a thin wall
    /// is near, but not the same surface.
    /// @param within  m; triangles farther away do not count
    /// @param enough  m; where the walk ends as near as that, another part of the surface may be nearer
    /// @param plenty  m; as near as that any point will do
    /// @return false where there is none
    bool find(const Point& point, float within, float enough, float plenty, Hit& hit);

    /// Looks at all triangles, whichever way they look.
    /// @return false where there is none
    bool findAny(const float* position, Hit& hit);
    /// The next search begins at the triangles around this position, if there are any.
    void startAt(std::uint32_t position);
    /// The same at a triangle, by its place in the list of indices.
    void startAtTriangle(std::uint32_t number) { m_last = number; }

private:
    struct Triangle
    {
        float corners[3][3];
        float normal[3]; ///< unit; 0 without an area
        std::uint32_t indices[3];
        // Products of the edges from the first corner to the second and the third, m2.
        double firstFirst, firstSecond, secondSecond;
    };
    /// The left child follows its parent; a leaf has triangles instead.
    struct Node
    {
        float low[3];
        float high[3];
        std::uint32_t right; ///< child, or the first of a leaf in m_order
        std::uint32_t count; ///< of a leaf's triangles; 0 for a node with children
    };
    /// What a search has found so far.
    struct Search
    {
        const Point& point;
        Hit& hit;
        float best;   ///< square of the distance, m2
        float plenty; ///< the same
        bool isFound;
    };

    void makeTree();
    void split(std::size_t begin, std::size_t end);
    static void nearestWeights(const Triangle& triangle, const float* p, float* weights);
    void tryTriangle(std::uint32_t number, Search& search) const;
    template <typename Visit>
    void forEachAround(std::uint32_t position, const Visit& visit) const;
    void walk(Search& search) const;
    void descend(Search& search) const;

    std::vector<Triangle> m_triangles;
    std::vector<std::uint32_t> m_order;       ///< triangles with an area, once there is a tree as the leaves have them
    std::vector<Node> m_nodes;                ///< none before the tree is made
    std::vector<std::uint32_t> m_firstAround; ///< by position, and one behind the last: in m_around
    std::vector<std::uint32_t> m_around;      ///< the triangles around each position
    std::uint32_t m_start = 0;                ///< position given to begin at
    std::uint32_t m_last = 0;                 ///< triangle to begin at
};
