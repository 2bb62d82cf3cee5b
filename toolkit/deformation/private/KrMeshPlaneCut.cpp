#include <toolkit/deformation/private/KrMeshPlaneCut.h>

#include <GL/glu.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace
{

/// Points nearer to the plane than this part of the mesh's size are on it: no slivers.
constexpr double kOnPlane = 1e-9;
/// Points of a rim that are nearer than this part of the mesh's size are one: seams have a vertex on either side.
constexpr double kSamePlace = 1e-7;

// The tolerances are parts of it, so that a mesh in millimetres is cut like one in metres.
double largestCoordinate(const std::vector<KrVector>& points)
{
    double largest = 0.0;
    for (const KrVector& point : points) {
        largest = std::max({largest, std::abs(point.x()), std::abs(point.y()), std::abs(point.z())});
    }
    return largest;
}

/// What the tessellator of GLU hands back: three items a triangle. Its C functions let no exception through, hence room
/// is made beforehand.
struct Tessellation
{
    std::vector<void*> items;
    bool isSound = true;
};

// Called by C: what has no room is noted instead of thrown.
void onVertex(void* item, void* tessellation)
{
    auto& result = *static_cast<Tessellation*>(tessellation);
    if (item == nullptr || result.items.size() == result.items.capacity()) {
        result.isSound = false;
        return;
    }
    result.items.push_back(item);
}

/// Two vertices at one place become the first; where lines cross there is no vertex, and no cap.
void onCombine(GLdouble*, void* items[4], GLfloat*, void** item, void* tessellation)
{
    *item = items[2] == nullptr && items[3] == nullptr ? items[0] : nullptr;
    static_cast<Tessellation*>(tessellation)->isSound &= *item != nullptr;
}

// Which error does not matter: there is no cap then.
void onError(GLenum, void* tessellation)
{
    static_cast<Tessellation*>(tessellation)->isSound = false;
}

/// To be called at all, it makes the tessellator give single triangles.
void onEdgeFlag(GLboolean) {}

struct TessellatorDeleter
{
    void operator()(GLUtesselator* tessellator) const { gluDeleteTess(tessellator); }
};
using UniqueTessellator = std::unique_ptr<GLUtesselator, TessellatorDeleter>;

// GLU declares callbacks without parameters.
template <typename Function>
void setCallback(GLUtesselator& tessellator, GLenum which, Function* function)
{
    gluTessCallback(&tessellator, which, reinterpret_cast<_GLUfuncptr>(function));
}

// Outlines inside each other are holes where they run the other way round: the winding rule tells.
// Null when there is no memory. The normal is given, since the tessellator would guess it from the points.
UniqueTessellator makeTessellator(const KrVector& normal)
{
    UniqueTessellator tessellator(gluNewTess());
    if (tessellator) {
        setCallback(*tessellator, GLU_TESS_VERTEX_DATA, onVertex);
        setCallback(*tessellator, GLU_TESS_COMBINE_DATA, onCombine);
        setCallback(*tessellator, GLU_TESS_ERROR_DATA, onError);
        setCallback(*tessellator, GLU_TESS_EDGE_FLAG, onEdgeFlag);
        gluTessProperty(tessellator.get(), GLU_TESS_WINDING_RULE, GLU_TESS_WINDING_POSITIVE);
        gluTessNormal(tessellator.get(), normal.x(), normal.y(), normal.z());
    }
    return tessellator;
}

// A triangle that a plane has cut leaves a triangle and a convex quadrangle, which a fan fills.
template <typename Corner>
void addFan(const std::vector<Corner>& polygon, std::vector<KrTriangle>& triangles)
{
    for (std::size_t i = 1; i + 1 < polygon.size(); ++i) {
        KrTriangle triangle;
        triangle.setCorner(0, polygon[0].vertex, polygon[0].normal, polygon[0].textureCoordinate);
        triangle.setCorner(1, polygon[i].vertex, polygon[i].normal, polygon[i].textureCoordinate);
        triangle.setCorner(2, polygon[i + 1].vertex, polygon[i + 1].normal, polygon[i + 1].textureCoordinate);
        triangles.push_back(triangle);
    }
}

} // namespace

KrMeshPlaneCut::KrMeshPlaneCut(Mesh& mesh, const std::vector<KrVector>& points, const KrVector& origin,
                               const KrVector& normal)
    : m_mesh(mesh)
    , m_points(points)
    , m_normal(normal)
    , m_size(largestCoordinate(points))
{
    // Once for each point; triangles share their corners.
    m_distances.reserve(points.size());
    for (const KrVector& point : points) {
        const double distance = normal.dot(point - origin);
        m_distances.push_back(std::abs(distance) <= kOnPlane * m_size ? 0.0 : distance);
    }
}

// False when the plane leaves everything on one side; the mesh is then of no further use.
bool KrMeshPlaneCut::separate(std::uint32_t piece, std::uint32_t newPiece)
{
    // Groups of other pieces stay as they are, so that they may lie across the plane.
    m_piece = piece;
    m_newPiece = newPiece;
    std::vector<KrDeformationGroup> lower;
    std::vector<KrDeformationGroup> upper;
    for (KrDeformationGroup& group : m_mesh.groups) {
        if (group.piece() != piece) {
            lower.push_back(group);
            continue;
        }
        KrDeformationGroup below(group.name(), piece, group.isCap());
        KrDeformationGroup above(group.name(), newPiece, group.isCap());
        for (const KrTriangle& triangle : group.triangles()) {
            splitTriangle(triangle, below.triangles(), above.triangles());
        }
        if (!below.triangles().empty()) {
            lower.push_back(below);
        }
        if (!above.triangles().empty()) {
            upper.push_back(above);
        }
    }
    // Behind all others, so that the numbers of triangles that stay change little.
    m_mesh.groups = lower;
    m_mesh.groups.insert(m_mesh.groups.end(), upper.begin(), upper.end());
    return m_isAnyBelow && m_isAnyAbove;
}

// What lies on both sides is parted along the plane; everything else goes to its side whole.
void KrMeshPlaneCut::splitTriangle(const KrTriangle& triangle, std::vector<KrTriangle>& below,
                                   std::vector<KrTriangle>& above)
{
    Polygon corners;
    for (unsigned int i = 0; i < 3; ++i) {
        corners.push_back({triangle.vertex(i), triangle.normal(i), triangle.textureCoordinate(i)});
    }
    const auto isAbove = [this](const Corner& corner) { return distance(corner) > 0.0; };
    const auto isBelow = [this](const Corner& corner) { return distance(corner) < 0.0; };
    // Points on the plane belong to both sides and decide nothing.
    const bool isAnyAbove = std::any_of(corners.begin(), corners.end(), isAbove);
    const bool isAnyBelow = std::any_of(corners.begin(), corners.end(), isBelow);
    m_isAnyAbove = m_isAnyAbove || isAnyAbove;
    m_isAnyBelow = m_isAnyBelow || isAnyBelow;
    // A triangle in the plane goes to the side whose surface it is, by where it looks.
    const bool isInPlane = !isAnyAbove && !isAnyBelow;
    if (isInPlane ? facesUpwards(triangle) : !isAnyAbove) {
        below.push_back(triangle);
        noteRim(corners);
        return;
    }
    if (!isAnyBelow) {
        above.push_back(triangle);
        return;
    }
    Polygon lower;
    Polygon upper;
    for (unsigned int i = 0; i < 3; ++i) {
        const Corner& corner = corners[i];
        const Corner& next = corners[(i + 1) % 3];
        if (!isAbove(corner)) {
            lower.push_back(corner);
        }
        if (!isBelow(corner)) {
            upper.push_back(corner);
        }
        // An edge is cut only between its ends; an end on the plane is itself the crossing.
        if ((isBelow(corner) && isAbove(next)) || (isAbove(corner) && isBelow(next))) {
            lower.push_back(crossing(corner, next));
            upper.push_back(lower.back());
        }
    }
    addFan(lower, below);
    addFan(upper, above);
    noteRim(lower);
}

/// A triangle that has shrunk to a line counts as facing upwards.
bool KrMeshPlaneCut::facesUpwards(const KrTriangle& triangle) const
{
    const KrVector& a = m_points[triangle.vertex(0)];
    const KrVector& b = m_points[triangle.vertex(1)];
    const KrVector& c = m_points[triangle.vertex(2)];
    return (b - a).cross(c - a).dot(m_normal) >= 0.0;
}

KrMeshPlaneCut::Corner KrMeshPlaneCut::crossing(const Corner& one, const Corner& other)
{
    // Always from below to above: both triangles of an edge, and both sides of a seam, get the very same place.
    const Corner& low = distance(one) < 0.0 ? one : other;
    const Corner& high = distance(one) < 0.0 ? other : one;
    const double t = distance(low) / (distance(low) - distance(high));
    Corner corner;
    corner.vertex = vertexBetween(low.vertex, high.vertex, t);
    corner.normal = normalBetween(low.normal, high.normal, corner.vertex, t);
    corner.textureCoordinate =
        textureCoordinateBetween(low.textureCoordinate, high.textureCoordinate, corner.vertex, t);
    return corner;
}

// An edge point and not a place: when poses move the ends, the cut moves with them.
std::uint32_t KrMeshPlaneCut::vertexBetween(std::uint32_t low, std::uint32_t high, double t)
{
    // By the edge, so that its other triangle finds the same vertex.
    const auto [found, isNew] = m_newVertices.try_emplace({low, high, 0}, static_cast<std::uint32_t>(m_points.size()));
    if (isNew) {
        m_mesh.cutVertices.push_back(KrEdgePoint(low, high, t));
        m_points.push_back(m_points[low] * (1.0 - t) + m_points[high] * t);
        m_distances.push_back(0.0);
    }
    return found->second;
}

// The vertex is part of the key: two edges may have normals of the same numbers and cross at different shares.
// Equal normals at both ends need no third one.
std::uint32_t KrMeshPlaneCut::normalBetween(std::uint32_t low, std::uint32_t high, std::uint32_t vertex, double t)
{
    if (low == high) {
        return low;
    }
    const auto next = m_mesh.numNormals + static_cast<std::uint32_t>(m_mesh.cutNormals.size());
    const auto [found, isNew] = m_newNormals.try_emplace({low, high, vertex}, next);
    if (isNew) {
        m_mesh.cutNormals.push_back(KrEdgePoint(low, high, t));
    }
    return found->second;
}

// Texture coordinates do not follow poses, so values are kept instead of edge points.
std::uint32_t KrMeshPlaneCut::textureCoordinateBetween(std::uint32_t low, std::uint32_t high, std::uint32_t vertex,
                                                       double t)
{
    std::vector<KrPlanarVector>& list = m_mesh.textureCoordinates;
    if (low == high || list.empty()) {
        return low;
    }
    const auto [found, isNew] =
        m_newTextureCoordinates.try_emplace({low, high, vertex}, static_cast<std::uint32_t>(list.size()));
    if (isNew) {
        list.push_back(KrPlanarVector((1.0 - t) * list[low].u() + t * list[high].u(),
                                      (1.0 - t) * list[low].v() + t * list[high].v()));
    }
    return found->second;
}

// Where a vertex is, in steps of the tolerance.
KrMeshPlaneCut::PlaceKey KrMeshPlaneCut::placeOf(std::uint32_t vertex) const
{
    // Rounded to a grid, so that places can be compared and sorted.
    PlaceKey key = {};
    for (unsigned int i = 0; i < 3; ++i) {
        key[i] = std::llround(m_points[vertex][i] / (kSamePlace * m_size));
    }
    return key;
}

// The outline of the lower side, edge by edge; the upper one has the same.
void KrMeshPlaneCut::noteRim(const Polygon& below)
{
    for (std::size_t i = 0; i < below.size(); ++i) {
        const Corner& from = below[i];
        const Corner& to = below[(i + 1) % below.size()];
        if (distance(from) != 0.0 || distance(to) != 0.0) {
            continue;
        }
        // By place and not by vertex: both sides of a seam have a vertex of their own there.
        const PlaceKey start = placeOf(from.vertex);
        const PlaceKey end = placeOf(to.vertex);
        if (start == end) {
            continue;
        }
        // An edge between two triangles of the same side is no rim.
        // Two triangles of one side run along a shared edge in opposite directions.
        const auto [first, last] = m_rim.equal_range(end);
        const auto opposite = std::find_if(first, last, [&](const auto& edge) { return edge.second.to == start; });
        if (opposite != last) {
            m_rim.erase(opposite);
        } else {
            m_rim.emplace(start, RimEdge{from, end});
        }
    }
}

/// Takes one closed outline out of the rim; false when it does not close.
/// Each place has one way on, since outlines that touch were refused before.
bool KrMeshPlaneCut::takeLoop(Polygon& loop)
{
    const PlaceKey start = m_rim.begin()->first;
    PlaceKey at = start;
    do {
        const auto found = m_rim.find(at);
        if (found == m_rim.end()) {
            return false;
        }
        loop.push_back(found->second.from);
        at = found->second.to;
        m_rim.erase(found);
    } while (at != start);
    return loop.size() >= 3;
}

/// The corners of the triangles, three each, that fill the outlines; they run counter-clockwise seen from below.
bool KrMeshPlaneCut::triangulate(const std::vector<Polygon>& loops, Polygon& triangles) const
{
    // The rim of what lies below runs clockwise seen from above where it surrounds material, and otherwise about holes.
    const UniqueTessellator tessellator = makeTessellator(m_normal * -1.0);
    if (!tessellator) {
        return false;
    }
    std::size_t numCorners = 0;
    for (const Polygon& loop : loops) {
        numCorners += loop.size();
    }
    Tessellation result;
    // Room for all triangles that a polygon with holes can have: n - 2 for its corners, and two more for each hole.
    result.items.reserve(3 * (numCorners + 2 * loops.size()));
    gluTessBeginPolygon(tessellator.get(), &result);
    for (const Polygon& loop : loops) {
        gluTessBeginContour(tessellator.get());
        for (const Corner& corner : loop) {
            const KrVector& point = m_points[corner.vertex];
            GLdouble place[3] = {point.x(), point.y(), point.z()};
            gluTessVertex(tessellator.get(), place, const_cast<Corner*>(&corner)); // only handed back
        }
        gluTessEndContour(tessellator.get());
    }
    gluTessEndPolygon(tessellator.get());
    for (void* const item : result.items) {
        triangles.push_back(*static_cast<const Corner*>(item));
    }
    return result.isSound && !triangles.empty() && triangles.size() % 3 == 0;
}

// False where the rim does not close, as that of an open surface; the mesh is cut then, without a cap.
bool KrMeshPlaneCut::cap(const std::string& name)
{
    // Which way an outline goes on where two of them touch cannot be told, so there is no cap.
    // Outlines that touch share a place.
    const bool doTouch = std::adjacent_find(m_rim.begin(), m_rim.end(), [](const auto& one, const auto& next) {
                             return one.first == next.first;
                         }) != m_rim.end();
    std::vector<Polygon> loops;
    while (!doTouch && !m_rim.empty()) {
        loops.emplace_back();
        if (!takeLoop(loops.back())) {
            return false;
        }
    }
    Polygon triangles;
    if (loops.empty() || !triangulate(loops, triangles)) {
        return false;
    }
    addCap(triangles, name, m_piece, true);
    addCap(triangles, name, m_newPiece, false);
    return true;
}

// The same triangles close both sides, each looking out of its own.
void KrMeshPlaneCut::addCap(const Polygon& triangles, const std::string& name, std::uint32_t piece, bool isBelow)
{
    const auto own = m_mesh.numNormals + static_cast<std::uint32_t>(m_mesh.cutNormals.size());
    // A normal of its own, which names itself: the cap is flat, whatever the surface around is.
    m_mesh.cutNormals.push_back(KrEdgePoint(own, own, 0.0));
    KrDeformationGroup group(name, piece, true);
    for (std::size_t i = 0; i < triangles.size(); i += 3) {
        KrTriangle triangle;
        for (unsigned int k = 0; k < 3; ++k) {
            // The lower side's looks up.
            const Corner& corner = triangles[i + (isBelow ? 2 - k : k)];
            triangle.setCorner(k, corner.vertex, own, corner.textureCoordinate);
        }
        group.triangles().push_back(triangle);
    }
    m_mesh.groups.push_back(group);
}
