#include "KrPoseCompare.h"
#include <tests/support/MessageRecorder.h>

#include <toolkit/system/KrJointKinematics.h>

#include <cmath>
#include <limits>
#include <string>

namespace
{

const KrVector kX(1.0, 0.0, 0.0);
const KrVector kY(0.0, 1.0, 0.0);
const KrVector kZ(0.0, 0.0, 1.0);
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

KrCoordinateSystemTransformation moved(const KrJointKinematics& kinematics, double position)
{
    // Begins with something else: the result does not build on what was there.
    KrCoordinateSystemTransformation pose = shift(7.0, 8.0, 9.0);
    kinematics.linkTransformation(position, pose);
    return pose;
}

std::string document(const std::string& content)
{
    KrJointKinematics any;
    return "<jointKinematics xmlns=\"" + any.token().uri + "\">" + content + "</jointKinematics>";
}

bool readFrom(KrJointKinematics& kinematics, const std::string& content)
{
    const std::string text = document(content);
    return kinematics.readBuffer(text.data(), text.size());
}

} // namespace

TEST(KrJointKinematics, MovesAboutItsAxisBetweenOriginAndOffset)
{
    KrJointKinematics joint;
    joint.setType(KrJointKinematics::Type::Revolute);
    joint.setOrigin(shift(1.0, 0.0, 0.0) * turn(kZ, kQuarterTurn));
    joint.setOffset(shift(0.0, 0.0, 2.0));
    ASSERT_TRUE(joint.setAxis(KrVector(3.0, 0.0, 0.0)));

    // A quarter turn about x takes z to -y and y to z; the origin then takes x to y and y to -x.
    expectPose(moved(joint, kQuarterTurn), kY, kZ, kX, KrVector(3.0, 0.0, 0.0));

    joint.setType(KrJointKinematics::Type::Continuous);
    expectPose(moved(joint, -kQuarterTurn), kY, -kZ, -kX, KrVector(-1.0, 0.0, 0.0));
    // The axis has unit length, however it was given.
    joint.setType(KrJointKinematics::Type::Prismatic);
    expectPose(moved(joint, 0.5), kY, -kX, kZ, KrVector(1.0, 0.5, 2.0));
    joint.setType(KrJointKinematics::Type::Fixed);
    expectPose(moved(joint, 0.5), kY, -kX, kZ, KrVector(1.0, 0.0, 2.0));
}

TEST(KrJointKinematics, DenavitHartenbergParametersGiveTheStandardMatrix)
{
    using Type = KrJointKinematics::Type;
    // theta = alpha = 90 degrees, d = 2, a = 3: columns (0 1 0), (0 0 1), (1 0 0), origin (0 3 2).
    KrJointKinematics joint;
    joint.setOrigin(shift(5.0, 5.0, 5.0));
    ASSERT_TRUE(joint.setAxis(kX));
    joint.setDenavitHartenberg(Type::Revolute, kQuarterTurn / 3.0, 2.0, 3.0, kQuarterTurn);
    expectPose(moved(joint, kQuarterTurn * 2.0 / 3.0), kY, kZ, kX, KrVector(0.0, 3.0, 2.0));

    joint.setDenavitHartenberg(Type::Prismatic, kQuarterTurn, 0.5, 3.0, kQuarterTurn);
    expectPose(moved(joint, 1.5), kY, kZ, kX, KrVector(0.0, 3.0, 2.0));
    EXPECT_EQ(joint.type(), Type::Prismatic);

    // theta = 30, alpha = 60 degrees at an uneven place, written out from the published matrix.
    joint.setDenavitHartenberg(Type::Revolute, kHalfTurn / 6.0, 0.4, 2.0, kHalfTurn / 3.0);
    const double c = std::sqrt(3.0) / 2.0;
    expectPose(moved(joint, 0.0), KrVector(c, 0.5, 0.0), KrVector(-0.25, c / 2.0, c), KrVector(c / 2.0, -0.75, 0.5),
               KrVector(2.0 * c, 1.0, 0.4));
}

TEST(KrJointKinematics, SettersRefuseWhatNoJointHas)
{
    MessageRecorder messages;
    KrJointKinematics joint;
    ASSERT_TRUE(joint.setAxis(kY));
    ASSERT_TRUE(joint.setLimits(-1.0, 1.0));
    const KrJointKinematics before = joint;
    const double infinite = std::numeric_limits<double>::infinity();
    for (const KrVector& axis : {KrVector(), KrVector(kNan, 0.0, 1.0), KrVector(0.0, infinite, 0.0)}) {
        EXPECT_FALSE(joint.setAxis(axis));
        EXPECT_EQ(messages.take(), 1u);
    }
    const double limits[][2] = {{1.0, 0.5}, {kNan, 1.0}, {0.0, kNan}};
    for (const auto& pair : limits) {
        EXPECT_FALSE(joint.setLimits(pair[0], pair[1]));
        EXPECT_EQ(messages.take(), 1u);
    }
    EXPECT_TRUE(joint == before);
    EXPECT_TRUE(joint.setLimits(0.5, 0.5));
}

TEST(KrJointKinematics, ReadAndAssignedJointsMoveAsTheyAreNamed)
{
    KrJointKinematics read;
    ASSERT_TRUE(readFrom(read, "<name>slide</name><type>prismatic</type><axis>0 -2 0</axis>"
                               "<lowerLimit>-1</lowerLimit><upperLimit>2</upperLimit>"));
    EXPECT_EQ(read.type(), KrJointKinematics::Type::Prismatic);
    expectNear(moved(read, 0.25).translation(), KrVector(0.0, -0.25, 0.0));

    KrJointKinematics assigned;
    ASSERT_TRUE(assigned.assign(read));
    expectNear(moved(assigned, 0.25).translation(), KrVector(0.0, -0.25, 0.0));

    // What is not said is as in a new joint, not as before.
    ASSERT_TRUE(readFrom(read, "<type>revolute</type>"));
    EXPECT_EQ(read.name(), "");
    EXPECT_EQ(read.upperLimit(), 0.0);
    expectPose(moved(read, kQuarterTurn), kY, -kX, kZ, KrVector());
    ASSERT_TRUE(read.xmlInit());
    EXPECT_FALSE(read.isMovable());
    expectPose(moved(read, kQuarterTurn), kX, kY, kZ, KrVector());
}

TEST(KrJointKinematics, AxesComeBackFromAFileAsTheyWere)
{
    KrJointKinematics joint;
    joint.setType(KrJointKinematics::Type::Revolute);
    for (int i = 1; i < 50; ++i) {
        ASSERT_TRUE(joint.setAxis(KrVector(0.1 * i, 1.0 / i, -0.7)));
        EXPECT_TRUE(joint.selfTest()) << i;
    }
}

TEST(KrJointKinematics, BadDocumentsAreRefusedWhole)
{
    MessageRecorder messages;
    KrJointKinematics joint;
    joint.setName("elbow");
    joint.setType(KrJointKinematics::Type::Continuous);
    ASSERT_TRUE(joint.setAxis(KrVector(1.0, 1.0, 0.0)));
    const KrJointKinematics before = joint;
    for (const std::string content :
         {"<type>spherical</type>", "<type></type>", "<type>Revolute</type>", "<axis>0 0 0</axis>", "<axis>0 1</axis>",
          "<axis>0 nan 1</axis>", "<lowerLimit>1</lowerLimit>", "<upperLimit>nan</upperLimit>",
          "<mimicMultiplier>inf</mimicMultiplier>", "<mimicOffset>nan</mimicOffset>",
          "<maximumEffort>nan</maximumEffort>", "<friction>1</friction>"}) {
        EXPECT_FALSE(readFrom(joint, "<name>other</name>" + content)) << content;
        EXPECT_EQ(messages.take(), 1u) << content;
        EXPECT_TRUE(joint == before) << content;
        EXPECT_EQ(joint.type(), KrJointKinematics::Type::Continuous) << content;
    }
}
