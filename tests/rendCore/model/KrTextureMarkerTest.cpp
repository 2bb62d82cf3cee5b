#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/model/KrTextureMarker.h>

#include <rendCore/model/KrRenderDeformationShape.h>
#include <rendCore/system/KrRenderWindow.h>
#include <rendCore/window/KrSGWindow.h>

#include <tests/support/Allocations.h>
#include <tests/support/MessageRecorder.h>
#include <tests/support/Pictures.h>

#include <toolkit/context/KrExternalWindowImpl.h>
#include <toolkit/deformation/KrDeformationPhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>

#include <osg/BlendFunc>
#include <osg/GLExtensions>
#include <osg/Image>
#include <osg/MatrixTransform>
#include <osg/NodeCallback>
#include <osg/TexEnv>

#include <boost/make_shared.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>

namespace
{

constexpr unsigned int kSize = 100;
const osg::Vec4 kRed(1.0f, 0.0f, 0.0f, 1.0f);
const osg::Vec4 kGreen(0.0f, 1.0f, 0.0f, 1.0f);

/// Squares of 1 m side in parallel planes z = heights[i], seen from above with x to the right: square i has the texture
/// coordinates u from i / n to (i + 1) / n along x and v from 0 to 1 along y.
void setSquares(KrTriPhysicalExtent& mesh, const std::vector<double>& heights, double stretch = 1.0)
{
    KrXmlVectorVector vertices, normals;
    KrXmlVectorType<KrPlanarVector> coordinates;
    KrXmlVectorType<KrTriangle> triangles;
    normals.push_back(KrVector(0.0, 0.0, 1.0));
    for (std::size_t i = 0; i < heights.size(); ++i) {
        const auto first = static_cast<std::uint32_t>(4 * i);
        for (const double y : {0.0, 1.0}) {
            for (const double x : {0.0, 1.0}) {
                vertices.push_back(KrVector(x * stretch, y, heights[i]));
                coordinates.push_back(KrPlanarVector((double(i) + x) / double(heights.size()), y));
            }
        }
        const std::uint32_t corners[2][3] = {{0, 1, 3}, {0, 3, 2}};
        for (const auto& three : corners) {
            KrTriangle triangle;
            for (std::uint32_t corner = 0; corner < 3; ++corner) {
                triangle.setCorner(corner, first + three[corner], 0, first + three[corner]);
            }
            triangles.push_back(triangle);
        }
    }
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    groups.push_back(KrTriPhysicalExtent::Group(KrXmlBasicType<std::string>("skin"), triangles));
    ASSERT_TRUE(mesh.setMesh(vertices, normals, coordinates, groups));
    KrDataMap white;
    for (const char* const name : {"krEmissionRed", "krEmissionGreen", "krEmissionBlue"}) {
        white.setReal(name, 1.0);
    }
    mesh.setMaterial("skin", white);
}

void prepare(KrSGWindow& window)
{
    window.setWindowSize(kSize, kSize);
    window.setBackgroundColor(KrColor(0.0, 0.0, 0.0));
    KrPovParameters pov;
    pov.setEyepoint(KrVector(0.5, 0.5, 10.0));
    pov.setCenterOfInterest(KrVector(0.5, 0.5, 0.0));
    pov.setUp(KrVector(0.0, 1.0, 0.0));
    pov.setFieldOfView(2.0 * std::atan(0.5 / 10.0));
    window.setPovParameters(pov);
}

KrImage capture(KrSGWindow& window, const char* name = nullptr)
{
    KrImage picture;
    EXPECT_TRUE(window.renderSceneAndCaptureImage(picture, KrSGWindow::CaptureColor));
    window.makeCurrent();
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    if (const char* const folder = std::getenv("KR_TEST_PICTURES"); folder && name) {
        picture.writeFile(std::string(folder) + "/marks_" + name + ".png", KrImage::BottomRowFirst);
    }
    return picture;
}

bool areEqual(const KrImage& a, const KrImage& b)
{
    return a.sizeInBytes() == b.sizeInBytes() && std::memcmp(a.data(), b.data(), a.sizeInBytes()) == 0;
}

/// Over a patch of 3 x 3 pixels around x, y in metres of the square z = 0.
::testing::AssertionResult isColor(const KrImage& picture, double x, double y, const osg::Vec4& color)
{
    const std::array<double, 3> seen =
        meanColour(picture, static_cast<unsigned int>(x * kSize), static_cast<unsigned int>(y * kSize), 1);
    for (unsigned int channel = 0; channel < 3; ++channel) {
        if (std::fabs(seen[channel] - 255.0 * color[channel]) > 6.0) {
            return ::testing::AssertionFailure()
                   << seen[0] << " " << seen[1] << " " << seen[2] << " at " << x << " " << y;
        }
    }
    return ::testing::AssertionSuccess();
}

const osg::Vec4 kWhite(1.0f, 1.0f, 1.0f, 1.0f);

/// Red below left, green below right, blue above left, white above right; row 0 at the bottom.
osg::ref_ptr<osg::Image> fourColors()
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(16, 16, 1, GL_RGB, GL_UNSIGNED_BYTE, 1);
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 16; ++x) {
            unsigned char* const pixel = image->data(x, y);
            const bool right = x >= 8;
            const bool above = y >= 8;
            pixel[0] = right == above ? 255 : 0;
            pixel[1] = right ? 255 : 0;
            pixel[2] = above ? 255 : 0;
        }
    }
    return image;
}

class KrTextureMarkerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        prepare(window);
        if (!window.init()) {
            GTEST_SKIP() << window.report().text();
        }
        setSquares(mesh, {0.0});
        shape = new KrRenderDeformationShape(&mesh, KrMaterialMap());
        group->addChild(shape);
        window.setNode(group);
        marker = KrTextureMarker::of(*shape, 256, 256);
        ASSERT_TRUE(marker.valid());
    }

    KrTextureMarker::Brush brush(const osg::Vec4& color, float radius = 0.1f)
    {
        KrTextureMarker::Brush result;
        result.color = color;
        result.radius = radius;
        result.hardness = 0.8f;
        return result;
    }

    KrSGWindow window;
    KrTriPhysicalExtent mesh;
    osg::ref_ptr<KrRenderShape> shape;
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    osg::ref_ptr<KrTextureMarker> marker;
};

TEST_F(KrTextureMarkerTest, AStrokeIsInTheCaptureOfItsFrameAndStaysUntilCleared)
{
    const KrImage bare = capture(window);
    EXPECT_TRUE(isColor(bare, 0.5, 0.5, kWhite));

    ASSERT_TRUE(marker->stroke({{0.2f, 0.3f}, {0.7f, 0.3f}, {0.7f, 0.8f}}, brush({1.0f, 0.0f, 0.0f, 0.5f})));
    const KrImage marked = capture(window, "stroke");
    EXPECT_EQ(marker->numPendingMarks(), 0u);
    const osg::Vec4 pink(1.0f, 0.5f, 0.5f, 1.0f);
    for (const osg::Vec2& place :
         {osg::Vec2(0.2f, 0.3f), osg::Vec2(0.45f, 0.3f), osg::Vec2(0.7f, 0.3f), osg::Vec2(0.7f, 0.6f)}) {
        EXPECT_TRUE(isColor(marked, place.x(), place.y(), pink)) << "as dark at the joint as elsewhere";
    }
    for (const osg::Vec2& place : {osg::Vec2(0.45f, 0.44f), osg::Vec2(0.06f, 0.3f), osg::Vec2(0.3f, 0.7f)}) {
        EXPECT_TRUE(isColor(marked, place.x(), place.y(), kWhite));
    }
    EXPECT_TRUE(areEqual(marked, capture(window))) << "a later frame";

    marker->clear();
    EXPECT_TRUE(areEqual(bare, capture(window))) << "cleared";
    ASSERT_TRUE(marker->stroke({{0.1f, 0.1f}}, brush(kRed)));
    capture(window);
    ASSERT_TRUE(marker->stroke({{0.5f, 0.5f}}, brush(kRed)));
    marker->clear();
    ASSERT_TRUE(marker->stroke({{0.9f, 0.9f}}, brush(kGreen)));
    const KrImage last = capture(window);
    EXPECT_TRUE(isColor(last, 0.1, 0.1, kWhite));
    EXPECT_TRUE(isColor(last, 0.5, 0.5, kWhite));
    EXPECT_TRUE(isColor(last, 0.9, 0.9, kGreen));
}

TEST_F(KrTextureMarkerTest, MarksLieInTheirOrderAndFollowTheDeformedSurface)
{
    ASSERT_TRUE(marker->stroke({{0.2f, 0.5f}, {0.8f, 0.5f}}, brush(kRed)));
    ASSERT_TRUE(marker->stroke({{0.5f, 0.2f}, {0.5f, 0.8f}}, brush(kGreen)));
    const KrImage crossed = capture(window);
    EXPECT_TRUE(isColor(crossed, 0.5, 0.5, kGreen));
    EXPECT_TRUE(isColor(crossed, 0.3, 0.5, kRed));

    setSquares(mesh, {0.0}, 0.5);
    shape->update(&mesh);
    const KrImage narrow = capture(window);
    EXPECT_TRUE(isColor(narrow, 0.25, 0.25, kGreen));
    EXPECT_TRUE(isColor(narrow, 0.15, 0.5, kRed));
    // Other drawables under the same node.
    setSquares(mesh, {0.0, 20.0});
    shape->update(&mesh);
    EXPECT_TRUE(isColor(capture(window), 0.6, 0.5, kRed)) << "u = 0.3";
}

TEST_F(KrTextureMarkerTest, AStampStandsUprightAndTurnsCounterClockwise)
{
    KrTextureMarker::Placement placement;
    placement.centre.set(0.3f, 0.5f);
    placement.size.set(0.4f, 0.8f);
    ASSERT_TRUE(marker->stamp(fourColors(), placement));
    const KrImage upright = capture(window, "stamp");
    const osg::Vec4 blue(0.0f, 0.0f, 1.0f, 1.0f);
    EXPECT_TRUE(isColor(upright, 0.2, 0.3, kRed));
    EXPECT_TRUE(isColor(upright, 0.4, 0.3, kGreen));
    EXPECT_TRUE(isColor(upright, 0.2, 0.7, blue));
    EXPECT_TRUE(isColor(upright, 0.6, 0.3, kWhite));

    marker->clear();
    placement.centre.set(0.5f, 0.5f);
    placement.rotation = static_cast<float>(osg::PI_2);
    KrImage topFirst;
    topFirst.allocate(3, 0, 2, 2);
    const unsigned char pixels[] = {0, 0, 255, 255, 255, 255, 255, 0, 0, 0, 255, 0}; // blue, white, red, green
    std::memcpy(topFirst.data(), pixels, sizeof pixels);
    ASSERT_TRUE(marker->stamp(topFirst, KrImage::TopRowFirst, placement));
    const KrImage turned = capture(window, "stamp_turned");
    EXPECT_TRUE(isColor(turned, 0.85, 0.38, kRed)) << "below left has gone below right";
    EXPECT_TRUE(isColor(turned, 0.85, 0.62, kGreen));
    EXPECT_TRUE(isColor(turned, 0.15, 0.38, blue));
    EXPECT_TRUE(isColor(turned, 0.5, 0.78, kWhite)) << "0.8 wide and 0.4 high now";
}

TEST_F(KrTextureMarkerTest, AProjectionMarksOnlyWhatTheProjectorSees)
{
    // The upper square has u in [0.5, 1], and half the size: it hides a part of the lower one.
    setSquares(mesh, {0.0, 0.0});
    const auto& lower = mesh;
    KrXmlVectorVector vertices = lower.vertices();
    for (unsigned int i = 4; i < 8; ++i) {
        vertices[i] = KrVector(0.5 * vertices[i].x(), 0.5 * vertices[i].y(), 0.2);
    }
    KrTriPhysicalExtent stacked;
    const KrDataMap material = *mesh.materialMap().find(std::string("skin"));
    ASSERT_TRUE(stacked.setMesh(vertices, mesh.normals(), mesh.textureCoordinates(), mesh.groups()));
    stacked.setMaterial("skin", material);
    // The shape stands turned in the world: x of the shape is y of the world.
    const osg::ref_ptr<osg::MatrixTransform> turn =
        new osg::MatrixTransform(osg::Matrixd::rotate(osg::PI_2, osg::Z_AXIS) * osg::Matrixd::translate(1.0, 0.0, 0.0));
    group->removeChild(shape);
    group->addChild(turn);
    shape = new KrRenderDeformationShape(&stacked, KrMaterialMap());
    turn->addChild(shape);
    marker = KrTextureMarker::of(*shape, 256, 128);

    const osg::Matrixd projector =
        osg::Matrixd::lookAt(osg::Vec3d(0.5, 0.5, 10.0), osg::Vec3d(0.5, 0.5, 0.0), osg::Vec3d(0.0, 1.0, 0.0));
    const osg::Matrixd lens = osg::Matrixd::perspective(osg::RadiansToDegrees(2.0 * std::atan(0.05)), 1.0, 1.0, 20.0);
    ASSERT_TRUE(marker->project(fourColors(), projector, lens));
    const KrImage picture = capture(window, "projected");
    EXPECT_TRUE(isColor(picture, 0.25, 0.25, kRed)) << "upright from the projector, on the lower square";
    EXPECT_TRUE(isColor(picture, 0.75, 0.25, kGreen)) << "on the upper square";
    EXPECT_TRUE(isColor(picture, 0.25, 0.75, {0.0f, 0.0f, 1.0f, 1.0f}));

    // In the texture: the left half is the lower square, whose x (world y) and y (world 1 - x) are u and v.
    KrImage texture;
    ASSERT_TRUE(marker->snapshot(texture));
    const auto colorOf = [&texture](double x, double y, bool upper) {
        const unsigned int column = static_cast<unsigned int>((upper ? 128.0 : 0.0) + 128.0 * x);
        return meanColour(texture, column, static_cast<unsigned int>(128.0 * y), 2);
    };
    EXPECT_NEAR(colorOf(0.25, 0.75, false)[2], 0.0, 2.0) << "red";
    EXPECT_NEAR(colorOf(0.25, 0.25, false)[0], 255.0, 2.0) << "hidden: still white";
    EXPECT_NEAR(colorOf(0.25, 0.25, false)[2], 255.0, 2.0);
    EXPECT_NEAR(colorOf(0.5, 0.5, true)[0], 0.0, 2.0) << "green, on what hides it";
    EXPECT_NEAR(colorOf(0.5, 0.5, true)[1], 255.0, 2.0);

    // From below, a spot: only the lower square.
    marker->clear();
    const osg::Matrixd below =
        osg::Matrixd::lookAt(osg::Vec3d(0.5, 0.5, -10.0), osg::Vec3d(0.5, 0.5, 0.0), osg::Vec3d(0.0, 1.0, 0.0));
    ASSERT_TRUE(marker->project(brush(kRed), below, osg::Matrixd::ortho(-0.4, 0.4, -0.4, 0.4, 1.0, 20.0)));
    const KrImage spot = capture(window, "spot");
    EXPECT_TRUE(isColor(spot, 0.4, 0.6, kRed));
    EXPECT_TRUE(isColor(spot, 0.6, 0.4, kWhite)) << "the upper square";
    EXPECT_TRUE(isColor(spot, 0.2, 0.85, kWhite)) << "the corner of the spot's square";
}

TEST_F(KrTextureMarkerTest, AShapeWithTwoParentsIsProjectedOntoWhereItIsMetFirst)
{
    const osg::ref_ptr<osg::MatrixTransform> second = new osg::MatrixTransform(osg::Matrixd::translate(0.3, 0.0, -1.0));
    second->addChild(shape);
    group->addChild(second);
    const osg::Matrixd projector =
        osg::Matrixd::lookAt(osg::Vec3d(0.5, 0.5, 10.0), osg::Vec3d(0.5, 0.5, 0.0), osg::Vec3d(0.0, 1.0, 0.0));
    const osg::Matrixd lens = osg::Matrixd::ortho(-0.1, 0.1, -0.1, 0.1, 1.0, 20.0);
    for (const osg::Vec4& color : {kRed, kGreen}) {
        ASSERT_TRUE(marker->project(brush(color), projector, lens));
        const KrImage picture = capture(window);
        EXPECT_TRUE(isColor(picture, 0.5, 0.5, color));
        EXPECT_TRUE(isColor(picture, 0.2, 0.5, kWhite));
    }
}

TEST_F(KrTextureMarkerTest, MarksSurviveTheWindowAndAreTheSameInAnother)
{
    ASSERT_TRUE(marker->stroke({{0.2f, 0.3f}}, brush(kRed)));
    const KrImage before = capture(window);
    KrSGWindow other;
    prepare(other);
    ASSERT_TRUE(other.init());
    other.setNode(group);
    EXPECT_TRUE(areEqual(before, capture(other)));
    ASSERT_TRUE(marker->stroke({{0.7f, 0.7f}}, brush(kGreen)));
    const KrImage both = capture(other);
    EXPECT_TRUE(isColor(both, 0.7, 0.7, kGreen));
    EXPECT_TRUE(areEqual(both, capture(window))) << "drawn in the other window";

    for (int cycle = 0; cycle < 3; ++cycle) {
        window.closeWindow();
        prepare(window);
        ASSERT_TRUE(window.init());
        window.setNode(group);
        ASSERT_TRUE(marker->stroke({{0.7f, 0.7f}}, brush(kGreen, 0.05f)));
        EXPECT_TRUE(isColor(capture(window), 0.2, 0.3, kRed)) << cycle;
    }
    EXPECT_TRUE(isColor(capture(other), 0.2, 0.3, kRed));
    marker->clear();
    EXPECT_TRUE(isColor(capture(window), 0.2, 0.3, kWhite));
    EXPECT_TRUE(isColor(capture(other), 0.2, 0.3, kWhite));
    marker = nullptr;
    KrTextureMarker::detach(*shape);
    EXPECT_TRUE(isColor(capture(other), 0.2, 0.3, kWhite));
    EXPECT_EQ(shape->getCullCallback(), nullptr);
}

class OpenRenderWindow : public KrRenderWindow
{
public:
    KrRenderShape& shape() const { return *m_renderManipulators.at(0)->getMap().begin()->second; }
};

KrStatedSystem systemOf(const boost::shared_ptr<KrBasePhysicalExtent>& extent, bool isDeformable)
{
    KrIndividualManipulator robot("robot");
    robot.addShape(extent);
    robot.setDeformable(isDeformable);
    KrManipulatorSystem system;
    system.manipulators().push_back(robot);
    return KrStatedSystem(system);
}

TEST_F(KrTextureMarkerTest, MarksOfASystemSurviveEverySceneThatIsBuiltOfItsExtents)
{
    const auto extent = boost::make_shared<KrTriPhysicalExtent>();
    setSquares(*extent, {0.0});
    KrStatedSystem system = systemOf(extent, false);
    OpenRenderWindow robot;
    prepare(robot);
    robot.setStatedSystem(system);
    ASSERT_TRUE(robot.renderScene(true));
    const osg::ref_ptr<KrTextureMarker> own = KrTextureMarker::of(robot.shape(), 256, 256);
    ASSERT_TRUE(own->stroke({{0.2f, 0.3f}}, brush(kRed)));
    const KrImage before = capture(robot);
    ASSERT_TRUE(isColor(before, 0.2, 0.3, kRed));
    for (int cycle = 0; cycle < 3; ++cycle) {
        robot.closeWindow();
        prepare(robot);
        robot.setStatedSystem(system);
        EXPECT_TRUE(areEqual(capture(robot, "reopened"), before)) << cycle;
    }
    EXPECT_EQ(KrTextureMarker::of(robot.shape()), own.get());
    system.systemChanged();
    EXPECT_TRUE(areEqual(capture(robot), before));
    // What waits for a frame waits on.
    ASSERT_TRUE(own->stroke({{0.7f, 0.7f}}, brush(kGreen)));
    robot.closeWindow();
    prepare(robot);
    robot.setStatedSystem(system);
    EXPECT_TRUE(isColor(capture(robot), 0.7, 0.7, kGreen));
    EXPECT_TRUE(isColor(capture(robot), 0.2, 0.3, kRed));

    const auto other = boost::make_shared<KrTriPhysicalExtent>();
    setSquares(*other, {0.0});
    const KrStatedSystem otherSystem = systemOf(other, false);
    robot.setStatedSystem(otherSystem);
    EXPECT_TRUE(isColor(capture(robot), 0.2, 0.3, kWhite)) << "another body's surface";
}

TEST_F(KrTextureMarkerTest, StrokesOfAnExtentArePaintedOnceThoughItsSceneIsBuiltAnew)
{
    const auto extent = boost::make_shared<KrDeformationPhysicalExtent>();
    extent->setMesh(mesh);
    ASSERT_TRUE(extent->addStroke(KrSurfaceStroke({KrPlanarVector(0.2, 0.3)}, KrColor(1.0, 0.0, 0.0, 0.5), 0.1)));
    const KrStatedSystem system = systemOf(extent, true);
    OpenRenderWindow robot;
    prepare(robot);
    robot.setStatedSystem(system);
    ASSERT_TRUE(robot.renderScene(true));
    KrTextureMarker::of(robot.shape())->stroke({{0.7f, 0.7f}}, brush(kGreen));
    const KrImage before = capture(robot);
    EXPECT_TRUE(isColor(before, 0.2, 0.3, osg::Vec4(1.0f, 0.5f, 0.5f, 1.0f)));
    EXPECT_TRUE(isColor(before, 0.7, 0.7, kGreen));
    for (int cycle = 0; cycle < 2; ++cycle) {
        robot.closeWindow();
        prepare(robot);
        robot.setStatedSystem(system);
        EXPECT_TRUE(areEqual(capture(robot), before)) << cycle;
    }
    ASSERT_TRUE(extent->addStroke(KrSurfaceStroke({KrPlanarVector(0.2, 0.7)}, KrColor(0.0, 0.0, 1.0), 0.1)));
    robot.closeWindow();
    prepare(robot);
    robot.setStatedSystem(system);
    const KrImage after = capture(robot);
    EXPECT_TRUE(isColor(after, 0.2, 0.3, osg::Vec4(1.0f, 0.5f, 0.5f, 1.0f)));
    EXPECT_TRUE(isColor(after, 0.2, 0.7, osg::Vec4(0.0f, 0.0f, 1.0f, 1.0f)));
    EXPECT_TRUE(isColor(after, 0.7, 0.7, kGreen));
}

TEST_F(KrTextureMarkerTest, ACallbackMarksItsOwnFrameOnceWhateverSurroundsTheShape)
{
    struct Painter : public KrMarkingCallback
    {
        void mark(KrTextureMarker& m) override
        {
            ++calls;
            KrTextureMarker::Brush dot;
            dot.radius = 0.1f;
            dot.color = {1.0f, 0.0f, 0.0f, 0.5f};
            dot.hardness = 0.8f;
            m.clear();
            m.stroke({{0.5f, 0.5f}}, dot);
        }
        int calls = 0;
    };
    // A look like that of a selected shape, and a second parent.
    const osg::ref_ptr<osg::Group> wrapper = new osg::Group;
    constexpr unsigned int kOverride = osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE;
    osg::StateSet& look = *wrapper->getOrCreateStateSet();
    look.setAttributeAndModes(new osg::BlendFunc(GL_ONE, GL_ZERO), kOverride);
    look.setMode(GL_LIGHTING, kOverride);
    look.setMode(GL_CULL_FACE, kOverride);
    wrapper->addChild(shape);
    group->addChild(wrapper);
    const osg::ref_ptr<Painter> painter = new Painter;
    marker->addCallback(painter);
    marker->addCallback(painter);
    const KrImage first = capture(window);
    EXPECT_EQ(painter->calls, 1);
    EXPECT_TRUE(isColor(first, 0.5, 0.5, {1.0f, 0.5f, 0.5f, 1.0f}));
    EXPECT_TRUE(areEqual(first, capture(window)));
    EXPECT_EQ(painter->calls, 2);
    marker->removeCallback(painter);
    window.setOffScreenRendering(true);
    EXPECT_TRUE(areEqual(first, capture(window)));
    EXPECT_EQ(painter->calls, 2);
}

TEST_F(KrTextureMarkerTest, ACallbackMayAddAndRemoveCallbacksAndDetachTheShape)
{
    struct Caller : public KrMarkingCallback
    {
        void mark(KrTextureMarker& m) override
        {
            ++calls;
            if (action) {
                action(m);
            }
        }
        std::function<void(KrTextureMarker&)> action;
        int calls = 0;
    };
    struct Counter : public osg::NodeCallback
    {
        void operator()(osg::Node* node, osg::NodeVisitor* visitor) override
        {
            ++calls;
            traverse(node, visitor);
        }
        int calls = 0;
    };
    const osg::ref_ptr<Caller> once = new Caller, always = new Caller, added = new Caller;
    const osg::ref_ptr<Counter> own = new Counter;
    once->action = [&](KrTextureMarker& m) {
        m.removeCallback(once);
        m.addCallback(added);
    };
    marker->addCallback(once);
    marker->addCallback(always);
    shape->addUpdateCallback(own); // nested in the marker's
    capture(window);
    EXPECT_EQ(once->calls, 1);
    EXPECT_EQ(always->calls, 1) << "the one that follows";
    EXPECT_EQ(added->calls, 0) << "from the next frame on";
    capture(window);
    EXPECT_EQ(once->calls, 1);
    EXPECT_EQ(always->calls, 2);
    EXPECT_EQ(added->calls, 1);

    ASSERT_TRUE(marker->stroke({{0.5f, 0.5f}}, brush(kRed)));
    marker = nullptr; // else the shape's reference would not be the last
    always->action = [&](KrTextureMarker& m) {
        KrTextureMarker::detach(*shape);
        m.stroke({{0.5f, 0.5f}}, KrTextureMarker::Brush());
    };
    const KrImage bare = capture(window);
    EXPECT_TRUE(isColor(bare, 0.5, 0.5, kWhite));
    EXPECT_EQ(always->calls, 3);
    EXPECT_EQ(added->calls, 1) << "the marking has ended";
    EXPECT_EQ(own->calls, 3) << "the application's own one has not";
    EXPECT_TRUE(areEqual(bare, capture(window)));
    EXPECT_EQ(own->calls, 4);
    EXPECT_EQ(always->calls, 3);

    // An application may drop what holds the marker.
    marker = KrTextureMarker::of(*shape, 64, 64);
    marker->addCallback(added);
    marker = nullptr;
    shape->setCullCallback(nullptr);
    capture(window);
    EXPECT_EQ(added->calls, 1);
}

TEST_F(KrTextureMarkerTest, GivesBackTheTextureOfTheShapesOwnStateSet)
{
    const osg::ref_ptr<osg::Texture2D> own = new osg::Texture2D(fourColors());
    own->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    own->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    const osg::ref_ptr<osg::Image> black = new osg::Image;
    black->allocateImage(2, 2, 1, GL_RGB, GL_UNSIGNED_BYTE, 1);
    std::memset(black->data(), 0, black->getTotalSizeInBytes());
    const osg::ref_ptr<osg::Texture2D> ofGroup = new osg::Texture2D(black);
    const osg::ref_ptr<osg::TexEnv> replacing = new osg::TexEnv(osg::TexEnv::REPLACE);
    for (const unsigned int override : {unsigned(osg::StateAttribute::ON), unsigned(osg::StateAttribute::OVERRIDE)}) {
        group->removeChildren(0, group->getNumChildren());
        shape = new KrRenderShape(&mesh, KrMaterialMap());
        group->addChild(shape);
        osg::StateSet& states = *shape->getOrCreateStateSet();
        states.setTextureAttributeAndModes(0, own, osg::StateAttribute::ON | override);
        states.setTextureAttribute(0, replacing);
        if (override == osg::StateAttribute::OVERRIDE) {
            shape->getDrawable(0)->getOrCreateStateSet()->setTextureAttributeAndModes(0, ofGroup);
        }
        const KrImage plain = capture(window);
        ASSERT_TRUE(isColor(plain, 0.75, 0.25, kGreen));

        marker = KrTextureMarker::of(*shape, 16, 16);
        ASSERT_TRUE(marker.valid());
        EXPECT_TRUE(areEqual(plain, capture(window)));
        ASSERT_TRUE(marker->stroke({{0.75f, 0.25f}}, brush(kRed)));
        EXPECT_TRUE(isColor(capture(window), 0.75, 0.25, kRed));
        KrTextureMarker::detach(*shape);
        EXPECT_TRUE(areEqual(plain, capture(window)));
        EXPECT_EQ(states.getTextureAttribute(0, osg::StateAttribute::TEXENV), replacing);
        EXPECT_EQ(states.getTextureMode(0, GL_TEXTURE_2D), osg::StateAttribute::ON | override);
    }
}

TEST_F(KrTextureMarkerTest, MoreStrokesOfAnExtentThanAFrameTakesArePaintedInTheNext)
{
    KrDeformationPhysicalExtent extent;
    extent.setMesh(mesh);
    for (int i = 0; i < 4096; ++i) {
        ASSERT_TRUE(extent.addStroke(KrSurfaceStroke({KrPlanarVector(0.2, 0.2)}, KrColor(1.0, 0.0, 0.0), 0.1)));
    }
    ASSERT_TRUE(extent.addStroke(KrSurfaceStroke({KrPlanarVector(0.7, 0.7)}, KrColor(0.0, 1.0, 0.0), 0.1)));
    MessageRecorder messages;
    shape = new KrRenderDeformationShape(&extent, KrMaterialMap());
    group->removeChildren(0, group->getNumChildren());
    group->addChild(shape);
    EXPECT_TRUE(isColor(capture(window), 0.2, 0.2, kRed));
    const KrImage all = capture(window);
    EXPECT_TRUE(isColor(all, 0.2, 0.2, kRed));
    EXPECT_TRUE(isColor(all, 0.7, 0.7, kGreen)) << "without an update";
    shape->update(&extent);
    EXPECT_TRUE(areEqual(all, capture(window)));
    EXPECT_EQ(messages.count(), 0u) << messages.all();

    shape->update(&mesh);
    EXPECT_TRUE(isColor(capture(window), 0.2, 0.2, kWhite)) << "an extent without paint";
}

TEST_F(KrTextureMarkerTest, StartsFromTheTextureThatTheShapeShowsAndSteadyFramesAllocateNothing)
{
    const osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(fourColors());
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    group->removeChild(shape);
    shape = new KrRenderShape(&mesh, KrMaterialMap());
    shape->getDrawable(0)->getOrCreateStateSet()->setTextureAttributeAndModes(0, texture);
    group->addChild(shape);
    const KrImage plain = capture(window);
    const auto allocationsOfAFrame = [this] {
        for (int i = 0; i < 4; ++i) {
            window.renderScene(true);
        }
        const std::size_t before = Allocations::now().withNew;
        window.renderScene(true);
        return Allocations::now().withNew - before;
    };
    const std::size_t unmarked = allocationsOfAFrame();

    marker = KrTextureMarker::of(*shape, 16, 16);
    ASSERT_TRUE(marker.valid());
    EXPECT_EQ(KrTextureMarker::of(*shape), marker.get());
    EXPECT_TRUE(areEqual(plain, capture(window)));
    ASSERT_TRUE(marker->stroke({{0.75f, 0.25f}}, brush(kRed)));
    EXPECT_TRUE(isColor(capture(window), 0.75, 0.25, kRed));
    EXPECT_EQ(allocationsOfAFrame(), unmarked);
    marker->clear();
    EXPECT_TRUE(areEqual(plain, capture(window)));
}

TEST_F(KrTextureMarkerTest, RefusesWhatHasNoMeaning)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const osg::ref_ptr<osg::Image> empty = new osg::Image;
    KrTextureMarker::Placement flat;
    flat.size.set(0.0f, 1.0f);
    MessageRecorder messages;
    EXPECT_FALSE(marker->stroke({}, brush(kRed)));
    EXPECT_FALSE(marker->stroke({{0.0f, nan}}, brush(kRed)));
    EXPECT_FALSE(marker->stroke({{0.0f, 0.0f}}, brush(kRed, 0.0f)));
    EXPECT_FALSE(marker->stamp(empty, KrTextureMarker::Placement()));
    EXPECT_FALSE(marker->stamp(fourColors(), flat));
    EXPECT_FALSE(marker->stamp(KrImage(), KrImage::TopRowFirst, KrTextureMarker::Placement()));
    EXPECT_FALSE(marker->project(nullptr, osg::Matrixd(), osg::Matrixd()));
    EXPECT_FALSE(marker->project(brush(kRed), osg::Matrixd::scale(nan, 1.0, 1.0), osg::Matrixd()));
    EXPECT_EQ(messages.count(), 8u);
    const osg::ref_ptr<KrRenderShape> bare = new KrRenderShape(nullptr, KrMaterialMap());
    messages.clear();
    EXPECT_EQ(KrTextureMarker::of(*bare), nullptr);
    EXPECT_EQ(messages.count(), 1u);
    EXPECT_EQ(marker->numPendingMarks(), 0u);

    // More points than one piece takes; without a frame marks are not held without end.
    std::vector<osg::Vec2> line;
    for (int i = 0; i <= 2500; ++i) {
        line.emplace_back(0.1f + 0.8f * static_cast<float>(i) / 2500.0f, 0.5f);
    }
    ASSERT_TRUE(marker->stroke(line, brush(kRed)));
    const KrImage picture = capture(window);
    for (const double x : {0.15, 0.45, 0.75, 0.88}) {
        EXPECT_TRUE(isColor(picture, x, 0.5, kRed));
    }
    std::size_t accepted = 0;
    while (accepted < 10000 && marker->stroke({{0.5f, 0.5f}}, brush(kRed))) {
        ++accepted;
    }
    EXPECT_EQ(accepted, 4096u);
}

// A client with a framebuffer object of its own, as a widget has.
TEST(KrTextureMarkerEmbedded, MarksInAClientsFramebufferAndLeavesItBound)
{
    KrWindow host;
    host.setWindowSize(kSize, kSize);
    if (!host.init()) {
        GTEST_SKIP() << host.report().text();
    }
    const osg::ref_ptr<osg::GLExtensions> functions = new osg::GLExtensions(0);
    const osg::GLExtensions& gl = *functions;
    GLuint framebuffer = 0, color = 0, depth = 0;
    gl.glGenFramebuffers(1, &framebuffer);
    gl.glBindFramebuffer(GL_FRAMEBUFFER_EXT, framebuffer);
    gl.glGenRenderbuffers(1, &color);
    gl.glBindRenderbuffer(GL_RENDERBUFFER_EXT, color);
    gl.glRenderbufferStorage(GL_RENDERBUFFER_EXT, GL_RGBA8, kSize, kSize);
    gl.glFramebufferRenderbuffer(GL_FRAMEBUFFER_EXT, GL_COLOR_ATTACHMENT0_EXT, GL_RENDERBUFFER_EXT, color);
    gl.glGenRenderbuffers(1, &depth);
    gl.glBindRenderbuffer(GL_RENDERBUFFER_EXT, depth);
    gl.glRenderbufferStorage(GL_RENDERBUFFER_EXT, GL_DEPTH_COMPONENT24, kSize, kSize);
    gl.glFramebufferRenderbuffer(GL_FRAMEBUFFER_EXT, GL_DEPTH_ATTACHMENT_EXT, GL_RENDERBUFFER_EXT, depth);
    ASSERT_EQ(gl.glCheckFramebufferStatus(GL_FRAMEBUFFER_EXT), GLenum(GL_FRAMEBUFFER_COMPLETE_EXT));

    KrExternalWindowImpl::Callbacks callbacks;
    callbacks.makeCurrent = [&host] { return host.makeCurrent(); };
    callbacks.isCurrent = [&host] { return host.getImpl()->isCurrent(); };
    callbacks.defaultFramebuffer = [framebuffer] { return framebuffer; };
    KrSGWindow window;
    window.setImpl(std::make_unique<KrExternalWindowImpl>(callbacks));
    prepare(window);
    ASSERT_TRUE(window.init());
    KrTriPhysicalExtent mesh;
    setSquares(mesh, {0.0});
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    const osg::ref_ptr<KrRenderShape> shape = new KrRenderShape(&mesh, KrMaterialMap());
    group->addChild(shape);
    window.setNode(group);
    KrTextureMarker* const marker = KrTextureMarker::of(*shape, 128, 128);
    ASSERT_NE(marker, nullptr);
    for (const float v : {0.25f, 0.75f}) {
        KrTextureMarker::Brush brush;
        brush.radius = 0.1f;
        brush.color = v < 0.5f ? kRed : kGreen;
        ASSERT_TRUE(marker->stroke({{0.25f, v}}, brush));
        gl.glBindFramebuffer(GL_FRAMEBUFFER_EXT, framebuffer);
        const KrImage picture = capture(window);
        EXPECT_TRUE(isColor(picture, 0.25, v, brush.color));
        EXPECT_TRUE(isColor(picture, 0.75, 0.5, kWhite));
        GLint bound = 0;
        glGetIntegerv(GL_FRAMEBUFFER_BINDING_EXT, &bound);
        EXPECT_EQ(static_cast<GLuint>(bound), framebuffer);
        unsigned char pixel[4] = {};
        glReadPixels(25, static_cast<GLint>(v * kSize), 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel);
        EXPECT_EQ(pixel[v < 0.5f ? 0 : 1], 255) << "in the client's own framebuffer";
        EXPECT_EQ(pixel[2], 0);
    }
    window.closeWindow();
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

} // namespace
