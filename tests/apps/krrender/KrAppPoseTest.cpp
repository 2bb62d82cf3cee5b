#include <tests/support/JointedSystems.h>

#include <KrAppFailure.h>
#include <KrAppMessages.h>
#include <KrAppPose.h>
#include <toolkit/math/KrAngle.h>

#include <gtest/gtest.h>

using namespace JointedSystems;

namespace
{

/// The sentence of the failure; empty when there is none.
template <typename Work>
std::string failureOf(Work&& work)
{
    try {
        work();
    } catch (const KrAppFailure& failure) {
        return failure.what();
    }
    return std::string();
}

std::string failureOfJoint(const std::string& name, const std::string& value)
{
    KrStatedSystem system = twoRobots();
    std::vector<std::string> warnings;
    return failureOf([&] { KrAppPose::setJoints(system, {{name, value}}, warnings); });
}

} // namespace

TEST(KrAppPose, SetsJointsAndWhatFollowsThem)
{
    KrStatedSystem system = twoRobots();
    std::vector<std::string> warnings;
    KrAppPose::setJoints(system, {{"a/turn_joint", "0.2"}, {"slide_joint", "50mm"}, {"spin", "180deg"}}, warnings);
    EXPECT_EQ(jointAt(system.systemState(), 0, 0), 0.2);
    EXPECT_NEAR(jointAt(system.systemState(), 0, 1), 0.05, 1e-15);
    EXPECT_NEAR(jointAt(system.systemState(), 0, 3), 0.5, 1e-15); // 2 * 0.2 + 0.1
    EXPECT_NEAR(jointAt(system.systemState(), 1, 1), Kr::Angle::kPi, 1e-12);
    EXPECT_TRUE(warnings.empty());
    KrAppPose::setJoints(system, {{"b/turn_joint", "1.5"}}, warnings);
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_NE(warnings[0].find("-1 to 1"), std::string::npos);
    EXPECT_EQ(jointAt(system.systemState(), 1, 0), 1.5);
}

TEST(KrAppPose, SaysWhyAJointCannotBeSet)
{
    EXPECT_NE(failureOfJoint("trn_joint", "0").find("did you mean turn_joint"), std::string::npos);
    EXPECT_NE(failureOfJoint("zzzzzzzzz", "0").find("--info"), std::string::npos);
    EXPECT_NE(failureOfJoint("turn_joint", "0").find("a/turn_joint"), std::string::npos);
    EXPECT_NE(failureOfJoint("weld_joint", "0").find("fixed"), std::string::npos);
    EXPECT_NE(failureOfJoint("shadow_joint", "0").find("follows joint \"turn_joint\""), std::string::npos);
    EXPECT_NE(failureOfJoint("slide_joint", "abc").find("no number"), std::string::npos);
    EXPECT_NE(failureOfJoint("slide_joint", "5deg").find("wrong unit"), std::string::npos);
    EXPECT_NE(failureOfJoint("spin_joint", "5mm").find("wrong unit"), std::string::npos);
}
