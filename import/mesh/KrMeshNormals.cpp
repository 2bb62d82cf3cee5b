#include <import/mesh/KrMeshNormals.h>

#include <toolkit/foundation/private/KrAvx2.h>
#include <toolkit/foundation/private/KrParallel.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <exception>
#include <memory>

namespace
{

// Around the tip of a fan with very many triangles, blending costs the square of their number and shows nothing.
constexpr std::size_t kMostBlended = 200;
// Height over longest edge below which three points count as a line; single precision carries about 1e-7.
constexpr double kFlatness = 1e-10;
// Squares of lengths between which neither a product of four lengths nor its square leaves the range of numbers.
constexpr double kShort = 1e-60;
constexpr double kLong = 1e60;

// Of what a thread goes through at a time: much longer than it takes to begin a thread, and a mesh of a few thousand
// vertices gets none.
constexpr std::size_t kPartVertices = 2048;
constexpr std::size_t kPartTriangles = 4096;
// Between two rounds what was found is taken over by one thread, and threads begin anew.
constexpr std::size_t kPartsOfThread = 8;

// Loops of this length become instructions for several triangles at once.
constexpr std::size_t kBlock = 32;

// Of directions around a vertex that are told apart without comparing each with each.
constexpr std::size_t kMostGroups = 8;

/// The edges of a triangle: b - a, c - a, c - b.
struct Edges
{
    Edges(const KrVector& a, const KrVector& b, const KrVector& c)
        : u(b - a)
        , v(c - a)
        , w(c - b)
    {
        const double longest = longestSquared();
        // Written so that NaN goes there, too.
        if (!(longest > kShort && longest < kLong)) {
            scale();
        }
    }
    double longestSquared() const { return std::max({u.dot(u), v.dot(v), w.dot(w)}); }
    void scale();

    KrVector u;
    KrVector v;
    KrVector w;
};

/// To edges of about 1. A size without an inverse, or one that is not finite, leaves edges that are none.
void Edges::scale()
{
    double size = 0.0;
    for (const KrVector& edge : {u, v, w}) {
        size = std::max({size, std::abs(edge.x()), std::abs(edge.y()), std::abs(edge.z())});
    }
    for (KrVector* const edge : {&u, &v, &w}) {
        *edge *= 1.0 / size;
    }
}

/// A triangle as its corners see it. In single precision, as files have their vertices: these are looked at from
/// three places of memory each.
struct Facet
{
    float normal[3]; ///< unit length
    float angles[3]; ///< at its corners, rad
};

/// The angle, rad, whose sine and cosine have the ratio of `y`, not negative, and `x`; one of them is not zero. By
/// both: the cosine alone loses the digits of small angles.
///
/// The polynomial is the minimax approximation of atan(t) / t for t^2 from 0 to 1, found with the exchange algorithm of
/// Remez for the relative error, which stays below 1e-7.
inline double angleOf(double y, double x)
{
    const double size = std::abs(x);
    const double low = y < size ? y : size;
    const double high = y < size ? size : y;
    const double t = low / high;
    const double s = t * t;
    double angle = -0.00469327605784631;
    angle = angle * s + 0.024252403279073104;
    angle = angle * s - 0.05948639345657555;
    angle = angle * s + 0.09914292856776338;
    angle = angle * s - 0.1401948092241485;
    angle = angle * s + 0.19969723900164751;
    angle = angle * s - 0.33331990746481266;
    angle = angle * s + 0.9999999009903499;
    angle *= t;
    // Products with 1 or -1 instead of branches, which would keep the compiler from doing several at once.
    angle = (y < size ? 0.0 : 1.5707963267948966) + (y < size ? 1.0 : -1.0) * angle;
    return (x < 0.0 ? 3.141592653589793 : 0.0) + (x < 0.0 ? -1.0 : 1.0) * angle;
}

/// Measures triangles that are not degenerate.
void measure(const std::vector<KrVector>& vertices, const KrTriangle* triangles, std::size_t count, Facet* facets)
{
    double y[3 * kBlock];
    double x[3 * kBlock];
    double angles[3 * kBlock];
    for (std::size_t first = 0; first < count; first += kBlock) {
        for (std::size_t i = 0; i < kBlock; ++i) {
            // The last block is filled up with its last triangle.
            const std::size_t number = std::min(first + i, count - 1);
            const KrTriangle& triangle = triangles[number];
            const Edges edges(vertices[triangle.vertex(0)], vertices[triangle.vertex(1)], vertices[triangle.vertex(2)]);
            const KrVector normal = edges.u.cross(edges.v);
            // Twice the area is the length of the cross product at any of the corners.
            const double area = std::sqrt(normal.dot(normal));
            const double inverse = 1.0 / area;
            for (unsigned int k = 0; k < 3; ++k) {
                facets[number].normal[k] = static_cast<float>(normal[k] * inverse);
            }
            x[i] = edges.u.dot(edges.v);
            x[kBlock + i] = -edges.u.dot(edges.w);
            x[2 * kBlock + i] = edges.v.dot(edges.w);
            y[i] = y[kBlock + i] = y[2 * kBlock + i] = area;
        }
        for (std::size_t i = 0; i < 3 * kBlock; ++i) {
            angles[i] = angleOf(y[i], x[i]);
        }
        for (std::size_t i = 0; i < std::min(kBlock, count - first); ++i) {
            for (std::size_t k = 0; k < 3; ++k) {
                facets[first + i].angles[k] = static_cast<float>(angles[k * kBlock + i]);
            }
        }
    }
}

KR_AVX2 void measureWide(const std::vector<KrVector>& vertices, const KrTriangle* triangles, std::size_t count,
                         Facet* facets)
{
    measure(vertices, triangles, count, facets);
}

/// Of the corners at a vertex that are compared at once.
constexpr std::size_t kLanes = 8;
static_assert(kMostBlended % kLanes == 0);

/// The corners at a vertex, side by side.
struct Fan
{
    std::size_t count = 0;
    float x[kMostBlended] = {};
    float y[kMostBlended] = {};
    float z[kMostBlended] = {};
    float angle[kMostBlended] = {};

    void add(const Facet& facet, std::size_t corner)
    {
        x[count] = facet.normal[0];
        y[count] = facet.normal[1];
        z[count] = facet.normal[2];
        angle[count++] = facet.angles[corner];
    }
    float cosine(std::size_t i, std::size_t j) const { return x[i] * x[j] + y[i] * y[j] + z[i] * z[j]; }
    /// A bit for each of the corners from `first` on whose normal leans from that of corner `i` by a cosine of `least`
    /// at least. Of a pair both or none: products do not mind which factor comes first.
    std::uint32_t blended(std::size_t i, std::size_t first, float least) const;
};

constexpr std::uint32_t kLaneBits[kLanes] = {1, 2, 4, 8, 16, 32, 64, 128};

// Loops of a fixed length become instructions for several corners at once, here and below.
std::uint32_t Fan::blended(std::size_t i, std::size_t first, float least) const
{
    const float xi = x[i];
    const float yi = y[i];
    const float zi = z[i];
    std::uint32_t bits = 0;
    for (std::size_t j = 0; j < kLanes; ++j) {
        const float cosine = xi * (x + first)[j] + yi * (y + first)[j] + zi * (z + first)[j];
        bits |= cosine >= least ? kLaneBits[j] : 0u;
    }
    return bits;
}

/// Of normals, each times the angle of its triangle. Those of the same corners are equal to the last bit: they are
/// always added in the order of the corners.
struct Sum
{
    float numbers[3] = {};

    void add(const Fan& fan, std::size_t i)
    {
        numbers[0] += fan.x[i] * fan.angle[i];
        numbers[1] += fan.y[i] * fan.angle[i];
        numbers[2] += fan.z[i] * fan.angle[i];
    }
};

/// Some of the vertices, and what is found around them.
struct Part
{
    Fan fan; ///< at the vertex in hand
    std::vector<Sum> sums;
    std::vector<KrVector> normals;     ///< that the sums come to, nearly all of them different
    std::vector<std::uint32_t> places; ///< in them, by sum
    std::exception_ptr problem;        ///< no thread may throw

    void clear()
    {
        sums.clear();
        normals.clear();
        places.clear();
    }
    /// Adds what gives the normal of corner `i` of the fan. @return its number among the sums
    std::uint32_t add(const Sum& sum, std::size_t i);
    void normalize();

private:
    std::uint32_t placeOf(const KrVector& normal);

    // Flat sides have the same normal at many vertices. The latest one of each hash is kept: that finds nearly all, and
    // takes the same time for any mesh.
    std::array<std::uint32_t, 1024> m_latest;
};

std::uint32_t Part::add(const Sum& sum, std::size_t i)
{
    const bool isNone = sum.numbers[0] == 0.0f && sum.numbers[1] == 0.0f && sum.numbers[2] == 0.0f;
    // Normals that cancel each other leave the triangle's own.
    sums.push_back(isNone ? Sum{{fan.x[i], fan.y[i], fan.z[i]}} : sum);
    return static_cast<std::uint32_t>(sums.size() - 1);
}

/// Several at once: a root and a quotient take long each, and wait for nothing then.
void Part::normalize()
{
    m_latest.fill(UINT32_MAX);
    double units[3][kBlock];
    for (std::size_t first = 0; first < sums.size(); first += kBlock) {
        const std::size_t count = std::min(kBlock, sums.size() - first);
        for (std::size_t i = 0; i < kBlock; ++i) {
            // The last block is filled up with its last sum.
            const Sum& sum = sums[first + std::min(i, count - 1)];
            for (unsigned int k = 0; k < 3; ++k) {
                // Adding 0 makes 0 of -0.
                units[k][i] = sum.numbers[k] + 0.0;
            }
        }
        for (std::size_t i = 0; i < kBlock; ++i) {
            const double length =
                std::sqrt(units[0][i] * units[0][i] + units[1][i] * units[1][i] + units[2][i] * units[2][i]);
            units[0][i] /= length;
            units[1][i] /= length;
            units[2][i] /= length;
        }
        for (std::size_t i = 0; i < count; ++i) {
            places.push_back(placeOf({units[0][i], units[1][i], units[2][i]}));
        }
    }
}

std::uint32_t Part::placeOf(const KrVector& normal)
{
    std::uint64_t bits[3];
    static_assert(sizeof bits == sizeof normal);
    std::memcpy(bits, normal.data(), sizeof bits);
    const std::uint64_t hash =
        bits[0] * 0xbf58476d1ce4e5b9u + bits[1] * 0x94d049bb133111ebu + bits[2] * 0x9e3779b97f4a7c15u;
    std::uint32_t& last = m_latest[hash >> 54];
    if (last == UINT32_MAX || !(normals[last] == normal)) {
        last = static_cast<std::uint32_t>(normals.size());
        normals.push_back(normal);
    }
    return last;
}

/// Finds the normals of corners, in three steps. Corner 3 t + k is corner k of triangle t, counted through all lists.
class Finder
{
public:
    Finder(const std::vector<KrVector>& vertices, const std::vector<std::vector<KrTriangle>*>& lists,
           std::uint32_t missing);

    /// Measures the triangles, and sorts the corners by the vertices that they meet at.
    void prepare(std::size_t numThreads);
    /// Finds the normals around all vertices.
    void find(std::size_t numThreads, std::vector<KrVector>& normals);
    /// Gives the corners their normals.
    void apply(std::vector<KrVector>& normals);

private:
    /// Of a list of triangles.
    struct Range
    {
        const KrTriangle* triangles = nullptr;
        std::size_t count = 0;
        std::size_t firstNumber = 0; ///< of the first one, through all lists
    };
    void sortCorners();
    void findIn(std::size_t firstVertex, std::size_t endVertex, Part& part);
    KR_AVX2 void findInWide(std::size_t firstVertex, std::size_t endVertex, Part& part)
    {
        findIn(firstVertex, endVertex, part);
    }
    void findAt(std::size_t vertex, Part& part);
    bool findByGroups(const std::uint32_t* corners, Part& part);
    void findByPairs(const std::uint32_t* corners, Part& part);
    void findOneByOne(const std::uint32_t* corners, Part& part);

    /// In the place of a normal's number: that of the triangle.
    static constexpr std::uint32_t kOwn = UINT32_MAX - 1;
    /// Of the bits of a word.
    static constexpr std::size_t kMostCompared = 64;
    static constexpr std::uint32_t kNone = UINT32_MAX;

    const std::vector<KrVector>& m_vertices;
    const std::vector<std::vector<KrTriangle>*>& m_lists;
    const std::uint32_t m_missing;
    const float m_leastCosine = static_cast<float>(std::cos(KrMeshNormals::creaseAngle));
    const float m_closeCosine = static_cast<float>(std::cos(0.5 * KrMeshNormals::creaseAngle));
    const float m_apartCosine = static_cast<float>(std::cos(2.0 * KrMeshNormals::creaseAngle));
    std::vector<Range> m_ranges;
    std::unique_ptr<Facet[]> m_facets;
    std::unique_ptr<std::uint32_t[]> m_byVertex; ///< corners, those of one vertex side by side
    std::vector<std::uint32_t> m_firstAt;     ///< where those of each vertex begin in it, and where the last ones end
    std::unique_ptr<std::uint32_t[]> m_found; ///< by corner: the number of its sum in its part; m_missing until then
    std::vector<std::uint32_t> m_places;      ///< of the normals, by sum, one part behind the other
    std::vector<std::size_t> m_firstPlace;    ///< in it, by part
};

Finder::Finder(const std::vector<KrVector>& vertices, const std::vector<std::vector<KrTriangle>*>& lists,
               std::uint32_t missing)
    : m_vertices(vertices)
    , m_lists(lists)
    , m_missing(missing)
    // Counted two places on and summed up, the beginnings stand one place on; filling moves each to where it belongs,
    // to the end of its vertex and the beginning of the next.
    , m_firstAt(vertices.size() + 2)
{
    std::size_t numTriangles = 0;
    for (const std::vector<KrTriangle>* const list : lists) {
        for (std::size_t first = 0; first < list->size(); first += kPartTriangles) {
            const std::size_t count = std::min(kPartTriangles, list->size() - first);
            m_ranges.push_back({list->data() + first, count, numTriangles + first});
        }
        numTriangles += list->size();
    }
    // Not cleared: all of it is written before it is read.
    m_facets.reset(new Facet[numTriangles]);
    m_byVertex.reset(new std::uint32_t[3 * numTriangles]);
    m_found.reset(new std::uint32_t[3 * numTriangles]);
}

void Finder::prepare(std::size_t numThreads)
{
    KrParallel::forEach(1 + m_ranges.size(), std::min(numThreads, m_ranges.size()), [this](std::size_t i) {
        if (i == 0) {
            sortCorners();
            return;
        }
        const Range& range = m_ranges[i - 1];
        (KrAvx2::isThere() ? measureWide : measure)(m_vertices, range.triangles, range.count,
                                                    m_facets.get() + range.firstNumber);
    });
}

void Finder::sortCorners()
{
    for (const std::vector<KrTriangle>* const list : m_lists) {
        for (const KrTriangle& triangle : *list) {
            for (unsigned int k = 0; k < 3; ++k) {
                ++m_firstAt[triangle.vertex(k) + std::size_t{2}];
            }
        }
    }
    for (std::size_t v = 2; v < m_firstAt.size(); ++v) {
        m_firstAt[v] += m_firstAt[v - 1];
    }
    std::uint32_t corner = 0;
    for (const std::vector<KrTriangle>* const list : m_lists) {
        for (const KrTriangle& triangle : *list) {
            for (unsigned int k = 0; k < 3; ++k) {
                m_found[corner] = triangle.normal(k);
                m_byVertex[m_firstAt[triangle.vertex(k) + std::size_t{1}]++] = corner++;
            }
        }
    }
}

// Found at once, kept in the order of the vertices, a round of parts after the other: so the result is the same for any
// number of threads, and what is found takes little memory besides.
void Finder::find(std::size_t numThreads, std::vector<KrVector>& normals)
{
    const std::size_t numParts = (m_vertices.size() + kPartVertices - 1) / kPartVertices;
    // Alone, a thread goes through one part after the other, in memory that stays in its cache.
    std::vector<Part> parts(std::min(numParts, numThreads > 1 ? numThreads * kPartsOfThread : 1));
    for (std::size_t first = 0; first < numParts; first += parts.size()) {
        const std::size_t count = std::min(parts.size(), numParts - first);
        KrParallel::forEach(count, numThreads, [&](std::size_t i) {
            const std::size_t begin = (first + i) * kPartVertices;
            const std::size_t end = std::min(begin + kPartVertices, m_vertices.size());
            KrAvx2::isThere() ? findInWide(begin, end, parts[i]) : findIn(begin, end, parts[i]);
        });
        for (std::size_t i = 0; i < count; ++i) {
            if (parts[i].problem) {
                std::rethrow_exception(parts[i].problem);
            }
            const auto before = static_cast<std::uint32_t>(normals.size());
            normals.insert(normals.end(), parts[i].normals.begin(), parts[i].normals.end());
            m_firstPlace.push_back(m_places.size());
            for (const std::uint32_t place : parts[i].places) {
                m_places.push_back(before + place);
            }
        }
    }
}

void Finder::findIn(std::size_t firstVertex, std::size_t endVertex, Part& part)
{
    try {
        part.clear();
        for (std::size_t v = firstVertex; v < endVertex; ++v) {
            findAt(v, part);
        }
        part.normalize();
    } catch (...) {
        part.problem = std::current_exception();
    }
}

void Finder::findAt(std::size_t vertex, Part& part)
{
    const std::uint32_t* const corners = m_byVertex.get() + m_firstAt[vertex];
    const std::size_t count = m_firstAt[vertex + 1] - m_firstAt[vertex];
    const auto isLacking = [this](std::uint32_t corner) { return m_found[corner] == m_missing; };
    if (count > kMostBlended) {
        // Half of a mesh may meet there: no memory for each corner.
        for (std::size_t i = 0; i < count; ++i) {
            m_found[corners[i]] = kOwn;
        }
        return;
    }
    if (std::none_of(corners, corners + count, isLacking)) {
        return;
    }
    part.fan.count = 0;
    for (std::size_t i = 0; i < count; ++i) {
        part.fan.add(m_facets[corners[i] / 3], corners[i] % 3);
    }
    if (findByGroups(corners, part)) {
        return;
    }
    if (count <= kMostCompared) {
        findByPairs(corners, part);
    } else {
        findOneByOne(corners, part);
    }
}

/// For smooth vertices and clear edges: groups of triangles each of which leans less than half the crease angle from
/// the first one of its group, while these lean more than twice that angle from one another. So all of a group blend,
/// and with no other.
/// @return false where the triangles are other than that; nothing is found then
bool Finder::findByGroups(const std::uint32_t* corners, Part& part)
{
    const Fan& fan = part.fan;
    std::size_t firstOf[kMostGroups];
    std::uint8_t groups[kMostBlended];
    std::size_t numGroups = 0;
    for (std::size_t i = 0; i < fan.count; ++i) {
        std::size_t group = 0;
        for (; group < numGroups; ++group) {
            const float cosine = fan.cosine(firstOf[group], i);
            if (cosine >= m_closeCosine) {
                break;
            }
            if (cosine >= m_apartCosine) {
                return false;
            }
        }
        if (group == numGroups) {
            if (numGroups == kMostGroups) {
                return false;
            }
            firstOf[numGroups++] = i;
        }
        groups[i] = static_cast<std::uint8_t>(group);
    }
    Sum sums[kMostGroups];
    for (std::size_t i = 0; i < fan.count; ++i) {
        sums[groups[i]].add(fan, i);
    }
    std::uint32_t numbers[kMostGroups];
    std::fill_n(numbers, numGroups, kNone);
    for (std::size_t i = 0; i < fan.count; ++i) {
        std::uint32_t& number = numbers[groups[i]];
        std::uint32_t& found = m_found[corners[i]];
        // A normal of the file's own stays.
        if (found != m_missing) {
            continue;
        }
        if (number == kNone) {
            number = part.add(sums[groups[i]], i);
        }
        found = number;
    }
    return true;
}

void Finder::findByPairs(const std::uint32_t* corners, Part& part)
{
    const Fan& fan = part.fan;
    // Which corners blend, for each of them: a bit for each.
    std::uint64_t blended[kMostCompared];
    for (std::size_t i = 0; i < fan.count; ++i) {
        std::uint64_t own = 0;
        for (std::size_t first = 0; first < fan.count; first += kLanes) {
            own |= std::uint64_t{fan.blended(i, first, m_leastCosine)} << first;
        }
        // What stands behind the corners is left from other vertices.
        blended[i] = own & ~std::uint64_t{0} >> (64 - fan.count);
    }
    for (std::size_t i = 0; i < fan.count; ++i) {
        if (m_found[corners[i]] != m_missing) {
            continue;
        }
        Sum sum;
        // From the lowest bit on; each is taken out when it is done.
        for (std::uint64_t rest = blended[i]; rest != 0; rest &= rest - 1) {
            sum.add(fan, static_cast<std::size_t>(__builtin_ctzll(rest)));
        }
        const std::uint32_t number = part.add(sum, i);
        // Where a surface is smooth all corners blend with the same ones, and have one normal.
        for (std::size_t j = i; j < fan.count; ++j) {
            if (blended[j] == blended[i] && m_found[corners[j]] == m_missing) {
                m_found[corners[j]] = number;
            }
        }
    }
}

/// For any number of corners, without memory for each pair of them.
void Finder::findOneByOne(const std::uint32_t* corners, Part& part)
{
    const Fan& fan = part.fan;
    for (std::size_t i = 0; i < fan.count; ++i) {
        if (m_found[corners[i]] != m_missing) {
            continue;
        }
        Sum sum;
        for (std::size_t j = 0; j < fan.count; ++j) {
            if (fan.cosine(i, j) >= m_leastCosine) {
                sum.add(fan, j);
            }
        }
        m_found[corners[i]] = part.add(sum, i);
    }
}

void Finder::apply(std::vector<KrVector>& normals)
{
    std::size_t corner = 0;
    for (std::vector<KrTriangle>* const list : m_lists) {
        for (KrTriangle& triangle : *list) {
            for (unsigned int k = 0; k < 3; ++k, ++corner) {
                if (triangle.normal(k) != m_missing) {
                    continue;
                }
                const std::uint32_t vertex = triangle.vertex(k);
                const std::uint32_t found = m_found[corner];
                std::uint32_t number = 0;
                if (found == kOwn) {
                    const float* const own = m_facets[corner / 3].normal;
                    KrVector normal(own[0], own[1], own[2]);
                    normal.normalize();
                    number = static_cast<std::uint32_t>(normals.size());
                    normals.push_back(normal);
                } else {
                    number = m_places[m_firstPlace[vertex / kPartVertices] + found];
                }
                triangle.setCorner(k, vertex, number, triangle.textureCoordinate(k));
            }
        }
    }
}

} // namespace

void KrMeshNormals::fill(const std::vector<KrVector>& vertices, const std::vector<std::vector<KrTriangle>*>& lists,
                         std::uint32_t missing, std::size_t numThreads, std::vector<KrVector>& normals)
{
    const auto isLacking = [missing](const std::vector<KrTriangle>* list) {
        return std::any_of(list->begin(), list->end(), [missing](const KrTriangle& t) {
            return t.normal(0) == missing || t.normal(1) == missing || t.normal(2) == missing;
        });
    };
    // Most files that have normals have all of them.
    if (std::none_of(lists.begin(), lists.end(), isLacking)) {
        return;
    }
    Finder finder(vertices, lists, missing);
    finder.prepare(numThreads);
    finder.find(numThreads, normals);
    finder.apply(normals);
}

bool KrMeshNormals::isDegenerate(const KrVector& a, const KrVector& b, const KrVector& c)
{
    const Edges edges(a, b, c);
    const KrVector normal = edges.u.cross(edges.v);
    // Twice the area over the square of the longest edge is the height over that edge.
    const double least = kFlatness * edges.longestSquared();
    return !(normal.dot(normal) > least * least);
}
