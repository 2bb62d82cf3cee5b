#include "KrAppPictures.h"

#include "KrAppAids.h"
#include "KrAppFailure.h"
#include "KrAppFiles.h"
#include "KrAppInterrupt.h"
#include "KrAppMessages.h"
#include "KrAppOptions.h"
#include "KrAppPick.h"
#include "KrAppProgress.h"
#include "KrAppRobot.h"
#include "KrAppSidecar.h"
#include "KrAppSight.h"
#include "KrAppVideo.h"

#include <picture/KrFrameWriter.h>
#include <picture/KrFraming.h>
#include <picture/KrLabelColors.h>
#include <picture/KrLighting.h>
#include <picture/KrMotion.h>
#include <rendCore/capture/KrFrameStream.h>
#include <toolkit/foundation/KrPrint.h>

#include <unistd.h>

#include <osg/Camera>
#include <osgViewer/Viewer>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <future>
#include <memory>
#include <utility>

namespace
{

/// Throws what the picture library gives as a reason, where it says that something failed.
void demand(bool isDone, const std::string& reason)
{
    if (!isDone) {
        throw KrAppFailure(KrAppFailure::CouldNot, reason);
    }
}

/// What has been written stays, and the message says how much that is.
[[noreturn]] void stopped(std::size_t done, std::size_t total)
{
    throw KrAppFailure(KrAppFailure::CouldNot,
                       "stopped after " + std::to_string(done) + " of " + std::to_string(total) + " frames");
}

} // namespace

void KrAppPictures::check(const KrAppOptions& options)
{
    // All that can be said without a robot, so that nobody waits for a refusal.
    const bool isSeries = !options.trajectory.empty();
    // A video's name without a motion is refused as a picture's, with the reason.
    const bool isVideo = isSeries && KrAppFiles::isVideo(options.output);
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
    if (!options.labels.empty()) {
        KrAppLabels::checkLabels(options.labels);
    }
    if (!options.labelsPreview.empty()) {
        KrAppLabels::checkPreview(options.labelsPreview);
    }
    if (!options.normals.empty()) {
        KrAppLabels::checkNormals(options.normals);
    }
    for (const std::string& path : options.pictures()) {
        if (KrAppFiles::isStandard(path) && isatty(STDOUT_FILENO) == 1) {
            throw KrAppFailure(KrAppFailure::WrongUsage,
                               "standard output is a terminal, which shows no pictures: redirect it, or name a file");
        }
    }
    // Of the first frame; the others differ from it in their number.
    for (const std::string& path : files(options, 1)) {
        // Folders of a series are made when they are needed; that of a video is not.
        KrAppFiles::checkWritable(path, isSeries && !(isVideo && path == options.output));
    }
}

std::vector<std::string> KrAppPictures::files(const KrAppOptions& options, std::size_t number)
{
    std::vector<std::string> names;
    for (const std::string& path : options.pictures()) {
        // A series has a file for each frame, a video one for all.
        const bool isPattern = !options.trajectory.empty() && !(path == options.output && KrAppFiles::isVideo(path));
        names.push_back(isPattern ? KrAppFiles::frameFile(path, number) : path);
        if (options.sidecar) {
            names.push_back(options.sidecarOf(names.back()));
        }
    }
    return names;
}

KrAppPictures::KrAppPictures(const KrAppOptions& options, KrAppRobot& robot, KrVisualizationParameters& parameters,
                             bool isOwnLighting, KrMotion& motion, KrAppMessages& messages)
    : m_options(options)
    , m_robot(robot)
    , m_motion(motion)
    , m_messages(messages)
{
    if (options.drawsLabels()) {
        m_labels = KrLabelTable(robot.statedSystem().manipulatorSystem(), options.labelLevel);
        KrAppLabels::checkNumber(m_labels, options.labels);
    }
    const KrColor& background = parameters.renderParameters().backgroundColor();
    // Tiles first: they say how large the scene is drawn.
    if (!options.views.empty()) {
        makeTiles(background);
    }
    // Rounded as the driver rounds it, to tell a picture that shows nothing else.
    openScene();
    const double channels[] = {background.red(), background.green(), background.blue()};
    for (unsigned int i = 0; i < 3; ++i) {
        m_background[i] = static_cast<int>(std::lround(255.0 * std::clamp(channels[i], 0.0, 1.0)));
    }
    // Before the scene is built: looks and selections go into it.
    KrAppAids::prepare(options.aids, robot, parameters);
    std::string reason;
    // Refused for robots that are nested too deep for a scene.
    demand(m_scene.show(robot.statedSystem(), parameters, reason), reason);
    if (isOwnLighting) {
        m_scene.window().setAmbientLight(KrLighting::ambientLight());
    }
    options.aids.show(m_scene.window());
    if (options.intrinsics && !m_scene.window().setCameraIntrinsics(*options.intrinsics)) {
        throw KrAppFailure(KrAppFailure::CouldNot, messages.lastReason("this camera cannot be"));
    }
}

void KrAppPictures::makeTiles(const KrColor& background)
{
    std::vector<KrViewSide> sides(m_options.views.size());
    for (std::size_t i = 0; i < sides.size(); ++i) {
        // The names were checked with the options.
        KrViewSide::find(m_options.views[i], sides[i]);
        // The one view that --azimuth and --elevation turn.
        if (m_options.views[i] == "perspective") {
            sides[i].towardsEye = m_options.towardsEye();
        }
    }
    m_tiles.emplace(m_options.width, m_options.height, background);
    const KrStatedSystem& system = m_robot.statedSystem();
    std::string reason;
    if (!m_tiles->frame(sides, m_options.verticalFieldOfView(), m_options.aids.shown(system),
                        system.manipulatorSystem(), m_motion, reason)) {
        throw KrAppFailure(KrAppFailure::WrongUsage, reason);
    }
}

void KrAppPictures::openScene()
{
    m_scene.window().setName("krrender");
    m_scene.window().setLevelOfDetail(m_options.levelOfDetail());
    const unsigned int width = m_tiles ? m_tiles->tileWidth() : m_options.width;
    const unsigned int height = m_tiles ? m_tiles->tileHeight() : m_options.height;
    std::string reason;
    if (m_scene.open(width, height, m_options.samples, reason)) {
        return;
    }
    // Without a context, and only then, the reason is the machine's.
    if (!m_scene.window().isInitialized()) {
        reason.insert(reason.find(':'), " (krrender --doctor tells what is missing)");
    }
    throw KrAppFailure(KrAppFailure::CouldNot, reason);
}

KrAppPictures::~KrAppPictures()
{
    KrAppFiles::removeEmpty(m_folders); // those for frames of which none was drawn
}

void KrAppPictures::makeFolder(const std::string& path)
{
    const std::vector<std::string> made = KrAppFiles::makeFolder(path);
    // Told once, however many a pattern makes.
    if (!made.empty() && m_folders.empty() && !m_options.quiet && !m_options.isStandardOutputTaken()) {
        std::printf("%s: this folder is made\n", made.back().c_str());
    }
    m_folders.insert(m_folders.end(), made.begin(), made.end());
}

void KrAppPictures::write()
{
    for (const std::string& path : m_options.pictures()) {
        // Makes the folders.
        file(path, 0); // before the progress is shown
    }
    if (m_options.drawsLabels() || !m_options.normals.empty()) {
        writeKinds();
    } else if (!m_options.output.empty()) {
        m_options.trajectory.empty() ? writeColor() : writeColors();
        tellBlank(m_options.output);
    }
    if (!m_options.depthPreview.empty()) {
        writeEach("depth previews", [this](std::size_t i) { return drawDepthPreview(i); });
    }
    if (!m_options.depth.empty() && !areDepthsOfKinds()) {
        writeEach("depths", [this](std::size_t i) { return drawDepth(i); });
        tellBlank(m_options.depth);
    }
}

std::string KrAppPictures::pick()
{
    const auto [x, y] = *m_options.pick;
    const KrManipulatorSystemState& state = m_motion.state(0);
    std::optional<KrFrameCapture::Pick> pick;
    std::string reason;
    demand(m_scene.pick(state, x, y, pick, reason), reason);
    if (!pick) {
        throw KrAppFailure(KrAppFailure::CouldNot,
                           "--pick " + std::to_string(x) + "," + std::to_string(y) + ": no link is seen there");
    }
    return KrAppPick::line(KrAppPick::parts(*pick, m_robot.statedSystem(), state));
}

KrFrameDescription KrAppPictures::describe()
{
    return KrAppSidecar::describe(m_scene, m_options.intrinsics);
}

bool KrAppPictures::isBlank(const KrImage& picture) const
{
    // Ends with the first pixel that differs: a picture of a robot costs next to nothing.
    const unsigned char* const channels = picture.data();
    for (std::size_t i = 0; i < picture.sizeInBytes(); ++i) {
        if (std::abs(channels[i] - m_background[i % 3]) > 1) { // drivers round by themselves
            return false;
        }
    }
    return true;
}

void KrAppPictures::tellBlank(const std::string& path)
{
    if (m_numBlank > 0) {
        tellBlank(path, m_numBlank, whyBlank());
    }
}

void KrAppPictures::tellBlank(const std::string& path, std::size_t& count, const std::string& reason)
{
    // An empty picture is written, since it may be what was asked for, but never without a word.
    const std::string what = m_options.trajectory.empty()
                                 ? std::string("the picture is")
                                 : std::to_string(count) + " of " + std::to_string(m_motion.size()) + " pictures are";
    Kr::Print::instance()->write(Kr::Print::Warning, "KrAppPictures::write - %s: %s empty because %s.\n", path.c_str(),
                                 what.c_str(), reason.c_str());
    // Colours and depths count by themselves.
    count = 0;
}

std::string KrAppPictures::whyBlank()
{
    KrFraming shown({0.0, 0.0, 1.0}, {0.0, 1.0, 0.0}, 1.0, 1.0); // for the box
    shown.setShown(m_options.aids.shown(m_robot.statedSystem()));
    shown.addMotion(m_robot.statedSystem().manipulatorSystem(), m_motion);
    // The camera that has drawn: what the picture misses is seen from it alone.
    const osg::Camera& camera = *m_scene.window().getViewer()->getCamera();
    return KrAppSight::whyEmpty(shown, camera.getViewMatrix() * camera.getProjectionMatrix(), m_options.width,
                                m_options.height);
}

std::string KrAppPictures::file(const std::string& pattern, std::size_t i)
{
    // A video is one file of all frames.
    const bool isVideo = pattern == m_options.output && KrAppFiles::isVideo(pattern);
    if (m_options.trajectory.empty() || isVideo) {
        return pattern;
    }
    const std::string path = KrAppFiles::frameFile(pattern, i + 1);
    makeFolder(path);
    return path;
}

void KrAppPictures::writeColor()
{
    std::string reason;
    // Here all of a picture happens on this thread; writeColors() is for motions.
    const KrManipulatorSystemState& state = m_motion.state(0);
    demand(m_tiles ? m_tiles->draw(m_scene, state, m_picture, reason) : m_scene.draw(state, m_picture, reason), reason);
    m_numBlank += isBlank(m_picture) ? 1 : 0;
    KrAppFiles::writePicture(m_picture, m_options.output, m_messages, m_png.file);
    if (m_options.sidecar) {
        writeDescription(describe(), 0, m_options.output);
    }
}

double KrAppPictures::videoRate() const
{
    if (m_options.framesPerSecond) {
        return *m_options.framesPerSecond;
    }
    const double rate = m_motion.framesPerSecond();
    // Written so that NaN fails, too.
    if (!(rate >= KrAppOptions::kLeastFramesPerSecond && rate <= KrAppOptions::kMostFramesPerSecond)) {
        char text[32];
        std::snprintf(text, sizeof text, "%.3g", rate);
        throw KrAppFailure(KrAppFailure::CouldNot, m_options.trajectory + ": by its times the video would have " +
                                                       text + " frames per second; give --fps");
    }
    // A video has one rate.
    if (!m_motion.isEven()) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrAppPictures::write - %s: the steps of its times differ; the video shows every "
                                     "row for the mean of them, %.3g s.\n",
                                     m_options.trajectory.c_str(), 1.0 / rate);
    }
    return rate;
}

std::unique_ptr<KrAppVideo> KrAppPictures::openVideo()
{
    return KrAppFiles::isVideo(m_options.output)
               ? std::make_unique<KrAppVideo>(m_options.output, m_options.width, m_options.height, videoRate())
               : nullptr;
}

/// Draws on this thread; frames come back a little later and are written by another one.
void KrAppPictures::writeColors()
{
    const KrAppInterrupt interrupt;
    // Made before the writer, which uses it to its end.
    const std::unique_ptr<KrAppVideo> video = openVideo();
    std::exception_ptr failure; // of the writing thread, with its exit status
    KrFrameWriter writer(m_scene.factor(), [&](const KrImage& picture, std::size_t i, std::string&) {
        try {
            // On the writing thread alone until finish(); read afterwards.
            m_numBlank += isBlank(picture) ? 1 : 0;
            video ? video->add(picture) : writeFrame(picture, i);
            return true;
        } catch (...) {
            // Carried over to this thread, where it has its exit status.
            failure = std::current_exception();
            return false;
        }
    });
    // Frames come back while later ones are drawn: the driver is not waited for.
    const osg::ref_ptr<KrFrameStream> stream = new KrFrameStream(KrFrameStream::Content::Color);
    stream->setLender([&](const KrFrameStream::Frame& frame) { return writer.lend(frame.width, frame.height); });
    stream->setReceiver([&](const KrFrameStream::Frame&) { writer.submit(); });
    const unsigned int factor = m_scene.factor();
    KrAppProgress progress("frames", m_motion.size(), m_options.quiet || m_options.isStandardOutputTaken());
    std::string reason;
    for (std::size_t i = 0; i < m_motion.size() && !KrAppInterrupt::isRequested() && !writer.hasFailed(); ++i) {
        if (m_tiles) {
            // Null when the writing has failed, which ends the loop.
            if (unsigned char* const whole = writer.lend(m_options.width * factor, m_options.height * factor)) {
                demand(m_tiles->draw(m_scene, m_motion.state(i), whole, reason), reason);
                writer.submit();
            }
        } else {
            demand(m_scene.draw(m_motion.state(i), *stream, reason), reason);
            if (m_options.sidecar) {
                // What is in force now is what was drawn; the picture itself comes with one of the next frames.
                KrFrameDescription description = describe();
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_descriptions.push_back(std::move(description));
            }
        }
        progress.setDone(writer.numWritten());
    }
    // The last frames are still on their way back from the driver.
    const bool isWhole = stream->flush();
    // The stream ends with this function.
    m_scene.window().setDrawCallback(nullptr);
    if (video && KrAppInterrupt::isRequested()) {
        stopped(writer.numWritten(), m_motion.size()); // what still waits would go with the video
    }
    if (!writer.finish(reason)) {
        std::rethrow_exception(failure);
    }
    progress.setDone(writer.numWritten());
    if (!isWhole || writer.numWritten() < m_motion.size()) {
        stopped(writer.numWritten(), m_motion.size());
    }
    if (video) {
        video->finish();
    }
}

void KrAppPictures::writeFrame(const KrImage& picture, std::size_t i)
{
    const std::string path = file(m_options.output, i);
    KrAppFiles::writePicture(picture, path, m_messages, m_png.file);
    if (m_options.sidecar) {
        KrFrameDescription description;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            // Frames arrive in the order in which they were drawn, and so do these.
            description = std::move(m_descriptions.front());
            m_descriptions.pop_front();
        }
        writeDescription(std::move(description), i, path);
    }
}

void KrAppPictures::writeEach(const std::string& what, const std::function<Writing(std::size_t)>& draw)
{
    // One picture needs no progress, and is not stopped half-way.
    if (m_motion.size() == 1) {
        draw(0)();
        return;
    }
    const KrAppInterrupt interrupt;
    KrAppProgress progress(what, m_motion.size(), m_options.quiet || m_options.isStandardOutputTaken());
    // Of the frame before, beside the drawing of the next. It is waited for when this goes, too.
    std::future<void> writing;
    for (std::size_t i = 0; i < m_motion.size(); ++i) {
        const bool isStopped = KrAppInterrupt::isRequested();
        const Writing write = isStopped ? Writing() : draw(i);
        if (writing.valid()) {
            writing.get(); // throws what the writing has thrown
            progress.setDone(i);
        }
        if (isStopped) {
            stopped(i, m_motion.size());
        }
        writing = std::async(std::launch::async, write);
    }
    writing.get();
    progress.setDone(m_motion.size());
}

KrAppPictures::Writing KrAppPictures::drawDepth(std::size_t i)
{
    KrDepthCapture::Options wanted;
    wanted.kind = m_options.depthKind;
    // The order of the files that are written.
    wanted.rowOrder = KrDepthCapture::RowOrder::TopRowFirst;
    std::vector<float>& depths = m_frames[i % 2].depths;
    std::string reason;
    demand(m_scene.drawDepth(m_motion.state(i), wanted, depths, reason), reason);
    // Infinite is where nothing is seen.
    const bool isSeen = std::any_of(depths.begin(), depths.end(), [](float depth) { return std::isfinite(depth); });
    m_numBlank += isSeen ? 0 : 1;
    const std::string path = file(m_options.depth, i);
    return [this, &depths, path, sidecar = sidecar(i, path, describe(), depthContent())] {
        KrAppDepth::write(depths, m_options.width, m_options.height, path, m_png);
        sidecar();
    };
}

KrAppPictures::Content KrAppPictures::depthContent() const
{
    const bool isPlanar = m_options.depthKind == KrDepthCapture::Kind::Planar;
    const bool isPicture = KrAppFiles::extensionOf(m_options.depth) == ".png";
    return {isPlanar ? "planar depth" : "euclidean depth", isPicture ? "mm" : "m", 1};
}

KrAppPictures::Writing KrAppPictures::drawDepthPreview(std::size_t i)
{
    KrImage& picture = m_frames[i % 2].picture;
    std::string reason;
    demand(m_scene.drawDepth(m_motion.state(i), picture, reason), reason);
    const std::string path = file(m_options.depthPreview, i);
    return [this, &picture, path, sidecar = sidecar(i, path, describe(), {"relative depth", "1", 1})] {
        KrAppFiles::writePicture(picture, path, m_messages, m_png.file);
        sidecar();
    };
}

bool KrAppPictures::areDepthsOfKinds() const
{
    // Depths of a picture with aids include them, and so do those beside labels, which are of links alone.
    return (m_options.drawsLabels() || !m_options.normals.empty()) && !m_options.aids.areShown();
}

KrFrameCapture::Targets KrAppPictures::Frame::targets(const KrAppOptions& options, bool hasDepths)
{
    KrFrameCapture::Targets targets;
    targets.width = options.width;
    targets.height = options.height;
    const std::size_t count = std::size_t{options.width} * options.height;
    if (!options.output.empty()) {
        // Of the second frame the memory is there.
        if (!picture.flippedData()) {
            picture.zeroFlippedImage(3, 0, options.width, options.height);
        }
        targets.color = picture.flippedData();
        demand(targets.color, "there is not enough memory for this");
    }
    if (hasDepths) {
        depths.resize(count);
        targets.depth = depths.data();
    }
    if (options.drawsLabels()) {
        labels.resize(count);
        targets.labels = labels.data();
    }
    if (!options.normals.empty()) {
        normals.resize(3 * count);
        targets.normals = normals.data();
    }
    return targets;
}

void KrAppPictures::writeKinds()
{
    const std::unique_ptr<KrAppVideo> video = openVideo();
    writeEach("frames", [&](std::size_t i) { return drawKinds(i, video.get()); });
    if (video) {
        video->finish();
    }
    tellBlank(m_options.output);
    if (m_numUnlabelled > 0) {
        const std::string& first = !m_options.labels.empty()          ? m_options.labels
                                   : !m_options.labelsPreview.empty() ? m_options.labelsPreview
                                                                      : m_options.normals;
        tellBlank(first, m_numUnlabelled, m_robot.hasVisibleShape() ? whyBlank() : "no link has a visible shape");
    }
}

KrAppPictures::Writing KrAppPictures::drawKinds(std::size_t i, KrAppVideo* video)
{
    KrFrameCapture::Options wanted;
    wanted.labelLevel = m_options.labelLevel;
    wanted.normalFrame = m_options.normalFrame;
    wanted.depthKind = m_options.depthKind;
    Frame& frame = m_frames[i % 2];
    std::string reason;
    demand(m_scene.draw(m_motion.state(i), wanted, frame.targets(m_options, areDepthsOfKinds()), reason), reason);
    // Told while it is the latest frame.
    KrFrameDescription description = m_options.sidecar ? describe() : KrFrameDescription();
    std::vector<Writing> steps = {[this, &frame] { finish(frame); }};
    if (video) {
        steps.push_back([&frame, video] { video->add(frame.picture); });
    } else {
        addStep(steps, i, m_options.output, description, {"color", "1/255", 3},
                [this, &frame](const std::string& path) {
                    KrAppFiles::writePicture(frame.picture, path, m_messages, m_png.file);
                });
    }
    // The surfaces were drawn with planes of their own.
    description.setProjection(m_scene.projection());
    addSurfaces(steps, i, frame, description);
    return [steps = std::move(steps)] {
        for (const Writing& step : steps) {
            step();
        }
    };
}

void KrAppPictures::addSurfaces(std::vector<Writing>& steps, std::size_t i, const Frame& frame,
                                const KrFrameDescription& description)
{
    const unsigned int width = m_options.width;
    const unsigned int height = m_options.height;
    if (areDepthsOfKinds()) {
        addStep(steps, i, m_options.depth, description, depthContent(),
                [=, &frame](const std::string& path) { KrAppDepth::write(frame.depths, width, height, path, m_png); });
    }
    KrFrameDescription legend = description;
    if (m_options.sidecar) {
        legend.setLabels(m_labels);
    }
    addStep(steps, i, m_options.labels, legend, {"labels", "1", 1}, [=, &frame](const std::string& path) {
        KrAppLabels::writeLabels(frame.labels, width, height, path, m_kept);
    });
    for (KrFrameDescription::Label& label : legend.labels) {
        label.color = KrLabelColors::text(label.id);
    }
    addStep(
        steps, i, m_options.labelsPreview, legend, {"label colors", "1/255", 3},
        [=, &frame](const std::string& path) { KrAppLabels::writePreview(frame.labels, width, height, path, m_kept); });
    KrFrameDescription turned = description;
    turned.axes = m_options.normalFrame == KrFrameCapture::NormalFrame::Optical ? "optical" : "world";
    const bool isPicture = KrAppFiles::extensionOf(m_options.normals) != ".npy";
    addStep(steps, i, m_options.normals, turned,
            isPicture ? Content{"normal colors", "1/255", 3} : Content{"normals", "1", 3},
            [=, &frame](const std::string& path) {
                KrAppLabels::writeNormals(frame.normals, width, height, path, m_kept);
            });
}

void KrAppPictures::addStep(std::vector<Writing>& steps, std::size_t i, const std::string& pattern,
                            const KrFrameDescription& description, const Content& content,
                            const std::function<void(const std::string& path)>& write)
{
    if (!pattern.empty()) {
        // Its folder is made here, on the thread that draws.
        const std::string path = file(pattern, i);
        steps.push_back([path, write] { write(path); });
        steps.push_back(sidecar(i, path, description, content));
    }
}

void KrAppPictures::finish(Frame& frame)
{
    if (!m_options.output.empty()) {
        // The rows of colours the other way round, as all that writes pictures has them.
        frame.picture.flippedToOrdinary();
        m_numBlank += isBlank(frame.picture) ? 1 : 0;
    }
    // Ends with the first pixel of a link.
    const auto isSeen = [](auto number) { return number != 0; };
    const bool isLabelled = std::any_of(frame.labels.begin(), frame.labels.end(), isSeen) ||
                            std::any_of(frame.normals.begin(), frame.normals.end(), isSeen);
    m_numUnlabelled += isLabelled ? 0 : 1;
}

KrAppPictures::Writing KrAppPictures::sidecar(std::size_t i, const std::string& picture, KrFrameDescription frame,
                                              const Content& content)
{
    if (!m_options.sidecar) {
        return [] {};
    }
    frame.channels = content.channels;
    frame.quantity = content.quantity;
    frame.unit = content.unit;
    // That format begins with the lowest row.
    if (KrAppFiles::extensionOf(picture) == ".pfm") {
        frame.rowOrder = KrFrameDescription::RowOrder::BottomRowFirst;
    }
    return [this, i, picture, frame = std::move(frame)] { writeDescription(frame, i, picture); };
}

void KrAppPictures::writeDescription(KrFrameDescription frame, std::size_t i, const std::string& picture)
{
    if (!m_options.trajectory.empty()) {
        // From 1, as in the names of files.
        frame.frameNumber = static_cast<unsigned int>(i + 1);
    }
    KrAppSidecar::write(frame, m_options.sidecarOf(picture));
}
