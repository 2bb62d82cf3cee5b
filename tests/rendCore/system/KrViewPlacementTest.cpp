#include <rendCore/system/private/KrViewPlacement.h>

#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/math/KrVector.h>

#include <osg/Math>

#include <gtest/gtest.h>

#include <limits>

namespace
{

const KrVector kUp(0.0, 0.0, 1.0);

/// Where the camera has a point of the world: x to the right, y up, z towards the viewer.
osg::Vec3d seen(const osg::Matrixd& worldToCamera, double x, double y, double z)
{
    return osg::Vec3d(x, y, z) * worldToCamera;
}

void expectPoint(const osg::Vec3d& point, double x, double y, double z)
{
    EXPECT_NEAR(point.x(), x, 1e-12);
    EXPECT_NEAR(point.y(), y, 1e-12);
    EXPECT_NEAR(point.z(), z, 1e-12);
}

} // namespace

TEST(KrViewPlacement, LooksFromOnePointAtAnotherWithUpUpwards)
{
    osg::Matrixd view;
    ASSERT_TRUE(KrViewPlacement::lookAt(KrVector(3.0, 0.0, 1.0), KrVector(0.0, 0.0, 1.0), kUp, view));

    expectPoint(seen(view, 3.0, 0.0, 1.0), 0.0, 0.0, 0.0);
    expectPoint(seen(view, 0.0, 0.0, 1.0), 0.0, 0.0, -3.0);
    // From +x, looking along -x with z up, +y is on the right.
    expectPoint(seen(view, 0.0, 1.0, 3.0), 1.0, 2.0, -3.0);
}

TEST(KrViewPlacement, FindsAnotherUpWhereTheOneGivenIsParallel)
{
    osg::Matrixd fromAbove;
    ASSERT_TRUE(KrViewPlacement::lookAt(KrVector(0.0, 0.0, 5.0), KrVector(), kUp, fromAbove));
    expectPoint(seen(fromAbove, 1.0, 2.0, 0.0), 1.0, 2.0, -5.0); // y is up in the picture

    osg::Matrixd alongY;
    ASSERT_TRUE(KrViewPlacement::lookAt(KrVector(0.0, -5.0, 0.0), KrVector(), KrVector(0.0, 1.0, 0.0), alongY));
    expectPoint(seen(alongY, 1.0, 0.0, 2.0), 1.0, 2.0, -5.0); // z is
}

TEST(KrViewPlacement, KeepsTheViewWhereThereIsNoLineOfSight)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const osg::Matrixd before = osg::Matrixd::translate(1.0, 2.0, 3.0);
    osg::Matrixd view = before;
    EXPECT_FALSE(KrViewPlacement::lookAt(KrVector(1.0, 1.0, 1.0), KrVector(1.0, 1.0, 1.0), kUp, view));
    EXPECT_FALSE(KrViewPlacement::lookAt(KrVector(nan, 0.0, 0.0), KrVector(), kUp, view));
    EXPECT_TRUE(view == before);
}

TEST(KrViewPlacement, AFrameOfTheWorldIsTheOriginOfItsOwn)
{
    KrCoordinateSystemTransformation frame;
    frame.setTranslation(KrVector(4.0, 5.0, 6.0));
    const osg::Matrixd worldToFrame = KrViewPlacement::worldToFrame(frame);
    expectPoint(osg::Vec3d(4.0, 5.0, 7.0) * worldToFrame, 0.0, 0.0, 1.0);
}

TEST(KrViewPlacement, TheLensIsAsHighAsItsAngleAndAsWideAsThePicture)
{
    // Half of 90 degrees: what is as far up as it is away touches the upper edge, twice as far right the right one.
    const osg::Matrixd projection = KrViewPlacement::projection(osg::PI_2, 200, 100, 1.0, 10.0);
    expectPoint(osg::Vec3d(6.0, 3.0, -3.0) * projection, 1.0, 1.0, (11.0 / 9.0) - (20.0 / 9.0) / 3.0);
}
