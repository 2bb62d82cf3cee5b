#include <rendCore/capture/KrDepthCapture.h>
#include <rendCore/window/KrSGDrawCallbacks.h>
#include <rendCore/window/KrSGWindow.h>
#include <toolkit/math/KrAngle.h>

#include <tests/support/MessageRecorder.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Group>
#include <osg/Matrixd>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <vector>

namespace
{

using Kr::Angle::kPi;
constexpr float kNoDepth = std::numeric_limits<float>::infinity();
constexpr double kNowhere = -1.0;
constexpr unsigned int kWidth = 120;
constexpr unsigned int kHeight = 90;

using Kind = KrDepthCapture::Kind;
using RowOrder = KrDepthCapture::RowOrder;

/// A surface as triangles, in the eye's frame (x right, y up, looks along -z).
osg::ref_ptr<osg::Geode> surface(unsigned int columns, unsigned int rows,
                                 const std::function<osg::Vec3d(double, double)>& pointAt)
{
    const osg::ref_ptr<osg::Vec3Array> points = new osg::Vec3Array;
    const osg::ref_ptr<osg::DrawElementsUInt> triangles = new osg::DrawElementsUInt(GL_TRIANGLES);
    for (unsigned int r = 0; r <= rows; ++r) {
        for (unsigned int c = 0; c <= columns; ++c) {
            points->push_back(osg::Vec3(pointAt(double(c) / columns, double(r) / rows)));
        }
    }
    const unsigned int stride = columns + 1;
    for (unsigned int r = 0; r < rows; ++r) {
        for (unsigned int c = 0; c < columns; ++c) {
            const unsigned int i = r * stride + c;
            for (const unsigned int corner : {i, i + 1, i + stride, i + 1, i + stride + 1, i + stride}) {
                triangles->push_back(corner);
            }
        }
    }
    const osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexArray(points);
    geometry->addPrimitiveSet(triangles);
    geometry->setUseDisplayList(false);
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry);
    return geode;
}

/// In the eye's frame; begins on the near plane.
struct Ray
{
    osg::Vec3d origin;
    osg::Vec3d direction;
};

/// The plane through (0, 0, -distance) whose depth grows by `right` and `up` for each metre in x and y, as a quad.
struct Plane
{
    double distance;
    double right;
    double up;

    double depthAlong(const Ray& ray) const
    {
        // -z = distance + right x + up y on the plane.
        const osg::Vec3d& from = ray.origin;
        const osg::Vec3d& to = ray.direction;
        const double t =
            (distance + right * from.x() + up * from.y() + from.z()) / (-to.z() - right * to.x() - up * to.y());
        return -(from.z() + t * to.z());
    }
    osg::ref_ptr<osg::Geode> quad(double halfSize) const
    {
        return surface(1, 1, [this, halfSize](double u, double v) {
            const double x = (2.0 * u - 1.0) * halfSize;
            const double y = (2.0 * v - 1.0) * halfSize;
            return osg::Vec3d(x, y, -(distance + right * x + up * y));
        });
    }
};

/// The ray of a pixel's centre, from the inverse of the projection.
Ray rayOf(const osg::Matrixd& projection, unsigned int column, unsigned int row)
{
    const osg::Matrixd back = osg::Matrixd::inverse(projection);
    const double x = 2.0 * (column + 0.5) / kWidth - 1.0;
    const double y = 2.0 * (row + 0.5) / kHeight - 1.0;
    Ray ray;
    ray.origin = osg::Vec3d(x, y, -1.0) * back;
    ray.direction = osg::Vec3d(x, y, 1.0) * back - ray.origin;
    ray.direction.normalize();
    return ray;
}

class KrDepthCaptureTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!KrWindow().init()) {
            GTEST_SKIP() << "no OpenGL context";
        }
    }

    /// Opens the window with the eye at the origin, looking along -z, and with this projection and no other.
    void open(const osg::ref_ptr<osg::Geode>& scene, const osg::Matrixd& projection)
    {
        m_window.setWindowSize(kWidth, kHeight);
        KrPovParameters pov;
        pov.setEyepoint(KrVector(0.0, 0.0, 0.0));
        pov.setCenterOfInterest(KrVector(0.0, 0.0, -1.0));
        pov.setUp(KrVector(0.0, 1.0, 0.0));
        m_window.setPovParameters(pov);
        const osg::ref_ptr<osg::Group> root = new osg::Group;
        root->addChild(scene);
        ASSERT_TRUE(m_window.init());
        ASSERT_TRUE(m_window.setNode(root));
        m_window.updateScene();
        camera().setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
        camera().setProjectionMatrix(projection);
    }
    osg::Camera& camera() { return *m_window.getViewer()->getCamera(); }

    std::vector<float> depths(Kind kind = Kind::Planar, RowOrder order = RowOrder::BottomRowFirst,
                              float background = kNoDepth)
    {
        KrDepthCapture::Options options;
        options.kind = kind;
        options.rowOrder = order;
        options.background = background;
        std::vector<float> found;
        EXPECT_TRUE(m_capture.render(m_window, options, found));
        EXPECT_EQ(m_capture.width(), kWidth);
        EXPECT_EQ(m_capture.height(), kHeight);
        EXPECT_EQ(found.size(), std::size_t(kWidth) * kHeight);
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        return found;
    }

    /// Every pixel that was drawn and has an answer is within the bound of it, and at least `part` of all are such.
    /// @param allowance  what the drawn surface itself may be off the ideal one, m
    void expectAlong(const std::vector<float>& found, const std::function<double(const Ray&)>& answer, double part,
                     double allowance = 0.0)
    {
        std::size_t drawn = 0;
        double worst = 0.0;
        for (unsigned int row = 0; row < kHeight; ++row) {
            for (unsigned int column = 0; column < kWidth; ++column) {
                const double wanted = answer(rayOf(m_capture.projection(), column, row));
                const float depth = found[row * kWidth + column];
                if (depth == kNoDepth || wanted == kNowhere) {
                    continue;
                }
                ++drawn;
                worst = std::max(worst, std::abs(depth - wanted) / (m_capture.errorBound(wanted) + allowance));
            }
        }
        EXPECT_GE(drawn, part * kWidth * kHeight);
        EXPECT_LE(worst, 1.0) << "of the bound";
    }

    KrSGWindow m_window;
    KrDepthCapture m_capture;
};

osg::Matrixd wide()
{
    return osg::Matrixd::perspective(60.0, double(kWidth) / kHeight, 0.01, 100.0);
}

} // namespace

TEST_F(KrDepthCaptureTest, SlantedPlanesAreWhereTheyAreInBothTargets)
{
    for (const bool offScreen : {false, true}) {
        for (const double distance : {0.02, 0.5, 2.0, 10.0, 40.0}) {
            for (const double slope : {0.0, 0.3, 1.0}) {
                const Plane plane = {distance, slope, -0.8 * slope};
                open(plane.quad(4.0 * distance), wide());
                m_window.setOffScreenRendering(offScreen);
                expectAlong(
                    depths(), [&plane](const Ray& ray) { return plane.depthAlong(ray); }, 0.5);
                EXPECT_GE(m_capture.depthBits(), 24u);
                // At near and far planes of 0.01 and 100 m the bound is no empty promise.
                EXPECT_LT(m_capture.errorBound(10.0) / 10.0, 8e-4);
                m_window.closeWindow();
            }
        }
    }
}

TEST_F(KrDepthCaptureTest, ABallIsRoundInPlanesAndAlongRaysAlsoOffCentre)
{
    const osg::Vec3d centre(0.4, -0.3, -5.0);
    // The half that faces the eye, fine enough that its chords cut off 10 micrometres.
    const auto ball = surface(512, 512, [&centre](double u, double v) {
        const double longitude = kPi * (u - 1.0);
        const double latitude = kPi * (v - 0.5);
        return centre + osg::Vec3d(std::cos(latitude) * std::cos(longitude), std::sin(latitude),
                                   -std::cos(latitude) * std::sin(longitude));
    });
    const auto distanceAlong = [&centre](const Ray& ray) {
        const osg::Vec3d toCentre = centre - ray.origin;
        const double along = toCentre * ray.direction;
        const double inside = 1.0 - (toCentre.length2() - along * along);
        // Near the silhouette a micrometre of surface is a millimetre of depth.
        return inside < 0.2 ? kNowhere : along - std::sqrt(inside);
    };
    const auto depthAlong = [&distanceAlong](const Ray& ray) {
        const double distance = distanceAlong(ray);
        return distance == kNowhere ? kNowhere : -ray.origin.z() - ray.direction.z() * distance;
    };
    const auto lengthAlong = [&distanceAlong](const Ray& ray) {
        const double distance = distanceAlong(ray); // from the near plane on
        return distance == kNowhere ? kNowhere : ray.origin.length() + distance;
    };
    constexpr double chords = 5e-5;
    open(ball, osg::Matrixd::frustum(-0.03, 0.05, -0.045, 0.015, 0.1, 20.0));
    expectAlong(depths(), depthAlong, 0.05, chords);
    expectAlong(depths(Kind::Euclidean), lengthAlong, 0.05, chords);
    m_window.setOffScreenRendering(true);
    expectAlong(depths(Kind::Euclidean), lengthAlong, 0.05, chords);

    camera().setProjectionMatrixAsOrtho(-1.0, 1.5, -1.6, 0.9, 1.0, 20.0);
    const std::vector<float> parallel = depths();
    expectAlong(parallel, depthAlong, 0.2, chords);
    EXPECT_EQ(depths(Kind::Euclidean), parallel);
}

TEST_F(KrDepthCaptureTest, PlanesThatTheViewerFitsToTheSceneAreTheOnesThatCount)
{
    const Plane plane = {3.0, 0.2, 0.1};
    open(plane.quad(1.0), wide());
    camera().setComputeNearFarMode(osg::CullSettings::COMPUTE_NEAR_FAR_USING_BOUNDING_VOLUMES);
    for (int frame = 0; frame < 2; ++frame) {
        expectAlong(
            depths(), [&plane](const Ray& ray) { return plane.depthAlong(ray); }, 0.05);
        EXPECT_LT(m_capture.errorBound(3.0), 1e-5) << "planes close around the scene resolve it finely";
        EXPECT_NE(m_capture.projection()(2, 2), wide()(2, 2));
    }
}

TEST_F(KrDepthCaptureTest, RowsAndBackgroundAreAsAskedForInTheSameMemory)
{
    // Nearer above, nothing right of x = 0.
    open(surface(1, 1, [](double u, double v) { return osg::Vec3d(4.0 * (u - 1.0), 6.0 * v - 3.0, v - 3.0); }), wide());
    std::vector<float> bottomFirst = depths();
    // Where the rays through the lowest and highest rows (30 degrees from the middle) meet the plane.
    EXPECT_NEAR(bottomFirst[kWidth / 2 - 2], 2.8f, 0.05f);
    EXPECT_NEAR(bottomFirst[(kHeight - 1) * kWidth + kWidth / 2 - 2], 2.3f, 0.05f);
    EXPECT_EQ(bottomFirst[kWidth - 1], kNoDepth);
    const std::vector<float> topFirst = depths(Kind::Planar, RowOrder::TopRowFirst, -1.0f);
    for (unsigned int row = 0; row < kHeight; ++row) {
        for (unsigned int column = 0; column < kWidth; ++column) {
            const float below = bottomFirst[row * kWidth + column];
            ASSERT_EQ(topFirst[(kHeight - 1 - row) * kWidth + column], below == kNoDepth ? -1.0f : below);
        }
    }
    const float* const memory = bottomFirst.data();
    ASSERT_TRUE(m_capture.render(m_window, KrDepthCapture::Options(), bottomFirst));
    EXPECT_EQ(bottomFirst.data(), memory);

    camera().setCullMask(0);
    m_window.setDisplayMask(0xFFFFFFFFu, false, false);
    EXPECT_EQ(depths(), std::vector<float>(std::size_t(kWidth) * kHeight, kNoDepth)) << "an empty picture";
}

TEST_F(KrDepthCaptureTest, LeavesTheWindowAsItWasAndTheDepthsWhenItRefuses)
{
    const Plane plane = {3.0, 0.0, 0.0};
    open(plane.quad(1.0), wide());
    const osg::ref_ptr<KrSGWindow::DrawCallback> own = new KrSGWindow::DrawCallback;
    m_window.setDrawCallback(own);
    osg::Matrixd mixed = wide();
    mixed(0, 2) = 0.5;
    camera().setProjectionMatrix(mixed);
    std::vector<float> kept = {7.0f};
    MessageRecorder messages;
    {
        KrDepthCapture capture;
        EXPECT_FALSE(capture.render(m_window, KrDepthCapture::Options(), kept));
        EXPECT_EQ(kept, std::vector<float>{7.0f});
        EXPECT_EQ(messages.count(), 1u) << messages.all();
        EXPECT_EQ(m_window.getDrawCallback(), own);
        EXPECT_EQ(capture.errorBound(1.0), std::numeric_limits<double>::infinity());
    }
    // The capture is gone: later frames must not know of it.
    EXPECT_TRUE(m_window.renderScene(true));
    camera().setProjectionMatrix(wide());
    EXPECT_NEAR(depths()[kWidth * kHeight / 2 + kWidth / 2], 3.0f, 1e-3f);
    EXPECT_EQ(own->referenceCount(), 2);
    EXPECT_EQ(messages.count(), 1u) << messages.all();
}
