// Before all others: theirs come without the functions.
#define GL_GLEXT_PROTOTYPES
#include "GlStateDump.h"

#include <rendCore/capture/KrDepthCapture.h>
#include <rendCore/capture/KrFrameCapture.h>
#include <rendCore/capture/KrRender2DSampleTool.h>
#include <rendCore/model/KrRenderShape.h>
#include <rendCore/model/KrTextureMarker.h>
#include <rendCore/system/KrRenderWindow.h>
#include <rendCore/window/KrSGDrawCallbacks.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/Pictures.h>
#include <tests/support/Systems.h>
#include <toolkit/context/KrExternalWindowImpl.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>

#include <osg/Texture2D>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr unsigned int kWidth = 160;
constexpr unsigned int kHeight = 120;

/// A framebuffer object with colour and depth in the current context.
struct Framebuffer
{
    /// @param samples  a pixel; 0 for one without multisampling
    explicit Framebuffer(GLsizei samples = 0)
    {
        glGenFramebuffers(1, &name);
        glBindFramebuffer(GL_FRAMEBUFFER, name);
        glGenRenderbuffers(3, buffers);
        for (int i = 0; i < 3; ++i) {
            const GLenum format = i == 2 ? GL_DEPTH_COMPONENT24 : GL_RGBA8;
            const GLenum place = i == 2 ? GL_DEPTH_ATTACHMENT : GL_COLOR_ATTACHMENT0 + static_cast<GLenum>(i);
            glBindRenderbuffer(GL_RENDERBUFFER, buffers[i]);
            glRenderbufferStorageMultisample(GL_RENDERBUFFER, samples, format, kWidth, kHeight);
            glFramebufferRenderbuffer(GL_FRAMEBUFFER, place, GL_RENDERBUFFER, buffers[i]);
        }
    }
    GLuint name = 0;
    GLuint buffers[3] = {};
};

class KrClientStateTest : public testing::Test
{
protected:
    void SetUp() override
    {
        host.setWindowSize(kWidth, kHeight);
        if (!host.init()) {
            GTEST_SKIP() << host.report().text();
        }
        canvas = std::make_unique<Framebuffer>();
        other = std::make_unique<Framebuffer>();
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        guest = std::make_unique<KrRenderWindow>();
        guest->setImpl(std::make_unique<KrExternalWindowImpl>(callbacks()));
        guest->setWindowSize(kWidth, kHeight);
        prepare(*guest);
    }

    KrExternalWindowImpl::Callbacks callbacks()
    {
        KrExternalWindowImpl::Callbacks result;
        result.makeCurrent = [this] { return host.makeCurrent(); };
        result.isCurrent = [this] { return host.getImpl()->isCurrent(); };
        result.doneCurrent = [this] { host.getImpl()->releaseCurrent(); };
        result.defaultFramebuffer = [this] { return canvas->name; };
        return result;
    }

    void prepare(KrRenderWindow& window)
    {
        window.setStatedSystem(system);
        KrPovParameters pov;
        pov.setEyepoint(KrVector(6.0, -5.0, 4.0));
        pov.setCenterOfInterest(KrVector(0.5, 0.0, 0.5));
        window.setPovParameters(pov);
    }

    static KrImage picture(KrRenderWindow& window)
    {
        KrImage image;
        EXPECT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
        return image;
    }

    static bool areEqual(const KrImage& a, const KrImage& b)
    {
        return a.sizeInBytes() > 0 && a.sizeInBytes() == b.sizeInBytes() &&
               std::memcmp(a.data(), b.data(), a.sizeInBytes()) == 0;
    }

    KrWindow host;
    KrStatedSystem system = KrStatedSystem(Systems::twoBoxes());
    std::unique_ptr<Framebuffer> canvas;
    std::unique_ptr<Framebuffer> other;
    std::unique_ptr<KrRenderWindow> guest;
};

TEST_F(KrClientStateTest, EveryOperationLeavesTheClientsState)
{
    const GlOddState odd(other->name);
    const GlStateDump before;
    ASSERT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    ASSERT_EQ(before.differences(GlStateDump()), "") << "the dump itself";
    const auto check = [&before](const char* operation) {
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR)) << operation;
        EXPECT_EQ(before.differences(GlStateDump()), "") << operation;
    };
    ASSERT_TRUE(guest->init());
    check("init");
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(guest->renderScene(true));
        check("renderScene");
    }
    picture(*guest);
    check("colour capture");
    KrImage image;
    EXPECT_TRUE(guest->renderSceneAndCaptureImage(image, KrSGWindow::CaptureDepth));
    check("depth capture");
    guest->setOverlayText("text", 10, 10, KrColor(1.0, 0.0, 0.0));
    guest->setDisplayMask(KrRenderTypes::BoundingVolumes | KrRenderTypes::LinkAxes | KrRenderTypes::GlobalAxisMarker,
                          true, false);
    guest->setViewerAttribute(KrSGWindow::Wireframe | KrSGWindow::CullBackFaces, true);
    EXPECT_TRUE(guest->renderScene(false));
    check("aids, text, wireframe");
    guest->setOffScreenRendering(true);
    picture(*guest);
    check("off screen");
    guest->setOffScreenRendering(false);
    EXPECT_TRUE(guest->renderScene(false));
    KrImage buffer;
    buffer.allocate(3, 0, 16, 16);
    EXPECT_TRUE(guest->setImageBuffer(buffer, false));
    check("image buffer");
    guest->setWindowSize(kWidth / 2, kHeight / 2);
    guest->setStatedSystem(system);
    EXPECT_TRUE(guest->renderScene(false));
    check("another size and system");
    guest->closeWindow();
    check("closeWindow");

    class Closer : public KrSGWindow::DrawCallback
    {
    public:
        explicit Closer(KrSGWindow& window)
            : m_window(window)
        {
        }
        bool preRender(osgViewer::Viewer*) override { return m_window.closeWindow(); }

    private:
        KrSGWindow& m_window;
    };
    guest->setStatedSystem(system);
    guest->setDrawCallback(new Closer(*guest));
    EXPECT_TRUE(guest->renderScene(false));
    EXPECT_FALSE(guest->isInitialized());
    check("closed within a frame");
}

/// One triangle with texture coordinates.
void setTriangle(KrTriPhysicalExtent& mesh)
{
    KrXmlVectorVector vertices, normals;
    KrXmlVectorType<KrPlanarVector> coordinates;
    KrTriangle triangle;
    normals.push_back(KrVector(0.0, 0.0, 1.0));
    for (std::uint32_t i = 0; i < 3; ++i) {
        const double x = i == 1 ? 1.0 : 0.0, y = i == 2 ? 1.0 : 0.0;
        vertices.push_back(KrVector(x, y, 2.0));
        coordinates.push_back(KrPlanarVector(x, y));
        triangle.setCorner(i, i, 0, i);
    }
    KrXmlVectorType<KrTriangle> triangles;
    triangles.push_back(triangle);
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    groups.push_back(KrTriPhysicalExtent::Group(KrXmlBasicType<std::string>("skin"), triangles));
    ASSERT_TRUE(mesh.setMesh(vertices, normals, coordinates, groups));
}

TEST_F(KrClientStateTest, MarkingAndMeasuringLeaveTheClientsState)
{
    ASSERT_TRUE(guest->renderScene(false));
    KrTriPhysicalExtent mesh;
    setTriangle(mesh);
    const osg::ref_ptr<KrRenderShape> shape = new KrRenderShape(&mesh, KrMaterialMap());
    guest->getNode()->addChild(shape);
    KrTextureMarker* const marker = KrTextureMarker::of(*shape, 64, 64);
    ASSERT_NE(marker, nullptr);
    const GlOddState odd(other->name);
    const GlStateDump before;
    for (const float v : {0.25f, 0.5f}) {
        KrTextureMarker::Brush brush;
        brush.radius = 0.1f;
        brush.color = osg::Vec4(1.0f, 0.0f, 0.0f, 1.0f);
        ASSERT_TRUE(marker->stroke({{0.25f, v}}, brush));
        EXPECT_TRUE(guest->renderScene(false));
        EXPECT_EQ(before.differences(GlStateDump()), "") << "mark";
        KrImage texture;
        ASSERT_TRUE(marker->snapshot(texture));
        const unsigned char* const texel = texture.data() + 4 * (static_cast<std::size_t>(v * 64.0f) * 64 + 16);
        EXPECT_GT(texel[0], 200);
        EXPECT_LT(texel[1], 50) << "red where it was marked";
    }
    KrDepthCapture capture;
    std::vector<float> depths;
    ASSERT_TRUE(capture.render(*guest, KrDepthCapture::Options(), depths));
    EXPECT_EQ(before.differences(GlStateDump()), "") << "depths";
    EXPECT_NEAR(*std::min_element(depths.begin(), depths.end()), 6.8f, 1.5f);
    KrFrameCapture kinds;
    const std::size_t count = std::size_t(guest->windowWidth()) * guest->windowHeight();
    std::vector<std::uint32_t> labels(count, 7u);
    std::vector<float> normals(3 * count, 7.0f);
    for (const bool isWithNormals : {false, true}) {
        KrFrameCapture::Targets targets = {guest->windowWidth(), guest->windowHeight()};
        targets.labels = labels.data();
        targets.normals = isWithNormals ? normals.data() : nullptr;
        ASSERT_TRUE(kinds.render(*guest, KrFrameCapture::Options(), targets));
        EXPECT_EQ(before.differences(GlStateDump()), "") << "labels";
    }
    EXPECT_GT(*std::max_element(labels.begin(), labels.end()), 0u);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    guest->closeWindow();
}

TEST_F(KrClientStateTest, FullStacksAreNoObstacle)
{
    ASSERT_TRUE(guest->renderScene(false));
    const KrImage plain = picture(*guest);
    for (int i = 0; i < 64; ++i) {
        glPushAttrib(GL_ALL_ATTRIB_BITS);
        glPushClientAttrib(GL_CLIENT_ALL_ATTRIB_BITS);
    }
    for (const GLenum mode : {GL_MODELVIEW, GL_PROJECTION, GL_TEXTURE}) {
        glMatrixMode(mode);
        for (int i = 0; i < 64; ++i) {
            glPushMatrix();
        }
    }
    while (glGetError() != GL_NO_ERROR) {
    }
    const GlStateDump before;
    EXPECT_TRUE(areEqual(picture(*guest), plain));
    EXPECT_EQ(before.differences(GlStateDump()), "");
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(KrClientStateTest, ThePictureIsTheSameWhateverTheClientSets)
{
    KrImage plain;
    {
        KrRenderWindow alone;
        alone.setWindowSize(kWidth, kHeight);
        KrStatedSystem ownSystem(Systems::twoBoxes());
        prepare(alone);
        alone.setStatedSystem(ownSystem);
        plain = picture(alone);
        alone.closeWindow();
    }
    ASSERT_GT(countLit(plain, {255, 255, 255}), std::size_t(500));
    ASSERT_TRUE(host.makeCurrent());
    prepare(*guest);
    EXPECT_TRUE(areEqual(picture(*guest), plain));
    {
        const GlOddState odd(other->name);
        EXPECT_TRUE(areEqual(picture(*guest), plain)) << "odd from the first frame";
        odd.draw();
        EXPECT_TRUE(areEqual(picture(*guest), plain)) << "after the client drew";
        glBindFramebuffer(GL_FRAMEBUFFER, canvas->name);
        glReadBuffer(GL_COLOR_ATTACHMENT1);
        EXPECT_TRUE(areEqual(picture(*guest), plain)) << "reading elsewhere";
        GLint readBuffer = 0;
        glGetIntegerv(GL_READ_BUFFER, &readBuffer);
        EXPECT_EQ(readBuffer, GL_COLOR_ATTACHMENT1);
    }
    guest->closeWindow();
    const GlOddState odd(other->name);
    guest->setStatedSystem(system);
    prepare(*guest);
    EXPECT_TRUE(areEqual(picture(*guest), plain)) << "opened among odd values";
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(KrClientStateTest, DrawsIntoTheClientsFramebufferWithCamerasOfTheirOwn)
{
    const osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setRenderOrder(osg::Camera::PRE_RENDER);
    camera->setRenderTargetImplementation(osg::Camera::FRAME_BUFFER_OBJECT);
    camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    camera->setViewport(0, 0, 32, 32);
    const osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D;
    texture->setTextureSize(32, 32);
    texture->setInternalFormat(GL_RGBA);
    camera->attach(osg::Camera::COLOR_BUFFER, texture);
    ASSERT_TRUE(guest->renderScene(false));
    guest->getNode()->addChild(camera);

    const GlOddState odd(other->name);
    const GlStateDump before;
    for (int frame = 0; frame < 2; ++frame) {
        const KrImage image = picture(*guest);
        EXPECT_GT(countLit(image, {255, 255, 255}), std::size_t(500)) << frame;
        EXPECT_EQ(before.differences(GlStateDump()), "") << frame;
    }
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    glBindFramebuffer(GL_FRAMEBUFFER, canvas->name);
    unsigned char pixel[3] = {1, 2, 3};
    glReadPixels(1, 1, 1, 1, GL_RGB, GL_UNSIGNED_BYTE, pixel);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(KrClientStateTest, WhatIsFadedLeavesNoHoleInTheClientsPicture)
{
    ASSERT_TRUE(system.selectShape(KrShapeStateCacheKey(0, 0, 0)));
    const auto leastAlpha = [this] {
        EXPECT_TRUE(guest->renderScene(false));
        std::vector<unsigned char> pixels(std::size_t{4} * kWidth * kHeight);
        glBindFramebuffer(GL_FRAMEBUFFER, canvas->name);
        glReadPixels(0, 0, kWidth, kHeight, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        int least = 255;
        for (std::size_t i = 3; i < pixels.size(); i += 4) {
            least = std::min<int>(least, pixels[i]);
        }
        return least;
    };
    for (int frame = 0; frame < 2; ++frame) {
        const GlStateDump before;
        EXPECT_EQ(leastAlpha(), 255);
        EXPECT_EQ(before.differences(GlStateDump()), "");
    }
    guest->setBackgroundColor(KrColor(0.0, 0.0, 0.0, 0.0));
    EXPECT_EQ(leastAlpha(), 0) << "a client that wants to see through does";
}

TEST_F(KrClientStateTest, DepthsOfSeveralSamplesAPixelAreRefused)
{
    canvas = std::make_unique<Framebuffer>(4);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    const GlStateDump before;
    std::vector<float> depths = {7.0f};
    MessageRecorder messages;
    EXPECT_FALSE(KrDepthCapture().render(*guest, KrDepthCapture::Options(), depths));
    EXPECT_EQ(depths, std::vector<float>{7.0f});
    EXPECT_NE(messages.all().find("several samples"), std::string::npos) << messages.all();
    EXPECT_EQ(before.differences(GlStateDump()), "");
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));

    // A target of the window's own has one.
    guest->setOffScreenRendering(true);
    EXPECT_TRUE(KrDepthCapture().render(*guest, KrDepthCapture::Options(), depths));
    EXPECT_EQ(depths.size(), std::size_t(kWidth) * kHeight);
    EXPECT_GT(countLit(picture(*guest), {255, 255, 255}), std::size_t(500));
    EXPECT_EQ(before.differences(GlStateDump()), "");
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(KrClientStateTest, WithoutACallbackItDrawsWhereTheClientDraws)
{
    KrExternalWindowImpl::Callbacks some = callbacks();
    some.defaultFramebuffer = nullptr;
    guest->setImpl(std::make_unique<KrExternalWindowImpl>(some));
    glBindFramebuffer(GL_FRAMEBUFFER, other->name);
    glClearColor(0.0f, 0.0f, 1.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    prepare(*guest);
    guest->KrSGWindow::setBackgroundColor(KrColor(0.0, 1.0, 0.0));
    ASSERT_TRUE(guest->renderScene(false));
    ASSERT_TRUE(guest->renderScene(false));
    GLint bound = 0;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &bound);
    EXPECT_EQ(static_cast<GLuint>(bound), other->name);
    unsigned char pixel[4] = {};
    glReadPixels(1, 1, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel);
    EXPECT_EQ(pixel[1], 255);
    EXPECT_EQ(pixel[2], 0);
}

TEST_F(KrClientStateTest, NoContextIsLeftSwitched)
{
    KrWindow second;
    ASSERT_TRUE(second.init());
    const auto isSecond = [&second] { return second.getImpl()->isCurrent() && KrWindow::getWindow() == &second; };
    EXPECT_TRUE(guest->renderScene(true)) << "opens it";
    EXPECT_TRUE(isSecond());
    EXPECT_TRUE(guest->renderScene(true));
    EXPECT_TRUE(isSecond());
    picture(*guest);
    EXPECT_TRUE(isSecond());
    guest->setStatedSystem(system);
    EXPECT_TRUE(isSecond());
    guest->closeWindow();
    EXPECT_TRUE(isSecond());
    second.closeWindow();

    ASSERT_TRUE(host.makeCurrent());
    const GlOddState odd(other->name);
    const GlStateDump before;
    std::vector<std::vector<double>> map;
    EXPECT_TRUE(KrRender2DSampleTool::get2DMap(system, KrCoordinateSystemTransformation(), 16, 16, 2.0, 2.0, 5.0, map));
    ASSERT_TRUE(host.getImpl()->isCurrent());
    EXPECT_EQ(before.differences(GlStateDump()), "") << "a map";
}

TEST_F(KrClientStateTest, NestedAndThrownOutFramesPutBack)
{
    struct Nesting : KrSGWindow::DrawCallback
    {
        Nesting(KrWindow& elsewhere)
            : window(elsewhere)
        {
        }
        bool postRender(osgViewer::Viewer*) override { return window.makeCurrent(); }
        KrWindow& window;
    };
    KrWindow second;
    ASSERT_TRUE(second.init());
    ASSERT_TRUE(host.makeCurrent());
    ASSERT_TRUE(guest->renderScene(false));
    guest->setDrawCallback(new Nesting(second));
    const GlOddState odd(other->name);
    const GlStateDump before;
    EXPECT_TRUE(guest->renderScene(false));
    ASSERT_TRUE(host.getImpl()->isCurrent());
    EXPECT_EQ(before.differences(GlStateDump()), "");
}

/// A measurement, printed and recorded, with a bound against accidents only.
} // namespace
