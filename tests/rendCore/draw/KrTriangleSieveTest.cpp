#include <rendCore/draw/private/KrSiftingPass.h>
#include <rendCore/draw/private/KrTriangleSieve.h>

#include <gtest/gtest.h>

#include <osg/Quat>
#include <osg/Vec3d>
#include <osg/Vec4>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace
{

using Indices = std::vector<std::uint16_t>;
using View = KrTriangleSieve::View;

/// Triangles and what a sieve leaves of them.
struct Mesh
{
    /// All of them where nothing is known. The same with all instructions that the processor has.
    Indices sift(const View& view) const
    {
        const Indices kept = sift(view, KrTriangleSieve::Vectors::Plain);
        EXPECT_EQ(sift(view, KrTriangleSieve::vectors()), kept);
        return kept;
    }
    Indices sift(View view, KrTriangleSieve::Vectors vectors) const
    {
        KrNearestDepths nearest;
        if (view.nearest != nullptr) {
            nearest = *view.nearest;
            view.nearest = &nearest;
        }
        KrTriangleSieve::Sights sights;
        if (sieve().find(view, sights, vectors) == indices.size() / 3) {
            return indices;
        }
        return copy(sights.data(), sights.data() + sights.size(), view.nearest);
    }
    KrTriangleSieve sieve() const
    {
        std::vector<std::uint16_t> numbers(vertices.size(), KrTriangleSieve::kNoNumber);
        return KrTriangleSieve(vertices.data(), indices.data(), indices.size(), numbers);
    }
    Indices copy(const KrTriangleSieve::Sight* begin, const KrTriangleSieve::Sight* end,
                 const KrNearestDepths* nearest) const
    {
        Indices kept(3 * static_cast<std::size_t>(end - begin));
        kept.resize(KrTriangleSieve::copy(indices.data(), begin, end, nearest, kept.data()));
        return kept;
    }
    std::vector<osg::Vec3> vertices;
    Indices indices;
};

/// A ball, corners counter-clockwise seen from outside.
struct Ball : public Mesh
{
    explicit Ball(const osg::Vec3& center = {})
    {
        constexpr unsigned int kRings = 60;
        constexpr unsigned int kSegments = 70;
        for (unsigned int ring = 0; ring <= kRings; ++ring) {
            for (unsigned int segment = 0; segment < kSegments; ++segment) {
                const double height = osg::PI * ring / kRings;
                const double around = 2.0 * osg::PI * segment / kSegments;
                vertices.push_back(center +
                                   osg::Vec3(osg::Vec3d(std::sin(height) * std::cos(around),
                                                        std::sin(height) * std::sin(around), std::cos(height)) *
                                             0.5));
            }
        }
        for (unsigned int ring = 0; ring < kRings; ++ring) {
            for (unsigned int segment = 0; segment < kSegments; ++segment) {
                const unsigned int a = ring * kSegments + segment;
                const unsigned int b = ring * kSegments + (segment + 1) % kSegments;
                for (const unsigned int corner : {a, a + kSegments, b, b, a + kSegments, b + kSegments}) {
                    indices.push_back(static_cast<std::uint16_t>(corner));
                }
            }
        }
    }
};

osg::Vec4 multiply(const osg::Vec4& v, const osg::Matrixd& matrix)
{
    float result[4];
    for (int column = 0; column < 4; ++column) {
        result[column] = v.x() * static_cast<float>(matrix(0, column)) + v.y() * static_cast<float>(matrix(1, column)) +
                         v.z() * static_cast<float>(matrix(2, column)) + v.w() * static_cast<float>(matrix(3, column));
    }
    return {result[0], result[1], result[2], result[3]};
}

/// A triangle as a driver sees it that computes in single precision, and rounds as coarsely as the view allows.
struct Drawn
{
    Drawn(const Mesh& mesh, const std::uint16_t* corners, const View& view)
        : pixel(std::llround(0.5 / view.rounding))
    {
        for (unsigned int k = 0; k < 3; ++k) {
            const osg::Vec4 clip =
                multiply(multiply(osg::Vec4(mesh.vertices[corners[k]], 1.0f), view.modelView), view.projection);
            const float width = static_cast<float>(0.5 * view.width);
            const float height = static_cast<float>(0.5 * view.height);
            // Of pixels' middles.
            place[k] = {clip.x() / clip.w() * width + width - 0.5f, clip.y() / clip.w() * height + height - 0.5f,
                        clip.z() / clip.w() * 0.5f + 0.5f};
            x[k] = std::llround(static_cast<float>(pixel) * place[k].x());
            y[k] = std::llround(static_cast<float>(pixel) * place[k].y());
        }
        const std::int64_t area = side(0, 1, x[2], y[2]);
        sign = area == 0 || (view.areBacksLeftOut && area < 0) ? 0 : area < 0 ? -1 : 1;
    }
    /// Calls `draw(column, row)` for each pixel.
    /// @param isBorderDrawn  which side of it is drawn is the driver's business
    template <typename Draw>
    void forEachPixel(bool isBorderDrawn, const Draw& draw) const
    {
        const std::int64_t least = isBorderDrawn ? 0 : 1;
        const auto up = [this](std::int64_t v) { return (v + pixel * (1 << 20) + pixel - 1) / pixel - (1 << 20); };
        for (std::int64_t row = up(*std::min_element(y, y + 3)); pixel * row <= *std::max_element(y, y + 3); ++row) {
            for (std::int64_t column = up(*std::min_element(x, x + 3)); pixel * column <= *std::max_element(x, x + 3);
                 ++column) {
                if (sign != 0 && sign * side(0, 1, pixel * column, pixel * row) >= least &&
                    sign * side(1, 2, pixel * column, pixel * row) >= least &&
                    sign * side(2, 0, pixel * column, pixel * row) >= least) {
                    draw(column, row);
                }
            }
        }
    }
    /// By a plane that begins in the corner of the picture.
    float depth(std::int64_t column, std::int64_t row) const
    {
        const osg::Vec3 b = place[1] - place[0];
        const osg::Vec3 c = place[2] - place[0];
        const float area = b.x() * c.y() - b.y() * c.x();
        const float alongX = (b.z() * c.y() - c.z() * b.y()) / area;
        const float alongY = (c.z() * b.x() - b.z() * c.x()) / area;
        const float atCorner = place[0].z() - (alongX * place[0].x() + alongY * place[0].y());
        return atCorner + alongX * static_cast<float>(column) + alongY * static_cast<float>(row);
    }

private:
    std::int64_t side(unsigned int from, unsigned int to, std::int64_t px, std::int64_t py) const
    {
        return (x[to] - x[from]) * (py - y[from]) - (y[to] - y[from]) * (px - x[from]);
    }

    std::int64_t pixel;
    osg::Vec3 place[3];
    std::int64_t x[3];
    std::int64_t y[3];
    std::int64_t sign;
};

bool isDrawn(const Mesh& mesh, const std::uint16_t* corners, const View& view)
{
    bool isSeen = false;
    Drawn(mesh, corners, view).forEachPixel(true, [&isSeen](std::int64_t, std::int64_t) { isSeen = true; });
    return isSeen;
}

/// The first corner of what is seen in each pixel, drawn in the order of `indices`; of one depth it is the first one.
std::vector<std::uint16_t> picture(const Mesh& mesh, const Indices& indices, const View& view, bool isBorderDrawn)
{
    const auto width = static_cast<std::int64_t>(view.width);
    const auto height = static_cast<std::int64_t>(view.height);
    std::vector<std::uint16_t> seen(static_cast<std::size_t>(width * height), 0xffff);
    std::vector<std::int64_t> depths(seen.size(), std::int64_t{1} << 24);
    for (std::size_t i = 0; i < indices.size(); i += 3) {
        const Drawn triangle(mesh, &indices[i], view);
        triangle.forEachPixel(isBorderDrawn, [&](std::int64_t column, std::int64_t row) {
            if (column < 0 || row < 0 || column >= width || row >= height) {
                return;
            }
            const auto pixel = static_cast<std::size_t>(row * width + column);
            const std::int64_t depth = std::llround(std::ldexp(triangle.depth(column, row), 24));
            if (depth < depths[pixel]) {
                depths[pixel] = depth;
                seen[pixel] = indices[i];
            }
        });
    }
    return seen;
}

/// How many triangles that are drawn are not among `kept`, which are triangles of the mesh in their order.
std::size_t numLost(const Mesh& mesh, const Indices& kept, const View& view)
{
    std::size_t count = 0;
    std::size_t next = 0;
    for (std::size_t i = 0; i < mesh.indices.size(); i += 3) {
        const std::uint16_t* const corners = &mesh.indices[i];
        if (next < kept.size() && std::equal(corners, corners + 3, &kept[next])) {
            next += 3;
        } else if (isDrawn(mesh, corners, view)) {
            ++count;
        }
    }
    EXPECT_EQ(next, kept.size());
    return count;
}

View viewFrom(double distance)
{
    return {osg::Matrixd::translate(0.0, 0.0, -distance),
            osg::Matrixd::frustum(-0.04, 0.04, -0.03, 0.03, 0.1, 1e5),
            640.0,
            480.0,
            false,
            1.0 / 256,
            nullptr,
            0.0};
}

} // namespace

TEST(KrTriangleSieve, LosesNothingThatADriverDraws)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<double> number(-1.0, 1.0);
    for (const double offset : {0.0, 5.0, 1000.0}) {
        const osg::Vec3d center(0.3 * offset, -offset, offset);
        const Ball ball{osg::Vec3(center)};
        std::size_t numKept[2] = {};
        std::size_t numAll[2] = {};
        for (unsigned int round = 0; round < 120; ++round) {
            const double distance = 0.7 + 0.6 * std::exp(6.0 * std::abs(number(random)));
            View view = viewFrom(distance);
            view.areBacksLeftOut = round % 4 < 2;
            view.rounding = 1.0 / (round % 5 == 0 ? 16 : 256);
            // Mirrored in every other round, and sheared.
            view.modelView = osg::Matrixd::translate(-center);
            view.modelView.postMultScale(osg::Vec3d(round % 2 == 0 ? 1.0 : -0.8, 1.0 + 0.4 * number(random), 1.0));
            view.modelView.postMultRotate(
                osg::Quat(4.0 * number(random), osg::Vec3d(number(random), number(random), 1)));
            view.modelView.postMultScale(osg::Vec3d(1.0, 1.0 + 0.2 * number(random), 1.0));
            view.modelView.postMultTranslate(osg::Vec3d(number(random), number(random), -distance));
            if (round % 3 == 0) {
                view.projection =
                    osg::Matrixd::ortho(-0.5 * distance, 0.6 * distance, -0.4 * distance, 0.4 * distance, 0.1, 1e5);
            } else if (round % 3 == 1) {
                // One of many tiles of a picture.
                view.projection = osg::Matrixd::frustum(0.039, 0.04, 0.029, 0.03, 0.1, 1e5);
            }
            const Indices kept = ball.sift(view);
            ASSERT_EQ(numLost(ball, kept, view), 0u) << "round " << round << ", at " << distance << " m, " << offset;
            numKept[view.areBacksLeftOut] += round % 3 == 1 ? 0 : kept.size();
            numAll[view.areBacksLeftOut] += round % 3 == 1 ? 0 : ball.indices.size();
        }
        for (const bool areBacksLeftOut : {false, true}) {
            const double share =
                static_cast<double>(numKept[areBacksLeftOut]) / static_cast<double>(numAll[areBacksLeftOut]);
            EXPECT_GT(share, 0.05) << "that show";
            if (offset < 1000.0) {
                EXPECT_LT(share, areBacksLeftOut ? 0.4 : 0.6) << offset;
            }
        }
    }
}

// Corners where a driver's rounding decides: about the middles of pixels, and triangles next to none high.
TEST(KrTriangleSieve, LeavesRoomForRounding)
{
    std::mt19937 random(3);
    const auto between = [&random](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    for (const double offset : {0.0, 10.0}) {
        Mesh soup;
        View view = viewFrom(5.0);
        for (std::size_t corner = 0; corner < KrTriangleSieve::kMostIndices; ++corner) {
            const double jitter = 6.0 / 256;
            const double x = std::floor(between(200.0, 202.0)) + 0.5 + between(-jitter, jitter);
            const double y = corner % 6 < 3 ? std::floor(between(100.0, 102.0)) + 0.5 + between(-jitter, jitter)
                                            : 0.3 * x + between(-jitter, jitter);
            soup.vertices.emplace_back(osg::Vec3d((x / 320.0 - 1.0) * 0.4 * 5.0 + offset,
                                                  (y / 240.0 - 1.0) * 0.3 * 5.0 - offset, 2.0 * offset));
            soup.indices.push_back(static_cast<std::uint16_t>(corner));
        }
        view.modelView.preMultTranslate(osg::Vec3d(-offset, offset, -2.0 * offset));
        for (const bool areBacksLeftOut : {false, true}) {
            view.areBacksLeftOut = areBacksLeftOut;
            const Indices kept = soup.sift(view);
            EXPECT_LT(kept.size(), soup.indices.size()) << offset;
            EXPECT_EQ(numLost(soup, kept, view), 0u)
                << offset << " m from the origin, backs left out: " << areBacksLeftOut;
        }
    }
}

// Layers of triangles, small ones and such that cover hundreds of pixels, many of them slivers, some of them steep,
// that lie as near to each other as depths tell.
TEST(KrTriangleSieve, LeavesOutNothingThatIsSeen)
{
    std::mt19937 random(5);
    const auto between = [&random](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    std::size_t numKept[2] = {};
    std::size_t numAll[2] = {};
    for (unsigned int round = 0; round < 60; ++round) {
        const bool areLarge = round >= 30;
        View view = viewFrom(5.0);
        view.width = areLarge ? 96.0 : 24.0;
        view.height = areLarge ? 72.0 : 18.0;
        view.depthRounding = 1.0 / (1 << 24);
        view.areBacksLeftOut = round % 4 == 3;
        view.rounding = 1.0 / (round % 3 == 0 ? 16 : 256);
        // All layers along one plane: depths of one layer differ by what drivers round.
        const bool isRamp = round % 3 == 1;
        const double gap = std::exp(between(-14.0, -2.0));
        Mesh soup;
        for (std::size_t corner = 0; corner < KrTriangleSieve::kMostIndices / (areLarge ? 8 : 1); corner += 3) {
            const double x = between(-1.0, view.width + 1.0);
            const double y = between(-1.0, view.height + 1.0);
            const double depth = gap * std::floor(between(0.0, 8.0));
            const double size = areLarge ? std::exp(between(0.5, 3.8)) : corner % 5 == 0 ? 0.3 : 1.4;
            const double steepness = corner % 7 == 0 ? 0.3 : 3.0 * gap;
            for (std::size_t k = corner; k < corner + 3; ++k) {
                // In units of the near plane's sides, from its middle.
                const double px = (x + size * between(0.0, 1.0)) / (0.5 * view.width) - 1.0;
                const double py =
                    (y + (corner % 4 == 0 ? 0.05 : 1.0) * size * between(0.0, 1.0)) / (0.5 * view.height) - 1.0;
                const double away =
                    depth + (isRamp ? 5.0 / (1.0 + 0.3 * px + 0.2 * py) : 5.0 + steepness * between(0.0, 1.0));
                soup.vertices.emplace_back(osg::Vec3d(px * 0.4 * away, py * 0.3 * away, 5.0 - away));
                soup.indices.push_back(static_cast<std::uint16_t>(k));
            }
        }
        KrNearestDepths nearest;
        nearest.begin(static_cast<std::uint32_t>(view.width), static_cast<std::uint32_t>(view.height));
        view.nearest = &nearest;
        const Indices kept = soup.sift(view);
        for (const bool isBorderDrawn : {false, true}) {
            EXPECT_EQ(picture(soup, soup.indices, view, isBorderDrawn), picture(soup, kept, view, isBorderDrawn))
                << "round " << round << ", layers " << gap << " m apart";
        }
        numKept[areLarge] += kept.size();
        numAll[areLarge] += soup.indices.size();
    }
    EXPECT_LT(numKept[0], numAll[0] / 7) << "most are hidden";
    EXPECT_LT(numKept[1], numAll[1] / 3 * 2) << "so are many of the large ones, of which some go beyond the border";
}

TEST(KrTriangleSieve, KnowsWhereItsLimitsAre)
{
    Ball ball;
    EXPECT_LT(ball.sift(viewFrom(300.0)).size(), ball.indices.size() / 10) << "of a ball of five pixels";
    // Triangles that are as large as pixels, turned so that their boxes hold the middles of most.
    View view = viewFrom(16.0);
    view.modelView.preMultRotate(osg::Quat(0.7, osg::Vec3d(1.0, 1.0, 1.0)));
    const Indices seen = ball.sift(view);
    std::size_t numDrawn = 0;
    for (std::size_t i = 0; i < seen.size(); i += 3) {
        numDrawn += isDrawn(ball, &seen[i], view) ? 3 : 0;
    }
    EXPECT_LT(static_cast<double>(seen.size()), 1.1 * static_cast<double>(numDrawn));
    view = viewFrom(3.0);
    ASSERT_LT(ball.sift(view).size(), ball.indices.size());
    for (const double distance : {0.0, 0.3, 0.505}) {
        EXPECT_EQ(ball.sift(viewFrom(distance)), ball.indices) << "around the eye, or too near";
    }
    EXPECT_EQ(ball.sift(viewFrom(-3.0)), ball.indices) << "behind the eye";
    for (const double bad :
         {0.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), 1e300}) {
        view = viewFrom(3.0);
        view.projection.postMultScale(osg::Vec3d(bad, bad, bad));
        view.width = bad == 0.0 ? 1e9 : view.width;
        EXPECT_EQ(ball.sift(view), ball.indices) << bad;
    }
    for (const double size : {1e34, 1e-39}) {
        Mesh odd = ball;
        for (osg::Vec3& vertex : odd.vertices) {
            vertex = osg::Vec3(osg::Vec3d(vertex) * size);
        }
        EXPECT_EQ(odd.sift(viewFrom(300.0 * size)), odd.indices) << "products that are no floats: " << size;
    }
    ball.vertices.push_back({0.0f, 0.0f, std::numeric_limits<float>::quiet_NaN()});
    ball.indices.insert(ball.indices.end(), {0, 1, static_cast<std::uint16_t>(ball.vertices.size() - 1)});
    EXPECT_EQ(ball.sift(viewFrom(3.0)), ball.indices) << "with a corner nowhere";

    std::vector<std::uint16_t> numbers;
    const KrTriangleSieve empty(ball.vertices.data(), ball.indices.data(), 0, numbers);
    KrTriangleSieve::Sights sights;
    EXPECT_EQ(empty.find(viewFrom(3.0), sights), 0u);
    EXPECT_EQ(sights.size(), 0u);
}

// Several balls of one place hide each other, whichever core looks through them, and in which order.
TEST(KrSiftingPass, LeavesTheSameOnAnyNumberOfCores)
{
    const Ball ball;
    const std::vector<KrTriangleSieve> sieves = {ball.sieve()};
    std::vector<View> views;
    for (unsigned int i = 0; i < 150; ++i) {
        views.push_back(viewFrom(20.0 - 0.01 * i));
        views.back().modelView.preMultTranslate(osg::Vec3d(0.02 * (i % 10), 0.0, 0.0));
    }
    const auto width = static_cast<std::uint32_t>(views[0].width);
    const auto height = static_cast<std::uint32_t>(views[0].height);
    // One after the other.
    KrNearestDepths nearest;
    nearest.begin(width, height);
    KrTriangleSieve::Sights sights;
    std::vector<std::size_t> ends = {0};
    for (View view : views) {
        view.nearest = &nearest;
        sieves[0].find(view, sights);
        ends.push_back(sights.size());
    }
    KrSiftingPass pass;
    for (const bool isOften : {false, true}) {
        pass.begin(width, height);
        for (View& view : views) {
            view.nearest = &pass.nearest();
            pass.add(view, sieves);
        }
        pass.run();
        std::size_t numLeft = 0;
        std::size_t numKept = 0;
        for (std::size_t i = 0; i < views.size(); ++i) {
            const Indices expected = ball.copy(sights.data() + ends[i], sights.data() + ends[i + 1], &nearest);
            const KrSiftingPass::Seen seen = pass.seen(i, sieves[0], views[i]);
            EXPECT_FALSE(seen.isWhole);
            EXPECT_EQ(ball.copy(seen.begin, seen.end, &pass.nearest()), expected) << i << isOften;
            numLeft += expected.size();
            numKept += static_cast<std::size_t>(seen.end - seen.begin);
        }
        EXPECT_LT(numLeft, 3 * ball.indices.size()) << "of 150 balls";
        EXPECT_LT(numKept, sights.size() / 2) << "the last one is the nearest";
        // What nobody asked for before is looked through on the spot, and hidden by what is there.
        View behind = viewFrom(30.0);
        behind.nearest = &pass.nearest();
        const KrSiftingPass::Seen seen = pass.seen(pass.numAdded(), sieves[0], behind);
        EXPECT_LT(ball.copy(seen.begin, seen.end, &pass.nearest()).size(), ball.indices.size() / 50);
    }
}
