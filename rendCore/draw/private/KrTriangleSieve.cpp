#include <rendCore/draw/private/KrTriangleSieve.h>

#include <toolkit/foundation/private/KrAvx2.h>

#include <osg/BoundingBox>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <numeric>

namespace
{

/// Units of a spot's coordinates that a pixel has: finer than drivers round, so that little is added to what they do.
constexpr std::int32_t kPixelBits = 12;
constexpr std::int32_t kPixel = 1 << kPixelBits;
/// Of cells, whose vertex may as well be in the next column or row.
constexpr std::uint32_t kEither = 0x10001;
/// What is cut off of a spot's coordinates on the way to integers, units.
constexpr double kCutOff = 1.0;
/// A triangle among the middles of more columns or rows than these is large.
constexpr std::int32_t kMostMiddles = 2;
/// How much products of coordinates within so many pixels err, square units: a few roundings of 2^28.
constexpr float kProductError = 128.0f;
/// A triangle among the middles of more columns or rows than these is taken to show.
constexpr std::int32_t kMostLarge = 32;
/// The same for these: of 2^34.
constexpr float kLargeProductError = 16384.0f;
/// A large triangle is looked at in tiles of so many middles.
constexpr std::int32_t kTileWidth = 8;
constexpr std::int32_t kTileHeight = 4;
/// How much of what a plane rises over a distance it may be off: a driver computes it at a corner of the picture.
constexpr double kPlaneError = 1.0 / 512;
/// How much single precision errs, of the largest number that takes part.
constexpr double kError = 8.0 / (1 << 24);
/// Beyond it nothing is known, pixels.
constexpr double kMostError = 0.125;
/// Twice the distance of the farthest spot from the window's lower left corner, pixels: so columns and rows are told by
/// 15 bits.
constexpr double kMostPixels = 1 << 15;
/// Of the depth of what is farthest: with something nearer an eye is as good as within the mesh.
constexpr double kNearest = 0.02;
/// Beyond these, products and quotients below might be no floats, nor integers then.
constexpr double kSmallest = 1e-30;
constexpr double kLargest = 1e30;

// By value, unlike the library's: compilers take several at a time then.
float least(float a, float b)
{
    return b < a ? b : a;
}
float least(float a, float b, float c)
{
    return least(least(a, b), c);
}
float most(float a, float b, float c)
{
    return -least(-a, -b, -c);
}

osg::Matrixd absolute(const osg::Matrixd& matrix)
{
    osg::Matrixd result;
    std::transform(matrix.ptr(), matrix.ptr() + 16, result.ptr(), [](double number) { return std::abs(number); });
    return result;
}

} // namespace

/// Some of a sieve's triangles, and what becomes of them step by step. It is kept with the sights: to clear it for
/// each sieve would take a good part of the time that looking does.
struct KrTriangleSieve::Batch
{
    static constexpr std::size_t kMost = 128;
    static constexpr std::size_t kMostMiddlesOfAll = kMost * kMostMiddles * kMostMiddles;

    /// Eight triangles.
    struct Triangles
    {
        // Corners.
        float ax[kBlock] = {};
        float ay[kBlock] = {};
        float bx[kBlock] = {};
        float by[kBlock] = {};
        float cx[kBlock] = {};
        float cy[kBlock] = {};
        // The first middle that they may cover, and how many more columns and rows of them there are.
        float x[kBlock] = {};
        float y[kBlock] = {};
        std::uint32_t pixel[kBlock] = {};
        std::int32_t wide[kBlock] = {};
        std::int32_t high[kBlock] = {};
        std::int32_t isBack[kBlock] = {};
    };
    /// Eight times a triangle before a middle.
    struct Middles
    {
        float x[kBlock] = {};
        float y[kBlock] = {};
        float ax[kBlock] = {};
        float ay[kBlock] = {};
        float bx[kBlock] = {};
        float by[kBlock] = {};
        float cx[kBlock] = {};
        float cy[kBlock] = {};
        float az[kBlock] = {};
        float bz[kBlock] = {};
        float cz[kBlock] = {};
        float inside[kBlock] = {};
        float most[kBlock] = {};   ///< nearness
        float surest[kBlock] = {}; ///< 0 where the triangle may not cover the middle, or be cut by the driver
    };

    std::size_t count = 0;
    std::uint32_t firsts[kMost] = {};
    Triangles triangles[kMost / kBlock];
    // Triangles before middles.
    std::size_t numMiddles = 0;
    std::uint32_t numbers[kMostMiddlesOfAll + 1] = {}; ///< in the batch
    std::uint32_t pixels[kMostMiddlesOfAll + 1] = {};
    std::uint32_t found[kMostMiddlesOfAll + 1] = {};
    Middles middles[kMostMiddlesOfAll / kBlock + 1]; ///< the last one may be written where none is added
};

/// Looks through the triangles of a sieve whose vertices have been found in the window. A batch of them takes one step
/// after the other, without branches: a processor can hardly guess which triangles pass, and takes several at a time
/// where the compiler sees that each is treated alike.
template <bool kIsNearnessWanted>
class KrTriangleSieve::Looking
{
public:
    /// @param sights  of which the vertices' places are there; what is found goes behind those that it has
    Looking(const View& view, const Margins& margins, const std::vector<std::uint16_t>& corners, Sights& sights)
        : m_margins(margins)
        , m_least(view.areBacksLeftOut ? -3.0f * margins.place : -std::numeric_limits<float>::infinity())
        , m_reach(margins.place + static_cast<float>(kPlaneError * (view.width + view.height)))
        , m_sure(kProductError + 2.0f * margins.place * margins.place)
        , m_nearest(view.nearest)
        , m_width(static_cast<std::int32_t>(view.width))
        , m_height(static_cast<std::int32_t>(view.height))
        , m_leastSign(view.areBacksLeftOut ? 1.0f : -1.0f)
        , m_corners(corners.data())
        , m_x(sights.m_x.data())
        , m_y(sights.m_y.data())
        , m_nearness(sights.m_nearness.data())
        , m_cells(sights.m_cells.data())
        , m_batch(*sights.m_batch)
    {
    }
    /// @return the number of triangles found
    std::size_t run(std::size_t numTriangles, Sights& sights)
    {
        const std::uint32_t end = static_cast<std::uint32_t>(3 * numTriangles);
        for (std::uint32_t next = 0; next != end;) {
            next = findApart(next, end);
            findBoxes();
            findMiddles();
            look();
            if (sights.m_sights.size() < sights.m_size + kMostSights) {
                sights.m_sights.resize(2 * sights.m_size + kMostSights);
            }
            m_end = sights.m_sights.data() + sights.m_size;
            append();
            sights.m_size = static_cast<std::size_t>(m_end - sights.m_sights.data());
        }
        return m_numTriangles;
    }

private:
    using Triangles = Batch::Triangles;
    using Middles = Batch::Middles;
    static constexpr std::uint32_t kNoPixel = std::numeric_limits<std::uint32_t>::max();
    /// In the place of a pixel's number.
    static constexpr std::uint32_t kLarge = kNoPixel - 1;
    static constexpr std::uint32_t kBits[kTileWidth] = {1, 2, 4, 8, 16, 32, 64, 128};
    /// Of a batch, and one more that is written but not added.
    static constexpr std::size_t kMostSights =
        Batch::kMost * (kMostLarge / kTileWidth) * (kMostLarge / kTileHeight) + std::size_t{1};

    /// Fills a batch with triangles whose corners are not all between the middles of the same two columns or rows.
    /// @return where the next batch begins
    std::uint32_t findApart(std::uint32_t next, std::uint32_t end)
    {
        std::size_t count = 0;
        for (; next != end && count < Batch::kMost; next += 3) {
            const std::uint32_t cell = m_cells[m_corners[next]];
            const std::uint32_t apart =
                (cell ^ m_cells[m_corners[next + 1]]) | (cell ^ m_cells[m_corners[next + 2]]) | (cell & kEither);
            m_batch.firsts[count] = next;
            count += apart > 0xffff && (apart & 0xffff) != 0 ? 1 : 0;
        }
        m_batch.count = count;
        return next;
    }
    /// Finds between which middles the triangles of the batch are, and which of them are backs.
    void findBoxes()
    {
        for (std::size_t i = 0; i < m_batch.count; ++i) {
            const std::uint16_t* const corners = m_corners + m_batch.firsts[i];
            Triangles& to = m_batch.triangles[i / kBlock];
            to.ax[i % kBlock] = m_x[corners[0]];
            to.ay[i % kBlock] = m_y[corners[0]];
            to.bx[i % kBlock] = m_x[corners[1]];
            to.by[i % kBlock] = m_y[corners[1]];
            to.cx[i % kBlock] = m_x[corners[2]];
            to.cy[i % kBlock] = m_y[corners[2]];
        }
        for (std::size_t i = 0; i < m_batch.count; i += kBlock) {
            findBoxes(m_batch.triangles[i / kBlock]);
        }
    }
    void findBoxes(Triangles& t) const
    {
        const float margin = m_margins.place;
        const float factor = m_least;
        const std::int32_t width = m_width;
        const std::int32_t height = m_height;
        for (std::size_t i = 0; i < kBlock; ++i) {
            const auto from = [margin](float place) {
                return (static_cast<std::int32_t>(place - margin) + kPixel - 1) >> kPixelBits;
            };
            const auto to = [margin](float place) { return static_cast<std::int32_t>(place + margin) >> kPixelBits; };
            const std::int32_t left = from(least(t.ax[i], t.bx[i], t.cx[i]));
            const std::int32_t bottom = from(least(t.ay[i], t.by[i], t.cy[i]));
            const std::int32_t wide = to(most(t.ax[i], t.bx[i], t.cx[i])) - left;
            const std::int32_t high = to(most(t.ay[i], t.by[i], t.cy[i])) - bottom;
            t.x[i] = static_cast<float>(left * kPixel);
            t.y[i] = static_cast<float>(bottom * kPixel);
            t.wide[i] = wide < 0 ? 0 : wide;
            t.high[i] = high < 0 ? 0 : high;
            // At the border of the picture drivers cut triangles.
            const bool isWithin = (left > kMostMiddles) & (left + wide < width - 1 - kMostMiddles) &
                                  (bottom > kMostMiddles) & (bottom + high < height - 1 - kMostMiddles);
            t.pixel[i] = isWithin ? static_cast<std::uint32_t>(bottom * width + left) : kNoPixel;
            const float bx = t.bx[i] - t.ax[i];
            const float by = t.by[i] - t.ay[i];
            const float cx = t.cx[i] - t.ax[i];
            const float cy = t.cy[i] - t.ay[i];
            // Backs: higher above the longest side than all three corners together may be off, which is twice the root
            // of two margins.
            t.isBack[i] =
                bx * cy - cx * by < factor * (std::abs(bx) + std::abs(by) + std::abs(cx) + std::abs(cy)) ? 1 : 0;
        }
    }
    /// Lists the middles that the triangles may cover.
    void findMiddles()
    {
        std::size_t count = 0;
        const auto add = [this, &count](std::size_t i, float x, float y, std::uint32_t pixel, bool isAdded) {
            m_batch.numbers[count] = static_cast<std::uint32_t>(i);
            m_batch.pixels[count] = pixel;
            m_batch.middles[count / kBlock].x[count % kBlock] = x;
            m_batch.middles[count / kBlock].y[count % kBlock] = y;
            count += isAdded ? 1 : 0;
        };
        for (std::size_t i = 0; i < m_batch.count; ++i) {
            const Triangles& t = m_batch.triangles[i / kBlock];
            const std::size_t k = i % kBlock;
            const bool isShown = t.isBack[k] == 0;
            const float x = t.x[k];
            const float y = t.y[k];
            const bool isLarge = t.wide[k] >= kMostMiddles || t.high[k] >= kMostMiddles;
            const std::uint32_t pixel = isLarge ? kLarge : t.pixel[k];
            add(i, x, y, pixel, isShown);
            // Most have one middle.
            if (t.wide[k] + t.high[k] != 0 && !isLarge) {
                const auto pixelAt = [pixel](std::uint32_t offset) {
                    return pixel == kNoPixel ? kNoPixel : pixel + offset;
                };
                const auto width = static_cast<std::uint32_t>(m_width);
                const bool isWide = isShown && t.wide[k] != 0;
                const bool isHigh = isShown && t.high[k] != 0;
                add(i, x + static_cast<float>(kPixel), y, pixelAt(1), isWide);
                add(i, x, y + static_cast<float>(kPixel), pixelAt(width), isHigh);
                add(i, x + static_cast<float>(kPixel), y + static_cast<float>(kPixel), pixelAt(width + 1),
                    isWide && isHigh);
            }
        }
        m_batch.numMiddles = count;
    }
    /// Looks whether the middles may be in the triangles, whose corners may be off by the margin. What these span then
    /// is the triangle with a square of that size around each of its points: within the square's reach of each side,
    /// and of the box. Finds how near the triangles are there, at the most and at the least.
    void look()
    {
        for (std::size_t k = 0; k < m_batch.numMiddles; ++k) {
            const std::size_t i = m_batch.numbers[k] % kBlock;
            const Triangles& from = m_batch.triangles[m_batch.numbers[k] / kBlock];
            Middles& to = m_batch.middles[k / kBlock];
            to.ax[k % kBlock] = from.ax[i];
            to.ay[k % kBlock] = from.ay[i];
            to.bx[k % kBlock] = from.bx[i];
            to.by[k % kBlock] = from.by[i];
            to.cx[k % kBlock] = from.cx[i];
            to.cy[k % kBlock] = from.cy[i];
            if (kIsNearnessWanted) {
                const std::uint16_t* const corners = m_corners + m_batch.firsts[m_batch.numbers[k]];
                to.az[k % kBlock] = m_nearness[corners[0]];
                to.bz[k % kBlock] = m_nearness[corners[1]];
                to.cz[k % kBlock] = m_nearness[corners[2]];
            }
        }
        for (std::size_t k = 0; k < m_batch.numMiddles; k += kBlock) {
            look(m_batch.middles[k / kBlock]);
        }
    }
    void look(Middles& m) const
    {
        const float margin = m_margins.place;
        const float nearnessMargin = m_margins.nearness;
        const float planeReach = m_reach;
        const float surelyWithin = m_sure;
        const float leastSign = m_leastSign;
        for (std::size_t i = 0; i < kBlock; ++i) {
            const float ax = m.ax[i] - m.x[i];
            const float ay = m.ay[i] - m.y[i];
            const float bx = m.bx[i] - m.x[i];
            const float by = m.by[i] - m.y[i];
            const float cx = m.cx[i] - m.x[i];
            const float cy = m.cy[i] - m.y[i];
            // Twice the areas between a side and the middle.
            const float ab = ax * by - ay * bx;
            const float bc = bx * cy - by * cx;
            const float ca = cx * ay - cy * ax;
            const float area = ab + bc + ca;
            const float reachOfAb = std::abs(bx - ax) + std::abs(by - ay);
            const float reachOfBc = std::abs(cx - bx) + std::abs(cy - by);
            const float reachOfCa = std::abs(ax - cx) + std::abs(ay - cy);
            const float sign = std::copysign(1.0f, area);
            m.inside[i] =
                least(sign * ab + margin * reachOfAb, sign * bc + margin * reachOfBc, sign * ca + margin * reachOfCa);
            if (kIsNearnessWanted) {
                const float farthest = least(m.az[i], m.bz[i], m.cz[i]);
                const float nearest = most(m.az[i], m.bz[i], m.cz[i]);
                // How much its plane may rise within what the middle may be off it, and the driver's plane be off this
                // one: the rise in each direction is less than two spans of nearness on the other side of the box by
                // the area.
                const float reach = reachOfAb + reachOfBc + reachOfCa;
                // Of a sliver the driver may know no more than that; infinity shows.
                const float room = std::abs(area) - margin * reach;
                const float rise = (nearest - farthest + 2.0f * nearnessMargin) * reach / (room > 0.0f ? room : 0.0f);
                const float error = nearnessMargin + rise * (planeReach + static_cast<float>(kPlaneError) * reach);
                m.most[i] = nearest + error;
                // Wherever the corners are within their margins, the middle is on the inner side of each side.
                const float a = std::abs(ax) + std::abs(ay);
                const float b = std::abs(bx) + std::abs(by);
                const float c = std::abs(cx) + std::abs(cy);
                const float within =
                    least(sign * ab - margin * (a + b), sign * bc - margin * (b + c), sign * ca - margin * (c + a));
                // Factors, since compilers take no condition for what they do to several at a time.
                const float isDrawn = sign < leastSign ? 0.0f : 1.0f;
                const float isCovered = within > surelyWithin ? 1.0f : 0.0f;
                const float isUncut = nearest + error < 1.0f ? 1.0f : 0.0f;
                m.surest[i] = (farthest - error) * isDrawn * isCovered * isUncut;
            }
        }
    }
    /// Adds what is found, but for what is hidden by what has been found before.
    void append()
    {
        std::size_t count = 0;
        for (std::size_t k = 0; k < m_batch.numMiddles; ++k) {
            m_batch.found[count] = static_cast<std::uint32_t>(k);
            const bool isInside = m_batch.middles[k / kBlock].inside[k % kBlock] >= -kProductError;
            count += static_cast<std::size_t>(isInside | (m_batch.pixels[k] == kLarge));
        }
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t k = m_batch.found[i];
            const std::uint32_t first = m_batch.firsts[m_batch.numbers[k]];
            if (!kIsNearnessWanted || m_batch.pixels[k] == kNoPixel) {
                append(unhidden(first), true);
            } else if (m_batch.pixels[k] == kLarge) {
                appendLarge(first, m_batch.triangles[m_batch.numbers[k] / kBlock], m_batch.numbers[k] % kBlock);
            } else {
                const float nearness = m_batch.middles[k / kBlock].most[k % kBlock];
                const float known = m_nearest->nearness(m_batch.pixels[k]);
                // Written so that NaN shows.
                append({first, m_batch.pixels[k], nearness, 1}, !(nearness < known));
                m_nearest->add(m_batch.pixels[k], m_batch.middles[k / kBlock].surest[k % kBlock]);
            }
        }
    }
    void append(const Sight& sight, bool isSeen)
    {
        *m_end = sight;
        m_end += isSeen ? 1 : 0;
        // However many middles a triangle may cover.
        m_numTriangles += isSeen && sight.first != m_last ? 1 : 0;
        m_last = isSeen ? sight.first : m_last;
    }
    static Sight unhidden(std::uint32_t first) { return {first, 0, std::numeric_limits<float>::infinity(), 1}; }
    /// A plane over the window, from the first middle of a triangle.
    struct Plane
    {
        float at(std::int32_t column, std::int32_t row) const
        {
            return first + static_cast<float>(column) * toColumn + static_cast<float>(row) * toRow;
        }
        float first = 0.0f;
        float toColumn = 0.0f; ///< from one to the next
        float toRow = 0.0f;
    };
    /// A large triangle.
    struct Large
    {
        // How far a middle is within each side: not below 0 where it may be covered, more than `within` in all three
        // where it is for certain. Square units.
        Plane ab;
        Plane bc;
        Plane ca;
        float within = 0.0f;
        Plane nearness;
        float error = 0.0f;   ///< of nearness
        float nearest = 0.0f; ///< of the corners
    };
    /// @return false for slivers, of which little is known, and what the driver may cut
    bool findLarge(std::uint32_t first, const Triangles& t, std::size_t i, Large& large) const
    {
        const float margin = m_margins.place;
        const float ax = t.ax[i] - t.x[i];
        const float ay = t.ay[i] - t.y[i];
        const float bx = t.bx[i] - t.x[i];
        const float by = t.by[i] - t.y[i];
        const float cx = t.cx[i] - t.x[i];
        const float cy = t.cy[i] - t.y[i];
        const float az = m_nearness[m_corners[first]];
        const float bz = m_nearness[m_corners[first + 1]];
        const float cz = m_nearness[m_corners[first + 2]];
        const float area = (ax - cx) * (by - cy) - (ay - cy) * (bx - cx);
        const float reachOfAb = std::abs(bx - ax) + std::abs(by - ay);
        const float reachOfBc = std::abs(cx - bx) + std::abs(cy - by);
        const float reachOfCa = std::abs(ax - cx) + std::abs(ay - cy);
        const float reach = reachOfAb + reachOfBc + reachOfCa;
        const float farthest = least(az, bz, cz);
        large.nearest = most(az, bz, cz);
        // As for small ones. The driver's plane is off this one at the corners by what these may be off, upwards and
        // along the plane, and nowhere more between them; on the margin around them, both rise over it once more.
        const float room = std::abs(area) - margin * reach - 4.0f * m_sure;
        const float rise = (large.nearest - farthest + 2.0f * m_margins.nearness) * reach / room;
        large.error = m_margins.nearness + rise * (m_reach + 2.0f * margin + static_cast<float>(kPlaneError) * reach);
        // Written so that NaN is none.
        if (!(room > 0.0f) || !(large.nearest + large.error < 1.0f) || !(farthest > large.error)) {
            return false;
        }
        const float sign = std::copysign(1.0f, area);
        const auto side = [sign, margin](float x, float y, float toX, float toY, float reachOfSide) {
            return Plane{sign * (x * toY - y * toX) + margin * reachOfSide + kLargeProductError,
                         sign * (y - toY) * kPixel, sign * (toX - x) * kPixel};
        };
        large.ab = side(ax, ay, bx, by, reachOfAb);
        large.bc = side(bx, by, cx, cy, reachOfBc);
        large.ca = side(cx, cy, ax, ay, reachOfCa);
        // The reach of all sides is twice that of the box, within which two corners are from a middle.
        large.within = sign < m_leastSign ? std::numeric_limits<float>::infinity()
                                          : 2.0f * margin * reach + 2.0f * kLargeProductError + 2.0f * margin * margin;
        const float alongX = ((az - cz) * (by - cy) - (bz - cz) * (ay - cy)) / area;
        const float alongY = ((bz - cz) * (ax - cx) - (az - cz) * (bx - cx)) / area;
        large.nearness = {cz - alongX * cx - alongY * cy, alongX * kPixel, alongY * kPixel};
        return true;
    }
    /// Looks at some middles of a row, and tells what they hide.
    /// @return a bit for each that may be covered and seen
    static std::uint32_t look(const Large& large, std::int32_t column, std::int32_t row, float* nearest)
    {
        const float inAb = large.ab.at(column, row);
        const float inBc = large.bc.at(column, row);
        const float inCa = large.ca.at(column, row);
        const float nearness = large.nearness.at(column, row);
        float known[kTileWidth];
        std::copy_n(nearest, kTileWidth, known);
        std::uint32_t bits[kTileWidth];
        float surest[kTileWidth];
        float isSure[kTileWidth];
        for (std::int32_t i = 0; i < kTileWidth; ++i) {
            const auto along = static_cast<float>(i);
            const float inside = least(inAb + along * large.ab.toColumn, inBc + along * large.bc.toColumn,
                                       inCa + along * large.ca.toColumn);
            const float here = nearness + along * large.nearness.toColumn;
            const std::uint32_t isCovered = inside >= 0.0f ? kBits[i] : 0;
            const std::uint32_t isInFront = here + large.error < known[i] ? 0 : kBits[i];
            bits[i] = isCovered & isInFront;
            surest[i] = here - large.error;
            isSure[i] = inside > large.within ? 1.0f : 0.0f;
        }
        // Apart from what it depends on: compilers do not take several at a time otherwise.
        for (std::int32_t i = 0; i < kTileWidth; ++i) {
            const float nearer = surest[i] * isSure[i];
            known[i] = nearer > known[i] ? nearer : known[i];
        }
        std::copy_n(known, kTileWidth, nearest);
        return std::accumulate(bits, bits + kTileWidth, std::uint32_t{0});
    }
    /// The same as for a small triangle, tile by tile, with a plane that tells how near it is at a middle.
    void appendLarge(std::uint32_t first, const Triangles& t, std::size_t i)
    {
        Large large;
        if (t.pixel[i] == kNoPixel || t.wide[i] >= kMostLarge || t.high[i] >= kMostLarge ||
            !findLarge(first, t, i, large)) {
            append(unhidden(first), true);
            return;
        }
        for (std::int32_t row = 0; row <= t.high[i]; row += kTileHeight) {
            for (std::int32_t column = 0; column <= t.wide[i]; column += kTileWidth) {
                const std::uint32_t pixel = t.pixel[i] + static_cast<std::uint32_t>(row * m_width + column);
                const std::int32_t numRows = std::min(kTileHeight, t.high[i] + 1 - row);
                const std::int32_t numColumns = std::min(kTileWidth, t.wide[i] + 1 - column);
                std::uint32_t seen = 0;
                for (std::int32_t r = 0; r < numRows; ++r) {
                    const std::uint32_t bits =
                        look(large, column, row + r, m_nearest->at(pixel + static_cast<std::uint32_t>(r * m_width)));
                    seen |= (bits & ((1u << numColumns) - 1)) << (kTileWidth * r);
                }
                const float nearness = large.nearness.at(column, row) +
                                       std::max(large.nearness.toColumn * (kTileWidth - 1), 0.0f) +
                                       std::max(large.nearness.toRow * (kTileHeight - 1), 0.0f);
                append({first, pixel, std::min(large.nearest, nearness) + large.error, seen}, seen != 0);
            }
        }
    }

    Margins m_margins;
    float m_least; ///< that fronts are high above a side, of the sides' lengths
    float m_reach; ///< of what a plane errs by, from a middle
    float m_sure;  ///< square units within each side
    KrNearestDepths* m_nearest;
    std::int32_t m_width;
    std::int32_t m_height;
    float m_leastSign; ///< of the areas of triangles that the driver draws
    const std::uint16_t* m_corners;
    const float* m_x;
    const float* m_y;
    const float* m_nearness;
    const std::uint32_t* m_cells;
    Batch& m_batch;
    Sight* m_end = nullptr;
    std::uint32_t m_last = kNoPixel; ///< appended
    std::size_t m_numTriangles = 0;
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

double KrTriangleSieve::distance(const View& view) const
{
    const double distance = -(m_center * view.modelView).z();
    return std::isfinite(distance) ? distance : 0.0;
}

/// How far the vertices may be from where they are taken to be in the window.
/// @return false where nothing is known
bool KrTriangleSieve::findMargins(const View& view, Margins& margins) const
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
    margins.place = static_cast<float>(std::ceil(kCutOff + (view.rounding + error) * kPixel));
    margins.nearness = static_cast<float>(view.depthRounding + kError + 0.5 * kError * (bound(2) + bound(3)) / nearest);
    return true;
}

/// Where the vertices are in the window.
template <bool kIsNearnessWanted>
void KrTriangleSieve::findSpots(const View& view, Sights& sights, std::int32_t margin) const
{
    const osg::Matrixd matrix = view.modelView * view.projection;
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
    std::size_t first = 0;
    for (const Block& block : m_blocks) {
        float xs[kBlock];
        float ys[kBlock];
        float nearness[kBlock];
        std::uint32_t cells[kBlock];
        for (std::size_t i = 0; i < kBlock; ++i) {
            const float w = 1.0f / (block.x[i] * toW[0] + block.y[i] * toW[1] + block.z[i] * toW[2] + toW[3]);
            xs[i] = (block.x[i] * toX[0] + block.y[i] * toX[1] + block.z[i] * toX[2] + toX[3]) * w;
            ys[i] = (block.x[i] * toY[0] + block.y[i] * toY[1] + block.z[i] * toY[2] + toY[3]) * w;
            if (kIsNearnessWanted) {
                nearness[i] = (block.x[i] * toZ[0] + block.y[i] * toZ[1] + block.z[i] * toZ[2] + toZ[3]) * w;
            }
            const auto cellOf = [margin](float place) {
                const std::int32_t most = static_cast<std::int32_t>(place) + margin;
                const std::int32_t isEither = (most & (kPixel - 1)) < 2 * margin ? 1 : 0;
                return static_cast<std::uint32_t>((most >> kPixelBits) * 2 + isEither);
            };
            cells[i] = cellOf(xs[i]) << 16 | (cellOf(ys[i]) & 0xffff);
        }
        std::copy_n(xs, kBlock, &sights.m_x[first]);
        std::copy_n(ys, kBlock, &sights.m_y[first]);
        if (kIsNearnessWanted) {
            std::copy_n(nearness, kBlock, &sights.m_nearness[first]);
        }
        std::copy_n(cells, kBlock, &sights.m_cells[first]);
        first += kBlock;
    }
}

template <bool kIsNearnessWanted>
std::size_t KrTriangleSieve::look(const View& view, const Margins& margins, Sights& sights) const
{
    const std::size_t count = std::max(sights.m_x.size(), kBlock * m_blocks.size());
    sights.m_x.resize(count);
    sights.m_y.resize(count);
    sights.m_nearness.resize(count);
    sights.m_cells.resize(count);
    findSpots<kIsNearnessWanted>(view, sights, static_cast<std::int32_t>(margins.place));
    return Looking<kIsNearnessWanted>(view, margins, m_corners, sights).run(numTriangles(), sights);
}

std::size_t KrTriangleSieve::lookPlainly(const View& view, const Margins& margins, Sights& sights) const
{
    return view.nearest != nullptr ? look<true>(view, margins, sights) : look<false>(view, margins, sights);
}

// Not by way of the other one, which a shared library leaves as it is.
KR_AVX2 std::size_t KrTriangleSieve::lookWidely(const View& view, const Margins& margins, Sights& sights) const
{
    return view.nearest != nullptr ? look<true>(view, margins, sights) : look<false>(view, margins, sights);
}

KrTriangleSieve::Vectors KrTriangleSieve::vectors()
{
    return KrAvx2::isThere() ? Vectors::Avx2 : Vectors::Plain;
}

std::size_t KrTriangleSieve::find(const View& view, Sights& sights, Vectors vectors) const
{
    Margins margins;
    if (!findMargins(view, margins)) {
        return numTriangles();
    }
    if (!sights.m_batch) {
        sights.m_batch = std::make_shared<Batch>();
    }
    return vectors == Vectors::Avx2 ? lookWidely(view, margins, sights) : lookPlainly(view, margins, sights);
}

/// Whether nothing that is known hides it.
bool KrTriangleSieve::isSeen(const Sight& sight, const KrNearestDepths& nearest)
{
    std::uint32_t row = sight.pixel;
    for (std::uint32_t tile = sight.middles; tile != 0; tile >>= kTileWidth) {
        std::uint32_t pixel = row;
        for (std::uint32_t bits = tile & ((1u << kTileWidth) - 1); bits != 0; bits >>= 1) {
            if ((bits & 1) != 0 && !(sight.nearness < nearest.nearness(pixel))) {
                return true;
            }
            ++pixel;
        }
        row += nearest.width();
    }
    return false;
}

template <typename Index>
std::size_t KrTriangleSieve::copy(const Index* indices, const Sight* begin, const Sight* end,
                                  const KrNearestDepths* nearest, Index* kept)
{
    Index* next = kept;
    const Sight* last = nullptr; // copied
    for (const Sight* sight = begin; sight != end; ++sight) {
        if ((last == nullptr || sight->first != last->first) && (nearest == nullptr || isSeen(*sight, *nearest))) {
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
