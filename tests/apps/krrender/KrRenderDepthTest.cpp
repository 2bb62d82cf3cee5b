// Runs krrender for depths and range maps, and reads the files back as another program would.

#include <tests/support/LopsidedRobot.h>
#include <tests/support/Program.h>
#include <tests/support/Tables.h>

#include <KrAppDepth.h>
#include <KrAppFailure.h>
#include <KrAppFiles.h>
#include <rendCore/capture/KrFrameDescription.h>
#include <toolkit/math/KrAngle.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace
{

using LopsidedRobot::kUrdf;
constexpr float kNothing = std::numeric_limits<float>::infinity();

Table pfm(const std::string& bytes)
{
    Table stored;
    int start = 0;
    EXPECT_EQ(std::sscanf(bytes.c_str(), "Pf\n%zu %zu\n-1.0%n", &stored.width, &stored.height, &start), 2);
    append<float>(stored, bytes, static_cast<std::size_t>(start) + 1);
    Table table = stored;
    for (std::size_t row = 0; row < stored.height; ++row) {
        for (std::size_t column = 0; column < stored.width; ++column) {
            table.values.at(row * stored.width + column) = stored.at(column, stored.height - 1 - row);
        }
    }
    return table;
}

Table csv(const std::string& text)
{
    Table table;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line); ++table.height) {
        std::istringstream cells(line);
        table.width = 0;
        for (std::string cell; std::getline(cells, cell, ','); ++table.width) {
            table.values.push_back(std::stod(cell));
        }
    }
    return table;
}

/// @param unit  of the stored numbers for each metre
void expectTarget(const Table& table, double unit, double nothing, double tolerance)
{
    ASSERT_EQ(table.width, 80u);
    ASSERT_EQ(table.height, 60u);
    ASSERT_EQ(table.values.size(), 4800u);
    EXPECT_NEAR(table.at(20, 15), 5.0 * unit, tolerance);
    EXPECT_NEAR(table.at(60, 15), 5.5 * unit, tolerance);
    EXPECT_NEAR(table.at(20, 45), 6.0 * unit, tolerance);
    EXPECT_EQ(table.at(60, 45), nothing);
    EXPECT_EQ(table.at(0, 0), nothing);
}

class KrRenderDepth : public testing::Test
{
protected:
    void SetUp() override { m_folder.write("target.urdf", kUrdf); }
    Answer krrender(const std::string& arguments) const
    {
        return runCommand("cd '" + m_folder.path("") + "' && '" + std::string(KR_RENDER) +
                          "' target.urdf --eye 6,0,0 " + "--look-at 0,0,0 --size 80x60 --fov 17.2 " + arguments);
    }
    std::string content(const std::string& name) const { return contentOf(m_folder.path(name)); }

    Folder m_folder;
};

} // namespace

TEST_F(KrRenderDepth, EveryFormatHasTheSameMetresTheRightWayUp)
{
    const Answer answer = krrender("--depth d.png --depth-preview p.png");
    ASSERT_EQ(answer.status, 0) << answer.err;
    expectTarget(png(m_folder.path("d.png")), 1000.0, 0.0, 0.0);
    EXPECT_NE(content("p.png"), content("d.png"));
    // More samples are for pictures: a depth is that of one ray.
    ASSERT_EQ(krrender("--depth d.npy --samples 1").status, 0);
    const Table planar = numpy<float>(content("d.npy"), "<f4");
    expectTarget(planar, 1.0, kNothing, 1e-4);
    ASSERT_EQ(krrender("--depth d.pfm --samples 16").status, 0);
    EXPECT_EQ(pfm(content("d.pfm")).values, planar.values);

    ASSERT_EQ(krrender("--depth e.npy --depth-kind euclidean").status, 0);
    const Table euclidean = numpy<float>(content("e.npy"), "<f4");
    // 60 pixels span twice the tangent of half the angle of view at 1 m.
    const double pixel = 2.0 * std::tan(0.5 * Kr::Angle::radians(17.2)) / 60.0;
    const double slope = std::hypot((20.5 - 40.0) * pixel, (15.5 - 30.0) * pixel);
    EXPECT_NEAR(euclidean.at(20, 15), 5.0 * std::sqrt(1.0 + slope * slope), 1e-4);
}

TEST_F(KrRenderDepth, EveryPoseOfAMotionHasItsDepthsPictureAndDescription)
{
    m_folder.write("motion.csv", "time, push\n0, 0\n0.5, -0.4\n");
    const Answer answer =
        krrender("--trajectory motion.csv -o c%d.png --depth d%d.npy --depth-preview p%d.png --sidecar");
    ASSERT_EQ(answer.status, 0) << answer.err;
    std::set<std::string> expected = {"motion.csv", "target.urdf"};
    for (const std::string name : {"c1.png", "c2.png", "d1.npy", "d2.npy", "p1.png", "p2.png"}) {
        expected.insert({name, name + ".json"});
    }
    EXPECT_EQ(m_folder.names(), expected);
    expectTarget(numpy<float>(content("d1.npy"), "<f4"), 1.0, kNothing, 1e-4);
    EXPECT_NEAR(numpy<float>(content("d2.npy"), "<f4").at(20, 15), 5.4, 1e-4);
    KrFrameDescription frame;
    ASSERT_TRUE(frame.readFile(m_folder.path("d2.npy.json")));
    EXPECT_EQ(frame.frameNumber, 2u);
    EXPECT_EQ(frame.width, 80u);
    EXPECT_EQ(frame.time, 0.5);

    // Each is what a single pose gives.
    ASSERT_EQ(krrender("-j push=-0.4 -o c.png --depth d.npy --depth-preview p.png").status, 0);
    EXPECT_EQ(content("c2.png"), content("c.png"));
    EXPECT_EQ(content("d2.npy"), content("d.npy"));
    EXPECT_EQ(content("p2.png"), content("p.png"));
    ASSERT_EQ(krrender("--trajectory motion.csv --depth only%d.npy").status, 0);
    EXPECT_EQ(content("only1.npy"), content("d1.npy"));
}

TEST_F(KrRenderDepth, RangeMapsHaveTheirTopRowFirst)
{
    ASSERT_EQ(krrender("--range-map r.npy 80x60 2x1.6 9").status, 0);
    expectTarget(numpy<double>(content("r.npy"), "<f8"), 1.0, 9.0, 1e-6);
    const Answer answer = krrender("--range-map r.csv 80x60 2x1.6 9 -q");
    ASSERT_EQ(answer.status, 0) << answer.err;
    expectTarget(csv(content("r.csv")), 1.0, 9.0, 1e-6);
}

TEST_F(KrRenderDepth, WrongWordsAreToldAndNothingIsWritten)
{
    const std::set<std::string> before = m_folder.names();
    for (const char* words :
         {"--depth d.jpg", "--depth d", "--depth-kind planar -o a.png", "--depth d.npy --depth-kind radial",
          "--range-map r.png 8x6 2x1 9", "--range-map r.npy 0x6 2x1 9", "--range-map r.npy 8x6 2x-1 9",
          "--range-map r.npy 8x6 nanx1 9", "--range-map r.npy 8x6 2x1 1", "--range-map r.npy 8x6 2x1",
          "--range-map r.npy 8x6 2x1 9 --trajectory t.csv -o a.png"}) {
        const Answer answer = krrender(words);
        EXPECT_EQ(answer.status, 2) << words << ": " << answer.err;
        EXPECT_EQ(answer.numErrorLines(), 1u) << answer.err;
    }
    EXPECT_EQ(m_folder.names(), before);
}

TEST(KrAppDepth, MillimetresAreClampedToWhatTheyCanSay)
{
    const Folder folder;
    const std::vector<float> depths = {0.0001f, 1.2344f, 1.2346f, 65.535f, 70.0f, kNothing};
    KrAppDepth::Png kept;
    KrAppDepth::write(depths, 3, 2, folder.path("d.png"), kept);
    EXPECT_EQ(png(folder.path("d.png")).values, (std::vector<double>{1, 1234, 1235, 65535, 65535, 0}));
}

TEST(KrAppFiles, AFileThatCannotBeReplacedStaysAndLeavesNothingBeside)
{
    const Folder folder;
    std::filesystem::create_directory(folder.path("taken"));
    folder.write("taken/in", "x");
    const std::set<std::string> before = folder.names();
    EXPECT_THROW(KrAppFiles::writeBytes("bytes", folder.path("taken")), KrAppFailure);
    EXPECT_THROW(KrAppFiles::writeBytes("bytes", folder.path("nowhere/file")), KrAppFailure);
    EXPECT_EQ(folder.names(), before);
    KrAppFiles::writeBytes("new", folder.path("file"));
    EXPECT_EQ(contentOf(folder.path("file")), "new");
}
