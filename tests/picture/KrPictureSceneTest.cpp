#include <tests/support/Pictures.h>
#include <tests/support/Systems.h>

#include <picture/KrAids.h>
#include <picture/KrLighting.h>
#include <picture/KrMotion.h>
#include <picture/KrPictureScene.h>
#include <picture/KrTiles.h>

#include <GL/gl.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

namespace
{

constexpr std::array<int, 3> kBackground = {0xEE, 0xF0, 0xF4};

/// Three balls in a row along y, which share one extent: links "a", "b" and "c" at y = -1, 0 and 1.
KrManipulatorSystem threeBalls()
{
    KrIndividualManipulator row("row");
    row.materialMap().set(std::string("red"), KrDataMap::material(KrColor(1.0, 0.0, 0.0)));
    const auto ball = boost::make_shared<KrSpherePhysicalExtent>(0.4);
    ball->setMaterialName("red");
    for (int i = 0; i < 3; ++i) {
        KrManipulatorLink link = Systems::turningLink(std::string(1, static_cast<char>('a' + i)), {0.0, i - 1.0, 0.0});
        link.addShape(ball);
        row.addChildLink(link);
    }
    KrManipulatorSystem system;
    system.manipulators().push_back(row);
    return system;
}

class KrPictureSceneTest : public testing::Test
{
protected:
    void open(unsigned int width, unsigned int height, unsigned int samples)
    {
        ASSERT_TRUE(scene.open(width, height, samples, reason)) << reason;
    }
    void draw(const KrStatedSystem& system)
    {
        ASSERT_TRUE(scene.draw(system.systemState(), picture, reason)) << reason;
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    }
    bool isRed(unsigned int x, unsigned int y)
    {
        const std::array<double, 3> colour = meanColour(picture, x, y, 2);
        return colour[0] > 3.0 * colour[1];
    }

    KrPictureScene scene;
    KrImage picture;
    std::string reason;
};

/// Of green, in a row of the picture.
std::size_t numShades(const KrImage& picture, unsigned int row)
{
    std::set<int> shades;
    for (unsigned int x = 0; x < picture.width(); ++x) {
        shades.insert(picture.data()[(std::size_t(row) * picture.width() + x) * 3 + 1]);
    }
    return shades.size();
}

} // namespace

TEST_F(KrPictureSceneTest, ShowsASystemFramedAndLit)
{
    KrStatedSystem system(Systems::twoBoxes());
    open(160, 120, 4);
    ASSERT_TRUE(scene.show(system, reason)) << reason;
    draw(system);
    ASSERT_EQ(picture.width(), 160u);
    ASSERT_EQ(picture.height(), 120u);
    // Somewhere it comes near an edge, nowhere to it.
    unsigned int left = 160, right = 0, bottom = 120, top = 0;
    for (unsigned int y = 0; y < 120; ++y) {
        for (unsigned int x = 0; x < 160; ++x) {
            const unsigned char* const pixel = picture.data() + (std::size_t(y) * 160 + x) * 3;
            if (std::abs(pixel[0] - kBackground[0]) > 2 || std::abs(pixel[1] - kBackground[1]) > 2) {
                left = std::min(left, x), right = std::max(right, x);
                bottom = std::min(bottom, y), top = std::max(top, y);
            }
        }
    }
    EXPECT_GE(std::min({left, 159 - right, bottom, 119 - top}), 1u);
    EXPECT_LE(std::min(left + 159 - right, bottom + 119 - top), 16u);
    EXPECT_EQ(scene.window().ambientLight(), KrLighting::ambientLight());
}

TEST_F(KrPictureSceneTest, EdgesAreSmoothAndDepthsAreNotMixed)
{
    // A disc's edge cuts every row; flat light leaves two shades, and those of the edge.
    KrStatedSystem system(threeBalls());
    KrVisualizationParameters parameters;
    KrPovParameters pov;
    pov.setEyepoint({6.0, 0.0, 0.0});
    pov.setUp({0.0, 0.0, 1.0});
    parameters.setPovParameters(pov);
    std::size_t shades[2] = {};
    for (const unsigned int samples : {1u, 16u}) {
        KrPictureScene other;
        ASSERT_TRUE(other.open(120, 60, samples, reason) && other.show(system, parameters, reason)) << reason;
        other.window().setViewerAttribute(KrSGWindow::Lighting, false);
        ASSERT_TRUE(other.draw(system.systemState(), picture, reason)) << reason;
        EXPECT_EQ(other.factor(), samples == 1 ? 1u : 4u);
        shades[samples == 1 ? 0 : 1] = numShades(picture, 30);
        KrImage depth;
        ASSERT_TRUE(other.drawDepth(system.systemState(), depth, reason)) << reason;
        EXPECT_EQ(depth.width(), 120u);
        EXPECT_EQ(depth.data()[0], 0) << "the background";
        std::vector<float> metres;
        ASSERT_TRUE(other.drawDepth(system.systemState(), KrDepthCapture::Options(), metres, reason)) << reason;
        ASSERT_EQ(metres.size(), 120u * 60u);
        EXPECT_NEAR(metres[30 * 120 + 60], 5.6, 0.01);
    }
    EXPECT_EQ(shades[0], 2u);
    EXPECT_GT(shades[1], 2u);
}

TEST_F(KrPictureSceneTest, SaysWhyItCannot)
{
    EXPECT_FALSE(scene.open(1000000, 10, 1, reason));
    EXPECT_NE(reason.find("1000000 x 10 pixels are too many"), std::string::npos) << reason;
}

TEST_F(KrPictureSceneTest, ALinkIsSetOffByItselfBeforeAndAfterItIsShown)
{
    KrStatedSystem system(threeBalls());
    open(120, 60, 1);
    ASSERT_EQ(system.selectLink(0, "a"), KrStatedSystem::LinkAnswer::Done);
    ASSERT_TRUE(system.setTransparency(0.1));
    ASSERT_TRUE(scene.show(system, reason, {1.0, 0.0, 0.0})) << reason;
    draw(system);
    // Seen from +x, y runs to the right.
    EXPECT_TRUE(isRed(22, 30));
    EXPECT_FALSE(isRed(60, 30));
    EXPECT_FALSE(isRed(98, 30));

    ASSERT_EQ(system.deselectLink(0, "a"), KrStatedSystem::LinkAnswer::Done);
    ASSERT_EQ(system.selectLink(0, "b"), KrStatedSystem::LinkAnswer::Done);
    KrLighting::light(scene.window());
    draw(system);
    EXPECT_FALSE(isRed(22, 30));
    EXPECT_TRUE(isRed(60, 30));
    EXPECT_FALSE(isRed(98, 30)) << "it shared the extent of what is selected";
}

TEST_F(KrPictureSceneTest, AidsAreShownAndLinksThatAreNotThereTold)
{
    KrStatedSystem system(Systems::twoBoxes());
    KrAids aids;
    EXPECT_TRUE(aids.add("axes"));
    EXPECT_FALSE(aids.add("axis"));
    aids.shapes = false;
    KrVisualizationParameters parameters;
    std::vector<std::string> warnings;
    aids.selected = {"robot/arn"};
    EXPECT_FALSE(aids.prepare(system, parameters, reason, warnings));
    EXPECT_EQ(reason, "there is no link \"robot/arn\"; did you mean robot?");
    aids.selected = {"robot/arm"};
    ASSERT_TRUE(aids.prepare(system, parameters, reason, warnings)) << reason;
    EXPECT_EQ(system.selectedShapes().size(), 1u);

    KrFraming framing({1.0, -1.0, 1.0}, {0.0, 0.0, 1.0}, 0.5, 1.0);
    framing.setShown(aids.shown(system));
    framing.add(system.manipulatorSystem(), system.systemState());
    parameters.setPovParameters(framing.pov());
    open(100, 100, 4);
    ASSERT_TRUE(scene.show(system, parameters, reason)) << reason;
    aids.show(scene.window());
    draw(system);
    const std::size_t axes = countLit(picture, {255, 255, 255});
    EXPECT_GT(axes, 50u);
    EXPECT_LT(axes, 3000u) << "the boxes are hidden";
}

TEST_F(KrPictureSceneTest, TilesShowEachItsSideAndTheBackgroundBetween)
{
    KrStatedSystem system(Systems::twoBoxes());
    KrMotion motion(system);
    std::vector<KrViewSide> sides(2);
    ASSERT_TRUE(KrViewSide::find("front", sides[0]) && KrViewSide::find("back", sides[1]));
    KrTiles tiles(201, 100, KrColor(0.0, 0.0, 1.0));
    ASSERT_TRUE(tiles.frame(sides, 0.5, {}, system.manipulatorSystem(), motion, reason)) << reason;
    EXPECT_EQ(tiles.tileWidth(), 100u);
    open(tiles.tileWidth(), tiles.tileHeight(), 4);
    KrVisualizationParameters parameters;
    ASSERT_TRUE(scene.show(system, parameters, reason)) << reason;
    ASSERT_TRUE(tiles.draw(scene, motion.state(0), picture, reason)) << reason;
    ASSERT_EQ(picture.width(), 201u);
    const std::array<double, 3> front = meanColour(picture, 50, 70, 3);
    const std::array<double, 3> back = meanColour(picture, 150, 70, 3);
    EXPECT_GT(front[1], 3.0 * front[0]) << "the arm comes towards the viewer";
    EXPECT_GT(back[1], 10.0);
    EXPECT_GT(meanColour(picture, 50, 30, 3)[0], 3.0 * meanColour(picture, 50, 30, 3)[1]) << "the base below it";
    for (unsigned int y : {0u, 50u, 99u}) {
        EXPECT_EQ(picture.data()[(y * 201 + 200) * 3 + 2], 255) << "no tile has the last column";
    }
    KrTiles none(1, 1, KrColor());
    EXPECT_FALSE(none.frame(sides, 0.5, {}, system.manipulatorSystem(), motion, reason));
    EXPECT_EQ(reason, "1 x 1 pixels are too few for 2 views");
}
