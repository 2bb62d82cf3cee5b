// The self tests of how frames leave the library: captures, depths, maps, streams, tiles, overlay, several windows.

#include <rendCore/capture/KrDepthCapture.h>
#include <rendCore/capture/KrFrameStream.h>
#include <rendCore/capture/KrRender2DSampleTool.h>
#include <rendCore/capture/KrRenderCaptureManager.h>
#include <rendCore/selftest/private/KrSelfTestRun.h>
#include <rendCore/selftest/private/KrSelfTestScenes.h>
#include <rendCore/system/KrMultiRenderWindow.h>

#include <osg/GL>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

namespace
{

using Run = KrSelfTestRun;
using Colour = KrSelfTestRun::Colour;
using Pixel = KrSelfTestView::Pixel;

/// Four quarters, none like another: red upper left (nearest), green upper right, blue lower left (farthest), and
/// nothing lower right.
struct Quarter
{
    const char* name;
    double x;
    double z;
    double y; ///< of the front face, m
    Colour colour;
    const char* material; ///< null where there is nothing
};
const Quarter kQuarters[4] = {{"the upper left quarter", -0.6, 0.45, -1.0, {1.0, 0.0, 0.0}, "red"},
                              {"the upper right quarter", 0.6, 0.45, -0.5, {0.0, 1.0, 0.0}, "green"},
                              {"the lower left quarter", -0.6, -0.45, 0.0, {0.0, 0.0, 1.0}, "blue"},
                              {"the lower right quarter", 0.6, -0.45, 0.0, {0.0, 0.0, 0.0}, nullptr}};

/// The boxes are 0.2 m deep, so that their middle lies 0.1 m behind the front face that a quarter names.
KrStatedSystem lopsided()
{
    KrIndividualManipulator robot = Run::robot();
    for (const Quarter& quarter : kQuarters) {
        if (quarter.material) {
            robot.addShape(
                Run::box(KrVector(0.8, 0.2, 0.6), KrVector(quarter.x, quarter.y + 0.1, quarter.z), quarter.material));
        }
    }
    return Run::systemOf(robot);
}

/// Near and small: the perspective is strong enough to tell the quarters' distances apart, and frames are quick.
KrSelfTestView closeView()
{
    KrSelfTestView view;
    view.width = 160;
    view.height = 120;
    view.distance = 6.0;
    view.metresHigh = 2.2;
    return view;
}

/// For pictures of closeView() at any size of its aspect ratio: places are scaled with the width.
void expectQuarters(KrSelfTestRun& run, const KrImage& picture, const char* what)
{
    KrSelfTestView view = closeView();
    const double shrink = double(picture.width()) / view.width;
    for (const Quarter& quarter : kQuarters) {
        Pixel pixel = view.at(quarter.x, quarter.z, quarter.y);
        pixel = {pixel.column * shrink, pixel.row * shrink};
        run.expectColour(picture, pixel, quarter.colour, Run::kColourTolerance,
                         (std::string(what) + ", " + quarter.name).c_str());
    }
}

/// A copy of `width` x `height` RGB pixels without gaps: what a callback is handed goes when the callback returns.
KrImage toImage(const unsigned char* pixels, unsigned int width, unsigned int height)
{
    KrImage image;
    image.allocate(3, 0, width, height);
    if (image.data() && pixels) {
        std::memcpy(image.data(), pixels, image.sizeInBytes());
    }
    return image;
}

/// The same rows in the other order.
KrImage upsideDown(const KrImage& picture)
{
    KrImage turned = picture;
    const std::size_t rowBytes = std::size_t(picture.width()) * picture.channels();
    for (std::size_t row = 0; row < picture.height(); ++row) {
        std::memcpy(turned.data() + row * rowBytes, picture.data() + (picture.height() - 1 - row) * rowBytes, rowBytes);
    }
    return turned;
}

/// Near is light, 4 m to 8 m; nothing is black.
KrImage greyOf(const std::vector<float>& depths, unsigned int width, unsigned int height)
{
    KrImage image;
    image.allocate(1, 0, width, height);
    for (std::size_t i = 0; i < depths.size() && i < image.sizeInBytes(); ++i) {
        const double light = std::clamp((8.0 - double(depths[i])) / 4.0, 0.0, 1.0);
        image.data()[i] = static_cast<unsigned char>(255.0 * light);
    }
    return image;
}

/// The window's own surface, overlay and all.
KrImage surfaceOf(KrSelfTestRun& run, KrSGWindow& window, const char* what)
{
    KrImage picture;
    run.spoilWindow(window);
    if (!run.expect(window.renderScene(false) && window.makeCurrent(), "a frame can be drawn")) {
        return picture;
    }
    picture.allocate(3, 0, window.windowWidth(), window.windowHeight());
    // OpenGL pads rows to four bytes unless it is told otherwise; the setting is the client's and is put back.
    glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, static_cast<GLsizei>(picture.width()), static_cast<GLsizei>(picture.height()), GL_RGB,
                 GL_UNSIGNED_BYTE, picture.data());
    glPopClientAttrib();
    run.checkGL(what);
    run.keep(picture, what);
    return picture;
}

} // namespace

void KrSelfTestScenes::orientation(KrSelfTestRun& run)
{
    const KrStatedSystem system = lopsided();
    const KrSelfTestView view = closeView();
    KrRenderWindow window;
    if (!run.open(window, system, view)) {
        return;
    }
    // Off screen a frame goes through a framebuffer object, a way to the pixels of its own.
    for (const bool isOffScreen : {false, true}) {
        window.setOffScreenRendering(isOffScreen);
        const KrImage picture = run.capture(window, isOffScreen ? "off screen" : "window");
        expectQuarters(run, picture, isOffScreen ? "an off-screen capture" : "a capture");
        if (!picture.data()) {
            return;
        }
        // The same frame once more: nothing has changed between the two.
        KrImage flipped;
        window.renderSceneAndCaptureImage(flipped, KrSGWindow::CaptureColor | KrSGWindow::CaptureFlipped);
        // A flipped capture keeps its rows in a storage of its own, which has to be made the
        // ordinary one before it is read.
        if (run.expect(flipped.flippedToOrdinary(), "a flipped capture has its storage")) {
            run.keep(flipped, "flipped");
            run.expectSame(flipped, upsideDown(picture), "a flipped capture");
        }
        const osg::ref_ptr<KrRenderCaptureManager> manager = new KrRenderCaptureManager;
        KrImage scaled;
        // Half of each side: the middles of the quarters stay far from any edge that scaling blurs.
        manager->setCaptureSize(80, 60);
        manager->callbackFunction = [&scaled](const osg::Image* image) {
            scaled =
                toImage(image->data(), static_cast<unsigned int>(image->s()), static_cast<unsigned int>(image->t()));
        };
        window.setDrawCallback(manager);
        run.spoilWindow(window);
        run.expect(window.renderScene(true) && scaled.width() == 80, "the capture manager hands out a frame");
        window.setDrawCallback(nullptr);
        run.keep(scaled, "scaled");
        expectQuarters(run, scaled, "a scaled capture");
    }
    // PNG loses nothing: the picture has to come back to the byte.
    const std::string file = run.scratchFile("picture.png");
    const KrImage picture = run.capture(window, "off screen");
    KrImage read;
    run.expect(picture.writeFile(file, KrImage::BottomRowFirst) && read.readFile(file, KrImage::BottomRowFirst),
               "a picture goes to a file and back");
    run.expectSame(read, picture, "a picture from its file");
}

void KrSelfTestScenes::depth(KrSelfTestRun& run)
{
    const KrStatedSystem system = lopsided();
    const KrSelfTestView view = closeView();
    KrRenderWindow window;
    if (!run.open(window, system, view)) {
        return;
    }
    // One object for both kinds: what it keeps from frame to frame is tried, too.
    KrDepthCapture capture;
    for (const KrDepthCapture::Kind kind : {KrDepthCapture::Kind::Planar, KrDepthCapture::Kind::Euclidean}) {
        const bool isPlanar = kind == KrDepthCapture::Kind::Planar;
        KrDepthCapture::Options options;
        options.kind = kind;
        std::vector<float> depths;
        run.spoilWindow(window);
        if (!run.expect(capture.render(window, options, depths) &&
                            depths.size() == std::size_t(view.width) * view.height,
                        "depths can be read")) {
            return;
        }
        run.checkGL("depths");
        run.spoilDepths(depths);
        KrImage grey = greyOf(depths, view.width, view.height);
        run.keep(grey, isPlanar ? "planar" : "euclidean");
        for (const Quarter& quarter : kQuarters) {
            const Pixel pixel = view.at(quarter.x, quarter.z, quarter.y);
            const auto column = static_cast<std::size_t>(pixel.column);
            const auto row = static_cast<std::size_t>(pixel.row);
            const double seen = depths[row * view.width + column];
            // Nothing was drawn there: no distance is near infinity.
            if (!quarter.material) {
                // Infinity is the default background, so that no distance can be taken for it.
                run.expect(std::isinf(seen), "depth where there is nothing");
                continue;
            }
            double wanted = view.distance + quarter.y;
            if (!isPlanar) {
                // The ray of a pixel's middle: it is longer than its part along the view by the secant of its angle.
                const double focal = view.scale() * view.distance; // pixels
                wanted *= std::sqrt(1.0 + std::pow((double(column) + 0.5 - 0.5 * view.width) / focal, 2.0) +
                                    std::pow((double(row) + 0.5 - 0.5 * view.height) / focal, 2.0));
            }
            // The bound is half a step of the depth buffer there; the rest is for single precision on the way.
            run.expectNear(seen, wanted, 1.1 * capture.errorBound(wanted) + 1e-6,
                           (std::string(isPlanar ? "planar" : "Euclidean") + " depth, m, of " + quarter.name).c_str());
        }
    }
}

void KrSelfTestScenes::rangeMap(KrSelfTestRun& run)
{
    // From 5 m above: a tall box at the left and back, a flat one at the right and front.
    KrIndividualManipulator robot = Run::robot();
    robot.addShape(Run::box(KrVector(0.8, 0.6, 1.0), KrVector(-0.8, 0.6, 0.5), "red"));
    robot.addShape(Run::box(KrVector(0.8, 0.6, 0.2), KrVector(0.8, -0.6, 0.1), "green"));
    const KrStatedSystem system = Run::systemOf(robot);
    KrCoordinateSystemTransformation view;
    // The tool looks along -z of the frame that it is given: straight down.
    view.setTranslation(KrVector(0.0, 0.0, 5.0));
    constexpr unsigned int kWidth = 64;
    constexpr unsigned int kHeight = 48;
    // Farther than anything in the scene, so that what meets nothing is told apart.
    constexpr double kFarthest = 9.0;
    std::vector<std::vector<double>> map;
    if (!run.expect(KrRender2DSampleTool::get2DMap(system, view, kWidth, kHeight, 3.2, 2.4, kFarthest, map) &&
                        map.size() == kHeight,
                    "a range map can be drawn")) {
        return;
    }
    std::vector<float> depths;
    for (const std::vector<double>& row : map) {
        // Single precision, as the spoiler takes depths: of 9 m that is a micrometre.
        depths.insert(depths.end(), row.begin(), row.end());
    }
    run.spoilDepths(depths);
    KrImage grey = greyOf(depths, kWidth, kHeight);
    run.keep(grey, "from above");
    const auto sample = [&depths](double x, double y) {
        const auto column = static_cast<std::size_t>((x + 1.6) / 3.2 * kWidth);
        // Row 0 is the lowest, at y = -1.2 m.
        const auto row = static_cast<std::size_t>((y + 1.2) / 2.4 * kHeight);
        return double(depths[row * kWidth + column]);
    };
    run.expectNear(sample(-0.8, 0.6), 4.0, 1e-5, "the tall box's distance, m");
    run.expectNear(sample(0.8, -0.6), 4.8, 1e-5, "the flat box's distance, m");
    // Kept: what meets nothing has the greatest distance of the map, by which callers tell it.
    run.expectNear(sample(0.8, 0.6), kFarthest, 1e-5, "the distance of nothing, m");
    run.expectNear(sample(-0.8, -0.6), kFarthest, 1e-5, "the distance of nothing, m");
}

void KrSelfTestScenes::stream(KrSelfTestRun& run)
{
    KrManipulatorLink arm("arm");
    arm.jointKinematics().setName("arm");
    arm.jointKinematics().setType(KrJointKinematics::Type::Continuous);
    arm.jointKinematics().setAxis(KrVector(0.0, -1.0, 0.0));
    arm.addShape(Run::box(KrVector(0.9, 0.1, 0.2), KrVector(0.45, 0.0, 0.0), "red"));
    KrIndividualManipulator robot = Run::robot();
    robot.addChildLink(arm);
    KrStatedSystem system = Run::systemOf(robot);
    const KrSelfTestView view = closeView();
    KrRenderWindow window;
    if (!run.open(window, system, view)) {
        return;
    }
    constexpr unsigned int kFrames = 5;
    // The steps are large against the arm's width: a frame that is handed out twice, or
    // late, shows the arm elsewhere.
    const auto angle = [](unsigned int frame) { return 0.3 + 1.1 * frame; };
    const auto pose = [&](unsigned int frame) {
        system.setJointPosition(0, "arm", angle(frame));
        window.setState(system.systemState());
    };
    const osg::ref_ptr<KrFrameStream> stream = new KrFrameStream(KrFrameStream::Content::Color);
    std::vector<KrImage> frames;
    stream->setReceiver([&](const KrFrameStream::Frame& frame) {
        // The pixels are the stream's and are good for this call only.
        run.expect(frame.number == frames.size(), "frames come in order");
        frames.push_back(toImage(frame.data, frame.width, frame.height));
    });
    window.setDrawCallback(stream);
    for (unsigned int i = 0; i < kFrames; ++i) {
        pose(i);
        run.spoilWindow(window);
        run.expect(window.renderScene(true), "a frame can be drawn");
    }
    window.setDrawCallback(nullptr);
    // Frames are read while later ones are drawn: the last of them wait until they are asked for.
    run.expect(stream->flush() && frames.size() == kFrames, "every frame comes");
    run.checkGL("stream");
    for (unsigned int i = 0; i < frames.size(); ++i) {
        run.keep(frames[i], ("frame " + std::to_string(i)).c_str());
        run.expectColour(frames[i], view.at(0.6 * std::cos(angle(i)), 0.6 * std::sin(angle(i))), {1.0, 0.0, 0.0},
                         Run::kColourTolerance, ("the arm in frame " + std::to_string(i)).c_str());
        run.expectCoverage(frames[i], view.coverage(0.9 * 0.2), 0.15, "the arm");
    }
    // The last pose once more, read in another way.
    pose(kFrames - 1);
    if (!frames.empty()) {
        // Both ways read the same frame: the one waits for the driver, the other does not.
        run.expectSame(run.capture(window, "last pose"), frames.back(), "a streamed frame and a captured one");
    }
}

void KrSelfTestScenes::tiles(KrSelfTestRun& run)
{
    // A cube with a plate of another colour on each side, and a knob upper right on its front.
    KrIndividualManipulator robot = Run::robot();
    robot.addShape(Run::box(KrVector(1.0, 0.1, 1.0), KrVector(0.0, -0.5, 0.0), "grey"));
    robot.addShape(Run::box(KrVector(0.2, 0.1, 0.2), KrVector(0.3, -0.6, 0.3), "white"));
    robot.addShape(Run::box(KrVector(0.1, 0.8, 0.8), KrVector(0.5, 0.0, 0.0), "red"));
    robot.addShape(Run::box(KrVector(0.9, 0.1, 0.9), KrVector(0.0, 0.5, 0.0), "green"));
    robot.addShape(Run::box(KrVector(0.8, 0.8, 0.1), KrVector(0.0, 0.0, 0.5), "blue"));
    const KrStatedSystem system = Run::systemOf(robot);
    const KrSelfTestView view = closeView();
    KrMultiRenderWindow window(view.width, view.height, 4);
    window.setNumColumnsHint(2);
    window.setHideWindow(true);
    KrXmlVectorType<KrPovParameters> povs;
    // In the order of the tiles: front, right, back, top.
    const KrVector eyes[4] = {KrVector(0.0, -6.0, 0.0), KrVector(6.0, 0.0, 0.0), KrVector(0.0, 6.0, 0.0),
                              KrVector(0.0, 0.0, 6.0)};
    for (const KrVector& eye : eyes) {
        KrPovParameters pov = view.pov();
        pov.setEyepoint(eye);
        // From above z is the direction of view, and cannot be up as well.
        pov.setUp(eye.z() > 0.0 ? KrVector(0.0, 1.0, 0.0) : KrVector(0.0, 0.0, 1.0));
        povs.push_back(pov);
    }
    window.setPovParametersVector(povs);
    window.setBackgroundColor(KrColor(0.0, 0.0, 0.0));
    if (!window.init()) {
        run.fail("no window can be opened");
        return;
    }
    window.setStatedSystem(system);
    window.setPovParameters(view.pov());
    run.spoilWindow(window);
    KrImage picture;
    if (!run.expect(window.captureWindow(picture, KrSGWindow::CaptureColor), "the tiles can be drawn")) {
        return;
    }
    window.makeCurrent();
    run.checkGL("tiles");
    run.keep(picture, "four views");
    run.expect(picture.width() == 2 * view.width && picture.height() == 2 * view.height, "two by two tiles");
    // Views fill rows from the left and from the top, while rows of pixels count from the bottom.
    const auto inTile = [&view](unsigned int column, unsigned int row, double x, double z, double y) {
        const Pixel pixel = view.at(x, z, y);
        return Pixel{pixel.column + column * view.width, pixel.row + row * view.height};
    };
    run.expectColour(picture, inTile(0, 1, 0.0, 0.0, -0.55), {0.5, 0.5, 0.5}, Run::kColourTolerance,
                     "the front's tile");
    run.expectColour(picture, inTile(0, 1, 0.3, 0.3, -0.65), {1.0, 1.0, 1.0}, Run::kColourTolerance,
                     "the front's knob");
    run.expectColour(picture, inTile(0, 1, -0.3, 0.3, -0.65), {0.5, 0.5, 0.5}, Run::kColourTolerance,
                     "the front beside its knob");
    run.expectColour(picture, inTile(1, 1, 0.0, 0.0, -0.55), {1.0, 0.0, 0.0}, Run::kColourTolerance,
                     "the right side's tile");
    run.expectColour(picture, inTile(0, 0, 0.0, 0.0, -0.55), {0.0, 1.0, 0.0}, Run::kColourTolerance, "the back's tile");
    run.expectColour(picture, inTile(1, 0, 0.0, 0.0, -0.55), {0.0, 0.0, 1.0}, Run::kColourTolerance, "the top's tile");
    // The knob stands out on the left of the right side: the front is there.
    run.expectColour(picture, inTile(1, 1, -0.6, 0.3, -0.4), {1.0, 1.0, 1.0}, Run::kColourTolerance,
                     "the knob from the right side");
}

void KrSelfTestScenes::overlay(KrSelfTestRun& run)
{
    const KrSelfTestView view;
    KrSGWindow window;
    if (!run.open(window, view)) {
        return;
    }
    // Captures leave the overlay out: the text is looked for in the window's surface.
    const KrImage empty = surfaceOf(run, window, "without text");
    run.expectNear(Run::coverage(empty), 0.0, 0.0, "what an empty window shows");
    window.setOverlayText("HHHH", 40, 80, KrColor(1.0, 1.0, 0.0));
    const KrImage picture = surfaceOf(run, window, "text");
    // Thirty pixels high, its lower left corner 40 from the left and 80 from the top.
    KrImageBlock block;
    block.x = 36;
    // Four pixels to spare on each side, for edges that are smoothed.
    block.y = view.height - 80 - 4;
    block.width = 160;
    block.height = 40;
    KrImage around;
    if (picture.data() && picture.getSubimage(block, around)) {
        // Of the whole picture, so that the text inside and the text of the picture can be compared.
        const double share = double(block.width) * block.height / (double(view.width) * view.height);
        const double inside = Run::coverage(around) * share;
        // Fonts differ between machines: letters cover neither nearly nothing nor a whole rectangle in any of them.
        run.expect(inside > 0.05 * share && inside < 0.8 * share, "the text is there");
        run.expectNear(Run::coverage(picture), inside, 0.0, "the text is nowhere else");
        double brightest = 0.0;
        for (std::size_t i = 0; i + 2 < around.sizeInBytes(); i += 3) {
            // Edges of letters are blended with black: one full pixel is enough.
            if (around.data()[i + 2] < 10) {
                brightest = std::max(brightest, double(std::min(around.data()[i], around.data()[i + 1])) / 255.0);
            }
        }
        run.expect(brightest > 0.9, "the text is yellow");
    }
    run.expectNear(Run::coverage(run.capture(window, "capture")), 0.0, 0.0, "text in a capture");
    window.clearAllOverlayText();
    run.expectSame(surfaceOf(run, window, "without text"), empty, "a window whose text is gone");
}

void KrSelfTestScenes::windows(KrSelfTestRun& run)
{
    const KrStatedSystem systems[2] = {lopsided(), [] {
                                           KrIndividualManipulator robot = Run::robot();
                                           robot.addShape(Run::box(KrVector(1.0, 0.5, 0.5), KrVector(), "yellow"));
                                           return Run::systemOf(robot);
                                       }()};
    const KrSelfTestView view = closeView();
    // What each scene looks like with no other window beside it is the measure of all that follows.
    KrImage alone[2];
    for (unsigned int i = 0; i < 2; ++i) {
        KrRenderWindow window;
        if (!run.open(window, systems[i], view)) {
            return;
        }
        alone[i] = run.capture(window, i == 0 ? "first" : "second");
    }
    expectQuarters(run, alone[0], "the first window");
    run.expectColour(alone[1], view.at(0.0, 0.0), {1.0, 1.0, 0.0}, Run::kColourTolerance, "the second window");

    const auto first = std::make_unique<KrRenderWindow>();
    KrRenderWindow second;
    if (!run.open(*first, systems[0], view) || !run.open(second, systems[1], view)) {
        return;
    }
    // By turns: a window that draws into its neighbour's context, or with its state, shows in the second round.
    for (unsigned int round = 0; round < 2; ++round) {
        run.expectSame(run.capture(*first, "first"), alone[0], "the first of two windows");
        run.expectSame(run.capture(second, "second"), alone[1], "the second of two windows");
    }
    // Closing releases what the context holds: names of the neighbour's that are equal must not go with it.
    first->closeWindow();
    run.expectSame(run.capture(second, "second"), alone[1], "a window after another was closed");
    if (run.open(*first, systems[0], view)) {
        run.expectSame(run.capture(*first, "first"), alone[0], "a window that was opened again");
    }
}
