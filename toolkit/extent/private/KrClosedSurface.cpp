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
        , m_parents(triangles.size() / 3)
    {
    }

    bool run();

private:
    /// A triangle at an edge.
    struct Side
    {
        std::uint32_t lower; ///< of the edge's two positions
        std::uint32_t upper;
        std::uint32_t triangle;
        int direction; ///< +1 where the triangle runs from the lower to the upper position, -1 where it runs back
    };

    template <typename Visit>
    void forEachSide(const Visit& visit) const;
    void collectSides();
    bool joinParts();
    bool isBalancedInEachPart(std::size_t begin, std::size_t end);
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
    std::vector<Side> m_sides;            ///< by lower position, then by upper one
    std::vector<std::uint32_t> m_parents; ///< a forest: the triangle that stands for a part is its own parent
    std::size_t m_trials = 0;
    std::vector<std::pair<double, int>> m_crossings; ///< of a line; its memory is kept for the next one
};

bool ClosedSurface::run()
{
    collectSides();
    return !m_sides.empty() && joinParts() && areVolumesPositive();
}

template <typename Visit>
void ClosedSurface::forEachSide(const Visit& visit) const
{
    for (std::size_t t = 0; t < m_parents.size(); ++t) {
        const std::uint32_t* const corner = &m_triangles[3 * t];
        if (corner[0] == corner[1] || corner[1] == corner[2] || corner[2] == corner[0]) {
            continue;
        }
        for (unsigned int k = 0; k < 3; ++k) {
            const std::uint32_t from = corner[k];
            const std::uint32_t to = corner[(k + 1) % 3];
            visit(Side{std::min(from, to), std::max(from, to), static_cast<std::uint32_t>(t), from < to ? 1 : -1});
        }
    }
}

// Distributed by lower position, which is faster than to sort them all: only the few at one position are sorted.
void ClosedSurface::collectSides()
{
    std::vector<std::size_t> ends(m_positions.size() / 3 + 1);
    forEachSide([&ends](const Side& side) { ++ends[side.lower + 1]; });
    std::partial_sum(ends.begin(), ends.end(), ends.begin());
    m_sides.resize(ends.back());
    // Where the sides of a position begin; filling it in moves it to where they end.
    forEachSide([this, &ends](const Side& side) { m_sides[ends[side.lower]++] = side; });
    std::size_t begin = 0;
    for (const std::size_t end : ends) {
        std::sort(m_sides.begin() + static_cast<std::ptrdiff_t>(begin),
                  m_sides.begin() + static_cast<std::ptrdiff_t>(end),
                  [](const Side& a, const Side& b) { return a.upper < b.upper; });
        begin = end;
    }
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
    std::iota(m_parents.begin(), m_parents.end(), 0u);
    std::vector<std::pair<std::size_t, std::size_t>> crowded; ///< edges of more than two triangles
    for (std::size_t begin = 0, end = 0; begin < m_sides.size(); begin = end) {
        int sum = 0;
        while (end < m_sides.size() && m_sides[end].lower == m_sides[begin].lower &&
               m_sides[end].upper == m_sides[begin].upper) {
            sum += m_sides[end++].direction;
        }
        if (sum != 0) {
            return false;
        }
        if (end - begin == 2) {
            m_parents[partOf(m_sides[begin].triangle)] = partOf(m_sides[begin + 1].triangle);
        } else {
            crowded.emplace_back(begin, end);
        }
    }
    // After all parts are known.
    return std::all_of(crowded.begin(), crowded.end(),
                       [this](const auto& edge) { return isBalancedInEachPart(edge.first, edge.second); });
}

// Or else a part would be no closed surface of its own, and its volume no volume.
bool ClosedSurface::isBalancedInEachPart(std::size_t begin, std::size_t end)
{
    std::vector<std::pair<std::uint32_t, int>> directions;
    for (std::size_t i = begin; i < end; ++i) {
        directions.emplace_back(partOf(m_sides[i].triangle), m_sides[i].direction);
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
    std::vector<double> volumes(m_parents.size());
    std::vector<double> sizes(m_parents.size());
    for (std::uint32_t t = 0; t < m_parents.size(); ++t) {
        const std::uint32_t part = partOf(t);
        // From a point of the part, so that a small part far from the origin keeps its digits.
        const Vector origin = at(m_triangles[std::size_t{3} * part]);
        const std::uint32_t* const corner = &m_triangles[std::size_t{3} * t];
        const double volume = determinant(at(corner[0]) - origin, at(corner[1]) - origin, at(corner[2]) - origin);
        volumes[part] += volume;
        sizes[part] += std::abs(volume);
    }
    for (std::uint32_t t = 0; t < m_parents.size(); ++t) {
        const std::uint32_t* const corner = &m_triangles[std::size_t{3} * t];
        const bool isDegenerate = corner[0] == corner[1] || corner[1] == corner[2] || corner[2] == corner[0];
        if (m_parents[t] != t || isDegenerate || volumes[t] > kLeastVolume * sizes[t]) {
            continue;
        }
        if (!(volumes[t] < -kLeastVolume * sizes[t]) || !isHollow(t)) {
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
