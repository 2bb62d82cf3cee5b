#include <rendCore/KrSGWindow.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/Pictures.h>

#include <osg/CullFace>
#include <osg/Geode>
#include <osg/PolygonMode>
#include <osg/ShadeModel>
#include <osg/ShapeDrawable>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace
{

/// A ball of radius 1 and the given colour at `centre`.
osg::ref_ptr<osg::Group> ball(const osg::Vec3& centre, const osg::Vec4& colour)
{
    const osg::ref_ptr<osg::ShapeDrawable> drawable = new osg::ShapeDrawable(new osg::Sphere(centre, 1.0f));
    drawable->setColor(colour);
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(drawable);
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(geode);
    return group;
}

KrPovParameters pov(const KrVector& eye, const KrVector& up = KrVector(0.0, 1.0, 0.0))
{
    KrPovParameters result;
    result.setEyepoint(eye);
    result.setUp(up);
    return result;
}

class OpenWindow : public KrSGWindow
{
public:
    using KrSGWindow::m_coiTransform;
    using KrSGWindow::m_dirtyFlags;
    using KrSGWindow::m_lights;
    using KrSGWindow::m_overlayCamera;
    using KrSGWindow::m_sceneRoot;

    osg::Matrixd projection() { return getViewer()->getCamera()->getProjectionMatrix(); }
    bool capture(KrImage& image, unsigned int flags = CaptureColor)
    {
        const bool ok = renderSceneAndCaptureImage(image, flags);
        makeCurrent();
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        return ok;
    }
};

class KrSGWindowTest : public testing::Test
{
protected:
    void SetUp() override
    {
        window.setWindowSize(128, 96);
        if (!window.init()) {
            GTEST_SKIP() << window.report().text();
        }
        window.setBackgroundColor(KrColor(0.0, 0.0, 1.0));
        window.setPovParameters(pov(KrVector(0.0, 0.0, 6.0)));
    }
    OpenWindow window;
};

TEST(KrSGWindowUnopened, HasTheStatedDefaults)
{
    const KrSGWindow window;
    EXPECT_EQ(window.displayMask(), 1u);
    EXPECT_EQ(window.viewerAttribute(), 0x15u);
    EXPECT_EQ(window.aspectRatio(), 1.0);
    EXPECT_FALSE(window.getOffScreenRendering());
    EXPECT_EQ(window.getViewer(), nullptr);
    EXPECT_EQ(window.getName(), "KrSGWindow");
    EXPECT_TRUE(window.selfTest());
}

TEST(KrSGWindowUnopened, IsSafeToUse)
{
    KrSGWindow window;
    EXPECT_FALSE(window.loadScene());
    EXPECT_TRUE(window.updateScene());
    window.setLights();
    window.deleteContents();
    window.setInputHandler(new KrSGBaseInputHandler(&window));
    window.setOverlayText("text", 0, 0, KrColor());
    window.setGuiMarkerMatrix(KrRenderTypes::GlobalAxisMarker, osg::Matrixd());
    EXPECT_TRUE(window.closeWindow());
}

TEST_F(KrSGWindowTest, InitIsIdempotentAndLoadSceneResetsThePrimaryMaskOnly)
{
    const osgViewer::Viewer* const viewer = window.getViewer();
    ASSERT_TRUE(window.init());
    EXPECT_EQ(window.getViewer(), viewer);
    window.setDisplayMask(0xC, true, false);
    window.setDisplayMask(0x2000, true, true);
    EXPECT_FALSE(window.displayMask(0x2000));
    EXPECT_TRUE(window.getViewer()->getCamera()->getCullMask() & 0x2000);
    window.loadScene();
    EXPECT_EQ(window.displayMask(), 1u);
    EXPECT_EQ(window.getViewer()->getCamera()->getCullMask(), 0x2001u);
    EXPECT_EQ(window.getNode()->getNumChildren(), 3u);
}

TEST_F(KrSGWindowTest, ProjectionFollowsPovAspectAndAttributes)
{
    double left, right, bottom, top, near, far;
    window.setPovParameters(pov(KrVector(0.0, 0.0, 80.0)));
    window.updateScene();
    ASSERT_TRUE(window.projection().getFrustum(left, right, bottom, top, near, far));
    EXPECT_NEAR(near, 10.0, 1e-9);
    EXPECT_NEAR(far, 160.0, 1e-6);
    EXPECT_NEAR(right / top, 128.0 / 96.0, 1e-12);
    EXPECT_NEAR(top / near, std::tan(osg::PI / 8.0), 1e-12);

    window.setPovParameters(pov(KrVector(0.0, 0.0, 0.004)));
    window.updateScene();
    ASSERT_TRUE(window.projection().getFrustum(left, right, bottom, top, near, far));
    EXPECT_NEAR(near, 0.001, 1e-12);

    window.setViewerAttribute(KrSGWindow::Orthographic, true);
    EXPECT_NEAR(window.projection()(2, 3), -1.0, 1e-12) << "nothing before the next update";
    window.updateScene();
    EXPECT_EQ(window.projection(), osg::Matrixd::ortho(0, 1, 0, 1, -1, 1));
    window.setViewerAttribute(KrSGWindow::Orthographic, false);
    window.updateScene();
    EXPECT_NEAR(window.projection()(2, 3), -1.0, 1e-12);
}

TEST_F(KrSGWindowTest, ViewerAttributesReachTheRootAndOnlyWhatExistsIsChanged)
{
    window.updateScene();
    osg::StateSet* const states = window.m_sceneRoot->getStateSet();
    EXPECT_EQ(states->getMode(GL_LIGHTING), osg::StateAttribute::ON);
    EXPECT_EQ(states->getTextureMode(0, GL_TEXTURE_2D), osg::StateAttribute::ON);
    EXPECT_EQ(states->getAttribute(osg::StateAttribute::POLYGONMODE), nullptr);
    window.setViewerAttribute(KrSGWindow::Lighting | KrSGWindow::Texturing | KrSGWindow::SmoothShading, false);
    window.setViewerAttribute(KrSGWindow::Wireframe | KrSGWindow::CullBackFaces, true);
    window.updateScene();
    EXPECT_EQ(states->getMode(GL_LIGHTING), 2u);
    EXPECT_EQ(states->getTextureMode(0, GL_TEXTURE_2D), 2u);
    EXPECT_EQ(states->getMode(GL_CULL_FACE), 3u);
    const auto* polygon = dynamic_cast<osg::PolygonMode*>(states->getAttribute(osg::StateAttribute::POLYGONMODE));
    ASSERT_NE(polygon, nullptr);
    EXPECT_EQ(polygon->getMode(osg::PolygonMode::FRONT), osg::PolygonMode::LINE);
    const auto* shade = dynamic_cast<osg::ShadeModel*>(states->getAttribute(osg::StateAttribute::SHADEMODEL));
    ASSERT_NE(shade, nullptr);
    EXPECT_EQ(shade->getMode(), osg::ShadeModel::FLAT);
    window.setViewerAttribute(KrSGWindow::Wireframe | KrSGWindow::CullBackFaces, false);
    window.updateScene();
    EXPECT_EQ(polygon->getMode(osg::PolygonMode::FRONT), osg::PolygonMode::FILL);
    EXPECT_EQ(states->getMode(GL_CULL_FACE), 0u);
}

TEST_F(KrSGWindowTest, NodesAreAddedOnceAndALightSourceBecomesTheRoot)
{
    EXPECT_FALSE(window.setNode(nullptr));
    const osg::ref_ptr<osg::Group> group = ball(osg::Vec3(), osg::Vec4(1, 0, 0, 1));
    EXPECT_TRUE(window.setNode(group));
    EXPECT_TRUE(window.setNode(group));
    EXPECT_EQ(group->getNumParents(), 1u);
    const osg::ref_ptr<osg::LightSource> root = new osg::LightSource;
    EXPECT_TRUE(window.setNode(root));
    EXPECT_EQ(window.getNode(), root);
    EXPECT_EQ(window.getPovParameters().eyepoint(), KrVector(0.0, 0.0, 6.0)) << "new scene data sent the camera home";
    EXPECT_TRUE(window.renderScene(true));
}

TEST_F(KrSGWindowTest, TheFirstFrameIsCapturedAndOrientedBottomRowFirst)
{
    window.setNode(ball(osg::Vec3(0.0f, 1.2f, 0.0f), osg::Vec4(1, 0, 0, 1)));
    KrImage image;
    ASSERT_TRUE(window.capture(image));
    ASSERT_EQ(image.width(), 128u);
    ASSERT_EQ(image.channels(), 3u);
    EXPECT_GT(meanColour(image, 64, 72, 3)[0], 100.0);
    EXPECT_NEAR(meanColour(image, 64, 24, 3)[2], 255.0, 0.5);

    // The flipped storage is the same bytes, kept apart; a block comes from the whole.
    KrImage flipped;
    ASSERT_TRUE(window.capture(flipped, KrSGWindow::CaptureFlipped));
    ASSERT_NE(flipped.flippedData(), nullptr);
    EXPECT_EQ(flipped.data(), nullptr);
    EXPECT_EQ(std::memcmp(flipped.flippedData(), image.data(), image.sizeInBytes()), 0);
    KrImage part;
    const KrImageBlock block = {60, 68, 8, 8};
    ASSERT_TRUE(window.renderSceneAndCaptureImage(part, KrSGWindow::CaptureColor, &block));
    EXPECT_EQ(part.width(), 8u);
    EXPECT_GT(meanColour(part, 4, 4, 3)[0], 100.0);
    EXPECT_FALSE(window.renderSceneAndCaptureImage(part, KrSGWindow::CaptureColor, nullptr));
}

TEST_F(KrSGWindowTest, NothingIsReadBackOnceACaptureIsOver)
{
    window.setNode(ball(osg::Vec3(), osg::Vec4(1, 0, 0, 1)));
    KrImage image;
    const osg::ref_ptr<KrSGWindow::ImageCaptureDrawCallback> callback =
        new KrSGWindow::ImageCaptureDrawCallback(&image, KrSGWindow::CaptureColor);
    window.setDrawCallback(callback);
    ASSERT_TRUE(window.renderScene(true));
    window.setDrawCallback(nullptr);
    std::memset(callback->getCapturedImage()->data(), 7, callback->getCapturedImage()->getTotalSizeInBytes());
    ASSERT_TRUE(window.renderScene(true));
    EXPECT_EQ(callback->getCapturedImage()->data()[100], 7);
}

TEST_F(KrSGWindowTest, DepthIsDarkerNearerAndZeroWhereNothingIs)
{
    KrImage depth;
    ASSERT_TRUE(window.capture(depth, KrSGWindow::CaptureDepth));
    ASSERT_EQ(depth.channels(), 1u);
    EXPECT_EQ(std::count(depth.data(), depth.data() + depth.sizeInBytes(), 0), 128 * 96) << "an empty scene";
    window.setNode(ball(osg::Vec3(), osg::Vec4(1, 0, 0, 1)));
    ASSERT_TRUE(window.capture(depth, KrSGWindow::CaptureDepth));
    const auto at = [&depth](int x, int y) { return int(depth.data()[y * 128 + x]); };
    EXPECT_EQ(at(2, 2), 0);
    EXPECT_LT(at(64, 48), 5) << "the nearest point";
    EXPECT_GT(at(64 + 15, 48), at(64 + 8, 48));
    EXPECT_GT(at(64 + 8, 48), at(64, 48));
}

TEST_F(KrSGWindowTest, RemapsInjectedDepthsAsStated)
{
    class Injected : public KrSGWindow::ImageCaptureDrawCallback
    {
    public:
        Injected(KrImage* image, std::initializer_list<std::uint32_t> depths)
            : ImageCaptureDrawCallback(image, KrSGWindow::CaptureDepth)
        {
            m_width = static_cast<std::uint32_t>(depths.size());
            m_height = 1;
            m_sceneImage->allocateImage(static_cast<int>(m_width), 1, 1, GL_DEPTH_COMPONENT, GL_UNSIGNED_INT);
            std::copy(depths.begin(), depths.end(), reinterpret_cast<std::uint32_t*>(m_sceneImage->data()));
        }
    };
    GLint depthBits = 0;
    glGetIntegerv(GL_DEPTH_BITS, &depthBits);
    if (depthBits != 32) {
        GTEST_SKIP() << "the cleared depth of " << depthBits << " bits differs";
    }
    KrImage image;
    osg::ref_ptr<Injected> callback = new Injected(&image, {0xFFFFFFFF, 1000, 1128, 1255, 1256});
    callback->remapDepthBuffer();
    const unsigned char expected[] = {0, 0, 128, 255, 0}; // the farthest wraps like the background
    EXPECT_EQ(std::memcmp(image.data(), expected, sizeof expected), 0);
    callback = new Injected(&image, {77, 77, 0xFFFFFFFF}); // one depth only: 0/0
    callback->remapDepthBuffer();
    EXPECT_EQ(image.data()[0], 0);
}

TEST_F(KrSGWindowTest, CallbacksFailAsStated)
{
    MessageRecorder messages;
    KrImage image;
    const osg::ref_ptr<KrSGWindow::ImageCaptureDrawCallback> noTarget =
        new KrSGWindow::ImageCaptureDrawCallback(nullptr, KrSGWindow::CaptureColor);
    EXPECT_FALSE(noTarget->render(nullptr));
    EXPECT_EQ(messages.count(Kr::Print::Error, "ImageCaptureCallback::Invalid viewer pointer.\n"), 1u);
    window.setDrawCallback(noTarget);
    EXPECT_TRUE(window.renderScene(true));
    EXPECT_EQ(messages.count(Kr::Print::Warning, "Capturing image without KrImage allocated for storage.\n"), 1u);
    ASSERT_TRUE(window.capture(image));
    EXPECT_EQ(messages.count(Kr::Print::Error, "Capturing image with a callback already in place.\n"), 1u);
    EXPECT_EQ(window.getDrawCallback(), nullptr);
    EXPECT_EQ(messages.count(), 3u);
}

TEST_F(KrSGWindowTest, OffScreenAndBackAndAtANewSizeDrawTheSame)
{
    window.setNode(ball(osg::Vec3(0.0f, 1.2f, 0.0f), osg::Vec4(1, 0, 0, 1)));
    KrImage onScreen, offScreen, back;
    ASSERT_TRUE(window.capture(onScreen));
    window.setOffScreenRendering(true);
    EXPECT_TRUE(window.getOffScreenRendering());
    ASSERT_TRUE(window.capture(offScreen));
    EXPECT_EQ(std::memcmp(offScreen.data(), onScreen.data(), onScreen.sizeInBytes()), 0);
    ASSERT_TRUE(window.setWindowSize(256, 192));
    ASSERT_TRUE(window.capture(offScreen));
    ASSERT_EQ(offScreen.width(), 256u);
    EXPECT_GT(meanColour(offScreen, 128, 144, 5)[0], 100.0);
    EXPECT_NEAR(meanColour(offScreen, 250, 186, 3)[2], 255.0, 0.5);
    window.setOffScreenRendering(false);
    window.setWindowSize(128, 96);
    ASSERT_TRUE(window.capture(back));
    EXPECT_EQ(std::memcmp(back.data(), onScreen.data(), onScreen.sizeInBytes()), 0);
}

TEST_F(KrSGWindowTest, ResizingKeepsProportions)
{
    window.setNode(ball(osg::Vec3(), osg::Vec4(1, 0, 0, 1)));
    window.setWindowSize(64, 0);
    EXPECT_EQ(window.aspectRatio(), 1.0);
    window.setWindowSize(240, 120);
    KrImage image;
    ASSERT_TRUE(window.capture(image));
    unsigned int width = 0, height = 0;
    for (unsigned int x = 0; x < 240; ++x) {
        width += image.data()[(60 * 240 + x) * 3] > 20 ? 1 : 0;
    }
    for (unsigned int y = 0; y < 120; ++y) {
        height += image.data()[(y * 240 + 120) * 3] > 20 ? 1 : 0;
    }
    EXPECT_NEAR(width, height, 2.0);
    EXPECT_GT(height, 30u);
}

TEST_F(KrSGWindowTest, LightsLightAndCanBeSwitchedOff)
{
    window.setNode(ball(osg::Vec3(), osg::Vec4(1, 1, 1, 1)));
    KrLightParameters lights;
    lights.lights().resize(2);
    lights.lights()[0].setDiffuse(KrColor(1.0, 0.0, 0.0));
    lights.lights()[0].setSpecular(KrColor(0.0, 0.0, 0.0));
    lights.lights()[1].setOn(false);
    lights.lights()[1].setDiffuse(KrColor(0.0, 1.0, 0.0));
    window.loadLight(lights);
    KrImage image;
    ASSERT_TRUE(window.capture(image));
    const auto red = meanColour(image, 64, 48, 3);
    EXPECT_GT(red[0], red[1] + 60.0);
    EXPECT_EQ(window.m_lights.size(), 2u);

    lights.lights()[1].setOn(true);
    window.loadLight(lights);
    ASSERT_TRUE(window.capture(image));
    EXPECT_GT(meanColour(image, 64, 48, 3)[1], red[1] + 60.0) << "light 1 lights";

    lights.lights()[0].setOn(false);
    lights.lights()[1].setOn(false);
    window.loadLight(lights);
    ASSERT_TRUE(window.capture(image));
    const auto own = meanColour(image, 64, 48, 3);
    EXPECT_NEAR(own[0], own[1], 2.0) << "the root's own light is back";

    const unsigned int children = window.getNode()->getNumChildren();
    lights.lights().resize(1);
    window.loadLight(lights);
    EXPECT_EQ(window.m_lights.size(), 1u);
    EXPECT_EQ(window.getNode()->getNumChildren(), children) << "a surplus light source stays in the scene";
}

TEST_F(KrSGWindowTest, ManyLightsGiveNoGLError)
{
    KrLightParameters lights;
    lights.lights().resize(12);
    window.loadLight(lights);
    KrImage image;
    EXPECT_TRUE(window.capture(image));
}

TEST_F(KrSGWindowTest, OverlayTextAndMarkersAreKeptAsStated)
{
    window.setOverlayText("a", 0, 0, KrColor(1, 1, 1));
    window.setOverlayText("b", 10, 20, KrColor(1, 1, 1));
    ASSERT_EQ(window.m_overlayCamera->getNumChildren(), 2u);
    EXPECT_TRUE(window.renderScene(true));
    window.clearAllOverlayText();
    EXPECT_EQ(window.m_overlayCamera->getNumChildren(), 0u);

    MessageRecorder messages;
    const osg::Matrixd pose = osg::Matrixd::rotate(1.0, osg::Vec3d(1, 0, 0)) * osg::Matrixd::translate(1, 2, 3);
    window.setGuiMarkerMatrix(KrRenderTypes::CenterOfInterestMarker, pose);
    const osg::Matrixd coi = window.m_coiTransform->getMatrix();
    EXPECT_EQ(coi.getTrans(), osg::Vec3d(1, 2, 3));
    EXPECT_EQ(coi(1, 2), 0.0) << "a ball has no rotation to show";
    EXPECT_EQ(window.getViewer()->getCamera()->getCullMask() & 0x3000, 0x2000u);
    EXPECT_EQ(messages.count(), 0u);
    window.setGuiMarkerMatrix(static_cast<KrRenderTypes::DisplayAttributes>(0x3000), pose);
    EXPECT_EQ(messages.count(Kr::Print::Warning, "Invalid GUI marker\n"), 1u);
}

TEST_F(KrSGWindowTest, AnImageFillsTheWindowPixelByPixel)
{
    KrImage image, out;
    for (const unsigned int width : {64u, 50u}) {
        image.allocate(3, 0, width, 48);
        for (std::size_t i = 0; i < image.sizeInBytes(); ++i) {
            image.data()[i] = static_cast<unsigned char>(i * 37 + width);
        }
        ASSERT_TRUE(window.setImageBuffer(image, true));
        ASSERT_TRUE(window.capture(out));
        ASSERT_EQ(out.sizeInBytes(), image.sizeInBytes());
        EXPECT_EQ(std::memcmp(out.data(), image.data(), image.sizeInBytes()), 0) << "width " << width;
    }
}

TEST_F(KrSGWindowTest, EscapeAndQuitDoNotFreezeTheWindow)
{
    osgGA::EventQueue* const queue =
        dynamic_cast<osgViewer::GraphicsWindow*>(window.getViewer()->getCamera()->getGraphicsContext())
            ->getEventQueue();
    queue->keyPress(osgGA::GUIEventAdapter::KEY_Escape);
    queue->keyRelease(osgGA::GUIEventAdapter::KEY_Escape);
    queue->quitApplication();
    window.renderScene(true);
    EXPECT_FALSE(window.getViewer()->done());
}

TEST_F(KrSGWindowTest, OpensAgainAfterClosingWithWhatItWasTold)
{
    const osg::ref_ptr<osg::Group> red = ball(osg::Vec3(), osg::Vec4(1, 0, 0, 1));
    window.setNode(red);
    KrImage before, after;
    ASSERT_TRUE(window.capture(before));
    EXPECT_TRUE(window.closeWindow());
    EXPECT_TRUE(window.closeWindow());
    EXPECT_EQ(window.getViewer(), nullptr);
    EXPECT_EQ(KrWindow::getWindow(), nullptr);
    ASSERT_TRUE(window.init());
    window.setNode(red);
    ASSERT_TRUE(window.capture(after));
    EXPECT_EQ(std::memcmp(before.data(), after.data(), before.sizeInBytes()), 0);
}

TEST_F(KrSGWindowTest, ClosingOneWindowLeavesTheOthersPictureAlone)
{
    window.setNode(ball(osg::Vec3(), osg::Vec4(1, 0, 0, 1)));
    KrImage before, after, otherImage;
    ASSERT_TRUE(window.capture(before));
    {
        OpenWindow other;
        other.setWindowSize(100, 80);
        other.setPovParameters(pov(KrVector(0.0, 0.0, 6.0)));
        ASSERT_TRUE(other.init());
        other.setNode(ball(osg::Vec3(), osg::Vec4(0, 1, 0, 1)));
        ASSERT_TRUE(other.capture(otherImage));
        EXPECT_GT(meanColour(otherImage, 50, 40, 3)[1], 100.0);
        ASSERT_TRUE(window.capture(after));
        EXPECT_EQ(std::memcmp(before.data(), after.data(), before.sizeInBytes()), 0);
    }
    EXPECT_EQ(KrWindow::getWindow(), &window) << "the context that was current is put back";
    ASSERT_TRUE(window.capture(after));
    EXPECT_EQ(std::memcmp(before.data(), after.data(), before.sizeInBytes()), 0);
}

// A node hidden in the last frame keeps its GL names; the next window gets the same context number.
TEST_F(KrSGWindowTest, NodesThatOutliveAWindowDrawRightInTheNextOne)
{
    const osg::ref_ptr<osg::Group> kept = ball(osg::Vec3(), osg::Vec4(1, 0, 0, 1));
    window.setNode(kept);
    KrImage before, after;
    ASSERT_TRUE(window.capture(before));
    kept->setNodeMask(0);
    window.renderScene(true);
    window.closeWindow();
    kept->setNodeMask(1);
    OpenWindow next;
    next.setWindowSize(128, 96);
    next.setPovParameters(pov(KrVector(0.0, 0.0, 6.0)));
    next.setBackgroundColor(KrColor(0.0, 0.0, 1.0));
    ASSERT_TRUE(next.setNode(kept));
    ASSERT_TRUE(next.capture(after));
    EXPECT_EQ(std::memcmp(before.data(), after.data(), before.sizeInBytes()), 0);
}

} // namespace
