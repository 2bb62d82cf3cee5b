#include <toolkit/extent/private/KrNearestSurface.h>

#include <toolkit/extent/private/KrFloat3.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

namespace
{

constexpr std::size_t kLeafSize = 8;
/// Of the triangles around one position, those that a walk looks at.
constexpr std::uint32_t kMostAround = 32;
/// Cosine: faces that look further apart than this are not the same surface. A little beyond a right angle, so that
/// the wall of a step counts for its top.
constexpr float kLeastCosine = -0.2f;

/// Of the cells along each side of the box that triangles are sorted in.
constexpr float kCells = 1023.0f;

/// The bits of a number below 1024, two zeros before each.
std::uint32_t spread(std::uint32_t number)
{
    number = (number | number << 16) & 0x030000ffu;
    number = (number | number << 8) & 0x0300f00fu;
    number = (number | number << 4) & 0x030c30c3u;
    return (number | number << 2) & 0x09249249u;
}

} // namespace

KrNearestSurface::KrNearestSurface(const std::vector<float>& positions, const std::vector<std::uint32_t>& indices)
    : m_triangles(indices.size() / 3)
    , m_firstAround(positions.size() / 3 + 1)
    , m_around(indices.size())
{
    m_order.reserve(m_triangles.size());
    for (std::size_t i = 0; i < m_triangles.size(); ++i) {
        Triangle& triangle = m_triangles[i];
        for (unsigned int k = 0; k < 3; ++k) {
            triangle.indices[k] = indices[3 * i + k];
            ++m_firstAround[triangle.indices[k]];
            const float* const position = &positions[std::size_t{3} * triangle.indices[k]];
            for (unsigned int axis = 0; axis < 3; ++axis) {
                triangle.corners[k][axis] = position[axis];
            }
        }
        KrFloat3 normal = faceNormal(triangle.corners[0], triangle.corners[1], triangle.corners[2]);
        const float length = normalize(normal);
        std::copy(normal.begin(), normal.end(), triangle.normal);
        triangle.firstFirst = triangle.firstSecond = triangle.secondSecond = 0.0;
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const double first = double{triangle.corners[1][axis]} - triangle.corners[0][axis];
            const double second = double{triangle.corners[2][axis]} - triangle.corners[0][axis];
            triangle.firstFirst += first * first;
            triangle.firstSecond += first * second;
            triangle.secondSecond += second * second;
        }
        if (length > 0.0f) {
            m_order.push_back(static_cast<std::uint32_t>(i));
        }
    }
    // Counted, summed up to where each ends, and filled in from there down to where it begins.
    std::partial_sum(m_firstAround.begin(), m_firstAround.end(), m_firstAround.begin());
    for (std::size_t i = indices.size(); i-- > 0;) {
        m_around[--m_firstAround[indices[i]]] = static_cast<std::uint32_t>(i / 3);
    }
}

// Along a curve through the cells of the box that keeps near what is near (Morton, 1966), and that halved again and
// again.
void KrNearestSurface::makeTree()
{
    constexpr float kMost = std::numeric_limits<float>::max();
    KrFloat3 low = {kMost, kMost, kMost}, high = {-kMost, -kMost, -kMost};
    // Three times the middle of a triangle.
    const auto middleOf = [this](std::uint32_t number, unsigned int axis) {
        const auto& corners = m_triangles[number].corners;
        return corners[0][axis] + corners[1][axis] + corners[2][axis];
    };
    for (const std::uint32_t number : m_order) {
        for (unsigned int axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], middleOf(number, axis));
            high[axis] = std::max(high[axis], middleOf(number, axis));
        }
    }
    const float size = std::max({high[0] - low[0], high[1] - low[1], high[2] - low[2]});
    const float scale = size > 0.0f ? kCells / size : 0.0f;
    std::vector<std::uint64_t> places;
    places.reserve(m_order.size());
    for (const std::uint32_t number : m_order) {
        std::uint32_t place = 0;
        for (unsigned int axis = 0; axis < 3; ++axis) {
            // Products of the largest and the smallest floats may be anything.
            const float cell = std::min(kCells, (middleOf(number, axis) - low[axis]) * scale);
            place |= spread(cell > 0.0f ? static_cast<std::uint32_t>(cell) : 0u) << axis;
        }
        places.push_back(std::uint64_t{place} << 32 | number);
    }
    std::sort(places.begin(), places.end());
    std::transform(places.begin(), places.end(), m_order.begin(),
                   [](std::uint64_t place) { return static_cast<std::uint32_t>(place); });
    m_nodes.reserve(m_order.size() / 2 + 1);
    split(0, m_order.size());
}

/// Makes the node of a part of m_order, and those below it.
void KrNearestSurface::split(std::size_t begin, std::size_t end)
{
    const bool isLeaf = end - begin <= kLeafSize;
    const std::size_t self = m_nodes.size();
    m_nodes.emplace_back();
    if (!isLeaf) {
        const std::size_t middle = begin + (end - begin) / 2;
        split(begin, middle);
        m_nodes[self].right = static_cast<std::uint32_t>(m_nodes.size());
        split(middle, end);
        Node& node = m_nodes[self];
        node.count = 0;
        const Node &left = m_nodes[self + 1], &right = m_nodes[node.right];
        for (unsigned int axis = 0; axis < 3; ++axis) {
            node.low[axis] = std::min(left.low[axis], right.low[axis]);
            node.high[axis] = std::max(left.high[axis], right.high[axis]);
        }
        return;
    }
    Node& node = m_nodes[self];
    node.right = static_cast<std::uint32_t>(begin);
    node.count = static_cast<std::uint32_t>(end - begin);
    std::fill_n(node.low, 3, std::numeric_limits<float>::max());
    std::fill_n(node.high, 3, std::numeric_limits<float>::lowest());
    for (std::size_t i = begin; i < end; ++i) {
        for (const auto& corner : m_triangles[m_order[i]].corners) {
            for (unsigned int axis = 0; axis < 3; ++axis) {
                node.low[axis] = std::min(node.low[axis], corner[axis]);
                node.high[axis] = std::max(node.high[axis], corner[axis]);
            }
        }
    }
}

void KrNearestSurface::startAt(std::uint32_t position)
{
    if (m_firstAround[position] < m_firstAround[position + 1]) {
        m_start = position;
        m_last = m_around[m_firstAround[position]];
    }
}

/// All triangles around a position; those of a hub of very many are left to the tree.
template <typename Visit>
void KrNearestSurface::forEachAround(std::uint32_t position, const Visit& visit) const
{
    const std::uint32_t first = m_firstAround[position];
    std::for_each(m_around.begin() + first,
                  m_around.begin() + std::min(m_firstAround[position + 1], first + kMostAround), visit);
}

bool KrNearestSurface::find(const Point& point, float within, float enough, float plenty, Hit& hit)
{
    if (m_order.empty()) {
        return false;
    }
    // From wherever the walk begins, however far that is.
    Search search = {point, hit, std::numeric_limits<float>::max(), plenty * plenty, false};
    tryTriangle(m_last, search);
    if (!search.isFound) {
        forEachAround(m_start, [this, &search](std::uint32_t number) { tryTriangle(number, search); });
    }
    if (search.isFound && search.best > search.plenty) {
        walk(search);
    }
    if (search.best > enough * enough) {
        if (search.best > within * within) {
            search.best = within * within;
            search.isFound = false;
        }
        if (m_nodes.empty()) {
            makeTree();
        }
        descend(search);
    }
    if (search.isFound) {
        hit.distance = std::sqrt(search.best);
        m_last = static_cast<std::uint32_t>(hit.triangle);
    }
    return search.isFound;
}

bool KrNearestSurface::findAny(const float* position, Hit& hit)
{
    Point point = {};
    std::copy_n(position, 3, point.position);
    // Without a direction every face will do. The square of this is finite.
    return find(point, 1e18f, 0.0f, 0.0f, hit);
}

/// The shares of its corners in the point of a triangle that is nearest to `p`: which corner, edge or inside is told
/// by the signs of projections (Ericson, "Real-Time Collision Detection", 5.1.5). In double precision: of needle-like
/// triangles the products are nearly alike.
void KrNearestSurface::nearestWeights(const Triangle& triangle, const float* p, float* weights)
{
    // Of the way from the first corner to the point, along the edges that begin there.
    double d1 = 0.0, d2 = 0.0;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const double corner = triangle.corners[0][axis];
        const double way = p[axis] - corner;
        d1 += (triangle.corners[1][axis] - corner) * way;
        d2 += (triangle.corners[2][axis] - corner) * way;
    }
    // The same from the second corner, and from the third.
    const double d3 = d1 - triangle.firstFirst, d4 = d2 - triangle.firstSecond;
    const double d5 = d1 - triangle.firstSecond, d6 = d2 - triangle.secondSecond;
    const double va = d3 * d6 - d5 * d4, vb = d5 * d2 - d1 * d6, vc = d1 * d4 - d3 * d2;
    double v = 0.0, w = 0.0;
    if (va > 0.0 && vb > 0.0 && vc > 0.0) {
        v = vb / (va + vb + vc);
        w = vc / (va + vb + vc);
    } else if (d1 <= 0.0 && d2 <= 0.0) {
        // The first corner.
    } else if (d3 >= 0.0 && d4 <= d3) {
        v = 1.0;
    } else if (d6 >= 0.0 && d5 <= d6) {
        w = 1.0;
    } else if (vc <= 0.0 && d1 >= 0.0 && d3 <= 0.0) {
        v = d1 / (d1 - d3);
    } else if (vb <= 0.0 && d2 >= 0.0 && d6 <= 0.0) {
        w = d2 / (d2 - d6);
    } else if (va <= 0.0 && d4 >= d3 && d5 >= d6) {
        w = (d4 - d3) / ((d4 - d3) + (d5 - d6));
        v = 1.0 - w;
    } else {
        v = vb / (va + vb + vc);
        w = vc / (va + vb + vc);
    }
    weights[0] = static_cast<float>(1.0 - v - w);
    weights[1] = static_cast<float>(v);
    weights[2] = static_cast<float>(w);
}

void KrNearestSurface::tryTriangle(std::uint32_t number, Search& search) const
{
    const Triangle& triangle = m_triangles[number];
    const float* const p = search.point.position;
    const KrFloat3 fromCorner = difference(p, triangle.corners[0]);
    const float height = dot(triangle.normal, fromCorner.data());
    if (height * height > search.best || dot(triangle.normal, search.point.normal) < kLeastCosine) {
        return;
    }
    float weights[3];
    nearestWeights(triangle, p, weights);
    float sum = 0.0f;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const float out = weights[0] * triangle.corners[0][axis] + weights[1] * triangle.corners[1][axis] +
                          weights[2] * triangle.corners[2][axis] - p[axis];
        sum += out * out;
    }
    if (sum < search.best) {
        search.best = sum;
        search.isFound = true;
        search.hit.triangle = number;
        std::copy_n(weights, 3, search.hit.weights);
    }
}

/// From triangle to triangle, around the corners that have a share in the point found, while that brings it nearer.
void KrNearestSurface::walk(Search& search) const
{
    float before = std::numeric_limits<float>::max();
    while (search.best < before && search.best > search.plenty) {
        before = search.best;
        const Triangle& triangle = m_triangles[search.hit.triangle];
        const float* const weights = search.hit.weights;
        // Inside a triangle nothing around is nearer.
        if (weights[0] > 0.0f && weights[1] > 0.0f && weights[2] > 0.0f) {
            return;
        }
        // On an edge the triangles along it are nearest, at a corner all those around it.
        const auto corner = static_cast<std::size_t>(std::max_element(weights, weights + 3) - weights);
        const std::size_t second = weights[(corner + 1) % 3] > 0.0f ? (corner + 1) % 3 : (corner + 2) % 3;
        const bool isOnEdge = weights[second] > 0.0f;
        const std::uint32_t along = triangle.indices[second];
        const auto known = static_cast<std::uint32_t>(search.hit.triangle);
        forEachAround(triangle.indices[corner], [&](std::uint32_t number) {
            const std::uint32_t(&around)[3] = m_triangles[number].indices;
            if (number != known && (!isOnEdge || around[0] == along || around[1] == along || around[2] == along)) {
                tryTriangle(number, search);
            }
        });
    }
}

void KrNearestSurface::descend(Search& search) const
{
    const auto distanceTo = [&search](const Node& node) {
        float sum = 0.0f;
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const float p = search.point.position[axis];
            const float out = std::max({node.low[axis] - p, p - node.high[axis], 0.0f});
            sum += out * out;
        }
        return sum;
    };
    // Each level of the tree halves the triangles, and leaves one node behind on the stack.
    std::array<std::pair<std::uint32_t, float>, 64> stack;
    std::size_t size = 0;
    stack[size++] = {0u, distanceTo(m_nodes[0])};
    while (size > 0) {
        const auto [at, distance] = stack[--size];
        if (distance > search.best) {
            continue;
        }
        const Node& node = m_nodes[at];
        if (node.count == 0) {
            std::pair<std::uint32_t, float> near = {at + 1, distanceTo(m_nodes[at + 1])};
            std::pair<std::uint32_t, float> far = {node.right, distanceTo(m_nodes[node.right])};
            if (far.second < near.second) {
                std::swap(near, far);
            }
            stack[size++] = far;
            stack[size++] = near;
        }
        for (std::size_t i = node.right; node.count != 0 && i < node.right + node.count; ++i) {
            tryTriangle(m_order[i], search);
        }
    }
}
