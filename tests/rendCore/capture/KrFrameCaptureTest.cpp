#include <rendCore/capture/KrFrameCapture.h>
#include <rendCore/capture/KrFrameDescription.h>
#include <rendCore/system/KrMultiRenderWindow.h>
#include <rendCore/window/KrSGDrawCallbacks.h>

#include <tests/support/Allocations.h>
#include <tests/support/MessageRecorder.h>
#include <tests/support/Systems.h>

#include <osg/Geode>
#include <osg/Group>
#include <osg/LogicOp>
#include <osg/ShapeDrawable>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace
{

constexpr unsigned int kWidth = 96;
constexpr unsigned int kHeight = 64;

struct Images
{
    explicit Images(unsigned int w = kWidth, unsigned int h = kHeight)
        : width(w)
        , height(h)
        , color(std::size_t(3) * w * h)
        , depth(std::size_t(w) * h)
        , labels(std::size_t(w) * h)
        , normals(std::size_t(3) * w * h)
    {
    }
    KrFrameCapture::Targets targets()
    {
        return {width, height, color.data(), depth.data(), labels.data(), normals.data()};
    }
    bool operator==(const Images& other) const
    {
        return color == other.color && depth == other.depth && labels == other.labels && normals == other.normals;
    }

    unsigned int width;
    unsigned int height;
    std::vector<unsigned char> color;
    std::vector<float> depth;
    std::vector<std::uint32_t> labels;
    std::vector<float> normals;
};

/// From the side and a little above: nothing in the picture is symmetric.
KrPovParameters sidePov(const KrVector& eye = KrVector(3.0, -6.0, 3.0))
{
    KrPovParameters pov;
    pov.setEyepoint(eye);
    pov.setCenterOfInterest(KrVector(0.5, 0.0, 0.7));
    return pov;
}

class KrFrameCaptureTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!open(window, system)) {
            GTEST_SKIP() << window.report().text();
        }
    }
    bool open(KrRenderWindow& opened, const KrStatedSystem& shown)
    {
        opened.setHideWindow(true);
        opened.setWindowSize(kWidth, kHeight);
        opened.setStatedSystem(shown);
        if (!opened.init()) {
            return false;
        }
        opened.setPovParameters(sidePov());
        return true;
    }
    Images draw(KrSGWindow& drawn)
    {
        Images images;
        EXPECT_TRUE(capture.render(drawn, options, images.targets()));
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        return images;
    }

    KrStatedSystem system{Systems::twoBoxes()};
    KrRenderWindow window;
    KrFrameCapture capture;
    KrFrameCapture::Options options;
};

} // namespace

// The upright red box is 1, the green arm above it 2: the top row comes first, and x goes to the right.
TEST_F(KrFrameCaptureTest, ShowsPartsWhereTheyAre)
{
    options.normalFrame = KrFrameCapture::NormalFrame::World;
    const Images images = draw(window);
    double x[3] = {};
    double y[3] = {};
    double count[3] = {};
    bool isUpSeen = false;
    for (std::size_t i = 0; i < images.labels.size(); ++i) {
        const std::uint32_t label = images.labels[i];
        ASSERT_LE(label, 2u);
        x[label] += double(i % kWidth);
        y[label] += double(i / kWidth);
        ++count[label];
        if (label == 0) {
            EXPECT_TRUE(std::isinf(images.depth[i]));
            continue;
        }
        // Boxes with sides along the axes: each normal is one of them, and looks to the eye.
        const float* const n = images.normals.data() + 3 * i;
        const float largest = std::max({std::abs(n[0]), std::abs(n[1]), std::abs(n[2])});
        EXPECT_NEAR(largest, 1.0f, 1e-4f);
        EXPECT_GT(n[0] - n[1] + n[2], 0.9f) << "+x, -y or +z";
        isUpSeen = isUpSeen || n[2] > 0.9f;
        // Red where the base is and green where the arm is.
        EXPECT_GT(images.color[3 * i + (label == 1 ? 0 : 1)], images.color[3 * i + (label == 1 ? 1 : 0)]);
        EXPECT_NEAR(images.depth[i], 6.8f, 1.7f);
    }
    EXPECT_TRUE(isUpSeen);
    ASSERT_GT(count[1], 50.0);
    ASSERT_GT(count[2], 50.0);
    EXPECT_LT(y[2] / count[2], y[1] / count[1]) << "above";
    EXPECT_GT(x[2] / count[2], x[1] / count[1]) << "to the right";

    options.rowOrder = KrDepthCapture::RowOrder::BottomRowFirst;
    const Images flipped = draw(window);
    for (unsigned int row = 0; row < kHeight; ++row) {
        const std::size_t at = std::size_t(row) * kWidth;
        const std::size_t other = std::size_t(kHeight - 1 - row) * kWidth;
        EXPECT_TRUE(std::equal(&images.labels[at], &images.labels[at] + kWidth, &flipped.labels[other]));
        EXPECT_TRUE(std::equal(&images.depth[at], &images.depth[at] + kWidth, &flipped.depth[other]));
        EXPECT_TRUE(std::equal(&images.color[3 * at], &images.color[3 * at] + 3 * kWidth, &flipped.color[3 * other]));
        EXPECT_TRUE(
            std::equal(&images.normals[3 * at], &images.normals[3 * at] + 3 * kWidth, &flipped.normals[3 * other]));
    }
}

TEST_F(KrFrameCaptureTest, AnySubsetIsWhatAllOfThemAre)
{
    const Images all = draw(window);
    for (unsigned int kinds = 1; kinds < 15; ++kinds) {
        SCOPED_TRACE(kinds);
        Images some;
        KrFrameCapture::Targets targets = some.targets();
        targets.color = (kinds & 1u) != 0 ? targets.color : nullptr;
        targets.depth = (kinds & 2u) != 0 ? targets.depth : nullptr;
        targets.labels = (kinds & 4u) != 0 ? targets.labels : nullptr;
        targets.normals = (kinds & 8u) != 0 ? targets.normals : nullptr;
        ASSERT_TRUE(capture.render(window, options, targets));
        const Images none;
        EXPECT_EQ(some.color, targets.color ? all.color : none.color);
        EXPECT_EQ(some.depth, targets.depth ? all.depth : none.depth);
        EXPECT_EQ(some.labels, targets.labels ? all.labels : none.labels);
        EXPECT_EQ(some.normals, targets.normals ? all.normals : none.normals);
    }
}

// A state that is given, a window that is closed and opened, another window in between.
TEST_F(KrFrameCaptureTest, FollowsTheSceneAndItsWindows)
{
    const Images before = draw(window);
    system.setJointPosition(0, "arm_joint", 1.0);
    window.setState(system.systemState());
    Images labelsAlone;
    KrFrameCapture::Targets targets = labelsAlone.targets();
    targets.color = nullptr;
    // Without colours no frame is drawn, and things move all the same.
    ASSERT_TRUE(capture.render(window, options, targets));
    EXPECT_NE(labelsAlone.labels, before.labels);
    const Images moved = draw(window);
    EXPECT_EQ(moved.labels, labelsAlone.labels);

    KrStatedSystem otherSystem(Systems::twoBoxes());
    KrRenderWindow other;
    ASSERT_TRUE(open(other, otherSystem));
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(draw(window) == moved);
        EXPECT_TRUE(draw(other) == before);
    }
    KrFrameCapture second;
    for (int i = 0; i < 3; ++i) {
        window.closeWindow();
        ASSERT_TRUE(open(window, system));
        window.setState(system.systemState());
        EXPECT_EQ(draw(window).labels, moved.labels);
        // Two at one camera, which goes and takes nothing of them along.
        Images again;
        ASSERT_TRUE(second.render(window, options, again.targets()));
        EXPECT_EQ(again.labels, moved.labels);
    }
    // The capture goes before its window, and its window before it.
    auto first = std::make_unique<KrFrameCapture>();
    Images images;
    ASSERT_TRUE(first->render(window, options, images.targets()));
    first.reset();
    EXPECT_TRUE(window.renderScene(true));
    window.closeWindow();
}

// To the last bit, planes included: data sets are drawn in any order.
TEST_F(KrFrameCaptureTest, AFrameDoesNotDependOnThoseBefore)
{
    window.updateScene();
    const osg::Matrixd given = window.getViewer()->getCamera()->getProjectionMatrix();
    KrFrameDescription last;
    for (int i = 0; i < 40; ++i) {
        system.setJointPosition(0, "arm_joint", 0.37 * i);
        window.setState(system.systemState());
        draw(window);
    }
    EXPECT_TRUE(window.getViewer()->getCamera()->getProjectionMatrix() == given)
        << "the planes stay as they were asked for";
    const Images images = draw(window);
    ASSERT_TRUE(last.fill(window));
    KrDepthCapture depths;
    std::vector<float> old, fresh;
    ASSERT_TRUE(depths.render(window, {}, old));

    KrRenderWindow other;
    KrStatedSystem copy = system;
    ASSERT_TRUE(open(other, copy));
    EXPECT_TRUE(draw(other) == images);
    KrFrameDescription first;
    ASSERT_TRUE(first.fill(other));
    EXPECT_TRUE(first.projection == last.projection);
    ASSERT_TRUE(depths.render(other, {}, fresh));
    EXPECT_EQ(fresh, old);
}

TEST_F(KrFrameCaptureTest, WhatIsNoLinkHasNoLabelAndHidesNone)
{
    const Images before = draw(window);
    // A client's own ball before the robot, in the colours alone, and aids of every kind.
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(new osg::ShapeDrawable(new osg::Sphere(osg::Vec3(1.5f, -2.5f, 1.7f), 0.8f)));
    window.getNode()->addChild(geode);
    window.setDisplayMask(KrRenderTypes::LinkAxes | KrRenderTypes::BoundingVolumes | KrRenderTypes::MassProperties |
                              KrRenderTypes::CollisionShapes,
                          true, false);
    window.setOverlayText("text", 10, 10, KrColor(1.0, 1.0, 1.0));
    const Images after = draw(window);
    EXPECT_NE(after.color, before.color);
    EXPECT_EQ(after.labels, before.labels);
    std::size_t numOff = 0;
    for (std::size_t i = 0; i < after.depth.size(); ++i) {
        numOff += std::isfinite(after.depth[i]) && std::abs(after.depth[i] - before.depth[i]) > 1e-3f;
    }
    EXPECT_EQ(numOff, 0u);
    // Nor does a look that combines colours combine labels.
    window.getNode()->getOrCreateStateSet()->setAttributeAndModes(new osg::LogicOp(osg::LogicOp::XOR));
    const Images combined = draw(window);
    EXPECT_EQ(combined.labels, before.labels);
    EXPECT_EQ(combined.normals, after.normals);
    window.setDisplayMask(KrRenderTypes::SceneContent, false, false);
    EXPECT_EQ(draw(window).labels, std::vector<std::uint32_t>(after.labels.size())) << "hidden by the window";
}

// Each view where it stands, as a window of its own would show it; what no view covers is empty.
TEST_F(KrFrameCaptureTest, ReadsAllViewsOfAWindowOfSeveral)
{
    const std::vector<KrVector> eyes = {{3.0, -6.0, 3.0}, {-5.0, -4.0, 1.0}, {0.5, 0.1, 8.0}};
    KrMultiRenderWindow multi;
    multi.setHideWindow(true);
    multi.setNumColumnsHint(2);
    multi.setWindowParams(kWidth, kHeight, 3);
    KrStatedSystem own(Systems::twoBoxes());
    multi.setStatedSystem(own);
    ASSERT_TRUE(multi.init());
    multi.setPovParameters(sidePov(eyes[0]));
    multi.setEyePoints(eyes);
    Images all(2 * kWidth, 2 * kHeight);
    std::fill(all.labels.begin(), all.labels.end(), 9u);
    ASSERT_TRUE(capture.render(multi, options, all.targets()));
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    KrImage colors;
    ASSERT_TRUE(multi.captureWindow(colors, KrSGWindow::CaptureColor));
    for (unsigned int view = 0; view < 4; ++view) {
        SCOPED_TRACE(view);
        Images single;
        if (view < 3) {
            window.setPovParameters(sidePov(eyes[view]));
            if (view == 2) {
                KrPovParameters pov = sidePov(eyes[view]);
                pov.setUp(KrVector(0.0, 0.0, 1.0));
                window.setPovParameters(pov);
            }
            single = draw(window);
        }
        std::size_t numOther = 0;
        std::size_t numOtherColors = 0;
        for (unsigned int row = 0; row < kHeight; ++row) {
            for (unsigned int column = 0; column < kWidth; ++column) {
                const std::size_t x = column + view % 2 * kWidth;
                const std::size_t y = row + view / 2 * kHeight;
                const std::size_t i = std::size_t(row) * kWidth + column;
                const std::size_t at = y * 2 * kWidth + x;
                const std::size_t fromBelow = (2 * kHeight - 1 - y) * 2 * kWidth + x;
                numOther += all.labels[at] != (view < 3 ? single.labels[i] : 0u) ||
                            std::isfinite(all.depth[at]) != (all.labels[at] != 0);
                for (unsigned int c = 0; c < 3; ++c) {
                    numOtherColors += all.color[3 * at + c] != colors.data()[3 * fromBelow + c];
                }
            }
        }
        EXPECT_LE(numOther, 8u) << "edges, by rounding";
        EXPECT_EQ(numOtherColors, 0u);
    }
    std::optional<KrFrameCapture::Pick> pick;
    // The arm is in the middle of the view from above, which is the lower left one.
    ASSERT_TRUE(capture.pick(multi, kWidth / 2 + 20, kHeight + kHeight / 2, 1, pick));
    const std::size_t at = std::size_t(kHeight + kHeight / 2) * 2 * kWidth + kWidth / 2 + 20;
    EXPECT_EQ(pick.has_value(), all.labels[at] != 0);
    if (pick) {
        EXPECT_NEAR(pick->planarDepth, all.depth[at], 1e-4);
    }
}

TEST_F(KrFrameCaptureTest, RefusesWhatDoesNotFitAndKeepsTheClientsCallback)
{
    const osg::ref_ptr<KrSGWindow::DrawCallback> own = new KrSGWindow::DrawCallback;
    window.setDrawCallback(own);
    Images images(kWidth + 1, kHeight);
    {
        MessageRecorder messages;
        EXPECT_FALSE(capture.render(window, options, images.targets()));
        EXPECT_EQ(messages.count(), 1u);
        KrFrameCapture::Options odd = options;
        odd.reduction = 5;
        EXPECT_FALSE(capture.render(window, odd, images.targets()));
        odd.reduction = 0;
        EXPECT_FALSE(capture.render(window, odd, images.targets()));
        std::optional<KrFrameCapture::Pick> pick;
        EXPECT_FALSE(capture.pick(window, kWidth, 0, 1, pick));
        EXPECT_EQ(messages.count(), 4u);
    }
    EXPECT_EQ(window.getDrawCallback(), own);
    std::optional<KrFrameCapture::Pick> pick = KrFrameCapture::Pick();
    EXPECT_TRUE(capture.pick(window, 0, 0, 1, pick));
    EXPECT_FALSE(pick.has_value()) << "nothing is in the corner";
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

// Somebody who is called in a frame changes what the frame is drawn into, or asks the capture that draws it.
TEST_F(KrFrameCaptureTest, RefusesAFrameThatIsNotTheOneItBegan)
{
    class Change : public osg::NodeCallback
    {
    public:
        explicit Change(std::function<void()> change)
            : m_change(std::move(change))
        {
        }
        void operator()(osg::Node* node, osg::NodeVisitor* visitor) override
        {
            if (m_change) {
                const std::function<void()> change = std::exchange(m_change, nullptr);
                change();
            }
            traverse(node, visitor);
        }

    private:
        std::function<void()> m_change;
    };
    const Images before = draw(window);
    MessageRecorder messages;
    for (const bool isColored : {true, false}) {
        SCOPED_TRACE(isColored);
        Images images;
        KrFrameCapture::Targets targets = images.targets();
        targets.color = isColored ? targets.color : nullptr;
        const auto renderChanged = [&](KrRenderWindow& changed, const std::function<void()>& change) {
            const osg::ref_ptr<osg::NodeCallback> callback = new Change(change);
            changed.getNode()->addUpdateCallback(callback);
            const bool isRead = capture.render(changed, options, targets);
            changed.getNode()->removeUpdateCallback(callback);
            return isRead;
        };
        osg::Camera& camera = *window.getViewer()->getCamera();
        EXPECT_FALSE(renderChanged(window, [&] { camera.setViewport(0, 0, kWidth / 2, kHeight / 2); }));
        camera.setViewport(0, 0, kWidth, kHeight);

        // The frame within is refused, the one around it is read.
        KrStatedSystem otherSystem(Systems::twoBoxes());
        KrRenderWindow other;
        ASSERT_TRUE(open(other, otherSystem));
        bool isOtherRead = true;
        EXPECT_TRUE(renderChanged(window, [&] {
            Images inner;
            isOtherRead = capture.render(other, options, inner.targets());
        }));
        EXPECT_FALSE(isOtherRead);
        EXPECT_EQ(images.labels, before.labels);
        EXPECT_TRUE(window.renderScene(true)) << "no hook stays behind";
        if (!isColored) {
            // Another window's frame leaves another context current.
            std::fill(images.labels.begin(), images.labels.end(), 9u);
            EXPECT_TRUE(renderChanged(window, [&] { other.renderScene(true); }));
            EXPECT_EQ(images.labels, before.labels);
        }

        KrMultiRenderWindow multi;
        multi.setHideWindow(true);
        multi.setWindowParams(kWidth, kHeight, 3);
        multi.setStatedSystem(otherSystem);
        ASSERT_TRUE(multi.init());
        osgViewer::Viewer& viewer = *multi.getViewer();
        const auto* const traits = viewer.getCamera()->getGraphicsContext()->getTraits();
        Images tiles(static_cast<unsigned int>(traits->width), static_cast<unsigned int>(traits->height));
        targets = tiles.targets();
        targets.color = isColored ? targets.color : nullptr;
        ASSERT_TRUE(capture.render(multi, options, targets));
        EXPECT_FALSE(renderChanged(multi, [&] { viewer.removeSlave(viewer.getNumSlaves() - 1); }));
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    }
    EXPECT_TRUE(draw(window) == before);
}

TEST_F(KrFrameCaptureTest, AllocatesNoMoreThanTheSceneGraphsOwnPasses)
{
    const auto allocationsOf = [](const std::function<void()>& draw) {
        for (int i = 0; i < 4; ++i) {
            draw();
        }
        const std::size_t before = Allocations::now().withNew;
        for (int i = 0; i < 10; ++i) {
            draw();
        }
        return (Allocations::now().withNew - before) / 10;
    };
    const std::size_t plain = allocationsOf([&] { window.renderScene(true); });
    Images images;
    KrFrameCapture::Targets targets = images.targets();
    const auto drawKinds = [&] { ASSERT_TRUE(capture.render(window, options, targets)); };
    // Traversals of the scene graph's allocate a little by themselves: two passes of it at the most.
    EXPECT_LE(allocationsOf(drawKinds), 2 * plain);
    targets.color = nullptr;
    EXPECT_LE(allocationsOf(drawKinds), plain);
    targets = {kWidth, kHeight, images.color.data()};
    EXPECT_LE(allocationsOf(drawKinds), plain);
}
