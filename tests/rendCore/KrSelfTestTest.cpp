// The self tests pass on a renderer that draws right, and find one that does not.

#include <rendCore/KrRenderAxis.h>
#include <rendCore/KrRenderMorphLink.h>
#include <rendCore/KrRenderWindow.h>
#include <rendCore/KrSelfTest.h>

#include <tests/support/MessageRecorder.h>

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
    const MessageRecorder messages;
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
    const MessageRecorder messages;
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
