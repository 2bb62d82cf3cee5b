#include <import/mesh/KrMeshNormals.h>

#include <algorithm>
#include <cmath>

namespace
{

// Around the tip of a fan with very many triangles, blending costs the square of their number and shows nothing.
constexpr std::size_t kMaxBlended = 200;
// Height over longest edge below which three points count as a line; single precision carries about 1e-7.
constexpr double kFlatness = 1e-10;

struct Corner
{
    KrTriangle* triangle = nullptr;
    KrVector faceNormal;
    KrVector weighted; ///< face normal times the angle at this corner
    unsigned int number = 0;
};

/// By both sine and cosine: the cosine alone loses the digits of small angles.
double angleAt(const KrVector& tip, const KrVector& a, const KrVector& b)
{
    const KrVector u = a - tip;
    const KrVector v = b - tip;
    return std::atan2(u.cross(v).length(), u.dot(v));
}

/// The corners of all triangles, those of one vertex side by side; `first[v]` is where those of vertex v begin.
std::vector<Corner> cornersByVertex(const std::vector<KrVector>& vertices,
                                    const std::vector<std::vector<KrTriangle>*>& triangles,
                                    std::vector<std::size_t>& first)
{
    // Counted first, filled afterwards: one list for all, instead of one for each vertex.
    first.assign(vertices.size() + 1, 0);
    for (const std::vector<KrTriangle>* list : triangles) {
        for (const KrTriangle& triangle : *list) {
            for (unsigned int k = 0; k < 3; ++k) {
                ++first[triangle.vertex(k) + 1];
            }
        }
    }
    for (std::size_t v = 1; v < first.size(); ++v) {
        first[v] += first[v - 1];
    }
    std::vector<Corner> corners(first.back());
    std::vector<std::size_t> next(first.begin(), first.end() - 1);
    for (std::vector<KrTriangle>* list : triangles) {
        for (KrTriangle& triangle : *list) {
            const KrVector* const p[3] = {&vertices[triangle.vertex(0)], &vertices[triangle.vertex(1)],
                                          &vertices[triangle.vertex(2)]};
            const KrVector normal = KrMeshNormals::faceNormal(*p[0], *p[1], *p[2]);
            for (unsigned int k = 0; k < 3; ++k) {
                const double angle = angleAt(*p[k], *p[(k + 1) % 3], *p[(k + 2) % 3]);
                corners[next[triangle.vertex(k)]++] = {&triangle, normal, normal * angle, k};
            }
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
    std::vector<std::size_t> first;
    const std::vector<Corner> corners = cornersByVertex(vertices, triangles, first);
    // Corners meet at a vertex number: the reader has joined vertices of one place.
    for (std::size_t v = 0; v < vertices.size(); ++v) {
        const bool isFan = first[v + 1] - first[v] > kMaxBlended;
        for (std::size_t i = first[v]; i < first[v + 1]; ++i) {
            const Corner& corner = corners[i];
            KrTriangle& triangle = *corner.triangle;
            // A normal of the file's own stays.
            if (triangle.normal(corner.number) != missing) {
                continue;
            }
            KrVector sum;
            for (std::size_t j = first[v]; j < first[v + 1] && !isFan; ++j) {
                // Also with itself, unless the vertex has too many: then the face stands alone.
                if (corner.faceNormal.dot(corners[j].faceNormal) >= leastCosine) {
                    sum += corners[j].weighted;
                }
            }
            // Normals that cancel each other leave the triangle's own.
            const KrVector normal = sum.normalize() > 0.0 ? sum : corner.faceNormal;
            triangle.setCorner(corner.number, static_cast<std::uint32_t>(v), normals.add(normal),
                               triangle.textureCoordinate(corner.number));
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
