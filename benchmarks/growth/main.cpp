// What one size of one thing costs; benchmarks/growth/growth.py asks for many and draws what they tell.
//
//   krGrowthBenchmark chain|star|robots|triangles|shapes|selection|colors|translucent|pixels|views COUNT
//
// Prints a line of JSON: seconds of processor time (of all threads) and MiB, of a process that does nothing else.
#include "KrBenchMade.h"
#include "KrBenchMeasure.h"
#include "KrBenchRobot.h"
#include "KrBenchSystem.h"

#include <import/KrRobotImporter.h>
#include <picture/KrFraming.h>
#include <picture/KrLighting.h>
#include <rendCore/system/KrMultiRenderWindow.h>
#include <toolkit/math/KrAngle.h>

#include <GL/gl.h>

#include <boost/make_shared.hpp>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>

namespace
{

constexpr unsigned int kSize = 256;    ///< pixels, both ways, where the size is not what grows
constexpr unsigned int kViewSize = 32; ///< of one of several views
constexpr unsigned int kMinFrames = 5;
constexpr unsigned int kMaxFrames = 100;
constexpr double kFrameSeconds = 0.2; ///< frames are drawn for that long at least

/// What is drawn, and how it is read from a file where it can be.
struct Subject
{
    KrStatedSystem system;
    unsigned int width = kSize;
    unsigned int height = kSize;
    unsigned int views = 0;   ///< 0 for a window of one view
    bool isCaptured = false;  ///< every frame ends in memory
    bool isSelecting = false; ///< in every frame the other half of the shapes is selected
    double loadSeconds = 0.0; ///< 0 for what is not read
};

KrBenchMade::Shapes smallShapes(unsigned int count)
{
    KrBenchMade::Shapes shapes;
    for (unsigned int i = 0; i < count; ++i) {
        shapes.push_back(KrBenchMade::body(0.1, 0.03, 4, 4, 1, i));
    }
    return shapes;
}

/// All on one link, side by side.
KrManipulatorSystem oneLink(const KrBenchMade::Shapes& shapes)
{
    KrManipulatorLink link("link");
    for (std::size_t i = 0; i < shapes.size(); ++i) {
        KrCoordinateSystemTransformation pose;
        pose.setTranslation({0.1 * static_cast<double>(i % 100), 0.1 * static_cast<double>(i / 100), 0.0});
        if (!shapes[i]->setPlacement(pose)) {
            throw KrBenchFailure("the shape was not placed");
        }
        link.addShape(shapes[i]);
    }
    KrIndividualManipulator robot("robot");
    robot.childLinks().push_back(std::move(link));
    KrManipulatorSystem system;
    system.manipulators().push_back(std::move(robot));
    return system;
}

KrBenchMade::Shapes translucentShapes(unsigned int count)
{
    KrBenchMade::Shapes shapes;
    for (unsigned int i = 0; i < count; ++i) {
        const boost::shared_ptr<KrTriPhysicalExtent> shape = KrBenchMade::body(0.1, 0.03, 4, 4, 1, i);
        shape->setMaterial(shape->groupName(0), KrDataMap::material(KrColor(0.5, 0.2, 0.7, 0.5)));
        shapes.push_back(shape);
    }
    return shapes;
}

/// A strip of `count` triangles, each of another colour.
boost::shared_ptr<KrTriPhysicalExtent> coloredStrip(unsigned int count)
{
    KrXmlVectorVector vertices;
    for (unsigned int i = 0; i < count + 2; ++i) {
        vertices.push_back({0.01 * i, 0.3 * (i % 2), 0.001 * (i % 7)});
    }
    const auto strip = boost::make_shared<KrTriPhysicalExtent>();
    KrMaterialMap materials;
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    for (unsigned int i = 0; i < count; ++i) {
        const std::string name = "triangle_" + std::to_string(i);
        materials.set(name, KrDataMap::material(KrColor(i % 100 / 100.0, i / 100 % 100 / 100.0, i / 10000 / 100.0)));
        groups.push_back({name, KrXmlVectorType<KrTriangle>(std::vector<KrTriangle>{KrTriangle(i, i + 1, i + 2)})});
    }
    strip->setMaterialMap(materials);
    if (!strip->setMesh(std::move(vertices), {}, {}, std::move(groups), "strip")) {
        throw KrBenchFailure("the strip was not made");
    }
    return strip;
}

/// A folder that is gone when it is not needed any more.
class Folder
{
public:
    Folder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "krGrowthXXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw KrBenchFailure("no folder can be made in " + pattern);
        }
        m_path = pattern;
    }
    ~Folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string path(const std::string& name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

} // namespace

// What is counted under valgrind goes by these names.
extern "C" __attribute__((noinline)) bool krGrowthRead(const std::string& path, const KrImportOptions& options,
                                                       KrStatedSystem& system)
{
    KrImportReport report;
    return KrRobotImporter::readFile(path, options, system, report);
}

extern "C" __attribute__((noinline)) void krGrowthFrame(const std::function<void(unsigned int)>& draw,
                                                        unsigned int frame)
{
    draw(frame);
}

namespace
{

/// Processor time of reading a robot description, its limits raised to what is measured.
double secondsToRead(const std::string& path, KrStatedSystem& system)
{
    KrImportOptions options;
    options.maxLinks = 100000;
    options.maxChain = 100000;
    options.maxTriangles = 100000000;
    const double start = KrBenchMeasure::processorSeconds();
    if (!krGrowthRead(path, options, system)) {
        throw KrBenchFailure("the description that was written cannot be read");
    }
    return KrBenchMeasure::processorSeconds() - start;
}

/// `count` links with a box each: on the one before, or on the base.
double secondsToReadLinks(unsigned int count, bool isChain)
{
    const Folder folder;
    const std::string path = folder.path("robot.urdf");
    std::ofstream file(path);
    file << "<robot name='r'><link name='l0'/>\n";
    for (unsigned int i = 1; i <= count; ++i) {
        file << "<link name='l" << i << "'><visual><geometry><box size='0.1 0.1 0.1'/></geometry></visual></link>\n"
             << "<joint name='j" << i << "' type='continuous'><parent link='l" << (isChain ? i - 1 : 0)
             << "'/><child link='l" << i << "'/><origin xyz='0 0 0.1'/><axis xyz='0 0 1'/></joint>\n";
    }
    file << "</robot>\n";
    file.close();
    KrStatedSystem system;
    return secondsToRead(path, system);
}

/// A binary STL file of the mesh's triangles and a robot that shows it.
double secondsToReadMesh(const KrTriPhysicalExtent& mesh)
{
    const Folder folder;
    std::ofstream file(folder.path("mesh.stl"), std::ios::binary);
    char header[80] = {};
    const auto count = static_cast<std::uint32_t>(mesh.numTriangles());
    file.write(header, sizeof header);
    file.write(reinterpret_cast<const char*>(&count), sizeof count);
    for (const KrTriPhysicalExtent::Group& group : mesh.groups()) {
        for (const KrTriangle& triangle : group.second()) {
            float numbers[12] = {}; // the normal is left to the reader
            for (unsigned int k = 0; k < 3; ++k) {
                const KrVector& p = mesh.vertices()[triangle.vertex(k)];
                const double from[3] = {p.x(), p.y(), p.z()};
                std::copy(from, from + 3, numbers + 3 + 3 * k);
            }
            file.write(reinterpret_cast<const char*>(numbers), sizeof numbers);
            file.write(header, 2);
        }
    }
    file.close();
    std::ofstream(folder.path("robot.urdf"))
        << "<robot name='r'><link name='l'><visual><geometry><mesh filename='mesh.stl'/></geometry></visual></link>"
           "</robot>\n";
    KrStatedSystem system;
    return secondsToRead(folder.path("robot.urdf"), system);
}

/// The shapes of the first link with even or odd numbers, and no others.
void selectEveryOther(KrStatedSystem& system, unsigned int first)
{
    const unsigned int count = system.linkByKey({0, 0, 0})->numShapes();
    system.clearSelection();
    for (unsigned int i = first; i < count; i += 2) {
        if (!system.selectShape({0, 0, i})) {
            throw KrBenchFailure("a shape was not selected");
        }
    }
}

std::unique_ptr<Subject> subjectOf(const std::string& series, unsigned int count)
{
    auto subject = std::make_unique<Subject>();
    if (series == "chain" || series == "star") {
        const bool isChain = series == "chain";
        subject->system = KrStatedSystem(isChain ? KrBenchMade::chain(smallShapes(count), 0.1)
                                                 : KrBenchMade::star(smallShapes(count), 0.1));
        subject->loadSeconds = secondsToReadLinks(count, isChain);
    } else if (series == "robots") {
        subject->system = KrBenchSystem::copied(KrStatedSystem(KrBenchMade::chain(smallShapes(6), 0.1)), count);
    } else if (series == "triangles") {
        // As many segments as rings, two triangles to each square.
        const auto side = static_cast<unsigned int>(std::lround(std::sqrt(0.5 * count)));
        const boost::shared_ptr<KrTriPhysicalExtent> mesh = KrBenchMade::body(1.0, 0.5, side, side, 4);
        subject->loadSeconds = secondsToReadMesh(*mesh);
        subject->system = KrStatedSystem(KrBenchMade::chain({mesh}, 1.0));
    } else if (series == "shapes" || series == "selection") {
        subject->system = KrStatedSystem(oneLink(smallShapes(count)));
        subject->isSelecting = series == "selection";
    } else if (series == "colors") {
        subject->system = KrStatedSystem(KrBenchMade::chain({coloredStrip(count)}, 1.0));
    } else if (series == "translucent") {
        subject->system = KrStatedSystem(KrBenchMade::star(translucentShapes(count), 0.1));
    } else {
        subject->system = KrStatedSystem(KrBenchMade::chain(smallShapes(6), 0.1));
        if (series == "pixels") {
            subject->width = subject->height = static_cast<unsigned int>(std::lround(std::sqrt(1.0 * count)));
            subject->isCaptured = true;
        } else if (series == "views") {
            subject->width = subject->height = kViewSize;
            subject->views = count;
        } else {
            throw KrBenchFailure("there is no series of the name " + series);
        }
    }
    return subject;
}

/// All about the scene, at the height of the eye of `pov`.
std::vector<KrVector> eyePoints(const KrPovParameters& pov, unsigned int count)
{
    const KrVector outwards = pov.eyepoint() - pov.centerOfInterest();
    const double radius = std::hypot(outwards.x(), outwards.y());
    std::vector<KrVector> points;
    for (unsigned int i = 0; i < count; ++i) {
        const double turn = 2.0 * Kr::Angle::kPi * i / count;
        points.push_back(pov.centerOfInterest() +
                         KrVector(radius * std::cos(turn), radius * std::sin(turn), outwards.z()));
    }
    return points;
}

std::unique_ptr<KrRenderWindow> windowFor(const Subject& subject, const KrPovParameters& pov)
{
    std::unique_ptr<KrRenderWindow> window;
    if (subject.views > 0) {
        auto many = std::make_unique<KrMultiRenderWindow>(subject.width, subject.height, subject.views);
        many->setEyePoints(eyePoints(pov, subject.views));
        window = std::move(many);
    } else {
        window = std::make_unique<KrRenderWindow>();
        window->setWindowSize(subject.width, subject.height);
    }
    window->setHideWindow(true);
    if (!window->init()) {
        throw KrBenchFailure("no OpenGL context to draw with");
    }
    return window;
}

/// What the driver takes for as many pixels that are cleared and read back, without anything of ours. The window's
/// context is current.
double secondsOfDriver(const Subject& subject)
{
    std::vector<unsigned char> pixels(std::size_t(3) * subject.width * subject.height);
    std::vector<double> seconds;
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    // The first one is not counted.
    for (unsigned int i = 0; i <= kMinFrames; ++i) {
        const double before = KrBenchMeasure::processorSeconds();
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        glReadPixels(0, 0, static_cast<GLsizei>(subject.width), static_cast<GLsizei>(subject.height), GL_RGB,
                     GL_UNSIGNED_BYTE, pixels.data());
        glFinish();
        seconds.push_back(KrBenchMeasure::processorSeconds() - before);
    }
    seconds.erase(seconds.begin());
    return KrBenchMeasure::median(seconds);
}

void measure(const std::string& series, unsigned int count)
{
    const std::unique_ptr<Subject> subject = subjectOf(series, count);
    const KrStatedSystem& system = subject->system;
    const std::vector<KrManipulatorSystemState> states = KrBenchSystem::swinging(system, 8);
    KrFraming framing({0.6, -0.7, 0.4}, {0.0, 0.0, 1.0}, 0.52, 1.0);
    framing.add(system.manipulatorSystem(), system.systemState());
    KrVisualizationParameters parameters;
    parameters.setPovParameters(framing.pov());
    parameters.setLightParameters(KrLighting::threeLamps(framing.pov()));

    const std::unique_ptr<KrRenderWindow> window = windowFor(*subject, parameters.povParameters());
    KrImage image;
    const auto draw = [&](unsigned int frame) {
        window->setState(states[frame % states.size()]);
        if (subject->isSelecting) {
            selectEveryOther(subject->system, frame % 2);
        }
        if (subject->isCaptured ? !window->renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor)
                                : !window->renderScene(true)) {
            throw KrBenchFailure("the frame was not drawn");
        }
        glFinish();
    };
    const double start = KrBenchMeasure::processorSeconds();
    window->setStatedSystem(system, parameters);
    draw(0);
    const double build = KrBenchMeasure::processorSeconds() - start;
    draw(1);
    std::vector<double> frames;
    double spent = 0.0;
    while (frames.size() < kMinFrames || (spent < kFrameSeconds && frames.size() < kMaxFrames)) {
        const double before = KrBenchMeasure::processorSeconds();
        krGrowthFrame(draw, 2 + static_cast<unsigned int>(frames.size()));
        frames.push_back(KrBenchMeasure::processorSeconds() - before);
        spent += frames.back();
    }
    const double memory = KrBenchMeasure::peakMemoryMiB();
    std::printf("{\"series\": \"%s\", \"count\": %u, \"load_s\": %.9g, \"build_s\": %.9g, \"frame_s\": %.9g, "
                "\"driver_s\": %.9g, \"memory_mib\": %.6g, \"frames\": %zu}\n",
                series.c_str(), count, subject->loadSeconds, build, KrBenchMeasure::median(frames),
                subject->isCaptured ? secondsOfDriver(*subject) : 0.0, memory, frames.size());
}

} // namespace

int main(int argc, char** argv)
{
    const int count = argc == 3 ? std::atoi(argv[2]) : 0;
    if (count < 1) {
        std::fprintf(stderr,
                     "usage: %s chain|star|robots|triangles|shapes|selection|colors|translucent|pixels|views COUNT\n",
                     argv[0]);
        return 2;
    }
    try {
        measure(argv[1], static_cast<unsigned int>(count));
        return 0;
    } catch (const KrBenchFailure& failure) {
        std::fprintf(stderr, "krGrowthBenchmark: %s\n", failure.what());
        return 1;
    }
}
