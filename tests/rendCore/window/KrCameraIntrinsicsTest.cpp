#include <rendCore/capture/KrOpticalFrame.h>
#include <rendCore/window/KrCameraIntrinsics.h>

#include <tests/support/MessageRecorder.h>

#include <osg/Math>
#include <osg/Vec4d>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace
{

/// Where OpenGL draws a point in eye axes: pixels from the upper left corner.
osg::Vec2d drawnAt(const osg::Matrixd& projection, const osg::Vec3d& eye, double width, double height)
{
    const osg::Vec4d clip = osg::Vec4d(eye, 1.0) * projection;
    return {0.5 * width * (clip.x() / clip.w() + 1.0), height - 0.5 * height * (clip.y() / clip.w() + 1.0)};
}

double drawnDepth(const osg::Matrixd& projection, double distance)
{
    const osg::Vec4d clip = osg::Vec4d(0.0, 0.0, -distance, 1.0) * projection;
    return clip.z() / clip.w();
}

} // namespace

TEST(KrCameraIntrinsics, ProjectsAsWorkedOutByHand)
{
    // One to the right and one down, two ahead: 4 / 2 + 5 = 7 and 3 / 2 + 2 = 3.5 pixels.
    const KrCameraIntrinsics camera = {8, 6, 4.0, 3.0, 5.0, 2.0};
    EXPECT_EQ(camera.project(osg::Vec3d(1.0, 1.0, 2.0)), osg::Vec2d(7.0, 3.5));
    const osg::Matrixd projection = camera.projection(0.5, 50.0);
    const osg::Vec2d drawn = drawnAt(projection, osg::Vec3d(1.0, -1.0, -2.0), 8.0, 6.0);
    EXPECT_NEAR(drawn.x(), 7.0, 1e-12);
    EXPECT_NEAR(drawn.y(), 3.5, 1e-12);
    EXPECT_NEAR(drawnDepth(projection, 0.5), -1.0, 1e-12);
    EXPECT_NEAR(drawnDepth(projection, 50.0), 1.0, 1e-12);
    // The frustum that belongs to it: left, right, bottom and top at half a metre.
    double l, r, b, t, n, f;
    ASSERT_TRUE(projection.getFrustum(l, r, b, t, n, f));
    EXPECT_NEAR(l, -0.625, 1e-12);
    EXPECT_NEAR(r, 0.375, 1e-12);
    EXPECT_NEAR(b, -2.0 / 3.0, 1e-12);
    EXPECT_NEAR(t, 1.0 / 3.0, 1e-12);
}

TEST(KrCameraIntrinsics, ComesBackFromItsProjectionAndFromAFieldOfView)
{
    const KrCameraIntrinsics camera = {641, 479, 713.3, 688.1, -12.75, 700.125};
    KrCameraIntrinsics found;
    ASSERT_TRUE(KrCameraIntrinsics::fromProjection(camera.projection(0.1, 9.0), 641, 479, found));
    EXPECT_EQ(found.width, 641u);
    EXPECT_NEAR(found.fx, camera.fx, 1e-10);
    EXPECT_NEAR(found.fy, camera.fy, 1e-10);
    EXPECT_NEAR(found.cx, camera.cx, 1e-10);
    EXPECT_NEAR(found.cy, camera.cy, 1e-10);

    ASSERT_TRUE(
        KrCameraIntrinsics::fromProjection(osg::Matrixd::perspective(90.0, 4.0 / 3.0, 1.0, 2.0), 640, 480, found));
    EXPECT_NEAR(found.fx, 240.0, 1e-9);
    EXPECT_NEAR(KrCameraIntrinsics::fromFieldOfView(osg::PI_2, 640, 480).fy, 240.0, 1e-9);
    EXPECT_NEAR(found.cx, 320.0, 1e-9);
    EXPECT_NEAR(found.fieldOfView(), osg::PI_2, 1e-12);

    const KrCameraIntrinsics before = found;
    EXPECT_FALSE(KrCameraIntrinsics::fromProjection(osg::Matrixd::ortho(0, 1, 0, 1, -1, 1), 640, 480, found));
    EXPECT_FALSE(KrCameraIntrinsics::fromProjection(camera.projection(1.0, 2.0) * osg::Matrixd::rotate(0.1, 0, 0, 1),
                                                    640, 480, found));
    EXPECT_FALSE(KrCameraIntrinsics::fromProjection(camera.projection(1.0, 2.0), 0, 480, found));
    EXPECT_EQ(found, before);
}

TEST(KrCameraIntrinsics, ScalesEachDirectionByItself)
{
    const KrCameraIntrinsics large = KrCameraIntrinsics{100, 50, 80.0, 90.0, 40.0, 30.0}.scaledTo(200, 150);
    EXPECT_EQ(large, (KrCameraIntrinsics{200, 150, 160.0, 270.0, 80.0, 90.0}));
}

TEST(KrCameraIntrinsics, KnowsWhatIsNoCamera)
{
    const KrCameraIntrinsics good = {64, 48, 60.0, 60.0, -500.0, 900.0};
    EXPECT_TRUE(good.isValid());
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinite = std::numeric_limits<double>::infinity();
    for (const double wrong : {0.0, -60.0, nan, infinite, 1e300, 1e-300}) {
        KrCameraIntrinsics bad = good;
        bad.fx = wrong;
        EXPECT_FALSE(bad.isValid()) << wrong;
        bad = good;
        bad.fy = wrong;
        EXPECT_FALSE(bad.isValid()) << wrong;
    }
    for (const double wrong : {nan, infinite, -infinite, 1e300}) {
        KrCameraIntrinsics bad = good;
        bad.cx = wrong;
        EXPECT_FALSE(bad.isValid()) << wrong;
        bad = good;
        bad.cy = wrong;
        EXPECT_FALSE(bad.isValid()) << wrong;
    }
    EXPECT_FALSE((KrCameraIntrinsics{0, 48, 60.0, 60.0, 1.0, 1.0}).isValid());
    EXPECT_FALSE((KrCameraIntrinsics{64, 0, 60.0, 60.0, 1.0, 1.0}).isValid());
}

TEST(KrOpticalFrame, BecomesAPointOfView)
{
    // 5 m above the ground, looking straight down; the picture's right is +x, so its lower side is -y.
    KrCoordinateSystemTransformation opticalToWorld;
    const double rotation[9] = {1, 0, 0, 0, -1, 0, 0, 0, -1};
    opticalToWorld.setRotation(rotation);
    opticalToWorld.setTranslation(KrVector(1.0, 2.0, 5.0));
    KrPovParameters pov;
    pov.setFieldOfView(0.5);
    ASSERT_TRUE(KrOpticalFrame::toPov(opticalToWorld, 4.0, pov));
    EXPECT_EQ(pov.eyepoint(), KrVector(1.0, 2.0, 5.0));
    EXPECT_EQ(pov.centerOfInterest(), KrVector(1.0, 2.0, 1.0));
    EXPECT_EQ(pov.up(), KrVector(0.0, 1.0, 0.0));
    EXPECT_EQ(pov.fieldOfView(), 0.5);

    MessageRecorder messages;
    const KrPovParameters before = pov;
    EXPECT_FALSE(KrOpticalFrame::toPov(opticalToWorld, 0.0, pov));
    opticalToWorld.setTranslation(KrVector(0.0, std::nan(""), 0.0));
    EXPECT_FALSE(KrOpticalFrame::toPov(opticalToWorld, 1.0, pov));
    EXPECT_TRUE(pov == before);
    EXPECT_EQ(messages.count(), 2u);
}
