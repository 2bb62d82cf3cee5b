#include <rendCore/aids/KrRenderAxis.h>
#include <rendCore/window/KrSGBaseInputHandler.h>
#include <rendCore/window/KrSGDrawCallbacks.h>
#include <rendCore/window/KrSGWindow.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/Pictures.h>

#include <osg/CullFace>
#include <osg/GLExtensions>
#include <osg/Geode>
#include <osg/LightSource>
#include <osg/PolygonMode>
#include <osg/ShadeModel>
#include <osg/ShapeDrawable>
#include <osgGA/EventQueue>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

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

/// A capture of depths that were never drawn.
class Injected : public KrSGWindow::ImageCaptureDrawCallback
{
public:
    Injected(KrImage* image, const std::vector<std::uint32_t>& depths)
        : ImageCaptureDrawCallback(image, KrSGWindow::CaptureDepth)
    {
        m_width = static_cast<std::uint32_t>(depths.size());
        m_height = 1;
        m_sceneImage->allocateImage(static_cast<int>(m_width), 1, 1, GL_DEPTH_COMPONENT, GL_UNSIGNED_INT);
        std::copy(depths.begin(), depths.end(), reinterpret_cast<std::uint32_t*>(m_sceneImage->data()));
    }
};

/// A bound framebuffer object with a depth of that format.
class DepthTarget
{
public:
    DepthTarget(osg::State& state, GLenum format)
    {
        state.initializeExtensionProcs();
        m_gl = state.get<osg::GLExtensions>();
        m_gl->glGenFramebuffers(1, &m_framebuffer);
        m_gl->glGenRenderbuffers(2, m_buffers);
        m_gl->glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
        attach(0, GL_RGBA8, GL_COLOR_ATTACHMENT0);
        attach(1, format, GL_DEPTH_ATTACHMENT);
    }
    ~DepthTarget()
    {
        m_gl->glBindFramebuffer(GL_FRAMEBUFFER, 0);
        m_gl->glDeleteFramebuffers(1, &m_framebuffer);
        m_gl->glDeleteRenderbuffers(2, m_buffers);
    }
    static GLint depthBits()
    {
        GLint bits = 0;
        glGetIntegerv(GL_DEPTH_BITS, &bits);
        return bits;
    }

private:
    void attach(int buffer, GLenum format, GLenum place)
    {
        m_gl->glBindRenderbuffer(GL_RENDERBUFFER, m_buffers[buffer]);
        m_gl->glRenderbufferStorage(GL_RENDERBUFFER, format, 8, 8);
        m_gl->glFramebufferRenderbuffer(GL_FRAMEBUFFER, place, GL_RENDERBUFFER, m_buffers[buffer]);
    }

    const osg::GLExtensions* m_gl = nullptr;
    GLuint m_framebuffer = 0;
    GLuint m_buffers[2] = {};
};

TEST_F(KrSGWindowTest, RemapsInjectedDepthsAsStated)
{
    struct Case
    {
        GLenum format;
        GLint bits;
        std::vector<std::uint32_t> depths;
        std::vector<unsigned char> bytes; ///< the farthest wraps like the background
    };
    const Case cases[] = {
        {GL_DEPTH_COMPONENT16, 16, {0xFFFF0000, 0xFFFC0000, 0xFFFD0000, 0xFFFE0000}, {0, 0, 128, 0}},
        // Background is 0xFFFFF700 and no other; as the first minimum it is also the least that counts.
        {GL_DEPTH_COMPONENT24, 24, {0xFFFFF700, 0xFFFFFE00, 0xFFFFFE80, 0xFFFFFF00}, {0, 224, 240, 0}},
        {GL_DEPTH_COMPONENT24, 24, {0xFFFFF700, 1000, 1128, 1256}, {0, 0, 128, 0}},
        {GL_DEPTH_COMPONENT32, 32, {0xFFFFFFFF, 1000, 1128, 1255, 1256}, {0, 0, 128, 255, 0}},
        {GL_DEPTH_COMPONENT32, 32, {77, 77, 0xFFFFFFFF}, {0, 0, 0}}, // one depth only: 0/0
    };
    osg::State& state = *window.getViewer()->getCamera()->getGraphicsContext()->getState();
    int numTried = 0;
    for (const Case& test : cases) {
        const DepthTarget target(state, test.format);
        if (DepthTarget::depthBits() != test.bits) {
            continue;
        }
        ++numTried;
        KrImage image;
        const osg::ref_ptr<Injected> callback = new Injected(&image, test.depths);
        callback->remapDepthBuffer();
        ASSERT_EQ(image.sizeInBytes(), test.bytes.size());
        EXPECT_EQ(std::vector<unsigned char>(image.data(), image.data() + image.sizeInBytes()), test.bytes)
            << test.bits << " bits";
    }
    EXPECT_GT(numTried, 0) << "the driver has none of these depths";
}

TEST_F(KrSGWindowTest, CapturesNoMoreThanTheTargetTakes)
{
    class Small : public KrImage
    {
    public:
        Small() { KrImage::allocate(1, 7, 2, 1); }
        void allocate(unsigned int, unsigned int, unsigned int, unsigned int) override {}
    };
    Small small;
    ASSERT_TRUE(window.capture(small, KrSGWindow::CaptureDepth));
    EXPECT_EQ(small.data()[1], 0);
    ASSERT_TRUE(window.capture(small));
    EXPECT_EQ(small.data()[1], 0);
    EXPECT_EQ(small.sizeInBytes(), 2u);
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

TEST_F(KrSGWindowTest, LightFromEverywhereReachesWhatNoLampDoesAndOutlivesTheContext)
{
    KrLightParameters lights; // all off: the root's own is light 0
    lights.lights().resize(1);
    lights.lights()[0].setDiffuse(KrColor(0.0, 0.0, 0.0));
    lights.lights()[0].setSpecular(KrColor(0.0, 0.0, 0.0));
    lights.lights()[0].setAmbient(KrColor(0.0, 0.0, 0.0));
    KrImage image;
    const auto seen = [&] {
        window.setNode(ball(osg::Vec3(), osg::Vec4(1, 1, 1, 1)));
        window.loadLight(lights);
        EXPECT_TRUE(window.capture(image));
        return meanColour(image, 64, 48, 3);
    };
    const auto before = seen();
    window.setAmbientLight(KrColor(0.1, 0.8, 0.5));
    const auto after = seen();
    EXPECT_LT(after[0], before[0] - 20.0);
    EXPECT_GT(after[1], before[1] + 20.0);
    EXPECT_NEAR(after[2], before[2], 2.0) << "0.5 is what a window begins with";
    ASSERT_TRUE(window.closeWindow());
    ASSERT_TRUE(window.init());
    const auto again = seen();
    EXPECT_NEAR(again[0], after[0], 2.0);
    EXPECT_NEAR(again[1], after[1], 2.0);
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

/// What was drawn in another colour than white: columns and rows, row 0 at the bottom.
struct Extent
{
    explicit Extent(const KrSGWindow& window)
    {
        const std::size_t width = window.windowWidth();
        const std::size_t height = window.windowHeight();
        std::vector<unsigned char> pixels(3 * width * height);
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        glReadPixels(0, 0, static_cast<int>(width), static_cast<int>(height), GL_RGB, GL_UNSIGNED_BYTE, pixels.data());
        for (std::size_t i = 0; i < width * height; ++i) {
            const unsigned char* const pixel = pixels.data() + 3 * i;
            if (pixel[1] < 128) {
                left = std::min(left, int(i % width));
                right = std::max(right, int(i % width));
                bottom = std::min(bottom, int(i / width));
                top = std::max(top, int(i / width));
                isRed = isRed && pixel[0] > 250 && pixel[2] == pixel[1];
            }
        }
    }
    int left = 10000, right = -1, bottom = 10000, top = -1;
    bool isRed = true;
};

TEST_F(KrSGWindowTest, OverlayTextStandsWhereItIsPutWhateverTheWindowWasBefore)
{
    // Twice as large, opened again at another size, resized.
    for (int i = 0; i < 4; ++i) {
        if (i == 2) {
            window.closeWindow();
        }
        window.setWindowSize(128 + 60 * i, 96 + 70 * i);
        ASSERT_TRUE(window.init());
        window.setBackgroundColor(KrColor(1.0, 1.0, 1.0));
        window.clearAllOverlayText();
        window.setOverlayText("HH", 20, 40, KrColor(1.0, 0.0, 0.0));
        ASSERT_TRUE(window.renderScene(false));
        const Extent text(window);
        const int baseline = static_cast<int>(window.windowHeight()) - 40;
        EXPECT_NEAR(text.bottom, baseline, 1.0) << "size " << i;
        EXPECT_NEAR(text.left, 22.0, 3.0) << "the side bearing of the letter";
        EXPECT_NEAR(text.top - text.bottom, 0.72 * 30.0, 3.0) << "the height of a capital";
        EXPECT_GT(text.right - text.left, 30);
        EXPECT_TRUE(text.isRed);
    }
    // What is there already keeps its distance from the upper edge, too.
    window.setWindowSize(200, 150);
    ASSERT_TRUE(window.renderScene(false));
    EXPECT_NEAR(Extent(window).bottom, 150 - 40, 1.0);
    // From the upper left corner: this one stands just above the picture.
    window.clearAllOverlayText();
    window.setOverlayText("HH", 0, 0, KrColor(1.0, 0.0, 0.0));
    window.renderScene(false);
    EXPECT_EQ(Extent(window).right, -1);
    window.setOverlayText("HH", 0, window.windowHeight(), KrColor(1.0, 0.0, 0.0));
    window.renderScene(false);
    EXPECT_NEAR(Extent(window).bottom, 0, 1.0);
}

TEST_F(KrSGWindowTest, AnImageFillsTheWindowPixelByPixel)
{
    MessageRecorder messages;
    EXPECT_FALSE(window.setImageBuffer(KrImage(), true));
    EXPECT_EQ(messages.count(), 0u);
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
    for (const bool closes : {false, true}) {
        if (closes) {
            window.closeWindow();
        } else {
            window.deleteContents();
        }
        ASSERT_TRUE(window.setImageBuffer(image, true));
        ASSERT_TRUE(window.capture(out));
        EXPECT_EQ(std::memcmp(out.data(), image.data(), image.sizeInBytes()), 0) << "closed " << closes;
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

// By a draw callback, by a handler of input, and by a subclass's update; in the first frame and in a later one.
TEST_F(KrSGWindowTest, MayBeClosedByWhatAFrameCalls)
{
    class Closer : public KrSGWindow::DrawCallback
    {
    public:
        explicit Closer(KrSGWindow& target)
            : m_window(target)
        {
        }
        bool preRender(osgViewer::Viewer*) override { return m_window.closeWindow(); }

    private:
        KrSGWindow& m_window;
    };
    class Quitter : public KrSGBaseInputHandler
    {
    public:
        using KrSGBaseInputHandler::KrSGBaseInputHandler;
        bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter&) override
        {
            return event.getEventType() == osgGA::GUIEventAdapter::KEYDOWN && window()->closeWindow();
        }
    };
    class Fickle : public OpenWindow
    {
    public:
        bool updateScene() override { return closes ? closeWindow() : KrSGWindow::updateScene(); }
        bool closes = false;
    };
    Fickle fickle;
    fickle.setWindowSize(64, 64);
    fickle.setInputHandler(new Quitter(&fickle));
    for (int way = 0; way < 6; ++way) {
        SCOPED_TRACE(way);
        ASSERT_TRUE(fickle.init());
        fickle.setNode(ball(osg::Vec3(), osg::Vec4(1, 0, 0, 1)));
        fickle.setPovParameters(pov(KrVector(0.0, 0.0, 6.0)));
        if (way < 3) {
            KrImage image;
            ASSERT_TRUE(fickle.capture(image));
            EXPECT_LT(meanColour(image, 32, 32, 3)[1], 100.0);
        }
        fickle.setDrawCallback(way % 3 == 0 ? new Closer(fickle) : nullptr);
        if (way % 3 == 1) {
            auto* const context = fickle.getViewer()->getCamera()->getGraphicsContext();
            dynamic_cast<osgViewer::GraphicsWindow&>(*context).getEventQueue()->keyPress('q');
        }
        fickle.closes = way % 3 == 2;
        EXPECT_TRUE(fickle.renderScene(true));
        fickle.closes = false;
        EXPECT_FALSE(fickle.isInitialized());
        EXPECT_EQ(fickle.getViewer(), nullptr);
    }
}

// The viewer closes the context when the queue says so: in the frame that handles the event, or before one.
TEST_F(KrSGWindowTest, AClosedContextIsAClosedWindow)
{
    const auto context = [this] {
        return dynamic_cast<osgViewer::GraphicsWindow*>(window.getViewer()->getCamera()->getGraphicsContext());
    };
    const osg::ref_ptr<osg::Group> red = ball(osg::Vec3(), osg::Vec4(1, 0, 0, 1));
    window.setNode(red);
    window.setDisplayMask(KrRenderTypes::LinkAxes, true, false);
    window.getNode()->addChild(KrRenderAxis::linkAxis(false));
    KrImage before, after;
    ASSERT_TRUE(window.capture(before));
    for (int way = 0; way < 3; ++way) {
        SCOPED_TRACE(way);
        MessageRecorder messages;
        if (way == 0) {
            context()->close();
        } else {
            context()->getEventQueue()->closeWindow();
        }
        EXPECT_FALSE(way == 2 ? window.renderSceneAndCaptureImage(after, 0) : window.renderScene(true));
        EXPECT_EQ(messages.count(), 1u) << messages.all();
        EXPECT_FALSE(window.isInitialized());
        EXPECT_EQ(window.getViewer(), nullptr);

        // It may be opened again, and what it showed then draws as it did.
        ASSERT_TRUE(window.init());
        window.setNode(red);
        window.setDisplayMask(KrRenderTypes::LinkAxes, true, false);
        window.getNode()->addChild(KrRenderAxis::linkAxis(false));
        ASSERT_TRUE(window.capture(after));
        EXPECT_EQ(std::memcmp(before.data(), after.data(), before.sizeInBytes()), 0);
    }
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

// Replaced as root, it is out of the window's reach when that closes; the next one gives its GL names to others.
TEST_F(KrSGWindowTest, ARootThatWasReplacedDrawsRightInTheNextWindow)
{
    const osg::ref_ptr<osg::LightSource> root = new osg::LightSource;
    const osg::ref_ptr<osg::Group> kept = ball(osg::Vec3(), osg::Vec4(1, 0, 0, 1));
    root->addChild(kept);
    window.setNode(root);
    KrImage image;
    ASSERT_TRUE(window.capture(image));
    window.setNode(new osg::LightSource);
    window.renderScene(true);
    window.closeWindow();
    ASSERT_TRUE(window.init());
    window.setPovParameters(pov(KrVector(0.0, 0.0, 6.0)));
    const osg::ref_ptr<osg::ShapeDrawable> box = new osg::ShapeDrawable(new osg::Box(osg::Vec3(), 0.4f));
    const osg::ref_ptr<osg::Geode> other = new osg::Geode;
    other->addDrawable(box);
    window.getNode()->addChild(other);
    window.renderScene(true);
    window.getNode()->removeChild(other);
    window.setNode(kept);
    ASSERT_TRUE(window.capture(image));
    const auto colour = meanColour(image, 64, 48, 8);
    EXPECT_GT(colour[0], 100.0);
    EXPECT_LT(colour[1], 0.3 * colour[0]) << "with the box's colours it is grey";
}

} // namespace
