// Draws plumes with their shaders and looks at the pictures.

// Before all others: theirs come without the functions.
#define GL_GLEXT_PROTOTYPES
#include <GL/gl.h>
#include <GL/glext.h>

#include <rendCore/plume/KrRenderGridPhysicalExtent.h>
#include <rendCore/plume/KrToolkitFolders.h>
#include <rendCore/system/KrRenderWindow.h>

#include <toolkit/context/KrExternalWindowImpl.h>
#include <toolkit/math/KrAngle.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/Pictures.h>
#include <tests/support/Systems.h>

#include <osg/Program>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <vector>

namespace
{

constexpr unsigned int kSize = 160;
using Kr::Angle::kPi;

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

/// A framebuffer object with colour and depth in the current context, bound to be drawn to.
GLuint makeFramebuffer(GLsizei samples)
{
    GLuint name = 0;
    glGenFramebuffers(1, &name);
    glBindFramebuffer(GL_FRAMEBUFFER, name);
    for (const bool isDepth : {false, true}) {
        GLuint buffer = 0;
        glGenRenderbuffers(1, &buffer);
        glBindRenderbuffer(GL_RENDERBUFFER, buffer);
        glRenderbufferStorageMultisample(GL_RENDERBUFFER, samples, isDepth ? GL_DEPTH_COMPONENT24 : GL_RGBA8, kSize,
                                         kSize);
        glFramebufferRenderbuffer(GL_FRAMEBUFFER, isDepth ? GL_DEPTH_ATTACHMENT : GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER,
                                  buffer);
    }
    return name;
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
            EXPECT_NEAR(colour[2], kept(level, 2.0), 0.015) << n << " cells, level " << level;
            EXPECT_NEAR(colour[0], 1.0 - kept(level, 2.0), 0.015) << n << " cells, level " << level;
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

TEST_F(KrRenderPlumeTest, WhatIsThinnerThanAStepIsMetByItsShareOfTheRays)
{
    // One layer of 16; a value above x is found within (1 - x) cells of its middle, on both sides.
    std::vector<double> values(16 * 16 * 16, 0.0);
    std::fill_n(values.begin() + 7 * 16 * 16, 16 * 16, 1.0);
    window.setViewerAttribute(KrSGWindow::Orthographic, true);
    // A step is half a cell: of the rays, (1 - x) / 0.25 meet what lies above x, at most all.
    for (const double x : {0.7, 0.85, 0.9}) {
        const auto grid = plume(16, values);
        grid->setInflection(KrVector(x, 0.5 * (x + 1.0), 1.0));
        show(grid);
        lookFromAbove();
        // Every second ray that meets it does so in its denser half, from level 1/2 on.
        const double share = std::min((1.0 - x) / 0.25, 1.0);
        EXPECT_GT(middle()[0], 0.5 * share * (1.0 - kept(0.5, 1.0 / 16.0))) << x;
        EXPECT_LT(middle()[0], share) << x;
    }
}

TEST_F(KrRenderPlumeTest, PassingOverEmptyBlocksChangesNoPicture)
{
    // A few cells of many, at the edges of blocks and elsewhere. The box's counts are no multiples of a block.
    constexpr unsigned int n = 22;
    std::vector<double> sparse(n * n * n, 0.0);
    for (std::size_t i = 5; i < sparse.size(); i += 211) {
        sparse[i] = 0.4;
    }
    sparse.back() = sparse.front() = 0.4;
    // The same with so little everywhere that no block is empty and nothing more is seen.
    std::vector<double> nowhereEmpty = sparse;
    for (double& value : nowhereEmpty) {
        value = std::max(value, 1.0e-5);
    }
    for (const KrVector& eye : {KrVector(3.1, 2.3, 3.9), KrVector(-0.3, -0.4, 0.2), KrVector(0.0, 0.0, -4.8)}) {
        KrImage pictures[2];
        for (const bool isFull : {false, true}) {
            show(plume(n, isFull ? nowhereEmpty : sparse));
            look(eye, KrVector(0.1, 0.0, 0.3), KrVector(0.0, 1.0, 0.0));
            ASSERT_TRUE(window.renderSceneAndCaptureImage(pictures[isFull ? 1 : 0], KrSGWindow::CaptureColor));
        }
        int difference = 0;
        for (std::size_t i = 0; i < pictures[0].sizeInBytes(); ++i) {
            difference = std::max(difference, std::abs(pictures[0].data()[i] - pictures[1].data()[i]));
        }
        EXPECT_LE(difference, 2);
        EXPECT_GT(countLit(pictures[0], {0, 0, 255}), std::size_t(500));
    }
}

TEST_F(KrRenderPlumeTest, AFieldThatNoTextureHoldsIsToldAtItsFirstDraw)
{
    GLint limit = 0;
    window.makeCurrent();
    glGetIntegerv(GL_MAX_3D_TEXTURE_SIZE, &limit);
    for (const bool isTooLong : {false, true}) {
        const auto length = static_cast<unsigned int>(limit) + (isTooLong ? 1u : 0u);
        const auto grid = boost::make_shared<KrGridPhysicalExtent>();
        ASSERT_TRUE(grid->setGrid(KrVector(-1.0, -1.0, -1.0), KrVector(1.0, 1.0, 1.0), 1, length, 2,
                                  std::vector<double>(std::size_t{2} * length, 0.5)));
        show(grid);
        lookFromAbove();
        MessageRecorder messages;
        middle();
        middle();
        EXPECT_EQ(messages.count(), isTooLong ? 1u : 0u) << messages.all();
    }
}

TEST_F(KrRenderPlumeTest, WhereDepthCannotBeCopiedAPlumeBehindAnotherStillHidesNothing)
{
    window.makeCurrent();
    const GLuint manySamples = makeFramebuffer(4);
    const GLuint resolved = makeFramebuffer(0);
    KrExternalWindowImpl::Callbacks callbacks;
    callbacks.makeCurrent = [this] { return window.makeCurrent(); };
    callbacks.defaultFramebuffer = [manySamples] { return manySamples; };
    KrRenderWindow guest;
    guest.setImpl(std::make_unique<KrExternalWindowImpl>(callbacks));
    guest.setWindowSize(kSize, kSize);
    guest.setBackgroundColor(KrColor(0.0, 0.0, 1.0));
    ASSERT_TRUE(guest.init());

    // The one at the back is drawn first; its walls are nearer than the far wall of the other.
    const auto thin = boost::make_shared<KrGridPhysicalExtent>();
    ASSERT_TRUE(thin->setGrid(KrVector(-0.4, -0.4, -0.9), KrVector(0.4, 0.4, -0.5), 1, 1, 1, {0.01}));
    show(evenPlume(4, 0.05), thin);
    lookFromAbove();
    guest.setStatedSystem(system);
    guest.setPovParameters(window.getPovParameters());
    guest.renderScene(true);

    window.makeCurrent();
    glBindFramebuffer(GL_READ_FRAMEBUFFER, manySamples);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, resolved);
    glBlitFramebuffer(0, 0, kSize, kSize, 0, 0, kSize, kSize, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glBindFramebuffer(GL_FRAMEBUFFER, resolved);
    std::array<unsigned char, 3> pixel = {};
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(kSize / 2, kSize / 2, 1, 1, GL_RGB, GL_UNSIGNED_BYTE, pixel.data());
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    EXPECT_NEAR(pixel[2] / 255.0, kept(0.05, 2.0), 0.05);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
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

    // Placed: a quarter turn from x to y, then half a metre, 20 pixels, to the left.
    const boost::shared_ptr<KrGridPhysicalExtent> placed = plume(4, values);
    KrCoordinateSystemTransformation placement;
    placement.setRotation({0.0, -1.0, 0.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0});
    placement.setTranslation(KrVector(-0.5, 0.0, 0.0));
    placed->setPlacement(placement);
    show(placed);
    lookFromAbove();
    EXPECT_GT(colourAt(half + cell - 20, half + cell, 4)[0], 0.99);
    EXPECT_GT(colourAt(half + cell - 20, half - cell, 4)[2], 0.99);
    EXPECT_GT(colourAt(half + cell + 4, half - cell, 4)[2], 0.99);
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

TEST_F(KrRenderPlumeTest, ValuesBeyondTheTexturesAreDrawnAsInfiniteOnes)
{
    MessageRecorder messages; // says so, too
    show(evenPlume(8, 70000.0));
    lookFromAbove();
    EXPECT_GT(middle()[0], 0.99);
    // Even where the transfer function ends beyond them.
    const auto steep = evenPlume(8, 1e6);
    steep->setInflection(KrVector(0.0, 1e5, 2e5));
    show(steep);
    EXPECT_GT(middle()[0], 0.99);
    // Below nothing on the left, beyond everything on the right; looked at a block away from where they meet.
    std::vector<double> halves(16 * 16 * 16);
    for (std::size_t i = 0; i < halves.size(); ++i) {
        halves[i] = i % 16 < 8 ? -70000.0 : 70000.0;
    }
    show(plume(16, halves));
    EXPECT_LT(colourAt(kSize / 2 - 32, kSize / 2, 3)[0], 0.01);
    EXPECT_GT(colourAt(kSize / 2 + 32, kSize / 2, 3)[0], 0.99);
    // Values like any others beside ones that are infinitely small.
    for (std::size_t i = 0; i < halves.size(); ++i) {
        halves[i] = i % 16 < 8 ? -70000.0 : 0.05;
    }
    show(plume(16, halves));
    EXPECT_LT(colourAt(kSize / 2 - 20, kSize / 2, 5)[0], 0.01);
    EXPECT_NEAR(colourAt(kSize / 2 + 20, kSize / 2, 5)[0], 1.0 - kept(0.05, 2.0), 0.03);
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

TEST_F(KrRenderPlumeTest, RaysEndAtTheSolidInFrontOfThem)
{
    struct Case
    {
        const char* name;
        KrVector eye;
        double top;    ///< of a green slab, z
        double length; ///< of the way through the plume to it
    };
    const double far = 2.0 / std::tan(kPi / 8.0);
    const Case cases[] = {
        {"behind the box", KrVector(0.0, 0.0, far), -1.5, 2.0},
        {"near the far face", KrVector(0.0, 0.0, far), -0.8, 1.8},
        {"in the middle", KrVector(0.0, 0.0, far), 0.1, 0.9},
        {"in front of the box", KrVector(0.0, 0.0, far), 1.5, 0.0},
        {"with the eye inside", KrVector(0.0, 0.0, 0.5), -0.4, 0.9},
    };
    for (const bool parallel : {false, true}) {
        window.setViewerAttribute(KrSGWindow::Orthographic, parallel);
        for (const Case& each : cases) {
            if (parallel && each.eye.z() < 1.0) {
                continue; // parallel rays have no eye to begin at
            }
            const auto slab = Systems::box(KrVector(9.0, 9.0, 0.2), KrVector(0.0, 0.0, each.top - 0.1), "green");
            look(each.eye, KrVector(0.0, 0.0, -1.0), KrVector(0.0, 1.0, 0.0));
            // So thin that it does not show; the same solids are drawn.
            show(evenPlume(8, 1.0e-6), slab);
            const double green = middle()[1];
            ASSERT_GT(green, 0.3);
            show(evenPlume(8, 0.05), slab);
            const std::array<double, 3> colour = colourAt(kSize / 2, kSize / 2, 2);
            // Colours have 8 bits, the light of the slab changes little over 5 x 5 pixels.
            EXPECT_NEAR(colour[1], green * kept(0.05, each.length), 0.015) << each.name << ", parallel " << parallel;
            EXPECT_NEAR(colour[0], 1.0 - kept(0.05, each.length), 0.015) << each.name << ", parallel " << parallel;
        }
    }
}

TEST_F(KrRenderPlumeTest, ASolidHalfInsideHidesAndIsHiddenPartByPart)
{
    // A bar that stands out of the plume towards the eye on the left and ends deep inside it on the right.
    KrIndividualManipulator robot("robot");
    robot.materialMap().set(std::string("green"), KrDataMap::material(KrColor(0.0, 1.0, 0.0)));
    // The plume is the first to be drawn if nothing puts it behind the solids.
    robot.addShape(boost::shared_ptr<KrBasePhysicalExtent>(evenPlume(8, 0.06)));
    robot.addShape(Systems::box(KrVector(0.8, 1.2, 2.0), KrVector(-0.5, 0.0, 0.5), "green"));
    robot.addShape(Systems::box(KrVector(0.8, 1.2, 0.2), KrVector(0.5, 0.0, -0.3), "green"));
    KrManipulatorSystem manipulators;
    manipulators.manipulators().push_back(robot);
    system = KrStatedSystem(manipulators);
    window.setStatedSystem(system);
    lookFromAbove();
    const unsigned int offset = kSize / 8;
    const std::array<double, 3> outside = colourAt(kSize / 2 - offset, kSize / 2, 4);
    EXPECT_NEAR(outside[0], 0.0, 0.01) << "nothing of the plume is in front of what stands out of it";
    EXPECT_GT(outside[1], 0.3);
    const std::array<double, 3> inside = colourAt(kSize / 2 + offset, kSize / 2, 4);
    EXPECT_NEAR(inside[0], 1.0 - kept(0.06, 1.2), 0.03);
    EXPECT_NEAR(inside[2], 0.0, 0.01) << "the background is hidden";
}

TEST_F(KrRenderPlumeTest, ViewsThatCoverAPartOfTheWindowSeeTheirOwnDepth)
{
    show(evenPlume(8, 0.05), Systems::box(KrVector(9.0, 9.0, 0.2), KrVector(0.0, 0.0, 0.0), "green"));
    lookFromAbove();
    middle();
    osg::Viewport& viewport = *window.getViewer()->getCamera()->getViewport();
    for (const unsigned int size : {kSize / 2, kSize / 4, kSize}) {
        const unsigned int corner = kSize - size;
        viewport.setViewport(corner, corner, size, size);
        KrImage image;
        ASSERT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
        ASSERT_EQ(image.width(), size);
        EXPECT_NEAR(meanColour(image, size / 2, size / 2, 2)[0] / 255.0, 1.0 - kept(0.05, 0.9), 0.015) << size;
    }
}

TEST_F(KrRenderPlumeTest, APlumeThatIsNotSelectedFadesWithTheRest)
{
    show(evenPlume(8, 0.1), Systems::box(KrVector(0.5, 0.5, 0.5), KrVector(-1.6, 0.0, 0.0), "green"));
    lookFromAbove();
    const double before = middle()[0];
    EXPECT_GT(before, 0.9);
    ASSERT_TRUE(system.setTransparency(0.25));
    ASSERT_TRUE(system.selectShape(KrShapeStateCacheKey(0, KrShapeStateCacheKey::kBaseLink, 1)));
    EXPECT_NEAR(middle()[0], 0.25 * before, 0.01);
    system.clearSelection();
    EXPECT_NEAR(middle()[0], before, 0.001);
}

TEST_F(KrRenderPlumeTest, WhatIsDrawnAfterAPlumeLooksAsWithoutIt)
{
    // A translucent shape nearer to the eye comes after the plume, in the same bin.
    KrIndividualManipulator robot("robot");
    robot.materialMap().set(std::string("glass"), KrDataMap::material(KrColor(0.0, 1.0, 0.0, 0.5)));
    robot.addShape(Systems::box(KrVector(0.5, 0.5, 0.1), KrVector(-1.3, 0.0, 1.5), "glass"));
    std::vector<std::array<double, 3>> colours;
    for (const bool withPlume : {false, true}) {
        if (withPlume) {
            robot.addShape(boost::shared_ptr<KrBasePhysicalExtent>(evenPlume(8, 0.1)));
        }
        KrManipulatorSystem manipulators;
        manipulators.manipulators().push_back(robot);
        system = KrStatedSystem(manipulators);
        window.setStatedSystem(system);
        lookFromAbove();
        for (int frame = 0; frame < 2; ++frame) {
            // Beside the plume, as the eye sees it.
            colours.push_back(colourAt(kSize / 2 - 60, kSize / 2, 2));
        }
    }
    EXPECT_GT(colours[0][1], 0.1);
    EXPECT_EQ(colours[0], colours[2]);
    EXPECT_EQ(colours[0], colours[3]);
}

TEST_F(KrRenderPlumeTest, BothShadersAreFoundWithAndWithoutAnEnvironmentVariable)
{
    EXPECT_TRUE(KrToolkitFolders::setDefault());
    EXPECT_STREQ(std::getenv("KR_TOOLKITS"), KR_TEST_TOOLKITS) << "what is set stays";
    unsetenv("KR_TOOLKITS");
    ASSERT_TRUE(KrToolkitFolders::setDefault());
    const osg::ref_ptr<osg::Geode> geode = KrRenderGridPhysicalExtent::init(evenPlume(2, 1.0).get());
    ASSERT_TRUE(geode);
    const auto* program =
        dynamic_cast<const osg::Program*>(geode->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM));
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(program->getNumShaders(), 2u);
}
