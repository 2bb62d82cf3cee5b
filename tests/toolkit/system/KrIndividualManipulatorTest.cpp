#include "KrPoseCompare.h"
#include <tests/support/MessageRecorder.h>

#include <toolkit/system/KrIndividualManipulator.h>
#include <toolkit/system/KrManipulatorActiveState.h>

#include <string>
#include <vector>

namespace
{

using Type = KrJointKinematics::Type;

const KrVector kX(1.0, 0.0, 0.0);
const KrVector kY(0.0, 1.0, 0.0);
const KrVector kZ(0.0, 0.0, 1.0);

KrManipulatorLink link(const std::string& name, Type type = Type::Fixed, const KrVector& axis = kZ,
                       const KrCoordinateSystemTransformation& origin = {})
{
    KrManipulatorLink result(name);
    result.jointKinematics().setName(name + "Joint");
    result.jointKinematics().setType(type);
    result.jointKinematics().setAxis(axis);
    result.jointKinematics().setOrigin(origin);
    return result;
}

/// Joint indices: a 0, b 1, c 2, d 3, e 4.
///
///     base -+- a -+- b --- c
///           |     +- d
///           +- e
KrIndividualManipulator branchedManipulator()
{
    KrIndividualManipulator result("robot");
    KrManipulatorLink& a = result.addChildLink(link("a", Type::Revolute, kZ, shift(1.0, 0.0, 0.0)));
    KrManipulatorLink& b = a.addChildLink(link("b", Type::Prismatic, kX, shift(0.0, 0.0, 1.0)));
    b.addChildLink(link("c", Type::Continuous, kY, shift(2.0, 0.0, 0.0)));
    a.addChildLink(link("d", Type::Fixed, kZ, shift(0.0, 3.0, 0.0)));
    result.addChildLink(link("e", Type::Revolute, kX, shift(0.0, -1.0, 0.0)));
    return result;
}

KrPositionState stateOf(const std::vector<double>& positions)
{
    KrPositionState state;
    for (const double position : positions) {
        state.jointPositions().push_back(position);
    }
    return state;
}

std::vector<double> positionsOf(const KrPositionState& state)
{
    return {state.jointPositions().begin(), state.jointPositions().end()};
}

/// Continuous joints j0, j1, ... in a row under the base.
KrIndividualManipulator row(unsigned int count)
{
    KrIndividualManipulator result("row");
    for (unsigned int i = 0; i < count; ++i) {
        KrManipulatorLink next(std::string("l") + std::to_string(i));
        next.jointKinematics().setName(std::string("j") + std::to_string(i));
        next.jointKinematics().setType(Type::Continuous);
        result.addChildLink(next);
    }
    return result;
}

void mimic(KrIndividualManipulator& manipulator, unsigned int joint, const std::string& master, double multiplier,
           double offset)
{
    manipulator.childLinks()[joint].jointKinematics().setMimic(master, multiplier, offset);
}

} // namespace

TEST(KrIndividualManipulator, JointsAreNumberedDepthFirstParentsBeforeChildren)
{
    const KrIndividualManipulator robot = branchedManipulator();
    EXPECT_EQ(robot.numJoints(), 5u);
    std::string names;
    for (const KrManipulatorLink* each : robot.links()) {
        names += each->name();
    }
    EXPECT_EQ(names, "abcde");
    EXPECT_EQ(robot.parents(), (std::vector<int>{-1, 0, 1, 0, -1}));
    EXPECT_EQ(robot.jointIndex("dJoint"), 3);
    EXPECT_EQ(robot.jointIndex("e"), 4);
    EXPECT_EQ(robot.jointIndex("robot"), -1);
    EXPECT_EQ(robot.jointIndex(""), -1);
    EXPECT_EQ(KrIndividualManipulator().numJoints(), 0u);
}

TEST(KrIndividualManipulator, AJointsNameGoesBeforeALinksName)
{
    KrIndividualManipulator robot = branchedManipulator();
    robot.childLinks()[1].jointKinematics().setName("a"); // the joint of link e
    EXPECT_EQ(robot.jointIndex("a"), 4);
    EXPECT_EQ(robot.jointIndex("aJoint"), 0);
}

TEST(KrIndividualManipulator, LinkPosesRunFromTheBaseOutwards)
{
    const KrIndividualManipulator robot = branchedManipulator();
    KrPositionState state = stateOf({kQuarterTurn, 0.5, kQuarterTurn, 0.0, -kQuarterTurn});
    state.setBaseTransformation(shift(0.0, 0.0, 10.0));
    std::vector<KrCoordinateSystemTransformation> poses(2);
    ASSERT_TRUE(robot.linkPoses(state, poses));
    ASSERT_EQ(poses.size(), 5u);
    // a stands at (1 0 10), turned so that its x axis is y; b slides along that by 0.5.
    expectPose(poses[0], kY, -kX, kZ, KrVector(1.0, 0.0, 10.0));
    expectPose(poses[1], kY, -kX, kZ, KrVector(1.0, 0.5, 11.0));
    // c turns about b's y axis: its x becomes b's -z, its z b's x.
    expectPose(poses[2], -kZ, -kX, kY, KrVector(1.0, 2.5, 11.0));
    expectPose(poses[3], kY, -kX, kZ, KrVector(-2.0, 0.0, 10.0));
    expectPose(poses[4], kX, -kZ, kY, KrVector(0.0, -1.0, 10.0));

    // One link alone is found at the same place.
    const std::vector<const KrManipulatorLink*> links = robot.links();
    for (unsigned int i = 0; i < 5; ++i) {
        KrCoordinateSystemTransformation pose;
        ASSERT_TRUE(robot.linkPose(links[i]->name(), state, pose));
        for (const KrVector& point : {KrVector(), kX, kY, kZ}) {
            expectNear(pose.transformPoint(point), poses[i].transformPoint(point));
        }
    }
    for (const std::string base : {"", "robot"}) {
        KrCoordinateSystemTransformation pose;
        ASSERT_TRUE(robot.linkPose(base, state, pose));
        expectPose(pose, kX, kY, kZ, KrVector(0.0, 0.0, 10.0));
    }
}

TEST(KrIndividualManipulator, StatesOfAnotherSizeAreRefused)
{
    MessageRecorder messages;
    const KrIndividualManipulator robot = branchedManipulator();
    KrPositionState state = stateOf({1.0, 2.0, 3.0, 4.0});
    std::vector<KrCoordinateSystemTransformation> poses(1, shift(1.0, 2.0, 3.0));
    EXPECT_FALSE(robot.linkPoses(state, poses));
    EXPECT_EQ(messages.take(), 1u);
    ASSERT_EQ(poses.size(), 1u);
    expectNear(poses[0].translation(), KrVector(1.0, 2.0, 3.0));
    EXPECT_FALSE(robot.applyMimics(state));
    EXPECT_EQ(messages.take(), 1u);
    EXPECT_EQ(positionsOf(state), (std::vector<double>{1.0, 2.0, 3.0, 4.0}));

    KrCoordinateSystemTransformation pose = shift(1.0, 2.0, 3.0);
    EXPECT_TRUE(robot.linkPose("d", state, pose));
    pose = shift(1.0, 2.0, 3.0);
    EXPECT_FALSE(robot.linkPose("e", state, pose));
    EXPECT_FALSE(robot.linkPose("f", state, pose));
    expectNear(pose.translation(), KrVector(1.0, 2.0, 3.0));
    EXPECT_EQ(messages.take(), 0u);
}

TEST(KrIndividualManipulator, DefaultStateIsTheAllowedPositionNearestToZero)
{
    KrIndividualManipulator robot = row(6);
    const double limits[5][2] = {{-1.0, 1.0}, {0.5, 2.0}, {-2.0, -0.25}, {0.5, 2.0}, {0.5, 2.0}};
    const Type types[5] = {Type::Revolute, Type::Revolute, Type::Prismatic, Type::Continuous, Type::Fixed};
    for (unsigned int i = 0; i < 5; ++i) {
        KrJointKinematics& joint = robot.childLinks()[i].jointKinematics();
        joint.setType(types[i]);
        ASSERT_TRUE(joint.setLimits(limits[i][0], limits[i][1]));
    }
    mimic(robot, 5, "j1", 2.0, 0.125);
    const KrPositionState state = robot.defaultState();
    EXPECT_EQ(positionsOf(state), (std::vector<double>{0.0, 0.5, -0.25, 0.0, 0.0, 1.125}));
    EXPECT_TRUE(state.baseTransformation().isIdentity());
}

TEST(KrIndividualManipulator, MimicsFollowTheirMastersThroughChainsInAnyOrder)
{
    KrIndividualManipulator robot = row(5);
    mimic(robot, 0, "j3", 2.0, 1.0); // a master further on, itself a mimic
    mimic(robot, 3, "j1", -1.0, 0.5);
    mimic(robot, 2, "j0", 10.0, 0.0);
    mimic(robot, 4, "l1", 1.0, 0.0); // the name of a link is no joint's
    KrPositionState state = stateOf({9.0, 3.0, 9.0, 9.0, 7.0});
    ASSERT_TRUE(robot.applyMimics(state));
    // j3 = -3 + 0.5; j0 = 2 * -2.5 + 1; j2 = 10 * -4.
    EXPECT_EQ(positionsOf(state), (std::vector<double>{-4.0, 3.0, -40.0, -2.5, 7.0}));
}

TEST(KrIndividualManipulator, MimicsInACircleStayAndWhatHangsOnThemFollows)
{
    KrIndividualManipulator robot = row(6);
    mimic(robot, 0, "j1", 2.0, 0.0); // hangs on the circle 1 -> 2 -> 3 -> 1
    mimic(robot, 1, "j2", 2.0, 0.0);
    mimic(robot, 2, "j3", 2.0, 0.0);
    mimic(robot, 3, "j1", 2.0, 0.0);
    mimic(robot, 4, "j4", 2.0, 0.0); // itself
    mimic(robot, 5, "j0", 1.0, 1.0);
    KrPositionState state = stateOf({9.0, 1.0, 2.0, 3.0, 4.0, 5.0});
    ASSERT_TRUE(robot.applyMimics(state));
    EXPECT_EQ(positionsOf(state), (std::vector<double>{2.0, 1.0, 2.0, 3.0, 4.0, 3.0}));
}

TEST(KrIntraLink, PointsFromItsStartToItsEnd)
{
    const KrIndividualManipulator robot = branchedManipulator();
    KrPositionState position = stateOf({kQuarterTurn, 0.5, 0.0, 0.0, 0.0});
    position.setBaseTransformation(shift(0.0, 0.0, 10.0));
    KrManipulatorActiveState state;
    state.setPositionState(position);

    // From (2 0 10), in the base, to link b's (1 0.5 11) and there 1 along its x axis (y): towards (-1 1.5 1).
    const KrIntraLink rod("", KrVector(2.0, 0.0, 0.0), "b", KrVector(1.0, 0.0, 0.0));
    const KrCoordinateSystemTransformation pose = rod.placement(state, robot);
    expectNear(pose.translation(), KrVector(2.0, 0.0, 10.0));
    KrVector direction(-1.0, 1.5, 1.0);
    const double length = direction.normalize();
    const KrVector x = pose.transformDirection(kX);
    const KrVector y = pose.transformDirection(kY);
    const KrVector z = pose.transformDirection(kZ);
    expectNear(x, direction);
    expectNear(pose.transformPoint(KrVector(length, 0.0, 0.0)), KrVector(1.0, 1.5, 11.0));
    expectNear(x.cross(y), z);
    // The base's z axis lies in the x-z half plane with positive z, so y is horizontal.
    EXPECT_NEAR(y.z(), 0.0, 1e-12);
    EXPECT_GT(z.z(), 0.5);

    // Along the start link's z axis, its y axis takes over: link a's y is -x of the base.
    const KrIntraLink mast("a", KrVector(), "a", KrVector(0.0, 0.0, 2.0));
    expectPose(mast.placement(state, robot), kZ, kY, -kX, KrVector(1.0, 0.0, 10.0));

    // Points that meet leave the start link's axes.
    const KrIntraLink knot("a", KrVector(0.0, 1.0, 0.0), "a", KrVector(0.0, 1.0, 0.0));
    expectPose(knot.placement(state, robot), kY, -kX, kZ, KrVector(0.0, 0.0, 10.0));

    const KrIntraLink lost("", KrVector(1.0, 2.0, 3.0), "nowhere", KrVector());
    EXPECT_TRUE(lost.placement(state, robot).isIdentity());
}
