// krrender: draws a robot description or a native system file without a display.

#include "KrAppAids.h"
#include "KrAppCores.h"
#include "KrAppDataset.h"
#include "KrAppDoctor.h"
#include "KrAppFailure.h"
#include "KrAppFiles.h"
#include "KrAppInfo.h"
#include "KrAppInterrupt.h"
#include "KrAppMessages.h"
#include "KrAppOptions.h"
#include "KrAppPictures.h"
#include "KrAppPose.h"
#include "KrAppRobot.h"
#include "KrAppSelfTest.h"
#include "KrAppSidecar.h"
#include "KrAppSight.h"
#include "KrAppView.h"

#include <picture/KrFraming.h>
#include <picture/KrLighting.h>
#include <picture/KrMotion.h>
#include <rendCore/plume/KrToolkitFolders.h>
#include <toolkit/foundation/KrReason.h>
#include <toolkit/system/KrPoseDriver.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <new>

namespace
{

/// Refuses names by which something would be overwritten: in the frame `number` of a motion, from 1.
void checkNames(const KrAppOptions& options, std::size_t number)
{
    std::vector<std::string> outputs = KrAppPictures::files(options, number);
    outputs.insert(outputs.end(),
                   {options.rangeMap.path, options.report, options.convert, options.info || options.pick ? "-" : ""});
    KrAppFiles::checkDistinct(outputs, {options.robot, options.state, options.trajectory, options.camera});
}

/// Refuses what cannot be written before any work is done.
void checkOutputs(const KrAppOptions& options)
{
    KrAppPictures::check(options);
    for (const std::string& path : {options.rangeMap.path, options.report, options.convert}) {
        if (!path.empty()) {
            KrAppFiles::checkWritable(path);
        }
    }
    // Of the first frame; how many follow is not known yet.
    checkNames(options, 1);
}

KrPovParameters automaticView(const KrAppOptions& options, const KrAppRobot& robot, KrMotion& motion)
{
    // A lens that is given decides instead: the even part around its principal point.
    double fieldOfView = options.verticalFieldOfView();
    double aspectRatio = static_cast<double>(options.width) / options.height;
    // With an eye that is given the robot need not be placed.
    if (options.intrinsics && !KrAppSidecar::evenPart(*options.intrinsics, fieldOfView, aspectRatio) && !options.eye) {
        throw KrAppFailure(KrAppFailure::WrongUsage,
                           "the principal point is not in the picture, so that the robot cannot be placed by itself: "
                           "give --camera FILE or --eye");
    }
    const KrVector up = options.up.value_or(KrVector(0.0, 0.0, 1.0));
    KrFraming framing(options.towardsEye(), up, fieldOfView, aspectRatio);
    framing.setShown(options.aids.shown(robot.statedSystem()));
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
        // Made upright by the same rule as the automatic view's.
        pov.setUp(KrFraming(*options.eye - center, up, fieldOfView, aspectRatio).pov().up());
    } else if (options.lookAt) {
        // Moved, not turned: direction and distance stay those of the automatic view.
        pov.setEyepoint(*options.lookAt + (pov.eyepoint() - pov.centerOfInterest()));
        pov.setCenterOfInterest(*options.lookAt);
    }
    return pov;
}

/// Point of view, light and background. `isOwnLighting`: the lights are this program's, not the file's.
KrVisualizationParameters parametersFor(const KrAppOptions& options, const KrAppRobot& robot, KrMotion& motion,
                                        bool& isOwnLighting)
{
    KrVisualizationParameters parameters = robot.system.visualizationParameters();
    if (options.useFileView && !robot.hasView) {
        throw KrAppFailure(KrAppFailure::WrongUsage,
                           KrAppFiles::spoken(options.robot, KrAppFiles::Standard::Input) +
                               " holds no point of view: --file-view is for native files that have one");
    }
    const bool isFileView = options.useFileView;
    const bool hasLights = isFileView && !parameters.lightParameters().lights().empty();
    // A file that was converted has this program's lamps. The light from everywhere, which goes with them, is in no
    // file.
    isOwnLighting = !hasLights || parameters.lightParameters() == KrLighting::threeLamps(parameters.povParameters());
    if (options.pov) {
        parameters.setPovParameters(*options.pov);
    } else if (!isFileView || options.eye || options.lookAt) {
        parameters.setPovParameters(automaticView(options, robot, motion));
    } else if (options.fieldOfView) {
        KrPovParameters pov = parameters.povParameters();
        pov.setFieldOfView(*options.fieldOfView);
        parameters.setPovParameters(pov);
    }
    // Behind the point of view, which the lamps stand by.
    if (!hasLights) {
        parameters.setLightParameters(KrLighting::threeLamps(parameters.povParameters()));
    }
    KrRenderParameters render = parameters.renderParameters();
    if (!isFileView || options.background) {
        // A colour on the command line counts before the file's.
        render.setBackgroundColor(options.background.value_or(KrLighting::background()));
    }
    parameters.setRenderParameters(render);
    return parameters;
}

/// Tells of a size that no robot has.
void checkSize(const KrAppOptions& options, const KrStatedSystem& system, std::vector<std::string>& warnings)
{
    KrFraming framing({0.0, 0.0, 1.0}, {0.0, 1.0, 0.0}, 1.0, 1.0); // for the box
    KrFraming::Shown shown;
    shown.shapes = options.aids.shapes;
    shown.collisions = options.aids.collisions;
    framing.setShown(shown);
    framing.add(system.manipulatorSystem(), system.systemState());
    const std::string hint = KrAppSight::sizeHint(framing.size().length());
    if (!hint.empty()) {
        warnings.push_back(hint);
    }
}

void view(const KrAppOptions& options, KrAppRobot& robot, bool isOwnLighting, KrMotion& motion, KrAppMessages& messages)
{
    // Before the keys are printed: without a display there are none.
    KrAppView window("krrender - " + options.robot, options.width, options.height, options.samples,
                     options.levelOfDetail(), messages);
    if (!options.quiet && !options.isStandardOutputTaken()) {
        std::fputs(KrAppView::bindings().c_str(), stdout);
        std::fflush(stdout);
    }
    window.run(robot, robot.system.visualizationParameters(), isOwnLighting, options.aids, motion,
               motion.schedule(options.framesPerSecond), !options.quiet && !options.isStandardOutputTaken());
}

/// Where KR_TOOLKITS leads to no shader files, fields would be black: the program's own are taken.
void mendToolkits(std::vector<std::string>& warnings)
{
    constexpr const char* kVariable = "KR_TOOLKITS";
    const char* const value = std::getenv(kVariable);
    if (value == nullptr || KrToolkitFolders::hasShaders(value)) {
        return;
    }
    const std::string given = value;
    // Removed for the moment: a variable that is set is left as it is.
    unsetenv(kVariable);
    if (KrToolkitFolders::setDefault()) {
        warnings.push_back("KR_TOOLKITS: there are no shader files for fields in \"" + given +
                           "\"; the program's own are used");
    } else {
        setenv(kVariable, given.c_str(), 1);
    }
}

void refuseMissingMeshes(const KrAppRobot& robot)
{
    // The first one is told; the report lists all.
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

void convert(const KrAppRobot& robot, const std::string& path, const KrAppMessages& messages)
{
    bool isWritten = false;
    // A stream is no file that could be replaced.
    if (KrAppFiles::isStandard(path)) {
        std::string text;
        isWritten = robot.system.writeBuffer(text);
        KrAppFiles::writeBytes(text, path);
    } else {
        isWritten = robot.system.writeFile(path);
    }
    if (!isWritten) {
        throw KrAppFailure(KrAppFailure::CouldNot, messages.lastReason("cannot write " + path));
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
        std::fprintf(stderr, "warning: %s\n", KrAppMessages::printable(KrReason::oneLine(all[i])).c_str());
    }
    if (all.size() > kMostShown) {
        // Where a report is written, it has all of them.
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
    // For a series the pattern stands for all of its files.
    const std::string frames = options.trajectory.empty() ? "" : std::to_string(numFrames) + " frames, ";
    for (const std::string& path : {options.output, options.depthPreview, options.depth, options.labels,
                                    options.labelsPreview, options.normals}) {
        if (!path.empty()) {
            std::printf("%s: %s%s, %s\n", path.c_str(), frames.c_str(), size.c_str(), what.c_str());
        }
    }
    if (!options.rangeMap.path.empty()) {
        std::printf("%s: %u x %u samples of %s\n", options.rangeMap.path.c_str(), options.rangeMap.width,
                    options.rangeMap.height, what.c_str());
    }
}

void run(KrAppOptions& options, KrAppMessages& messages)
{
    checkOutputs(options);
    KrAppRobot robot;
    robot.read(options.robot, options.import, messages);
    // Before anything can fail: the report tells why.
    if (!options.report.empty()) {
        KrAppFiles::writeBytes(robot.report.json(), options.report);
    }
    // Behind the report, which lists what is missing.
    if (options.strict) {
        refuseMissingMeshes(robot);
    }
    if (options.info) {
        std::fputs(krAppInfo(robot).c_str(), stdout);
    }

    std::vector<std::string> warnings;
    for (const std::string& folder : options.import.packagePaths) {
        std::error_code error;
        if (!std::filesystem::is_directory(folder, error)) {
            warnings.push_back("--package-path " + folder + ": there is no such folder");
        }
    }
    // The whole state before single joints, which change it.
    if (!options.state.empty()) {
        KrAppPose::readState(robot.statedSystem(), options.state, messages);
    }
    KrAppPose::setJoints(robot.statedSystem(), options.joints, warnings);
    KrMotion motion(robot.statedSystem());
    if (!options.trajectory.empty()) {
        motion = KrAppPose::readTrajectory(robot.statedSystem(), options.trajectory, warnings);
        checkNames(options, motion.size()); // %d and %04d differ up to 999
    }

    const bool hasRangeMap = !options.rangeMap.path.empty();
    if (options.drawsPictures() || options.pick || options.view || hasRangeMap || !options.convert.empty()) {
        // Aids before the view: they say what has to be in the picture.
        KrAppAids::complete(options.aids, robot, warnings);
        KrAppAids::tellOfNothing(options.aids, robot, warnings);
        checkSize(options, robot.statedSystem(), warnings);
        mendToolkits(warnings);
        // Shapes that bend follow a pose: framed in the first one, written as the system stands, drawn from the first
        // one on.
        KrPoseDriver poses(robot.statedSystem().manipulatorSystem());
        poses.drive(motion.state(0));
        bool isOwnLighting = true;
        robot.system.visualizationParameters() = parametersFor(options, robot, motion, isOwnLighting);
        poses.drive(robot.statedSystem().systemState());
        if (!options.convert.empty()) {
            convert(robot, options.convert, messages);
        }
        poses.drive(motion.state(0));
        if (options.drawsPictures() || options.pick) {
            KrAppPictures pictures(options, robot, robot.system.visualizationParameters(), isOwnLighting, motion,
                                   messages);
            pictures.write();
            if (options.pick) {
                std::printf("%s\n", pictures.pick().c_str());
            }
        }
        if (hasRangeMap) {
            options.rangeMap.write(robot.statedSystem(), robot.system.visualizationParameters().povParameters(),
                                   messages);
        }
        if (options.view) {
            view(options, robot, isOwnLighting, motion, messages);
        }
    }
    if (!options.quiet) {
        // Behind all work: what drawing has brought up is among them.
        warnings.insert(warnings.end(), messages.texts().begin(), messages.texts().end());
        printWarnings(options, robot, warnings);
        if (!options.isStandardOutputTaken()) {
            printSummary(options, robot, motion.size());
        }
    }
}

/// A stream that is closed would become the next file that is opened, and what is told would be written into it.
void openStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // The other way round, so that its use fails as it would have.
        if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0) {
            return;
        }
    }
}

/// @return the exit status
int work(int argc, char** argv, KrAppMessages& messages)
{
    if (KrAppDataset::isAskedFor(argc, argv)) {
        return KrAppDataset().run(argc, argv, messages);
    }
    KrAppOptions options;
    if (!options.parse(argc, argv)) {
        return 0;
    }
    if (options.doctor) {
        std::string text;
        const bool canDraw = krAppDoctor(text);
        std::fputs(text.c_str(), stdout);
        return canDraw ? 0 : KrAppFailure::CouldNot;
    }
    if (options.selfTest) {
        return krAppSelfTest(options.selfTestFolder) ? 0 : KrAppFailure::CouldNot;
    }
    // Before anything is read: it says how large the pictures are.
    if (!options.camera.empty()) {
        options.standAs(KrAppSidecar::read(options.camera, messages));
    }
    run(options, messages);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    // Before anything opens a file.
    openStandardStreams();
    // Before anything asks the driver, or starts a thread.
    krAppLeaveOutDriverThreads(KrAppDataset::isAskedFor(argc, argv));
    // Before a file is begun: whatever ends the program, none is left half-written.
    KrAppInterrupt::install();
    KrToolkitFolders::setDefault();
    // From here on the libraries print nothing by themselves.
    KrAppMessages messages;
    try {
        const int status = work(argc, argv, messages);
        // A full disk, for one: what was told would be lost without a word.
        errno = 0;
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
            throw KrAppFailure(KrAppFailure::CouldNot, std::string("standard output cannot be written: ") +
                                                           (errno != 0 ? std::strerror(errno) : "some of it is lost"));
        }
        return status;
    } catch (const KrAppFailure& failure) {
        std::fprintf(stderr, "krrender: %s\n", KrAppMessages::printable(failure.what()).c_str());
        return failure.status();
    } catch (const std::bad_alloc&) {
        // Its own text is a name of the language.
        std::fprintf(stderr, "krrender: there is not enough memory for this\n");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "krrender: %s\n", KrAppMessages::printable(KrReason::oneLine(error.what())).c_str());
    }
    return KrAppFailure::CouldNot;
}
