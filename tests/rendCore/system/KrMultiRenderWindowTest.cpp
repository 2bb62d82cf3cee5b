#include <rendCore/system/KrMultiRenderWindow.h>
#include <rendCore/window/KrSGBaseInputHandler.h>
#include <rendCore/window/KrSGDrawCallbacks.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/Pictures.h>

#include <osg/Geode>
#include <osg/LightSource>
#include <osg/ShapeDrawable>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace
{

constexpr unsigned int kWidth = 120; // of one view
constexpr unsigned int kHeight = 80;

const char* const kTooWide = "KrMultiRenderWindow::init - Desired window size exceeds max dimension (2048)\n";
const char* const kTooHigh = "KrMultiRenderWindow::init - Exceeded height dimension (2048).\n";
const char* const kNoMode = "KrMultiRenderWindow::setGL - No view mode specified.\n";

KrPovParameters pov(const KrVector& eye, const KrVector& up = KrVector(0.0, 0.0, 1.0))
{
    KrPovParameters result;
    result.setEyepoint(eye);
    result.setUp(up);
    return result;
}

void addBall(osg::Group& group, const osg::Vec3& centre, float radius, const osg::Vec4& colour)
{
    const osg::ref_ptr<osg::ShapeDrawable> drawable = new osg::ShapeDrawable(new osg::Sphere(centre, radius));
    drawable->setColor(colour);
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(drawable);
    group.addChild(geode);
}

/// Red on +x, green on +y, blue on +z: no two views of it along an axis are alike, mirrored or turned.
osg::ref_ptr<osg::Group> axes()
{
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    addBall(*group, osg::Vec3(1.0f, 0.0f, 0.0f), 0.3f, osg::Vec4(1, 0, 0, 1));
    addBall(*group, osg::Vec3(0.0f, 1.0f, 0.0f), 0.3f, osg::Vec4(0, 1, 0, 1));
    addBall(*group, osg::Vec3(0.0f, 0.0f, 1.0f), 0.3f, osg::Vec4(0, 0, 1, 1));
    return group;
}

enum Colour : unsigned int
{
    Red = 0,
    Green = 1,
    Blue = 2
};

struct Spot
{
    double x = 0.0; ///< mean, pixels from the tile's lower left
    double y = 0.0;
    unsigned int count = 0;
};

class OpenMulti : public KrMultiRenderWindow
{
public:
    using KrMultiRenderWindow::KrMultiRenderWindow;
    using KrMultiRenderWindow::m_coords;
    using KrMultiRenderWindow::m_dirtyFlags;
    using KrMultiRenderWindow::m_eyePoints;
    using KrMultiRenderWindow::m_inputHandler;
    using KrMultiRenderWindow::m_numColumns;
    using KrMultiRenderWindow::m_numRows;
    using KrMultiRenderWindow::m_povParametersVector;
    using KrMultiRenderWindow::m_viewMode;
    using KrMultiRenderWindow::m_views;

    bool capture(unsigned int flags = CaptureColor)
    {
        const bool ok = captureWindow(picture, flags);
        makeCurrent();
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        return ok && picture.width() == windowWidth() && picture.height() == windowHeight();
    }

    /// Where in tile (column, row), row 0 at the top, the colour dominates.
    Spot find(Colour colour, unsigned int column, unsigned int row) const
    {
        unsigned int w = 0, h = 0;
        getSingleWindowSize(w, h);
        Spot spot;
        for (unsigned int y = 0; y < h; ++y) {
            for (unsigned int x = 0; x < w; ++x) {
                const unsigned int line = h * (m_numRows - 1 - row) + y;
                const unsigned char* p = picture.data() + 3 * (std::size_t(line) * picture.width() + w * column + x);
                if (p[colour] > 60 && p[colour] > 2 * p[(colour + 1) % 3] && p[colour] > 2 * p[(colour + 2) % 3]) {
                    spot.x += x;
                    spot.y += y;
                    ++spot.count;
                }
            }
        }
        spot.x /= std::max(1u, spot.count);
        spot.y /= std::max(1u, spot.count);
        return spot;
    }

    /// Left, right, below or above the tile's middle, as the signs say; 0 is in the middle.
    void expectAt(Colour colour, unsigned int column, unsigned int row, int right, int up) const
    {
        const Spot spot = find(colour, column, row);
        ASSERT_GT(spot.count, 10u) << "colour " << colour << " in tile " << column << ", " << row;
        const auto sign = [](double offset) { return offset > 4.0 ? 1 : offset < -4.0 ? -1 : 0; };
        EXPECT_EQ(sign(spot.x - 59.5), right) << "colour " << colour << " in tile " << column << ", " << row;
        EXPECT_EQ(sign(spot.y - 39.5), up) << "colour " << colour << " in tile " << column << ", " << row;
    }

    osg::Matrixd view(unsigned int k) const { return m_views[k]->getViewMatrix(); }

    KrImage picture;
};

void expectNear(const osg::Matrixd& a, const osg::Matrixd& b)
{
    for (int i = 0; i < 16; ++i) {
        EXPECT_NEAR(a.ptr()[i], b.ptr()[i], 1e-6) << "element " << i;
    }
}

class KrMultiRenderWindowTest : public testing::Test
{
protected:
    void SetUp() override
    {
        window.setNumColumnsHint(2);
        window.setWindowParams(kWidth, kHeight, 4);
        if (!window.init()) {
            GTEST_SKIP() << window.report().text();
        }
        window.setBackgroundColor(KrColor(1.0, 1.0, 1.0));
        window.setPovParameters(pov(KrVector(6.0, 0.0, 0.0)));
        window.setNode(axes());
    }

    /// View 0 from +x; 1 from -y, 2 from above with y up, 3 from -x.
    void expectTheFourViews() const
    {
        window.expectAt(Green, 0, 0, 1, 0);
        window.expectAt(Blue, 0, 0, 0, 1);
        window.expectAt(Red, 1, 0, 1, 0);
        window.expectAt(Blue, 1, 0, 0, 1);
        window.expectAt(Red, 0, 1, 1, 0);
        window.expectAt(Green, 0, 1, 0, 1);
        window.expectAt(Green, 1, 1, -1, 0);
        window.expectAt(Blue, 1, 1, 0, 1);
    }

    static std::vector<KrVector> fourEyes()
    {
        return {KrVector(), KrVector(0.0, -6.0, 0.0), KrVector(0.0, 0.0, 6.0), KrVector(-6.0, 0.0, 0.0)};
    }

    static KrXmlVectorType<KrPovParameters> fourPovs()
    {
        KrXmlVectorType<KrPovParameters> povs;
        povs.push_back(KrPovParameters());
        povs.push_back(pov(KrVector(0.0, -6.0, 0.0)));
        povs.push_back(pov(KrVector(0.0, 0.0, 6.0), KrVector(0.0, 1.0, 0.0)));
        povs.push_back(pov(KrVector(-6.0, 0.0, 0.0)));
        return povs;
    }

    OpenMulti window;
};

TEST(KrMultiRenderWindowLayout, FollowsTheStatedArithmetic)
{
    const OpenMulti fresh;
    EXPECT_EQ(fresh.getNumWindows(), 0u);
    EXPECT_EQ(fresh.m_viewMode, 0u);
    EXPECT_EQ(fresh.m_numRows, 0u);

    OpenMulti window(600, 400, 5);
    EXPECT_EQ(window.m_numColumns, 3u);
    EXPECT_EQ(window.m_numRows, 2u);
    EXPECT_EQ(window.windowWidth(), 1800u);
    EXPECT_EQ(window.windowHeight(), 800u);
    EXPECT_EQ(window.aspectRatio(), 2.25);
    EXPECT_EQ(window.m_eyePoints.size(), 5u);
    EXPECT_EQ(window.m_coords.size(), 5u);
    EXPECT_EQ(window.m_povParametersVector.size(), 0u);

    // The size given is that of one view; the number of views stays.
    EXPECT_TRUE(window.setWindowSizeAndPos(300, 200, 7, 8));
    EXPECT_EQ(window.windowWidth(), 1500u);
    EXPECT_EQ(window.windowHeight(), 200u);
    EXPECT_EQ(window.windowX(), 7);
    window.setNumColumnsHint(7);
    EXPECT_EQ(window.m_numColumns, 5u) << "7 columns of 300 pixels do not fit";
    window.setNumColumnsHint(6);
    EXPECT_EQ(window.windowWidth(), 1800u) << "a hint that fits is followed beyond the number of views";
    EXPECT_TRUE(window.selfTest());
}

TEST(KrMultiRenderWindowLayout, RefusesWhatIsTooLargeWithoutTouchingTheSize)
{
    MessageRecorder messages;
    OpenMulti window(100, 100, 2);
    window.setWindowParams(3000, 100, 0);
    EXPECT_EQ(messages.count(Kr::Print::Warning, kTooWide), 1u);
    EXPECT_EQ(window.windowWidth(), 200u);
    unsigned int w = 0, h = 0;
    window.getSingleWindowSize(w, h);
    EXPECT_EQ(w, 3000u);

    messages.clear();
    window.setNumColumnsHint(2);
    window.setWindowParams(100, 1100, 4);
    EXPECT_EQ(messages.count(Kr::Print::Warning, kTooHigh), 1u);
    EXPECT_EQ(window.windowHeight(), 100u);
    EXPECT_EQ(window.getNumWindows(), 4u) << "the views were resized before";

    // Nothing wraps, divides by zero or exhausts the memory.
    messages.clear();
    window.setWindowParams(65536, 65536, 65536);
    window.setNumColumnsHint(0);
    window.setWindowParams(0, 50, 3);
    EXPECT_EQ(messages.count(Kr::Print::Warning, kTooWide), 3u);
    window.setWindowParams(1, 0, 4000000000u);
    EXPECT_EQ(messages.count(Kr::Print::Warning, kTooHigh), 1u);
    EXPECT_EQ(window.getNumWindows(), 3u);
    OpenMulti unset;
    unset.setNumColumnsHint(3);
    unset.setNumColumnsHint(0);
    EXPECT_EQ(unset.getNumWindows(), 1u);
}

/// Counts the frames in which it is called.
class Counter : public osg::Camera::DrawCallback
{
public:
    using osg::Camera::DrawCallback::operator();
    void operator()(osg::RenderInfo&) const override { ++calls; }
    mutable int calls = 0;
};

TEST(KrMultiRenderWindowLayout, WindowsWhoseFirstLayoutWasRefusedCanBeOpenedAndDrawn)
{
    MessageRecorder messages;
    OpenMulti refused(3000, 400, 2);
    if (!refused.init()) {
        GTEST_SKIP() << refused.report().text();
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(refused.capture()); // opens it, asks it to open again
    }
    EXPECT_EQ(refused.m_views[0]->getViewport()->width(), refused.windowWidth()) << "view 0 has the whole window";
    const auto* const cleared = refused.getViewer()->getCamera()->getInitialDrawCallback();
    ASSERT_NE(cleared, nullptr);
    EXPECT_EQ(cleared->getNestedCallback(), nullptr) << "one of it, called once a frame";
    refused.setWindowParams(kWidth, kHeight, 2);
    EXPECT_TRUE(refused.capture());
    EXPECT_EQ(refused.m_views[1]->getViewport()->x(), double(kWidth));

    OpenMulti flat;
    flat.setNumColumnsHint(4000000000u); // fits: the views are 0 pixels wide
    EXPECT_TRUE(flat.renderScene(true));
}

TEST(KrMultiRenderWindowLayout, AClientsCallbackStaysWithTheViewerThatItWasAddedTo)
{
    OpenMulti window(kWidth, kHeight, 3);
    const osg::ref_ptr<Counter> counter = new Counter;
    for (int i = 0; i < 3; ++i) {
        if (!window.init()) {
            GTEST_SKIP() << window.report().text();
        }
        window.getViewer()->getCamera()->addInitialDrawCallback(counter);
        window.init();
        window.renderScene(true);
        EXPECT_EQ(counter->calls, i + 1);
        window.closeWindow();
    }
}

TEST(KrMultiRenderWindowLists, FollowTheSizeRuleAsStated)
{
    OpenMulti window(100, 100, 3);
    MessageRecorder messages;
    KrXmlVectorType<KrPovParameters> povs;
    povs.resize(2);
    povs[1].setFieldOfView(0.25);
    window.m_dirtyFlags = 0;
    window.setPovParametersVector(povs);
    EXPECT_EQ(messages.count(Kr::Print::Warning,
                             "KrMultiRenderWindow::setPovParametersVector - Setting more values than windows.  "
                             "Truncating.\n"),
              1u);
    ASSERT_EQ(window.m_povParametersVector.size(), 3u);
    EXPECT_EQ(window.m_povParametersVector[1].fieldOfView(), 0.25);
    EXPECT_EQ(window.m_viewMode, KrMultiRenderWindow::PovParameters);
    EXPECT_EQ(window.m_dirtyFlags, 0x02u);

    window.setEyePoints({});
    window.setCoords(KrXmlVectorType<KrCoordinateSystemTransformation>(), KrMultiRenderWindow::ObjectFrames);
    EXPECT_EQ(messages.all(),
              "KrMultiRenderWindow::setPovParametersVector - Setting more values than windows.  Truncating.\n"
              "KrMultiRenderWindow::setEyePoints - Setting more values than windows.  Truncating.\n"
              "KrMultiRenderWindow::setCoords - Setting more values than windows.  Truncating.\n");
    EXPECT_EQ(window.m_viewMode, KrMultiRenderWindow::ObjectFrames);
    EXPECT_EQ(window.m_coords.size(), 3u);

    messages.clear();
    povs.resize(5);
    window.setPovParametersVector(povs);
    window.setEyePoints(std::vector<KrVector>(5));
    EXPECT_EQ(messages.count(), 0u);
    EXPECT_EQ(window.m_povParametersVector.size(), 5u);
    EXPECT_EQ(window.m_eyePoints.size(), 5u);
}

TEST_F(KrMultiRenderWindowTest, EyePointsLookAtTheCentreOfInterest)
{
    window.setEyePoints(fourEyes());
    ASSERT_TRUE(window.capture());
    expectTheFourViews();
}

TEST_F(KrMultiRenderWindowTest, PovParametersHaveTheirOwnLens)
{
    KrXmlVectorType<KrPovParameters> povs = fourPovs();
    window.setPovParametersVector(povs);
    ASSERT_TRUE(window.capture());
    expectTheFourViews();
    const double wide = window.find(Red, 1, 0).x - 59.5;
    povs[1].setFieldOfView(0.5 * povs[1].fieldOfView());
    window.setPovParametersVector(povs);
    ASSERT_TRUE(window.capture());
    const double scale = std::tan(osg::PI / 8.0) / std::tan(osg::PI / 16.0);
    EXPECT_NEAR(window.find(Red, 1, 0).x - 59.5, scale * wide, 1.0);
    window.expectAt(Green, 0, 0, 1, 0);
}

TEST_F(KrMultiRenderWindowTest, CameraFramesStandWhereTheyAreAndObjectFramesCarryThePointOfView)
{
    KrXmlVectorType<KrCoordinateSystemTransformation> frames;
    frames.resize(4);
    KrPovParameters views[4];
    for (unsigned int k = 1; k < 4; ++k) {
        views[k] = fourPovs()[k];
        const osg::Matrixd cameraToWorld = osg::Matrixd::inverse(osg::Matrixd::lookAt(
            KrRenderTypes::ec2osg(views[k].eyepoint()), osg::Vec3d(), KrRenderTypes::ec2osg(views[k].up())));
        ASSERT_TRUE(frames[k].setFrom16(cameraToWorld.ptr()));
    }
    window.setCoords(frames, KrMultiRenderWindow::CameraFrames);
    ASSERT_TRUE(window.capture());
    expectTheFourViews();

    // Turned about z by -90 degrees the eye that stood on +x stands on -y; moved, it looks past the balls.
    frames[1] = frames[2] = frames[3] = KrCoordinateSystemTransformation();
    frames[1].setRollPitchYaw(0.0, 0.0, -osg::PI_2);
    frames[2].setTranslation(KrVector(0.0, 1.0, 0.0));
    frames[3].setRollPitchYaw(0.0, 0.0, osg::PI);
    window.setCoords(frames, KrMultiRenderWindow::ObjectFrames);
    ASSERT_TRUE(window.capture());
    window.expectAt(Red, 1, 0, 1, 0);
    window.expectAt(Blue, 1, 0, 0, 1);
    window.expectAt(Green, 0, 1, 0, 0);
    window.expectAt(Blue, 0, 1, -1, 1);
    window.expectAt(Green, 1, 1, -1, 0);
}

TEST_F(KrMultiRenderWindowTest, EveryTileHasTheProportionsOfItsView)
{
    window.setNumColumnsHint(0);
    window.setWindowParams(600, 400, 5);
    const osg::ref_ptr<osg::LightSource> root = new osg::LightSource;
    addBall(*root, osg::Vec3(), 1.0f, osg::Vec4(1, 0, 0, 1));
    window.setNode(root);
    window.setEyePoints(std::vector<KrVector>(5, KrVector(0.0, 6.0, 0.0)));
    ASSERT_TRUE(window.capture());
    EXPECT_EQ(window.aspectRatio(), 2.25);
    for (unsigned int k = 0; k < 5; ++k) {
        const unsigned int x0 = 600 * (k % 3);
        const unsigned int y0 = k < 3 ? 400 : 0;
        unsigned int width = 0, height = 0;
        for (unsigned int i = 0; i < 600; ++i) {
            width += window.picture.data()[3 * ((y0 + 200) * 1800 + x0 + i) + 1] < 200 ? 1 : 0;
        }
        for (unsigned int i = 0; i < 400; ++i) {
            height += window.picture.data()[3 * ((y0 + i) * 1800 + x0 + 300) + 1] < 200 ? 1 : 0;
        }
        EXPECT_GT(height, 100u) << "view " << k;
        EXPECT_NEAR(width, height, 2.0) << "view " << k;
    }
    EXPECT_NEAR(meanColour(window.picture, 1500, 200, 100)[1], 255.0, 0.01) << "the sixth tile has no view";
}

TEST_F(KrMultiRenderWindowTest, OffScreenDrawsTheSamePicture)
{
    window.setEyePoints(fourEyes());
    ASSERT_TRUE(window.capture());
    const KrImage onScreen = window.picture;
    window.setOffScreenRendering(true);
    ASSERT_TRUE(window.capture());
    expectTheFourViews();
    EXPECT_EQ(std::memcmp(window.picture.data(), onScreen.data(), onScreen.sizeInBytes()), 0);

    window.setWindowParams(kWidth, kHeight, 6);
    ASSERT_TRUE(window.capture());
    window.expectAt(Green, 0, 0, 1, 0);
    window.setWindowParams(kWidth, kHeight, 4);
    window.setOffScreenRendering(false);
    window.setOffScreenRendering(true);
    window.setOffScreenRendering(false);
    ASSERT_TRUE(window.capture());
    EXPECT_EQ(std::memcmp(window.picture.data(), onScreen.data(), onScreen.sizeInBytes()), 0);
}

TEST_F(KrMultiRenderWindowTest, TheWholeWindowIsCapturedInEveryFormAndTheBaseSeesViewZero)
{
    window.setEyePoints(fourEyes());
    const osg::ref_ptr<KrSGWindow::DrawCallback> installed = new KrSGWindow::DrawCallback;
    window.setDrawCallback(installed);
    ASSERT_TRUE(window.capture());
    EXPECT_EQ(window.getDrawCallback(), installed);
    window.setDrawCallback(nullptr);
    const KrImage colour = window.picture;

    KrImage flipped, first;
    ASSERT_TRUE(window.captureWindow(flipped, KrSGWindow::CaptureFlipped));
    EXPECT_EQ(std::memcmp(flipped.flippedData(), colour.data(), colour.sizeInBytes()), 0);
    ASSERT_TRUE(window.renderSceneAndCaptureImage(first, KrSGWindow::CaptureColor));
    ASSERT_EQ(first.width(), kWidth);
    ASSERT_EQ(first.height(), kHeight);
    EXPECT_EQ(std::memcmp(first.data(), colour.data() + 3 * (kHeight * 2 * kWidth), 3 * kWidth), 0);

    // Depth stands where colour stands.
    ASSERT_TRUE(window.capture(KrSGWindow::CaptureDepth));
    ASSERT_EQ(window.picture.channels(), 1u);
    std::size_t differing = 0;
    for (std::size_t i = 0; i < window.picture.sizeInBytes(); ++i) {
        const bool isLit = colour.data()[3 * i] + colour.data()[3 * i + 1] + colour.data()[3 * i + 2] < 700;
        differing += isLit != (window.picture.data()[i] != 0) ? 1 : 0;
    }
    EXPECT_LT(differing, window.picture.sizeInBytes() / 500);
}

TEST_F(KrMultiRenderWindowTest, ViewsComeGoAndComeBackAfterAClose)
{
    window.setEyePoints(fourEyes());
    ASSERT_TRUE(window.capture());
    const KrImage before = window.picture;
    const osg::ref_ptr<osg::Camera> second = window.m_views[1];
    window.setWindowParams(kWidth, kHeight, 2);
    EXPECT_EQ(window.getViewer()->getNumSlaves(), 1u);
    EXPECT_NE(window.m_views[1], second) << "made anew";
    EXPECT_EQ(window.m_views[0], window.getViewer()->getCamera());
    ASSERT_TRUE(window.capture());
    EXPECT_EQ(window.picture.height(), kHeight);
    window.setWindowParams(kWidth, kHeight, 6);
    EXPECT_EQ(window.getViewer()->getNumSlaves(), 5u);
    ASSERT_TRUE(window.capture());
    window.setWindowParams(kWidth, kHeight, 4);
    window.setEyePoints(fourEyes());
    ASSERT_TRUE(window.capture());
    EXPECT_EQ(std::memcmp(window.picture.data(), before.data(), before.sizeInBytes()), 0);

    for (const bool offScreen : {false, true}) {
        window.setOffScreenRendering(offScreen);
        ASSERT_TRUE(window.capture());
        window.closeWindow();
        EXPECT_EQ(window.getNumWindows(), 4u);
        ASSERT_TRUE(window.init());
        EXPECT_EQ(window.getViewer()->getNumSlaves(), 3u);
        window.setNode(axes());
        ASSERT_TRUE(window.capture());
        EXPECT_EQ(std::memcmp(window.picture.data(), before.data(), before.sizeInBytes()), 0);
    }
}

TEST_F(KrMultiRenderWindowTest, AHintLaysTheTilesOutAnew)
{
    window.setEyePoints(fourEyes());
    ASSERT_TRUE(window.capture());
    for (const unsigned int columns : {1u, 4u, 3u, 2u}) {
        window.setNumColumnsHint(columns);
        EXPECT_EQ(window.windowWidth(), columns * kWidth);
        ASSERT_TRUE(window.capture());
        window.expectAt(Red, 1 % columns, 1 / columns, 1, 0);
        window.expectAt(Green, 3 % columns, 3 / columns, -1, 0);
    }
    window.setWindowSize(2 * kWidth, 2 * kHeight);
    ASSERT_TRUE(window.capture());
    EXPECT_EQ(window.m_views[1]->getViewport()->x(), 2.0 * kWidth);
    EXPECT_EQ(window.m_views[1]->getViewport()->y(), 2.0 * kHeight);
    EXPECT_GT(window.find(Red, 1, 0).count, 40u);
    // After a refusal the window can still be drawn.
    window.setWindowParams(kWidth, 1100, 5);
    EXPECT_TRUE(window.renderScene(true));
    window.setWindowParams(kWidth, kHeight, 5);
    EXPECT_EQ(window.getViewer()->getNumSlaves(), 4u);
    EXPECT_TRUE(window.capture());
}

TEST_F(KrMultiRenderWindowTest, ARefusedLayoutLeavesThePictureAsItWas)
{
    window.setEyePoints(fourEyes());
    ASSERT_TRUE(window.capture());
    const KrImage before = window.picture;
    const auto expectAsBefore = [this, &before](const char* what) {
        ASSERT_TRUE(window.capture()) << what;
        ASSERT_EQ(window.picture.sizeInBytes(), before.sizeInBytes()) << what;
        EXPECT_EQ(std::memcmp(window.picture.data(), before.data(), before.sizeInBytes()), 0) << what;
    };
    for (const bool offScreen : {false, true}) {
        window.setOffScreenRendering(offScreen);
        window.setWindowParams(3000, 400, 4);
        expectAsBefore("too wide");
        window.setWindowParams(4000000000u, kHeight, 4);
        expectAsBefore("wide beyond measure");
        window.setWindowParams(kWidth, 3000000000u, 4);
        expectAsBefore("too high");
        EXPECT_TRUE(window.setWindowSize(1100, 1100));
        EXPECT_EQ(window.windowWidth(), 2 * kWidth);
        EXPECT_EQ(window.aspectRatio(), 1.5);
        expectAsBefore("too large as a size of one view");
    }
    window.setOffScreenRendering(false);
    // A size that no surface has.
    EXPECT_FALSE(window.setWindowSize(4000000000u, 2000000000u));
    EXPECT_EQ(window.aspectRatio(), 2.0) << "kept: the ratio is set all the same";
    expectAsBefore("no size of a window");

    // The views that stay keep their tiles; those that went leave none of their pixels.
    window.setWindowParams(3000, 400, 2);
    ASSERT_TRUE(window.renderScene(false));
    KrImage first;
    ASSERT_TRUE(window.renderSceneAndCaptureImage(first, KrSGWindow::CaptureColor));
    EXPECT_EQ(first.width(), kWidth);
    ASSERT_TRUE(window.capture());
    const std::size_t half = before.sizeInBytes() / 2;
    EXPECT_EQ(std::memcmp(window.picture.data() + half, before.data() + half, half), 0) << "the upper row";
    EXPECT_NEAR(meanColour(window.picture, kWidth, kHeight / 2, 30)[0], 255.0, 0.01);
}

TEST_F(KrMultiRenderWindowTest, OverlayTextLiesOverTheWindowOnce)
{
    static constexpr int kWhole[] = {2 * kWidth, 2 * kHeight};
    const auto draw = [](KrSGWindow& shown) {
        shown.setOverlayText("HHHHHHHHHH", 5, 95, KrColor(1.0, 0.0, 0.0, 0.5)); // over all four tiles
        EXPECT_TRUE(shown.renderScene(false));
        std::vector<unsigned char> pixels(3u * kWhole[0] * kWhole[1]);
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        glReadPixels(0, 0, kWhole[0], kWhole[1], GL_RGB, GL_UNSIGNED_BYTE, pixels.data());
        return pixels;
    };
    KrSGWindow plain;
    plain.setWindowSize(kWhole[0], kWhole[1]);
    ASSERT_TRUE(plain.init());
    const std::vector<unsigned char> expected = draw(plain);
    EXPECT_LT(*std::min_element(expected.begin(), expected.end()), 150);
    window.getNode()->removeChildren(window.getNode()->getNumChildren() - 1, 1); // the balls
    EXPECT_EQ(draw(window), expected);
}

/// Of the middle of tile `k` of four, as the buffer has it at this moment.
float depthOfTile(unsigned int k)
{
    float depth = -1.0f;
    glReadPixels(static_cast<GLint>(kWidth * (k % 2) + kWidth / 2),
                 static_cast<GLint>(kHeight * (1 - k / 2) + kHeight / 2), 1, 1, GL_DEPTH_COMPONENT, GL_FLOAT, &depth);
    return depth;
}

// A window of many views would else be cleared as a whole as many times as it has views.
TEST_F(KrMultiRenderWindowTest, ViewsClearTheDepthsOfTheirOwnPlaceUnderTheOverlay)
{
    class Watch : public osg::Camera::DrawCallback
    {
    public:
        using osg::Camera::DrawCallback::operator();
        void operator()(osg::RenderInfo&) const override
        {
            for (unsigned int k = 0; k < 4; ++k) {
                depths[k] = depthOfTile(k);
            }
        }
        mutable std::array<float, 4> depths = {};
    };
    window.setEyePoints(fourEyes());
    ASSERT_TRUE(window.renderScene(false));
    for (unsigned int k = 0; k < 4; ++k) {
        EXPECT_EQ(depthOfTile(k), 1.0f) << "of the last view's overlay, tile " << k;
    }
    const osg::ref_ptr<Watch> drawn = new Watch; // before the overlay
    const osg::ref_ptr<Watch> left = new Watch;  // after it
    window.m_views[1]->addPostDrawCallback(drawn);
    window.m_views[1]->addFinalDrawCallback(left);
    // What no view clears but the last one's overlay, and views of a frame leave alone.
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 2 * kWidth, kHeight);
    glClearDepth(0.25);
    glClear(GL_DEPTH_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);
    ASSERT_TRUE(window.renderScene(false));
    EXPECT_LT(drawn->depths[1], 1.0f) << "the ball";
    EXPECT_EQ(left->depths[1], 1.0f);
    for (const unsigned int later : {2u, 3u}) {
        EXPECT_EQ(left->depths[later], 0.25f) << "tile " << later;
    }
    for (unsigned int k = 0; k < 4; ++k) {
        EXPECT_EQ(depthOfTile(k), 1.0f) << "tile " << k;
    }
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

// It draws after the overlay, which has cleared the depths before it in every view.
TEST_F(KrMultiRenderWindowTest, ACameraOfTheSceneLiesOverEveryView)
{
    const osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    camera->setRenderOrder(osg::Camera::POST_RENDER);
    camera->setClearMask(0);
    camera->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    const osg::ref_ptr<osg::ShapeDrawable> pane =
        new osg::ShapeDrawable(new osg::Box(osg::Vec3(0.0f, 0.0f, -0.99f), 1.0f, 1.0f, 0.001f));
    pane->setColor(osg::Vec4(1.0f, 1.0f, 0.0f, 1.0f));
    geode->addDrawable(pane);
    camera->addChild(geode);
    camera->setProjectionMatrixAsOrtho(-1.0, 1.0, -1.0, 1.0, 0.0, 1.0);
    window.getNode()->addChild(camera);
    window.setEyePoints(fourEyes());
    ASSERT_TRUE(window.renderScene(false));
    for (unsigned int k = 0; k < 4; ++k) {
        std::array<unsigned char, 3> pixel = {};
        glReadPixels(static_cast<GLint>(kWidth * (k % 2) + kWidth / 2),
                     static_cast<GLint>(kHeight * (1 - k / 2) + kHeight / 2), 1, 1, GL_RGB, GL_UNSIGNED_BYTE,
                     pixel.data());
        EXPECT_EQ(pixel, (std::array<unsigned char, 3>{255, 255, 0})) << "tile " << k;
    }
}

TEST_F(KrMultiRenderWindowTest, MayBeClosedByInputWithinAFrame)
{
    class Quitter : public KrSGBaseInputHandler
    {
    public:
        using KrSGBaseInputHandler::KrSGBaseInputHandler;
        bool handle(const osgGA::GUIEventAdapter&, osgGA::GUIActionAdapter&) override
        {
            return window()->getViewer() && window()->closeWindow();
        }
    };
    window.setEyePoints(fourEyes());
    ASSERT_TRUE(window.capture());
    const KrImage before = window.picture;
    window.setInputHandler(new Quitter(&window));
    EXPECT_TRUE(window.renderScene(true));
    EXPECT_FALSE(window.isInitialized());
    window.setInputHandler(new KrSGBaseInputHandler(&window));
    window.setNode(axes());
    ASSERT_TRUE(window.capture());
    EXPECT_EQ(std::memcmp(window.picture.data(), before.data(), before.sizeInBytes()), 0);
}

// What is on the screen, not what a capture puts together.
TEST_F(KrMultiRenderWindowTest, TilesWithoutAViewAreClearedOnTheScreen)
{
    window.setEyePoints(fourEyes());
    ASSERT_TRUE(window.renderScene(false));
    window.setWindowParams(kWidth, kHeight, 3);
    window.setBackgroundColor(KrColor(0.0, 1.0, 0.0));
    ASSERT_TRUE(window.renderScene(false));
    std::array<unsigned char, 3> pixel = {};
    for (const unsigned int x : {5u, kWidth + 5u, 2 * kWidth - 5u}) { // tile 2, and the empty one
        glReadPixels(static_cast<GLint>(x), 5, 1, 1, GL_RGB, GL_UNSIGNED_BYTE, pixel.data());
        EXPECT_EQ(pixel, (std::array<unsigned char, 3>{0, 255, 0})) << "at " << x;
    }
}

TEST_F(KrMultiRenderWindowTest, ViewsDoNotLagBehindAMovingCamera)
{
    window.setPovParametersVector(fourPovs());
    window.updateScene();
    const osg::Matrixd fixed = window.view(1);
    for (int i = 0; i < 3; ++i) {
        window.setPovParameters(pov(KrVector(6.0 + i, 1.0, 0.5 * i)));
        window.updateScene();
        expectNear(window.view(1), fixed);
        window.renderScene(true);
        expectNear(window.view(1), fixed);
    }
    // Input moves the camera within the frame, after the update.
    class Walker : public KrSGBaseInputHandler
    {
    public:
        using KrSGBaseInputHandler::KrSGBaseInputHandler;
        bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter&) override
        {
            if (event.getEventType() == osgGA::GUIEventAdapter::FRAME) {
                m_center.x() += 0.5;
            }
            return false;
        }
    };
    window.setInputHandler(new Walker(&window));
    window.setPovParameters(pov(KrVector(6.0, 0.0, 0.0)));
    for (int i = 0; i < 3; ++i) {
        const osg::Matrixd before = window.view(0);
        window.renderScene(true);
        expectNear(window.view(1), fixed);
        EXPECT_NE(window.view(0), before);
    }
    window.setInputHandler(new KrSGBaseInputHandler(nullptr));
}

TEST_F(KrMultiRenderWindowTest, OddModesAndEntriesAreHarmless)
{
    MessageRecorder messages;
    window.renderScene(true);
    EXPECT_EQ(messages.count(Kr::Print::Warning, kNoMode), 1u);
    window.renderScene(true);
    EXPECT_EQ(messages.count(Kr::Print::Warning, kNoMode), 2u) << "in every frame";
    expectNear(window.view(1), window.view(0));

    messages.clear();
    KrXmlVectorType<KrCoordinateSystemTransformation> frames;
    frames.resize(4);
    window.setCoords(frames, static_cast<KrMultiRenderWindow::ViewMode>(7));
    window.renderScene(true);
    EXPECT_EQ(messages.all(), "KrMultiRenderWindow::setGL - invalid view mode.\n");

    // A list that the views have outgrown, and eyes that look nowhere.
    messages.clear();
    window.setPovParametersVector(fourPovs());
    window.setWindowParams(kWidth, kHeight, 8);
    window.renderScene(true);
    const double infinite = std::numeric_limits<double>::infinity();
    window.setEyePoints(std::vector<KrVector>(8, KrVector(0.0, infinite, 0.0)));
    window.renderScene(true);
    window.setEyePoints(std::vector<KrVector>(8));
    EXPECT_TRUE(window.capture());
    expectNear(window.view(1), window.view(0));
    EXPECT_EQ(messages.count(), 0u) << messages.all();
}

} // namespace
