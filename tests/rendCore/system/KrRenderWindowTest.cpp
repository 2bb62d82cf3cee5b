#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/system/KrRenderWindow.h>

#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderShape.h>
#include <toolkit/math/KrAngle.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/Pictures.h>
#include <tests/support/Systems.h>

#include <gtest/gtest.h>

#include <osgViewer/Viewer>

#include <cmath>
#include <cstring>
#include <string>

namespace
{

using Kr::Angle::kPi;

class OpenRenderWindow : public KrRenderWindow
{
public:
    using KrRenderWindow::m_renderManipulators;

    bool capture(KrImage& image)
    {
        const bool ok = renderSceneAndCaptureImage(image, CaptureColor);
        makeCurrent();
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        return ok;
    }
};

/// From above: x to the right, y upwards, 10 m of width and height; the world's origin in the middle.
void lookFromAbove(KrRenderWindow& window)
{
    KrPovParameters pov;
    pov.setEyepoint(KrVector(0.0, 0.0, 5.0 / std::tan(kPi / 8.0)));
    pov.setUp(KrVector(0.0, 1.0, 0.0));
    window.setPovParameters(pov);
}

KrDataMap diffuseOnly(double red, double green, double blue)
{
    KrDataMap map;
    map.setReal("krDiffuseRed", red);
    map.setReal("krDiffuseGreen", green);
    map.setReal("krDiffuseBlue", blue);
    return map;
}

bool areEqual(const KrImage& a, const KrImage& b)
{
    return a.sizeInBytes() > 0 && a.sizeInBytes() == b.sizeInBytes() &&
           std::memcmp(a.data(), b.data(), a.sizeInBytes()) == 0;
}

/// Links under each other, too many for the stack of any thread.
KrIndividualManipulator endlessChain()
{
    KrIndividualManipulator robot("chain");
    KrManipulatorLink* link = &robot;
    for (int i = 0; i < 120000; ++i) {
        link = &link->addChildLink(KrManipulatorLink("link"));
    }
    return robot;
}

class KrRenderWindowTest : public testing::Test
{
protected:
    void SetUp() override
    {
        window.setWindowSize(100, 100);
        window.setBackgroundColor(KrColor(0.0, 0.0, 1.0));
        lookFromAbove(window);
        if (!window.init()) {
            GTEST_SKIP() << window.report().text();
        }
    }
    static bool isGreen(const KrImage& image, unsigned int x, unsigned int y)
    {
        const auto colour = meanColour(image, x, y, 1);
        return colour[1] > colour[0] + 60.0 && colour[1] > colour[2] + 60.0;
    }

    KrStatedSystem system{Systems::twoBoxes()};
    OpenRenderWindow window;
};

TEST(KrRenderWindowUnopened, IsEmptyAndKeepsASystemForLater)
{
    KrRenderWindow window;
    EXPECT_EQ(window.getName(), "KrRenderWindow");
    EXPECT_EQ(window.getGuideTrans(0, 0), nullptr);
    window.vvTrans().resize(2);
    window.vvTrans()[1].resize(1);
    EXPECT_EQ(window.getGuideTrans(0, 0), nullptr);
    EXPECT_EQ(window.getGuideTrans(1, 0), &window.vvTrans()[1][0]);
    const KrStatedSystem system(Systems::twoBoxes());
    EXPECT_TRUE(window.setStatedSystem(system));
    EXPECT_TRUE(window.systemReady());
    EXPECT_TRUE(system.isNewSystem()) << "nothing is built before the window opens";
    MessageRecorder messages;
    EXPECT_FALSE(window.loadScene(&system));
    EXPECT_EQ(messages.count(Kr::Print::Warning, "KrRenderWindow::loadScene - not initialized or bad KrSystemState\n"),
              1u);
    EXPECT_TRUE(window.selfTest());
}

TEST_F(KrRenderWindowTest, PosesTheSceneFromEachState)
{
    window.setStatedSystem(system);
    KrImage image;
    ASSERT_TRUE(window.capture(image));
    EXPECT_TRUE(isGreen(image, 50 + 15, 50)) << "the arm along +x";
    EXPECT_FALSE(isGreen(image, 50, 50 + 15));
    EXPECT_GT(meanColour(image, 50, 54, 0)[0], 60.0) << "the base, beside the arm";
    EXPECT_NEAR(meanColour(image, 5, 5, 2)[2], 255.0, 0.5);

    ASSERT_TRUE(system.setJointPosition(0, "arm_joint", kPi / 2.0));
    window.setState(system.systemState());
    ASSERT_TRUE(window.capture(image));
    EXPECT_FALSE(isGreen(image, 50 + 15, 50));
    EXPECT_TRUE(isGreen(image, 50, 50 + 15)) << "turned to +y, upwards in the picture";
}

TEST_F(KrRenderWindowTest, RefusesOnceWhatItsStackCannotHold)
{
    MessageRecorder messages;
    KrManipulatorSystem chain;
    chain.manipulators().push_back(endlessChain());
    KrStatedSystem deep(chain);
    window.setStatedSystem(deep);
    EXPECT_FALSE(window.updateScene());
    EXPECT_FALSE(window.updateScene());
    EXPECT_EQ(messages.count(), 1u) << messages.all();
    EXPECT_NE(messages.all().find("\"chain\" has links 120000 deep"), std::string::npos) << messages.all();

    deep.manipulatorSystem() = Systems::twoBoxes();
    deep.systemChanged();
    window.setState(deep.systemState());
    KrImage image;
    ASSERT_TRUE(window.capture(image));
    EXPECT_TRUE(isGreen(image, 50 + 15, 50));
    EXPECT_EQ(messages.count(), 1u);
}

TEST_F(KrRenderWindowTest, TellsOfImpossibleBodiesWhenTheyAreFirstShown)
{
    MessageRecorder messages;
    KrMassProperties& mass = system.manipulatorSystem().manipulators()[0].childLinks()[0].massProperties();
    ASSERT_TRUE(mass.setMass(1.0));
    ASSERT_TRUE(mass.setInertia({1.0, 1.0, 9.0, 0.0, 0.0, 0.0}));
    window.setStatedSystem(system);
    EXPECT_TRUE(window.renderScene(true));
    EXPECT_EQ(messages.count(), 0u) << messages.all();
    window.setDisplayMask(KrRenderTypes::MassProperties, true, true);
    EXPECT_TRUE(window.renderScene(true));
    EXPECT_EQ(messages.count(), 1u);
    EXPECT_NE(messages.all().find("link \"arm\""), std::string::npos) << messages.all();
    system.systemChanged();
    EXPECT_TRUE(window.renderScene(true));
    EXPECT_EQ(messages.count(), 1u) << "the same body, loaded anew";
}

TEST_F(KrRenderWindowTest, KeepsStatesAndSystemsAsStated)
{
    window.setState(system.systemState());
    ASSERT_NE(window.state(), nullptr);
    KrManipulatorSystem three = Systems::twoBoxes();
    three.manipulators().push_back(three.manipulators()[0]);
    three.manipulators().push_back(three.manipulators()[0]);
    const KrStatedSystem larger(three);
    window.setStatedSystem(larger);
    EXPECT_EQ(window.state()->positionStates().size(), 3u) << "the state given before is replaced";
    EXPECT_EQ(window.m_renderManipulators.size(), 3u);
    EXPECT_FALSE(larger.isNewSystem());
    window.setStatedSystem(system);
    ASSERT_EQ(window.m_renderManipulators.size(), 1u);
    EXPECT_EQ(window.m_renderManipulators[0]->getManipulatorIndex(), 0u);
    EXPECT_EQ(window.getNode()->getNumChildren(), 3u + 1u);
    window.deleteContents();
    EXPECT_FALSE(window.systemReady());
    EXPECT_EQ(window.statedSystem(), nullptr);
    MessageRecorder messages;
    EXPECT_TRUE(window.renderScene(true));
    EXPECT_EQ(messages.count(), 0u);
}

TEST_F(KrRenderWindowTest, ReloadsANewSystemAndCanStillSelectInIt)
{
    window.setStatedSystem(system);
    ASSERT_TRUE(window.renderScene(true));
    ASSERT_EQ(window.m_renderManipulators[0]->getMap().size(), 2u);
    system.systemChanged();
    ASSERT_TRUE(window.renderScene(true));
    EXPECT_EQ(window.m_renderManipulators[0]->getMap().size(), 2u) << "the same extents, built anew";

    MessageRecorder messages;
    ASSERT_TRUE(system.selectShape(KrShapeStateCacheKey(0, 0, 0)));
    KrImage image;
    ASSERT_TRUE(window.capture(image));
    EXPECT_EQ(messages.all(), "");
    EXPECT_TRUE(isGreen(image, 65, 50)) << "the selected arm keeps its colour";
    EXPECT_GT(meanColour(image, 50, 54, 0)[2], 100.0) << "the base is faded over the background";
}

TEST_F(KrRenderWindowTest, AShapeOfNothingButADiffuseColourKeepsItInASelection)
{
    KrManipulatorSystem plain = Systems::twoBoxes();
    plain.manipulators()[0].materialMap().set(std::string("red"), diffuseOnly(1.0, 0.1, 0.0));
    plain.manipulators()[0].materialMap().set(std::string("green"), diffuseOnly(0.0, 0.8, 0.1));
    system = KrStatedSystem(plain);
    window.setStatedSystem(system);
    KrImage before, image;
    ASSERT_TRUE(window.capture(before));
    ASSERT_TRUE(isGreen(before, 65, 50));
    const auto base = meanColour(before, 50, 54, 0);
    ASSERT_GT(base[0], base[1] + 60.0);

    ASSERT_TRUE(system.selectShape(KrShapeStateCacheKey(0, 0, 0)));
    ASSERT_TRUE(window.capture(image));
    EXPECT_TRUE(isGreen(image, 65, 50));
    const auto faded = meanColour(image, 50, 54, 0);
    EXPECT_LT(faded[0], 0.6 * base[0]);
    EXPECT_GT(faded[2], 100.0) << "over the blue background";
    ASSERT_TRUE(system.setTransparency(1.0));
    ASSERT_TRUE(window.capture(image));
    EXPECT_EQ(meanColour(image, 50, 54, 0), base);
    system.clearSelection();
    ASSERT_TRUE(window.capture(image));
    EXPECT_EQ(meanColour(image, 50, 54, 0), base);
    EXPECT_TRUE(isGreen(image, 65, 50));
}

TEST_F(KrRenderWindowTest, FadingNeedsNoLight)
{
    window.setStatedSystem(system);
    window.setViewerAttribute(KrSGWindow::Lighting, false);
    KrImage before, image;
    ASSERT_TRUE(window.capture(before));
    EXPECT_GT(meanColour(before, 50, 54, 0)[0], 250.0);
    ASSERT_TRUE(system.setTransparency(0.25));
    ASSERT_TRUE(system.selectShape(KrShapeStateCacheKey(0, 0, 0)));
    ASSERT_TRUE(window.capture(image));
    const auto faded = meanColour(image, 50, 54, 0);
    EXPECT_NEAR(faded[0] + faded[2], 255.0, 2.0);
    EXPECT_GT(faded[0], 60.0);
    EXPECT_LT(faded[0], 130.0) << "its upper side, and it may be its lower one";
    EXPECT_EQ(meanColour(image, 65, 50, 1), meanColour(before, 65, 50, 1)) << "what is selected";
    system.clearSelection();
    ASSERT_TRUE(window.capture(image));
    ASSERT_TRUE(window.capture(image));
    EXPECT_TRUE(areEqual(image, before));
}

TEST_F(KrRenderWindowTest, ASelectionStandsInEveryNewSceneOfItsSystem)
{
    window.setStatedSystem(system);
    KrImage before, image;
    ASSERT_TRUE(system.selectShape(KrShapeStateCacheKey(0, 0, 0)));
    ASSERT_TRUE(window.capture(before));
    EXPECT_LT(meanColour(before, 50, 54, 0)[0], 150.0);
    window.setStatedSystem(system);
    ASSERT_TRUE(window.capture(image));
    EXPECT_TRUE(areEqual(image, before));
    window.closeWindow();
    window.setStatedSystem(system);
    ASSERT_TRUE(window.capture(image));
    EXPECT_TRUE(areEqual(image, before));
}

TEST_F(KrRenderWindowTest, ALinkThatIsHiddenWhileTheSelectionEndsIsWholeWhenItIsShown)
{
    window.setStatedSystem(system);
    KrImage before, image;
    ASSERT_TRUE(window.capture(before));
    const osg::ref_ptr<KrRenderShape> arm = window.m_renderManipulators[0]->getMap().at({0, 0});
    osg::Node* const link = arm->getParent(0)->getParent(0);
    ASSERT_TRUE(system.selectShape(KrShapeStateCacheKey(0, KrShapeStateCacheKey::kBaseLink, 0)));
    ASSERT_TRUE(window.capture(image));
    EXPECT_FALSE(isGreen(image, 65, 50));
    const osg::Node::NodeMask mask = link->getNodeMask();
    link->setNodeMask(0);
    system.clearSelection();
    ASSERT_TRUE(window.capture(image));
    ASSERT_TRUE(window.capture(image));
    link->setNodeMask(mask);
    ASSERT_TRUE(window.capture(image));
    EXPECT_TRUE(isGreen(image, 65, 50));
}

TEST_F(KrRenderWindowTest, ParametersReachTheSceneAndAStateForAnotherSystemIsHarmless)
{
    KrVisualizableStatedSystem visualizable;
    visualizable.statedSystem() = system;
    visualizable.visualizationParameters().setPovParameters(window.getPovParameters());
    KrRenderParameters render;
    render.setBackgroundColor(KrColor(1.0, 1.0, 0.0));
    visualizable.visualizationParameters().setRenderParameters(render);
    EXPECT_TRUE(window.setVisualizableStatedSystem(visualizable));
    KrImage image;
    ASSERT_TRUE(window.capture(image));
    EXPECT_NEAR(meanColour(image, 5, 5, 2)[1], 255.0, 0.5);
    window.setState(KrManipulatorSystemState()); // no position states at all
    EXPECT_TRUE(window.renderScene(true));
}

TEST_F(KrRenderWindowTest, TwoWindowsDrawTheirOwnSystemsAndSurviveEachOther)
{
    window.setStatedSystem(system);
    KrManipulatorSystem other = Systems::twoBoxes();
    other.manipulators()[0].materialMap().set(std::string("green"), KrDataMap::material(KrColor(1.0, 0.0, 1.0)));
    const KrStatedSystem otherSystem(other);
    KrImage first, second, again;
    {
        OpenRenderWindow otherWindow;
        otherWindow.setWindowSize(80, 80);
        lookFromAbove(otherWindow);
        otherWindow.setStatedSystem(otherSystem);
        ASSERT_TRUE(window.capture(first));
        ASSERT_TRUE(otherWindow.capture(second));
        for (int i = 0; i < 3; ++i) {
            ASSERT_TRUE(window.capture(again));
            EXPECT_EQ(std::memcmp(first.data(), again.data(), first.sizeInBytes()), 0);
            ASSERT_TRUE(otherWindow.capture(again));
            EXPECT_EQ(std::memcmp(second.data(), again.data(), second.sizeInBytes()), 0);
        }
        EXPECT_GT(meanColour(second, 40 + 12, 40, 1)[2], meanColour(second, 52, 40, 1)[1] + 60.0);
    }
    ASSERT_TRUE(window.capture(again));
    EXPECT_EQ(std::memcmp(first.data(), again.data(), first.sizeInBytes()), 0);
}

// Open, load, draw, capture, close, again and again: the picture stays the same. What memory and descriptors they leave
// is krLifetimeBenchmark's to measure.
TEST(KrRenderWindowLifetime, ManyWindowsDrawTheSame)
{
    const KrStatedSystem system(Systems::twoBoxes());
    KrImage first, image;
    constexpr int kCycles = 30;
    for (int cycle = 0; cycle < kCycles; ++cycle) {
        OpenRenderWindow window;
        window.setWindowSize(64, 64);
        lookFromAbove(window);
        window.setStatedSystem(system);
        if (!window.init()) {
            GTEST_SKIP() << window.report().text();
        }
        ASSERT_TRUE(window.capture(image));
        ASSERT_EQ(window.getViewer()->getCamera()->getGraphicsContext()->getState()->getContextID(), 0u);
        if (cycle == 0) {
            first = image;
        }
        ASSERT_EQ(std::memcmp(first.data(), image.data(), first.sizeInBytes()), 0) << "cycle " << cycle;
        window.closeWindow();
    }
}

} // namespace
