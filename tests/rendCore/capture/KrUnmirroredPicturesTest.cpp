// One lopsided target through every way that a frame leaves the library: what is mirrored or upside down fails.

#include <rendCore/capture/KrDepthCapture.h>
#include <rendCore/capture/KrRender2DSampleTool.h>
#include <rendCore/capture/KrRenderCaptureManager.h>
#include <rendCore/system/KrRenderWindow.h>

#include <tests/support/Systems.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <functional>

namespace
{

constexpr unsigned int kWidth = 80;
constexpr unsigned int kHeight = 60;
constexpr double kEye = 6.0; // m in front of the target, on +x

/// The quarters of a picture as somebody sees it who looks at it: upper left and right, lower left and right.
enum Quarter
{
    UpperLeft,
    UpperRight,
    LowerLeft,
    LowerRight
};
template <typename Value>
using Quarters = std::array<Value, 4>;

/// Red upper left (nearest), green upper right, blue lower left (farthest), nothing lower right. Seen from +x with z
/// up, +y is on the right.
KrManipulatorSystem lopsided()
{
    KrIndividualManipulator robot("target");
    robot.materialMap().set(std::string("red"), KrDataMap::material(KrColor(1.0, 0.0, 0.0)));
    robot.materialMap().set(std::string("green"), KrDataMap::material(KrColor(0.0, 1.0, 0.0)));
    robot.materialMap().set(std::string("blue"), KrDataMap::material(KrColor(0.0, 0.0, 1.0)));
    robot.addShape(Systems::box(KrVector(0.2, 0.8, 0.6), KrVector(0.9, -0.5, 0.4), "red"));
    robot.addShape(Systems::box(KrVector(0.2, 0.8, 0.6), KrVector(0.4, 0.5, 0.4), "green"));
    robot.addShape(Systems::box(KrVector(0.2, 0.8, 0.6), KrVector(-0.1, -0.5, -0.4), "blue"));
    KrManipulatorSystem system;
    system.manipulators().push_back(robot);
    return system;
}

constexpr Quarters<double> kDepths = {5.0, 5.5, 6.0, 0.0}; // of the front faces, m

/// The pixel in the middle of a quarter, rows counted from the top or from the bottom.
struct Place
{
    unsigned int column;
    unsigned int row;
};
Place placeOf(unsigned int quarter, bool isTopFirst, unsigned int width = kWidth, unsigned int height = kHeight)
{
    const bool isRight = quarter == UpperRight || quarter == LowerRight;
    const bool isUpper = quarter == UpperLeft || quarter == UpperRight;
    return {isRight ? 3 * width / 4 : width / 4, isUpper == isTopFirst ? height / 4 : 3 * height / 4};
}

/// 'r', 'g', 'b', or '-' for anything else.
char colourName(const unsigned char* pixel)
{
    const char names[3] = {'r', 'g', 'b'};
    for (int k = 0; k < 3; ++k) {
        if (pixel[k] > 80 && pixel[k] > 3 * pixel[(k + 1) % 3] && pixel[k] > 3 * pixel[(k + 2) % 3]) {
            return names[k];
        }
    }
    return '-';
}

std::string colours(const unsigned char* pixels, bool isTopFirst, unsigned int width = kWidth,
                    unsigned int height = kHeight)
{
    std::string names;
    for (unsigned int quarter = 0; quarter < 4; ++quarter) {
        const Place place = placeOf(quarter, isTopFirst, width, height);
        names += colourName(pixels + 3 * (std::size_t(place.row) * width + place.column));
    }
    return names;
}

/// The nearest depth is 0, and so are the farthest (it wraps) and the background: the green box tells left from right,
/// and the edge of its row up from down.
void expectGreyDepths(const unsigned char* pixels, bool isTopFirst)
{
    const auto at = [&](unsigned int quarter) {
        const Place place = placeOf(quarter, isTopFirst);
        return int(pixels[std::size_t(place.row) * kWidth + place.column]);
    };
    EXPECT_LE(at(UpperLeft), 2);
    EXPECT_GT(at(UpperRight), 80);
    EXPECT_LT(at(UpperRight), 200);
    EXPECT_TRUE(at(LowerLeft) == 0 || at(LowerLeft) > 250) << at(LowerLeft);
    EXPECT_EQ(at(LowerRight), 0);
}

template <typename Value>
void expectMetres(const std::function<Value(Place)>& depthAt, bool isTopFirst, double nothing)
{
    for (unsigned int quarter = 0; quarter < 4; ++quarter) {
        const double wanted = quarter == LowerRight ? nothing : kDepths[quarter];
        const double found = depthAt(placeOf(quarter, isTopFirst));
        EXPECT_TRUE(found == wanted || std::abs(found - wanted) < 1e-3) << "quarter " << quarter << ": " << found;
    }
}

/// Drawn into the window's own surface and into a framebuffer object.
class FrameOrientation : public testing::TestWithParam<bool>
{
protected:
    void SetUp() override
    {
        if (!KrWindow().init()) {
            GTEST_SKIP() << "no OpenGL context";
        }
        m_window.setWindowSize(kWidth, kHeight);
        m_window.setBackgroundColor(KrColor(0.5, 0.5, 0.5));
        ASSERT_TRUE(m_window.init());
        m_window.setStatedSystem(m_system);
        KrPovParameters pov;
        pov.setEyepoint(KrVector(kEye, 0.0, 0.0));
        pov.setCenterOfInterest(KrVector(0.0, 0.0, 0.0));
        pov.setUp(KrVector(0.0, 0.0, 1.0));
        pov.setFieldOfView(0.3);
        m_window.setPovParameters(pov);
        m_window.setOffScreenRendering(GetParam());
    }
    void TearDown() override { EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR)); }

    KrStatedSystem m_system = KrStatedSystem(lopsided());
    KrRenderWindow m_window;
};

} // namespace

TEST_P(FrameOrientation, ColoursInBothStoragesAndThroughFiles)
{
    KrImage image;
    ASSERT_TRUE(m_window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
    EXPECT_EQ(colours(image.data(), false), "rgb-");
    const std::string path =
        (std::filesystem::temp_directory_path() / ("KrOrientation" + std::to_string(GetParam()) + ".png")).string();
    KrImage read;
    EXPECT_TRUE(image.writeFile(path, KrImage::BottomRowFirst));
    EXPECT_TRUE(read.readFile(path, KrImage::TopRowFirst));
    std::filesystem::remove(path);
    ASSERT_EQ(read.channels(), 3u);
    EXPECT_EQ(colours(read.data(), true), "rgb-");

    // The flipped storage begins with the top row.
    ASSERT_TRUE(m_window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor | KrSGWindow::CaptureFlipped));
    ASSERT_TRUE(image.flippedToOrdinary());
    EXPECT_EQ(colours(image.flippedData(), false), "rgb-") << "the frame as it was read";
    EXPECT_EQ(colours(image.data(), true), "rgb-");
}

TEST_P(FrameOrientation, BlocksAreCountedFromTheLowestRow)
{
    const char* const wanted = "rgb-";
    for (unsigned int quarter = 0; quarter < 4; ++quarter) {
        const Place place = placeOf(quarter, false);
        KrImageBlock block;
        block.x = place.column - 2;
        block.y = place.row - 2;
        block.width = block.height = 4;
        KrImage image;
        ASSERT_TRUE(m_window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor, &block));
        ASSERT_EQ(image.sizeInBytes(), 48u);
        EXPECT_EQ(colourName(image.data()), wanted[quarter]);
        EXPECT_EQ(colourName(image.data() + 45), wanted[quarter]);
    }
}

TEST_P(FrameOrientation, DepthsInGreyAndInMetres)
{
    KrImage image;
    ASSERT_TRUE(m_window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureDepth));
    expectGreyDepths(image.data(), false);
    ASSERT_TRUE(m_window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureDepth | KrSGWindow::CaptureFlipped));
    ASSERT_TRUE(image.flippedToOrdinary());
    expectGreyDepths(image.data(), true);

    KrDepthCapture capture;
    std::vector<float> depths;
    for (const bool isTopFirst : {false, true}) {
        KrDepthCapture::Options options;
        options.rowOrder =
            isTopFirst ? KrDepthCapture::RowOrder::TopRowFirst : KrDepthCapture::RowOrder::BottomRowFirst;
        options.background = -1.0f;
        ASSERT_TRUE(capture.render(m_window, options, depths));
        expectMetres<float>([&](Place place) { return depths[std::size_t(place.row) * kWidth + place.column]; },
                            isTopFirst, -1.0);
    }
}

TEST_P(FrameOrientation, TheCaptureManagerAlsoWhenItScales)
{
    const osg::ref_ptr<KrRenderCaptureManager> manager = new KrRenderCaptureManager;
    std::string found;
    manager->callbackFunction = [&found](const osg::Image* image) {
        found =
            colours(image->data(), false, static_cast<unsigned int>(image->s()), static_cast<unsigned int>(image->t()));
    };
    m_window.setDrawCallback(manager);
    for (const unsigned int size : {0u, 40u, 200u}) {
        found.clear();
        manager->setCaptureSize(size, size);
        ASSERT_TRUE(m_window.renderScene(true));
        EXPECT_EQ(found, "rgb-") << size;
    }
}

TEST_P(FrameOrientation, RangeMapsBeginWithTheLowestRow)
{
    KrCoordinateSystemTransformation view;
    const double rotation[9] = {0, 0, 1, //
                                1, 0, 0, //
                                0, 1, 0};
    view.setRotation(rotation);
    view.setTranslation(KrVector(kEye, 0.0, 0.0));
    std::vector<std::vector<double>> map;
    ASSERT_TRUE(KrRender2DSampleTool::get2DMap(m_system, view, kWidth, kHeight, 2.0, 1.6, 9.0, map));
    expectMetres<double>([&](Place place) { return map[place.row][place.column]; }, false, 9.0);
    m_window.makeCurrent();
}

INSTANTIATE_TEST_SUITE_P(Targets, FrameOrientation, testing::Bool(),
                         [](const auto& target) { return target.param ? "OffScreen" : "Window"; });
