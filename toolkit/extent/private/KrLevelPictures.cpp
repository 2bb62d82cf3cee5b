#include <toolkit/extent/private/KrLevelPictures.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

namespace
{

/// Triangles of a block. A multiple of what vector registers hold.
constexpr std::size_t kBlock = 16;

constexpr std::uint32_t kNothing = 0xffffffffu;
/// An even number.
constexpr std::size_t kNumViews = 8;
/// Points of a picture's side. Few triangles cost little.
constexpr std::size_t kSmallestWidth = 24;
constexpr std::size_t kLargestWidth = 36;
/// Of so many columns every point is looked at.
constexpr std::int32_t kFewColumns = 4;
constexpr float kVisible = 16.0f / 255.0f;
/// Between a body and what is behind it, or another group.
constexpr float kContrast = 0.35f;
/// A mean difference of 1 of 255 counts as this share of the points.
constexpr double kOfMean = 0.0072 * 255.0;
/// What is shown under a lamp, at the corners and between these: light by the cosine, and a highlight by its 16th
/// power.
constexpr float kDiffuse = 0.7f;
constexpr float kHighlight = 0.2f;
/// Right, up, towards the eye: from behind its shoulder. Unit.
constexpr float kTowardsLamp[3] = {0.4f, 0.5f, 0.768f};

/// One number of each triangle of a block. Loops over these have a length that compilers know, and no branches: vector
/// instructions come of them.
template <typename Number>
using Lanes = std::array<Number, kBlock>;

// By value: with references, as std::min has them, no vector instructions come of a loop. NaN gives the first one.
float lesser(float a, float b)
{
    return b < a ? b : a;
}

float greater(float a, float b)
{
    return b > a ? b : a;
}

/// Where along a row a weight is not negative.
class Edge
{
public:
    /// @param growth  of the weight, from point to point
    explicit Edge(float growth)
        : m_isRising(growth > 0.0f)
        , m_toZero(std::abs(growth) > kLeastGrowth ? -1.0f / growth : 0.0f)
    {
    }

    /// @param weight  at the row's first point
    /// @param from    points from there on; raised where the weight is negative before, though never beyond `to`
    /// @param to      the same; lowered where it is behind, though never below `from`
    void limit(float weight, float& from, float& to) const
    {
        const float zero = weight * m_toZero;
        if (m_toZero == 0.0f) {
            return;
        }
        if (m_isRising) {
            from = lesser(to, greater(from, zero));
        } else {
            to = greater(from, lesser(to, zero));
        }
    }

private:
    static constexpr float kLeastGrowth = 1e-6f;

    bool m_isRising;
    float m_toZero; ///< points for each unit of the weight; 0 where it hardly changes
};

/// The points whose middles lie between the least and the greatest of three numbers.
struct Span
{
    Lanes<std::int32_t> first;
    Lanes<std::int32_t> last; ///< below `first` where there are none
};

void findSpan(const Lanes<float> (&at)[3], std::size_t width, Span& span)
{
    const auto end = static_cast<float>(width);
    for (std::size_t i = 0; i < kBlock; ++i) {
        const float low = lesser(at[0][i], lesser(at[1][i], at[2][i]));
        const float high = greater(at[0][i], greater(at[1][i], at[2][i]));
        // In an order by which NaN becomes a number. What is cut off is positive: that rounds down.
        const float from = lesser(end, greater(0.0f, low));
        const float to = lesser(end, greater(-1.0f, high) + 1.0f);
        const auto whole = static_cast<std::int32_t>(from);
        span.first[i] = whole + (static_cast<float>(whole) < from ? 1 : 0);
        span.last[i] = static_cast<std::int32_t>(to) - 1;
    }
}

} // namespace

/// Triangles, number by number. What is missing in the last block is its last triangle again.
struct KrLevelPictures::Block
{
    Lanes<float> corners[3][3]; ///< by corner and axis, m
};

std::vector<KrLevelPictures::Block> KrLevelPictures::blocksOf(const std::vector<float>& positions)
{
    const std::size_t count = positions.size() / 9;
    std::vector<Block> blocks((count + kBlock - 1) / kBlock);
    for (std::size_t i = 0; i < kBlock * blocks.size(); ++i) {
        const float* const corners = &positions[9 * std::min(i, count - 1)];
        Block& block = blocks[i / kBlock];
        for (unsigned int k = 0; k < 9; ++k) {
            block.corners[k / 3][k % 3][i % kBlock] = corners[k];
        }
    }
    return blocks;
}

// Spread by the golden angle, and tilted, so that no direction lies along an axis.
KrLevelPictures::View KrLevelPictures::viewFrom(std::size_t number, const std::vector<Block>& blocks) const
{
    const double height = 1.0 - (2.0 * static_cast<double>(number) + 1.0) / kNumViews;
    const double turn = 0.6 + 2.399963229728653 * static_cast<double>(number);
    const double width = std::sqrt(1.0 - height * height);
    View view;
    view.axes[2] = {static_cast<float>(width * std::cos(turn)), static_cast<float>(width * std::sin(turn)),
                    static_cast<float>(height)};
    view.axes[0] = cross({0.36f, 0.48f, 0.8f}, view.axes[2]);
    normalize(view.axes[0]);
    view.axes[1] = cross(view.axes[2], view.axes[0]);
    for (unsigned int axis = 0; axis < 2; ++axis) {
        const KrFloat3& along = view.axes[axis];
        Lanes<float> lows, highs;
        lows.fill(std::numeric_limits<float>::max());
        highs.fill(std::numeric_limits<float>::lowest());
        for (const Block& block : blocks) {
            for (const auto& corner : block.corners) {
                for (std::size_t i = 0; i < kBlock; ++i) {
                    const float at = along[0] * corner[0][i] + along[1] * corner[1][i] + along[2] * corner[2][i];
                    lows[i] = lesser(lows[i], at);
                    highs[i] = greater(highs[i], at);
                }
            }
        }
        const float low = *std::min_element(lows.begin(), lows.end());
        const float high = *std::max_element(highs.begin(), highs.end());
        // A little room, for levels that stick out.
        const float size = 1.1f * std::max(high - low, std::numeric_limits<float>::min());
        view.low[axis] = 0.5f * (low + high - size);
        view.scale[axis] = static_cast<float>(m_width) / size;
    }
    return view;
}

KrLevelPictures::KrLevelPictures(const Surface& mesh, bool isClosed)
    : m_isClosed(isClosed)
    , m_width(std::clamp(static_cast<std::size_t>(2.0 * std::sqrt(static_cast<double>(mesh.groups.size()))),
                         kSmallestWidth, kLargestWidth))
    , m_pictures(kNumViews)
{
    const std::vector<Block> blocks = blocksOf(mesh.positions);
    for (std::size_t i = 0; i < kNumViews; ++i) {
        m_views.push_back(viewFrom(i, blocks));
        draw(mesh, blocks, m_views[i], m_pictures[i]);
    }
}

void KrLevelPictures::draw(const Surface& surface, const std::vector<Block>& blocks, const View& view,
                           Picture& picture) const
{
    struct Nearest
    {
        float depth = std::numeric_limits<float>::lowest(); ///< towards the eye
        std::uint32_t triangle = kNothing;
        bool isFront = true;
        float weights[2] = {};
    };
    std::vector<Nearest> nearest(m_width * m_width);
    KrFloat3 toPoints[2];
    float origin[2];
    for (unsigned int axis = 0; axis < 2; ++axis) {
        for (unsigned int i = 0; i < 3; ++i) {
            toPoints[axis][i] = view.scale[axis] * view.axes[axis][i];
        }
        // The middles of points have whole numbers.
        origin[axis] = view.scale[axis] * view.low[axis] + 0.5f;
    }
    Lanes<float> spots[2][3];
    Span spans[2];
    Lanes<float> areas;
    Lanes<std::int32_t> isSeen;
    for (std::size_t b = 0; b < blocks.size(); ++b) {
        for (unsigned int axis = 0; axis < 2; ++axis) {
            const KrFloat3 to = toPoints[axis];
            const float from = origin[axis];
            for (unsigned int k = 0; k < 3; ++k) {
                const auto& corner = blocks[b].corners[k];
                for (std::size_t i = 0; i < kBlock; ++i) {
                    spots[axis][k][i] = to[0] * corner[0][i] + to[1] * corner[1][i] + to[2] * corner[2][i] - from;
                }
            }
            findSpan(spots[axis], m_width, spans[axis]);
        }
        const auto& [x, y] = spots;
        for (std::size_t i = 0; i < kBlock; ++i) {
            areas[i] = (x[1][i] - x[0][i]) * (y[2][i] - y[0][i]) - (x[2][i] - x[0][i]) * (y[1][i] - y[0][i]);
        }
        // Most triangles are too small for any point.
        for (std::size_t i = 0; i < kBlock; ++i) {
            isSeen[i] =
                (spans[0].first[i] <= spans[0].last[i] ? 1 : 0) & (spans[1].first[i] <= spans[1].last[i] ? 1 : 0);
        }
        const std::size_t count = std::min(kBlock, surface.groups.size() - kBlock * b);
        for (std::size_t i = 0; i < count; ++i) {
            // Written so that NaN is left out, too.
            if (isSeen[i] == 0 || !(m_isClosed ? areas[i] > 0.0f : std::abs(areas[i]) > 0.0f)) {
                continue;
            }
            const auto number = static_cast<std::uint32_t>(kBlock * b + i);
            const float* const corners = &surface.positions[std::size_t{9} * number];
            float z[3];
            for (unsigned int k = 0; k < 3; ++k) {
                z[k] = dot(corners + 3 * k, view.axes[2].data());
            }
            // What the weights of the second and the third corner grow by, along a row and from row to row.
            const float inverse = 1.0f / areas[i];
            const float vAlong = (y[2][i] - y[0][i]) * inverse, vUp = (x[0][i] - x[2][i]) * inverse;
            const float wAlong = (y[0][i] - y[1][i]) * inverse, wUp = (x[1][i] - x[0][i]) * inverse;
            const std::int32_t first = spans[0].first[i], last = spans[0].last[i];
            const bool isWide = last - first >= kFewColumns;
            const Edge edges[3] = {Edge(isWide ? -vAlong - wAlong : 0.0f), Edge(isWide ? vAlong : 0.0f),
                                   Edge(isWide ? wAlong : 0.0f)};
            for (std::int32_t row = spans[1].first[i]; row <= spans[1].last[i]; ++row) {
                const float up = static_cast<float>(row) - y[0][i];
                Nearest* const points = &nearest[static_cast<std::size_t>(row) * m_width];
                std::int32_t begin = first, end = last;
                // Most of a slender triangle's box lies outside of it.
                if (isWide) {
                    const float along = static_cast<float>(first) - x[0][i];
                    const float v = along * vAlong + up * vUp, w = along * wAlong + up * wUp;
                    float from = 0.0f, to = static_cast<float>(last - first);
                    edges[0].limit(1.0f - v - w, from, to);
                    edges[1].limit(v, from, to);
                    edges[2].limit(w, from, to);
                    // Roundings must not cost a point: each is looked at below.
                    begin = first + static_cast<std::int32_t>(from);
                    end = std::min(last, first + static_cast<std::int32_t>(to) + 1);
                }
                for (std::int32_t column = begin; column <= end; ++column) {
                    const float along = static_cast<float>(column) - x[0][i];
                    const float v = along * vAlong + up * vUp;
                    const float w = along * wAlong + up * wUp;
                    if (!(v >= 0.0f && w >= 0.0f && v + w <= 1.0f)) {
                        continue;
                    }
                    const float depth = z[0] + v * (z[1] - z[0]) + w * (z[2] - z[0]);
                    if (depth > points[column].depth) {
                        points[column] = {depth, number, areas[i] > 0.0f, {v, w}};
                    }
                }
            }
        }
    }
    KrFloat3 lamp, half;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        lamp[axis] = kTowardsLamp[0] * view.axes[0][axis] + kTowardsLamp[1] * view.axes[1][axis] +
                     kTowardsLamp[2] * view.axes[2][axis];
        half[axis] = lamp[axis] + view.axes[2][axis];
    }
    normalize(half);
    picture.resize(nearest.size());
    std::uint32_t litTriangle = kNothing;
    float lit[3] = {};
    for (std::size_t i = 0; i < nearest.size(); ++i) {
        const Nearest& seen = nearest[i];
        picture[i] = {kNothing, 0.0f};
        if (seen.triangle != kNothing) {
            // Most points have their neighbour's triangle.
            if (seen.triangle != litTriangle) {
                const float* const normals = &surface.normals[std::size_t{9} * seen.triangle];
                const float side = seen.isFront ? 1.0f : -1.0f;
                for (unsigned int k = 0; k < 3; ++k) {
                    const float cosine = std::max(0.0f, side * dot(normals + 3 * k, half.data()));
                    const float fourth = cosine * cosine * cosine * cosine;
                    lit[k] = kDiffuse * std::max(0.0f, side * dot(normals + 3 * k, lamp.data())) +
                             kHighlight * fourth * fourth * fourth * fourth;
                }
                litTriangle = seen.triangle;
            }
            picture[i] = {surface.groups[seen.triangle],
                          lit[0] + seen.weights[0] * (lit[1] - lit[0]) + seen.weights[1] * (lit[2] - lit[0])};
        }
    }
}

float KrLevelPictures::changed(const Surface& level, float enough) const
{
    std::size_t numSeen = 0;
    std::size_t numChanged = 0;
    double sum = 0.0;
    const auto share = [&] {
        return numSeen == 0 ? 0.0f
                            : static_cast<float>(std::max(static_cast<double>(numChanged), kOfMean * sum) /
                                                 static_cast<double>(numSeen));
    };
    Picture picture;
    const std::vector<Block> blocks = blocksOf(level.positions);
    for (std::size_t number = 0; number < kNumViews; ++number) {
        // The even ones first: they are spread over the sphere as well.
        if (number == kNumViews / 2 && share() > enough) {
            break;
        }
        const std::size_t view = 2 * number % kNumViews + 2 * number / kNumViews;
        draw(level, blocks, m_views[view], picture);
        for (std::size_t i = 0; i < picture.size(); ++i) {
            const Point& before = m_pictures[view][i];
            const Point& after = picture[i];
            const bool isSame = before.group == after.group;
            const float difference = isSame ? std::abs(before.brightness - after.brightness) : kContrast;
            numSeen += before.group != kNothing || after.group != kNothing;
            numChanged += !isSame || difference > kVisible;
            sum += double{difference};
        }
    }
    return share();
}
