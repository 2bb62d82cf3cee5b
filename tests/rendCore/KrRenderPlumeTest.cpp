// Draws plumes with their shaders and looks at the pictures.

#include <rendCore/KrRenderGridPhysicalExtent.h>
#include <rendCore/KrRenderWindow.h>

#include <tests/support/Pictures.h>
#include <tests/support/Systems.h>

#include <osg/BlendFunc>
#include <osg/Program>
#include <osg/Uniform>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

namespace
{

constexpr unsigned int kSize = 160;
constexpr double kPi = 3.14159265358979324;

/// The part of the light from behind that a ray keeps after `length` m of one level in a box of 2 m.
double kept(double level, double length)
{
    return std::exp(-100.0 * level * level * (3.0 - 2.0 * level) * length / 2.0);
}

/// A box of 2 m about the origin with n x n x n cells, and red from its lowest value to its highest.
boost::shared_ptr<KrGridPhysicalExtent> plume(unsigned int n, const std::vector<double>& values)
{
    const auto grid = boost::make_shared<KrGridPhysicalExtent>();
    EXPECT_TRUE(grid->setGrid(KrVector(-1.0, -1.0, -1.0), KrVector(1.0, 1.0, 1.0), n, n, n, values));
    KrXmlVectorVector red;
    red.push_back(KrVector(1.0, 0.0, 0.0));
    grid->setLookupTable(red);
    return grid;
}

boost::shared_ptr<KrGridPhysicalExtent> evenPlume(unsigned int n, double value)
{
    return plume(n, std::vector<double>(std::size_t{n} * n * n, value));
}

/// A window on a blue background that shows a plume and, it may be, a green box.
class KrRenderPlumeTest : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("KR_TOOLKITS", KR_TEST_TOOLKITS, 1);
        window.setWindowSize(kSize, kSize);
        window.setBackgroundColor(KrColor(0.0, 0.0, 1.0));
        if (!window.init()) {
            GTEST_SKIP() << window.report().text();
        }
    }

    void show(const boost::shared_ptr<KrGridPhysicalExtent>& grid,
              const boost::shared_ptr<KrBasePhysicalExtent>& solid = nullptr)
    {
        KrIndividualManipulator robot("robot");
        robot.materialMap().set(std::string("green"), KrDataMap::material(KrColor(0.0, 1.0, 0.0)));
        robot.addShape(boost::shared_ptr<KrBasePhysicalExtent>(grid));
        if (solid) {
            robot.addShape(solid);
        }
        KrManipulatorSystem manipulators;
        manipulators.manipulators().push_back(robot);
        system = KrStatedSystem(manipulators);
        window.setStatedSystem(system);
    }

    void look(const KrVector& eye, const KrVector& centre, const KrVector& up)
    {
        KrPovParameters pov;
        pov.setEyepoint(eye);
        pov.setCenterOfInterest(centre);
        pov.setUp(up);
        window.setPovParameters(pov);
    }
    /// x to the right, y upwards, 4 m of height at z = 0.
    void lookFromAbove() { look(KrVector(0.0, 0.0, 2.0 / std::tan(kPi / 8.0)), KrVector(), KrVector(0.0, 1.0, 0.0)); }

    /// Mean colour about a pixel counted from the lower left corner, in [0, 1].
    std::array<double, 3> colourAt(unsigned int x, unsigned int y, unsigned int r = 10)
    {
        KrImage image;
        EXPECT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
        window.makeCurrent();
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        if (image.width() != kSize || image.height() != kSize) {
            return {};
        }
        std::array<double, 3> colour = meanColour(image, x, y, r);
        for (double& channel : colour) {
            channel /= 255.0;
        }
        return colour;
    }
    std::array<double, 3> middle() { return colourAt(kSize / 2, kSize / 2); }

    KrRenderWindow window;
    KrStatedSystem system;
};

} // namespace

TEST_F(KrRenderPlumeTest, AnEvenFieldLetsThroughWhatItsDepthLeavesWhateverItsCells)
{
    for (const unsigned int n : {1u, 3u, 32u}) {
        for (const double level : {0.03, 0.05, 0.1}) {
            show(evenPlume(n, level));
            lookFromAbove();
            const std::array<double, 3> colour = middle();
            // 21 x 21 pixels show the plume or the background in proportion, to a percent or two.
            EXPECT_NEAR(colour[2], kept(level, 2.0), 0.03) << n << " cells, level " << level;
            EXPECT_NEAR(colour[0], 1.0 - kept(level, 2.0), 0.03) << n << " cells, level " << level;
            EXPECT_EQ(colour[1], 0.0);
        }
    }
    EXPECT_EQ(colourAt(kSize / 2, 8, 4)[2], 1.0) << "beside the box nothing is drawn";
}

TEST_F(KrRenderPlumeTest, FromInsideOnlyTheWayAheadCounts)
{
    show(evenPlume(16, 0.05));
    look(KrVector(0.0, 0.0, 0.5), KrVector(0.0, 0.0, -1.0), KrVector(0.0, 1.0, 0.0));
    EXPECT_NEAR(middle()[2], kept(0.05, 1.5), 0.03);
    look(KrVector(0.0, 0.0, 0.5), KrVector(0.0, 0.0, 2.0), KrVector(0.0, 1.0, 0.0));
    EXPECT_NEAR(middle()[2], kept(0.05, 0.5), 0.03);
}

TEST_F(KrRenderPlumeTest, ParallelRaysCrossTheWholeBox)
{
    show(evenPlume(16, 0.05));
    look(KrVector(-0.5, -0.5, 3.0), KrVector(-0.5, -0.5, 0.0), KrVector(0.0, 1.0, 0.0));
    window.setViewerAttribute(KrSGWindow::Orthographic, true);
    EXPECT_NEAR(middle()[2], kept(0.05, 2.0), 0.03);
}

TEST_F(KrRenderPlumeTest, CellsStandWhereTheirNumbersSay)
{
    // At the greatest x, the least y and the middle of z; so dense that it is opaque.
    std::vector<double> values(4 * 4 * 4, 0.0);
    values[3 + 4 * (0 + 4 * 1)] = 1.0;
    values[3 + 4 * (0 + 4 * 2)] = 1.0;
    show(plume(4, values));
    lookFromAbove();
    const unsigned int cell = kSize * 3 / 16; // from the middle of the window to the middle of the outermost cell
    const unsigned int half = kSize / 2;
    EXPECT_GT(colourAt(half + cell, half + cell, 4)[2], 0.99);
    EXPECT_GT(colourAt(half - cell, half - cell, 4)[2], 0.99);
    EXPECT_GT(colourAt(half - cell, half + cell, 4)[2], 0.99);
    EXPECT_GT(colourAt(half + cell, half - cell, 4)[0], 0.99);
}

TEST_F(KrRenderPlumeTest, LevelsChooseTheirOwnColourOfATableOfAnySize)
{
    // Five colours, none of which a resampled table would keep apart from its neighbours.
    KrXmlVectorVector colors;
    for (const double green : {0.0, 1.0, 0.0, 1.0, 0.0}) {
        colors.push_back(KrVector(1.0 - green, green, 0.0));
    }
    for (const double level : {0.22, 0.3, 0.38, 0.42, 0.5, 0.58}) {
        const auto grid = evenPlume(2, level);
        grid->setLookupTable(colors);
        show(grid);
        lookFromAbove();
        const bool isGreen = level > 0.2 && level < 0.4;
        EXPECT_NEAR(middle()[1], isGreen ? 1.0 : 0.0, 0.02) << level;
        EXPECT_NEAR(middle()[0], isGreen ? 0.0 : 1.0, 0.02) << level;
    }
}

TEST_F(KrRenderPlumeTest, InflectionSetsWhereTheFieldBeginsAndHowDenseItIs)
{
    const auto grid = evenPlume(8, 0.5);
    grid->setInflection(KrVector(0.5, 0.6, 0.7));
    show(grid);
    lookFromAbove();
    EXPECT_EQ(middle()[0], 0.0);
    grid->setInflection(KrVector(0.4, 1.4, 2.4)); // 0.1 above the beginning, of 2: level 0.05
    show(grid);
    lookFromAbove();
    EXPECT_NEAR(middle()[2], kept(0.05, 2.0), 0.03);
}

TEST_F(KrRenderPlumeTest, ASolidInFrontHidesThePlumeAndOneBehindShowsThroughIt)
{
    show(evenPlume(8, 0.05), Systems::box(KrVector(4.0, 4.0, 0.2), KrVector(0.0, 0.0, -2.0), "green"));
    lookFromAbove();
    const std::array<double, 3> behind = middle();
    EXPECT_NEAR(behind[0], 1.0 - kept(0.05, 2.0), 0.1);
    EXPECT_GT(behind[1], 0.2);

    show(evenPlume(8, 0.05), Systems::box(KrVector(1.0, 1.0, 0.2), KrVector(0.0, 0.0, 1.5), "green"));
    lookFromAbove();
    EXPECT_LT(middle()[0], 0.3);
    EXPECT_LT(middle()[2], 0.3);
}

TEST_F(KrRenderPlumeTest, WhereAnApplicationBlendsEveryPixelCarriesItsOpacity)
{
    show(evenPlume(8, 0.05));
    lookFromAbove();
    middle();
    osg::StateSet* state = window.getNode()->getOrCreateStateSet();
    state->setAttributeAndModes(new osg::BlendFunc);
    state->addUniform(new osg::Uniform("plumeBlended", true));
    // One pixel says it all now: no proportion of pixels.
    const std::array<double, 3> colour = colourAt(kSize / 2, kSize / 2, 0);
    EXPECT_NEAR(colour[2], kept(0.05, 2.0), 0.03);
    EXPECT_NEAR(colour[0], 1.0 - kept(0.05, 2.0), 0.03);
}

TEST_F(KrRenderPlumeTest, BothShadersAreLoaded)
{
    const osg::ref_ptr<osg::Geode> geode = KrRenderGridPhysicalExtent::init(evenPlume(2, 1.0).get());
    ASSERT_TRUE(geode);
    const auto* program =
        dynamic_cast<const osg::Program*>(geode->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM));
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(program->getNumShaders(), 2u);
}
