// The parts of the program that need no picture.
#include <tests/support/Program.h>

#include <KrAppFailure.h>
#include <KrAppFiles.h>
#include <KrAppMessages.h>
#include <gtest/gtest.h>

TEST(KrAppFiles, NumbersFramesAndRefusesOtherPercentSigns)
{
    EXPECT_EQ(KrAppFiles::frameFile("a/%04d.png", 7), "a/0007.png");
    EXPECT_EQ(KrAppFiles::frameFile("a_%d_b.png", 12345), "a_12345_b.png");
    EXPECT_EQ(KrAppFiles::frameFile("out/robot.png", 3), "out/robot_0003.png");
    EXPECT_EQ(KrAppFiles::frameFile("robot", 12), "robot_0012");
    for (const char* pattern : {"%s.png", "%n.png", "%04d_%04d.png", "%99d.png", "100%.png", "%.png"}) {
        EXPECT_THROW(KrAppFiles::frameFile(pattern, 1), KrAppFailure) << pattern;
    }
}

TEST(KrAppFiles, KnowsOneFileUnderEverySpelling)
{
    const Folder folder;
    const std::string file = folder.write("a.png", "x");
    std::filesystem::create_symlink("a.png", folder.path("link.png"));
    std::filesystem::create_symlink("later.png", folder.path("dangling.png"));
    const auto isRefused = [&](const char* one, const char* other) {
        const std::string a = folder.path(one), b = folder.path(other);
        const auto refuses = [](const std::vector<std::string>& outputs, const std::vector<std::string>& inputs) {
            try {
                KrAppFiles::checkDistinct(outputs, inputs);
                return false;
            } catch (const KrAppFailure&) {
                return true;
            }
        };
        EXPECT_EQ(refuses({a, "", "", b}, {""}), refuses({a}, {"", b})) << one << " " << other;
        return refuses({a}, {b});
    };
    EXPECT_TRUE(isRefused("a.png", "./a.png"));
    EXPECT_TRUE(isRefused("link.png", "a.png"));
    EXPECT_TRUE(isRefused("dangling.png", "later.png"));
    EXPECT_TRUE(isRefused("new/../new.png", "new.png"));
    EXPECT_FALSE(isRefused("a.png", "b.png"));
    EXPECT_FALSE(isRefused("dangling.png", "a.png"));
}

TEST(KrAppMessages, MakesOneLineOfWhatTheToolkitSays)
{
    KrAppMessages messages;
    EXPECT_EQ(messages.lastReason("none"), "none");
    Kr::Print::instance()->write(Kr::Print::Info, "not a problem\n");
    Kr::Print::instance()->write(Kr::Print::Warning, "KrThing::read - a.xml:\n  line 3: too deep - really.\n");
    EXPECT_EQ(messages.lastReason("none"), "a.xml: line 3: too deep - really");
}
