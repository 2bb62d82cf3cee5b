#include <toolkit/extent/private/KrConvexHull.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <queue>
#include <utility>

namespace
{

constexpr double kJitter = 1e-7;
/// Of a point over a plane, for edges of length one: an order above the rounding of the determinant.
constexpr double kRounding = 4e-15;
/// So far off the hull points may stay, in coordinates of size one: half of what is promised, for kJitter's sake.
constexpr double kAllowed = 5e-7;
constexpr std::uint32_t kNone = 0xFFFFFFFFu;

/// In [-1, 1], the same for the same number: points that coincide stay together.
double scattered(double value, std::uint64_t salt)
{
    std::uint64_t bits = 0;
    value += 0.0; // -0 and 0 are one place
    std::memcpy(&bits, &value, sizeof bits);
    bits = (bits + salt) * 0x9E3779B97F4A7C15ull;
    bits = (bits ^ (bits >> 31)) * 0xBF58476D1CE4E5B9ull;
    bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EBull;
    return static_cast<double>((bits ^ (bits >> 31)) >> 11) / 4503599627370496.0 - 1.0;
}

struct Face
{
    std::uint32_t vertex[3];    ///< counter-clockwise seen from outside
    std::uint32_t neighbour[3]; ///< across the edge from vertex i to vertex i + 1
    KrVector normal;            ///< outwards, twice the area long
    double length = 0.0;        ///< of the normal
    double rounding = 0.0;      ///< of the heights that `over` gives
    double mostGrowth = 0.0;
    std::uint32_t farthest = kNone; ///< the one of the points outside that asks for the most growth
    std::uint32_t outside = kNone;  ///< head of the list of points that are over this face, and told to no other
    std::uint32_t visit = 0;
    bool isAlive = true;
};

class QuickHull
{
public:
    /// @param points  in coordinates of size one, no four in a plane
    explicit QuickHull(std::vector<KrVector> points)
        : m_points(std::move(points))
        , m_next(m_points.size(), kNone)
        , m_faceFrom(m_points.size(), kNone)
    {
    }
    /// False when rounding defeats it.
    bool run(unsigned int mostVertices);
    /// Scales the hull about its middle until it holds what is still outside, but for kAllowed. False when rounding
    /// defeats it.
    bool enlarge();

    const std::vector<Face>& faces() const { return m_faces; }
    const std::vector<KrVector>& points() const { return m_points; }

private:
    struct Edge
    {
        std::uint32_t from;
        std::uint32_t to;
        std::uint32_t face; ///< the one that stays
        unsigned int side;  ///< of that face
    };

    /// The place of the surface that is nearest to a point outside.
    struct Nearest
    {
        std::uint32_t face = kNone;
        double distance = std::numeric_limits<double>::infinity();
        KrVector place;
    };

    double over(const Face& face, const KrVector& point) const
    {
        return face.normal.dot(point - m_points[face.vertex[0]]);
    }
    KrVector nearestOn(const Face& face, const KrVector& point) const;
    Nearest nearest(const KrVector& point, std::uint32_t firstFace) const;
    double growth(const KrVector& point, const Nearest& nearest) const;
    bool makeFirst();
    std::uint32_t addFace(std::uint32_t a, std::uint32_t b, std::uint32_t c);
    void place(std::uint32_t point, std::uint32_t firstFace);
    void queue(std::uint32_t face);
    bool addPoint(std::uint32_t point, std::uint32_t from);
    void findHorizon(std::uint32_t point, std::uint32_t from);
    bool closeOver(std::uint32_t point);

    std::vector<KrVector> m_points;
    std::vector<std::uint32_t> m_next;     ///< of each point: the next one in its face's list
    std::vector<std::uint32_t> m_faceFrom; ///< of each point: the new face whose horizon edge begins there
    std::vector<Face> m_faces;
    std::priority_queue<std::pair<double, std::uint32_t>> m_queue; ///< faces with points outside, by growth
    std::vector<std::uint32_t> m_visible;
    std::vector<Edge> m_horizon;
    KrVector m_middle; ///< inside: first that of the first tetrahedron, at last that of the surface
    std::uint32_t m_visit = 0;
};

bool QuickHull::run(unsigned int mostVertices)
{
    if (!makeFirst()) {
        return false;
    }
    unsigned int numVertices = 4;
    while (!m_queue.empty() && numVertices < mostVertices) {
        const std::uint32_t face = m_queue.top().second;
        m_queue.pop();
        if (!m_faces[face].isAlive) {
            continue;
        }
        if (!addPoint(m_faces[face].farthest, face)) {
            return false;
        }
        ++numVertices;
    }
    return true;
}

/// A tetrahedron of points far from each other.
bool QuickHull::makeFirst()
{
    const auto farthest = [this](const auto& distance) {
        std::uint32_t best = 0;
        double most = -1.0;
        for (std::uint32_t i = 0; i < m_points.size(); ++i) {
            const double d = distance(m_points[i]);
            if (d > most) {
                most = d;
                best = i;
            }
        }
        return std::pair<std::uint32_t, double>(best, most);
    };
    if (m_points.empty()) {
        return false;
    }
    const KrVector start = m_points[0];
    const std::uint32_t a = farthest([&](const KrVector& p) { return (p - start).length(); }).first;
    const KrVector origin = m_points[a];
    const auto [b, length] = farthest([&](const KrVector& p) { return (p - origin).length(); });
    const KrVector along = m_points[b] - origin;
    const auto [c, area] = farthest([&](const KrVector& p) { return along.cross(p - origin).length(); });
    const KrVector normal = along.cross(m_points[c] - origin);
    const auto [d, volume] = farthest([&](const KrVector& p) { return std::abs(normal.dot(p - origin)); });
    if (!(length > 0.0 && area > 0.0 && volume > kRounding)) {
        return false;
    }
    const bool isUnder = normal.dot(m_points[d] - origin) < 0.0;
    const std::uint32_t second = isUnder ? b : c;
    const std::uint32_t third = isUnder ? c : b;
    m_middle = (m_points[a] + m_points[b] + m_points[c] + m_points[d]) * 0.25;
    addFace(a, second, third);
    addFace(a, d, second);
    addFace(second, d, third);
    addFace(third, d, a);
    const std::uint32_t neighbours[4][3] = {{1, 2, 3}, {3, 2, 0}, {1, 3, 0}, {2, 1, 0}};
    for (unsigned int i = 0; i < 4; ++i) {
        std::copy(neighbours[i], neighbours[i] + 3, m_faces[i].neighbour);
    }
    for (std::uint32_t i = 0; i < m_points.size(); ++i) {
        if (i != a && i != b && i != c && i != d) {
            place(i, 0);
        }
    }
    for (std::uint32_t i = 0; i < 4; ++i) {
        queue(i);
    }
    return true;
}

std::uint32_t QuickHull::addFace(std::uint32_t a, std::uint32_t b, std::uint32_t c)
{
    Face face;
    face.vertex[0] = a;
    face.vertex[1] = b;
    face.vertex[2] = c;
    std::fill(face.neighbour, face.neighbour + 3, kNone);
    const KrVector ab = m_points[b] - m_points[a];
    const KrVector ac = m_points[c] - m_points[a];
    face.normal = ab.cross(ac);
    face.length = face.normal.length();
    face.rounding = kRounding * ab.length() * ac.length();
    m_faces.push_back(face);
    return static_cast<std::uint32_t>(m_faces.size() - 1);
}

/// The place on a face that is nearest to a point over it.
KrVector QuickHull::nearestOn(const Face& face, const KrVector& point) const
{
    KrVector best;
    double least = std::numeric_limits<double>::infinity();
    for (unsigned int side = 0; side < 3; ++side) {
        const KrVector& corner = m_points[face.vertex[side]];
        const KrVector edge = m_points[face.vertex[(side + 1) % 3]] - corner;
        const KrVector offset = point - corner;
        if (offset.dot(edge.cross(face.normal)) <= 0.0) {
            continue; // the face's own side of that edge
        }
        const double part = std::clamp(offset.dot(edge) / edge.dot(edge), 0.0, 1.0);
        const double distance = (offset - edge * part).length();
        if (distance < least) {
            least = distance;
            best = corner + edge * part;
        }
    }
    if (std::isfinite(least)) {
        return best;
    }
    return point - face.normal * (over(face, point) / (face.length * face.length));
}

/// On the faces from `firstFace` on that the point is outside of.
QuickHull::Nearest QuickHull::nearest(const KrVector& point, std::uint32_t firstFace) const
{
    Nearest result;
    for (std::uint32_t i = firstFace; i < m_faces.size(); ++i) {
        const Face& face = m_faces[i];
        const double height = over(face, point);
        if (!face.isAlive || height <= face.rounding || height >= result.distance * face.length) {
            continue;
        }
        const KrVector place = nearestOn(face, point);
        const double distance = (point - place).length();
        if (distance < result.distance) {
            result = {i, distance, place};
        }
    }
    return result;
}

/// How much larger, as a part of its size, the hull would have to be to reach a point from the place nearest to it.
/// This, which `enlarge` pays, and not the distance, says which point comes first; those that may stay come last.
double QuickHull::growth(const KrVector& point, const Nearest& nearest) const
{
    constexpr double kLeastDepth = 1e-12; // the middle of a flat hull may lie in its surface
    if (nearest.distance <= kAllowed) {
        return nearest.distance;
    }
    const KrVector outwards = (point - nearest.place) * (1.0 / nearest.distance);
    return nearest.distance / std::max(kLeastDepth, outwards.dot(nearest.place - m_middle));
}

/// Gives a point to the nearest of the faces, from `firstFace` on, that it is outside of; drops one that is outside of
/// none.
void QuickHull::place(std::uint32_t point, std::uint32_t firstFace)
{
    const Nearest found = nearest(m_points[point], firstFace);
    if (found.face == kNone) {
        return;
    }
    Face& face = m_faces[found.face];
    m_next[point] = face.outside;
    face.outside = point;
    const double needed = growth(m_points[point], found);
    if (needed > face.mostGrowth) {
        face.mostGrowth = needed;
        face.farthest = point;
    }
}

void QuickHull::queue(std::uint32_t face)
{
    if (m_faces[face].outside != kNone) {
        m_queue.emplace(m_faces[face].mostGrowth, face);
    }
}

bool QuickHull::addPoint(std::uint32_t point, std::uint32_t from)
{
    findHorizon(point, from);
    const auto firstNew = static_cast<std::uint32_t>(m_faces.size());
    if (!closeOver(point)) {
        return false;
    }
    for (const std::uint32_t old : m_visible) {
        for (std::uint32_t i = m_faces[old].outside; i != kNone;) {
            const std::uint32_t next = m_next[i];
            if (i != point) {
                place(i, firstNew);
            }
            i = next;
        }
        m_faces[old].outside = kNone;
    }
    for (std::uint32_t i = firstNew; i < m_faces.size(); ++i) {
        queue(i);
    }
    return true;
}

/// The faces that the point is over, and the edges around them.
void QuickHull::findHorizon(std::uint32_t point, std::uint32_t from)
{
    ++m_visit;
    m_visible.assign(1, from);
    m_horizon.clear();
    m_faces[from].visit = m_visit;
    m_faces[from].isAlive = false;
    for (std::size_t i = 0; i < m_visible.size(); ++i) {
        const Face& face = m_faces[m_visible[i]];
        for (unsigned int side = 0; side < 3; ++side) {
            Face& other = m_faces[face.neighbour[side]];
            if (other.visit == m_visit && !other.isAlive) {
                continue;
            }
            if (over(other, m_points[point]) > 0.0) {
                other.visit = m_visit;
                other.isAlive = false;
                m_visible.push_back(face.neighbour[side]);
                continue;
            }
            unsigned int back = 0;
            while (back < 2 && other.vertex[back] != face.vertex[(side + 1) % 3]) {
                ++back;
            }
            m_horizon.push_back({face.vertex[side], face.vertex[(side + 1) % 3], face.neighbour[side], back});
        }
    }
}

/// A face from every horizon edge to the point; false when the edges are no single ring.
bool QuickHull::closeOver(std::uint32_t point)
{
    const auto first = static_cast<std::uint32_t>(m_faces.size());
    for (const Edge& edge : m_horizon) {
        const std::uint32_t face = addFace(edge.from, edge.to, point);
        m_faces[face].neighbour[0] = edge.face;
        m_faces[edge.face].neighbour[edge.side] = face;
        m_faceFrom[edge.from] = face;
    }
    std::uint32_t face = first;
    for (std::size_t i = 0; i < m_horizon.size(); ++i) {
        const std::uint32_t next = m_faceFrom[m_faces[face].vertex[1]];
        if (next == kNone || next < first || m_faces[next].neighbour[2] != kNone) {
            return false;
        }
        m_faces[face].neighbour[1] = next;
        m_faces[next].neighbour[2] = face;
        face = next;
    }
    return face == first && m_horizon.size() >= 3;
}

bool QuickHull::enlarge()
{
    constexpr unsigned int kMostRounds = 100; // a few do
    KrVector middle;
    double weight = 0.0;
    std::vector<std::uint32_t> left;
    for (const Face& face : m_faces) {
        if (face.isAlive) {
            const KrVector sum = m_points[face.vertex[0]] + m_points[face.vertex[1]] + m_points[face.vertex[2]];
            middle += sum * (face.length / 3.0);
            weight += face.length;
            for (std::uint32_t i = face.outside; i != kNone; i = m_next[i]) {
                left.push_back(i);
            }
        }
    }
    m_middle = middle * (1.0 / weight);
    double scale = 1.0;
    for (const std::uint32_t i : left) {
        // The point is moved in instead of the hull out: distances are less by the few percent that the hull grows.
        for (unsigned int round = 0;; ++round) {
            const KrVector moved = m_middle + (m_points[i] - m_middle) * (1.0 / scale);
            const Nearest found = nearest(moved, 0);
            if (found.face == kNone || found.distance <= kAllowed) {
                break;
            }
            if (round == kMostRounds) { // the middle itself is outside
                return false;
            }
            scale *= 1.0 + growth(moved, found);
        }
    }
    if (scale > 1.0) {
        for (KrVector& point : m_points) {
            point = m_middle + (point - m_middle) * scale;
        }
    }
    return true;
}

} // namespace

boost::shared_ptr<KrTriPhysicalExtent> KrConvexHull::make(const std::vector<KrVector>& points,
                                                          const std::string& groupName)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    KrVector low(infinity, infinity, infinity);
    KrVector high = -low;
    for (const KrVector& point : points) {
        for (unsigned int i = 0; i < 3; ++i) {
            low[i] = std::min(low[i], point[i]);
            high[i] = std::max(high[i], point[i]);
        }
    }
    const double diagonal = (high - low).length();
    if (points.empty() || !(diagonal > 0.0) || !std::isfinite(diagonal)) {
        return nullptr;
    }
    const KrVector center = (low + high) * 0.5;
    std::vector<KrVector> unit;
    unit.reserve(points.size());
    for (const KrVector& point : points) {
        const std::uint64_t salt = static_cast<std::uint64_t>(scattered(point.y(), 1) * 1e9 + 2e9) * 31u +
                                   static_cast<std::uint64_t>(scattered(point.z(), 2) * 1e9 + 2e9);
        const KrVector jitter(scattered(point.x(), salt), scattered(point.x(), salt + 77u),
                              scattered(point.x(), salt + 154u));
        unit.push_back((point - center) * (1.0 / diagonal) + jitter * kJitter);
    }

    QuickHull hull(std::move(unit));
    if (!hull.run(kMostVertices) || !hull.enlarge()) {
        return nullptr;
    }

    KrXmlVectorVector vertices;
    std::vector<std::uint32_t> numbers(points.size(), kNone);
    KrXmlVectorType<KrTriangle> triangles;
    for (const Face& face : hull.faces()) {
        if (!face.isAlive) {
            continue;
        }
        std::uint32_t corner[3];
        for (unsigned int i = 0; i < 3; ++i) {
            std::uint32_t& number = numbers[face.vertex[i]];
            if (number == kNone) {
                number = vertices.size();
                vertices.push_back(center + hull.points()[face.vertex[i]] * diagonal);
            }
            corner[i] = number;
        }
        triangles.push_back(KrTriangle(corner[0], corner[1], corner[2]));
    }
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    groups.push_back({groupName, triangles});
    const auto mesh = boost::make_shared<KrTriPhysicalExtent>();
    const bool isGood = mesh->setMesh(std::move(vertices), {}, {}, std::move(groups), "convex hull");
    return isGood ? mesh : boost::shared_ptr<KrTriPhysicalExtent>();
}
