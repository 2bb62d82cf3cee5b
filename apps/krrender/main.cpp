// krrender: draws a robot description or a native system file without a display.

#include "KrAppDepth.h"
#include "KrAppDoctor.h"
#include "KrAppFailure.h"
#include "KrAppFiles.h"
#include "KrAppFrameWriter.h"
#include "KrAppFraming.h"
#include "KrAppInfo.h"
#include "KrAppInterrupt.h"
#include "KrAppLighting.h"
#include "KrAppMessages.h"
#include "KrAppMotion.h"
#include "KrAppOptions.h"
#include "KrAppPose.h"
#include "KrAppProgress.h"
#include "KrAppRobot.h"
#include "KrAppScene.h"
#include "KrAppSidecar.h"
#include "KrAppTiles.h"
#include "KrAppVideo.h"
#include "KrAppView.h"

#include <rendCore/KrToolkitFolders.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <optional>

namespace
{

const KrColor kDefaultBackground(0xEE / 255.0, 0xF0 / 255.0, 0xF4 / 255.0);

/// Refuses what cannot be written before any work is done.
void checkOutputs(const KrAppOptions& options)
{
    const bool isVideo = !options.trajectory.empty() && KrAppFiles::isVideo(options.output);
    if (options.sidecar && isVideo) {
        throw KrAppFailure(KrAppFailure::WrongUsage,
                           "--sidecar is for pictures: give -o a pattern such as frames/%04d.png");
    }
    if (!options.output.empty() && !isVideo) {
        KrAppFiles::checkPictureFormat(options.output);
    }
    if (!options.depth.empty()) {
        KrAppDepth::checkFormat(options.depth);
    }
    if (!options.depthPreview.empty()) {
        KrAppFiles::checkPictureFormat(options.depthPreview);
    }
    const bool isSeries = !options.trajectory.empty() && !options.output.empty() && !isVideo;
    for (const std::string& path : {isSeries ? KrAppFiles::frameFile(options.output, 1) : options.output, options.depth,
                                    options.depthPreview, options.rangeMap.path, options.report, options.convert}) {
        if (!path.empty()) {
            KrAppFiles::checkWritable(path);
        }
    }
}

KrPovParameters automaticView(const KrAppOptions& options, const KrAppRobot& robot, KrAppMotion& motion)
{
    double fieldOfView = options.verticalFieldOfView();
    double aspectRatio = static_cast<double>(options.width) / options.height;
    if (options.intrinsics) {
        KrAppSidecar::evenPart(*options.intrinsics, fieldOfView, aspectRatio);
    }
    const KrVector up = options.up.value_or(KrVector(0.0, 0.0, 1.0));
    KrAppFraming framing(options.towardsEye(), up, fieldOfView, aspectRatio);
    framing.addMotion(robot.statedSystem().manipulatorSystem(), motion);

    KrPovParameters pov = framing.pov();
    if (options.eye) {
        const KrVector center = options.lookAt.value_or(framing.center());
        if ((*options.eye - center).length() == 0.0) {
            throw KrAppFailure(KrAppFailure::WrongUsage,
                               "--eye lies in the middle of what is drawn: give --look-at, too");
        }
        pov.setEyepoint(*options.eye);
        pov.setCenterOfInterest(center);
        pov.setUp(KrAppFraming(*options.eye - center, up, fieldOfView, aspectRatio).pov().up());
    } else if (options.lookAt) {
        pov.setEyepoint(*options.lookAt + (pov.eyepoint() - pov.centerOfInterest()));
        pov.setCenterOfInterest(*options.lookAt);
    }
    return pov;
}

/// Point of view, light and background. `isOwnLighting`: the lights are this program's, not the file's.
KrVisualizationParameters parametersFor(const KrAppOptions& options, const KrAppRobot& robot, KrAppMotion& motion,
                                        bool& isOwnLighting)
{
    KrVisualizationParameters parameters = robot.system.visualizationParameters();
    const bool isFileView = options.useFileView && robot.hasView;
    isOwnLighting = !isFileView || parameters.lightParameters().lights().empty();
    if (options.pov) {
        parameters.setPovParameters(*options.pov);
    } else if (!isFileView || options.eye || options.lookAt) {
        parameters.setPovParameters(automaticView(options, robot, motion));
    }
    if (isOwnLighting) {
        parameters.setLightParameters(KrAppLighting::threeLamps(parameters.povParameters()));
    }
    KrRenderParameters render = parameters.renderParameters();
    if (!isFileView || options.background) {
        render.setBackgroundColor(options.background.value_or(kDefaultBackground));
    }
    parameters.setRenderParameters(render);
    return parameters;
}

[[noreturn]] void stopped(std::size_t done, std::size_t total)
{
    throw KrAppFailure(KrAppFailure::CouldNot,
                       "stopped after " + std::to_string(done) + " of " + std::to_string(total) + " frames");
}

/// Draws on this thread; frames come back a little later and are written by another one. `tiles` may be null.
void drawFrames(const KrAppOptions& options, KrAppMotion& motion, KrAppScene& scene, KrAppTiles* tiles,
                KrAppMessages& messages)
{
    const KrAppInterrupt interrupt;
    std::unique_ptr<KrAppVideo> video;
    if (KrAppFiles::isVideo(options.output)) {
        video = std::make_unique<KrAppVideo>(options.output, options.width, options.height, options.framesPerSecond);
    }
    KrAppFrameWriter writer(scene.factor(), [&](const KrImage& picture, std::size_t i) {
        if (video) {
            video->add(picture);
        } else {
            KrAppFiles::writePicture(picture, KrAppFiles::frameFile(options.output, i + 1), messages);
        }
    });
    const osg::ref_ptr<KrFrameStream> stream = new KrFrameStream(KrFrameStream::Content::Color);
    stream->setLender([&](const KrFrameStream::Frame& frame) { return writer.lend(frame.width, frame.height); });
    stream->setReceiver([&](const KrFrameStream::Frame&) { writer.submit(); });
    KrAppProgress progress("frames", motion.size(), options.quiet);
    for (std::size_t i = 0; i < motion.size() && !interrupt.isRequested() && !writer.hasFailed(); ++i) {
        if (tiles) {
            unsigned char* const whole = writer.lend(options.width * scene.factor(), options.height * scene.factor());
            if (whole) {
                tiles->draw(scene, motion.state(i), whole);
                writer.submit();
            }
            progress.setDone(writer.numWritten());
            continue;
        }
        scene.draw(motion.state(i), *stream);
        if (options.sidecar && !video) {
            // What is in force now is what was drawn; the picture itself comes later.
            KrFrameDescription frame = KrAppSidecar::describe(scene, options);
            frame.frameNumber = static_cast<unsigned int>(i + 1);
            KrAppSidecar::write(frame, KrAppFiles::frameFile(options.output, i + 1), messages);
        }
        progress.setDone(writer.numWritten());
    }
    const bool isWhole = stream->flush();
    scene.window().setDrawCallback(nullptr);
    writer.finish();
    progress.setDone(writer.numWritten());
    if (!isWhole || writer.numWritten() < motion.size()) {
        stopped(writer.numWritten(), motion.size());
    }
    if (video) {
        video->finish();
    }
}

void writeSidecar(const KrAppOptions& options, KrAppScene& scene, const std::string& path,
                  const KrAppMessages& messages)
{
    if (options.sidecar) {
        KrAppSidecar::write(KrAppSidecar::describe(scene, options), path, messages);
    }
}

void writeDepthSidecar(const KrAppOptions& options, KrAppScene& scene, const std::string& path, const char* quantity,
                       const char* unit, const KrAppMessages& messages)
{
    if (options.sidecar) {
        KrFrameDescription frame = KrAppSidecar::describe(scene, options);
        frame.channels = 1;
        frame.quantity = quantity;
        frame.unit = unit;
        if (KrAppFiles::extensionOf(path) == ".pfm") {
            frame.rowOrder = KrFrameDescription::RowOrder::BottomRowFirst;
        }
        KrAppSidecar::write(frame, path, messages);
    }
}

void drawDepth(const KrAppOptions& options, const KrManipulatorSystemState& state, KrAppScene& scene,
               const KrAppMessages& messages)
{
    KrDepthCapture::Options wanted;
    wanted.kind = options.depthKind;
    wanted.rowOrder = KrDepthCapture::RowOrder::TopRowFirst;
    std::vector<float> depths;
    scene.drawDepth(state, wanted, depths);
    KrAppDepth::write(depths, options.width, options.height, options.depth);
    const bool isPlanar = options.depthKind == KrDepthCapture::Kind::Planar;
    const bool isPicture = KrAppFiles::extensionOf(options.depth) == ".png";
    writeDepthSidecar(options, scene, options.depth, isPlanar ? "planar depth" : "euclidean depth",
                      isPicture ? "mm" : "m", messages);
}

void draw(const KrAppOptions& options, KrAppRobot& robot, KrVisualizationParameters& parameters, bool isOwnLighting,
          KrAppMotion& motion, KrAppMessages& messages)
{
    std::optional<KrAppTiles> tiles;
    if (!options.views.empty()) {
        tiles.emplace(options, robot, motion, parameters.renderParameters().backgroundColor());
    }
    KrAppScene scene(tiles ? tiles->tileWidth() : options.width, tiles ? tiles->tileHeight() : options.height,
                     options.samples, messages);
    options.aids.prepare(robot, parameters);
    scene.show(robot.statedSystem(), parameters, isOwnLighting);
    options.aids.show(scene.window());
    if (options.intrinsics && !scene.window().setCameraIntrinsics(*options.intrinsics)) {
        throw KrAppFailure(KrAppFailure::CouldNot, messages.lastReason("this camera cannot be"));
    }
    if (!options.trajectory.empty()) {
        drawFrames(options, motion, scene, tiles ? &*tiles : nullptr, messages);
        return;
    }
    KrImage picture;
    if (tiles) {
        KrImage whole;
        whole.allocate(3, 0, options.width * scene.factor(), options.height * scene.factor());
        if (whole.empty()) {
            throw std::bad_alloc();
        }
        tiles->draw(scene, motion.state(0), whole.data());
        KrAppScene::average(whole, scene.factor(), picture);
        KrAppFiles::writePicture(picture, options.output, messages);
        return;
    }
    if (!options.output.empty()) {
        scene.draw(motion.state(0), picture);
        KrAppFiles::writePicture(picture, options.output, messages);
        writeSidecar(options, scene, options.output, messages);
    }
    if (!options.depthPreview.empty()) {
        scene.drawDepth(motion.state(0), picture);
        KrAppFiles::writePicture(picture, options.depthPreview, messages);
        writeDepthSidecar(options, scene, options.depthPreview, "relative depth", "1", messages);
    }
    if (!options.depth.empty()) {
        drawDepth(options, motion.state(0), scene, messages);
    }
}

void view(const KrAppOptions& options, KrAppRobot& robot, bool isOwnLighting, KrAppMotion& motion,
          KrAppMessages& messages)
{
    KrAppView window(options, messages);
    if (!options.quiet) {
        std::fputs(KrAppView::bindings().c_str(), stdout);
        std::fflush(stdout);
    }
    window.run(robot, robot.system.visualizationParameters(), isOwnLighting, motion);
}

void refuseMissingMeshes(const KrAppRobot& robot)
{
    const std::size_t missing = robot.report.counts().missingMeshes;
    for (const KrImportReport::Mesh& mesh : robot.report.meshes()) {
        if (missing > 0 && mesh.missing) {
            throw KrAppFailure(KrAppFailure::CouldNot, std::to_string(missing) + " of " +
                                                           std::to_string(robot.report.meshes().size()) +
                                                           " meshes are missing, the first is \"" + mesh.uri +
                                                           "\" of link \"" + mesh.link + "\" (--strict)");
        }
    }
}

/// A few of them. @param own  those that are not in the import's report
void printWarnings(const KrAppOptions& options, const KrAppRobot& robot, const std::vector<std::string>& own)
{
    constexpr std::size_t kMostShown = 5;
    const std::vector<KrImportReport::Warning>& imported = robot.report.warnings();
    std::vector<std::string> all = own;
    for (const KrImportReport::Warning& warning : imported) {
        all.push_back(warning.element.empty() ? warning.text : warning.element + ": " + warning.text);
    }
    for (std::size_t i = 0; i < all.size() && i < kMostShown; ++i) {
        std::fprintf(stderr, "warning: %s\n", KrAppMessages::oneLine(all[i]).c_str());
    }
    if (all.size() > kMostShown) {
        const bool isToldElsewhere = options.report.empty() && !imported.empty();
        std::fprintf(stderr, "warning: and %zu more%s\n", all.size() - kMostShown,
                     isToldElsewhere ? " (--report FILE.json has those of the import)" : "");
    }
}

void printSummary(const KrAppOptions& options, const KrAppRobot& robot, std::size_t numFrames)
{
    const KrImportReport::Counts& counts = robot.report.counts();
    const std::string what = std::to_string(counts.links) + " links, " + std::to_string(counts.movableJoints) +
                             " moving joints, " + std::to_string(robot.numTriangles()) + " triangles";
    const std::string size = std::to_string(options.width) + " x " + std::to_string(options.height);
    if (!options.trajectory.empty() && !options.output.empty()) {
        std::printf("%s: %zu frames, %s, %s\n", options.output.c_str(), numFrames, size.c_str(), what.c_str());
        return;
    }
    for (const std::string& path : {options.output, options.depthPreview, options.depth}) {
        if (!path.empty()) {
            std::printf("%s: %s, %s\n", path.c_str(), size.c_str(), what.c_str());
        }
    }
    if (!options.rangeMap.path.empty()) {
        std::printf("%s: %u x %u samples of %s\n", options.rangeMap.path.c_str(), options.rangeMap.width,
                    options.rangeMap.height, what.c_str());
    }
}

void run(const KrAppOptions& options, KrAppMessages& messages)
{
    checkOutputs(options);
    KrAppRobot robot;
    robot.read(options, messages);
    // Before anything can fail: the report tells why.
    if (!options.report.empty() && !robot.report.writeJson(options.report)) {
        throw KrAppFailure(KrAppFailure::CouldNot, messages.lastReason("cannot write " + options.report));
    }
    if (options.strict) {
        refuseMissingMeshes(robot);
    }
    if (options.info) {
        std::fputs(krAppInfo(robot).c_str(), stdout);
    }

    std::vector<std::string> warnings;
    if (!options.state.empty()) {
        KrAppPose::readState(robot.statedSystem(), options.state, messages);
    }
    KrAppPose::setJoints(robot.statedSystem(), options.joints, warnings);
    KrAppMotion motion(robot.statedSystem());
    if (!options.trajectory.empty()) {
        motion = KrAppPose::readTrajectory(robot.statedSystem(), options.trajectory, warnings);
    }

    const bool hasRangeMap = !options.rangeMap.path.empty();
    if (options.drawsPictures() || options.view || hasRangeMap || !options.convert.empty()) {
        bool isOwnLighting = true;
        robot.system.visualizationParameters() = parametersFor(options, robot, motion, isOwnLighting);
        if (!options.convert.empty() && !robot.system.writeFile(options.convert)) {
            throw KrAppFailure(KrAppFailure::CouldNot, messages.lastReason("cannot write " + options.convert));
        }
        if (options.drawsPictures()) {
            draw(options, robot, robot.system.visualizationParameters(), isOwnLighting, motion, messages);
        }
        if (hasRangeMap) {
            options.rangeMap.write(robot.statedSystem(), robot.system.visualizationParameters().povParameters());
        }
        if (options.view) {
            view(options, robot, isOwnLighting, motion, messages);
        }
    }
    if (!options.quiet) {
        warnings.insert(warnings.end(), messages.texts().begin(), messages.texts().end());
        printWarnings(options, robot, warnings);
        printSummary(options, robot, motion.size());
    }
}

} // namespace

int main(int argc, char** argv)
{
    KrToolkitFolders::setDefault();
    KrAppMessages messages;
    try {
        KrAppOptions options;
        if (!options.parse(argc, argv)) {
            return 0;
        }
        if (options.doctor) {
            return krAppDoctor() ? 0 : KrAppFailure::CouldNot;
        }
        KrAppSidecar::readCamera(options, messages);
        run(options, messages);
        return 0;
    } catch (const KrAppFailure& failure) {
        std::fprintf(stderr, "krrender: %s\n", failure.what());
        return failure.status();
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "krrender: there is not enough memory for this\n");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "krrender: %s\n", KrAppMessages::oneLine(error.what()).c_str());
    }
    return KrAppFailure::CouldNot;
}
