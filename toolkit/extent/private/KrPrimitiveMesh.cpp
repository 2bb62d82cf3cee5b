#include <toolkit/extent/private/KrPrimitiveMesh.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/math/KrAngle.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

namespace
{

using Kr::Angle::kPi;
// The factor by which enclosing balls are larger (KrEnclosingShapes) follows from these two.
constexpr std::uint32_t kSegments = 32; ///< around the axis
constexpr std::uint32_t kStacks = 16;   ///< from pole to pole

// Written so that NaN fails too.
bool isSize(double value)
{
    return value > 0.0 && std::isfinite(value);
}
bool isSizeOrZero(double value)
{
    return value >= 0.0 && std::isfinite(value);
}

/// A direction around the axis.
struct Turn
{
    double cosine = 1.0;
    double sine = 0.0;
};
using Turns = std::array<Turn, kSegments>;

/// Of the borders of segments, `shift` segments further on.
Turns turnsOf(double shift)
{
    Turns turns;
    for (std::uint32_t border = 0; border < kSegments; ++border) {
        const double angle = 2.0 * kPi * (border + shift) / kSegments;
        turns[border] = {std::cos(angle), std::sin(angle)};
    }
    return turns;
}

/// The same for all solids of a program: a robot may have hundreds of them, with dozens of rings each.
const Turns& turns(bool isBetweenBorders)
{
    static const Turns kBorders = turnsOf(0.0);
    static const Turns kMiddles = turnsOf(0.5);
    return isBetweenBorders ? kMiddles : kBorders;
}

/// A mesh with one group on its way to an extent.
struct Mesh
{
    KrXmlVectorVector vertices;
    KrXmlVectorVector normals;
    KrXmlVectorType<KrPlanarVector> textureCoordinates;
    KrXmlVectorType<KrTriangle> triangles;

    boost::shared_ptr<KrTriPhysicalExtent> finish(const std::string& groupName)
    {
        KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
        groups.resize(1);
        groups[0].first() = groupName;
        groups[0].second() = std::move(triangles);
        const auto extent = boost::make_shared<KrTriPhysicalExtent>();
        // The lists are made here, so setMesh refuses them only where a size is beyond single precision.
        const bool ok = extent->setMesh(std::move(vertices), std::move(normals), std::move(textureCoordinates),
                                        std::move(groups), "primitive");
        return ok ? extent : boost::shared_ptr<KrTriPhysicalExtent>();
    }
};

/// A point of an outline in the half plane through the z axis.
struct OutlinePoint
{
    double radius = 0.0;
    double z = 0.0;
};

/// The line between an outline point and the next one, with the outline's outward normals at both ends.
struct OutlineLine
{
    OutlinePoint normalAtStart;
    OutlinePoint normalAtEnd;
    bool isFlatEnd = false;
};

/// Turns an outline, from its lowest point upwards with the solid on its left, about the z axis.
/// All round solids are outlines that are turned, so that poles, seams and normals are right in one place.
class Lathe
{
public:
    Lathe(std::vector<OutlinePoint> points, std::vector<OutlineLine> lines);
    Mesh turn();

private:
    /// Entries of a list that lie around the axis: one for every segment border, or a single one.
    struct Ring
    {
        std::uint32_t first = 0;
        std::uint32_t count = 0;
        // Behind the last border the first one follows.
        std::uint32_t index(std::uint32_t border) const { return first + border % count; }
    };
    struct Side
    {
        Ring vertices;
        Ring normals;
        Ring textureCoordinates;
        bool isOnAxis = false;
    };

    bool isOnAxis(std::size_t point) const { return m_points[point].radius == 0.0; }
    Ring addVertices(std::size_t point);
    Ring addNormals(std::size_t point, const OutlinePoint& normal);
    Ring addCoordinates(std::size_t point);
    Ring addFlatCoordinates(std::size_t point, double edgeRadius, double up);
    Side side(std::size_t line, bool isEnd);
    // Between two sides, for all segments.
    void addTriangles(const Side& lower, const Side& upper);
    void addTriangle(const std::pair<const Side*, std::uint32_t> (&corners)[3], std::uint32_t segment);

    std::vector<OutlinePoint> m_points;
    std::vector<OutlineLine> m_lines;
    std::vector<double> m_arcLengths; ///< at the points, 0 to 1
    std::vector<Ring> m_vertexRings;
    Mesh m_mesh;
};

Lathe::Lathe(std::vector<OutlinePoint> points, std::vector<OutlineLine> lines)
    : m_points(std::move(points))
    , m_lines(std::move(lines))
    , m_arcLengths(m_points.size(), 0.0)
{
    // Pictures run along the outline at even speed; flat ends have one of their own.
    for (std::size_t i = 1; i < m_points.size(); ++i) {
        const double length =
            std::hypot(m_points[i].radius - m_points[i - 1].radius, m_points[i].z - m_points[i - 1].z);
        m_arcLengths[i] = m_arcLengths[i - 1] + (m_lines[i - 1].isFlatEnd ? 0.0 : length);
    }
    for (double& length : m_arcLengths) {
        length /= m_arcLengths.back();
    }
}

// One vertex on the axis, else one for each segment border.
Lathe::Ring Lathe::addVertices(std::size_t point)
{
    // On the axis all borders fall together.
    const Ring ring{m_mesh.vertices.size(), isOnAxis(point) ? 1 : kSegments};
    const OutlinePoint& p = m_points[point];
    for (std::uint32_t border = 0; border < ring.count; ++border) {
        const Turn& turn = turns(false)[border];
        m_mesh.vertices.push_back({p.radius * turn.cosine, p.radius * turn.sine, p.z});
    }
    return ring;
}

// Around the axis, or a single one where the normal is along the axis.
Lathe::Ring Lathe::addNormals(std::size_t point, const OutlinePoint& normal)
{
    const Ring ring{m_mesh.normals.size(), normal.radius == 0.0 ? 1 : kSegments};
    // At the tip of a cone every segment has a normal of its own, half-way between its borders.
    const Turns& around = turns(isOnAxis(point));
    for (std::uint32_t border = 0; border < ring.count; ++border) {
        const Turn& turn = around[border];
        m_mesh.normals.push_back({normal.radius * turn.cosine, normal.radius * turn.sine, normal.z});
    }
    return ring;
}

Lathe::Ring Lathe::addCoordinates(std::size_t point)
{
    // One more than segments: the picture's right edge meets its left edge.
    const Ring ring{m_mesh.textureCoordinates.size(), isOnAxis(point) ? kSegments : kSegments + 1};
    const double shift = isOnAxis(point) ? 0.5 : 0.0;
    for (std::uint32_t border = 0; border < ring.count; ++border) {
        m_mesh.textureCoordinates.push_back({(border + shift) / kSegments, m_arcLengths[point]});
    }
    return ring;
}

/// The picture as it is seen from outside: `up` is 1 for an end that faces upwards, else -1.
Lathe::Ring Lathe::addFlatCoordinates(std::size_t point, double edgeRadius, double up)
{
    const Ring ring{m_mesh.textureCoordinates.size(), isOnAxis(point) ? 1 : kSegments};
    const double radius = 0.5 * m_points[point].radius / edgeRadius;
    for (std::uint32_t border = 0; border < ring.count; ++border) {
        const Turn& turn = turns(false)[border];
        m_mesh.textureCoordinates.push_back({0.5 + up * radius * turn.cosine, 0.5 + radius * turn.sine});
    }
    return ring;
}

// Each line has normals and coordinates of its own, since they break between lines; vertices are shared.
Lathe::Side Lathe::side(std::size_t line, bool isEnd)
{
    const std::size_t point = isEnd ? line + 1 : line;
    const OutlineLine& outline = m_lines[line];
    const OutlinePoint& normal = isEnd ? outline.normalAtEnd : outline.normalAtStart;
    Side result;
    result.isOnAxis = isOnAxis(point);
    result.vertices = m_vertexRings[point];
    result.normals = addNormals(point, normal);
    result.textureCoordinates =
        outline.isFlatEnd
            ? addFlatCoordinates(point, std::max(m_points[line].radius, m_points[line + 1].radius), normal.z)
            : addCoordinates(point);
    return result;
}

void Lathe::addTriangle(const std::pair<const Side*, std::uint32_t> (&corners)[3], std::uint32_t segment)
{
    KrTriangle triangle;
    for (unsigned int corner = 0; corner < 3; ++corner) {
        const Side& ring = *corners[corner].first;
        // A triangle that meets the axis takes the entry of its segment.
        const std::uint32_t border = ring.isOnAxis ? segment : corners[corner].second;
        triangle.setCorner(corner, ring.vertices.index(border), ring.normals.index(border),
                           ring.textureCoordinates.index(border));
    }
    m_mesh.triangles.push_back(triangle);
}

void Lathe::addTriangles(const Side& lower, const Side& upper)
{
    for (std::uint32_t segment = 0; segment < kSegments; ++segment) {
        // On the axis one of the two triangles has no area.
        if (!lower.isOnAxis) {
            addTriangle({{&lower, segment}, {&lower, segment + 1}, {&upper, segment + 1}}, segment);
        }
        if (!upper.isOnAxis) {
            addTriangle({{&lower, segment}, {&upper, segment + 1}, {&upper, segment}}, segment);
        }
    }
}

Mesh Lathe::turn()
{
    // As much as there can be, so that no list moves while it grows.
    const auto numRings = static_cast<std::uint32_t>(m_lines.size() * 2);
    m_mesh.vertices.reserve(static_cast<std::uint32_t>(m_points.size()) * kSegments);
    m_mesh.normals.reserve(numRings * kSegments);
    m_mesh.textureCoordinates.reserve(numRings * (kSegments + 1));
    m_mesh.triangles.reserve(numRings * kSegments);
    for (std::size_t point = 0; point < m_points.size(); ++point) {
        m_vertexRings.push_back(addVertices(point));
    }
    for (std::size_t line = 0; line < m_lines.size(); ++line) {
        const Side lower = side(line, false);
        addTriangles(lower, side(line, true));
    }
    return std::move(m_mesh);
}

/// Part of the outline of a ball with its middle at `z`; stack 0 is the lower pole, the last one the upper.
void addArc(std::vector<OutlinePoint>& points, std::vector<OutlinePoint>& normals, double radius, double z,
            std::uint32_t firstStack, std::uint32_t lastStack)
{
    for (std::uint32_t stack = firstStack; stack <= lastStack; ++stack) {
        const double a = kPi * stack / kStacks;
        // Exactly 0 at the poles, which sin(pi) is not: those points lie on the axis.
        const bool isPole = stack == 0 || stack == kStacks;
        const OutlinePoint normal{isPole ? 0.0 : std::sin(a), -std::cos(a)};
        normals.push_back(normal);
        points.push_back({radius * normal.radius, z + radius * normal.z});
    }
}

/// Lines along which the normals change without a break.
std::vector<OutlineLine> smoothLines(const std::vector<OutlinePoint>& normals)
{
    std::vector<OutlineLine> lines;
    for (std::size_t i = 1; i < normals.size(); ++i) {
        lines.push_back({normals[i - 1], normals[i], false});
    }
    return lines;
}

/// The four corners of a box's face, counter-clockwise seen from outside, the picture upright: signs of x, y, z.
struct Face
{
    KrVector normal;
    KrVector corners[4];
};

const Face kFaces[] = {
    {{1, 0, 0}, {{1, -1, -1}, {1, 1, -1}, {1, 1, 1}, {1, -1, 1}}},
    {{-1, 0, 0}, {{-1, 1, -1}, {-1, -1, -1}, {-1, -1, 1}, {-1, 1, 1}}},
    {{0, 1, 0}, {{1, 1, -1}, {-1, 1, -1}, {-1, 1, 1}, {1, 1, 1}}},
    {{0, -1, 0}, {{-1, -1, -1}, {1, -1, -1}, {1, -1, 1}, {-1, -1, 1}}},
    {{0, 0, 1}, {{-1, -1, 1}, {1, -1, 1}, {1, 1, 1}, {-1, 1, 1}}},
    {{0, 0, -1}, {{1, -1, -1}, {-1, -1, -1}, {-1, 1, -1}, {1, 1, -1}}},
};

// A sheet has its two sides; the four that have shrunk to lines are left out.
bool hasArea(const Face& face, const KrVector& size)
{
    for (unsigned int axis = 0; axis < 3; ++axis) {
        if (face.normal[axis] == 0.0 && size[axis] == 0.0) {
            return false;
        }
    }
    return true;
}

/// Which of the box's eight corners.
/// Bit by bit: x, y, z.
std::uint32_t cornerIndex(const KrVector& signs)
{
    return (signs.x() > 0.0 ? 1u : 0u) + (signs.y() > 0.0 ? 2u : 0u) + (signs.z() > 0.0 ? 4u : 0u);
}

// Four corners with one normal, as two triangles.
void addFace(Mesh& mesh, const Face& face)
{
    const std::uint32_t normal = mesh.normals.size();
    mesh.normals.push_back(face.normal);
    KrTriangle halves[2];
    for (std::uint32_t corner = 0; corner < 4; ++corner) {
        const std::uint32_t vertex = cornerIndex(face.corners[corner]);
        // Corners 0, 1, 2 and 0, 2, 3.
        if (corner < 3) {
            halves[0].setCorner(corner, vertex, normal, corner);
        }
        if (corner != 1) {
            halves[1].setCorner(corner == 0 ? 0 : corner - 1, vertex, normal, corner);
        }
    }
    mesh.triangles.push_back(halves[0]);
    mesh.triangles.push_back(halves[1]);
}

} // namespace

// A ball that is stretched: its vertices by the axes, its normals by their inverses.
boost::shared_ptr<KrTriPhysicalExtent> KrPrimitiveMesh::ellipsoid(const KrVector& semiAxes,
                                                                  const std::string& groupName)
{
    if (!isSize(semiAxes.x()) || !isSize(semiAxes.y()) || !isSize(semiAxes.z())) {
        return boost::shared_ptr<KrTriPhysicalExtent>();
    }
    std::vector<OutlinePoint> points;
    std::vector<OutlinePoint> normals;
    addArc(points, normals, 1.0, 0.0, 0, kStacks);
    Mesh mesh = Lathe(points, smoothLines(normals)).turn();

    // Divided by the longest first: products of very small or large axes would leave the range.
    const double longest = std::max({semiAxes.x(), semiAxes.y(), semiAxes.z()});
    const KrVector ratio = semiAxes * (1.0 / longest);
    for (KrVector& vertex : mesh.vertices) {
        vertex.set(vertex.x() * semiAxes.x(), vertex.y() * semiAxes.y(), vertex.z() * semiAxes.z());
    }
    for (KrVector& normal : mesh.normals) {
        // The gradient of (x/a)^2 + (y/b)^2 + (z/c)^2 at (a n) is (n/a), here times abc.
        normal.set(normal.x() * ratio.y() * ratio.z(), normal.y() * ratio.x() * ratio.z(),
                   normal.z() * ratio.x() * ratio.y());
        normal.normalize();
    }
    return mesh.finish(groupName);
}

boost::shared_ptr<KrTriPhysicalExtent> KrPrimitiveMesh::box(const KrVector& size, const std::string& groupName)
{
    const int numFlat = int(size.x() == 0.0) + int(size.y() == 0.0) + int(size.z() == 0.0);
    if (!isSizeOrZero(size.x()) || !isSizeOrZero(size.y()) || !isSizeOrZero(size.z()) || numFlat > 1) {
        return boost::shared_ptr<KrTriPhysicalExtent>();
    }
    Mesh mesh;
    for (std::uint32_t corner = 0; corner < 8; ++corner) {
        mesh.vertices.push_back({(corner & 1u ? 0.5 : -0.5) * size.x(), (corner & 2u ? 0.5 : -0.5) * size.y(),
                                 (corner & 4u ? 0.5 : -0.5) * size.z()});
    }
    mesh.textureCoordinates = KrXmlVectorType<KrPlanarVector>({{0.0, 0.0}, {1.0, 0.0}, {1.0, 1.0}, {0.0, 1.0}});
    for (const Face& face : kFaces) {
        if (hasArea(face, size)) {
            addFace(mesh, face);
        }
    }
    return mesh.finish(groupName);
}

// A mantle, and a flat end wherever the radius is not 0.
boost::shared_ptr<KrTriPhysicalExtent> KrPrimitiveMesh::cone(double bottomRadius, double topRadius, double length,
                                                             const std::string& groupName)
{
    if (!isSizeOrZero(bottomRadius) || !isSizeOrZero(topRadius) || !isSize(length) ||
        (bottomRadius == 0.0 && topRadius == 0.0)) {
        return boost::shared_ptr<KrTriPhysicalExtent>();
    }
    // The normal of the mantle leans towards the narrower end.
    const double half = 0.5 * length;
    const double slant = std::hypot(length, bottomRadius - topRadius);
    const OutlinePoint normal{length / slant, (bottomRadius - topRadius) / slant};
    std::vector<OutlinePoint> points = {{bottomRadius, -half}, {topRadius, half}};
    std::vector<OutlineLine> lines = {{normal, normal, false}};
    if (bottomRadius > 0.0) {
        points.insert(points.begin(), {0.0, -half});
        lines.insert(lines.begin(), {{0.0, -1.0}, {0.0, -1.0}, true});
    }
    if (topRadius > 0.0) {
        points.push_back({0.0, half});
        lines.push_back({{0.0, 1.0}, {0.0, 1.0}, true});
    }
    return Lathe(std::move(points), std::move(lines)).turn().finish(groupName);
}

// Two half balls on one outline, so that the mantle between them needs no special case.
boost::shared_ptr<KrTriPhysicalExtent> KrPrimitiveMesh::capsule(double radius, double length,
                                                                const std::string& groupName)
{
    if (!isSize(radius) || !isSizeOrZero(length)) {
        return boost::shared_ptr<KrTriPhysicalExtent>();
    }
    std::vector<OutlinePoint> points;
    std::vector<OutlinePoint> normals;
    addArc(points, normals, radius, -0.5 * length, 0, kStacks / 2);
    // Without a cylinder between them the two halves share their equator.
    addArc(points, normals, radius, 0.5 * length, length > 0.0 ? kStacks / 2 : kStacks / 2 + 1, kStacks);
    return Lathe(std::move(points), smoothLines(normals)).turn().finish(groupName);
}
