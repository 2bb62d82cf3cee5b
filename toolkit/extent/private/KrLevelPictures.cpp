#include <toolkit/extent/private/KrLevelPictures.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace
{

constexpr std::uint32_t kNothing = 0xffffffffu;
constexpr std::size_t kNumViews = 8;
/// Points of a picture's side. Few triangles cost little.
constexpr std::size_t kSmallestWidth = 24;
constexpr std::size_t kLargestWidth = 48;
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

} // namespace

// Spread by the golden angle, and tilted, so that no direction lies along an axis.
KrLevelPictures::View KrLevelPictures::viewFrom(std::size_t number, const std::vector<float>& positions) const
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
        float low = std::numeric_limits<float>::max(), high = std::numeric_limits<float>::lowest();
        for (std::size_t i = 0; i < positions.size(); i += 3) {
            const float at = dot(&positions[i], view.axes[axis].data());
            low = std::min(low, at);
            high = std::max(high, at);
        }
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
    for (std::size_t i = 0; i < kNumViews; ++i) {
        m_views.push_back(viewFrom(i, mesh.positions));
        draw(mesh, m_views[i], m_pictures[i]);
    }
}

void KrLevelPictures::draw(const Surface& surface, const View& view, Picture& picture) const
{
    struct Nearest
    {
        float depth = std::numeric_limits<float>::lowest(); ///< towards the eye
        std::uint32_t triangle = kNothing;
        bool isFront = true;
        float weights[2] = {};
    };
    std::vector<Nearest> nearest(m_width * m_width);
    const auto width = static_cast<float>(m_width);
    for (std::uint32_t t = 0; t < surface.groups.size(); ++t) {
        const float* const corners = &surface.positions[std::size_t{9} * t];
        float x[3], y[3];
        for (unsigned int k = 0; k < 3; ++k) {
            // The middles of points have whole numbers.
            x[k] = (dot(corners + 3 * k, view.axes[0].data()) - view.low[0]) * view.scale[0] - 0.5f;
            y[k] = (dot(corners + 3 * k, view.axes[1].data()) - view.low[1]) * view.scale[1] - 0.5f;
        }
        const float left = std::max(0.0f, std::ceil(std::min({x[0], x[1], x[2]})));
        const float right = std::min(width - 1.0f, std::max({x[0], x[1], x[2]}));
        const float bottom = std::max(0.0f, std::ceil(std::min({y[0], y[1], y[2]})));
        const float top = std::min(width - 1.0f, std::max({y[0], y[1], y[2]}));
        const float area = (x[1] - x[0]) * (y[2] - y[0]) - (x[2] - x[0]) * (y[1] - y[0]);
        // Written so that NaN is left out, too. Most triangles are too small for any point.
        if (!(left <= right && bottom <= top) || !(m_isClosed ? area > 0.0f : area != 0.0f)) {
            continue;
        }
        float z[3];
        for (unsigned int k = 0; k < 3; ++k) {
            z[k] = dot(corners + 3 * k, view.axes[2].data());
        }
        const float inverse = 1.0f / area;
        for (float row = bottom; row <= top; row += 1.0f) {
            for (float column = left; column <= right; column += 1.0f) {
                const float v = ((column - x[0]) * (y[2] - y[0]) - (x[2] - x[0]) * (row - y[0])) * inverse;
                const float w = ((x[1] - x[0]) * (row - y[0]) - (column - x[0]) * (y[1] - y[0])) * inverse;
                const float depth = z[0] + v * (z[1] - z[0]) + w * (z[2] - z[0]);
                Nearest& known = nearest[static_cast<std::size_t>(row) * m_width + static_cast<std::size_t>(column)];
                if (v >= 0.0f && w >= 0.0f && v + w <= 1.0f && depth > known.depth) {
                    known = {depth, t, area > 0.0f, {v, w}};
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
    for (std::size_t i = 0; i < nearest.size(); ++i) {
        const Nearest& seen = nearest[i];
        picture[i] = {kNothing, 0.0f};
        if (seen.triangle != kNothing) {
            const float* const normals = &surface.normals[std::size_t{9} * seen.triangle];
            const float side = seen.isFront ? 1.0f : -1.0f;
            float lit[3];
            for (unsigned int k = 0; k < 3; ++k) {
                const float cosine = std::max(0.0f, side * dot(normals + 3 * k, half.data()));
                const float fourth = cosine * cosine * cosine * cosine;
                lit[k] = kDiffuse * std::max(0.0f, side * dot(normals + 3 * k, lamp.data())) +
                         kHighlight * fourth * fourth * fourth * fourth;
            }
            picture[i] = {surface.groups[seen.triangle],
                          lit[0] + seen.weights[0] * (lit[1] - lit[0]) + seen.weights[1] * (lit[2] - lit[0])};
        }
    }
}

float KrLevelPictures::changed(const Surface& level) const
{
    std::size_t numSeen = 0;
    std::size_t numChanged = 0;
    double sum = 0.0;
    Picture picture;
    for (std::size_t view = 0; view < kNumViews; ++view) {
        draw(level, m_views[view], picture);
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
    return numSeen == 0 ? 0.0f
                        : static_cast<float>(std::max(static_cast<double>(numChanged), kOfMean * sum) /
                                             static_cast<double>(numSeen));
}
