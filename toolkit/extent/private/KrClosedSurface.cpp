#include <toolkit/extent/private/KrClosedSurface.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <numeric>
#include <utility>

namespace
{

/// Of the sum of the sizes of its pieces: a volume below this share may be rounding.
constexpr double kLeastVolume = 1e-6;
/// Through each wall of a hollow.
constexpr std::size_t kLines = 16;
/// Of a line with a triangle. A mesh that would need more is not worth the time.
constexpr std::size_t kMostTrials = std::size_t{1} << 25;

struct Vector
{
    double x, y, z;
};

Vector operator-(const Vector& a, const Vector& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}

/// Six times the volume of the tetrahedron of the origin and three points.
double determinant(const Vector& a, const Vector& b, const Vector& c)
{
    return a.x * (b.y * c.z - b.z * c.y) + a.y * (b.z * c.x - b.x * c.z) + a.z * (b.x * c.y - b.y * c.x);
}

/// Sees whether a surface encloses bodies; see KrClosedSurface::isClosed.
class ClosedSurface
{
public:
    ClosedSurface(const std::vector<float>& positions, const std::vector<std::uint32_t>& triangles)
        : m_positions(positions)
        , m_triangles(triangles)
    {
    }

    bool run();

private:
    /// A triangle at an edge, for those at one lower position.
    struct Side
    {
        std::uint32_t upper; ///< of the edge's two positions
        std::uint32_t triangle;
        int direction; ///< +1 where the triangle runs from the lower to the upper position, -1 where it runs back
    };

    template <typename Visit>
    void forEachEdge(const Visit& visit) const;
    std::uint32_t toOf(std::uint32_t corner) const;
    bool canBeBalanced() const;
    void collectEdges();
    bool joinParts();
    bool joinAt(std::vector<Side>& sides);
    bool isBalancedInEachPart(const std::vector<Side>& edge);
    std::uint32_t partOf(std::uint32_t triangle);
    bool areVolumesPositive();
    bool isHollow(std::uint32_t part);
    bool isNeverNegative(double y, double z);
    int turns(const std::uint32_t* corners, double y, double z) const;

    Vector at(std::uint32_t position) const
    {
        const float* const p = &m_positions[std::size_t{3} * position];
        return {p[0], p[1], p[2]};
    }

    const std::vector<float>& m_positions;
    const std::vector<std::uint32_t>& m_triangles;
    std::vector<std::uint32_t> m_edges;       ///< corners from which edges go out, by the lower position of the edge
    std::vector<std::uint32_t> m_ends;        ///< of those of a position, by position
    std::vector<std::vector<Side>> m_crowded; ///< edges of more than two triangles
    std::vector<std::uint32_t> m_parents;     ///< a forest: the triangle that stands for a part is its own parent
    std::size_t m_trials = 0;
    std::vector<std::pair<double, int>> m_crossings; ///< of a line; its memory is kept for the next one
};

bool ClosedSurface::run()
{
    if (!canBeBalanced()) {
        return false;
    }
    collectEdges();
    return !m_edges.empty() && joinParts() && areVolumesPositive();
}

/// By the corner from which the edge goes out, of triangles that have an area.
template <typename Visit>
void ClosedSurface::forEachEdge(const Visit& visit) const
{
    const auto count = static_cast<std::uint32_t>(m_triangles.size() - m_triangles.size() % 3);
    for (std::uint32_t i = 0; i < count; i += 3) {
        const std::uint32_t* const corner = &m_triangles[i];
        if (corner[0] == corner[1] || corner[1] == corner[2] || corner[2] == corner[0]) {
            continue;
        }
        visit(i, corner[0], corner[1]);
        visit(i + 1, corner[1], corner[2]);
        visit(i + 2, corner[2], corner[0]);
    }
}

/// The position to which the edge goes that goes out from a corner.
std::uint32_t ClosedSurface::toOf(std::uint32_t corner) const
{
    return m_triangles[corner % 3 == 2 ? corner - 2 : corner + 1];
}

// Most surfaces with a border are seen here, without lists: a number for each edge, added one way and taken away
// the other, leaves 0 where both are as many.
bool ClosedSurface::canBeBalanced() const
{
    std::uint64_t sum = 0;
    forEachEdge([&sum](std::uint32_t, std::uint32_t from, std::uint32_t to) {
        const std::uint64_t edge = std::uint64_t{std::min(from, to)} << 32 | std::max(from, to);
        const std::uint64_t mixed = (edge ^ edge >> 29) * 0x9e3779b97f4a7c15u;
        const std::uint64_t number = (mixed ^ mixed >> 32) * mixed;
        sum += from < to ? number : 0 - number;
    });
    return sum == 0;
}

// Distributed by lower position, which is faster than to sort them all: only the few at one position are sorted.
void ClosedSurface::collectEdges()
{
    m_ends.resize(m_positions.size() / 3 + 1);
    forEachEdge([this](std::uint32_t, std::uint32_t from, std::uint32_t to) { ++m_ends[std::min(from, to) + 1]; });
    std::partial_sum(m_ends.begin(), m_ends.end(), m_ends.begin());
    m_edges.resize(m_ends.back());
    // Where the edges of a position begin; filling it in moves it to where they end.
    forEachEdge([this](std::uint32_t corner, std::uint32_t from, std::uint32_t to) {
        m_edges[m_ends[std::min(from, to)]++] = corner;
    });
}

std::uint32_t ClosedSurface::partOf(std::uint32_t triangle)
{
    while (m_parents[triangle] != triangle) {
        // Halving the way for the next one who asks.
        m_parents[triangle] = m_parents[m_parents[triangle]];
        triangle = m_parents[triangle];
    }
    return triangle;
}

/// Joins triangles over edges of two; false where an edge shows that the surface has a border.
bool ClosedSurface::joinParts()
{
    m_parents.resize(m_triangles.size() / 3);
    std::iota(m_parents.begin(), m_parents.end(), 0u);
    std::vector<Side> sides;
    std::uint32_t i = 0;
    for (const std::uint32_t end : m_ends) {
        sides.clear();
        for (; i < end; ++i) {
            const std::uint32_t from = m_triangles[m_edges[i]];
            const std::uint32_t to = toOf(m_edges[i]);
            sides.push_back({std::max(from, to), m_edges[i] / 3, from < to ? 1 : -1});
        }
        if (!joinAt(sides)) {
            return false;
        }
    }
    // After all parts are known.
    return std::all_of(m_crowded.begin(), m_crowded.end(),
                       [this](const std::vector<Side>& edge) { return isBalancedInEachPart(edge); });
}

/// The same for all edges at one lower position.
bool ClosedSurface::joinAt(std::vector<Side>& sides)
{
    std::sort(sides.begin(), sides.end(), [](const Side& a, const Side& b) { return a.upper < b.upper; });
    for (auto begin = sides.begin(), end = begin; begin != sides.end(); begin = end) {
        int sum = 0;
        while (end != sides.end() && end->upper == begin->upper) {
            sum += (end++)->direction;
        }
        if (sum != 0) {
            return false;
        }
        if (end - begin == 2) {
            m_parents[partOf(begin[0].triangle)] = partOf(begin[1].triangle);
        } else {
            m_crowded.emplace_back(begin, end);
        }
    }
    return true;
}

// Or else a part would be no closed surface of its own, and its volume no volume.
bool ClosedSurface::isBalancedInEachPart(const std::vector<Side>& edge)
{
    std::vector<std::pair<std::uint32_t, int>> directions;
    for (const Side& side : edge) {
        directions.emplace_back(partOf(side.triangle), side.direction);
    }
    std::sort(directions.begin(), directions.end());
    int sum = 0;
    for (std::size_t i = 0; i < directions.size(); ++i) {
        sum += directions[i].second;
        const bool isLast = i + 1 == directions.size() || directions[i + 1].first != directions[i].first;
        if (isLast && sum != 0) {
            return false;
        }
    }
    return true;
}

bool ClosedSurface::areVolumesPositive()
{
    struct Part
    {
        std::uint32_t triangle = 0; ///< that stands for it
        double volume = 0.0;
        double size = 0.0; ///< the sum of the sizes of its pieces
    };
    std::vector<Part> parts;
    std::vector<std::uint32_t> partNumbers(m_parents.size());
    for (std::uint32_t t = 0; t < m_parents.size(); ++t) {
        if (m_parents[t] == t) {
            partNumbers[t] = static_cast<std::uint32_t>(parts.size());
            parts.emplace_back().triangle = t;
        }
    }
    for (std::uint32_t t = 0; t < m_parents.size(); ++t) {
        Part& part = parts[partNumbers[partOf(t)]];
        // From a point of the part, so that a small part far from the origin keeps its digits.
        const Vector origin = at(m_triangles[std::size_t{3} * part.triangle]);
        const std::uint32_t* const corner = &m_triangles[std::size_t{3} * t];
        const double volume = determinant(at(corner[0]) - origin, at(corner[1]) - origin, at(corner[2]) - origin);
        part.volume += volume;
        part.size += std::abs(volume);
    }
    for (const Part& part : parts) {
        const std::uint32_t* const corner = &m_triangles[std::size_t{3} * part.triangle];
        const bool isDegenerate = corner[0] == corner[1] || corner[1] == corner[2] || corner[2] == corner[0];
        if (isDegenerate || part.volume > kLeastVolume * part.size) {
            continue;
        }
        if (!(part.volume < -kLeastVolume * part.size) || !isHollow(part.triangle)) {
            return false;
        }
    }
    return true;
}

/// Whether the part, whose faces look inwards, lies inside others as far as lines through it can tell.
bool ClosedSurface::isHollow(std::uint32_t part)
{
    std::vector<std::uint32_t> triangles;
    for (std::uint32_t t = 0; t < m_parents.size(); ++t) {
        if (partOf(t) == part) {
            triangles.push_back(t);
        }
    }
    const std::size_t step = (triangles.size() + kLines - 1) / kLines;
    for (std::size_t i = 0; i < triangles.size(); i += step) {
        m_trials += m_parents.size();
        const std::uint32_t* const corner = &m_triangles[std::size_t{3} * triangles[i]];
        const Vector a = at(corner[0]), b = at(corner[1]), c = at(corner[2]);
        // Inside the triangle; uneven shares keep off the edges and diagonals of regular shapes.
        const double y = 0.237 * a.y + 0.321 * b.y + 0.442 * c.y;
        const double z = 0.237 * a.z + 0.321 * b.z + 0.442 * c.z;
        if (m_trials > kMostTrials || !isNeverNegative(y, z)) {
            return false;
        }
    }
    return true;
}

/// Whether no winding number along the line in x direction through (y, z) is below 0.
bool ClosedSurface::isNeverNegative(double y, double z)
{
    m_crossings.clear();
    for (std::size_t t = 0; t < m_parents.size(); ++t) {
        const std::uint32_t* const corner = &m_triangles[3 * t];
        const int sign = turns(corner, y, z);
        if (sign == 0) {
            continue;
        }
        const Vector a = at(corner[0]);
        const Vector u = at(corner[1]) - a;
        const Vector v = at(corner[2]) - a;
        const Vector normal{u.y * v.z - u.z * v.y, u.z * v.x - u.x * v.z, u.x * v.y - u.y * v.x};
        if (normal.x == 0.0) {
            return false;
        }
        // Going along x, a face whose normal points back leads into the body.
        m_crossings.emplace_back(a.x - (normal.y * (y - a.y) + normal.z * (z - a.z)) / normal.x, -sign);
    }
    // Of two walls in one place the one that leads out comes first: what is not sure counts as negative.
    std::sort(m_crossings.begin(), m_crossings.end());
    int winding = 0;
    return std::all_of(m_crossings.begin(), m_crossings.end(),
                       [&winding](const auto& crossing) { return (winding += crossing.second) >= 0; });
}

/// How often the outline of a triangle, seen along x, turns about (y, z) counter-clockwise: -1, 0 or +1.
///
/// Edges include their end with the lower z, not the other one, and are judged in the same order of their positions by
/// both of their triangles, so that a line hits exactly one of the triangles around a corner or an edge.
int ClosedSurface::turns(const std::uint32_t* corners, double y, double z) const
{
    // Nearly all triangles lie above or below.
    const bool isFirstBelow = at(corners[0]).z <= z;
    if ((at(corners[1]).z <= z) == isFirstBelow && (at(corners[2]).z <= z) == isFirstBelow) {
        return 0;
    }
    int turns = 0;
    for (unsigned int k = 0; k < 3; ++k) {
        const std::uint32_t from = corners[k];
        const std::uint32_t to = corners[(k + 1) % 3];
        const bool isUpwards = at(from).z <= z && at(to).z > z;
        const bool isDownwards = at(to).z <= z && at(from).z > z;
        if (!isUpwards && !isDownwards) {
            continue;
        }
        const Vector a = at(std::min(from, to));
        const Vector edge = at(std::max(from, to)) - a;
        const double side = edge.y * (z - a.z) - edge.z * (y - a.y);
        // The point lies left of the edge where it is seen upwards.
        const bool isLeft = (edge.z > 0.0) == (side > 0.0);
        turns += isLeft ? (isUpwards ? 1 : -1) : 0;
    }
    return turns;
}

} // namespace

bool KrClosedSurface::isClosed(const std::vector<float>& positions, const std::vector<std::uint32_t>& triangles)
{
    return ClosedSurface(positions, triangles).run();
}
