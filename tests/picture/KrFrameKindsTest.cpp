#include <import/KrRobotImporter.h>
#include <picture/KrMotion.h>
#include <picture/KrPictureScene.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <GL/gl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>

namespace
{

namespace fs = std::filesystem;
constexpr unsigned int kWidth = 320;
constexpr unsigned int kHeight = 240;
constexpr std::size_t kCount = std::size_t(kWidth) * kHeight;

/// Every robot and system at hand: the samples, and real ones where they lie beside the project.
std::vector<std::string> files()
{
    std::vector<std::string> found;
    for (const char* const sample :
         {"industrial_arm.urdf", "textured_rover.xml", "dual_arm_base.xml", "hose.xml", "plume.xml"}) {
        found.push_back(std::string(KR_SAMPLES "/") + sample);
    }
    std::error_code error;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(KR_ROBOTS, error)) {
        if (entry.path().extension() == ".urdf") {
            found.push_back(entry.path().string());
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

struct Images
{
    std::vector<unsigned char> color = std::vector<unsigned char>(3 * kCount);
    std::vector<float> depth = std::vector<float>(kCount);
    std::vector<std::uint32_t> labels = std::vector<std::uint32_t>(kCount);
    std::vector<float> normals = std::vector<float>(3 * kCount);

    KrFrameCapture::Targets targets()
    {
        return {kWidth, kHeight, color.data(), depth.data(), labels.data(), normals.data()};
    }
};

/// A system and a scene that shows it.
class Shown
{
public:
    explicit Shown(const std::string& file, unsigned int samples = 1)
    {
        KrImportOptions options;
        KrImportReport report;
        KrVisualizableStatedSystem native;
        if (fs::path(file).extension() == ".urdf") {
            EXPECT_TRUE(KrRobotImporter::readFile(file, options, system, report));
        } else {
            EXPECT_TRUE(native.readFile(file));
            system = native.statedSystem();
        }
        std::string reason;
        EXPECT_TRUE(scene.open(kWidth, kHeight, samples, reason) && scene.show(system, reason)) << reason;
    }
    Images draw(const KrFrameCapture::Options& options = {})
    {
        Images images;
        std::string reason;
        EXPECT_TRUE(scene.draw(system.systemState(), options, images.targets(), reason)) << reason;
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        return images;
    }

    KrStatedSystem system;
    KrPictureScene scene;
};

std::size_t numDifferent(const std::vector<unsigned char>& a, const unsigned char* b)
{
    std::size_t count = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        count += a[i] != b[i] ? 1 : 0;
    }
    return count;
}

} // namespace

TEST(KrFrameKinds, AgreeInEveryPixelWithEachOtherAndWithTheCapturesOfOneKind)
{
    for (const std::string& file : files()) {
        SCOPED_TRACE(file);
        Shown shown(file);
        const Images images = shown.draw();
        KrImage color;
        std::string reason;
        ASSERT_TRUE(shown.scene.draw(shown.system.systemState(), color, reason)) << reason;
        std::vector<unsigned char> flipped(images.color.size());
        for (unsigned int y = 0; y < kHeight; ++y) {
            std::copy_n(color.data() + std::size_t(y) * 3 * kWidth, 3 * kWidth,
                        flipped.data() + std::size_t(kHeight - 1 - y) * 3 * kWidth);
        }
        EXPECT_EQ(numDifferent(images.color, flipped.data()), 0u);
        std::vector<float> depth;
        KrDepthCapture::Options options;
        options.rowOrder = KrDepthCapture::RowOrder::TopRowFirst;
        ASSERT_TRUE(shown.scene.drawDepth(shown.system.systemState(), options, depth, reason)) << reason;
        const std::uint32_t size = KrLabelTable(shown.system.manipulatorSystem(), KrLabelTable::Level::Link).size();
        std::size_t numCovered = 0;
        std::size_t numOtherDepth = 0;
        std::size_t numWrong = 0;
        double worst = 0.0;
        std::size_t numMask = 0;
        std::set<std::uint32_t> seen;
        for (std::size_t i = 0; i < kCount; ++i) {
            const bool isCovered = std::isfinite(images.depth[i]);
            numCovered += isCovered;
            numMask += isCovered != std::isfinite(depth[i]);
            if (isCovered && std::isfinite(depth[i])) {
                worst = std::max(worst, std::abs(double(depth[i]) - double(images.depth[i])));
                numOtherDepth += depth[i] != images.depth[i];
            }
            const float* n = images.normals.data() + 3 * i;
            const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
            numWrong += isCovered != (images.labels[i] != 0) || images.labels[i] > size ||
                        std::abs(length - (isCovered ? 1.0 : 0.0)) > 1e-5;
            seen.insert(images.labels[i]);
        }
        std::printf("%s: covered %zu, mask differs %zu, depths differ %zu (%g), wrong %zu, labels %zu of %u\n",
                    file.c_str(), numCovered, numMask, numOtherDepth, worst, numWrong, seen.size(), size);
        EXPECT_EQ(numWrong, 0u);
    }
}

TEST(KrFrameKinds, ArePixelForPixelTheSameHoweverLargeColoursAreDrawn)
{
    // Nothing of this sample is simplified: its surfaces are the same at every size.
    const std::string file = KR_SAMPLES "/industrial_arm.urdf";
    Shown one(file, 1);
    Shown nine(file, 9);
    ASSERT_EQ(nine.scene.factor(), 3u);
    const Images single = one.draw();
    const Images reduced = nine.draw();
    std::size_t numOther = 0;
    for (std::size_t i = 0; i < kCount; ++i) {
        numOther += single.labels[i] != reduced.labels[i] || std::isfinite(single.depth[i]) != (reduced.labels[i] != 0);
    }
    // Edges may fall to the other side by rounding.
    EXPECT_LT(numOther, kCount / 5000);

    KrAmodalMasks masks[2];
    std::optional<KrFrameCapture::Pick> picks[2];
    Shown* const shown[2] = {&one, &nine};
    for (int i = 0; i < 2; ++i) {
        std::string reason;
        const KrManipulatorSystemState& state = shown[i]->system.systemState();
        ASSERT_TRUE(shown[i]->scene.drawAmodal(state, KrLabelTable::Level::Link, masks[i], reason)) << reason;
        ASSERT_TRUE(shown[i]->scene.pick(state, 90, 130, picks[i], reason)) << reason;
        ASSERT_TRUE(picks[i]);
    }
    EXPECT_NEAR(double(masks[0].numPixels(1)), double(masks[1].numPixels(1)), 3.0);
    EXPECT_EQ(picks[0]->part.link, picks[1]->part.link);
    EXPECT_NEAR(picks[0]->distance, picks[1]->distance, 1e-4);
}
