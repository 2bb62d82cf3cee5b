#include <tests/support/Program.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace
{

/// Two arms of one class, of which one stands behind the other, seen by two cameras: one with its principal point off
/// the middle.
std::string recipe(const Folder& folder, const std::string& format)
{
    const nlohmann::json shell = {{"distance", {2.0, 4.0}}, {"elevation", {"-10deg", "60deg"}}};
    const nlohmann::json recipe = {
        {"version", 1},
        {"name", "arms"},
        {"count", 8},
        {"samplesPerShard", 3},
        {"format", format},
        {"size", {160, 120}},
        {"kinds", {"color", "depth", "labels", "normals", "masks"}},
        {"robots",
         {{{"file", KR_ROBOT}, {"name", "a"}, {"class", "arm"}},
          {{"file", KR_ROBOT}, {"name", "b"}, {"class", "arm"}, {"pose", {{"position", {0.8, 0.5, 0.0}}}}}}},
        {"cameras", {{{"shell", shell}}, {{"shell", shell}, {"intrinsics", {150.5, 141.0, 71.25, 63.5}}}}}};
    return folder.write(format + ".json", recipe.dump());
}

TEST(KrDatasetReaders, EveryFormatHoldsTheSameSamples)
{
    const Folder folder;
    for (const std::string format : {"webdataset", "folders", "bop", "coco"}) {
        const std::string set = folder.path(format);
        const Answer made = runCommand(KR_RENDER " dataset -q " + recipe(folder, format) + " --out " + set);
        if (made.status != 0 && made.err.find("OpenGL") != std::string::npos) {
            GTEST_SKIP() << made.err;
        }
        ASSERT_EQ(made.status, 0) << format << ": " << made.err;
        const Answer merged =
            runCommand(KR_RENDER " dataset -q " + recipe(folder, format) + " --out " + set + " --merge");
        ASSERT_EQ(merged.status, 0) << format << ": " << merged.err;
        const Answer read =
            runCommand(KR_PYTHON " " KR_CHECK " " + format + " " + set + " " + folder.path("webdataset"));
        if (read.status == 77) {
            GTEST_SKIP() << "numpy is missing";
        }
        EXPECT_EQ(read.status, 0) << format << ": " << read.err;
    }
}

} // namespace
