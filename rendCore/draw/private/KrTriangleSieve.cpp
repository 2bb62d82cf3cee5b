#include <rendCore/draw/private/KrTriangleSieve.h>

#include <osg/BoundingBox>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace
{

/// Units of a spot's coordinates that a pixel has: finer than drivers round, so that little is added to what they do.
constexpr std::int32_t kPixelBits = 12;
constexpr std::int32_t kPixel = 1 << kPixelBits;
/// What is cut off of a spot's coordinates on the way to integers, units.
constexpr double kCutOff = 1.0;
/// A triangle among the middles of more columns or rows than these is taken to show.
constexpr std::int32_t kMostMiddles = 2;
/// How much products of coordinates within so many pixels err, square units: a few roundings of 2^28.
constexpr float kProductError = 128.0f;
/// How much single precision errs, of the largest number that takes part.
constexpr double kError = 8.0 / (1 << 24);
/// Beyond it nothing is known, pixels.
constexpr double kMostError = 0.125;
/// The farthest spot from the window's lower left corner, pixels: so a cell is told by 16 bits.
constexpr double kMostPixels = 1 << 15;
/// Of the depth of what is farthest: with something nearer an eye is as good as within the mesh.
constexpr double kNearest = 0.02;
/// Beyond these, products and quotients below might be no floats, nor integers then.
constexpr double kSmallest = 1e-30;
constexpr double kLargest = 1e30;

osg::Matrixd absolute(const osg::Matrixd& matrix)
{
    osg::Matrixd result;
    std::transform(matrix.ptr(), matrix.ptr() + 16, result.ptr(), [](double number) { return std::abs(number); });
    return result;
}

/// Triangles before the middles of pixels that they may cover, looked at eight at a time: what of them does is copied.
template <typename Index>
class Candidates
{
public:
    /// @param margin  how far corners may be off, units
    /// @param kept    room for the triangles' indices
    Candidates(float margin, Index* kept)
        : m_margin(margin)
        , m_end(kept)
    {
    }
    /// A triangle, whose indices begin at `indices`, in order.
    void add(const Index* indices, const KrTriangleSieve::Spot& a, const KrTriangleSieve::Spot& b,
             const KrTriangleSieve::Spot& c)
    {
        const auto first = [this](float least) {
            return (static_cast<std::int32_t>(least - m_margin) + kPixel - 1) >> kPixelBits;
        };
        const auto last = [this](float most) { return static_cast<std::int32_t>(most + m_margin) >> kPixelBits; };
        const std::int32_t left = first(std::min(std::min(a.x, b.x), c.x));
        const std::int32_t right = last(std::max(std::max(a.x, b.x), c.x));
        const std::int32_t bottom = first(std::min(std::min(a.y, b.y), c.y));
        const std::int32_t top = last(std::max(std::max(a.y, b.y), c.y));
        if (right - left >= kMostMiddles || top - bottom >= kMostMiddles) {
            // A point covers its own middle.
            add(indices, a, a, a, a.x, a.y);
            return;
        }
        for (std::int32_t row = bottom; row <= top; ++row) {
            for (std::int32_t column = left; column <= right; ++column) {
                add(indices, a, b, c, static_cast<float>(column * kPixel), static_cast<float>(row * kPixel));
            }
        }
    }
    /// After the last one.
    /// @return behind the indices that were copied
    Index* finish()
    {
        copyCovering();
        return m_end;
    }

private:
    static constexpr std::size_t kBlock = 8;

    void add(const Index* indices, const KrTriangleSieve::Spot& a, const KrTriangleSieve::Spot& b,
             const KrTriangleSieve::Spot& c, float x, float y)
    {
        m_ax[m_count] = a.x - x;
        m_ay[m_count] = a.y - y;
        m_bx[m_count] = b.x - x;
        m_by[m_count] = b.y - y;
        m_cx[m_count] = c.x - x;
        m_cy[m_count] = c.y - y;
        m_indices[m_count] = indices;
        if (++m_count == kBlock) {
            copyCovering();
        }
    }
    /// Whether the middle of a pixel may be in a triangle whose corners may be off by the margin. What these span
    /// then is the triangle with a square of that size around each of its points: within the square's reach of each
    /// side, and of the box, which `add` has looked at.
    void copyCovering()
    {
        float inside[kBlock];
        for (std::size_t i = 0; i < kBlock; ++i) {
            const float ab = m_ax[i] * m_by[i] - m_ay[i] * m_bx[i];
            const float bc = m_bx[i] * m_cy[i] - m_by[i] * m_cx[i];
            const float ca = m_cx[i] * m_ay[i] - m_cy[i] * m_ax[i];
            const float sign = std::copysign(1.0f, ab + bc + ca);
            const float reachOfAb = std::abs(m_bx[i] - m_ax[i]) + std::abs(m_by[i] - m_ay[i]);
            const float reachOfBc = std::abs(m_cx[i] - m_bx[i]) + std::abs(m_cy[i] - m_by[i]);
            const float reachOfCa = std::abs(m_ax[i] - m_cx[i]) + std::abs(m_ay[i] - m_cy[i]);
            inside[i] = std::min(std::min(sign * ab + m_margin * reachOfAb, sign * bc + m_margin * reachOfBc),
                                 sign * ca + m_margin * reachOfCa);
        }
        for (std::size_t i = 0; i < m_count; ++i) {
            // Once, however many middles it may cover.
            if (inside[i] >= -kProductError && m_indices[i] != m_last) {
                m_last = m_indices[i];
                *m_end++ = m_last[0];
                *m_end++ = m_last[1];
                *m_end++ = m_last[2];
            }
        }
        m_count = 0;
    }

    float m_margin;
    Index* m_end;
    const Index* m_last = nullptr; ///< copied
    std::size_t m_count = 0;
    // Corners from the middles.
    float m_ax[kBlock] = {};
    float m_ay[kBlock] = {};
    float m_bx[kBlock] = {};
    float m_by[kBlock] = {};
    float m_cx[kBlock] = {};
    float m_cy[kBlock] = {};
    const Index* m_indices[kBlock] = {};
};

} // namespace

template <typename Index>
KrTriangleSieve::KrTriangleSieve(const osg::Vec3* vertices, const Index* indices, std::size_t count,
                                 std::vector<std::uint16_t>& numbers)
{
    std::vector<Index> used;
    m_corners.reserve(count);
    std::transform(indices, indices + count, std::back_inserter(m_corners), [&](Index index) {
        if (numbers[index] == kNoNumber) {
            numbers[index] = static_cast<std::uint16_t>(used.size());
            used.push_back(index);
        }
        return numbers[index];
    });
    std::for_each(used.begin(), used.end(), [&numbers](Index index) { numbers[index] = kNoNumber; });

    osg::BoundingBoxd box;
    m_blocks.resize((used.size() + kBlock - 1) / kBlock, Block());
    for (std::size_t i = 0; i < kBlock * m_blocks.size(); ++i) {
        // Those behind the last one are computed with as well.
        const osg::Vec3& vertex = vertices[used[std::min(i, used.size() - 1)]];
        Block& block = m_blocks[i / kBlock];
        block.x[i % kBlock] = vertex.x();
        block.y[i % kBlock] = vertex.y();
        block.z[i % kBlock] = vertex.z();
        box.expandBy(osg::Vec3d(vertex));
        m_isFinite = m_isFinite && std::isfinite(vertex.x()) && std::isfinite(vertex.y()) && std::isfinite(vertex.z());
    }
    if (box.valid()) {
        m_center = box.center();
        m_radius = box.radius();
        for (unsigned int axis = 0; axis < 3; ++axis) {
            m_farthest[axis] = std::max(std::abs(box._min[axis]), std::abs(box._max[axis]));
        }
    }
}

/// Where the vertices are in the window.
/// @param margin  set to how far they may be from there
/// @return false where nothing is known
bool KrTriangleSieve::findSpots(const View& view, std::vector<Spot>& spots, float& margin) const
{
    const osg::Matrixd m = view.modelView * view.projection;
    const double depth = m_center.x() * m(0, 3) + m_center.y() * m(1, 3) + m_center.z() * m(2, 3) + m(3, 3);
    const double reach = m_radius * osg::Vec3d(m(0, 3), m(1, 3), m(2, 3)).length();
    const double nearest = depth - reach;
    // What the driver's numbers grow to on their way, whatever cancels out.
    const osg::Matrixd largest = absolute(view.modelView) * absolute(view.projection);
    const auto bound = [&](int column) {
        return m_farthest.x() * largest(0, column) + m_farthest.y() * largest(1, column) +
               m_farthest.z() * largest(2, column) + largest(3, column);
    };
    const double most = std::max(view.width * (bound(0) + bound(3)), view.height * (bound(1) + bound(3))) / nearest;
    const double error = 0.5 * kError * most;
    // Written so that NaN gives up as well.
    if (!m_isFinite || !(nearest > kNearest * (depth + reach)) || !(error < kMostError) || !(most < kMostPixels) ||
        !(nearest > kSmallest) || !(most * nearest < kLargest)) {
        return false;
    }
    const auto wholeMargin = static_cast<std::int32_t>(std::ceil(kCutOff + (view.rounding + error) * kPixel));
    margin = static_cast<float>(wholeMargin);

    // To units of a pixel, from the middle of the first one.
    const auto number = [](double value) { return static_cast<float>(value); };
    const double x = 0.5 * kPixel * view.width;
    const double y = 0.5 * kPixel * view.height;
    const double half = 0.5 * kPixel;
    float toX[4];
    float toY[4];
    float toW[4];
    for (int row = 0; row < 4; ++row) {
        toX[row] = number(x * m(row, 0) + (x - half) * m(row, 3));
        toY[row] = number(y * m(row, 1) + (y - half) * m(row, 3));
        toW[row] = number(m(row, 3));
    }
    spots.resize(std::max(spots.size(), kBlock * m_blocks.size()));
    Spot* spot = spots.data();
    for (const Block& block : m_blocks) {
        float xs[kBlock];
        float ys[kBlock];
        std::uint32_t cells[kBlock];
        std::uint32_t across[kBlock];
        for (std::size_t i = 0; i < kBlock; ++i) {
            const float w = 1.0f / (block.x[i] * toW[0] + block.y[i] * toW[1] + block.z[i] * toW[2] + toW[3]);
            xs[i] = (block.x[i] * toX[0] + block.y[i] * toX[1] + block.z[i] * toX[2] + toX[3]) * w;
            ys[i] = (block.x[i] * toY[0] + block.y[i] * toY[1] + block.z[i] * toY[2] + toY[3]) * w;
        }
        for (std::size_t i = 0; i < kBlock; ++i) {
            const auto column = static_cast<std::int32_t>(xs[i]);
            const auto row = static_cast<std::int32_t>(ys[i]);
            const auto cellOf = [&](std::int32_t shift) {
                return static_cast<std::uint32_t>((column + shift) >> kPixelBits) << 16 |
                       (static_cast<std::uint32_t>((row + shift) >> kPixelBits) & 0xffff);
            };
            cells[i] = cellOf(-wholeMargin);
            across[i] = cells[i] ^ cellOf(wholeMargin);
        }
        for (std::size_t i = 0; i < kBlock; ++i) {
            *spot++ = {xs[i], ys[i], cells[i], across[i]};
        }
    }
    return true;
}

template <bool kAreBacksLeftOut, typename Index>
std::size_t KrTriangleSieve::sift(const Index* indices, const Spot* spots, float margin, Index* kept) const
{
    Candidates<Index> candidates(margin, kept);
    const std::uint16_t* const last = m_corners.data() + m_corners.size() / 3 * 3;
    for (const std::uint16_t* corner = m_corners.data(); corner != last; corner += 3, indices += 3) {
        const Spot& a = spots[corner[0]];
        const Spot& b = spots[corner[1]];
        const Spot& c = spots[corner[2]];
        const std::uint32_t apart = (a.cell ^ b.cell) | (b.cell ^ c.cell) | a.across | b.across | c.across;
        // All between the middles of the same two columns or rows of pixels.
        if (apart <= 0xffff || (apart & 0xffff) == 0) {
            continue;
        }
        if (kAreBacksLeftOut) {
            const float bx = b.x - a.x;
            const float by = b.y - a.y;
            const float cx = c.x - a.x;
            const float cy = c.y - a.y;
            // Higher above its longest side than all three corners together may be off: twice the root of two margins.
            if (bx * cy - cx * by < -3.0f * margin * (std::abs(bx) + std::abs(by) + std::abs(cx) + std::abs(cy))) {
                continue;
            }
        }
        candidates.add(indices, a, b, c);
    }
    return static_cast<std::size_t>(candidates.finish() - kept);
}

template <typename Index>
std::size_t KrTriangleSieve::sift(const Index* indices, const View& view, std::vector<Spot>& spots, Index* kept) const
{
    float margin = 0.0f;
    if (!findSpots(view, spots, margin)) {
        return m_corners.size();
    }
    return view.areBacksLeftOut ? sift<true>(indices, spots.data(), margin, kept)
                                : sift<false>(indices, spots.data(), margin, kept);
}

template KrTriangleSieve::KrTriangleSieve(const osg::Vec3*, const std::uint16_t*, std::size_t,
                                          std::vector<std::uint16_t>&);
template KrTriangleSieve::KrTriangleSieve(const osg::Vec3*, const std::uint32_t*, std::size_t,
                                          std::vector<std::uint16_t>&);
template std::size_t KrTriangleSieve::sift(const std::uint16_t*, const View&, std::vector<Spot>&, std::uint16_t*) const;
template std::size_t KrTriangleSieve::sift(const std::uint32_t*, const View&, std::vector<Spot>&, std::uint32_t*) const;
