#include <import/mesh/KrMeshNormals.h>

#include <algorithm>
#include <cmath>

namespace
{

// Around the tip of a fan with very many triangles, blending costs the square of their number and shows nothing.
constexpr std::size_t kMaxBlended = 200;
// Height over longest edge below which three points count as a line; single precision carries about 1e-7.
constexpr double kFlatness = 1e-10;

/// By both sine and cosine: the cosine alone loses the digits of small angles.
double angleAt(const KrVector& tip, const KrVector& a, const KrVector& b)
{
    const KrVector u = a - tip;
    const KrVector v = b - tip;
    return std::atan2(u.cross(v).length(), u.dot(v));
}

/// All triangles with what their normals are made of. Corner 3 t + k is corner k of triangle t.
struct Corners
{
    std::vector<KrTriangle*> triangles;
    std::vector<KrVector> faceNormals;      ///< by triangle
    std::vector<double> angles;             ///< by corner, rad
    std::vector<std::uint32_t> byVertex;    ///< corners, those of one vertex side by side
    std::vector<std::size_t> firstOfVertex; ///< where those of each vertex begin in it, and where the last ones end
};

Corners cornersOf(const std::vector<KrVector>& vertices, const std::vector<std::vector<KrTriangle>*>& triangles)
{
    Corners corners;
    // Counted first, filled afterwards: one list for all, instead of one for each vertex.
    std::vector<std::size_t>& first = corners.firstOfVertex;
    first.assign(vertices.size() + 1, 0);
    for (std::vector<KrTriangle>* list : triangles) {
        for (KrTriangle& triangle : *list) {
            corners.triangles.push_back(&triangle);
            for (unsigned int k = 0; k < 3; ++k) {
                ++first[triangle.vertex(k) + 1];
            }
        }
    }
    for (std::size_t v = 1; v < first.size(); ++v) {
        first[v] += first[v - 1];
    }
    corners.byVertex.resize(first.back());
    corners.faceNormals.reserve(corners.triangles.size());
    corners.angles.reserve(first.back());
    std::vector<std::size_t> next(first.begin(), first.end() - 1);
    for (const KrTriangle* const triangle : corners.triangles) {
        const KrVector* const p[3] = {&vertices[triangle->vertex(0)], &vertices[triangle->vertex(1)],
                                      &vertices[triangle->vertex(2)]};
        corners.faceNormals.push_back(KrMeshNormals::faceNormal(*p[0], *p[1], *p[2]));
        for (unsigned int k = 0; k < 3; ++k) {
            corners.byVertex[next[triangle->vertex(k)]++] = static_cast<std::uint32_t>(corners.angles.size());
            corners.angles.push_back(angleAt(*p[k], *p[(k + 1) % 3], *p[(k + 2) % 3]));
        }
    }
    return corners;
}

} // namespace

void KrMeshNormals::fill(const std::vector<KrVector>& vertices, const std::vector<std::vector<KrTriangle>*>& triangles,
                         std::uint32_t missing, KrVectorIndex& normals)
{
    const auto isLacking = [missing](const std::vector<KrTriangle>* list) {
        return std::any_of(list->begin(), list->end(), [missing](const KrTriangle& t) {
            return t.normal(0) == missing || t.normal(1) == missing || t.normal(2) == missing;
        });
    };
    // Most files that have normals have all of them.
    if (std::none_of(triangles.begin(), triangles.end(), isLacking)) {
        return;
    }
    const double leastCosine = std::cos(creaseAngle);
    const Corners corners = cornersOf(vertices, triangles);
    const std::vector<std::size_t>& first = corners.firstOfVertex;
    // Corners meet at a vertex number: the reader has joined vertices of one place.
    for (std::size_t v = 0; v < vertices.size(); ++v) {
        const bool isFan = first[v + 1] - first[v] > kMaxBlended;
        for (std::size_t i = first[v]; i < first[v + 1]; ++i) {
            const std::uint32_t corner = corners.byVertex[i];
            KrTriangle& triangle = *corners.triangles[corner / 3];
            const unsigned int number = corner % 3;
            // A normal of the file's own stays.
            if (triangle.normal(number) != missing) {
                continue;
            }
            const KrVector& faceNormal = corners.faceNormals[corner / 3];
            KrVector sum;
            for (std::size_t j = first[v]; j < first[v + 1] && !isFan; ++j) {
                // Also with itself, unless the vertex has too many: then the face stands alone.
                const std::uint32_t other = corners.byVertex[j];
                const KrVector& otherNormal = corners.faceNormals[other / 3];
                if (faceNormal.dot(otherNormal) >= leastCosine) {
                    sum += otherNormal * corners.angles[other];
                }
            }
            // Normals that cancel each other leave the triangle's own.
            const KrVector normal = sum.normalize() > 0.0 ? sum : faceNormal;
            triangle.setCorner(number, static_cast<std::uint32_t>(v), normals.add(normal),
                               triangle.textureCoordinate(number));
        }
    }
}

KrVector KrMeshNormals::faceNormal(const KrVector& a, const KrVector& b, const KrVector& c)
{
    KrVector u = b - a;
    KrVector v = c - a;
    // Scaled to edges of about 1, so that neither tiny nor huge meshes leave the range of numbers.
    const double size = std::max({u.length(), v.length(), (c - b).length()});
    if (!(size > 0.0) || !std::isfinite(size)) {
        return {};
    }
    u *= 1.0 / size;
    v *= 1.0 / size;
    KrVector normal = u.cross(v);
    // A unit length and the flatness in one step: before it is normalised its length is height over edge.
    return normal.normalize() > kFlatness ? normal : KrVector();
}
