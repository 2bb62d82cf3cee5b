#include <rendCore/capture/KrFrameDescription.h>
#include <rendCore/capture/KrOpticalFrame.h>
#include <rendCore/system/KrRenderWindow.h>
#include <rendCore/window/KrSGDrawCallbacks.h>

#include <tests/support/Folder.h>
#include <tests/support/MessageRecorder.h>
#include <tests/support/Systems.h>

#include <osg/Geode>
#include <osg/Geometry>

#include <nlohmann/json.hpp>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace
{

/// A square that faces the camera, so that the middle of its picture is the picture of its middle.
struct Dot
{
    osg::Vec3d center; ///< optical camera axes, m
    osg::Vec3 color;   ///< each channel 0 or 1
};

constexpr unsigned int kWidth = 640; // of the pictures, pixels
constexpr unsigned int kHeight = 480;
constexpr unsigned int kFactor = 4; // drawn pixels for each of a picture, in each direction
constexpr double kDotRadius = 0.12; // half a diagonal, for each metre of distance

const Dot kDots[] = {
    {{0.0, 0.0, 3.0}, {1, 1, 1}},   {{-0.9, -0.6, 3.5}, {1, 0, 0}}, {{0.8, -0.5, 2.5}, {0, 1, 0}},
    {{-0.7, 0.55, 2.6}, {0, 0, 1}}, {{1.1, 0.7, 4.0}, {1, 1, 0}},
};

/// In world axes. Turned, by a slope far from simple fractions, so that the edges cross pixels at ever other places.
osg::ref_ptr<osg::Group> squares(const KrCoordinateSystemTransformation& opticalToWorld)
{
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    const double angle = std::atan(0.6180339887);
    for (const Dot& dot : kDots) {
        const osg::ref_ptr<osg::Vec3Array> corners = new osg::Vec3Array;
        for (int i = 0; i < 4; ++i) {
            const double radius = kDotRadius * dot.center.z();
            const KrVector corner(dot.center.x() + radius * std::cos(angle + i * osg::PI_2),
                                  dot.center.y() + radius * std::sin(angle + i * osg::PI_2), dot.center.z());
            corners->push_back(osg::Vec3(KrRenderTypes::ec2osg(opticalToWorld.transformPoint(corner))));
        }
        const osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array(1);
        (*colors)[0] = osg::Vec4(dot.color, 1.0f);
        const osg::ref_ptr<osg::Geometry> square = new osg::Geometry;
        square->setVertexArray(corners);
        square->setColorArray(colors, osg::Array::BIND_OVERALL);
        square->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLE_FAN, 0, 4));
        geode->addDrawable(square);
    }
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(geode);
    return group;
}

/// The middle of the drawn pixels of that colour, from the upper left corner, in pixels of the picture.
osg::Vec2d centroid(const KrImage& image, const osg::Vec3& color, std::size_t& count)
{
    double u = 0.0;
    double v = 0.0;
    count = 0;
    const unsigned char* pixel = image.data();
    for (unsigned int row = 0; row < image.height(); ++row) {
        for (unsigned int column = 0; column < image.width(); ++column, pixel += 3) {
            if ((pixel[0] > 127) == (color.x() > 0.5f) && (pixel[1] > 127) == (color.y() > 0.5f) &&
                (pixel[2] > 127) == (color.z() > 0.5f)) {
                u += column + 0.5;
                v += image.height() - (row + 0.5);
                ++count;
            }
        }
    }
    return osg::Vec2d(u, v) / (static_cast<double>(count) * kFactor);
}

class KrFrameDescriptionTest : public testing::Test
{
protected:
    void SetUp() override
    {
        window.setWindowSize(kFactor * kWidth, kFactor * kHeight);
        if (!window.init()) {
            GTEST_SKIP() << window.report().text();
        }
        window.setBackgroundColor(KrColor(0.0, 0.0, 0.0));
        window.setViewerAttribute(KrSGWindow::Lighting, false);
        opticalToWorld.setRollPitchYaw(-1.9, 0.2, 2.5);
        opticalToWorld.setTranslation(KrVector(0.4, -0.3, 0.9));
        KrPovParameters pov;
        ASSERT_TRUE(KrOpticalFrame::toPov(opticalToWorld, 3.0, pov));
        window.setPovParameters(pov);
        window.setNode(squares(opticalToWorld));
    }

    /// Draws, and finds every square where `camera` says, and where the frame's own description says.
    void expectDotsWhereTold(const KrCameraIntrinsics& camera, unsigned int numVisible = 5)
    {
        KrImage image;
        ASSERT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
        KrFrameDescription frame;
        ASSERT_TRUE(frame.fill(window));
        ASSERT_TRUE(frame.intrinsics);
        frame.setPictureSize(camera.width, camera.height);
        for (const Dot& dot : kDots) {
            const osg::Vec2d told = camera.project(dot.center);
            std::size_t count = 0;
            const osg::Vec2d found = centroid(image, dot.color, count);
            if (told.x() < 0.0 || told.x() > camera.width) {
                EXPECT_EQ(count, 0u);
                continue;
            }
            --numVisible;
            ASSERT_GT(count, 20000u);
            EXPECT_NEAR(found.x(), told.x(), 0.01) << dot.center.x();
            EXPECT_NEAR(found.y(), told.y(), 0.01) << dot.center.x();
            const KrVector world = opticalToWorld.transformPoint(KrRenderTypes::osg2ec(dot.center));
            const osg::Vec2d described = frame.intrinsics->project(KrRenderTypes::ec2osg(world) * frame.opticalView());
            EXPECT_LT((found - described).length(), 0.01) << dot.center.x();
        }
        EXPECT_EQ(numVisible, 0u);
    }

    KrRenderWindow window;
    KrCoordinateSystemTransformation opticalToWorld;
};

} // namespace

TEST_F(KrFrameDescriptionTest, PointsAreDrawnWhereTheNumbersSay)
{
    const KrCameraIntrinsics cameras[] = {
        {kWidth, kHeight, 600.0, 600.0, 320.0, 240.0},     // the middle
        {kWidth, kHeight, 560.0, 560.0, 251.25, 280.125},  // off it
        {kWidth, kHeight, 700.0, 480.0, 321.65, 227.55},   // oblong pixels
        {kWidth, kHeight, 640.0, 610.0, 280.123, 260.321}, //
    };
    for (const KrCameraIntrinsics& camera : cameras) {
        ASSERT_TRUE(window.setCameraIntrinsics(camera));
        ASSERT_NE(window.cameraIntrinsics(), nullptr);
        EXPECT_EQ(*window.cameraIntrinsics(), camera);
        expectDotsWhereTold(camera);
    }
    window.setOffScreenRendering(true);
    expectDotsWhereTold(cameras[3]);
    // A principal point outside the picture.
    const KrCameraIntrinsics sideways = {kWidth, kHeight, 600.0, 600.0, -80.0, 240.0};
    ASSERT_TRUE(window.setCameraIntrinsics(sideways));
    expectDotsWhereTold(sideways, 2);
}

TEST_F(KrFrameDescriptionTest, ThePointOfViewsOwnCameraIsToldAsWell)
{
    KrPovParameters pov = window.getPovParameters();
    pov.setFieldOfView(0.8);
    window.setPovParameters(pov);
    expectDotsWhereTold(KrCameraIntrinsics::fromFieldOfView(0.8, kWidth, kHeight));
}

TEST_F(KrFrameDescriptionTest, ACameraStaysThroughEveryOtherChangeAndGoesWhenCleared)
{
    const KrCameraIntrinsics camera = {kWidth, kHeight, 640.0, 610.0, 280.0, 260.0};
    ASSERT_TRUE(window.setCameraIntrinsics(camera));
    expectDotsWhereTold(camera);

    window.setPovParameters(window.getPovParameters());
    window.setAspectRatio(2.0);
    window.loadRenderParameters(KrRenderParameters());
    window.setBackgroundColor(KrColor(0.0, 0.0, 0.0));
    expectDotsWhereTold(camera);
    // A window of another size shows the same, scaled with it.
    window.setWindowSize(kFactor * 800, kFactor * 900);
    expectDotsWhereTold({800, 900, 800.0, 1143.75, 350.0, 487.5});
    EXPECT_EQ(*window.cameraIntrinsics(), camera);
    window.setWindowSize(kFactor * kWidth, kFactor * kHeight);
    window.setViewerAttribute(KrSGWindow::Orthographic, true);
    window.updateScene();
    EXPECT_EQ(window.getViewer()->getCamera()->getProjectionMatrix(), osg::Matrixd::ortho(0, 1, 0, 1, -1, 1));
    window.setViewerAttribute(KrSGWindow::Orthographic, false);
    expectDotsWhereTold(camera);

    MessageRecorder messages;
    EXPECT_FALSE(window.setCameraIntrinsics({kWidth, kHeight, -1.0, 610.0, 280.0, 260.0}));
    EXPECT_FALSE(window.setCameraIntrinsics({kWidth, 0, 640.0, 610.0, 280.0, 260.0}));
    EXPECT_EQ(messages.count(), 2u);
    EXPECT_EQ(*window.cameraIntrinsics(), camera);

    window.closeWindow();
    EXPECT_EQ(*window.cameraIntrinsics(), camera);
    window.clearCameraIntrinsics();
    EXPECT_EQ(window.cameraIntrinsics(), nullptr);
    ASSERT_TRUE(window.init());
    window.updateScene();
    double left, right, bottom, top, near, far;
    ASSERT_TRUE(window.getViewer()->getCamera()->getProjectionMatrix().getFrustum(left, right, bottom, top, near, far));
    EXPECT_NEAR(top / near, std::tan(0.5 * window.getPovParameters().fieldOfView()), 1e-12);
    EXPECT_NEAR(right / top, 4.0 / 3.0, 1e-12);
    EXPECT_NEAR(left + right, 0.0, 1e-12);
}

TEST_F(KrFrameDescriptionTest, TellsStatePlanesAndPoseAsJson)
{
    KrFrameDescription frame;
    {
        MessageRecorder messages;
        EXPECT_FALSE(frame.fill(window)) << "nothing was drawn yet";
        EXPECT_EQ(messages.count(), 1u);
    }
    window.setWindowSize(kWidth, kHeight);
    KrStatedSystem system(Systems::twoBoxes());
    system.setJointPosition(0, "arm_joint", 0.25);
    KrManipulatorSystemState state = system.systemState();
    state.setTime(2.5);
    window.setStatedSystem(system);
    KrPovParameters pov;
    pov.setEyepoint(KrVector(6.5, 0.0, 0.0));
    window.setPovParameters(pov);
    window.setState(state);
    KrImage image;
    const osg::ref_ptr<KrSGWindow::ImageCaptureDrawCallback> capture =
        new KrSGWindow::ImageCaptureDrawCallback(&image, KrSGWindow::CaptureDepth);
    window.setDrawCallback(capture);
    ASSERT_TRUE(window.renderScene(true));
    ASSERT_TRUE(window.renderScene(true));
    ASSERT_TRUE(frame.fill(window));
    frame.rowOrder = KrFrameDescription::RowOrder::TopRowFirst;

    const nlohmann::json tree = nlohmann::json::parse(frame.json());
    EXPECT_EQ(tree["picture"]["width"], kWidth);
    EXPECT_EQ(tree["picture"]["rowOrder"], "top row first");
    EXPECT_EQ(tree["frame"]["number"], 2u);
    EXPECT_EQ(tree["frame"]["time"], 2.5);
    EXPECT_EQ(tree["camera"]["intrinsics"]["cx"], 320.0);
    const nlohmann::json& robot = tree["manipulators"][0];
    EXPECT_EQ(robot["name"], "robot");
    const nlohmann::json& joint = robot["joints"][0];
    EXPECT_EQ(joint["name"], "arm_joint");
    EXPECT_EQ(joint["type"], "continuous");
    EXPECT_EQ(joint["position"], 0.25);
    // Optical z of the world's origin is its distance; the fourth number of the third row.
    const nlohmann::json& z = tree["camera"]["worldToOptical"][2];
    EXPECT_NEAR(z[3].get<double>(), 6.5, 1e-6);
    EXPECT_NEAR(z[0].get<double>(), -1.0, 1e-6);

    // The planes are those that the depth buffer was filled with: the red box's face is 6 m away.
    const double n = tree["camera"]["near"].get<double>();
    const double f = tree["camera"]["far"].get<double>();
    std::uint32_t stored = 0;
    std::memcpy(&stored, capture->getCapturedImage()->data(320, 240), sizeof stored);
    EXPECT_NEAR(n * f / (f - stored / 4294967295.0 * (f - n)), 6.0, 1e-4);
    EXPECT_NE(n, 0.125 * 6.5) << "the viewer fits the planes";
}

TEST_F(KrFrameDescriptionTest, IsReadBackAsItWasWritten)
{
    window.setWindowSize(kWidth, kHeight);
    window.setCameraIntrinsics({kWidth, kHeight, 640.1, 610.2, 280.3, 260.7});
    KrFrameDescription frame;
    ASSERT_TRUE(window.renderScene(true));
    ASSERT_TRUE(frame.fill(window));
    EXPECT_EQ(*frame.intrinsics, *window.cameraIntrinsics());
    frame.time = 1e-05;
    frame.manipulators = {{"a \"quoted\", [-0] name\n\xFF", {{"j", "revolute", 0.1}, {"k", "prismatic", -0.0}}},
                          {"empty", {}}};
    frame.unit = "mm";
    frame.axes = "world";
    frame.labels = {{1, "a", "base\t", std::nullopt}, {2, "a", "arm", 7, "#1459ff"}, {3, "b", "", std::nullopt}};
    const Folder folder;
    const std::string file = folder.path("camera.json");
    ASSERT_TRUE(frame.writeFile(file));
    KrFrameDescription read;
    ASSERT_TRUE(read.readFile(file));
    EXPECT_EQ(read.json(), frame.json());
    ASSERT_EQ(read.labels.size(), 3u);
    EXPECT_EQ(read.labels[1].shape, 7u);
    EXPECT_EQ(read.labels[1].color, "#1459ff");
    EXPECT_EQ(read.labels[2].shape, std::nullopt);
    EXPECT_EQ(read.axes, "world");
    EXPECT_TRUE(read.actualPov() == window.getPovParameters());

    // A camera that an input handler moved is told by its matrix, not by the point of view that was set.
    read.view = read.view * osg::Matrixd::translate(0.1, 0.2, 0.0);
    window.setPovParameters(read.actualPov());
    ASSERT_TRUE(window.renderScene(true));
    ASSERT_TRUE(frame.fill(window));
    for (int i = 0; i < 16; ++i) {
        EXPECT_NEAR(frame.view.ptr()[i], read.view.ptr()[i], 1e-6) << i;
    }
}

TEST(KrFrameDescription, RefusesWhatIsNoDescriptionAndKeepsTheOldOne)
{
    const std::string size = R"({"picture": {"width": 4, "height": 3}, "camera": )";
    const std::string pose = R"("worldToOptical": [[1,0,0,0],[0,1,0,0],[0,0,1,2],[0,0,0,1]])";
    const std::string nested(100000, '[');
    const std::string bad[] = {
        "",
        "nonsense",
        "{}",
        nested,
        "{\"a\": " + nested,
        size + "{}}",
        R"({"camera": {)" + pose + "}}",
        R"({"picture": {"width": 0, "height": 3}, "camera": {)" + pose + "}}",
        R"({"picture": {"width": -4, "height": 3}, "camera": {)" + pose + "}}",
        size + R"({"worldToOptical": [[1,0,0,0],[0,1,0,0],[0,0,2,2],[0,0,0,1]]}})",
        size + R"({"worldToOptical": [[1,0,0,0],[0,1,0,0],[0,0,1,2]]}})",
        size + R"({"intrinsics": {"fx": 0, "fy": 1, "cx": 2, "cy": 1}, )" + pose + "}}",
        size + R"({"intrinsics": {"fx": 1, "fy": 1, "cx": "x", "cy": 1}, )" + pose + "}}",
    };
    const Folder folder;
    const std::string file = folder.path("camera.json");
    KrFrameDescription frame;
    frame.width = 7;
    for (const std::string& text : bad) {
        folder.write("camera.json", text);
        MessageRecorder messages;
        EXPECT_FALSE(frame.readFile(file)) << text.substr(0, 80);
        EXPECT_EQ(messages.count(), 1u) << text.substr(0, 80);
        EXPECT_EQ(frame.width, 7u);
    }
    MessageRecorder messages;
    EXPECT_FALSE(frame.readFile(file + ".missing"));
    EXPECT_FALSE(frame.readFile(testing::TempDir()));
    EXPECT_FALSE(frame.writeFile(file + "/below/a/file.json"));
    EXPECT_EQ(messages.count(), 3u);
    // The least that another program can write.
    folder.write("camera.json", size + "{" + pose + "}}");
    EXPECT_TRUE(frame.readFile(file));
    EXPECT_EQ(frame.view(3, 2), -2.0);
    EXPECT_FALSE(frame.intrinsics);
}
