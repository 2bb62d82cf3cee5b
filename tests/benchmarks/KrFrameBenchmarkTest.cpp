#include <tests/support/Program.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>

namespace
{

Answer benchmark(const std::string& arguments)
{
    return runCommand(std::string(KR_FRAME_BENCHMARK) + " " + KR_SAMPLES + "/" + arguments);
}

nlohmann::json figures(const std::string& arguments)
{
    const Answer answer = benchmark(arguments + " --json -");
    EXPECT_EQ(answer.status, 0) << answer.err;
    return nlohmann::json::parse(answer.out, nullptr, false);
}

} // namespace

TEST(KrFrameBenchmark, MeasuresAllWaysInEveryMode)
{
    for (const char* mode : {"render", "color", "depth"}) {
        const nlohmann::json report = figures(
            std::string("industrial_arm.xml --size 96x72 --rounds 3 --frames 1 --starts 1 --cull --mode ") + mode);
        ASSERT_TRUE(report.is_object());
        EXPECT_EQ(report["copies"], 1);
        EXPECT_GT(report["triangles"], 20000);
        EXPECT_GT(report["load_s"], 0.0);
        ASSERT_EQ(report["ways"].size(), 3u);
        for (const auto& [name, way] : report["ways"].items()) {
            EXPECT_GT(way["first_frame_s"], 0.0) << mode << name;
            EXPECT_GT(way["start_s"], way["first_frame_s"]) << mode << name;
            EXPECT_GT(way["frame"]["median_s"], 0.0) << mode << name;
            EXPECT_GT(way["small"]["processor_s"], 0.0) << mode << name;
            EXPECT_GT(way["peak_memory_mib"], way["loaded_memory_mib"]) << mode << name;
            // All drew the same picture (the program itself compares them, too).
            EXPECT_NEAR(way["coverage"], report["ways"]["ours"]["coverage"], 0.01) << mode << name;
            EXPECT_GT(way["coverage"], 0.1) << mode << name;
        }
        for (const char* bare : {"groups", "merged"}) {
            EXPECT_GT(report["ratios"][bare]["frame"], 0.0) << mode << bare;
        }
    }
}

// Links of a robot description have their shapes in frames of their own: the bounds once drew them elsewhere.
TEST(KrFrameBenchmark, DrawsTheSamePictureOfARobotDescription)
{
    const nlohmann::json report = figures("industrial_arm.urdf --size 96x72 --rounds 1 --frames 1 --starts 0");
    ASSERT_TRUE(report.is_object());
    EXPECT_GT(report["ways"]["merged"]["coverage"], 0.1);
}

// What a frame allocates is the viewer's own: it does not grow with the scene.
TEST(KrFrameBenchmark, AllocationsDoNotGrowWithTheScene)
{
    const std::string options = " --size 64x64 --rounds 2 --frames 10 --starts 0 --way ours --one-triangle --copies ";
    const nlohmann::json one = figures("industrial_arm.xml" + options + "1");
    const nlohmann::json many = figures("industrial_arm.xml" + options + "9");
    ASSERT_TRUE(one.is_object() && many.is_object());
    EXPECT_EQ(many["groups"], 9 * one["groups"].get<int>());
    EXPECT_EQ(one["triangles"], one["groups"]);
    EXPECT_LE(many["ways"]["ours"]["frame"]["allocations_new"],
              one["ways"]["ours"]["frame"]["allocations_new"].get<double>() + 2.0);
}

// The count is the same from run to run, but for what the clock and the addresses decide.
TEST(KrFrameBenchmark, CountsInstructions)
{
    if (std::system("command -v valgrind >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "no valgrind";
    }
    const std::string options = "industrial_arm.xml --size 16x16 --one-triangle --frames 2 --instructions --way ";
    const double merged = figures(options + "merged")["ways"]["merged"]["instructions"];
    const double groups = figures(options + "groups")["ways"]["groups"]["instructions"];
    EXPECT_GT(merged, 1e4);
    // Four calls in the place of one.
    EXPECT_GT(groups, merged);
}

TEST(KrFrameBenchmark, RefusesWhatItCannotMeasure)
{
    EXPECT_EQ(benchmark("none.xml").status, 1);
    EXPECT_EQ(benchmark("industrial_arm.xml --size 0x0").status, 2);
    EXPECT_NE(benchmark("industrial_arm.xml --mode other").status, 0);
    EXPECT_NE(benchmark("industrial_arm.xml --copies 0").status, 0);
    EXPECT_NE(benchmark("industrial_arm.xml --way other").status, 0);
    EXPECT_EQ(runCommand(std::string(KR_FRAME_BENCHMARK) + " made:other").status, 1);
}
