#include <rendCore/draw/private/KrFacePlanes.h>

#include <gtest/gtest.h>

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
constexpr double kWidth = 640.0;
constexpr double kHeight = 480.0;

/// A ball of `size` m, corners counter-clockwise seen from outside, and slivers and triangles without an area among
/// them.
struct Ball
{
    explicit Ball(double size, const osg::Vec3& center = {})
    {
        constexpr unsigned int kRings = 40;
        constexpr unsigned int kSegments = 50;
        for (unsigned int ring = 0; ring <= kRings; ++ring) {
            for (unsigned int segment = 0; segment < kSegments; ++segment) {
                const double height = osg::PI * ring / kRings;
                const double around = 2.0 * osg::PI * segment / kSegments;
                vertices.push_back(center +
                                   osg::Vec3(osg::Vec3d(std::sin(height) * std::cos(around),
                                                        std::sin(height) * std::sin(around), std::cos(height)) *
                                             0.5 * size));
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
    Indices fronts(const osg::Matrixd& toClip, double width = kWidth, double height = kHeight) const
    {
        const KrFacePlanes planes(vertices.data(), indices.data(), indices.size());
        Indices result(indices.size() + 3);
        result.resize(planes.copyFronts(indices.data(), toClip, width, height, result.data()));
        if (result.size() == indices.size()) {
            result = indices;
        }
        return result;
    }
    std::vector<osg::Vec3> vertices;
    Indices indices;
};

/// What a driver finds that computes in single precision and rounds to 1/256 of a pixel.
bool isFront(const Ball& ball, const std::uint16_t* corners, const osg::Matrixd& toClip)
{
    std::int64_t x[3];
    std::int64_t y[3];
    for (unsigned int k = 0; k < 3; ++k) {
        const osg::Vec3& v = ball.vertices[corners[k]];
        float clip[4];
        for (int column = 0; column < 4; ++column) {
            clip[column] = static_cast<float>(toClip(0, column)) * v.x() +
                           static_cast<float>(toClip(1, column)) * v.y() +
                           static_cast<float>(toClip(2, column)) * v.z() + static_cast<float>(toClip(3, column));
        }
        x[k] = std::lround(256.0f * (0.5f * static_cast<float>(kWidth) * (clip[0] / clip[3] + 1.0f)));
        y[k] = std::lround(256.0f * (0.5f * static_cast<float>(kHeight) * (clip[1] / clip[3] + 1.0f)));
    }
    return (x[1] - x[0]) * (y[2] - y[0]) - (x[2] - x[0]) * (y[1] - y[0]) > 0;
}

/// Whether `fronts` are triangles of the ball in their order, among them all that a driver draws.
bool isComplete(const Ball& ball, const Indices& fronts, const osg::Matrixd& toClip)
{
    std::size_t next = 0;
    for (std::size_t i = 0; i < ball.indices.size(); i += 3) {
        const std::uint16_t* const corners = &ball.indices[i];
        if (next < fronts.size() && std::equal(corners, corners + 3, &fronts[next])) {
            next += 3;
        } else if (isFront(ball, corners, toClip)) {
            return false;
        }
    }
    return next == fronts.size();
}

} // namespace

TEST(KrFacePlanes, LeavesOutNothingThatADriverDraws)
{
    const Ball ball(1.0, osg::Vec3(0.3f, -0.2f, 5.0f));
    std::mt19937 random(7);
    std::uniform_real_distribution<double> number(-1.0, 1.0);
    std::size_t numKept = 0;
    std::size_t numAll = 0;
    for (unsigned int round = 0; round < 300; ++round) {
        const double distance = 1.0 + 0.6 * std::exp(8.0 * std::abs(number(random)));
        osg::Matrixd model = osg::Matrixd::translate(-0.3, 0.2, -5.0);
        // Mirrored in every other round, and sheared.
        model.postMultScale(osg::Vec3d(round % 2 == 0 ? 1.0 : -0.8, 1.0 + 0.4 * number(random), 1.0));
        model.postMultRotate(osg::Quat(4.0 * number(random), osg::Vec3d(number(random), number(random), 1.0)));
        model.postMultScale(osg::Vec3d(1.0, 1.0 + 0.2 * number(random), 1.0));
        model.postMultTranslate(osg::Vec3d(number(random), number(random), -distance));
        const osg::Matrixd projection = round % 3 == 0 ? osg::Matrixd::ortho(-0.5 * distance, 0.6 * distance,
                                                                             -0.4 * distance, 0.4 * distance, 0.1, 1e5)
                                                       : osg::Matrixd::frustum(-0.04, 0.05, -0.03, 0.03, 0.1, 1e5);
        const osg::Matrixd toClip = model * projection;
        const Indices fronts = ball.fronts(toClip);
        ASSERT_TRUE(isComplete(ball, fronts, toClip)) << "round " << round << ", at " << distance << " m";
        if (distance < 10.0) {
            numKept += fronts.size();
            numAll += ball.indices.size();
        }
    }
    EXPECT_GT(numAll, 50 * ball.indices.size());
    EXPECT_LT(static_cast<double>(numKept), 0.65 * static_cast<double>(numAll)) << "backs";
}

TEST(KrFacePlanes, KeepsWhatItCannotTell)
{
    const osg::Matrixd projection = osg::Matrixd::frustum(-0.04, 0.04, -0.03, 0.03, 0.1, 1e5);
    const osg::Matrixd toClip = osg::Matrixd::translate(0.0, 0.0, -3.0) * projection;
    Ball ball(1.0);
    ASSERT_LT(ball.fronts(toClip).size(), ball.indices.size());
    EXPECT_EQ(ball.fronts(toClip, 0.4, 0.3), ball.indices) << "triangles far smaller than a pixel";
    EXPECT_EQ(ball.fronts(osg::Matrixd::scale(0.0, 0.0, 0.0) * toClip), ball.indices);
    for (const double bad :
         {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), 1e300}) {
        EXPECT_EQ(ball.fronts(osg::Matrixd::translate(bad, 0.0, 0.0) * toClip), ball.indices) << bad;
    }
    // At the back of it: without an area, or without a number.
    const auto last = static_cast<std::uint16_t>(ball.vertices.size());
    ball.vertices.push_back({0.0f, 0.0f, std::numeric_limits<float>::quiet_NaN()});
    for (const std::uint16_t corner : {0, 0, 1, 2, 2, 2, 0, 1, int(last)}) {
        ball.indices.push_back(corner);
    }
    const Indices fronts = ball.fronts(toClip);
    ASSERT_GE(fronts.size(), 9u);
    EXPECT_TRUE(std::equal(fronts.end() - 9, fronts.end(), ball.indices.end() - 9));

    const Indices none;
    const KrFacePlanes empty(ball.vertices.data(), none.data(), 0);
    EXPECT_EQ(empty.copyFronts(none.data(), toClip, kWidth, kHeight, ball.indices.data()), 0u);
}
