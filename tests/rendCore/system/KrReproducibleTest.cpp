// The same input gives the same bytes, whatever was drawn before and in whichever context.

#include <rendCore/system/KrRenderWindow.h>

#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace
{

struct Pictures
{
    KrImage color;
    KrImage depth;
};

bool isSame(const KrImage& a, const KrImage& b)
{
    return a.sizeInBytes() > 0 && a.sizeInBytes() == b.sizeInBytes() &&
           std::memcmp(a.data(), b.data(), a.sizeInBytes()) == 0;
}

/// Whether the pictures are drawn into the window's own buffers or off-screen.
class KrReproducible : public testing::TestWithParam<bool>
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(system.readFile(KR_SAMPLES "/industrial_arm.xml"));
        system.statedSystem().setJointPosition(0, "joint_2", 0.6);
        pov.setEyepoint(KrVector(4.0, -4.0, 3.0));
        pov.setCenterOfInterest(KrVector(0.3, 0.0, 0.8));
    }
    void draw(KrRenderWindow& window, Pictures& pictures)
    {
        window.setWindowSize(320, 240);
        ASSERT_TRUE(window.init());
        window.setOffScreenRendering(GetParam());
        window.setStatedSystem(system.statedSystem());
        window.setPovParameters(pov);
        window.setState(system.statedSystem().systemState());
        ASSERT_TRUE(window.renderSceneAndCaptureImage(pictures.color, KrSGWindow::CaptureColor));
        ASSERT_TRUE(window.renderSceneAndCaptureImage(pictures.depth, KrSGWindow::CaptureDepth));
    }

    KrVisualizableStatedSystem system;
    KrPovParameters pov;
};

} // namespace

TEST_P(KrReproducible, FromOneContextToTheNextAndFromWindowToWindow)
{
    Pictures first, again;
    KrRenderWindow window;
    if (!window.init()) {
        GTEST_SKIP() << window.report().text();
    }
    draw(window, first);
    const std::vector<unsigned char> bytes(first.color.data(), first.color.data() + first.color.sizeInBytes());
    std::size_t drawn = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        drawn += std::memcmp(&bytes[i], &bytes[0], 3) != 0 ? 1 : 0;
    }
    EXPECT_GT(drawn, 1000u);
    draw(window, again);
    EXPECT_TRUE(isSame(first.color, again.color) && isSame(first.depth, again.depth)) << "in the same window";
    for (int i = 0; i < 3; ++i) {
        window.closeWindow();
        draw(window, again);
        EXPECT_TRUE(isSame(first.color, again.color) && isSame(first.depth, again.depth)) << "opened again";
    }
    window.closeWindow();
    KrRenderWindow other;
    draw(other, again);
    EXPECT_TRUE(isSame(first.color, again.color) && isSame(first.depth, again.depth)) << "another window";
}

INSTANTIATE_TEST_SUITE_P(Targets, KrReproducible, testing::Bool(),
                         [](const auto& target) { return target.param ? "OffScreen" : "Window"; });
