// What the aids cost while they are off, and what they leave behind.

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/system/KrRenderWindow.h>

#include <tests/support/Pictures.h>
#include <tests/support/ShapeTestMesh.h>
#include <tests/support/Systems.h>

#include <osg/Geometry>
#include <osg/NodeVisitor>
#include <osg/TriangleFunctor>
#include <osgUtil/Statistics>
#include <osgViewer/Renderer>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <array>
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

    /// Of a frame that is drawn now: 9 pixels about a point of the world.
    std::array<double, 3> colourAt(const osg::Vec3d& point)
    {
        KrImage image;
        EXPECT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
        const osg::Camera* const camera = window.getViewer()->getCamera();
        const osg::Vec3d pixel = point * camera->getViewMatrix() * camera->getProjectionMatrix() *
                                 camera->getViewport()->computeWindowMatrix();
        return meanColour(image, static_cast<unsigned int>(pixel.x()), static_cast<unsigned int>(pixel.y()), 1);
    }
    /// Nodes that are shown and hidden as collision shapes are.
    unsigned int numCollisionNodes()
    {
        NodeCounter counter;
        window.getNode()->accept(counter);
        return counter.numFound;
    }

    struct NodeCounter : osg::NodeVisitor
    {
        NodeCounter()
            : osg::NodeVisitor(osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
        {
            setNodeMaskOverride(~0u);
        }
        using osg::NodeVisitor::apply;
        void apply(osg::Node& node) override
        {
            numFound += node.getNodeMask() == KrRenderTypes::CollisionShapes ? 1 : 0;
            traverse(node);
        }
        unsigned int numFound = 0;
    };

    KrStatedSystem system{Systems::twoBoxes()};
    KrRenderWindow window;
};

/// The geometries below nodes of one mask, hidden ones too, and what they are drawn from.
class AidGeometries : public osg::NodeVisitor
{
public:
    explicit AidGeometries(unsigned int mask)
        : osg::NodeVisitor(osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
        , m_mask(mask)
    {
        setNodeMaskOverride(~0u);
    }
    using osg::NodeVisitor::apply;
    void apply(osg::Node& node) override
    {
        const bool wasInside = m_isInside;
        m_isInside = m_isInside || node.getNodeMask() == m_mask;
        traverse(node);
        m_isInside = wasInside;
    }
    void apply(osg::Geometry& geometry) override
    {
        if (m_isInside) {
            found.push_back(&geometry);
            EXPECT_NE(geometry.getStateSet(), nullptr);
        }
    }
    unsigned int numFilled() const
    {
        return static_cast<unsigned int>(std::count_if(found.begin(), found.end(), [](const osg::Geometry* geometry) {
            return geometry->getVertexArray()->getNumElements() > 0 &&
                   geometry->getNormalArray()->getNumElements() == geometry->getVertexArray()->getNumElements() &&
                   geometry->getPrimitiveSet(0)->getNumIndices() > 0;
        }));
    }
    std::vector<osg::Geometry*> found;

private:
    unsigned int m_mask;
    bool m_isInside = false;
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
    EXPECT_GE(off[0], 1u);
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

TEST_F(KrRenderAidsTest, CollisionShapesVeilWhatIsSeenAndMoveWithTheirLink)
{
    // The arm collides as a box in the planes of its first half and as a ball beyond its end, the base not at all; a
    // post that cannot be seen stands beside them.
    KrIndividualManipulator& robot = system.manipulatorSystem().manipulators()[0];
    robot.childLinks()[0].addCollisionShape(Systems::box(KrVector(1.0, 0.5, 0.5), KrVector(0.5, 0.0, 0.0)));
    KrCoordinateSystemTransformation beyond;
    beyond.setTranslation(KrVector(3.0, 0.0, 0.0));
    const auto ball = boost::make_shared<KrSpherePhysicalExtent>(0.5);
    ball->setPlacement(beyond);
    robot.childLinks()[0].addCollisionShape(ball);
    KrManipulatorLink post("post");
    post.addCollisionShape(Systems::box(KrVector(0.5, 0.5, 1.0), KrVector(-2.0, -2.0, 0.5)));
    robot.addChildLink(post);
    system.systemChanged();
    window.setStatedSystem(system);
    KrPovParameters pov;
    pov.setEyepoint(KrVector(0.0, 0.0, 18.0));
    pov.setUp(KrVector(0.0, 1.0, 0.0));
    window.setPovParameters(pov);

    window.setDirectDrawing(false); // the graph's leaves are counted below
    const std::vector<unsigned int> off = work();
    const std::vector<unsigned char> before = picture();
    const osg::Vec3d start(0.8, 0.0, 1.25), end(1.7, 0.0, 1.25), ballTop(3.0, 0.0, 1.5), postTop(-2.0, -2.0, 1.0);
    const std::array<double, 3> background = colourAt(ballTop);
    const std::array<double, 3> bare = colourAt(start);
    const std::array<double, 3> bareEnd = colourAt(end);
    EXPECT_EQ(colourAt(postTop), background);
    EXPECT_EQ(numCollisionNodes(), 0u) << "nobody has looked yet";

    // The hull of a box lies in its planes, which face the eye.
    window.setDisplayMask(KrRenderTypes::BoundingVolumes, true, false);
    EXPECT_GT(colourAt(end)[0], bareEnd[0] + 15.0) << "orange over green";
    window.setDisplayMask(KrRenderTypes::BoundingVolumes, false, false);

    window.setDisplayMask(KrRenderTypes::CollisionShapes, true, false);
    EXPECT_EQ(numCollisionNodes(), 2u) << "a group for each of two links";
    EXPECT_EQ(work()[0], off[0] + 3);
    const std::array<double, 3> veiled = colourAt(start);
    EXPECT_GT(veiled[2], bare[2] + 10.0) << "bluish green over green, nowhere hidden by the plane below";
    EXPECT_GT(veiled[1], 1.5 * veiled[2]) << "the arm is green yet";
    EXPECT_EQ(colourAt(end), bareEnd);
    EXPECT_LT(colourAt(ballTop)[0], background[0] - 15.0);
    EXPECT_LT(colourAt(postTop)[0], background[0] - 15.0);
    EXPECT_GT(colourAt(postTop)[0], 60.0) << "the background shines through";

    ASSERT_TRUE(system.setJointPosition(0, "arm_joint", 0.5 * osg::PI));
    window.setState(system.systemState());
    EXPECT_EQ(colourAt(ballTop), background) << "the ball has gone with the arm";
    EXPECT_LT(colourAt(osg::Vec3d(0.0, 3.0, 1.5))[0], background[0] - 15.0);

    ASSERT_TRUE(system.setJointPosition(0, "arm_joint", 0.0));
    window.setState(system.systemState());
    window.setDisplayMask(KrRenderTypes::CollisionShapes, false, false);
    EXPECT_EQ(work(), off);
    EXPECT_EQ(picture(), before);
    window.setDisplayMask(KrRenderTypes::CollisionShapes, true, false);
    EXPECT_EQ(numCollisionNodes(), 2u) << "built once";

    // A scene that is loaded anew hides them, unless the secondary mask, which stays, shows them.
    window.setStatedSystem(system);
    picture();
    EXPECT_EQ(numCollisionNodes(), 0u);
    window.setDisplayMask(KrRenderTypes::CollisionShapes, true, true);
    window.setStatedSystem(system);
    picture();
    EXPECT_EQ(numCollisionNodes(), 2u);
}

TEST_F(KrRenderAidsTest, VolumesAndEllipsoidsAreFilledWhenSeenAndSharedByCopiesOfARobot)
{
    KrManipulatorSystem robots;
    KrIndividualManipulator robot = system.manipulatorSystem().manipulators()[0];
    const auto post = Systems::box(KrVector(0.5, 0.5, 1.0), KrVector(0.0, 0.0, 0.5));
    robot.addCollisionShape(post);
    // One link with a hull, which is computed, and one with a volume of its own.
    ASSERT_TRUE(robot.childLinks()[0].shapePointer(0)->addBoundingVolume(boost::make_shared<KrShape>(post)));
    robots.manipulators().push_back(robot);
    robots.manipulators().push_back(robot);
    KrCoordinateSystemTransformation beside;
    beside.setTranslation(KrVector(0.0, 2.0, 0.0));
    ASSERT_TRUE(robots.manipulators().back().setPlacement(beside));
    system = KrStatedSystem(robots);
    window.setStatedSystem(system);
    const std::vector<unsigned char> hidden = picture(); // the first frame compiles hidden nodes, too
    const auto look = [this](unsigned int mask) {
        AidGeometries aids(mask);
        window.getNode()->accept(aids);
        return aids;
    };
    const osg::BoundingSphere bound = window.getNode()->getBound();
    const AidGeometries volumes = look(KrRenderTypes::BoundingVolumes);
    const AidGeometries ellipsoids = look(KrRenderTypes::MassProperties);
    ASSERT_GT(volumes.found.size(), 4u);
    ASSERT_EQ(ellipsoids.found.size(), 2u);
    EXPECT_EQ(volumes.numFilled() + ellipsoids.numFilled(), 0u);
    EXPECT_EQ(ellipsoids.found[0], ellipsoids.found[1]);
    const std::size_t numOfRobot = volumes.found.size() / 2;
    EXPECT_TRUE(std::equal(volumes.found.begin(), volumes.found.begin() + static_cast<std::ptrdiff_t>(numOfRobot),
                           volumes.found.end() - static_cast<std::ptrdiff_t>(numOfRobot)))
        << "what a copy's links show is the very same";

    window.setDisplayMask(KrRenderTypes::BoundingVolumes, true, false);
    const std::vector<unsigned char> veiled = picture();
    EXPECT_NE(veiled, hidden);
    EXPECT_EQ(volumes.numFilled(), volumes.found.size() / 4) << "of four volumes of a link one is drawn";
    EXPECT_EQ(ellipsoids.numFilled(), 0u);
    window.setDisplayMask(KrRenderTypes::MassProperties, true, false);
    picture();
    EXPECT_EQ(ellipsoids.numFilled(), 2u);
    EXPECT_EQ(window.getNode()->getBound().center(), bound.center());
    EXPECT_EQ(window.getNode()->getBound().radius(), bound.radius());
    for (const osg::Geometry* const ellipsoid : ellipsoids.found) {
        osg::BoundingBox corners;
        for (const osg::Vec3& corner : dynamic_cast<const osg::Vec3Array&>(*ellipsoid->getVertexArray())) {
            corners.expandBy(corner);
        }
        EXPECT_EQ(corners._min, ellipsoid->getBoundingBox()._min);
        EXPECT_EQ(corners._max, ellipsoid->getBoundingBox()._max);
    }

    window.setDisplayMask(KrRenderTypes::CollisionShapes, true, false);
    const AidGeometries collisions = look(KrRenderTypes::CollisionShapes);
    ASSERT_EQ(collisions.found.size(), 2u);
    EXPECT_EQ(collisions.found[0], collisions.found[1]);
    window.setDisplayMask(KrRenderTypes::CollisionShapes, false, false);

    // A copy of what nobody has seen is whole, and picking finds its triangles.
    const osg::ref_ptr<osg::Geometry> copy = osg::clone(volumes.found[0]);
    EXPECT_GT(copy->getVertexArray()->getNumElements(), 0u);
    struct Counter
    {
        void operator()(const osg::Vec3&, const osg::Vec3&, const osg::Vec3&) { ++count; }
        unsigned int count = 0;
    };
    osg::TriangleFunctor<Counter> triangles;
    ASSERT_EQ(volumes.found[1]->getVertexArray()->getNumElements(), 0u);
    volumes.found[1]->accept(triangles);
    EXPECT_GT(triangles.count, 0u);
    window.setDisplayMask(KrRenderTypes::BoundingVolumes | KrRenderTypes::MassProperties, false, false);
    EXPECT_EQ(picture(), hidden);
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

TEST_F(KrRenderAidsTest, AidsOfHiddenLinksDoNotTakeTheirTexture)
{
    const std::string path = testing::TempDir() + std::to_string(getpid()) + "dark.png";
    KrImage dark;
    dark.allocate(3, 0, 2, 2);
    std::fill(dark.data(), dark.data() + dark.sizeInBytes(), std::uint8_t(0));
    ASSERT_TRUE(dark.writeFile(path, KrImage::TopRowFirst));
    const auto pictureWith = [&](const std::string& texture) {
        KrDataMap material = KrDataMap::material(KrColor(1.0, 1.0, 1.0));
        if (!texture.empty()) {
            material.setString("krTextureFilename", texture);
        }
        const auto mesh = boost::make_shared<KrTriPhysicalExtent>();
        EXPECT_TRUE(ShapeTestMesh::setTriangles(*mesh, {"a"}, 0.0, true));
        mesh->setMaterial("a", material);
        KrIndividualManipulator robot("robot");
        robot.addShape(mesh);
        robot.addCollisionShape(Systems::box(KrVector(2.0, 1.0, 1.0), KrVector(0.0, 0.0, 0.0)));
        KrManipulatorSystem robots;
        robots.manipulators().push_back(robot);
        system = KrStatedSystem(robots);
        window.setStatedSystem(system);
        window.setDisplayMask(KrRenderTypes::SceneContent, false, false);
        window.setDisplayMask(KrRenderTypes::CollisionShapes | KrRenderTypes::BoundingVolumes, true, false);
        return picture();
    };
    const std::vector<unsigned char> textured = pictureWith(path); // first: the first frame makes all textures
    EXPECT_LT(*std::min_element(textured.begin(), textured.end()), 250);
    EXPECT_EQ(textured, pictureWith(""));
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
