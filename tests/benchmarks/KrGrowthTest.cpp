#include <tests/support/Program.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace
{

/// The script's answer about a program whose figures grow as `formula` says (awk, of n).
Answer growthOf(const std::string& formula, const Folder& folder)
{
    const std::string program = folder.path("krGrowthBenchmark");
    std::ofstream(program)
        << "#!/bin/sh\n"
           "awk -v n=$2 'BEGIN { printf \"{\\\"load_s\\\": 0, \\\"build_s\\\": %g, \\\"frame_s\\\": %g, "
           "\\\"driver_s\\\": 0, \\\"memory_mib\\\": 100, \\\"frames\\\": 1}\\n\", n, "
        << formula << " }'\n";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    return runCommand("python3 " KR_GROWTH_SCRIPT " '" + folder.path("") + "' --series star --rounds 2 --images '" +
                      folder.path("") + "' --json '" + folder.path("answers.json") + "'");
}

} // namespace

TEST(KrGrowth, DrawsWhatItAsksForAndFlagsWhatOutgrowsItsSize)
{
    const Folder folder;
    const Answer linear = growthOf("0.5 + 0.001 * n", folder);
    EXPECT_EQ(linear.status, 0) << linear.err;
    EXPECT_NE(linear.out.find("x^1.00"), std::string::npos) << linear.out;
    const std::string picture = contentOf(folder.path("growth-star.svg"));
    EXPECT_EQ(picture.rfind("<svg", 0), 0u);
    EXPECT_NE(picture.find(">frame</text>"), std::string::npos);
    EXPECT_NE(picture.find("10 s, "), std::string::npos) << "of 10,000, with a unit";
    // What was kept is drawn again without a program.
    std::filesystem::create_directory(folder.path("again"));
    const Answer again = runCommand("python3 " KR_GROWTH_SCRIPT " /nonexistent --redraw '" +
                                    folder.path("answers.json") + "' --images '" + folder.path("again") + "'");
    EXPECT_EQ(again.out, linear.out);
    EXPECT_EQ(contentOf(folder.path("again/growth-star.svg")), picture);

    // Only its end is steep.
    const Answer steep = growthOf("1 + n * n * 1e-8 * n", folder);
    EXPECT_EQ(steep.status, 1) << steep.err;
    EXPECT_NE(steep.out.find("FASTER THAN LINEAR"), std::string::npos) << steep.out;

    // Nothing measured is no growth.
    const Answer broken = runCommand("python3 " KR_GROWTH_SCRIPT " /nonexistent --series star --rounds 1");
    EXPECT_NE(broken.status, 0);
}

// Each kind of scene is there, and read from a file where it is one.
TEST(KrGrowth, MeasuresEverySeries)
{
    for (const char* series :
         {"chain", "star", "robots", "triangles", "shapes", "selection", "colors", "translucent", "pixels", "views"}) {
        const Answer answer = runCommand(std::string(KR_GROWTH_BENCHMARK) + " " + series + " 100");
        ASSERT_EQ(answer.status, 0) << series << answer.err;
        const bool isRead = std::string("chain star triangles").find(series) != std::string::npos;
        EXPECT_EQ(answer.out.find("\"load_s\": 0,") == std::string::npos, isRead) << answer.out;
    }
    EXPECT_EQ(runCommand(std::string(KR_GROWTH_BENCHMARK) + " other 100").status, 1);
    EXPECT_EQ(runCommand(std::string(KR_GROWTH_BENCHMARK) + " star 0").status, 2);
}
