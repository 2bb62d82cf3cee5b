#include <tests/support/JointedSystems.h>
#include <tests/support/Program.h>

#include <picture/KrTrajectoryFile.h>
#include <toolkit/foundation/KrLimits.h>

#include <gtest/gtest.h>

using namespace JointedSystems;

namespace
{

/// Why the file cannot be read; empty when it can.
std::string failureOf(const KrStatedSystem& system, const std::string& path, KrMotion& motion)
{
    std::vector<std::string> warnings;
    std::string reason;
    const bool isRead = KrTrajectoryFile::readFile(system, path, motion, warnings, reason);
    EXPECT_EQ(isRead, reason.empty());
    return reason;
}

} // namespace

TEST(KrTrajectoryFile, ReadsATrajectoryRowByRow)
{
    const Folder folder;
    KrStatedSystem system = twoRobots();
    system.setJointPosition(1, "spin_joint", 0.7);
    const std::string path =
        folder.write("motion.csv", "\xEF\xBB\xBF# made by hand\r\n time , slide_joint, a/turn_joint\r\n"
                                   "0, 0.1, 0\r\n\r\n# middle\r\n0.5, 20mm, -30deg\r\n");
    KrMotion motion(system);
    ASSERT_EQ(failureOf(system, path, motion), "");
    ASSERT_EQ(motion.size(), 2u);
    const KrManipulatorSystemState states[] = {motion.state(0), motion.state(1)};
    EXPECT_EQ(jointAt(states[0], 0, 1), 0.1);
    EXPECT_NEAR(jointAt(states[1], 0, 1), 0.02, 1e-15);
    EXPECT_NEAR(jointAt(states[1], 0, 0), -0.5235987755982988, 1e-12);
    EXPECT_EQ(jointAt(states[1], 1, 1), 0.7); // what was set stays
    EXPECT_EQ(states[1].time(), 0.5);
    EXPECT_EQ(jointAt(system.systemState(), 0, 1), 0.0); // the system itself does not move
}

// As programs that log joint states write it.
TEST(KrTrajectoryFile, ReadsQuotedCellsAndLeavesFollowersToWhatTheyFollow)
{
    const KrStatedSystem system = twoRobots();
    std::vector<std::string> warnings;
    std::string reason;
    const std::string log = ("\"time\",\"shadow_joint\",\"a/turn_joint\"\n\"0\",9,\"+0.2\"\n"
                             "1,,0.3\n");
    KrMotion motion(system);
    ASSERT_TRUE(KrTrajectoryFile::readText(system, log, "log", motion, warnings, reason)) << reason;
    ASSERT_EQ(motion.size(), 2u);
    EXPECT_EQ(jointAt(motion.state(0), 0, 0), 0.2);
    EXPECT_NEAR(jointAt(motion.state(0), 0, 3), 0.5, 1e-15); // 2 * 0.2 + 0.1
    EXPECT_EQ(motion.state(1).time(), 1.0);
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_NE(warnings[0].find("shadow_joint"), std::string::npos);
}

TEST(KrTrajectoryFile, NamesFileAndLineOfABadTrajectory)
{
    const Folder folder;
    const KrStatedSystem system = twoRobots();
    // Read from a file and from memory: both say the same.
    const auto failure = [&](const std::string& content) {
        const std::string path = folder.write("m.csv", content);
        KrMotion motion(system);
        std::vector<std::string> warnings;
        std::string reason;
        EXPECT_FALSE(KrTrajectoryFile::readText(system, content, path, motion, warnings, reason));
        EXPECT_EQ(failureOf(system, path, motion), reason);
        EXPECT_EQ(motion.size(), 1u) << "as it was";
        return reason;
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
    EXPECT_NE(failure("slide_joint\n" + std::string(2 * Kr::Limits::kTextLine, ' ') + "1\n"), "");
    KrMotion motion(system);
    EXPECT_NE(failureOf(system, folder.path("none.csv"), motion), "");
    EXPECT_NE(failureOf(system, folder.path("."), motion), "");
}

TEST(KrTrajectoryFile, TellsManyBadPositionsOnceAndLongNamesShort)
{
    const KrStatedSystem system = twoRobots();
    std::string rows = "slide_joint,a/turn_joint\n";
    for (int i = 0; i < 1000; ++i) {
        rows += "0,9\n";
    }
    std::vector<std::string> warnings;
    std::string reason;
    KrMotion motion(system);
    ASSERT_TRUE(KrTrajectoryFile::readText(system, rows, "m.csv", motion, warnings, reason)) << reason;
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_NE(warnings[0].find("line 2: 9 is outside"), std::string::npos) << warnings[0];
    EXPECT_NE(warnings[0].find("and 999 more"), std::string::npos) << warnings[0];

    const std::string name(100000, 'x');
    for (const std::string& content : {name + "\n1\n", "slide_joint\n" + name + "\n", "time\n1\n" + name + "\n",
                                       "a/turn_joint\n" + std::string(90000, '0') + "mm\n"}) {
        EXPECT_FALSE(KrTrajectoryFile::readText(system, content, "m.csv", motion, warnings, reason));
        EXPECT_NE(reason, "");
        EXPECT_LT(reason.size(), 400u) << reason;
    }
}
