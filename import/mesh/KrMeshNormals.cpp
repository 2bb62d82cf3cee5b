#include <import/mesh/KrMeshNormals.h>

#include <algorithm>
#include <cmath>

namespace
{

// Around the tip of a fan with very many triangles, blending costs the square of their number and shows nothing.
constexpr std::size_t kMaxBlended = 200;
// Height over longest edge below which three points count as a line; single precision carries about 1e-7.
constexpr double kFlatness = 1e-10;

/// KrVector::length() and normalize(), to the last bit, without a call.
double lengthOf(const KrVector& v)
{
    return std::hypot(v.x(), v.y(), v.z());
}

double normalize(KrVector& v)
{
    const double length = lengthOf(v);
    if (length > 0.0) {
        v.set(v.x() / length, v.y() / length, v.z() / length);
    }
    return length;
}

/// By both sine and cosine: the cosine alone loses the digits of small angles.
double angleAt(const KrVector& tip, const KrVector& a, const KrVector& b)
{
    const KrVector u = a - tip;
    const KrVector v = b - tip;
    return std::atan2(lengthOf(u.cross(v)), u.dot(v));
}

/// Goes from vertex to vertex and gives the corners that meet there what they lack. Corner 3 t + k is corner k of
/// triangle t, counted through all lists.
class Filler
{
public:
    Filler(const std::vector<KrVector>& vertices, const std::vector<KrMeshNormals::Triangles>& lists,
           std::uint32_t missing, KrVectorIndex& normals);

    void run();

private:
    struct Corner
    {
        KrTriangle* triangle = nullptr;
        unsigned int number = 0; ///< in its triangle
        KrVector faceNormal;
        KrVector weighted;         ///< by the triangle's angle here, rad
        std::uint64_t blended = 0; ///< a bit for each corner at the vertex; unused where there are more
        std::uint32_t normal = 0;
    };

    Corner cornerAt(std::uint32_t corner) const;
    void fill(std::size_t vertex);
    void compare();
    KrVector sumOf(const Corner& corner) const;
    std::uint32_t normalOf(std::size_t i);

    // Of the bits of a word.
    static constexpr std::size_t kMaxCompared = 64;

    const std::vector<KrVector>& m_vertices;
    const std::vector<KrMeshNormals::Triangles>& m_lists;
    std::uint32_t m_missing;
    double m_leastCosine = std::cos(KrMeshNormals::creaseAngle);
    KrVectorIndex& m_normals;
    std::vector<std::size_t> m_starts;     ///< the number of each list's first triangle
    std::vector<std::uint32_t> m_byVertex; ///< corners, those of one vertex side by side
    std::vector<std::size_t> m_firstAt;    ///< where those of each vertex begin in it, and where the last ones end
    std::vector<Corner> m_corners;         ///< of the vertex in hand
};

Filler::Filler(const std::vector<KrVector>& vertices, const std::vector<KrMeshNormals::Triangles>& lists,
               std::uint32_t missing, KrVectorIndex& normals)
    : m_vertices(vertices)
    , m_lists(lists)
    , m_missing(missing)
    , m_normals(normals)
    // Counted two places on and summed up, the beginnings stand one place on; filling moves each to where it belongs,
    // to the end of its vertex and the beginning of the next.
    , m_firstAt(vertices.size() + 2)
{
    std::size_t numTriangles = 0;
    const auto forEachCorner = [&lists](const auto& work) {
        for (const KrMeshNormals::Triangles& list : lists) {
            for (const KrTriangle& triangle : *list.triangles) {
                work(triangle.vertex(0));
                work(triangle.vertex(1));
                work(triangle.vertex(2));
            }
        }
    };
    for (const KrMeshNormals::Triangles& list : lists) {
        m_starts.push_back(numTriangles);
        numTriangles += list.triangles->size();
    }
    forEachCorner([this](std::uint32_t vertex) { ++m_firstAt[vertex + std::size_t{2}]; });
    for (std::size_t v = 2; v < m_firstAt.size(); ++v) {
        m_firstAt[v] += m_firstAt[v - 1];
    }
    m_byVertex.resize(3 * numTriangles);
    std::uint32_t corner = 0;
    forEachCorner([&](std::uint32_t vertex) { m_byVertex[m_firstAt[vertex + std::size_t{1}]++] = corner++; });
}

void Filler::run()
{
    // Corners meet at a vertex number: the reader has joined vertices of one place.
    for (std::size_t v = 0; v < m_vertices.size(); ++v) {
        fill(v);
    }
}

Filler::Corner Filler::cornerAt(std::uint32_t corner) const
{
    const std::size_t triangle = corner / 3;
    const auto list = std::upper_bound(m_starts.begin() + 1, m_starts.end(), triangle) - m_starts.begin() - 1;
    Corner result;
    result.triangle = m_lists[list].triangles->data() + (triangle - m_starts[list]);
    result.number = corner % 3;
    result.faceNormal = (*m_lists[list].faceNormals)[triangle - m_starts[list]];
    return result;
}

void Filler::fill(std::size_t vertex)
{
    m_corners.clear();
    for (std::size_t i = m_firstAt[vertex]; i < m_firstAt[vertex + 1]; ++i) {
        m_corners.push_back(cornerAt(m_byVertex[i]));
    }
    // A normal of the file's own stays.
    const auto isLacking = [this](const Corner& c) { return c.triangle->normal(c.number) == m_missing; };
    if (std::none_of(m_corners.begin(), m_corners.end(), isLacking)) {
        return;
    }
    // Unless the vertex has too many: then each face stands alone.
    if (m_corners.size() <= kMaxBlended) {
        for (Corner& c : m_corners) {
            const auto at = [&](unsigned int k) -> const KrVector& {
                return m_vertices[c.triangle->vertex((c.number + k) % 3)];
            };
            c.weighted = c.faceNormal * angleAt(at(0), at(1), at(2));
        }
        compare();
    }
    for (std::size_t i = 0; i < m_corners.size(); ++i) {
        Corner& c = m_corners[i];
        if (isLacking(c)) {
            c.normal = normalOf(i);
            c.triangle->setCorner(c.number, static_cast<std::uint32_t>(vertex), c.normal,
                                  c.triangle->textureCoordinate(c.number));
        } else {
            // Nobody takes it over.
            c.blended = 0;
        }
    }
}

/// Which corners blend, for each of them.
void Filler::compare()
{
    const std::size_t count = m_corners.size();
    if (count > kMaxCompared) {
        return;
    }
    // Side by side, because each is looked at once for every other one.
    double x[kMaxCompared];
    double y[kMaxCompared];
    double z[kMaxCompared];
    std::uint64_t blended[kMaxCompared];
    for (std::size_t i = 0; i < count; ++i) {
        const KrVector& normal = m_corners[i].faceNormal;
        x[i] = normal.x();
        y[i] = normal.y();
        z[i] = normal.z();
        blended[i] = 0;
        for (std::size_t j = 0; j < i; ++j) {
            // Of a pair both or none: products do not mind which factor comes first.
            const std::uint64_t isBlended = x[i] * x[j] + y[i] * y[j] + z[i] * z[j] >= m_leastCosine;
            blended[i] |= isBlended << j;
            blended[j] |= isBlended << i;
        }
        // With itself, too, unless it has no direction.
        blended[i] |= std::uint64_t{normal.dot(normal) >= m_leastCosine} << i;
    }
    for (std::size_t i = 0; i < count; ++i) {
        m_corners[i].blended = blended[i];
    }
}

/// Always in the order of the corners, so that the sums of the same ones are equal to the last bit.
KrVector Filler::sumOf(const Corner& corner) const
{
    KrVector sum;
    const std::size_t count = m_corners.size();
    for (std::size_t j = 0; j < count && count <= kMaxBlended; ++j) {
        const bool isBlended = count <= kMaxCompared ? (corner.blended >> j & 1) != 0
                                                     : corner.faceNormal.dot(m_corners[j].faceNormal) >= m_leastCosine;
        if (isBlended) {
            sum += m_corners[j].weighted;
        }
    }
    return sum;
}

std::uint32_t Filler::normalOf(std::size_t i)
{
    const Corner& corner = m_corners[i];
    // Where a surface is smooth all corners blend with the same ones, and have one normal.
    const auto isSame = [&corner](const Corner& other) { return other.blended == corner.blended; };
    const auto end = m_corners.begin() + static_cast<std::ptrdiff_t>(i);
    const auto same = corner.blended != 0 ? std::find_if(m_corners.begin(), end, isSame) : end;
    if (same != end) {
        return same->normal;
    }
    KrVector sum = sumOf(corner);
    // Normals that cancel each other leave the triangle's own.
    return m_normals.add(normalize(sum) > 0.0 ? sum : corner.faceNormal);
}

} // namespace

void KrMeshNormals::fill(const std::vector<KrVector>& vertices, const std::vector<Triangles>& lists,
                         std::uint32_t missing, KrVectorIndex& normals)
{
    const auto isLacking = [missing](const Triangles& list) {
        return std::any_of(list.triangles->begin(), list.triangles->end(), [missing](const KrTriangle& t) {
            return t.normal(0) == missing || t.normal(1) == missing || t.normal(2) == missing;
        });
    };
    // Most files that have normals have all of them.
    if (std::any_of(lists.begin(), lists.end(), isLacking)) {
        Filler(vertices, lists, missing, normals).run();
    }
}

KrVector KrMeshNormals::faceNormal(const KrVector& a, const KrVector& b, const KrVector& c)
{
    KrVector u = b - a;
    KrVector v = c - a;
    // Scaled to edges of about 1, so that neither tiny nor huge meshes leave the range of numbers.
    const double size = std::max({lengthOf(u), lengthOf(v), lengthOf(c - b)});
    if (!(size > 0.0) || !std::isfinite(size)) {
        return {};
    }
    u *= 1.0 / size;
    v *= 1.0 / size;
    KrVector normal = u.cross(v);
    // A unit length and the flatness in one step: before it is normalised its length is height over edge.
    return normalize(normal) > kFlatness ? normal : KrVector();
}
