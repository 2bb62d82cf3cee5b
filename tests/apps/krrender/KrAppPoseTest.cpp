#include <toolkit/math/KrAngle.h>

#include <tests/support/Program.h>

#include <KrAppFailure.h>
#include <KrAppMessages.h>
#include <KrAppPose.h>

#include <gtest/gtest.h>

namespace
{

KrManipulatorLink jointed(const std::string& name, KrJointKinematics::Type type)
{
    KrManipulatorLink link(name);
    link.jointKinematics().setName(name + "_joint");
    link.jointKinematics().setType(type);
    if (link.jointKinematics().hasLimits()) {
        link.jointKinematics().setLimits(-1.0, 1.0);
    }
    return link;
}

/// Two manipulators: "a" with turn, slide, weld and a mimic of turn, "b" with another turn.
KrStatedSystem twoRobots()
{
    using Type = KrJointKinematics::Type;
    KrManipulatorSystem system;
    KrIndividualManipulator a("a");
    a.addChildLink(jointed("turn", Type::Revolute));
    a.addChildLink(jointed("slide", Type::Prismatic));
    a.addChildLink(jointed("weld", Type::Fixed));
    KrManipulatorLink mimic = jointed("shadow", Type::Revolute);
    mimic.jointKinematics().setMimic("turn_joint", 2.0, 0.1);
    a.addChildLink(mimic);
    KrIndividualManipulator b("b");
    b.addChildLink(jointed("turn", Type::Revolute));
    b.addChildLink(jointed("spin", Type::Continuous));
    system.manipulators().push_back(a);
    system.manipulators().push_back(b);
    return KrStatedSystem(system);
}

double jointAt(const KrManipulatorSystemState& state, unsigned int manipulator, unsigned int joint)
{
    return state.positionStates()[manipulator].jointPositions()[joint];
}

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

TEST(KrAppPose, ReadsATrajectoryRowByRow)
{
    const Folder folder;
    KrStatedSystem system = twoRobots();
    std::vector<std::string> warnings;
    KrAppPose::setJoints(system, {{"spin_joint", "0.7"}}, warnings);
    const std::string path =
        folder.write("motion.csv", "\xEF\xBB\xBF# made by hand\r\n time , slide_joint, a/turn_joint\r\n"
                                   "0, 0.1, 0\r\n\r\n# middle\r\n0.5, 20mm, -30deg\r\n");
    KrMotion motion = KrAppPose::readTrajectory(system, path, warnings);
    ASSERT_EQ(motion.size(), 2u);
    const KrManipulatorSystemState states[] = {motion.state(0), motion.state(1)};
    EXPECT_EQ(jointAt(states[0], 0, 1), 0.1);
    EXPECT_NEAR(jointAt(states[1], 0, 1), 0.02, 1e-15);
    EXPECT_NEAR(jointAt(states[1], 0, 0), -0.5235987755982988, 1e-12);
    EXPECT_EQ(jointAt(states[1], 1, 1), 0.7); // what the command line set stays
    EXPECT_EQ(states[1].time(), 0.5);
    EXPECT_EQ(jointAt(system.systemState(), 0, 1), 0.0); // the system itself does not move
}

// As programs that log joint states write it.
TEST(KrAppPose, ReadsQuotedCellsAndLeavesFollowersToWhatTheyFollow)
{
    const Folder folder;
    KrStatedSystem system = twoRobots();
    std::vector<std::string> warnings;
    const std::string path = folder.write("log.csv", "\"time\",\"shadow_joint\",\"a/turn_joint\"\n\"0\",9,\"+0.2\"\n"
                                                     "1,,0.3\n");
    KrMotion motion = KrAppPose::readTrajectory(system, path, warnings);
    ASSERT_EQ(motion.size(), 2u);
    EXPECT_EQ(jointAt(motion.state(0), 0, 0), 0.2);
    EXPECT_NEAR(jointAt(motion.state(0), 0, 3), 0.5, 1e-15); // 2 * 0.2 + 0.1
    EXPECT_EQ(motion.state(1).time(), 1.0);
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_NE(warnings[0].find("shadow_joint"), std::string::npos);
}

TEST(KrAppPose, NamesFileAndLineOfABadTrajectory)
{
    const Folder folder;
    const KrStatedSystem system = twoRobots();
    const auto failure = [&](const std::string& content) {
        const std::string path = folder.write("m.csv", content);
        std::vector<std::string> warnings;
        return failureOf([&] { KrAppPose::readTrajectory(system, path, warnings); });
    };
    EXPECT_NE(failure("").find("empty"), std::string::npos);
    EXPECT_NE(failure("slide_joint\n").find("no row"), std::string::npos);
    EXPECT_NE(failure("slide_joint,,\n1,2,3\n").find("no name"), std::string::npos);
    EXPECT_NE(failure("slide_joint,slide_joint\n1,2\n").find("two columns"), std::string::npos);
    EXPECT_NE(failure("time,slide_joint,t\n1,0,2\n").find("line 1: there are two columns of times"), std::string::npos);
    EXPECT_NE(failure("slide_joint,time\n0,1\n0,2\n0,2\n").find("line 4: the time 2"), std::string::npos);
    EXPECT_NE(failure("slide_joint,time\n0,1\n0,0.5\n").find("line 3: the time 0.5"), std::string::npos);
    EXPECT_NE(failure("slide_joint\n1\n\n1,2\n").find("line 4: 2 values for 1 columns"), std::string::npos);
    EXPECT_NE(failure("slide_joint\n1\nx\n").find("line 3: \"x\" is no number"), std::string::npos);
    EXPECT_NE(failure("slde_joint\n1\n").find("line 1"), std::string::npos);
    EXPECT_NE(failure(std::string("slide_joint\n1\0\n", 14)).find("binary"), std::string::npos);
    std::vector<std::string> warnings;
    EXPECT_NE(failureOf([&] { KrAppPose::readTrajectory(system, folder.path("none.csv"), warnings); }), "");
    EXPECT_NE(failureOf([&] { KrAppPose::readTrajectory(system, folder.path("."), warnings); }), "");
}

TEST(KrAppPose, TellsManyBadPositionsOnceAndLongNamesShort)
{
    const Folder folder;
    const KrStatedSystem system = twoRobots();
    std::string rows = "slide_joint,a/turn_joint\n";
    for (int i = 0; i < 1000; ++i) {
        rows += "0,9\n";
    }
    std::vector<std::string> warnings;
    KrAppPose::readTrajectory(system, folder.write("m.csv", rows), warnings);
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_NE(warnings[0].find("line 2: 9 is outside"), std::string::npos) << warnings[0];
    EXPECT_NE(warnings[0].find("and 999 more"), std::string::npos) << warnings[0];

    const std::string name(100000, 'x');
    for (const std::string& content : {name + "\n1\n", "slide_joint\n" + name + "\n", "time\n1\n" + name + "\n",
                                       "a/turn_joint\n" + std::string(90000, '0') + "mm\n"}) {
        const std::string path = folder.write("m.csv", content);
        const std::string sentence = failureOf([&] { KrAppPose::readTrajectory(system, path, warnings); });
        EXPECT_NE(sentence, "");
        EXPECT_LT(sentence.size(), 400u) << sentence;
    }
}

TEST(KrMotion, IsPlayedByItsTimesUnlessARateIsGiven)
{
    const KrStatedSystem system = twoRobots();
    const auto motion = [&system](const std::vector<double>& times) {
        KrMotion result(system, {});
        for (const double time : times) {
            result.add(time, {});
        }
        return result;
    };
    using Times = std::vector<double>;
    const KrMotion timed = motion({10.0, 10.5, 14.0});
    EXPECT_EQ(timed.schedule(std::nullopt), (Times{0.0, 0.5, 4.0, 6.0})); // the last for the mean step
    EXPECT_EQ(timed.schedule(4.0), (Times{0.0, 0.25, 0.5, 0.75}));
    EXPECT_EQ(timed.framesPerSecond(), 0.5);
    EXPECT_FALSE(timed.isEven());
    EXPECT_TRUE(motion({0.0, 0.9, 2.1, 3.0}).isEven());
    for (const Times& none : {Times{3.0}, Times{0.0, 0.0}}) {
        EXPECT_EQ(motion(none).framesPerSecond(), 30.0);
        EXPECT_TRUE(motion(none).isEven());
        EXPECT_EQ(motion(none).schedule(2.0).back(), 0.5 * static_cast<double>(none.size()));
    }
}
