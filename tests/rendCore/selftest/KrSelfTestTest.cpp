// The self tests pass on a renderer that draws right, and find one that does not.

#include <rendCore/aids/KrRenderAxis.h>
#include <rendCore/aids/KrRenderBoundingVolumes.h>
#include <rendCore/aids/KrRenderMassProperties.h>
#include <rendCore/aids/KrRenderMorphLink.h>
#include <rendCore/appearance/KrMaterialProperties.h>
#include <rendCore/appearance/KrSGTexture.h>
#include <rendCore/base/KrMathRoutine.h>
#include <rendCore/base/KrTransformation.h>
#include <rendCore/capture/KrDepthCapture.h>
#include <rendCore/capture/KrFrameStream.h>
#include <rendCore/capture/KrRender2DSampleTool.h>
#include <rendCore/capture/KrRenderCaptureManager.h>
#include <rendCore/model/KrRenderDeformationShape.h>
#include <rendCore/model/KrRenderIntraLink.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/model/KrRenderSelection.h>
#include <rendCore/model/KrTextureMarker.h>
#include <rendCore/plume/KrRenderGridPhysicalExtent.h>
#include <rendCore/selftest/KrSelfTest.h>
#include <rendCore/system/KrMultiRenderWindow.h>
#include <rendCore/system/KrRenderWindowParameters.h>
#include <rendCore/window/KrSGBaseInputHandler.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/ShapeTestMesh.h>
#include <tests/support/Systems.h>

#include <osg/Depth>
#include <osg/MatrixTransform>
#include <osg/Texture2D>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace
{

class KrSelfTestTest : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("KR_TOOLKITS", KR_TEST_TOOLKITS, 1);
        if (!KrWindow().init()) {
            GTEST_SKIP() << "no OpenGL context";
        }
    }
};

KrSelfTest::Result run(const char* name, const KrSelfTest::Spoiler& spoiler)
{
    return (*KrSelfTest::find(name))("", spoiler);
}

void swapRows(KrImage& picture)
{
    const std::size_t row = std::size_t(picture.width()) * picture.channels();
    for (std::size_t y = 0; y < picture.height() / 2; ++y) {
        std::swap_ranges(picture.data() + y * row, picture.data() + (y + 1) * row,
                         picture.data() + (picture.height() - 1 - y) * row);
    }
}

void mirror(KrImage& picture)
{
    for (std::size_t y = 0; y < picture.height(); ++y) {
        unsigned char* const row = picture.data() + y * picture.width() * picture.channels();
        for (std::size_t x = 0; x < picture.width() / 2; ++x) {
            std::swap_ranges(row + x * picture.channels(), row + (x + 1) * picture.channels(),
                             row + (picture.width() - 1 - x) * picture.channels());
        }
    }
}

void swapRedAndBlue(KrImage& picture)
{
    for (std::size_t i = 0; picture.channels() == 3 && i < picture.sizeInBytes(); i += 3) {
        std::swap(picture.data()[i], picture.data()[i + 2]);
    }
}

void blacken(KrImage& picture)
{
    std::memset(picture.data(), 0, picture.sizeInBytes());
}

osg::StateSet& overriding(KrSGWindow& window)
{
    return *window.getViewer()->getCamera()->getOrCreateStateSet();
}

} // namespace

TEST_F(KrSelfTestTest, EveryTestPassesAndWritesItsPictures)
{
    const char* const wanted = std::getenv("KR_TEST_PICTURES");
    const std::string folder = wanted ? wanted : testing::TempDir() + "krselftest" + std::to_string(getpid());
    std::filesystem::create_directories(folder);
    KrWindow mine;
    ASSERT_TRUE(mine.init());
    const osg::ref_ptr<osg::Node> axis = KrRenderAxis::linkAxis(false);
    KrRenderAxis::scaleAxis(0.123);
    const osg::Matrix scale = axis->asTransform()->asMatrixTransform()->getMatrix();
    KrIndividualManipulator robot("robot");
    const osg::ref_ptr<KrRenderManipulator> manipulator = new KrRenderManipulator(robot, 0);
    const osg::ref_ptr<MorphTexture> texture = KrRenderMorphLink::updateVertexTexture(manipulator);
    MessageRecorder messages;
    for (const KrSelfTest& test : KrSelfTest::all()) {
        const KrSelfTest::Result result = test(folder);
        EXPECT_TRUE(result.passed) << test.name() << ": " << result.message;
        EXPECT_FALSE(result.pictures.empty()) << test.name();
        for (const std::string& picture : result.pictures) {
            EXPECT_TRUE(std::filesystem::is_regular_file(picture)) << picture;
        }
        EXPECT_EQ(KrWindow::getWindow(), &mine) << test.name() << ": the context that was current is so again";
        EXPECT_EQ(axis->asTransform()->asMatrixTransform()->getMatrix(), scale) << test.name();
    }
    EXPECT_EQ(KrRenderMorphLink::updateVertexTexture(manipulator), texture) << "the application's is kept";
    EXPECT_EQ(messages.count(), 0u) << messages.all();
    EXPECT_EQ(KrSelfTest::find("nothing"), nullptr);
    if (!wanted) {
        std::filesystem::remove_all(folder);
    }
}

TEST_F(KrSelfTestTest, EveryTestFindsAPictureThatIsWrong)
{
    for (const KrSelfTest& test : KrSelfTest::all()) {
        KrSelfTest::Spoiler spoiler;
        spoiler.picture = blacken;
        spoiler.depths = [](std::vector<float>& depths) {
            for (float& depth : depths) {
                depth *= 1.001f; // a millimetre in a metre
            }
        };
        const KrSelfTest::Result result = test("", spoiler);
        EXPECT_FALSE(result.passed) << test.name();
        EXPECT_FALSE(result.message.empty()) << test.name();
    }
    // A picture that stands on its head, is mirrored or has its channels exchanged.
    for (const auto& spoil : {swapRows, mirror, swapRedAndBlue}) {
        KrSelfTest::Spoiler spoiler;
        spoiler.picture = spoil;
        for (const char* const name :
             {"primitives", "textures", "links", "axes", "mass", "morph", "plume", "marks", "orientation", "tiles"}) {
            EXPECT_FALSE(run(name, spoiler).passed) << name;
        }
    }
    KrSelfTest::Spoiler upsideDown;
    upsideDown.depths = [](std::vector<float>& depths) { std::reverse(depths.begin(), depths.end()); };
    EXPECT_FALSE(run("depth", upsideDown).passed);
    EXPECT_FALSE(run("rangemap", upsideDown).passed);
}

TEST_F(KrSelfTestTest, ARendererThatLeavesSomethingOutIsFound)
{
    KrSelfTest::Spoiler noDepthTest, noTexture, noBlending, noLight, shifted;
    noDepthTest.window = [](KrSGWindow& window) {
        overriding(window).setAttributeAndModes(new osg::Depth(osg::Depth::ALWAYS),
                                                osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    };
    noTexture.window = [](KrSGWindow& window) {
        overriding(window).setTextureMode(0, GL_TEXTURE_2D, osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
    };
    noBlending.window = [](KrSGWindow& window) {
        overriding(window).setMode(GL_BLEND, osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
    };
    noLight.window = [](KrSGWindow& window) {
        overriding(window).setMode(GL_LIGHTING, osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
    };
    shifted.window = [](KrSGWindow& window) {
        KrPovParameters pov = window.getPovParameters();
        pov.setFieldOfView(0.8 * pov.fieldOfView());
        window.setPovParameters(pov);
    };
    EXPECT_FALSE(run("transparency", noDepthTest).passed);
    EXPECT_FALSE(run("tiles", noDepthTest).passed);
    EXPECT_FALSE(run("textures", noTexture).passed);
    EXPECT_FALSE(run("marks", noTexture).passed);
    EXPECT_FALSE(run("transparency", noBlending).passed);
    EXPECT_FALSE(run("primitives", noLight).passed);
    for (const char* const name : {"primitives", "links", "axes", "volumes", "mass", "depth", "stream"}) {
        EXPECT_FALSE(run(name, shifted).passed) << name << " through another lens";
    }
}

TEST_F(KrSelfTestTest, WhatCannotBeDoneIsToldInTheResult)
{
    MessageRecorder messages;
    const KrSelfTest::Result unwritten = (*KrSelfTest::find("textures"))("/nowhere/at/all");
    EXPECT_FALSE(unwritten.passed);
    EXPECT_NE(unwritten.message.find("cannot be written"), std::string::npos) << unwritten.message;
    unsetenv("KR_TOOLKITS");
    const KrSelfTest::Result noShaders = (*KrSelfTest::find("plume"))("");
    EXPECT_FALSE(noShaders.passed);
    EXPECT_NE(noShaders.message.find("KR_TOOLKITS"), std::string::npos) << noShaders.message;
    setenv("KR_TOOLKITS", KR_TEST_TOOLKITS, 1);
    EXPECT_EQ(messages.count(), 0u) << messages.all();
}

namespace
{

/// Right-handed and left-handed at once.
class WrongRoutine : public KrMathRoutine
{
public:
    void vectorCross(const double* a, const double* b, double* out) const override
    {
        KrMathRoutine::vectorCross(a, b, out);
        out[2] = -out[2];
    }
};

struct NamedTest
{
    const char* name;
    std::function<bool()> run;
};

/// What needs a context, and is told so in one message without one.
std::vector<NamedTest> drawingClasses(const KrIndividualManipulator& robot, KrTextureMarker& marker)
{
    const osg::ref_ptr<KrRenderManipulator> manipulator = new KrRenderManipulator(robot, 0);
    const osg::ref_ptr<KrRenderIntraLink> intraLink = new KrRenderIntraLink(robot, 0, nullptr);
    const osg::ref_ptr<KrRenderLink> link = new KrRenderLink(robot, 0);
    const KrBasePhysicalExtent* const extent = robot.shape()->physicalExtent();
    const osg::ref_ptr<KrRenderShape> shape = new KrRenderShape(extent, KrMaterialMap());
    const osg::ref_ptr<KrRenderDeformationShape> bending = new KrRenderDeformationShape(extent, KrMaterialMap());
    const osg::ref_ptr<KrFrameStream> stream = new KrFrameStream(KrFrameStream::Content::Color);
    const osg::ref_ptr<KrRenderCaptureManager> manager = new KrRenderCaptureManager;
    const osg::ref_ptr<KrTextureMarker> held = &marker;
    return {{"KrSGWindow", [] { return KrSGWindow().selfTest(); }},
            {"KrRenderWindow", [] { return KrRenderWindow().selfTest(); }},
            {"KrMultiRenderWindow", [] { return KrMultiRenderWindow().selfTest(); }},
            {"KrRenderCaptureManager", [manager] { return manager->selfTest(); }},
            {"KrRenderManipulator", [manipulator] { return manipulator->selfTest(); }},
            {"KrRenderLink", [link] { return link->selfTest(); }},
            {"KrRenderIntraLink", [intraLink] { return intraLink->selfTest(); }},
            {"KrRenderShape", [shape] { return shape->selfTest(); }},
            {"KrRenderDeformationShape", [bending] { return bending->selfTest(); }},
            {"KrRenderSelection", &KrRenderSelection::selfTest},
            {"KrSGTexture", [] { return KrSGTexture().selfTest(); }},
            {"KrRenderAxis", &KrRenderAxis::selfTest},
            {"KrRenderBoundingVolumes", &KrRenderBoundingVolumes::selfTest},
            {"KrRenderMassProperties", &KrRenderMassProperties::selfTest},
            {"KrRenderMorphLink", &KrRenderMorphLink::selfTest},
            {"KrRenderGridPhysicalExtent", &KrRenderGridPhysicalExtent::selfTest},
            {"KrRender2DSampleTool", &KrRender2DSampleTool::selfTest},
            {"KrTextureMarker", [held] { return held->selfTest(); }},
            {"KrFrameStream", [stream] { return stream->selfTest(); }},
            {"KrDepthCapture", [] { return KrDepthCapture().selfTest(); }}};
}

} // namespace

TEST_F(KrSelfTestTest, EveryClassTestsItselfAndSaysWhatIsWrong)
{
    KrStatedSystem system(Systems::twoBoxes());
    KrIndividualManipulator& robot = system.manipulatorSystem().manipulators()[0];
    KrTriPhysicalExtent mesh;
    ASSERT_TRUE(ShapeTestMesh::setTriangles(mesh, {"a"}, 0.0, true));
    const osg::ref_ptr<KrRenderShape> textured = new KrRenderShape(&mesh, KrMaterialMap());
    KrTextureMarker* const marker = KrTextureMarker::of(*textured, 16, 16);
    ASSERT_NE(marker, nullptr);
    const std::vector<NamedTest> classes = drawingClasses(robot, *marker);
    {
        MessageRecorder messages;
        for (const NamedTest& test : classes) {
            EXPECT_TRUE(test.run()) << test.name;
        }
        EXPECT_TRUE(KrMathRoutine().selfTest());
        EXPECT_TRUE(KrRenderTypes::selfTest());
        EXPECT_TRUE(KrLightProperties().selfTest());
        EXPECT_TRUE(KrTransformation().selfTest());
        EXPECT_TRUE(KrMaterialProperties().selfTest());
        EXPECT_TRUE(KrRenderWindowParameters().selfTest());
        const osg::ref_ptr<KrSGBaseInputHandler> handler = new KrSGBaseInputHandler(nullptr);
        EXPECT_TRUE(handler->selfTest());
        EXPECT_EQ(messages.count(), 0u) << messages.all();
        EXPECT_FALSE(WrongRoutine().selfTest());
        EXPECT_EQ(messages.count(), 1u) << messages.all();
        EXPECT_NE(messages.all().find("KrMathRoutine::selfTest - a cross product"), std::string::npos);
    }
    // Where no window can be opened.
    const char* const display = std::getenv("DISPLAY");
    const std::string kept = display ? display : "";
    setenv("KR_WINDOW", "glx", 1);
    unsetenv("DISPLAY");
    for (const NamedTest& test : classes) {
        MessageRecorder messages;
        EXPECT_FALSE(test.run()) << test.name;
        EXPECT_EQ(messages.count(), 1u) << test.name << ": " << messages.all();
        EXPECT_EQ(messages.all().find(std::string(test.name) + "::selfTest - "), 0u) << messages.all();
    }
    setenv("KR_WINDOW", "egl", 1);
    if (display) {
        setenv("DISPLAY", kept.c_str(), 1);
    }
}

TEST_F(KrSelfTestTest, AWindowThatTestsItselfGoesOnAsBefore)
{
    KrStatedSystem system(Systems::twoBoxes());
    KrRenderWindow window;
    window.setWindowSize(80, 60);
    ASSERT_TRUE(window.init());
    window.setStatedSystem(system);
    window.setDisplayMask(KrRenderTypes::LinkAxes, true, false);
    KrImage before, after;
    ASSERT_TRUE(window.renderSceneAndCaptureImage(before, KrSGWindow::CaptureColor));
    EXPECT_TRUE(window.selfTest());
    EXPECT_EQ(KrWindow::getWindow(), &window);
    ASSERT_TRUE(window.renderSceneAndCaptureImage(after, KrSGWindow::CaptureColor));
    EXPECT_EQ(std::memcmp(before.data(), after.data(), before.sizeInBytes()), 0);
}
