#include "KrAppOptions.h"

#include "KrAppAids.h"
#include "KrAppCommandLine.h"
#include "KrAppDepth.h"
#include "KrAppFailure.h"
#include "KrAppFiles.h"
#include "KrAppLabels.h"
#include "KrAppMessages.h"
#include "KrAppSidecar.h"

#include <picture/KrTiles.h>
#include <picture/KrValueText.h>
#include <toolkit/foundation/KrReason.h>
#include <toolkit/math/KrAngle.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>

namespace
{

using KrAppCommandLine::wrongUsage;

/// The options as they were typed; checked by the functions below.
struct Words
{
    std::string size;
    std::string samples;
    std::string sidecar;
    std::string background;
    std::string eye;
    std::string lookAt;
    std::string up;
    std::string fieldOfView;
    std::string views;
    std::string intrinsics;
    std::string azimuth;
    std::string elevation;
    std::string framesPerSecond;
    std::string depthKind;
    std::string labelLevel;
    std::string normalFrame;
    std::string pick;
    std::vector<std::string> rangeMap;
    std::vector<std::string> show;
    std::string hide;
    std::string axisScale;
    std::string fade;
    std::vector<std::string> joints;
    std::vector<std::string> selfTest;
    bool noCache = false;
    std::string cacheLimit;
};

/// All options, in the order of the help. What is more than a copy goes into `words`, so that what is wrong with it
/// is told by sentences of our own.
void addOptions(CLI::App& app, KrAppOptions& options, Words& words)
{
    app.name("krrender");
    app.description("Draws a robot: a URDF or a native system file becomes a picture, without a display.");
    app.footer("Examples:\n"
               "  krrender arm.urdf -o arm.png\n"
               "  krrender arm.urdf -o bent.png --joint joint_2=35deg --joint gripper_left=20mm --size 1920x1080\n"
               "  krrender arm.urdf -o motion.mp4 --trajectory motion.csv --fps 25\n"
               "  krrender arm.urdf -o sides.png --views front,side,top,perspective\n"
               "  krrender --view arm.urdf\n"
               "  krrender arm.urdf --info\n"
               "  xacro arm.xacro | krrender - -o - > arm.png\n"
               "Commands:\n"
               "  krrender dataset RECIPE.json --out DIR\n"
               "The command dataset makes data sets; krrender dataset --help tells its options.\n"
               "The name - is standard input or output. A name that begins with - is written ./-name.\n"
               "Exit status: 0 done, 1 could not be done, 2 wrong usage.");
    // Not required here: --doctor and --self-test do without.
    app.add_option("ROBOT", options.robot, "Robot description (URDF) or native system (XML)")->type_name("FILE");

    app.add_option("-o,--output", options.output,
                   "Picture to write (.png .jpg .tif .bmp .tga); with --trajectory a pattern (frames/%04d.png) or a "
                   "video (.mp4 .mkv .webm .gif)")
        ->type_name("FILE")
        ->group("Output");
    app.add_option(
           "--depth", options.depth,
           "Depths to write: .png (16-bit, millimetres, 0 for nothing), .npy or .pfm (metres, inf for nothing); with "
           "--trajectory a pattern (depths/%04d.npy)")
        ->type_name("FILE")
        ->group("Output");
    app.add_option("--depth-kind", words.depthKind, "Along the view or along each pixel's ray [planar]")
        ->type_name("planar|euclidean")
        ->group("Output");
    app.add_option("--depth-preview", options.depthPreview, "Depth picture: grey, nearer is darker, background black")
        ->type_name("FILE")
        ->group("Output");
    app.add_option(
           "--labels", options.labels,
           "Which link each pixel shows: .png (16-bit grey) or .npy (32-bit whole numbers), 0 for nothing; with "
           "--trajectory a pattern. --sidecar names the links")
        ->type_name("FILE")
        ->group("Output");
    app.add_option("--labels-preview", options.labelsPreview,
                   "The same in colours (.png), background black; --sidecar names the colours")
        ->type_name("FILE")
        ->group("Output");
    app.add_option("--label-level", words.labelLevel, "What has a label of its own [link]")
        ->type_name("link|shape|manipulator")
        ->group("Output");
    app.add_option(
           "--normals", options.normals,
           "Normals of the surfaces, turned to the eye: .npy (x, y, z as floats, 0 for nothing), or .png to look "
           "at (0.5 + 0.5 n, background black)")
        ->type_name("FILE")
        ->group("Output");
    app.add_option("--normal-frame", words.normalFrame,
                   "Axes of the normals: those of the camera (x right, y down, z forward) or of the world [camera]")
        ->type_name("camera|world")
        ->group("Output");
    app.add_option("--pick", words.pick,
                   "Print what a pixel of the picture shows: link, joint, point, distance; 0,0 is the upper left one")
        ->type_name("X,Y")
        ->group("Output");
    // Four words at once: a map makes no sense without one of them.
    app.add_option("--range-map", words.rangeMap,
                   "Distances in metres on a grid, seen by an orthographic camera: file (.npy .csv), samples WxH, size "
                   "in metres XxY, farthest distance; nothing nearer than 1 m is seen")
        ->expected(4)
        ->type_name("FILE WxH XxY METRES")
        ->group("Output");
    // A flag that may have a value behind "=": the next word is not its own.
    app.add_flag("--sidecar", words.sidecar,
                 "Write PICTURE.json beside each picture: its camera in numbers, the time, the joints; --sidecar=FILE "
                 "names the file of a single picture")
        ->group("Output");
    app.add_flag("--info", options.info, "Print links, joints, limits and triangle counts")->group("Output");
    app.add_option("--convert", options.convert, "Write the system, as it would be drawn, as native XML")
        ->type_name("FILE")
        ->group("Output");
    app.add_option("--report", options.report, "Write what the import found and mended as JSON")
        ->type_name("FILE")
        ->group("Output");
    app.add_flag("--view", options.view,
                 "Open a window on the screen and walk around the robot; the mouse and the keys are printed")
        ->group("Output");
    app.add_flag("--doctor", options.doctor, "Try every way to an OpenGL context and say what it needs")
        ->group("Output");
    // The folder may be left out.
    app.add_option("--self-test", words.selfTest,
                   "Draw and judge sample scenes; their pictures, a table and what --doctor says go into a folder "
                   "[krrender-self-test]")
        ->type_name("[DIR]")
        ->expected(0, 1)
        ->group("Output");

    app.add_option("--size", words.size, "Width and height in pixels [1280x960]")->type_name("WxH")->group("Picture");
    app.add_option("--samples", words.samples, "Drawn pixels per pixel: 1, 4, 9 or 16 [4]")
        ->type_name("N")
        ->group("Picture");
    app.add_flag("--exact", options.exact, "Draw every triangle; otherwise meshes may err by half a drawn pixel")
        ->group("Picture");
    app.add_option("--background", words.background, "Colour: a name, #rrggbb, or r,g,b from 0 to 1 [#eef0f4]")
        ->type_name("COLOUR")
        ->group("Picture");

    app.add_option("--azimuth", words.azimuth, "Direction of the eye about z, from +x, in degrees [-50]")
        ->type_name("DEG")
        ->group("Camera");
    app.add_option("--elevation", words.elevation, "Height of the eye over the horizon in degrees [22]")
        ->type_name("DEG")
        ->group("Camera");
    app.add_option("--eye", words.eye, "Eye point in metres instead of the automatic one")
        ->type_name("X,Y,Z")
        ->group("Camera");
    app.add_option("--look-at", words.lookAt, "Point in the middle of the picture")
        ->type_name("X,Y,Z")
        ->group("Camera");
    app.add_option("--up", words.up, "Direction that is up in the picture [0,0,1]")
        ->type_name("X,Y,Z")
        ->group("Camera");
    app.add_option("--fov", words.fieldOfView, "Vertical field of view in degrees [30]")
        ->type_name("DEG")
        ->group("Camera");
    app.add_option("--views", words.views,
                   "Several views in one picture, for one: front,side,top,perspective; back, left, right and bottom, "
                   "too")
        ->type_name("NAME,NAME...")
        ->group("Camera");
    app.add_option("--intrinsics", words.intrinsics, "Focal lengths and principal point in pixels instead of --fov")
        ->type_name("FX,FY,CX,CY")
        ->group("Camera");
    app.add_option("--camera", options.camera,
                   "Stand where the camera of that --sidecar stood, with its intrinsics and size")
        ->type_name("FILE.json")
        ->group("Camera");
    app.add_flag("--file-view", options.useFileView, "Point of view, lights and background of the native system file")
        ->group("Camera");

    // One value for each: the word behind it may be the robot.
    app.add_option("-j,--joint", words.joints,
                   "A position in radians or metres, or with a unit: 30deg, 20mm; repeatable")
        ->allow_extra_args(false)
        ->type_name("NAME=VALUE")
        ->group("Pose");
    app.add_option("--state", options.state, "State of the whole system (XML)")->type_name("FILE")->group("Pose");
    app.add_option("--trajectory", options.trajectory, "CSV: a header that names joints, then a row for each frame")
        ->type_name("FILE")
        ->group("Pose");
    app.add_option("--fps", words.framesPerSecond,
                   "Frames per second of a video and of --view [by the column time, else 30]")
        ->type_name("N")
        ->group("Pose");

    app.add_option("--show", words.show,
                   "Draw with the robot: axes of the links, bounding volumes, mass ellipsoids, collision shapes")
        ->allow_extra_args(false)
        ->type_name("axes,volumes,mass,collision")
        ->group("Aids");
    app.add_option("--hide", words.hide, "Leave out what is visible of the links: what --show names is seen alone")
        ->type_name("visuals")
        ->group("Aids");
    app.add_option("--axis-scale", words.axisScale, "Length of a link's axes in metres [by the robot's size]")
        ->type_name("METRES")
        ->group("Aids");
    app.add_option("--select", options.aids.selected, "Link to set off from the others; repeatable")
        ->allow_extra_args(false)
        ->type_name("LINK")
        ->group("Aids");
    app.add_option("--fade", words.fade, "Opacity of links that are not selected, from 0 to 1 [0.15]")
        ->type_name("ALPHA")
        ->group("Aids");

    app.add_option("--package-path", options.import.packagePaths, "Folder in which packages are looked for; repeatable")
        ->allow_extra_args(false)
        ->type_name("DIR")
        ->group("Import");
    app.add_flag("--strict", options.strict, "A missing mesh is an error")->group("Import");
    app.add_flag("--no-cache", words.noCache, "Neither use nor write what is kept of meshes from one run to the next")
        ->group("Import");
    app.add_option("--cache-limit", words.cacheLimit,
                   "Megabytes (MiB) that may be kept in $XDG_CACHE_HOME/krrendcore, or ~/.cache/krrendcore [1024]")
        ->type_name("N")
        ->group("Import");

    app.add_flag("-q,--quiet", options.quiet, "Print errors only")->group("Other");
    app.set_help_flag("-h,--help", "Print this help")->group("Other");
    app.set_version_flag("--version", "krrender " KR_VERSION, "Print the version")->group("Other");
    // Of flags only --sidecar means something by a value.
    for (CLI::Option* option : app.get_options()) {
        option->disable_flag_override(option->get_name() != "--sidecar");
    }
}

/// Refuses what no picture has before memory or a driver is asked for it.
void readSize(const std::string& text, KrAppOptions& options)
{
    unsigned long width = 0;
    unsigned long height = 0;
    if (!KrValueText::size(text, width, height)) {
        wrongUsage("--size " + text + ": a size is WIDTHxHEIGHT in whole pixels, 1280x960 for one");
    }
    // The bound is ours; whether the driver draws so much is seen when it is asked.
    // Before the numbers become narrower.
    const auto isDrawable = [](unsigned long n) { return n > 0 && n <= KrAppOptions::kLargestSize; };
    if (!isDrawable(width) || !isDrawable(height)) {
        wrongUsage("--size " + text + ": width and height must be from 1 to " +
                   std::to_string(KrAppOptions::kLargestSize) + " pixels");
    }
    options.width = static_cast<unsigned int>(width);
    options.height = static_cast<unsigned int>(height);
}

/// `text` as a number from `low` to `high`, both allowed.
double readNumber(const char* option, const std::string& text, double low, double high)
{
    double value = 0.0;
    if (!KrValueText::number(text, value)) {
        wrongUsage(std::string(option) + " " + text + ": this is no number");
    }
    if (value < low || value > high) {
        char limits[80];
        std::snprintf(limits, sizeof limits, "must be from %g to %g", low, high);
        wrongUsage(std::string(option) + " " + text + ": " + limits);
    }
    return value;
}

/// Nothing for an option that is not given.
std::optional<KrVector> readVector(const char* option, const std::string& text)
{
    KrVector value;
    if (text.empty()) {
        return std::nullopt;
    }
    if (!KrValueText::vector(text, value)) {
        wrongUsage(std::string(option) + " " + text + ": three numbers X,Y,Z are expected");
    }
    constexpr double kFarthest = 1e9; // m: far beyond what can be drawn, and safe to reckon with
    for (const double coordinate : {value.x(), value.y(), value.z()}) {
        if (std::abs(coordinate) > kFarthest) {
            wrongUsage(std::string(option) + " " + text + ": numbers must be from -1e9 to 1e9");
        }
    }
    return value;
}

/// Splits "front,top".
std::vector<std::string> readViews(const std::string& list)
{
    std::vector<std::string> views = KrValueText::split(list, ',');
    // All of the list before anything is drawn.
    const std::vector<std::string>& names = KrViewSide::names();
    for (const std::string& view : views) {
        if (std::find(names.begin(), names.end(), view) == names.end()) {
            std::string known;
            for (const std::string& name : names) {
                known += (known.empty() ? "" : ", ") + name;
            }
            const std::vector<std::string> near = KrValueText::nearest(view, names);
            wrongUsage("--views " + list + ": there is no view \"" + view + "\", but " + known +
                       (near.empty() ? "" : "; did you mean " + near.front() + "?"));
        }
    }
    return views;
}

void readCamera(const Words& words, KrAppOptions& options)
{
    options.eye = readVector("--eye", words.eye);
    options.lookAt = readVector("--look-at", words.lookAt);
    options.up = readVector("--up", words.up);
    if (options.up && options.up->length() == 0.0) {
        wrongUsage("--up " + words.up + ": this vector has no direction");
    }
    // As they were typed: nothing has been reckoned with them.
    if (options.eye && options.lookAt && (*options.eye - *options.lookAt).length() == 0.0) {
        wrongUsage("--eye and --look-at are the same point");
    }
    // Given, whatever its value: also the default is a wish then.
    const bool isTurned = !words.azimuth.empty() || !words.elevation.empty();
    // Options that contradict each other are refused: whichever counted, somebody would wait for the other.
    if (options.eye && isTurned) {
        wrongUsage("--eye says where the camera stands: --azimuth and --elevation cannot be combined with it");
    }
    if (options.useFileView && !options.eye && !options.lookAt && (isTurned || options.up)) {
        wrongUsage("--file-view says where the camera stands: --azimuth, --elevation and --up cannot be combined with "
                   "it");
    }
    if (!words.fieldOfView.empty()) {
        options.fieldOfView = Kr::Angle::radians(readNumber("--fov", words.fieldOfView, 1.0, 170.0));
    }
    const auto angle = [](const char* option, const std::string& text, double fallback, double limit) {
        return text.empty() ? fallback : Kr::Angle::radians(readNumber(option, text, -limit, limit));
    };
    options.azimuth = angle("--azimuth", words.azimuth, KrFraming::kAzimuth, 360.0);
    options.elevation = angle("--elevation", words.elevation, KrFraming::kElevation, 90.0);
}

void readIntrinsics(const Words& words, KrAppOptions& options)
{
    // A camera from a file has all of these in it.
    const bool isPlaced = !words.eye.empty() || !words.lookAt.empty() || !words.up.empty() || !words.azimuth.empty() ||
                          !words.elevation.empty() || !words.fieldOfView.empty() || options.useFileView;
    if (!options.camera.empty() && isPlaced) {
        wrongUsage("--camera says where the camera stands: it cannot be combined with other options that do");
    }
    if (!words.views.empty()) {
        if (!words.eye.empty() || !words.lookAt.empty() || !words.up.empty() || !words.intrinsics.empty() ||
            !options.camera.empty() || options.useFileView) {
            wrongUsage("--views places its cameras by itself: of the other camera options only --fov, --azimuth and "
                       "--elevation go with it");
        }
        // Several cameras stand by rule: what places a single one has no meaning.
        options.views = readViews(words.views);
    }
    if (!words.intrinsics.empty()) {
        // For the size of the picture, whatever camera the numbers come from.
        KrCameraIntrinsics camera;
        camera.width = options.width;
        camera.height = options.height;
        if (!words.fieldOfView.empty()) {
            wrongUsage("--intrinsics and --fov say the same: give one of them");
        }
        if (!KrAppSidecar::readIntrinsics(words.intrinsics, camera)) {
            wrongUsage("--intrinsics " + words.intrinsics +
                       ": four numbers FX,FY,CX,CY in pixels are expected, the first two above 0");
        }
        options.intrinsics = camera;
    }
}

/// A pixel of the picture, whose size is known.
std::pair<unsigned int, unsigned int> readPixel(const std::string& text)
{
    const std::vector<std::string> words = KrValueText::split(text, ',');
    unsigned int numbers[2] = {};
    bool isRead = words.size() == 2;
    for (std::size_t i = 0; isRead && i < 2; ++i) {
        const char* const end = words[i].data() + words[i].size();
        const auto [rest, error] = std::from_chars(words[i].data(), end, numbers[i]);
        isRead = error == std::errc() && rest == end;
    }
    if (!isRead) {
        wrongUsage("--pick " + text + ": a pixel is X,Y in whole numbers, 0,0 the upper left one");
    }
    return {numbers[0], numbers[1]};
}

/// As words: what the joints are is known when the robot has been read.
void readJoints(const Words& words, KrAppOptions& options)
{
    for (const std::string& word : words.joints) {
        // The last one: a name may hold the sign, a position does not.
        const std::size_t sign = word.rfind('=');
        if (sign == std::string::npos || sign == 0) {
            wrongUsage("--joint " + word + ": NAME=VALUE is expected");
        }
        options.joints.emplace_back(word.substr(0, sign), word.substr(sign + 1));
    }
}

void readAids(const Words& words, KrAids& aids)
{
    for (const std::string& list : words.show) {
        // The words before a wrong one are added, which does not matter: the program ends here.
        const std::string wrong = KrAppAids::add(aids, list);
        if (!wrong.empty()) {
            const std::vector<std::string> near = KrValueText::nearest(wrong, KrAids::names());
            wrongUsage("--show " + list + ": axes, volumes, mass and collision can be shown" +
                       (near.empty() ? "" : "; did you mean " + near.front() + "?"));
        }
    }
    if (!words.hide.empty()) {
        aids.shapes = words.hide != "visuals";
        if (aids.shapes) {
            wrongUsage("--hide " + words.hide + ": visuals can be hidden");
        }
    }
    if (!words.axisScale.empty()) {
        aids.axisScale = readNumber("--axis-scale", words.axisScale, 1e-6, 1e6);
        // An option that changes nothing is a slip, and told.
        if (!aids.axes) {
            wrongUsage("--axis-scale needs --show axes");
        }
    }
    if (!words.fade.empty()) {
        aids.fade = readNumber("--fade", words.fade, 0.0, 1.0);
        if (aids.selected.empty()) {
            wrongUsage("--fade needs --select LINK");
        }
    }
}

/// Refuses the word of an option that has few.
/// @param needed  the option without which this one means nothing, where it is not there; else empty
[[noreturn]] void wrongWord(const std::string& option, const std::string& word, const std::string& needed,
                            const std::string& sentence, const std::vector<std::string>& words)
{
    const std::vector<std::string> near = KrValueText::nearest(word, words);
    wrongUsage(option + " " + word + ": " +
               (!needed.empty() ? "this needs " + needed
                                : sentence + (near.empty() ? "" : "; did you mean " + near.front() + "?")));
}

/// Squares, because each pixel is drawn as a block of as many rows as columns.
unsigned int readSamples(const std::string& text)
{
    for (const unsigned int n : {1u, 4u, 9u, 16u}) {
        if (text == std::to_string(n)) {
            return n;
        }
    }
    wrongUsage("--samples " + text + ": must be 1, 4, 9 or 16");
}

/// Kept are meshes, unless that is not wanted; made ready for drawing where something is drawn.
void readImport(const Words& words, KrAppOptions& options)
{
    options.import.useCache = !words.noCache;
    const bool isDrawn = options.drawsPictures() || options.pick || options.view || !options.rangeMap.path.empty();
    options.import.preparation = !isDrawn        ? KrImportOptions::Preparation::None
                                 : options.exact ? KrImportOptions::Preparation::Drawing
                                                 : KrImportOptions::Preparation::Levels;
    if (!words.cacheLimit.empty()) {
        // More than any disk has is no limit that somebody means, and as bytes it still is a number.
        constexpr std::uint64_t kMost = std::uint64_t{1} << 40;
        std::uint64_t megabytes = 0;
        const char* const end = words.cacheLimit.data() + words.cacheLimit.size();
        const auto [rest, error] = std::from_chars(words.cacheLimit.data(), end, megabytes);
        if (error != std::errc() || rest != end || megabytes > kMost) {
            wrongUsage("--cache-limit " + words.cacheLimit + ": must be a whole number of megabytes, 0 for no cache");
        }
        options.import.maxCacheBytes = megabytes << 20;
    }
}

/// Files that the command line names in several ways.
void readFiles(const Words& words, KrAppOptions& options)
{
    for (std::string* const path : {&options.robot, &options.state, &options.trajectory, &options.camera}) {
        KrAppFiles::nameStandard(*path, KrAppFiles::Standard::Input);
    }
    // With a name or without: the word is there in both.
    options.sidecar = !words.sidecar.empty();
    // "true" is what the parser gives a flag without a value.
    options.sidecarPath = words.sidecar == "true" ? std::string() : words.sidecar;
    for (std::string* const path :
         {&options.output, &options.depth, &options.depthPreview, &options.labels, &options.labelsPreview,
          &options.normals, &options.sidecarPath, &options.report, &options.convert}) {
        KrAppFiles::nameStandard(*path, KrAppFiles::Standard::Output);
    }
}

/// Refuses a sidecar that has no picture, or no place.
void checkSidecar(const KrAppOptions& options)
{
    if (!options.sidecar) {
        return;
    }
    const std::vector<std::string> pictures = options.pictures();
    if (pictures.empty()) {
        wrongUsage("--sidecar needs a picture: give -o PICTURE, --depth, --depth-preview, --labels, --labels-preview "
                   "or --normals");
    }
    if (!options.sidecarPath.empty() && (pictures.size() > 1 || !options.trajectory.empty())) {
        wrongUsage("--sidecar=" + options.sidecarPath + " is for a single picture; --sidecar writes one beside each");
    }
    // Beside means by the picture's name, which a stream has not.
    const bool isPiped = std::any_of(pictures.begin(), pictures.end(), KrAppFiles::isStandard);
    if (options.sidecarPath.empty() && isPiped) {
        wrongUsage("--sidecar: there is no place beside standard output; give --sidecar=FILE");
    }
}

/// Refuses the pattern of a series where there is one picture.
void checkPatterns(const KrAppOptions& options)
{
    for (const std::string& path : options.pictures()) {
        if (options.trajectory.empty() && KrAppFiles::isPattern(path)) {
            wrongUsage(path + " is a pattern for the frames of a motion: it needs --trajectory");
        }
        if (!options.trajectory.empty() && KrAppFiles::isStandard(path)) {
            wrongUsage("standard output takes one picture: with --trajectory give a pattern such as frames/%04d.png");
        }
    }
}

/// What no option knows by itself: whether they make sense together.
void checkCombination(const KrAppOptions& options)
{
    // These draw scenes of their own, and look at nothing else that is given.
    if (options.doctor || options.selfTest) {
        return;
    }
    if (options.robot.empty()) {
        wrongUsage("no robot was named: krrender ROBOT -o PICTURE (krrender --help tells more)");
    }
    if (!options.trajectory.empty() && !options.drawsPictures() && !options.view) {
        wrongUsage("--trajectory needs -o: a pattern such as frames/%04d.png, or a video such as robot.mp4; or "
                   "--depth, --depth-preview, --labels, --labels-preview, --normals or --view");
    }
    if (!options.drawsPictures() && !options.view && !options.info && options.convert.empty() &&
        options.report.empty() && options.rangeMap.path.empty() && !options.pick) {
        wrongUsage("nothing to do: give -o PICTURE, --view, --depth, --depth-preview, --labels, --labels-preview, "
                   "--normals, --pick, --range-map, --info, --convert or --report");
    }
    // In a window all of it can be shown again by keys.
    if (!options.aids.shapes && !options.aids.areShown() && !options.view) {
        wrongUsage("--hide visuals leaves nothing to draw: give --show collision, for one");
    }
    if (!options.aids.shapes && (options.drawsLabels() || !options.normals.empty() || options.pick)) {
        wrongUsage("--hide visuals leaves nothing for --labels, --labels-preview, --normals and --pick: they are about "
                   "what is visible of the links");
    }
    const bool isColorAlone = options.pictures() == std::vector<std::string>{options.output};
    if (!options.trajectory.empty() && !options.rangeMap.path.empty()) {
        wrongUsage("--range-map is for one pose and cannot be combined with --trajectory");
    }
    if (!options.trajectory.empty() && options.pick) {
        wrongUsage("--pick is for one pose and cannot be combined with --trajectory");
    }
    checkSidecar(options);
    checkPatterns(options);
    if (!options.views.empty() &&
        (!isColorAlone || !options.rangeMap.path.empty() || options.sidecar || options.view || options.pick)) {
        wrongUsage("--views is for the picture of -o: --depth, --depth-preview, --labels, --labels-preview, --normals, "
                   "--pick, --range-map, --sidecar and --view have one camera");
    }
    if (options.view && (options.intrinsics || !options.camera.empty())) {
        wrongUsage("--view has a camera of its own: --camera and --intrinsics are for pictures");
    }
}

} // namespace

double KrAppOptions::verticalFieldOfView() const
{
    return fieldOfView.value_or(KrFraming::kFieldOfView);
}

std::vector<std::string> KrAppOptions::pictures() const
{
    std::vector<std::string> asked;
    for (const std::string& path : {output, depth, depthPreview, labels, labelsPreview, normals}) {
        if (!path.empty()) {
            asked.push_back(path);
        }
    }
    return asked;
}

std::string KrAppOptions::sidecarOf(const std::string& picture) const
{
    return sidecarPath.empty() ? picture + ".json" : sidecarPath;
}

void KrAppOptions::standAs(const KrFrameDescription& frame)
{
    // A file may tell any size.
    const bool isDrawable = frame.width <= kLargestSize && frame.height <= kLargestSize;
    if (!frame.intrinsics || !isDrawable) {
        throw KrAppFailure(KrAppFailure::CouldNot,
                           KrAppFiles::spoken(camera, KrAppFiles::Standard::Input) +
                               (isDrawable ? " tells no intrinsics" : " tells too large a picture"));
    }
    pov = frame.actualPov();
    // What is typed counts before the file: its size, then its intrinsics.
    if (!isSizeGiven) {
        width = frame.width;
        height = frame.height;
    }
    if (intrinsics) {
        intrinsics->width = width;
        intrinsics->height = height;
        // The same lens on a picture of another size.
    } else if (frame.width != width || frame.height != height) {
        intrinsics = frame.intrinsics->scaledTo(width, height);
    } else {
        intrinsics = frame.intrinsics;
    }
}

KrVector KrAppOptions::towardsEye() const
{
    return KrFraming::towardsEye(azimuth, elevation);
}

bool KrAppOptions::isStandardOutputTaken() const
{
    // Whatever else is printed would end up inside that output.
    std::vector<std::string> paths = pictures();
    paths.insert(paths.end(), {sidecarPath, report, convert, rangeMap.path});
    return std::any_of(paths.begin(), paths.end(), KrAppFiles::isStandard);
}

void KrAppOptions::describe(const std::function<void(const CLI::App&)>& reader)
{
    // The options are thrown away: names and descriptions are all that is asked for.
    KrAppOptions options;
    Words words;
    CLI::App app;
    addOptions(app, options, words);
    reader(app);
}

bool KrAppOptions::parse(int argc, const char* const* argv)
{
    Words words;
    CLI::App app;
    addOptions(app, *this, words);
    const auto twoRobots = [this](const std::string& extra) {
        return "one robot is drawn at a time: \"" + robot + "\" and \"" + extra + "\" were named";
    };
    if (!KrAppCommandLine::parse(app, argc, argv, twoRobots)) {
        return false;
    }
    // A folder that is not named and a test that is not asked for read alike in `words`.
    selfTest = app.count("--self-test") > 0;
    if (selfTest && !words.selfTest.empty()) {
        selfTestFolder = words.selfTest.front();
    }
    // Sizes before cameras, which take them over.
    if (!words.size.empty()) {
        readSize(words.size, *this);
        isSizeGiven = true;
    }
    // The defaults stand in the class, and in brackets in the help.
    samples = words.samples.empty() ? samples : readSamples(words.samples);
    if (!words.background.empty()) {
        KrColor color;
        if (!KrValueText::color(words.background, color)) {
            const std::vector<std::string> near = KrValueText::nearest(words.background, KrValueText::colorNames());
            wrongUsage("--background " + words.background + ": a colour is a name, #rrggbb, or r,g,b from 0 to 1" +
                       (near.empty() ? "" : "; did you mean " + near.front() + "?"));
        }
        background = color;
    }
    if (!words.pick.empty()) {
        pick = readPixel(words.pick);
    }
    readImport(words, *this);
    readCamera(words, *this);
    readIntrinsics(words, *this);
    readJoints(words, *this);
    readAids(words, aids);
    if (!words.framesPerSecond.empty()) {
        if (trajectory.empty()) {
            wrongUsage("--fps needs --trajectory FILE");
        }
        framesPerSecond = readNumber("--fps", words.framesPerSecond, kLeastFramesPerSecond, kMostFramesPerSecond);
    }
    if (!words.depthKind.empty() && (depth.empty() || !KrAppDepth::readKind(words.depthKind, depthKind))) {
        wrongWord("--depth-kind", words.depthKind, depth.empty() ? "--depth FILE" : "",
                  "depths are planar or euclidean", {"planar", "euclidean"});
    }
    if (!words.labelLevel.empty() && (!drawsLabels() || !KrAppLabels::readLevel(words.labelLevel, labelLevel))) {
        wrongWord("--label-level", words.labelLevel, drawsLabels() ? "" : "--labels FILE",
                  "labels are those of a link, a shape or a manipulator", {"link", "shape", "manipulator"});
    }
    if (!words.normalFrame.empty() && (normals.empty() || !KrAppLabels::readFrame(words.normalFrame, normalFrame))) {
        wrongWord("--normal-frame", words.normalFrame, normals.empty() ? "--normals FILE" : "",
                  "axes are those of the camera or of the world", {"camera", "world"});
    }
    if (!words.rangeMap.empty()) {
        rangeMap.parse(words.rangeMap);
    }
    // Names of standard streams before the combinations, which ask for them.
    readFiles(words, *this);
    checkCombination(*this);
    return true;
}
