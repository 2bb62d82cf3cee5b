// krrender --self-test: a table, pictures and a report to attach.

#include <tests/support/Program.h>

#include <rendCore/selftest/KrSelfTest.h>
#include <toolkit/window/KrWindow.h>

#include <gtest/gtest.h>

namespace
{

const std::string kProgram = "'" KR_RENDER "'";

Answer selfTest(const std::string& folder, const std::string& before = "")
{
    return runCommand(kProgram + " --self-test" + folder, before);
}

} // namespace

TEST(KrSelfTestProgram, LeavesAFolderWithPicturesTableAndGraphicsReport)
{
    if (!KrWindow().init()) {
        GTEST_SKIP() << "no OpenGL context";
    }
    const Folder folder;
    // The shaders are found without the variable.
    const Answer answer = selfTest(" '" + folder.path("new/one") + "'", "env -u KR_TOOLKITS");
    EXPECT_EQ(answer.status, 0) << answer.out << answer.err;
    const std::string report = contentOf(folder.path("new/one/report.txt"));
    for (const KrSelfTest& test : KrSelfTest::all()) {
        EXPECT_NE(answer.out.find(test.name()), std::string::npos);
        EXPECT_NE(report.find(test.name()), std::string::npos);
    }
    EXPECT_NE(report.find("OpenSceneGraph"), std::string::npos) << "what --doctor says";
    EXPECT_TRUE(std::filesystem::is_regular_file(folder.path("new/one/primitives-solids.png")));

    // Without a name, in the folder where it is called.
    const Answer here = runCommand("cd '" + folder.path("new") + "' && " + kProgram + " --self-test");
    EXPECT_EQ(here.status, 0) << here.err;
    EXPECT_TRUE(std::filesystem::is_regular_file(folder.path("new/krrender-self-test/report.txt")));
}

TEST(KrSelfTestProgram, EndsWithOneWhereNothingCanBeDrawnAndStillTellsWhy)
{
    const Folder folder;
    const Answer answer = selfTest(" '" + folder.path("out") + "'", "env -u DISPLAY KR_WINDOW=glx");
    EXPECT_EQ(answer.status, 1);
    EXPECT_NE(answer.out.find("0 of "), std::string::npos) << answer.out;
    EXPECT_NE(contentOf(folder.path("out/report.txt")).find("DISPLAY"), std::string::npos);

    const Answer unwritable = selfTest(" /proc/nowhere");
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_EQ(unwritable.numErrorLines(), 1u) << unwritable.err;
}
