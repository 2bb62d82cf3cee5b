#include <toolkit/extent/private/KrLevelNormals.h>

#include <toolkit/extent/private/KrIndexedMesh.h>
#include <toolkit/extent/private/KrMeshPlaces.h>

#include <algorithm>
#include <array>
#include <numeric>

namespace
{

constexpr std::size_t kVertexWidth = 6;
/// Cosines of 3 and of 1 degrees: corners as alike as this share a vertex, and take one of level 0.
constexpr float kAlike = 0.99863f;
constexpr float kSame = 0.99985f;
/// Samples that the normal of level 0 counts for: as good as nothing, where there are others.
constexpr float kPriorWeight = 0.05f;
/// Vertices and normals at one place, that are looked at: the hub of a huge fan must not take the square of its size.
constexpr std::uint32_t kMostAround = 64;
/// Of the sum of the diagonal, added to it: what the samples do not tell (they may all lie in a row) stays as it was.
constexpr double kDamping = 0.01;

/// The sums of a least-squares fit of three corners' normals.
struct Sums
{
    /// Of products of weights: corners 00, 11, 22, 01, 02, 12.
    std::array<float, 6> weights = {};
    std::array<KrFloat3, 3> normals = {};
};

/// Solves for three vectors x: (the symmetric matrix of `weights`, plus `damping` on its diagonal) x = right.
std::array<KrFloat3, 3> solve(const std::array<float, 6>& weights, double damping,
                              const std::array<std::array<double, 3>, 3>& right)
{
    const double a = weights[0] + damping, b = weights[1] + damping, c = weights[2] + damping;
    const double d = weights[3], e = weights[4], f = weights[5];
    // The inverse is the matrix of cofactors, symmetric as well, over the determinant; damping keeps that from 0.
    const double inverse[3][3] = {{b * c - f * f, e * f - d * c, d * f - e * b},
                                  {e * f - d * c, a * c - e * e, d * e - a * f},
                                  {d * f - e * b, d * e - a * f, a * b - d * d}};
    const double determinant = a * inverse[0][0] + d * inverse[0][1] + e * inverse[0][2];
    std::array<KrFloat3, 3> result;
    for (unsigned int i = 0; i < 3; ++i) {
        for (unsigned int axis = 0; axis < 3; ++axis) {
            result[i][axis] = static_cast<float>(
                (inverse[i][0] * right[0][axis] + inverse[i][1] * right[1][axis] + inverse[i][2] * right[2][axis]) /
                determinant);
        }
    }
    return result;
}

} // namespace

KrLevelNormals::KrLevelNormals(const KrIndexedMesh& mesh, const KrMeshPlaces& places)
    : m_mesh(mesh)
    , m_places(places)
    , m_firstAt(places.groups.size() + 1)
    , m_at(places.corners.size())
{
    // Counted, summed up to where each ends, and filled in from there down to where it begins.
    for (const std::uint32_t place : places.corners) {
        ++m_firstAt[place];
    }
    std::partial_sum(m_firstAt.begin(), m_firstAt.end(), m_firstAt.begin());
    for (std::size_t i = places.corners.size(); i-- > 0;) {
        m_at[--m_firstAt[places.corners[i]]] = places.vertices[i];
    }
}

const float* KrLevelNormals::normalOf(std::uint32_t vertex) const
{
    return &m_mesh.vertices[kVertexWidth * vertex + 3];
}

/// The vertex of level 0 at a place whose normal is nearest to the one given.
std::uint32_t KrLevelNormals::likeliest(std::uint32_t place, const KrFloat3& normal) const
{
    const std::uint32_t begin = m_firstAt[place], end = std::min(m_firstAt[place + 1], begin + kMostAround);
    std::uint32_t result = m_at[begin];
    float largest = dot(normalOf(result), normal.data());
    for (std::uint32_t i = begin + 1; i < end; ++i) {
        // Most corners of a place have the same vertex.
        const float cosine = m_at[i] == result ? largest : dot(normalOf(m_at[i]), normal.data());
        if (cosine > largest) {
            largest = cosine;
            result = m_at[i];
        }
    }
    return result;
}

std::vector<KrLevelNormals::Corner> KrLevelNormals::fitted(const std::vector<std::uint32_t>& corners,
                                                           const std::vector<std::uint32_t>& survivors,
                                                           const std::vector<KrLevelSample>& samples) const
{
    std::vector<Corner> result(corners.size());
    std::vector<Sums> sums(corners.size() / 3);
    for (const KrLevelSample& sample : samples) {
        Sums& sum = sums[sample.triangle];
        const float* const w = sample.weights;
        const float products[6] = {w[0] * w[0], w[1] * w[1], w[2] * w[2], w[0] * w[1], w[0] * w[2], w[1] * w[2]};
        for (unsigned int i = 0; i < 6; ++i) {
            sum.weights[i] += products[i];
        }
        for (unsigned int corner = 0; corner < 3; ++corner) {
            for (unsigned int axis = 0; axis < 3; ++axis) {
                sum.normals[corner][axis] += w[corner] * sample.normal[axis];
            }
        }
    }
    for (std::size_t t = 0; t < sums.size(); ++t) {
        const std::uint32_t* const corner = &corners[3 * t];
        if (survivors[t] != kNone) {
            for (unsigned int k = 0; k < 3; ++k) {
                const float* const normal = normalOf(m_places.vertices[std::size_t{3} * survivors[t] + k]);
                result[3 * t + k] = {{normal[0], normal[1], normal[2]}, sums[t].weights[k] + kPriorWeight};
            }
            continue;
        }
        KrFloat3 face =
            faceNormal(m_places.position(corner[0]), m_places.position(corner[1]), m_places.position(corner[2]));
        normalize(face);
        const double damping = kPriorWeight + kDamping * (sums[t].weights[0] + sums[t].weights[1] + sums[t].weights[2]);
        std::array<std::array<double, 3>, 3> right;
        for (unsigned int k = 0; k < 3; ++k) {
            const float* const prior = normalOf(likeliest(corner[k], face));
            for (unsigned int axis = 0; axis < 3; ++axis) {
                right[k][axis] = sums[t].normals[k][axis] + damping * prior[axis];
            }
        }
        std::array<KrFloat3, 3> normals = solve(sums[t].weights, damping, right);
        for (unsigned int k = 0; k < 3; ++k) {
            // Extremes of a fit may cancel out.
            if (!(normalize(normals[k]) > 0.0f)) {
                normals[k] = face;
            }
            result[3 * t + k] = {normals[k], sums[t].weights[k] + kPriorWeight};
        }
    }
    return result;
}

std::uint32_t KrLevelNormals::vertexWith(std::uint32_t place, const float* position, const KrFloat3& normal,
                                         KrIndexedMesh& result)
{
    const std::uint32_t known = likeliest(place, normal);
    if (std::equal(position, position + 3, m_places.position(place)) && dot(normalOf(known), normal.data()) > kSame) {
        return known;
    }
    // Behind those of level 0, in the order in which they come. All vertices at a place have its texture coordinates.
    std::array<float, kVertexWidth + 2> row = {position[0], position[1], position[2], normal[0], normal[1], normal[2]};
    if (!m_mesh.textureCoordinates.empty()) {
        std::copy_n(&m_mesh.textureCoordinates[std::size_t{2} * known], 2, &row[kVertexWidth]);
    }
    const std::size_t count = m_added.size();
    const std::uint32_t number = m_added.number(row);
    if (m_added.size() > count) {
        result.vertices.insert(result.vertices.end(), row.begin(), row.begin() + kVertexWidth);
        if (!m_mesh.textureCoordinates.empty()) {
            result.textureCoordinates.insert(result.textureCoordinates.end(), row.begin() + kVertexWidth, row.end());
        }
    }
    return static_cast<std::uint32_t>(m_mesh.numVertices()) + number;
}

std::vector<std::uint32_t> KrLevelNormals::vertices(const std::vector<std::uint32_t>& corners,
                                                    const std::vector<std::uint32_t>& survivors,
                                                    const std::vector<float>& positions,
                                                    const std::vector<Corner>& fitted, KrIndexedMesh& result)
{
    // Corners by place.
    std::vector<std::uint32_t> ends(m_places.groups.size() + 1);
    for (const std::uint32_t place : corners) {
        ++ends[place + 1];
    }
    std::partial_sum(ends.begin(), ends.end(), ends.begin());
    std::vector<std::uint32_t> order(corners.size());
    for (std::uint32_t i = 0; i < corners.size(); ++i) {
        order[ends[corners[i]]++] = i;
    }

    struct Cluster
    {
        KrFloat3 first; ///< normal of its heaviest corner, with which the others are compared
        KrFloat3 sum;
        std::uint32_t vertex;
    };
    std::vector<Cluster> clusters;
    std::vector<std::size_t> clusterOf;
    std::vector<std::uint32_t> vertexOf(corners.size());
    for (std::uint32_t begin = 0, end = 0; begin < order.size(); begin = end) {
        const std::uint32_t place = corners[order[begin]];
        while (end < order.size() && corners[order[end]] == place) {
            ++end;
        }
        std::sort(order.begin() + begin, order.begin() + end, [&fitted](std::uint32_t a, std::uint32_t b) {
            return fitted[a].weight != fitted[b].weight ? fitted[a].weight > fitted[b].weight : a < b;
        });
        clusters.clear();
        clusterOf.clear();
        for (std::uint32_t i = begin; i < end; ++i) {
            const Corner& corner = fitted[order[i]];
            const auto last =
                clusters.begin() + std::min<std::ptrdiff_t>(clusters.end() - clusters.begin(), kMostAround);
            auto alike = std::find_if(clusters.begin(), last, [&corner](const Cluster& cluster) {
                return dot(cluster.first.data(), corner.normal.data()) > kAlike;
            });
            alike = alike == last ? clusters.end() : alike;
            clusterOf.push_back(static_cast<std::size_t>(alike - clusters.begin()));
            if (alike == clusters.end()) {
                clusters.push_back({corner.normal, {}, kNone});
            }
            Cluster& cluster = clusters[clusterOf.back()];
            for (unsigned int axis = 0; axis < 3; ++axis) {
                cluster.sum[axis] += corner.weight * corner.normal[axis];
            }
        }
        for (Cluster& cluster : clusters) {
            normalize(cluster.sum);
        }
        for (std::uint32_t i = begin; i < end; ++i) {
            const std::uint32_t survivor = survivors[order[i] / 3];
            Cluster& cluster = clusters[clusterOf[i - begin]];
            if (survivor != kNone) {
                vertexOf[order[i]] = m_places.vertices[std::size_t{3} * survivor + order[i] % 3];
                continue;
            }
            // Made when it is used: a survivor's cluster may need none.
            if (cluster.vertex == kNone) {
                cluster.vertex = vertexWith(place, &positions[std::size_t{3} * order[i]], cluster.sum, result);
            }
            vertexOf[order[i]] = cluster.vertex;
        }
    }
    return vertexOf;
}
