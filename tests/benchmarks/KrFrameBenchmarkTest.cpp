#include <tests/support/Program.h>

#include <gtest/gtest.h>

#include <cstdlib>

namespace
{

Answer benchmark(const std::string& arguments)
{
    return runCommand(std::string(KR_FRAME_BENCHMARK) + " " + KR_SAMPLES + "/" + arguments);
}

/// The first number that stands under `key` behind `from`.
double numberOf(const std::string& json, const std::string& key, const std::string& from = "")
{
    const std::size_t start = json.find("\"" + from + "\"");
    const std::size_t at = json.find("\"" + key + "\": ", from.empty() || start == std::string::npos ? 0 : start);
    return at == std::string::npos ? -1.0 : std::atof(json.c_str() + at + key.size() + 4);
}

} // namespace

TEST(KrFrameBenchmark, MeasuresBothWaysInEveryMode)
{
    for (const char* mode : {"render", "color", "depth"}) {
        const Answer answer =
            benchmark(std::string("industrial_arm.xml --size 96x72 --frames 3 --json - --mode ") + mode);
        ASSERT_EQ(answer.status, 0) << answer.err;
        EXPECT_EQ(numberOf(answer.out, "copies"), 1.0);
        EXPECT_GT(numberOf(answer.out, "triangles"), 20000.0);
        EXPECT_GT(numberOf(answer.out, "load_s"), 0.0);
        EXPECT_GT(numberOf(answer.out, "peak_memory_mib"), 10.0);
        for (const char* way : {"scene", "bare"}) {
            EXPECT_GT(numberOf(answer.out, "first_frame_s", way), 0.0) << mode << way;
            EXPECT_GT(numberOf(answer.out, "median_s", way), 0.0) << mode << way;
            EXPECT_GT(numberOf(answer.out, "processor_s", way), 0.0) << mode << way;
        }
        // Both drew the same picture (the program itself compares them, too).
        EXPECT_NEAR(numberOf(answer.out, "scene_coverage"), numberOf(answer.out, "bare_coverage"), 0.01);
        EXPECT_GT(numberOf(answer.out, "scene_coverage"), 0.1);
    }
}

// What a frame allocates is the viewer's own: it does not grow with the scene.
TEST(KrFrameBenchmark, AllocationsDoNotGrowWithTheScene)
{
    const char* const options = " --size 64x64 --frames 20 --one-triangle --json - --copies ";
    const Answer one = benchmark(std::string("industrial_arm.xml") + options + "1");
    const Answer many = benchmark(std::string("industrial_arm.xml") + options + "9");
    ASSERT_EQ(one.status, 0) << one.err;
    ASSERT_EQ(many.status, 0) << many.err;
    EXPECT_EQ(numberOf(many.out, "draw_calls"), 9.0 * numberOf(one.out, "draw_calls"));
    EXPECT_EQ(numberOf(one.out, "triangles"), numberOf(one.out, "draw_calls"));
    EXPECT_LE(numberOf(many.out, "allocations_new", "scene"), numberOf(one.out, "allocations_new", "scene") + 2.0);
}

TEST(KrFrameBenchmark, RefusesWhatItCannotMeasure)
{
    EXPECT_EQ(benchmark("none.xml").status, 1);
    EXPECT_EQ(benchmark("industrial_arm.xml --size 0x0").status, 2);
    EXPECT_NE(benchmark("industrial_arm.xml --mode other").status, 0);
    EXPECT_NE(benchmark("industrial_arm.xml --copies 0").status, 0);
}
