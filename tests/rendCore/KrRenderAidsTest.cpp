// What the aids cost while they are off, and what they leave behind.

#include <rendCore/KrRenderTypes.h>
#include <rendCore/KrRenderWindow.h>

#include <tests/rendCore/ShapeTestMesh.h>
#include <tests/support/Pictures.h>
#include <tests/support/Systems.h>

#include <osg/NodeVisitor>
#include <osgUtil/Statistics>
#include <osgViewer/Renderer>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace
{

const KrShapeStateCacheKey kArm(0, 0, 0);

class KrRenderAidsTest : public testing::Test
{
protected:
    KrRenderAidsTest()
    {
        KrIndividualManipulator& robot = system.manipulatorSystem().manipulators()[0];
        robot.massProperties().setMass(3.0);
        robot.massProperties().setInertia({0.5, 0.5, 0.5, 0.0, 0.0, 0.0});
    }
    void SetUp() override
    {
        window.setWindowSize(100, 100);
        KrPovParameters pov;
        pov.setEyepoint(KrVector(4.0, -6.0, 5.0));
        window.setPovParameters(pov);
        if (!window.init()) {
            GTEST_SKIP() << window.report().text();
        }
        window.setStatedSystem(system);
    }

    std::vector<unsigned char> picture()
    {
        KrImage image;
        EXPECT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
        window.makeCurrent();
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        return {image.data(), image.data() + image.sizeInBytes()};
    }
    /// Of the frame that was drawn last: draw calls, changes of state (leaves of the state tree), render bins.
    std::vector<unsigned int> work()
    {
        picture();
        auto* const renderer = dynamic_cast<osgViewer::Renderer*>(window.getViewer()->getCamera()->getRenderer());
        osgUtil::Statistics frame;
        for (unsigned int i = 0; renderer != nullptr && i < 2; ++i) { // it draws with two scene views in turn
            osgUtil::Statistics one;
            if (renderer->getSceneView(i)->getStats(one) && one.numDrawables > frame.numDrawables) {
                frame = one;
            }
        }
        return {static_cast<unsigned int>(frame.numDrawables), static_cast<unsigned int>(frame.numStateGraphs),
                static_cast<unsigned int>(frame.nbins)};
    }

    KrStatedSystem system{Systems::twoBoxes()};
    KrRenderWindow window;
};

/// Takes every aid out of a scene.
class AidRemover : public osg::NodeVisitor
{
public:
    AidRemover()
        : osg::NodeVisitor(osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
    {
        setNodeMaskOverride(~0u);
    }
    using osg::NodeVisitor::apply;
    void apply(osg::Group& node) override
    {
        const unsigned int aids =
            KrRenderTypes::LinkAxes | KrRenderTypes::BoundingVolumes | KrRenderTypes::MassProperties;
        for (unsigned int i = node.getNumChildren(); i-- > 0;) {
            const unsigned int mask = node.getChild(i)->getNodeMask();
            if ((mask & aids) != 0 && (mask & ~aids) == 0) {
                node.removeChildren(i, 1);
                ++numRemoved;
            }
        }
        traverse(node);
    }
    unsigned int numRemoved = 0;
};

} // namespace

TEST_F(KrRenderAidsTest, AidsThatAreOffCostAFrameNothing)
{
    const std::vector<unsigned int> off = work();
    EXPECT_GE(off[0], 2u);
    window.setDisplayMask(KrRenderTypes::LinkAxes | KrRenderTypes::BoundingVolumes | KrRenderTypes::MassProperties,
                          true, false);
    EXPECT_GT(work()[0], off[0] + 4) << "two volumes, an ellipsoid, axes";
    window.setDisplayMask(KrRenderTypes::LinkAxes | KrRenderTypes::BoundingVolumes | KrRenderTypes::MassProperties,
                          false, false);
    EXPECT_EQ(work(), off);

    AidRemover remover;
    window.getNode()->accept(remover);
    EXPECT_GE(remover.numRemoved, 5u);
    EXPECT_EQ(work(), off) << "the same scene without them";
}

TEST_F(KrRenderAidsTest, RestoringASelectionGivesTheSamePicture)
{
    system.setTransparency(0.2);
    const std::vector<unsigned char> before = picture();
    ASSERT_TRUE(system.selectShape(kArm));
    EXPECT_NE(picture(), before) << "the base is faded";
    system.clearSelection();
    EXPECT_EQ(picture(), before);
}

TEST_F(KrRenderAidsTest, ASelectedLinkWithoutTextureCoordinatesIsNotTextured)
{
    // A mesh that glows red, with a blue picture that it has no coordinates for, faces the eye.
    const std::string path = testing::TempDir() + std::to_string(getpid()) + "blue.png";
    KrImage blue;
    blue.allocate(3, 0, 2, 2);
    for (std::size_t i = 2; i < blue.sizeInBytes(); i += 3) {
        blue.data()[i] = 255;
    }
    ASSERT_TRUE(blue.writeFile(path, KrImage::TopRowFirst));
    KrDataMap material;
    material.setReal("krEmissionRed", 1.0);
    material.setString("krTextureFilename", path);
    const auto mesh = boost::make_shared<KrTriPhysicalExtent>();
    ASSERT_TRUE(ShapeTestMesh::setTriangles(*mesh, {"a"}));
    mesh->setMaterial("a", material);
    KrIndividualManipulator robot("robot");
    robot.addShape(mesh);
    KrManipulatorSystem robots;
    robots.manipulators().push_back(robot);
    KrStatedSystem textured(robots);
    window.setStatedSystem(textured);
    KrPovParameters pov;
    pov.setEyepoint(KrVector(0.3, 0.3, 1.0));
    pov.setCenterOfInterest(KrVector(0.3, 0.3, 0.0));
    pov.setUp(KrVector(0.0, 1.0, 0.0));
    window.setPovParameters(pov);
    const auto middle = [this] {
        const std::vector<unsigned char> pixels = picture();
        const std::size_t first = 3 * (50 * 100 + 50);
        return std::vector<unsigned char>(pixels.begin() + first, pixels.begin() + first + 3);
    };
    const std::vector<unsigned char> before = middle();
    EXPECT_GT(before[0], 200);
    EXPECT_LT(before[2], 100);
    ASSERT_TRUE(textured.selectShape(KrShapeStateCacheKey(0, KrShapeStateCacheKey::kBaseLink, 0)));
    EXPECT_EQ(middle(), before);
    std::remove(path.c_str());
}

TEST_F(KrRenderAidsTest, ASystemLoadedAnewWhileSomethingIsSelectedCanBeRestored)
{
    system.setTransparency(0.2);
    const std::vector<unsigned char> before = picture();
    ASSERT_TRUE(system.selectShape(kArm));
    const std::vector<unsigned char> faded = picture();
    window.setStatedSystem(system);
    system.setSelectionChanged(true);
    EXPECT_EQ(picture(), faded);
    window.loadScene(&system); // wrappers go with the old scene
    system.clearSelection();
    EXPECT_EQ(picture(), before);
    ASSERT_TRUE(system.selectShape(kArm));
    EXPECT_EQ(picture(), faded);
}
