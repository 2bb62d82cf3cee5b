#include <rendCore/capture/KrRender2DSampleTool.h>
#include <rendCore/system/KrRenderWindow.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/Systems.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>

#include <boost/make_shared.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <sys/resource.h>
#include <utility>
#include <vector>

namespace
{

#if defined(KR_SANITIZED)
constexpr int kManyCalls = 100; // each opens a context, which takes long there
#else
constexpr int kManyCalls = 1000;
#endif

using Map = std::vector<std::vector<double>>;

/// Looks along -x of the world from (5, 0, 0), z up.
KrCoordinateSystemTransformation fromPlusX()
{
    KrCoordinateSystemTransformation view;
    const double columns[9] = {0, 0, 1, //
                               1, 0, 0, //
                               0, 1, 0};
    view.setRotation(columns);
    view.setTranslation(KrVector(5.0, 0.0, 0.0));
    return view;
}

KrManipulatorSystem bodies(std::initializer_list<boost::shared_ptr<KrBasePhysicalExtent>> extents)
{
    KrIndividualManipulator robot("robot");
    for (const auto& extent : extents) {
        robot.addShape(extent);
    }
    KrManipulatorSystem system;
    system.manipulators().push_back(robot);
    return system;
}

bool canDraw()
{
    return KrWindow().init();
}

TEST(KrRender2DSampleTool, RefusesArgumentsOutsideTheirRange)
{
    const KrStatedSystem system;
    Map map = {{7.0}};
    const KrCoordinateSystemTransformation view;
    EXPECT_FALSE(KrRender2DSampleTool::get2DMap(system, view, 0, 1, 1, 1, 2, map));
    EXPECT_FALSE(KrRender2DSampleTool::get2DMap(system, view, 1, 0, 1, 1, 2, map));
    EXPECT_FALSE(KrRender2DSampleTool::get2DMap(system, view, 1, 1, 0, 1, 2, map));
    EXPECT_FALSE(KrRender2DSampleTool::get2DMap(system, view, 1, 1, 1, 0, 2, map));
    EXPECT_FALSE(KrRender2DSampleTool::get2DMap(system, view, 1, 1, 1, 1, 1.0, map));
    EXPECT_FALSE(KrRender2DSampleTool::get2DMap(system, view, 1, 1, 1, 1, std::nan(""), map));
    EXPECT_EQ(map, Map{{7.0}});
}

TEST(KrRender2DSampleTool, MeasuresABallTheRightWayUpEveryTime)
{
    if (!canDraw()) {
        GTEST_SKIP() << "no OpenGL context";
    }
    const auto ball = boost::make_shared<KrSpherePhysicalExtent>(1.0);
    // A marker above and to the left, as the camera sees it: +z and -y.
    const KrStatedSystem system(bodies({ball, Systems::box(KrVector(0.2, 0.4, 0.4), KrVector(0.0, -1.5, 1.5), "")}));
    KrRenderWindow other;
    other.setWindowSize(32, 32);
    ASSERT_TRUE(other.init());
    for (int call = 0; call < 4; ++call) {
        Map map(300, std::vector<double>(7, -1.0));
        ASSERT_TRUE(KrRender2DSampleTool::get2DMap(system, fromPlusX(), 201, 161, 5.0, 4.0, 10.0, map));
        ASSERT_EQ(map.size(), 161u);
        ASSERT_EQ(map[0].size(), 201u);
        EXPECT_NEAR(map[80][100], 4.0, 0.01) << "the ball is a mesh";
        unsigned int across = 0;
        for (const double sample : map[80]) {
            across += sample < 9.0 ? 1 : 0;
        }
        EXPECT_NEAR(across * 5.0 / 201.0, 2.0, 0.06);
        EXPECT_EQ(map[2][2], 10.0);
        // Looking along -x with z up, +y is to the right.
        const auto sampleAt = [&map](double y, double z) {
            return map[std::size_t((z + 2.0) / 4.0 * 161.0)][std::size_t((y + 2.5) / 5.0 * 201.0)];
        };
        EXPECT_NEAR(sampleAt(-1.5, 1.5), 4.9, 1e-6);
        EXPECT_EQ(sampleAt(-1.5, -1.5), 10.0);
        EXPECT_EQ(sampleAt(1.5, 1.5), 10.0);
        EXPECT_EQ(KrWindow::getWindow(), &other) << "the context that was current is current again";
    }
}

TEST(KrRender2DSampleTool, TheThousandthMapIsTheFirst)
{
    if (!canDraw()) {
        GTEST_SKIP() << "no OpenGL context";
    }
    const auto ball = boost::make_shared<KrSpherePhysicalExtent>(1.0);
    // The mesh lies inside the ball: its flattest place tells by how much at most.
    double inside = 0.0;
    const boost::shared_ptr<const KrTriPhysicalExtent> mesh = ball->triExtent();
    for (unsigned int g = 0; g < mesh->groups().size(); ++g) {
        for (const KrTriangle& triangle : mesh->groups()[g].second().values()) {
            const KrVector sum = mesh->vertices()[triangle.vertex(0)] + mesh->vertices()[triangle.vertex(1)] +
                                 mesh->vertices()[triangle.vertex(2)];
            inside = std::max(inside, 1.0 - sum.length() / 3.0);
        }
    }
    EXPECT_LT(inside, 0.02);
    const KrStatedSystem system(bodies({ball, Systems::box(KrVector(0.2, 0.4, 0.4), KrVector(0.0, -1.5, 1.5), "")}));
    Map first;
    ASSERT_TRUE(KrRender2DSampleTool::get2DMap(system, fromPlusX(), 51, 41, 5.0, 4.0, 10.0, first));
    EXPECT_GE(first[20][25], 4.0 - 1e-6);
    EXPECT_LE(first[20][25], 4.0 + inside + 1e-6);
    for (int call = 1; call < kManyCalls; ++call) {
        Map map;
        ASSERT_TRUE(KrRender2DSampleTool::get2DMap(system, fromPlusX(), 51, 41, 5.0, 4.0, 10.0, map));
        ASSERT_EQ(map, first) << "call " << call + 1;
    }
}

TEST(KrRender2DSampleTool, AnEmptySceneIsAsFarAsItGets)
{
    if (!canDraw()) {
        GTEST_SKIP() << "no OpenGL context";
    }
    Map map;
    ASSERT_TRUE(KrRender2DSampleTool::get2DMap(KrStatedSystem(), fromPlusX(), 8, 4, 1.0, 1.0, 1.000001, map));
    EXPECT_EQ(map, Map(4, std::vector<double>(8, 1.000001)));
}

std::vector<unsigned char> picture(KrRenderWindow& window)
{
    KrImage image;
    EXPECT_TRUE(window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
    return std::vector<unsigned char>(image.data(), image.data() + image.sizeInBytes());
}

TEST(KrRender2DSampleTool, AWindowOfTheSameSystemShowsWhatItShowed)
{
    if (!canDraw()) {
        GTEST_SKIP() << "no OpenGL context";
    }
    KrStatedSystem system(Systems::twoBoxes());
    KrRenderWindow window;
    window.setHideWindow(true);
    window.setWindowSize(64, 48);
    ASSERT_TRUE(window.init());
    window.setStatedSystem(system);
    const std::vector<unsigned char> plain = picture(window);
    const auto drawMap = [&system] {
        MessageRecorder messages; // of the map's own window, which shares the shapes
        Map map;
        EXPECT_TRUE(KrRender2DSampleTool::get2DMap(system, fromPlusX(), 20, 16, 5.0, 4.0, 10.0, map));
    };
    drawMap();
    EXPECT_EQ(picture(window), plain);

    const KrShapeStateCacheKey arm(0, 0, 0);
    ASSERT_TRUE(system.selectShape(arm));
    const std::vector<unsigned char> selected = picture(window);
    ASSERT_NE(selected, plain);
    drawMap();
    EXPECT_EQ(picture(window), selected) << "a selection that is shown";

    system.clearSelection();
    drawMap();
    EXPECT_EQ(picture(window), plain) << "a selection that is still shown, but gone";

    ASSERT_TRUE(system.selectShape(arm));
    drawMap();
    EXPECT_EQ(picture(window), selected) << "a selection that has yet to be shown";

    ASSERT_TRUE(system.setTransparency(0.6));
    drawMap();
    EXPECT_TRUE(system.isTransparencyChanged());

    system.systemChanged();
    drawMap();
    EXPECT_TRUE(system.isNewSystem()) << "its window has yet to let go of the old links";
    EXPECT_EQ(picture(window), plain);
}

/// Physical memory of this process at its highest so far, bytes.
std::uint64_t peakMemory()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return std::uint64_t(usage.ru_maxrss) * 1024;
}

TEST(KrRender2DSampleTool, AMapThatNoContextDrawsIsRefusedBeforeItsMemory)
{
    if (!canDraw()) {
        GTEST_SKIP() << "no OpenGL context";
    }
    Map map = {{7.0}};
    const std::uint64_t before = peakMemory();
    const std::pair<unsigned int, unsigned int> sizes[] = {
        {100000, 100000}, {40000, 3}, {3, 40000}, {4000000000u, 1}, {4294967295u, 4294967295u}};
    for (const auto& [width, height] : sizes) {
        MessageRecorder messages;
        EXPECT_FALSE(KrRender2DSampleTool::get2DMap(KrStatedSystem(), fromPlusX(), width, height, 1, 1, 2, map))
            << width;
        EXPECT_EQ(messages.count(), 1u) << messages.all();
    }
    EXPECT_EQ(map, Map{{7.0}});
    EXPECT_LT(peakMemory() - before, std::uint64_t{256} << 20);
    // Larger than what is opened at once, and possible: the right size, everywhere.
    ASSERT_TRUE(KrRender2DSampleTool::get2DMap(KrStatedSystem(), fromPlusX(), 5000, 2, 1, 1, 2, map));
    EXPECT_EQ(map, Map(2, std::vector<double>(5000, 2.0)));
}

} // namespace
