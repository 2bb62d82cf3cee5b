#include <rendCore/input/KrOrbitInputHandler.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/system/KrMultiRenderWindow.h>
#include <toolkit/math/KrAngle.h>

#include <tests/support/Allocations.h>
#include <tests/support/MessageRecorder.h>
#include <tests/support/Pictures.h>

#include <osg/Geode>
#include <osg/ShapeDrawable>
#include <osgGA/EventQueue>
#include <osgGA/GUIEventAdapter>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace
{

using Kr::Angle::kPi;
constexpr double kPixel = 0.05; // m that the eye goes, 6 m away, for a third of a pixel of a drag
constexpr double kRound = 1e-6; // the look-at computation rounds to single precision

KrPovParameters pov(const KrVector& eye, const KrVector& centre)
{
    KrPovParameters result;
    result.setEyepoint(eye);
    result.setCenterOfInterest(centre);
    return result;
}

osg::Vec3d eyeOf(const KrOrbitInputHandler& handler)
{
    return handler.getMatrix().getTrans();
}
osg::Vec3d rightOf(const KrOrbitInputHandler& handler)
{
    return osg::Matrixd::transform3x3(osg::Vec3d(1.0, 0.0, 0.0), handler.getMatrix());
}

void expectNear(const osg::Vec3d& a, const osg::Vec3d& b, double bound)
{
    EXPECT_LT((a - b).length(), bound) << a.x() << ' ' << a.y() << ' ' << a.z() << " is not " << b.x() << ' ' << b.y()
                                       << ' ' << b.z();
}

osg::ref_ptr<osg::Group> ball(const osg::Vec3& centre, float radius)
{
    const osg::ref_ptr<osg::ShapeDrawable> drawable = new osg::ShapeDrawable(new osg::Sphere(centre, radius));
    drawable->setColor(osg::Vec4(1.0f, 0.0f, 0.0f, 1.0f));
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(drawable);
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(geode);
    return group;
}

/// What is drawn: its middle (centroid) and edges, -1 to 1 in the picture.
struct Spot
{
    double x = 0.0, y = 0.0;
    double left = 1.0, right = -1.0, bottom = 1.0, top = -1.0;
    std::size_t numPixels = 0;

    explicit Spot(const KrImage& image)
    {
        for (unsigned int row = 0; row < image.height(); ++row) {
            for (unsigned int column = 0; column < image.width(); ++column) {
                const auto* pixel = image.data() + (std::size_t(row) * image.width() + column) * image.channels();
                if (pixel[0] == 0 && pixel[2] == 255) {
                    continue;
                }
                const double px = 2.0 * (column + 0.5) / image.width() - 1.0;
                const double py = 2.0 * (row + 0.5) / image.height() - 1.0;
                x += px;
                y += py;
                left = std::min(left, px);
                right = std::max(right, px);
                bottom = std::min(bottom, py);
                top = std::max(top, py);
                ++numPixels;
            }
        }
        x /= static_cast<double>(numPixels);
        y /= static_cast<double>(numPixels);
    }
    bool isInside() const { return left > -0.99 && right < 0.99 && bottom > -0.99 && top < 0.99; }
};

class KrOrbitInputHandlerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        window.setWindowSize(200, 150);
        if (!window.init()) {
            GTEST_SKIP() << window.report().text();
        }
        window.setBackgroundColor(KrColor(0.0, 0.0, 1.0));
        window.setPovParameters(pov(KrVector(6.0, 0.0, 0.0), KrVector(0.0, 0.0, 0.0)));
        handler = new KrOrbitInputHandler(&window);
        window.setInputHandler(handler);
    }
    Spot draw()
    {
        KrImage image;
        EXPECT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
        window.makeCurrent();
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        return Spot(image);
    }
    /// The window's, as a widget fills it: pixels from the upper left corner.
    osgGA::EventQueue& queue()
    {
        osg::GraphicsContext* const context = window.getViewer()->getCamera()->getGraphicsContext();
        return *static_cast<osgViewer::GraphicsWindow*>(context)->getEventQueue();
    }
    void drag(unsigned int button, float x0, float y0, float x1, float y1)
    {
        queue().mouseButtonPress(x0, y0, button);
        queue().mouseMotion(0.5f * (x0 + x1), 0.5f * (y0 + y1));
        queue().mouseMotion(x1, y1);
        queue().mouseButtonRelease(x1, y1, button);
        window.renderScene(false);
    }
    /// Window, handler and camera tell of one view.
    void expectOneView()
    {
        KrPovParameters read;
        handler->getPovParameters(read);
        const KrPovParameters& shown = window.getPovParameters();
        EXPECT_LT((shown.eyepoint() - read.eyepoint()).length(), 1e-5);
        EXPECT_LT((shown.centerOfInterest() - read.centerOfInterest()).length(), 1e-5);
        const osg::Camera& camera = *window.getViewer()->getCamera();
        expectNear(osg::Matrixd::inverse(camera.getViewMatrix()).getTrans(), KrRenderTypes::ec2osg(shown.eyepoint()),
                   1e-5);
    }

    KrSGWindow window;
    osg::ref_ptr<KrOrbitInputHandler> handler;
};

TEST(KrOrbitInputHandler, TurnsLikeATurntableAndStopsAtThePoles)
{
    const osg::ref_ptr<KrOrbitInputHandler> handler = new KrOrbitInputHandler(nullptr);
    handler->setPovParameters(pov(KrVector(6.0, 0.0, 1.0), KrVector(1.0, 0.0, 1.0)));
    handler->orbit(kPi / 2.0, 0.0);
    expectNear(eyeOf(*handler), osg::Vec3d(1.0, 5.0, 1.0), kRound);
    handler->orbit(0.0, kPi / 6.0);
    expectNear(eyeOf(*handler), osg::Vec3d(1.0, 5.0 * std::sqrt(0.75), 3.5), kRound);

    // Over the top there is no way: the picture keeps its right side, and turns there as anywhere.
    handler->orbit(0.0, 4.0);
    expectNear(eyeOf(*handler), osg::Vec3d(1.0, 0.0, 6.0), kRound);
    expectNear(rightOf(*handler), osg::Vec3d(-1.0, 0.0, 0.0), kRound);
    handler->orbit(-kPi / 2.0, 0.0);
    expectNear(rightOf(*handler), osg::Vec3d(0.0, 1.0, 0.0), kRound);
    handler->orbit(0.0, -kPi / 2.0);
    expectNear(eyeOf(*handler), osg::Vec3d(6.0, 0.0, 1.0), 1e-5);

    // Thousands of small turns add up to what they should, level and at one distance.
    for (int i = 0; i < 8000; ++i) {
        handler->orbit(2.0 * kPi / 1000.0, i % 4000 < 2000 ? 0.001 : -0.001);
        ASSERT_NEAR(rightOf(*handler).z(), 0.0, kRound);
    }
    EXPECT_NEAR((eyeOf(*handler) - osg::Vec3d(1.0, 0.0, 1.0)).length(), 5.0, 1e-9);

    // Another axis; a tilted horizon becomes level, the eye stays where it is.
    handler->setAxis(osg::Vec3d(0.0, 3.0, 0.0));
    handler->setPovParameters(pov(KrVector(4.0, 0.0, 0.0), KrVector(0.0, 0.0, 0.0)));
    expectNear(rightOf(*handler), osg::Vec3d(0.0, 1.0, 0.0), kRound);
    handler->orbit(0.0, 0.0);
    expectNear(eyeOf(*handler), osg::Vec3d(4.0, 0.0, 0.0), kRound);
    expectNear(rightOf(*handler), osg::Vec3d(0.0, 0.0, -1.0), kRound);
    handler->lookFrom(-kPi / 2.0, 0.0);
    expectNear(eyeOf(*handler), osg::Vec3d(0.0, 0.0, 4.0), kRound);
}

TEST(KrOrbitInputHandler, RefusesWhatIsNoMotion)
{
    const osg::ref_ptr<KrOrbitInputHandler> handler = new KrOrbitInputHandler(nullptr);
    const osg::Matrixd before = handler->getMatrix();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    MessageRecorder messages;
    handler->orbit(nan, 0.0);
    handler->pan(0.0, std::numeric_limits<double>::infinity());
    for (const double factor : {0.0, -2.0, nan}) {
        handler->zoomAt(factor, 0.0, 0.0);
    }
    handler->setAxis(osg::Vec3d());
    EXPECT_EQ(messages.count(), 6u);
    EXPECT_FALSE(handler->fit());
    EXPECT_FALSE(handler->centerOnSurface(0.0, 0.0));
    EXPECT_EQ(handler->getMatrix(), before);

    // However often: the camera stays a camera.
    for (int i = 0; i < 500; ++i) {
        handler->zoomAt(10.0, 0.5, 0.5);
    }
    KrPovParameters nearest;
    handler->getPovParameters(nearest);
    EXPECT_NEAR(nearest.viewingDistance(), KrOrbitInputHandler::kSmallestDistance, 1e-6);
    for (int i = 0; i < 500; ++i) {
        handler->zoomAt(0.1, 0.5, 0.5);
    }
    EXPECT_TRUE(handler->getMatrix().valid());
}

TEST_F(KrOrbitInputHandlerTest, PansAndZoomsWithWhatIsUnderTheCursor)
{
    // A ball in the centre's depth, or far behind it, above and to the right of the middle.
    for (const std::string lens : {"perspective", "parallel", "off-centre"}) {
        const bool parallel = lens == "parallel";
        if (lens == "off-centre") {
            ASSERT_TRUE(window.setCameraIntrinsics({200, 150, 180.0, 180.0, 130.0, 50.0}));
        }
        for (const float depth : {0.0f, -9.0f}) {
            SCOPED_TRACE(testing::Message() << lens << ", " << depth);
            window.deleteContents();
            window.loadScene();
            window.setNode(ball(osg::Vec3(depth, 0.8f, 0.6f), depth < 0.0f ? 0.4f : 0.15f));
            handler->setParallel(parallel);
            handler->home();
            const Spot before = draw();
            ASSERT_GT(before.numPixels, 20u);
            EXPECT_GT(before.x, 0.05);
            EXPECT_GT(before.y, 0.05);

            handler->zoomAt(1.6, before.x, before.y);
            const Spot nearer = draw();
            EXPECT_NEAR(nearer.x, before.x, 0.01); // a pixel is 0.01 wide
            EXPECT_NEAR(nearer.y, before.y, 0.01);
            EXPECT_GT(nearer.numPixels, 1.2 * static_cast<double>(before.numPixels));
            handler->zoomAt(1.0 / 1.6, before.x, before.y);
            handler->pan(-0.3, 0.2);
            const Spot moved = draw();
            const double share = parallel ? 1.0 : 6.0 / (6.0 - static_cast<double>(depth)); // what is behind moves less
            EXPECT_NEAR(moved.x, before.x - 0.3 * share, 0.01);
            EXPECT_NEAR(moved.y, before.y + 0.2 * share, 0.01);
        }
    }
}

TEST_F(KrOrbitInputHandlerTest, FitsWhatIsShownWhateverThePictureAndTheDirection)
{
    window.setNode(ball(osg::Vec3(5.0f, 1.0f, -2.0f), 2.0f));
    const osg::ref_ptr<osg::Group> hidden = ball(osg::Vec3(), 50.0f);
    hidden->setNodeMask(KrRenderTypes::BoundingVolumes);
    window.setNode(hidden);
    window.renderScene(false);
    window.setOverlayText("far away from everything", 100, 100, KrColor(1.0, 1.0, 1.0));
    for (const unsigned int width : {200u, 60u}) {
        ASSERT_TRUE(window.setWindowSize(width, 150));
        for (const bool parallel : {false, true}) {
            handler->setParallel(parallel);
            handler->lookFrom(0.3, 0.4);
            window.renderScene(false);
            ASSERT_TRUE(handler->fit());
            for (int i = 0; i < 6; ++i) {
                const Spot spot = draw();
                EXPECT_TRUE(spot.isInside()) << width << ' ' << parallel << ' ' << i;
                EXPECT_GT(std::max(spot.right - spot.left, spot.top - spot.bottom), 1.0);
                EXPECT_NEAR(spot.x, 0.0, 0.02);
                handler->orbit(1.0, 0.3);
            }
        }
    }
    window.setDisplayMask(KrRenderTypes::BoundingVolumes, true, false);
    handler->setParallel(false);
    ASSERT_TRUE(handler->fit());
    EXPECT_GT(window.getPovParameters().viewingDistance(), 50.0);
}

TEST_F(KrOrbitInputHandlerTest, FollowsMouseAndKeysWithinTheFrameThatTheyComeIn)
{
    window.setNode(ball(osg::Vec3(0.0f, 0.0f, 0.0f), 1.0f));
    window.renderScene(false);
    const osg::Vec3d start = eyeOf(*handler);

    drag(1, 100, 75, 125, 75); // to the right by a sixth of the height: the eye goes clockwise
    expectNear(eyeOf(*handler), osg::Quat(-kPi / 6.0, osg::Vec3d(0.0, 0.0, 1.0)) * start, kPixel);
    drag(1, 100, 75, 100, 100); // downwards: the eye rises
    EXPECT_NEAR(eyeOf(*handler).z(), 6.0 * std::sin(kPi / 6.0), kPixel);
    expectOneView();

    const double distance = window.getPovParameters().viewingDistance();
    queue().mouseMotion(150.0f, 40.0f);
    queue().mouseScroll(osgGA::GUIEventAdapter::SCROLL_UP);
    window.renderScene(false);
    EXPECT_LT(window.getPovParameters().viewingDistance(), 0.95 * distance);
    expectOneView();
    drag(3, 100, 75, 100, 50);
    EXPECT_LT(window.getPovParameters().viewingDistance(), 0.7 * distance);
    expectOneView();
    const KrVector centre = window.getPovParameters().centerOfInterest();
    drag(2, 100, 75, 130, 75);
    EXPECT_GT((window.getPovParameters().centerOfInterest() - centre).length(), 0.1);
    expectOneView();

    queue().keyPress(' ');
    window.renderScene(false);
    expectNear(eyeOf(*handler), start, 1e-5);
    queue().mouseDoubleButtonPress(100.0f, 75.0f, 1);
    window.renderScene(false);
    EXPECT_NEAR(window.getPovParameters().centerOfInterest().x(), 1.0, 0.02); // the front of the ball
    queue().keyPress('7');
    window.renderScene(false);
    // The sphere about the ball's box, which has the radius sqrt(3), is in the picture.
    const double fitted = std::sqrt(3.0) / std::sin(0.5 * window.getPovParameters().fieldOfView());
    expectNear(eyeOf(*handler), osg::Vec3d(0.0, 0.0, fitted), 0.01);
    expectNear(rightOf(*handler), osg::Vec3d(1.0, 0.0, 0.0), kRound);

    // The client's word counts, whenever it comes.
    window.setPovParameters(pov(KrVector(0.0, -3.0, 0.0), KrVector(0.0, 0.0, 0.0)));
    handler->orbit(kPi / 2.0, 0.0);
    expectNear(eyeOf(*handler), osg::Vec3d(3.0, 0.0, 0.0), 1e-5);
    window.closeWindow();
    handler->orbit(kPi / 2.0, 0.0);
    handler->zoomAt(2.0, 0.3, 0.3);
    EXPECT_FALSE(handler->fit());
}

TEST_F(KrOrbitInputHandlerTest, GoesHomeWithTheLensThatTheWindowHas)
{
    KrPovParameters zoomed = pov(KrVector(0.0, 4.0, 0.0), KrVector(0.0, 1.0, 0.0));
    zoomed.setFieldOfView(1.25);
    window.setPovParameters(zoomed);
    handler->home();
    EXPECT_EQ(window.getPovParameters().fieldOfView(), 1.25);
    expectNear(eyeOf(*handler), osg::Vec3d(6.0, 0.0, 0.0), kRound);
    window.setPovParameters(zoomed);
    window.setInputHandler(handler); // sends it home, too
    EXPECT_EQ(window.getPovParameters().fieldOfView(), 1.25);
}

TEST(KrOrbitInputHandlerInSeveralViews, TakesViewZeroForItsPicture)
{
    KrMultiRenderWindow window(200, 150, 2);
    window.setPovParameters(pov(KrVector(6.0, 0.0, 0.0), KrVector(0.0, 0.0, 0.0)));
    if (!window.init()) {
        GTEST_SKIP() << window.report().text();
    }
    window.setBackgroundColor(KrColor(0.0, 0.0, 1.0));
    const osg::ref_ptr<KrOrbitInputHandler> handler = new KrOrbitInputHandler(&window);
    window.setInputHandler(handler);
    window.setNode(ball(osg::Vec3(), 1.0f));
    window.setEyePoints({KrVector(), KrVector(0.0, -6.0, 0.0)});
    KrImage image;
    for (const bool parallel : {false, true}) {
        handler->setParallel(parallel);
        ASSERT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
        const Spot spot(image);
        EXPECT_NEAR((spot.right - spot.left) * 200.0, (spot.top - spot.bottom) * 150.0, 4.0) << "a ball is round";
        EXPECT_TRUE(spot.isInside());
    }
    handler->setParallel(false);

    auto* const context = window.getViewer()->getCamera()->getGraphicsContext();
    osgGA::EventQueue& queue = *static_cast<osgViewer::GraphicsWindow*>(context)->getEventQueue();
    const auto eye = [&window] { return window.getPovParameters().eyepoint(); };
    queue.mouseButtonPress(100.0f, 75.0f, 1);
    queue.mouseMotion(125.0f, 75.0f); // a sixth of the height of the view
    queue.mouseButtonRelease(125.0f, 75.0f, 1);
    window.renderScene(false);
    EXPECT_NEAR(eye().y(), -6.0 * std::sin(kPi / 6.0), kPixel);

    const KrVector before = eye();
    queue.mouseButtonPress(300.0f, 75.0f, 1); // begins over the other view, ends over this one
    queue.mouseMotion(100.0f, 50.0f);
    queue.mouseButtonRelease(100.0f, 50.0f, 1);
    queue.mouseDoubleButtonPress(300.0f, 75.0f, 1);
    window.renderScene(false);
    EXPECT_EQ(eye(), before);
    queue.mouseDoubleButtonPress(100.0f, 75.0f, 1);
    window.renderScene(false);
    EXPECT_NEAR(window.getPovParameters().centerOfInterest().length(), 1.0, 0.02) << "the middle of view 0";
}

TEST_F(KrOrbitInputHandlerTest, MovesWithoutAllocating)
{
    window.setNode(ball(osg::Vec3(0.0f, 0.0f, 0.0f), 1.0f));
    window.renderScene(false);
    std::size_t before = 0;
    for (int i = 0; i < 100; ++i) {
        before = i == 1 ? Allocations::now().withNew : before; // the first sets the window up
        handler->orbit(0.01, 0.01);
        handler->pan(0.01, -0.01);
        handler->zoomAt(1.01, 0.2, 0.3);
        window.updateScene();
        handler->updateCamera(*window.getViewer()->getCamera());
    }
    EXPECT_EQ(Allocations::now().withNew - before, 0u);
}

} // namespace
