#include <import/mesh/KrMeshNormals.h>

#include <toolkit/foundation/private/KrParallel.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <utility>

namespace
{

// Around the tip of a fan with very many triangles, blending costs the square of their number and shows nothing.
constexpr std::ptrdiff_t kMaxBlended = 200;
// Height over longest edge below which three points count as a line; single precision carries about 1e-7.
constexpr double kFlatness = 1e-10;

// Of what a thread goes through at a time: much longer than it takes to begin a thread, and a mesh of a few thousand
// vertices gets none.
constexpr std::size_t kPartVertices = 4096;

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

/// The triangles of several lists, and their corners by the vertices that they meet at. Corner 3 t + k is corner k of
/// triangle t, counted through all lists.
class Corners
{
public:
    Corners(const std::vector<KrVector>& vertices, const std::vector<KrMeshNormals::Triangles>& lists);

    /// The triangle of a corner, and its normal.
    std::pair<KrTriangle*, const KrVector*> triangleOf(std::uint32_t corner) const
    {
        const std::size_t number = corner / 3;
        const auto next = std::upper_bound(m_starts.begin() + 1, m_starts.end(), number);
        const auto list = static_cast<std::size_t>(next - m_starts.begin() - 1);
        const std::size_t i = number - m_starts[list];
        return {m_lists[list].triangles->data() + i, m_lists[list].faceNormals->data() + i};
    }
    const std::vector<KrVector>& vertices() const { return m_vertices; }
    /// The corners at a vertex, from the first one on to one behind the last one.
    const std::uint32_t* first(std::size_t vertex) const { return m_byVertex.data() + m_firstAt[vertex]; }

private:
    const std::vector<KrVector>& m_vertices;
    const std::vector<KrMeshNormals::Triangles>& m_lists;
    std::vector<std::size_t> m_starts;     ///< the number of each list's first triangle
    std::vector<std::uint32_t> m_byVertex; ///< corners, those of one vertex side by side
    std::vector<std::size_t> m_firstAt;    ///< where those of each vertex begin in it, and where the last ones end
};

Corners::Corners(const std::vector<KrVector>& vertices, const std::vector<KrMeshNormals::Triangles>& lists)
    : m_vertices(vertices)
    , m_lists(lists)
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

/// Goes from vertex to vertex and finds the normals that the corners there lack. Changes nothing: several may go at
/// once.
class Finder
{
public:
    struct Found
    {
        KrTriangle* triangle = nullptr; ///< null: at the vertex `number` each face stands alone
        std::uint32_t number = 0;       ///< of the triangle's corner
        std::uint32_t normal = 0;       ///< its place in normals()
    };

    Finder(const Corners& corners, std::uint32_t missing)
        : m_all(corners)
        , m_missing(missing)
    {
    }

    /// In place of what was found before.
    void run(std::size_t firstVertex, std::size_t endVertex);
    /// In the order of found(), which is that of the vertices. Some may be equal.
    const std::vector<KrVector>& normals() const { return m_normals; }
    const std::vector<Found>& found() const { return m_found; }

private:
    struct Corner
    {
        KrTriangle* triangle = nullptr;
        std::uint32_t number = 0; ///< in the triangle
        bool isLacking = false;
        std::uint32_t normal = 0;
        std::uint64_t blended = 0; ///< a bit for each corner at the vertex; unused where there are more
        KrVector faceNormal;
        KrVector weighted; ///< by the triangle's angle here, rad
    };

    void find(std::size_t vertex);
    void weigh(Corner& corner) const;
    void compare();
    KrVector sumOf(const Corner& corner) const;
    std::uint32_t normalOf(std::size_t i);

    // Of the bits of a word.
    static constexpr std::size_t kMaxCompared = 64;

    const Corners& m_all;
    std::uint32_t m_missing;
    double m_leastCosine = std::cos(KrMeshNormals::creaseAngle);
    std::vector<Corner> m_corners; ///< of the vertex in hand
    std::vector<KrVector> m_normals;
    std::vector<Found> m_found;
};

void Finder::run(std::size_t firstVertex, std::size_t endVertex)
{
    m_normals.clear();
    m_found.clear();
    for (std::size_t v = firstVertex; v < endVertex; ++v) {
        find(v);
    }
}

void Finder::find(std::size_t vertex)
{
    const std::uint32_t* const first = m_all.first(vertex);
    const std::uint32_t* const end = m_all.first(vertex + 1);
    if (end - first > kMaxBlended) {
        // Half of a mesh may meet there: no memory for each corner.
        m_found.push_back({nullptr, static_cast<std::uint32_t>(vertex), 0});
        return;
    }
    m_corners.clear();
    bool isLacking = false;
    for (const std::uint32_t* number = first; number != end; ++number) {
        const auto [triangle, faceNormal] = m_all.triangleOf(*number);
        Corner& corner = m_corners.emplace_back();
        corner.triangle = triangle;
        corner.number = *number % 3;
        corner.faceNormal = *faceNormal;
        // A normal of the file's own stays.
        corner.isLacking = triangle->normal(corner.number) == m_missing;
        isLacking = isLacking || corner.isLacking;
    }
    if (!isLacking) {
        return;
    }
    std::for_each(m_corners.begin(), m_corners.end(), [this](Corner& corner) { weigh(corner); });
    compare();
    for (std::size_t i = 0; i < m_corners.size(); ++i) {
        Corner& corner = m_corners[i];
        if (corner.isLacking) {
            corner.normal = normalOf(i);
            m_found.push_back({corner.triangle, corner.number, corner.normal});
        }
    }
}

void Finder::weigh(Corner& corner) const
{
    const auto at = [&](unsigned int k) -> const KrVector& {
        return m_all.vertices()[corner.triangle->vertex((corner.number + k) % 3)];
    };
    corner.weighted = corner.faceNormal * angleAt(at(0), at(1), at(2));
}

/// Which corners blend, for each of them.
void Finder::compare()
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
KrVector Finder::sumOf(const Corner& corner) const
{
    KrVector sum;
    const std::size_t count = m_corners.size();
    for (std::size_t j = 0; j < count; ++j) {
        const bool isBlended = count <= kMaxCompared ? (corner.blended >> j & 1) != 0
                                                     : corner.faceNormal.dot(m_corners[j].faceNormal) >= m_leastCosine;
        if (isBlended) {
            sum += m_corners[j].weighted;
        }
    }
    return sum;
}

std::uint32_t Finder::normalOf(std::size_t i)
{
    const Corner& corner = m_corners[i];
    // Where a surface is smooth all corners blend with the same ones, and have one normal.
    const auto isSame = [&corner](const Corner& other) {
        return other.isLacking && other.blended == corner.blended && corner.blended != 0;
    };
    const auto end = m_corners.begin() + static_cast<std::ptrdiff_t>(i);
    const auto same = std::find_if(m_corners.begin(), end, isSame);
    if (same != end) {
        return same->normal;
    }
    KrVector sum = sumOf(corner);
    // Normals that cancel each other leave the triangle's own.
    m_normals.push_back(normalize(sum) > 0.0 ? sum : corner.faceNormal);
    return static_cast<std::uint32_t>(m_normals.size() - 1);
}

void setNormal(KrTriangle& triangle, unsigned int corner, std::uint32_t normal)
{
    triangle.setCorner(corner, triangle.vertex(corner), normal, triangle.textureCoordinate(corner));
}

/// Gives the corners at a vertex that lack a normal that of their triangle.
void setFaceNormals(const Corners& corners, std::size_t vertex, std::uint32_t missing, KrVectorIndex& normals)
{
    for (const std::uint32_t* number = corners.first(vertex); number != corners.first(vertex + 1); ++number) {
        const auto [triangle, faceNormal] = corners.triangleOf(*number);
        if (triangle->normal(*number % 3) == missing) {
            setNormal(*triangle, *number % 3, normals.add(*faceNormal));
        }
    }
}

/// A part of the vertices, and who goes through it.
struct Part
{
    Finder finder;
    std::exception_ptr problem = nullptr; ///< no thread may throw
};

void findIn(Part& part, std::size_t firstVertex, std::size_t endVertex)
{
    try {
        part.finder.run(firstVertex, endVertex);
    } catch (...) {
        part.problem = std::current_exception();
    }
}

} // namespace

void KrMeshNormals::fill(const std::vector<KrVector>& vertices, const std::vector<Triangles>& lists,
                         std::uint32_t missing, std::size_t numThreads, KrVectorIndex& normals)
{
    const auto isLacking = [missing](const Triangles& list) {
        return std::any_of(list.triangles->begin(), list.triangles->end(), [missing](const KrTriangle& t) {
            return t.normal(0) == missing || t.normal(1) == missing || t.normal(2) == missing;
        });
    };
    // Most files that have normals have all of them.
    if (std::none_of(lists.begin(), lists.end(), isLacking)) {
        return;
    }
    const Corners corners(vertices, lists);
    const std::size_t mostParts = vertices.size() / kPartVertices + 1;
    std::vector<Part> parts(std::clamp<std::size_t>(numThreads, 1, mostParts), Part{Finder(corners, missing)});
    std::vector<std::uint32_t> places;
    // Found at once, kept in the order of the vertices, a round of parts after the other: so the result is the same
    // for any number of threads, and what is found takes little memory besides.
    for (std::size_t first = 0; first < vertices.size(); first += parts.size() * kPartVertices) {
        const auto beginOf = [&](std::size_t i) { return std::min(first + i * kPartVertices, vertices.size()); };
        KrParallel::forEach(parts.size(), parts.size(),
                            [&](std::size_t i) { findIn(parts[i], beginOf(i), beginOf(i + 1)); });
        for (const Part& part : parts) {
            if (part.problem) {
                std::rethrow_exception(part.problem);
            }
            places.clear();
            for (const Finder::Found& found : part.finder.found()) {
                if (!found.triangle) {
                    setFaceNormals(corners, found.number, missing, normals);
                    continue;
                }
                // Kept when it is met first.
                if (found.normal == places.size()) {
                    places.push_back(normals.add(part.finder.normals()[found.normal]));
                }
                setNormal(*found.triangle, found.number, places[found.normal]);
            }
        }
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
