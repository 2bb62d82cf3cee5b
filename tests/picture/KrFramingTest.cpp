#include <toolkit/extent/KrSpherePhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/math/KrAngle.h>

#include <picture/KrFraming.h>
#include <picture/KrLighting.h>

#include <tests/support/Systems.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace
{

using Kr::Angle::kPi;

/// Where a point lies in the picture, -1 to 1 from side to side, by looking at it from the eye.
struct Place
{
    double x = 0.0, y = 0.0, depth = 0.0;
};

Place project(const KrPovParameters& pov, double aspectRatio, const KrVector& point)
{
    KrVector forward = pov.centerOfInterest() - pov.eyepoint();
    forward.normalize();
    KrVector right = forward.cross(pov.up());
    right.normalize();
    const KrVector up = right.cross(forward);
    const KrVector d = point - pov.eyepoint();
    const double depth = d.dot(forward);
    const double top = std::tan(0.5 * pov.fieldOfView()) * depth;
    return {d.dot(right) / (top * aspectRatio), d.dot(up) / top, depth};
}

const std::vector<KrVector> kCloud = {
    {1.0, 0.2, 0.0}, {-0.3, 0.9, 0.1}, {0.2, -0.5, 1.7}, {0.0, 0.0, -0.4}, {2.5, 0.3, 0.6}};

} // namespace

// A second way to the answer: every point is projected, and in one direction both sides are touched.
TEST(KrFraming, EveryPointIsInsideAndOneDirectionIsFilled)
{
    for (const double aspectRatio : {0.4, 1.0, 2.5}) {
        for (const KrVector& towards :
             {KrVector(0.6, -0.7, 0.4), KrVector(-1, 0, 0), KrVector(0, 0, 1), KrVector(0, 0, -3)}) {
            KrFraming framing(towards, {0, 0, 1}, kPi / 6, aspectRatio);
            for (const KrVector& point : kCloud) {
                framing.add(point);
            }
            const KrPovParameters pov = framing.pov();
            double low[2] = {9, 9};
            double high[2] = {-9, -9};
            for (const KrVector& point : kCloud) {
                const Place place = project(pov, aspectRatio, point);
                ASSERT_GT(place.depth, 0.0);
                low[0] = std::min(low[0], place.x);
                high[0] = std::max(high[0], place.x);
                low[1] = std::min(low[1], place.y);
                high[1] = std::max(high[1], place.y);
            }
            // In the middle: exactly in the filled direction, to a few pixels in the other one.
            EXPECT_NEAR(low[0] + high[0], 0.0, 0.05);
            EXPECT_NEAR(low[1] + high[1], 0.0, 0.05);
            const unsigned int filled = high[0] - low[0] > high[1] - low[1] ? 0 : 1;
            EXPECT_NEAR(low[filled], -0.94, 1e-9);
            EXPECT_NEAR(high[filled], 0.94, 1e-9);
            EXPECT_LE(high[1 - filled], 0.94 + 1e-9);
            EXPECT_GE(low[1 - filled], -0.94 - 1e-9);
            KrVector direction = pov.eyepoint() - pov.centerOfInterest();
            direction.normalize();
            KrVector asked = towards;
            asked.normalize();
            EXPECT_NEAR(direction.dot(asked), 1.0, 1e-12);
        }
    }
}

TEST(KrFraming, HasAnAnswerForNothingAPointAndAWideAngle)
{
    const KrPovParameters empty = KrFraming({1, 1, 1}, {0, 0, 1}, 0.5, 1.0).pov();
    EXPECT_NEAR(empty.viewingDistance(), 3.0, 1e-12);

    KrFraming onePoint({1, 0, 0}, {0, 0, 1}, 0.5, 1.0);
    onePoint.add({5.0, 6.0, 7.0});
    EXPECT_GT(onePoint.pov().viewingDistance(), 0.01);
    EXPECT_NEAR((onePoint.pov().centerOfInterest() - KrVector(5, 6, 7)).length(), 0.0, 1e-9);

    // A rod towards the eye: the sides alone would put the eye into its end.
    KrFraming rod({1, 0, 0}, {0, 0, 1}, 2.9, 1.0);
    rod.add({-1.0, 0.0, 0.001});
    rod.add({1.0, 0.0, -0.001});
    EXPECT_GT(rod.pov().eyepoint().x(), 1.1);
}

// The arm box reaches from x = 0 to 2 at position 0 and from y = 0 to 2 after a quarter turn.
TEST(KrFraming, FollowsThePoseOfASystem)
{
    KrStatedSystem system;
    KrManipulatorLink arm = Systems::turningLink("arm", {0.0, 0.0, 1.0});
    arm.addShape(Systems::box({2.0, 0.1, 0.1}, {1.0, 0.0, 0.0}));
    KrIndividualManipulator manipulator("robot");
    KrCoordinateSystemTransformation placement;
    placement.setTranslation({10.0, 0.0, 0.0});
    manipulator.setPlacement(placement);
    manipulator.addChildLink(arm);
    system.manipulatorSystem().manipulators().push_back(manipulator);
    system.systemChanged();

    const auto center = [&system] {
        KrFraming framing({1, 0, 0}, {0, 0, 1}, 0.5, 1.0);
        framing.add(system.manipulatorSystem(), system.systemState());
        return framing.center();
    };
    EXPECT_NEAR((center() - KrVector(11.0, 0.0, 1.0)).length(), 0.0, 1e-9);
    ASSERT_TRUE(system.setJointPosition(0, "arm_joint", 0.5 * kPi));
    EXPECT_NEAR((center() - KrVector(10.0, 1.0, 1.0)).length(), 0.0, 1e-9);

    // The axes at the manipulator's place are twice as long, and the arm's x runs along y now: its box ends at y = 2.
    KrFraming framing({1, 0, 0}, {0, 0, 1}, 0.5, 1.0);
    KrFraming::Shown shown;
    shown.axisLength = 1.5;
    framing.setShown(shown);
    framing.add(system.manipulatorSystem(), system.systemState());
    EXPECT_NEAR((framing.center() + 0.5 * framing.size() - KrVector(13.0, 3.0, 3.0)).length(), 0.0, 1e-9);
    EXPECT_NEAR(framing.center().x() - 0.5 * framing.size().x(), 8.5, 1e-9); // the arm's y
}

TEST(KrFraming, CopiesOfARobotAreFramedAsEachOfTheirVertices)
{
    const boost::shared_ptr<KrBasePhysicalExtent> ball = boost::make_shared<KrSpherePhysicalExtent>(0.3);
    KrManipulatorSystem system;
    KrManipulatorSystemState state;
    for (int i = 0; i < 25; ++i) {
        KrIndividualManipulator robot("robot");
        robot.addShape(ball);
        KrManipulatorLink arm = Systems::turningLink("arm", {0.0, 0.0, 1.0});
        arm.addShape(ball);
        robot.addChildLink(arm);
        KrCoordinateSystemTransformation placement;
        placement.setTranslation({0.7 * (i * 7 % 5), 0.7 * (i * 7 % 25 / 5), 0.01 * (i % 3)}); // in no order
        robot.setPlacement(placement);
        system.manipulators().push_back(robot);
        state.positionStates().push_back(robot.defaultState());
        state.positionStates().back().jointPositions()[0] = 0.3 * i;
    }
    KrFraming framing({0.6, -0.7, 0.4}, {0, 0, 1}, 0.5, 1.5);
    framing.add(system, state);

    KrFraming expected({0.6, -0.7, 0.4}, {0, 0, 1}, 0.5, 1.5);
    std::vector<KrCoordinateSystemTransformation> poses;
    for (unsigned int i = 0; i < 25; ++i) {
        const KrIndividualManipulator& robot = system.manipulators()[i];
        ASSERT_TRUE(robot.linkPoses(state.positionStates()[i], poses));
        for (const KrVector& vertex : ball->triExtent()->vertices()) {
            expected.add(robot.placement().transformPoint(vertex));
            expected.add((robot.placement() * poses[0]).transformPoint(vertex));
        }
    }
    EXPECT_EQ(framing.pov(), expected.pov());
    EXPECT_EQ(framing.center(), expected.center());
    EXPECT_EQ(framing.size(), expected.size());
}

TEST(KrFraming, HoldsEverythingThatIsShownAndNothingElse)
{
    KrManipulatorLink arm = Systems::turningLink("arm", {0.0, 0.0, 1.0});
    arm.addShape(Systems::box({2.0, 0.1, 0.1}, {1.0, 0.0, 0.0}));
    arm.addCollisionShape(Systems::box({0.2, 6.0, 0.2}, {0.0, 0.0, 0.0}));
    // A ball of 5 m: I = 2/5 m r^2.
    arm.massProperties().setMass(1.0);
    arm.massProperties().setInertia({10.0, 10.0, 10.0, 0.0, 0.0, 0.0});
    KrIndividualManipulator manipulator("robot");
    manipulator.addChildLink(arm);
    KrIntraLink piston("", KrVector(0.0, 0.0, 0.0), "arm", KrVector(0.0, 0.0, 0.0)); // along z
    piston.setShape(boost::make_shared<KrShape>(Systems::box({20.0, 0.1, 0.1}, {10.0, 0.0, 0.0})));
    manipulator.intraLinks().addIntraLink(piston);
    KrManipulatorSystem system;
    system.manipulators().push_back(manipulator);
    const KrStatedSystem stated(system);

    const auto sizeOf = [&stated](const KrFraming::Shown& shown) {
        KrFraming framing({1, 0, 0}, {0, 0, 1}, 0.5, 1.0);
        framing.setShown(shown);
        framing.add(stated.manipulatorSystem(), stated.systemState());
        return framing.size();
    };
    KrFraming::Shown shown;
    EXPECT_NEAR(sizeOf(shown).x(), 2.05, 1e-9); // and half of the piston
    EXPECT_NEAR(sizeOf(shown).z(), 20.0, 1e-9);
    shown.shapes = false;
    EXPECT_EQ(sizeOf(shown).length(), 0.0);
    shown.collisions = true;
    EXPECT_NEAR((sizeOf(shown) - KrVector(0.2, 6.0, 0.2)).length(), 0.0, 1e-9);
    shown.masses = true;
    EXPECT_NEAR((sizeOf(shown) - KrVector(10.0, 10.0, 10.0)).length(), 0.0, 0.2); // the ball's triangles
}

TEST(KrLighting, TheStrongLampIsAboveTheViewersLeft)
{
    KrPovParameters pov;
    pov.setEyepoint({0, -5, 0}); // right is +x, up is +z
    pov.setCenterOfInterest({0, 0, 0});
    const KrLightParameters lights = KrLighting::threeLamps(pov);
    ASSERT_EQ(lights.lights().size(), 3u);
    const KrVector key = lights.lights()[0].position();
    EXPECT_LT(key.x(), 0.0);
    EXPECT_GT(key.z(), 0.0);
    EXPECT_LT(key.y(), 0.0);
    // White that faces the lamp squarely is not burnt out by more than its highlight.
    EXPECT_LE(lights.lights()[0].diffuse().red() + KrLighting::kAmbient, 1.05);
}
