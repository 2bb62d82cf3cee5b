// Measures what a frame costs, from the file to the picture, and beside it what the same triangles cost in plain
// OpenGL.
//
//   krFrameBenchmark SYSTEM [--size 640x480] [--copies 1] [--mode render|color|depth] [--json FILE]

#include "KrBenchBareScene.h"
#include "KrBenchMeasure.h"
#include "KrBenchReport.h"
#include "KrBenchRobot.h"
#include "KrBenchSystem.h"

#include <picture/KrFraming.h>
#include <picture/KrLighting.h>
#include <picture/KrValueText.h>
#include <rendCore/system/KrRenderWindow.h>

#include <CLI/CLI.hpp>
#include <GL/gl.h>
#include <osgViewer/Viewer>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>

namespace
{

using Mode = KrBenchBareScene::Mode;
using States = std::vector<KrManipulatorSystemState>;

constexpr unsigned int kWarmUpFrames = 10;
// So few pixels that what is left is the work of the scene itself.
constexpr unsigned int kSmallSize = 16;
constexpr unsigned long kLargestSize = 32768;

struct Options
{
    std::string system; ///< file
    std::vector<std::string> packagePaths;
    std::string size = "640x480";
    unsigned int width = 0;
    unsigned int height = 0;
    unsigned int copies = 1;
    unsigned int frames = 100;
    std::string mode = "render";
    std::string json;
    bool oneTriangle = false;
    bool still = false;
};

/// Ends the program: a figure of something that went wrong is none.
[[noreturn]] void couldNot(const std::string& sentence)
{
    throw KrBenchFailure(sentence);
}

Mode modeOf(const std::string& name)
{
    return name == "color" ? Mode::Color : name == "depth" ? Mode::Depth : Mode::Render;
}

void addOptions(CLI::App& app, Options& options)
{
    app.add_option("SYSTEM", options.system, "URDF or native system file")->required();
    app.add_option("--size", options.size, "WIDTHxHEIGHT in pixels [640x480]");
    app.add_option("--copies", options.copies, "Copies of the system, side by side [1]")->check(CLI::Range(1, 10000));
    app.add_option("--frames", options.frames, "Frames measured [100]")->check(CLI::Range(1, 1000000));
    app.add_option("--mode", options.mode, "What a frame ends in: render, color or depth capture [render]")
        ->check(CLI::IsMember({"render", "color", "depth"}));
    app.add_flag("--one-triangle", options.oneTriangle, "Keep one triangle of every group: the scene's own cost");
    app.add_flag("--still", options.still, "No new pose for each frame");
    app.add_option("--json", options.json, "File for the figures; - is standard output, without the table");
    app.add_option("--package-path", options.packagePaths, "Folder in which packages are looked for")
        ->allow_extra_args(false);
}

KrVisualizationParameters parametersFor(const KrStatedSystem& system, double aspectRatio)
{
    // One view for all systems, so that figures can be compared.
    KrFraming framing({0.6, -0.7, 0.4}, {0.0, 0.0, 1.0}, 0.52, aspectRatio);
    framing.add(system.manipulatorSystem(), system.systemState());
    KrVisualizationParameters parameters;
    parameters.setPovParameters(framing.pov());
    parameters.setLightParameters(KrLighting::threeLamps(framing.pov()));
    return parameters;
}

/// The scene under test: a render window and what it is asked for in each frame.
class Scene
{
public:
    Scene(const KrStatedSystem& system, const States& states, bool isStill)
        : m_system(system)
        , m_states(states)
        , m_isStill(isStill)
    {
    }

    void open(unsigned int width, unsigned int height, const KrVisualizationParameters& parameters)
    {
        m_window.setHideWindow(true);
        m_window.setWindowSize(width, height);
        if (!m_window.init()) {
            couldNot("no OpenGL context to draw with");
        }
        m_window.setStatedSystem(m_system, parameters);
        m_window.setAmbientLight(KrLighting::ambientLight());
    }

    void draw(unsigned int frame, Mode mode)
    {
        if (!m_isStill || frame == 0) {
            m_window.setState(m_states[frame % m_states.size()]);
        }
        if (mode == Mode::Render) {
            m_window.renderScene(true);
        } else {
            m_window.renderSceneAndCaptureImage(m_image, mode == Mode::Color ? KrSGWindow::CaptureColor
                                                                             : KrSGWindow::CaptureDepth);
        }
        // Else the driver's work would be counted with the next frame.
        glFinish();
    }

    KrRenderWindow& window() { return m_window; }
    const KrImage& image() const { return m_image; }

private:
    const KrStatedSystem& m_system;
    const States& m_states;
    bool m_isStill;
    KrRenderWindow m_window;
    KrImage m_image;
};

/// The matrices as they stand now: the scene's own, so that both ways draw the same picture.
struct Camera
{
    osg::Matrixd projection;
    osg::Matrixd view;
};

Camera cameraOf(KrRenderWindow& window)
{
    const osg::Camera& camera = *window.getViewer()->getCamera();
    return {camera.getProjectionMatrix(), camera.getViewMatrix()};
}

Camera measureScene(const Options& options, const KrStatedSystem& system, const States& states,
                    const KrVisualizationParameters& parameters, KrBenchReport& report)
{
    const Mode mode = modeOf(options.mode);
    Scene scene(system, states, options.still);
    // The first frame has everything in it: the context, the building of the scene, the way to the driver.
    const double start = KrBenchMeasure::wallSeconds();
    scene.open(options.width, options.height, parameters);
    scene.draw(0, mode);
    report.scene.firstFrameSeconds = KrBenchMeasure::wallSeconds() - start;
    report.renderer = scene.window().report().renderer;
    report.isSoftware = scene.window().report().isSoftware;

    const auto frame = [&](unsigned int i) { scene.draw(i, mode); };
    report.scene.frames = KrBenchMeasure::measure(kWarmUpFrames, options.frames, frame);
    // Before plain OpenGL adds its own.
    report.peakMemoryMiB = KrBenchMeasure::peakMemoryMiB();
    const Camera camera = cameraOf(scene.window());
    // The pose of frame 0, for the comparison of the two pictures.
    scene.window().setState(states.front());
    scene.draw(0, Mode::Color);
    report.sceneCoverage = KrBenchBareScene::coverage(scene.image().data(), std::size_t(options.width) * options.height,
                                                      parameters.renderParameters().backgroundColor());
    if (!scene.window().setWindowSize(kSmallSize, kSmallSize)) {
        couldNot("the window does not take 16 x 16 pixels");
    }
    report.scene.small = KrBenchMeasure::measure(kWarmUpFrames, options.frames, frame);
    return camera;
}

void measureBare(const Options& options, const KrStatedSystem& system, const States& states,
                 const KrVisualizationParameters& parameters, const Camera& camera, KrBenchReport& report)
{
    const Mode mode = modeOf(options.mode);
    // The window of the scene is closed by now: one context at a time.
    KrBenchBareScene bare;
    const auto draw = [&](unsigned int i, Mode how) {
        bare.draw(states[options.still ? 0 : i % states.size()], parameters, camera.projection, camera.view, how);
    };
    const double start = KrBenchMeasure::wallSeconds();
    if (!bare.open(options.width, options.height, system)) {
        couldNot("no second OpenGL context to draw with");
    }
    draw(0, mode);
    report.bare.firstFrameSeconds = KrBenchMeasure::wallSeconds() - start;
    const auto frame = [&](unsigned int i) { draw(i, mode); };
    report.bare.frames = KrBenchMeasure::measure(kWarmUpFrames, options.frames, frame);
    // The pose in which the scene's picture was taken.
    draw(0, Mode::Color);
    report.bareCoverage = bare.coverage(parameters.renderParameters().backgroundColor());
    if (!bare.setSize(kSmallSize, kSmallSize)) {
        couldNot("the window does not take 16 x 16 pixels");
    }
    report.bare.small = KrBenchMeasure::measure(kWarmUpFrames, options.frames, frame);
}

KrBenchReport run(const Options& options)
{
    KrBenchReport report;
    const double start = KrBenchMeasure::wallSeconds();
    const KrBenchRobot robot(options.system, options.packagePaths);
    report.loadSeconds = KrBenchMeasure::wallSeconds() - start;

    KrStatedSystem system = KrBenchSystem::copied(robot.system, options.copies);
    const KrVisualizationParameters parameters =
        parametersFor(system, static_cast<double>(options.width) / options.height);
    // Behind the view: the robot is framed as with all its triangles.
    if (options.oneTriangle) {
        KrBenchSystem::keepOneTriangle(system);
    }
    // Made before anything is measured, as a client has them from elsewhere.
    const States states = KrBenchSystem::swinging(system, 64);

    report.system = robot.name;
    report.mode = options.mode;
    report.isOneTriangle = options.oneTriangle;
    report.isStill = options.still;
    report.width = options.width;
    report.height = options.height;
    report.copies = options.copies;
    report.frames = options.frames;
    report.triangles = KrBenchSystem::numTriangles(system);
    report.drawCalls = KrBenchSystem::numGroups(system);
    const Camera camera = measureScene(options, system, states, parameters, report);
    // Behind the scene, whose matrices it takes over.
    measureBare(options, system, states, parameters, camera, report);
    // A ratio means something only when both drew the same.
    if (std::abs(report.sceneCoverage - report.bareCoverage) > 0.01) {
        couldNot("the two ways drew different pictures: " + std::to_string(report.sceneCoverage) + " and " +
                 std::to_string(report.bareCoverage) + " of the pixels");
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

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("Measures what a frame costs, and what the same triangles cost in plain OpenGL.", "krFrameBenchmark");
    addOptions(app, options);
    CLI11_PARSE(app, argc, argv);
    if (!readSize(options)) {
        std::fprintf(stderr, "krFrameBenchmark: --size %s: WIDTHxHEIGHT is expected\n", options.size.c_str());
        return 2;
    }
    try {
        const KrBenchReport report = run(options);
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
        return 0;
    } catch (const KrBenchFailure& failure) {
        std::fprintf(stderr, "krFrameBenchmark: %s\n", failure.what());
        return 1;
    }
}
