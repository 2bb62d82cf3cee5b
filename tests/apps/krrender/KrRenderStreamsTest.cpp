// What krrender reads and writes: standard input and output, folders, limits, and what a signal leaves behind.

#include <tests/support/Program.h>

#include <toolkit/image/KrImage.h>
#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace
{

const char* const kUrdf = R"(<robot name="swing">
  <link name="base"><visual><geometry><box size="0.5 0.5 0.5"/></geometry></visual></link>
  <link name="arm"><visual><origin xyz="0 0 0.5"/><geometry><box size="0.2 0.2 1"/></geometry></visual></link>
  <joint name="swing" type="revolute"><parent link="base"/><child link="arm"/><origin xyz="0 0 0.5"/>
    <axis xyz="-1 0 0"/><limit lower="-2" upper="2" effort="1" velocity="1"/></joint>
</robot>
)";

std::string motionOf(int numRows)
{
    std::string rows = "swing\n";
    for (int i = 0; i < numRows; ++i) {
        rows += "0.5\n";
    }
    return rows;
}

class KrRenderStreams : public testing::Test
{
protected:
    KrRenderStreams()
    {
        m_folder.write("a.urdf", kUrdf);
        std::filesystem::create_symlink(KR_RENDER, m_folder.path("krrender")); // a name without spaces
    }

    /// Runs a line of the shell in the folder; KR is the program with options that keep a test fast.
    Answer shell(const std::string& line) const
    {
        return runCommand("(cd '" + m_folder.path("") + "' && KR='./krrender --samples 1 --size 64x48' && " + line +
                          ")");
    }
    std::string content(const std::string& name) const { return contentOf(m_folder.path(name)); }
    std::set<std::string> newNames() const
    {
        std::set<std::string> names = m_folder.names();
        names.erase("a.urdf");
        names.erase("krrender");
        return names;
    }

    Folder m_folder;
};

} // namespace

TEST_F(KrRenderStreams, StandardOutputHoldsTheFileAndNothingElse)
{
    ASSERT_EQ(shell("$KR a.urdf -o a.png --depth d.png --report r.json --convert n.xml && "
                    "$KR a.urdf --range-map m.csv 4x4 2x2 10 -q && $KR a.urdf --depth-preview g.png -q && "
                    "$KR a.urdf --info >i.txt")
                  .status,
              0);
    const struct
    {
        const char* arguments;
        const char* file;
    } cases[] = {{"-o -", "a.png"},
                 {"-o /dev/stdout", "a.png"},
                 {"--depth -", "d.png"},
                 {"--depth-preview -", "g.png"},
                 {"--range-map - 4x4 2x2 10", "m.csv"},
                 {"--report -", "r.json"},
                 {"--convert -", "n.xml"},
                 {"-o b.png --report -", "r.json"},
                 {"-o - --sidecar=b.json", "a.png"},
                 {"-o b.png --sidecar=-", "b.json"},
                 {"--info -o b.png", "i.txt"}};
    for (const auto& c : cases) {
        const Answer answer = shell("$KR a.urdf " + std::string(c.arguments));
        EXPECT_EQ(answer.status, 0) << c.arguments << answer.err;
        EXPECT_EQ(answer.err, "") << c.arguments;
        const std::string out = std::string(c.arguments).rfind("--info", 0) == 0
                                    ? answer.out.substr(0, content(c.file).size())
                                    : answer.out;
        EXPECT_TRUE(out == content(c.file)) << c.arguments << out.substr(0, 200);
        EXPECT_GT(out.size(), 50u) << c.arguments;
    }
    // Frames tell how far they are, elsewhere.
    m_folder.write("m.csv", "swing\n0\n0.1\n");
    EXPECT_TRUE(shell("$KR a.urdf --trajectory m.csv -o %d.png --report -").out == content("r.json"));
}

TEST_F(KrRenderStreams, StandardInputIsReadForEveryText)
{
    m_folder.write("m.csv", "swing\n0.1\n0.7\n");
    m_folder.write("d.csv", "swing\n0.7\n");
    ASSERT_EQ(shell("$KR a.urdf -j swing=0.7 --azimuth 12 -o a.png --sidecar --convert n.xml").status, 0);
    KrVisualizableStatedSystem system;
    ASSERT_TRUE(system.readFile(m_folder.path("n.xml")));
    ASSERT_TRUE(system.statedSystem().systemState().writeFile(m_folder.path("s.xml")));
    for (const char* line :
         {"cat a.urdf | $KR - -j swing=0.7 --azimuth 12 -o b.png", //
          "$KR - -j swing=0.7 --azimuth 12 -o b.png <a.urdf", "cat s.xml | $KR a.urdf --state - --azimuth 12 -o b.png",
          "cat d.csv | $KR a.urdf --trajectory - --azimuth 12 -o b.png && mv b_0001.png b.png",
          "$KR a.urdf --trajectory /dev/stdin --azimuth 12 -o b.png <d.csv && mv b_0001.png b.png",
          "cat a.png.json | $KR a.urdf -j swing=0.7 --camera - -o b.png",
          "mkfifo p && (cat s.xml >p & $KR a.urdf --state p --azimuth 12 -o b.png)"}) {
        m_folder.write("b.png", "");
        const Answer answer = shell(line);
        EXPECT_EQ(answer.status, 0) << line << answer.err;
        EXPECT_EQ(answer.err, "") << line;
        EXPECT_TRUE(content("b.png") == content("a.png")) << line;
    }
    // What is wrong in it is told by its name.
    const Answer answer = shell("echo swong | $KR a.urdf --trajectory - -o b.png");
    EXPECT_EQ(answer.status, 1);
    EXPECT_EQ(answer.err, "krrender: standard input, line 1: there is no joint \"swong\"; did you mean swing?\n");
}

TEST_F(KrRenderStreams, EndlessAndForeignInputIsRefusedInASentence)
{
    std::filesystem::create_directory(m_folder.path("folder"));
    m_folder.write("large", "");
    std::filesystem::resize_file(m_folder.path("large"), std::uintmax_t(1) << 30);
    const struct
    {
        std::string line;
        const char* part;
    } cases[] = {
        {"$KR a.urdf -o b.png --trajectory /dev/zero", "/dev/zero: it is a device"},
        {"$KR a.urdf -o b.png --camera /dev/zero", "/dev/zero: it is a device"},
        {"$KR a.urdf -o b.png --state /dev/zero", "/dev/zero: it is a device"},
        {"$KR /dev/zero -o b.png", "/dev/zero: it is a device"},
        {"$KR a.urdf -o b.png --trajectory large", "larger than 256 MiB"},
        {"$KR a.urdf -o b.png --camera large", "larger than 4 MiB"},
        {"$KR a.urdf -o b.png --state large", "larger than 16 MiB"},
        {"cat /dev/zero | $KR a.urdf -o b.png --trajectory -", "standard input: it has a line of more than 1 MiB"},
        {"cat /dev/zero | $KR a.urdf -o b.png --camera -", "standard input: it is larger than 4 MiB"},
        {"cat /dev/zero | $KR a.urdf -o b.png --state -", "standard input: it is larger than 16 MiB"},
        {"(echo swing; yes 0) | $KR a.urdf -o b.png --trajectory -", "more than 1000000 rows"},
        {"$KR a.urdf -o b.png --trajectory folder", "folder: it is a folder"},
        {"$KR a.urdf -o b.png --trajectory - </dev/null", "standard input: it is a device"},
        {"$KR a.urdf -o b.png --trajectory - <&-", "standard input: "},
        {"$KR a.urdf -o b.png --state -  --trajectory /dev/stdin </dev/null", "read but once"},
    };
    for (const auto& c : cases) {
        const Answer answer = shell(c.line);
        EXPECT_NE(answer.status, 0) << c.line;
        EXPECT_EQ(answer.numErrorLines(), 1u) << c.line << answer.err;
        EXPECT_NE(answer.err.find(c.part), std::string::npos) << c.line << "\n" << answer.err;
        EXPECT_EQ(newNames(), (std::set<std::string>{"folder", "large"})) << c.line;
    }
}

TEST_F(KrRenderStreams, OneStreamIsNotUsedTwice)
{
    m_folder.write("m.csv", "swing\n0\n");
    const struct
    {
        const char* arguments;
        const char* part;
    } cases[] = {
        {"-o - --report -", "standard output takes one output"},
        {"-o - --info", "standard output takes one output"},
        {"--report - --convert /dev/stdout", "standard output takes one output"},
        {"-o - --sidecar", "beside standard output"},
        {"-o a.png --depth d.npy --sidecar=-", "single picture"},
        {"-o - --trajectory m.csv", "one picture"},
        {"-o %04d.png", "is a pattern for the frames of a motion"},
        {"--depth x/%d.npy", "is a pattern for the frames of a motion"},
    };
    for (const auto& c : cases) {
        const Answer answer = shell("$KR a.urdf " + std::string(c.arguments));
        EXPECT_EQ(answer.status, 2) << c.arguments << answer.err;
        EXPECT_EQ(answer.out, "") << c.arguments;
        EXPECT_EQ(answer.numErrorLines(), 1u) << c.arguments << answer.err;
        EXPECT_NE(answer.err.find(c.part), std::string::npos) << c.arguments << answer.err;
    }
    EXPECT_EQ(newNames(), std::set<std::string>{"m.csv"});
    EXPECT_EQ(shell("$KR a.urdf -q -o '100%.png'").status, 0); // a name like any other
}

TEST_F(KrRenderStreams, ClosedStandardStreamsAreNotTakenForFiles)
{
    const Answer answer = shell("$KR a.urdf -o a.png >&-");
    EXPECT_EQ(answer.status, 1);
    EXPECT_NE(answer.err.find("standard output cannot be written"), std::string::npos) << answer.err;
    ASSERT_EQ(shell("$KR a.urdf -q -o b.png <&- >&- 2>&-").status, 0);
    EXPECT_TRUE(content("a.png") == content("b.png"));
    EXPECT_EQ(content("a.png").substr(0, 4), "\x89PNG");
}

TEST_F(KrRenderStreams, FoldersOfFramesAreMadeAsThePatternNamesThem)
{
    m_folder.write("m.csv", "swing\n0\n0.1\n");
    const Answer answer = shell("$KR a.urdf --trajectory m.csv -o new/deep/%04d.png --depth ./depth_%d/a.npy");
    ASSERT_EQ(answer.status, 0) << answer.err;
    EXPECT_NE(answer.out.find("new/deep: this folder is made\n"), std::string::npos) << answer.out;
    for (const char* name : {"new/deep/0001.png", "new/deep/0002.png", "depth_1/a.npy", "depth_2/a.npy"}) {
        EXPECT_TRUE(std::filesystem::exists(m_folder.path(name))) << name;
    }

    // Not for a single picture, not past "..", not through a link that leads nowhere, and none stays empty.
    std::filesystem::create_symlink("elsewhere", m_folder.path("link"));
    std::filesystem::create_directory(m_folder.path("away"));
    std::filesystem::create_symlink("../gone/b.png", m_folder.path("away/1.png"));
    const std::set<std::string> before = m_folder.names();
    const char* const motion = "$KR a.urdf --trajectory m.csv -o ";
    for (const std::string& line :
         {std::string("$KR a.urdf -o one/a.png"), motion + std::string("no/../some/%d.png"),
          motion + std::string("link/%d.png"), motion + std::string("a.urdf/%d.png"),
          motion + std::string("away/%d.png"),
          std::string("${KR% --size*} a.urdf --trajectory m.csv -o none/%d.png --size 30000x30000"),
          motion + std::string("none/%d.png -j swong=1"), motion + std::string("/proc/self/none/%d.png")}) {
        const Answer refused = shell(line);
        EXPECT_EQ(refused.status, 1) << line;
        EXPECT_EQ(refused.numErrorLines(), 1u) << line << refused.err;
        EXPECT_EQ(m_folder.names(), before) << line;
    }
}

TEST_F(KrRenderStreams, AnEncoderThatHangsIsEndedByASignal)
{
    m_folder.write("m.csv", motionOf(20000));
    std::filesystem::create_directory(m_folder.path("bin"));
    m_folder.write("bin/ffmpeg", "#!/bin/sh\ntrap '' INT TERM HUP\necho $$ >pid\n"
                                 "(sleep 0.5; kill -$NUMBER $PPID) &\nsleep 1000 <&-\n");
    std::filesystem::permissions(m_folder.path("bin/ffmpeg"), std::filesystem::perms::owner_all);
    m_folder.write("short.csv", "swing\n0\n"); // all that is drawn is in the pipe: the end is what hangs
    for (const char* number : {"INT", "TERM", "HUP"}) {
        for (const char* motion : {"m.csv", "short.csv"}) {
            const Answer answer =
                shell("NUMBER=" + std::string(number) +
                      " PATH=\"$PWD/bin:$PATH\" timeout -s KILL 60 $KR a.urdf --trajectory " + motion +
                      " -q -o v.mp4; status=$?; kill -0 $(cat pid) 2>pid && echo alive >&2; rm pid; exit $status");
            EXPECT_EQ(answer.status, 1) << number << motion;
            EXPECT_NE(answer.err.find("krrender: stopped"), std::string::npos) << answer.err;
            EXPECT_EQ(answer.err.find("alive"), std::string::npos) << answer.err;
            EXPECT_EQ(newNames(), (std::set<std::string>{"bin", "m.csv", "short.csv"})) << number << motion;
        }
    }
}

TEST_F(KrRenderStreams, AReaderThatGoesLeavesNoHalfFrame)
{
    m_folder.write("m.csv", motionOf(400));
    shell("(timeout 60 $KR a.urdf --trajectory m.csv -o f/%05d.png; echo $? >status) | head -n 1");
    EXPECT_EQ(content("status"), "141\n"); // SIGPIPE
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.path("f"))) {
        EXPECT_EQ(entry.path().filename().string().size(), std::string("00001.png").size()) << entry.path();
    }
}
