// Measures what a frame costs, from the file to the picture, and beside it what the same triangles cost in plain
// OpenGL.
//
//   krFrameBenchmark SYSTEM [--size 640x480] [--copies 1] [--cull] [--mode render|color|depth] [--json FILE]
//   krFrameBenchmark SYSTEM [...] --instructions       counts instructions in place of time, under valgrind

#include "KrBenchChild.h"
#include "KrBenchMeasure.h"
#include "KrBenchReport.h"
#include "KrBenchRobot.h"
#include "KrBenchSystem.h"
#include "KrBenchWay.h"

#include <picture/KrFraming.h>
#include <picture/KrLighting.h>
#include <picture/KrValueText.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>

namespace
{

using Mode = KrBenchWay::Mode;
using Ways = std::vector<std::unique_ptr<KrBenchWay>>;

// So few pixels that what is left is the work of the scene itself.
constexpr unsigned int kSmallSize = 16;
constexpr unsigned long kLargestSize = 32768;

struct Options
{
    std::string system; ///< file, or "made:" and a name
    std::vector<std::string> packagePaths;
    std::string size = "640x480";
    unsigned int width = 0;
    unsigned int height = 0;
    unsigned int copies = 1;
    unsigned int rounds = 15;
    unsigned int frames = 10;
    unsigned int starts = 5;
    std::string mode = "render";
    std::vector<std::string> ways;
    std::string json;
    std::string pictures;
    std::string profiles;
    float levels = 0.0f;
    bool oneTriangle = false;
    bool still = false;
    bool cull = false;
    bool instructions = false;
    std::string child; ///< what a process of this program's own is to do
    std::vector<std::string> arguments;
};

/// Ends the program: a figure of something that went wrong is none.
[[noreturn]] void couldNot(const std::string& sentence)
{
    throw KrBenchFailure(sentence);
}

Mode modeOf(const Options& options)
{
    return options.mode == "color" ? Mode::Color : options.mode == "depth" ? Mode::Depth : Mode::Render;
}

void addOptions(CLI::App& app, Options& options)
{
    app.add_option("SYSTEM", options.system, "URDF or native system file; or made:arm, made:humanoid")->required();
    app.add_option("--size", options.size, "WIDTHxHEIGHT in pixels [640x480]");
    app.add_option("--copies", options.copies, "Copies of the system, side by side [1]")->check(CLI::Range(1, 10000));
    app.add_option("--rounds", options.rounds, "Rounds in which the ways take turns [15]")
        ->check(CLI::Range(1, 100000));
    app.add_option("--frames", options.frames, "Frames of a way in each round [10]")->check(CLI::Range(1, 100000));
    app.add_option("--starts", options.starts, "Processes started for each way's first frame and memory [5]")
        ->check(CLI::Range(0, 1000));
    app.add_option("--mode", options.mode, "What a frame ends in: render, color or depth capture [render]")
        ->check(CLI::IsMember({"render", "color", "depth"}));
    app.add_option("--way", options.ways,
                   "Only this way of drawing: ours; graph, ours with every traversal of the scene graph; levels, ours "
                   "with levels of detail; groups, plain OpenGL with one call a triangle group; merged, plain OpenGL "
                   "with one call a mesh. May be given again [ours, groups, merged, and levels with --levels]")
        ->allow_extra_args(false)
        ->check(CLI::IsMember(KrBenchWay::names()));
    app.add_option("--levels", options.levels, "Error on the screen that levels of detail may show, pixels");
    app.add_flag("--cull", options.cull, "Back faces are left out");
    app.add_flag("--one-triangle", options.oneTriangle, "Keep one triangle of every group: the scene's own cost");
    app.add_flag("--still", options.still, "No new pose for each frame");
    app.add_flag("--instructions", options.instructions, "Count the instructions of a steady frame with valgrind");
    app.add_option("--profiles", options.profiles,
                   "Folder for --instructions to leave its files for callgrind_annotate");
    app.add_option("--pictures", options.pictures, "Folder for the picture of each way, as PPM");
    app.add_option("--json", options.json, "File for the figures; - is standard output, without the table");
    app.add_option("--package-path", options.packagePaths, "Folder in which packages are looked for")
        ->allow_extra_args(false);
    app.add_option("--child", options.child)->group(""); // for this program itself
}

KrVisualizationParameters parametersFor(const KrStatedSystem& system, double aspectRatio)
{
    // One view for all systems, so that figures can be compared.
    KrFraming framing({0.6, -0.7, 0.4}, {0.0, 0.0, 1.0}, 0.52, aspectRatio);
    framing.add(system.manipulatorSystem(), system.systemState());
    KrVisualizationParameters parameters;
    // A colour that nothing lit has: what was drawn on is told by it.
    KrRenderParameters render;
    render.setBackgroundColor({1.0, 0.0, 1.0});
    parameters.setRenderParameters(render);
    parameters.setPovParameters(framing.pov());
    parameters.setLightParameters(KrLighting::threeLamps(framing.pov()));
    return parameters;
}

std::unique_ptr<KrBenchTask> taskOf(const Options& options, const KrBenchRobot& robot)
{
    auto task = std::make_unique<KrBenchTask>();
    task->system = KrBenchSystem::copied(robot.system, options.copies);
    task->parameters = parametersFor(task->system, static_cast<double>(options.width) / options.height);
    // Behind the view: the robot is framed as with all its triangles.
    if (options.oneTriangle) {
        KrBenchSystem::keepOneTriangle(task->system);
    }
    // Made before anything is measured, as a client has them from elsewhere.
    task->states = KrBenchSystem::swinging(task->system, 64);
    task->isStill = options.still;
    task->cull = options.cull;
    task->levelPixels = options.levels;
    return task;
}

/// The part of `way`'s picture that differs from the background.
double coverage(const KrBenchWay& way, const Options& options, const KrColor& background)
{
    const double channels[3] = {background.red(), background.green(), background.blue()};
    const std::size_t numPixels = std::size_t(options.width) * options.height;
    const unsigned char* rgb = way.pixels();
    std::size_t drawn = 0;
    for (std::size_t i = 0; i < numPixels; ++i, rgb += 3) {
        bool differs = false;
        for (unsigned int k = 0; k < 3; ++k) {
            // Drivers round by themselves: what differs by more has been drawn on.
            differs = differs || std::abs(rgb[k] - 255.0 * channels[k]) > 1.5;
        }
        drawn += differs ? 1 : 0;
    }
    return static_cast<double>(drawn) / static_cast<double>(numPixels);
}

void writePicture(const KrBenchWay& way, const Options& options, const std::string& name)
{
    std::ofstream file(options.pictures + "/" + name + ".ppm", std::ios::binary);
    file << "P6\n" << options.width << " " << options.height << "\n255\n";
    // From the top down.
    const std::size_t rowBytes = std::size_t(3) * options.width;
    for (unsigned int row = options.height; row-- > 0;) {
        file.write(reinterpret_cast<const char*>(way.pixels() + row * rowBytes),
                   static_cast<std::streamsize>(rowBytes));
    }
    if (!file.flush()) {
        couldNot("cannot write " + name + ".ppm in " + options.pictures);
    }
}

/// Whether two ways look at the scene alike. Depths are not compared: our planes are those that the scene needs.
bool isSameCamera(const KrBenchWay& a, const KrBenchWay& b)
{
    // One of them works with single precision here and there.
    const auto isNear = [](double x, double y) { return std::abs(x - y) <= 1e-4 * (1.0 + std::abs(y)); };
    const osg::Matrixd views[2] = {a.view(), b.view()};
    const osg::Matrixd lenses[2] = {a.projection(), b.projection()};
    return std::equal(views[0].ptr(), views[0].ptr() + 16, views[1].ptr(), isNear) &&
           isNear(lenses[0](0, 0), lenses[1](0, 0)) && isNear(lenses[0](1, 1), lenses[1](1, 1));
}

/// A ratio means something only when all ways drew the same.
void comparePictures(const Options& options, const KrBenchTask& task, const Ways& ways, KrBenchReport& report)
{
    for (std::size_t i = 0; i < ways.size(); ++i) {
        KrBenchReport::Way& found = report.ways[i];
        ways[i]->draw(0, Mode::Color);
        found.coverage = coverage(*ways[i], options, task.parameters.renderParameters().backgroundColor());
        if (!options.pictures.empty()) {
            writePicture(*ways[i], options, found.name);
        }
        if (!isSameCamera(*ways[i], *ways[0])) {
            couldNot(found.name + " has another camera than " + report.ways[0].name);
        }
        if (std::abs(found.coverage - report.ways[0].coverage) > 0.01) {
            couldNot(report.ways[0].name + " and " + found.name +
                     " drew different pictures: " + std::to_string(report.ways[0].coverage) + " and " +
                     std::to_string(found.coverage) + " of the pixels");
        }
    }
}

/// All ways in this process, taking turns.
void measureFrames(const Options& options, const KrBenchTask& task, KrBenchReport& report)
{
    Ways ways;
    std::vector<KrBenchMeasure::Draw> draws;
    for (const KrBenchReport::Way& way : report.ways) {
        ways.push_back(KrBenchWay::make(way.name, task));
        ways.back()->open(options.width, options.height);
        draws.emplace_back([&options, &drawn = *ways.back()](unsigned int i) { drawn.draw(i, modeOf(options)); });
    }
    report.renderer = ways.front()->renderer();
    report.isSoftware = ways.front()->isSoftware();
    const std::vector<KrBenchMeasure::Frames> frames = KrBenchMeasure::takeTurns(draws, options.rounds, options.frames);
    comparePictures(options, task, ways, report);
    for (const std::unique_ptr<KrBenchWay>& way : ways) {
        way->setSize(kSmallSize, kSmallSize);
    }
    const std::vector<KrBenchMeasure::Frames> small = KrBenchMeasure::takeTurns(draws, options.rounds, options.frames);
    for (std::size_t i = 0; i < ways.size(); ++i) {
        report.ways[i].frames = frames[i];
        report.ways[i].small = small[i];
    }
}

std::vector<std::string> childArguments(const Options& options, const std::string& child, const std::string& way)
{
    std::vector<std::string> arguments = options.arguments;
    arguments.insert(arguments.end(), {"--child", child + ":" + way});
    return arguments;
}

/// First frame and memory of each way, in processes that take turns.
void measureStarts(const Options& options, KrBenchReport& report)
{
    for (unsigned int i = 0; i < options.starts; ++i) {
        for (KrBenchReport::Way& way : report.ways) {
            const std::string printed = KrBenchChild::run({}, childArguments(options, "start", way.name));
            double read = 0.0;
            double seconds = 0.0;
            double loaded = 0.0;
            double peak = 0.0;
            if (std::sscanf(printed.c_str(), "start %lf %lf %lf %lf", &read, &seconds, &loaded, &peak) != 4) {
                couldNot("a process of its own said: " + printed);
            }
            way.firstFrameSeconds.push_back(seconds);
            way.startSeconds.push_back(read + seconds);
            way.loadedMemoryMiB.push_back(loaded);
            way.peakMemoryMiB.push_back(peak);
        }
    }
}

void countInstructions(const Options& options, KrBenchReport& report)
{
    for (KrBenchReport::Way& way : report.ways) {
        const std::string profile = options.profiles.empty() ? "" : options.profiles + "/" + way.name + ".callgrind";
        way.instructions =
            KrBenchChild::instructions("krBenchSteadyFrames", childArguments(options, "count", way.name), profile) /
            options.frames;
    }
}

/// What a process of this program's own does with one way, named behind a colon.
void runChild(const Options& options, const KrBenchTask& task, double loadSeconds)
{
    const std::size_t colon = options.child.find(':');
    const std::unique_ptr<KrBenchWay> way = KrBenchWay::make(options.child.substr(colon + 1), task);
    const KrBenchMeasure::Draw draw = [&](unsigned int i) { way->draw(i, modeOf(options)); };
    const double loaded = KrBenchMeasure::peakMemoryMiB();
    const double start = KrBenchMeasure::wallSeconds();
    // The first frame has everything in it: the context, the building of the scene, the way to the driver.
    way->open(options.width, options.height);
    draw(0);
    const double first = KrBenchMeasure::wallSeconds() - start;
    for (unsigned int i = 1; i < kBenchWarmUpFrames; ++i) {
        draw(i);
    }
    if (options.child.compare(0, colon, "count") == 0) {
        krBenchSteadyFrames(&draw, kBenchWarmUpFrames, options.frames);
    }
    std::printf("start %.9g %.9g %.9g %.9g\n", loadSeconds, first, loaded, KrBenchMeasure::peakMemoryMiB());
}

KrBenchReport reportOf(const Options& options, const KrBenchRobot& robot, const KrBenchTask& task)
{
    KrBenchReport report;
    report.system = robot.name;
    report.mode = options.mode;
    report.isOneTriangle = options.oneTriangle;
    report.isStill = options.still;
    report.isCulled = options.cull;
    report.width = options.width;
    report.height = options.height;
    report.copies = options.copies;
    report.rounds = options.rounds;
    report.frames = options.frames;
    report.triangles = KrBenchSystem::numTriangles(task.system);
    report.meshes = KrBenchSystem::numMeshes(task.system);
    report.groups = KrBenchSystem::numGroups(task.system);
    for (const std::string& name : KrBenchWay::names()) {
        const bool isUsual = name != "graph" && (name != "levels" || options.levels > 0.0f);
        if (options.ways.empty() ? isUsual : std::count(options.ways.begin(), options.ways.end(), name) > 0) {
            report.ways.emplace_back();
            report.ways.back().name = name;
        }
    }
    return report;
}

/// False for what is no size.
bool readSize(Options& options)
{
    unsigned long width = 0;
    unsigned long height = 0;
    if (!KrValueText::size(options.size, width, height) || width == 0 || height == 0 || width > kLargestSize ||
        height > kLargestSize) {
        return false;
    }
    options.width = static_cast<unsigned int>(width);
    options.height = static_cast<unsigned int>(height);
    return true;
}

void tell(const Options& options, const KrBenchReport& report)
{
    if (options.json != "-") {
        std::fputs(report.table().c_str(), stdout);
    } else {
        std::fputs(report.json().c_str(), stdout);
    }
    if (!options.json.empty() && options.json != "-") {
        std::ofstream file(options.json);
        file << report.json();
        // A full disk is noticed here.
        if (!file.flush()) {
            couldNot("cannot write " + options.json);
        }
    }
}

void run(const Options& options)
{
    const double start = KrBenchMeasure::wallSeconds();
    const KrBenchRobot robot(options.system, options.packagePaths);
    const double loadSeconds = KrBenchMeasure::wallSeconds() - start;
    const std::unique_ptr<KrBenchTask> task = taskOf(options, robot);
    if (!options.child.empty()) {
        runChild(options, *task, loadSeconds);
        return;
    }
    KrBenchReport report = reportOf(options, robot, *task);
    report.loadSeconds = loadSeconds;
    if (options.instructions) {
        countInstructions(options, report);
    } else {
        measureStarts(options, report);
        measureFrames(options, *task, report);
    }
    tell(options, report);
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("Measures what a frame costs, and what the same triangles cost in plain OpenGL.", "krFrameBenchmark");
    addOptions(app, options);
    CLI11_PARSE(app, argc, argv);
    options.arguments.assign(argv + 1, argv + argc);
    if (!readSize(options)) {
        std::fprintf(stderr, "krFrameBenchmark: --size %s: WIDTHxHEIGHT is expected\n", options.size.c_str());
        return 2;
    }
    try {
        run(options);
        return 0;
    } catch (const KrBenchFailure& failure) {
        std::fprintf(stderr, "krFrameBenchmark: %s\n", failure.what());
        return 1;
    }
}
