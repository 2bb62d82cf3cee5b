#include <rendCore/draw/private/KrTriangleSieve.h>

#include <osg/BoundingBox>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

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
/// How much of what a plane rises over a distance it may be off: a driver computes it at a corner of the picture.
constexpr double kPlaneError = 1.0 / 512;
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

} // namespace

/// Triangles before the middles of pixels that they may cover, looked at eight at a time.
class KrTriangleSieve::Candidates
{
public:
    /// @param sights  of which the vertices' places are there; what is found goes behind those that it has
    /// @param most    so many triangles will be added at the most
    Candidates(const View& view, const Margins& margins, Sights& sights, std::size_t most)
        : m_margins(margins)
        , m_nearest(view.nearest)
        , m_width(static_cast<std::int32_t>(view.width))
        , m_height(static_cast<std::int32_t>(view.height))
        , m_areBacksLeftOut(view.areBacksLeftOut)
        , m_reach(margins.place + static_cast<float>(kPlaneError * (view.width + view.height)))
        , m_spots(sights.m_spots.data())
        , m_nearness(sights.m_nearness.data())
    {
        const std::size_t size = sights.m_size + most * kMostMiddles * kMostMiddles;
        sights.m_sights.resize(std::max(sights.m_sights.size(), size));
        m_end = sights.m_sights.data() + sights.m_size;
    }
    /// A triangle, whose corners begin at `first` of the indices.
    template <bool kIsNearnessWanted>
    void add(std::uint32_t first, const std::uint16_t* corners)
    {
        const Sights::Spot& a = m_spots[corners[0]];
        const Sights::Spot& b = m_spots[corners[1]];
        const Sights::Spot& c = m_spots[corners[2]];
        const float margin = m_margins.place;
        const auto from = [margin](float least) {
            return (static_cast<std::int32_t>(least - margin) + kPixel - 1) >> kPixelBits;
        };
        const auto to = [margin](float most) { return static_cast<std::int32_t>(most + margin) >> kPixelBits; };
        const std::int32_t left = from(std::min(std::min(a.x, b.x), c.x));
        const std::int32_t right = to(std::max(std::max(a.x, b.x), c.x));
        const std::int32_t bottom = from(std::min(std::min(a.y, b.y), c.y));
        const std::int32_t top = to(std::max(std::max(a.y, b.y), c.y));
        if (right - left >= kMostMiddles || top - bottom >= kMostMiddles) {
            // A point covers its own middle.
            push<kIsNearnessWanted>(first, corners, {a, a, a}, a.x, a.y, kNoPixel);
            return;
        }
        for (std::int32_t row = bottom; row <= top; ++row) {
            for (std::int32_t column = left; column <= right; ++column) {
                push<kIsNearnessWanted>(first, corners, {a, b, c}, static_cast<float>(column * kPixel),
                                        static_cast<float>(row * kPixel), pixelAt(column, row));
            }
        }
    }
    /// After the last one.
    /// @return the number of triangles found
    template <bool kIsNearnessWanted>
    std::size_t finish(Sights& sights)
    {
        look<kIsNearnessWanted>();
        sights.m_size = static_cast<std::size_t>(m_end - sights.m_sights.data());
        return m_numTriangles;
    }

private:
    static constexpr std::uint32_t kNoPixel = std::numeric_limits<std::uint32_t>::max();
    /// Nearer than anything.
    static constexpr float kNearest = std::numeric_limits<float>::infinity();

    struct Corners
    {
        const Sights::Spot& a;
        const Sights::Spot& b;
        const Sights::Spot& c;
    };
    /// A triangle before the middle of a pixel at x and y.
    template <bool kIsNearnessWanted>
    void push(std::uint32_t first, const std::uint16_t* numbers, const Corners& corners, float x, float y,
              std::uint32_t pixel)
    {
        m_ax[m_count] = corners.a.x - x;
        m_ay[m_count] = corners.a.y - y;
        m_bx[m_count] = corners.b.x - x;
        m_by[m_count] = corners.b.y - y;
        m_cx[m_count] = corners.c.x - x;
        m_cy[m_count] = corners.c.y - y;
        m_firsts[m_count] = first;
        if (kIsNearnessWanted) {
            m_az[m_count] = m_nearness[numbers[0]];
            m_bz[m_count] = m_nearness[numbers[1]];
            m_cz[m_count] = m_nearness[numbers[2]];
            m_pixels[m_count] = pixel;
        }
        if (++m_count == kBlock) {
            look<kIsNearnessWanted>();
        }
    }
    /// None at the border of the picture, where drivers cut triangles.
    std::uint32_t pixelAt(std::int32_t column, std::int32_t row) const
    {
        const auto isWithin = [](std::int32_t place, std::int32_t size) {
            return place > kMostMiddles && place < size - 1 - kMostMiddles;
        };
        return isWithin(column, m_width) && isWithin(row, m_height) ? static_cast<std::uint32_t>(row * m_width + column)
                                                                    : kNoPixel;
    }
    void append(const Sight& sight)
    {
        // However many middles a triangle may cover.
        m_numTriangles += sight.first != m_last ? 1 : 0;
        m_last = sight.first;
        *m_end++ = sight;
    }
    /// Looks whether the middles of pixels may be in the triangles, whose corners may be off by the margin. What these
    /// span then is the triangle with a square of that size around each of its points: within the square's reach of
    /// each side, and of the box, which `add` has looked at.
    template <bool kIsNearnessWanted>
    void look()
    {
        float inside[kBlock];
        for (std::size_t i = 0; i < kBlock; ++i) {
            const Sides sides = sidesOf(i);
            const float sign = std::copysign(1.0f, sides.area);
            inside[i] = std::min(std::min(sign * sides.ab + m_margins.place * sides.reachOfAb,
                                          sign * sides.bc + m_margins.place * sides.reachOfBc),
                                 sign * sides.ca + m_margins.place * sides.reachOfCa);
        }
        if (!kIsNearnessWanted) {
            for (std::size_t i = 0; i < m_count; ++i) {
                if (inside[i] >= -kProductError) {
                    append({m_firsts[i], 0, kNearest});
                }
            }
            m_count = 0;
            return;
        }
        float nearest[kBlock];
        float farthest[kBlock]; // 0 where the triangle may not cover the middle, or be cut by the driver
        findNearness(nearest, farthest);
        for (std::size_t i = 0; i < m_count; ++i) {
            if (!(inside[i] >= -kProductError)) {
                continue;
            }
            if (m_pixels[i] == kNoPixel) {
                append({m_firsts[i], 0, kNearest});
                continue;
            }
            const float known = m_nearest->nearness(m_pixels[i]);
            // Written so that NaN shows.
            if (!(nearest[i] < known)) {
                append({m_firsts[i], m_pixels[i], nearest[i]});
                if (farthest[i] > known) {
                    m_nearest->add(m_pixels[i], farthest[i]);
                }
            }
        }
        m_count = 0;
    }
    /// Finds how near the triangles are at the middles, at the most and at the least.
    void findNearness(float* nearest, float* farthest) const
    {
        for (std::size_t i = 0; i < kBlock; ++i) {
            const Sides sides = sidesOf(i);
            const float least = std::min(std::min(m_az[i], m_bz[i]), m_cz[i]);
            const float most = std::max(std::max(m_az[i], m_bz[i]), m_cz[i]);
            // How much its plane may rise within what the middle may be off it, and the driver's plane be off this one:
            // the rise in each direction is less than two spans of nearness on the other side of the box by the area.
            const float reach = sides.reachOfAb + sides.reachOfBc + sides.reachOfCa;
            // Of a sliver the driver may know no more than that; infinity shows.
            const float area = std::max(std::abs(sides.area) - m_margins.place * reach, 0.0f);
            const float rise = (most - least + 2.0f * m_margins.nearness) * reach / area;
            const float error = m_margins.nearness + rise * (m_reach + static_cast<float>(kPlaneError) * reach);
            nearest[i] = most + error;
            // Wherever the corners are within their margins, the middle is on the inner side of each side.
            const float sign = m_areBacksLeftOut ? 1.0f : std::copysign(1.0f, sides.area);
            const float a = std::abs(m_ax[i]) + std::abs(m_ay[i]);
            const float b = std::abs(m_bx[i]) + std::abs(m_by[i]);
            const float c = std::abs(m_cx[i]) + std::abs(m_cy[i]);
            const float inside = std::min(
                std::min(sign * sides.ab - m_margins.place * (a + b), sign * sides.bc - m_margins.place * (b + c)),
                sign * sides.ca - m_margins.place * (c + a));
            const float room = kProductError + 2.0f * m_margins.place * m_margins.place;
            farthest[i] = inside > room && nearest[i] < 1.0f ? least - error : 0.0f;
        }
    }
    struct Sides
    {
        float ab; ///< twice the areas between a side and the middle
        float bc;
        float ca;
        float area; ///< of all
        float reachOfAb;
        float reachOfBc;
        float reachOfCa;
    };
    Sides sidesOf(std::size_t i) const
    {
        Sides sides;
        sides.ab = m_ax[i] * m_by[i] - m_ay[i] * m_bx[i];
        sides.bc = m_bx[i] * m_cy[i] - m_by[i] * m_cx[i];
        sides.ca = m_cx[i] * m_ay[i] - m_cy[i] * m_ax[i];
        sides.area = sides.ab + sides.bc + sides.ca;
        sides.reachOfAb = std::abs(m_bx[i] - m_ax[i]) + std::abs(m_by[i] - m_ay[i]);
        sides.reachOfBc = std::abs(m_cx[i] - m_bx[i]) + std::abs(m_cy[i] - m_by[i]);
        sides.reachOfCa = std::abs(m_ax[i] - m_cx[i]) + std::abs(m_ay[i] - m_cy[i]);
        return sides;
    }

    Margins m_margins;
    KrNearestDepths* m_nearest;
    std::int32_t m_width;
    std::int32_t m_height;
    bool m_areBacksLeftOut;
    float m_reach;
    const Sights::Spot* m_spots;
    const float* m_nearness;
    Sight* m_end = nullptr;
    std::uint32_t m_last = kNoPixel; ///< appended
    std::size_t m_numTriangles = 0;
    std::size_t m_count = 0;
    // Corners from the middles.
    float m_ax[kBlock] = {};
    float m_ay[kBlock] = {};
    float m_bx[kBlock] = {};
    float m_by[kBlock] = {};
    float m_cx[kBlock] = {};
    float m_cy[kBlock] = {};
    float m_az[kBlock] = {};
    float m_bz[kBlock] = {};
    float m_cz[kBlock] = {};
    std::uint32_t m_firsts[kBlock] = {};
    std::uint32_t m_pixels[kBlock] = {};
};

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
/// @param margins  set to how far they may be from there
/// @return false where nothing is known
bool KrTriangleSieve::findSpots(const View& view, Sights& sights, Margins& margins) const
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
    margins.place = static_cast<float>(wholeMargin);
    margins.nearness = static_cast<float>(view.depthRounding + kError + 0.5 * kError * (bound(2) + bound(3)) / nearest);
    const std::size_t count = kBlock * m_blocks.size();
    sights.m_spots.resize(std::max(sights.m_spots.size(), count));
    if (view.nearest != nullptr) {
        sights.m_nearness.resize(std::max(sights.m_nearness.size(), count));
        findSpots<true>(view, m, sights, wholeMargin);
    } else {
        findSpots<false>(view, m, sights, wholeMargin);
    }
    return true;
}

/// @param matrix  of the vertices, to the view's cube
template <bool kIsNearnessWanted>
void KrTriangleSieve::findSpots(const View& view, const osg::Matrixd& matrix, Sights& sights, std::int32_t margin) const
{
    // To units of a pixel, from the middle of the first one.
    const auto number = [](double value) { return static_cast<float>(value); };
    const double x = 0.5 * kPixel * view.width;
    const double y = 0.5 * kPixel * view.height;
    const double half = 0.5 * kPixel;
    float toX[4];
    float toY[4];
    float toZ[4];
    float toW[4];
    for (int row = 0; row < 4; ++row) {
        toX[row] = number(x * matrix(row, 0) + (x - half) * matrix(row, 3));
        toY[row] = number(y * matrix(row, 1) + (y - half) * matrix(row, 3));
        toZ[row] = number(0.5 * (matrix(row, 3) - matrix(row, 2)));
        toW[row] = number(matrix(row, 3));
    }
    Sights::Spot* spot = sights.m_spots.data();
    float* nearness = sights.m_nearness.data();
    for (const Block& block : m_blocks) {
        float xs[kBlock];
        float ys[kBlock];
        std::uint32_t cells[kBlock];
        std::uint32_t across[kBlock];
        for (std::size_t i = 0; i < kBlock; ++i) {
            const float w = 1.0f / (block.x[i] * toW[0] + block.y[i] * toW[1] + block.z[i] * toW[2] + toW[3]);
            xs[i] = (block.x[i] * toX[0] + block.y[i] * toX[1] + block.z[i] * toX[2] + toX[3]) * w;
            ys[i] = (block.x[i] * toY[0] + block.y[i] * toY[1] + block.z[i] * toY[2] + toY[3]) * w;
            if (kIsNearnessWanted) {
                nearness[i] = (block.x[i] * toZ[0] + block.y[i] * toZ[1] + block.z[i] * toZ[2] + toZ[3]) * w;
            }
        }
        nearness += kIsNearnessWanted ? kBlock : 0;
        for (std::size_t i = 0; i < kBlock; ++i) {
            const auto column = static_cast<std::int32_t>(xs[i]);
            const auto row = static_cast<std::int32_t>(ys[i]);
            const auto cellOf = [&](std::int32_t shift) {
                return static_cast<std::uint32_t>((column + shift) >> kPixelBits) << 16 |
                       (static_cast<std::uint32_t>((row + shift) >> kPixelBits) & 0xffff);
            };
            cells[i] = cellOf(-margin);
            across[i] = cells[i] ^ cellOf(margin);
        }
        for (std::size_t i = 0; i < kBlock; ++i) {
            *spot++ = {xs[i], ys[i], cells[i], across[i]};
        }
    }
}

template <bool kAreBacksLeftOut, bool kIsNearnessWanted>
std::size_t KrTriangleSieve::find(Sights& sights, float margin, Candidates& candidates) const
{
    const Sights::Spot* const spots = sights.m_spots.data();
    const std::uint16_t* const begin = m_corners.data();
    const std::uint16_t* const last = begin + m_corners.size() / 3 * 3;
    for (const std::uint16_t* corner = begin; corner != last; corner += 3) {
        const Sights::Spot& a = spots[corner[0]];
        const Sights::Spot& b = spots[corner[1]];
        const Sights::Spot& c = spots[corner[2]];
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
        candidates.add<kIsNearnessWanted>(static_cast<std::uint32_t>(corner - begin), corner);
    }
    return candidates.finish<kIsNearnessWanted>(sights);
}

std::size_t KrTriangleSieve::find(const View& view, Sights& sights) const
{
    Margins margins;
    if (!findSpots(view, sights, margins)) {
        return numTriangles();
    }
    Candidates candidates(view, margins, sights, numTriangles());
    if (view.nearest != nullptr) {
        return view.areBacksLeftOut ? find<true, true>(sights, margins.place, candidates)
                                    : find<false, true>(sights, margins.place, candidates);
    }
    return view.areBacksLeftOut ? find<true, false>(sights, margins.place, candidates)
                                : find<false, false>(sights, margins.place, candidates);
}

template <typename Index>
std::size_t KrTriangleSieve::copy(const Index* indices, const Sight* begin, const Sight* end,
                                  const KrNearestDepths* nearest, Index* kept)
{
    Index* next = kept;
    const Sight* last = nullptr; // copied
    for (const Sight* sight = begin; sight != end; ++sight) {
        if ((last == nullptr || sight->first != last->first) &&
            (nearest == nullptr || !(sight->nearness < nearest->nearness(sight->pixel)))) {
            last = sight;
            next = std::copy_n(indices + sight->first, 3, next);
        }
    }
    return static_cast<std::size_t>(next - kept);
}

template KrTriangleSieve::KrTriangleSieve(const osg::Vec3*, const std::uint16_t*, std::size_t,
                                          std::vector<std::uint16_t>&);
template KrTriangleSieve::KrTriangleSieve(const osg::Vec3*, const std::uint32_t*, std::size_t,
                                          std::vector<std::uint16_t>&);
template std::size_t KrTriangleSieve::copy(const std::uint16_t*, const Sight*, const Sight*, const KrNearestDepths*,
                                           std::uint16_t*);
template std::size_t KrTriangleSieve::copy(const std::uint32_t*, const Sight*, const Sight*, const KrNearestDepths*,
                                           std::uint32_t*);
