#include <toolkit/extent/private/KrTriangleOrder.h>

#include <meshoptimizer.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>
#include <vector>

namespace
{

/// Pairs of triangles that meet in a place. Ordinary meshes have six of them a corner.
constexpr std::uint64_t kMostWork = std::uint64_t{1} << 24;
constexpr std::uint64_t kMostWorkPerCorner = 128;

/// Three positions in rising order.
using Triangle = std::array<std::uint32_t, 3>;

Triangle sorted(std::uint32_t a, std::uint32_t b, std::uint32_t c)
{
    const std::uint32_t low = std::min(a, b), high = std::max(a, b);
    return {std::min(low, c), std::max(low, std::min(high, c)), std::max(high, c)};
}

void sort(std::vector<Triangle>& triangles)
{
    const auto [first, last] = std::minmax_element(triangles.begin(), triangles.end());
    const std::uint32_t low = triangles.empty() ? 0 : (*first)[0];
    const std::size_t numLowest = triangles.empty() ? 0 : (*last)[0] - low + std::size_t{1};
    if (numLowest > 16 * triangles.size()) {
        std::sort(triangles.begin(), triangles.end());
        return;
    }
    // By the lowest position first, in one go: hardly more than two have the same one. Counted, summed up to where each
    // ends, and filled in from there down to where it begins.
    std::vector<std::uint32_t> begins(numLowest + 1);
    for (const Triangle& triangle : triangles) {
        ++begins[triangle[0] - low];
    }
    std::partial_sum(begins.begin(), begins.end(), begins.begin());
    std::vector<Triangle> result(triangles.size());
    for (const Triangle& triangle : triangles) {
        result[--begins[triangle[0] - low]] = triangle;
    }
    for (std::size_t i = 0; i < numLowest; ++i) {
        std::sort(result.begin() + begins[i], result.begin() + begins[i + 1]);
    }
    triangles = std::move(result);
}

/// Whether two triangles have the same three positions, in whatever order.
bool areDoubled(const std::uint32_t* positions, std::size_t count)
{
    std::vector<Triangle> triangles;
    triangles.reserve(count / 3);
    for (std::size_t i = 0; i < count; i += 3) {
        const Triangle triangle = sorted(positions[i], positions[i + 1], positions[i + 2]);
        // One without an area is not seen, whatever covers it.
        if (triangle[0] != triangle[1] && triangle[1] != triangle[2]) {
            triangles.push_back(triangle);
        }
    }
    sort(triangles);
    return std::adjacent_find(triangles.begin(), triangles.end()) != triangles.end();
}

} // namespace

bool KrTriangleOrder::isCrowded(const std::uint32_t* corners, std::size_t count, std::size_t numPlaces)
{
    std::vector<std::uint64_t> around(numPlaces);
    std::for_each(corners, corners + count, [&around](std::uint32_t corner) { ++around[corner]; });
    const std::uint64_t work = std::accumulate(around.begin(), around.end(), std::uint64_t{0},
                                               [](std::uint64_t sum, std::uint64_t n) { return sum + n * n; });
    return work > kMostWork + kMostWorkPerCorner * count;
}

void KrTriangleOrder::optimize(std::uint32_t* indices, const std::uint32_t* positions, std::size_t count)
{
    if (count == 0 || areDoubled(positions, count)) {
        return;
    }
    // The library keeps a record for every vertex up to the last one; those before the first one are left out. What is
    // still far more than the triangles' own is a few triangles of a large mesh, and not worth its time.
    std::uint32_t* const end = indices + count;
    const std::uint32_t first = *std::min_element(indices, end);
    const std::size_t numVertices = *std::max_element(indices, end) - first + std::size_t{1};
    if (numVertices > 16 * count) {
        return;
    }
    std::for_each(indices, end, [first](std::uint32_t& index) { index -= first; });
    if (!isCrowded(indices, count, numVertices)) {
        meshopt_optimizeVertexCacheFifo(indices, indices, count, numVertices, 16);
    }
    std::for_each(indices, end, [first](std::uint32_t& index) { index += first; });
}
