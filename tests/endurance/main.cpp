// Simulated use in fast forward: windows that open, load, pose, select, fade, capture, resize and close at random, for
// as long as one likes. Now and then what a window shows is compared with what a fresh process shows in the
// same state: always the same bytes. Memory has to stay flat, and OpenGL without errors.
//
//   krEndurance [--seconds S] [--operations N] [--seed N] [--keep DIR] ROBOT...     URDF or native system files
//   krEndurance --draw STATE FILE         writes the picture of a state, as the fresh process does
//
// The seed is printed; the same one and the same robots give the same use. Of a difference the state, the use before it
// and both pictures go into DIR.
#include "KrEnduranceScene.h"

#include <rendCore/capture/KrDepthCapture.h>
#include <rendCore/capture/KrFrameStream.h>
#include <rendCore/capture/KrRender2DSampleTool.h>
#include <rendCore/plume/KrToolkitFolders.h>
#include <rendCore/selftest/KrSelfTest.h>
#include <rendCore/system/KrMultiRenderWindow.h>
#include <tests/support/Process.h>

#include <toolkit/foundation/KrPrint.h>

#include <osg/GL>
#include <osg/Notify>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

extern char** environ;

namespace
{

using Bytes = KrEnduranceScene::Bytes;

constexpr std::size_t kMostWindows = 3;
constexpr unsigned int kUsePerRound = 150; ///< then everything is closed and memory is looked at
constexpr long kMostGrowthKiB = 12 * 1024; ///< since the second round: caches of driver and library have their size
constexpr std::size_t kHistory = 400;      ///< operations that are kept for the report of a difference

struct Options
{
    double seconds = 0.0;         ///< 0: 10, or no limit where there is one of operations
    unsigned long operations = 0; ///< 0 for no limit
    unsigned long seed = 0;
    std::string keep;
    std::vector<std::string> robots;
};

std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

/// Random use asks for much that is refused with a message: shapes that others stand for, masses that no body has.
void beQuiet()
{
    Kr::Print::instance()->setSink([](Kr::Print::Type, const std::string&) {});
    osg::setNotifyLevel(osg::ALWAYS);
}

int drawState(const std::string& statePath, const std::string& picturePath)
{
    KrEnduranceState state;
    KrEnduranceScene scene;
    if (!state.read(contentOf(statePath)) || !scene.open(state)) {
        return 1;
    }
    const Bytes bytes = scene.picture();
    std::ofstream(picturePath, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return bytes.empty() ? 1 : 0;
}

class Endurance
{
public:
    explicit Endurance(const Options& options)
        : m_options(options)
        , m_random(static_cast<std::mt19937::result_type>(options.seed))
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "krEnduranceXXXXXX").string();
        m_folder = mkdtemp(pattern.data()) ? pattern : ".";
    }
    ~Endurance()
    {
        std::error_code error;
        if (m_folder != ".") {
            std::filesystem::remove_all(m_folder, error);
        }
    }
    Endurance(const Endurance&) = delete;
    Endurance& operator=(const Endurance&) = delete;

    bool run();

private:
    using Scene = std::unique_ptr<KrEnduranceScene>;

    unsigned int below(unsigned int limit) { return m_random() % limit; }
    double between(double low, double high) { return low + (high - low) * (m_random() % 10001u) / 10000.0; }
    const std::string& anyRobot()
    {
        return m_options.robots[below(static_cast<unsigned int>(m_options.robots.size()))];
    }

    void act();
    void openScene();
    void change(KrEnduranceScene& scene);
    void use(KrEnduranceScene& scene);
    void pose(KrEnduranceScene& scene);
    void select(KrEnduranceScene& scene);
    void aim(KrEnduranceScene& scene);
    void stream(KrEnduranceScene& scene);
    void compare(KrEnduranceScene& scene);
    void endRound();
    void keepDifference(KrEnduranceScene& scene, const Bytes& mine, const std::string& fresh);
    void note(const std::string& what);
    void check(bool ok, const char* what);

    const Options m_options;
    std::mt19937 m_random;
    std::string m_folder;
    std::vector<Scene> m_scenes;
    std::deque<std::string> m_history;
    int m_current = 0; ///< the window that is used
    unsigned long m_operations = 0;
    unsigned long m_frames = 0;
    unsigned int m_rounds = 0;
    unsigned int m_compared = 0;
    unsigned int m_different = 0;
    unsigned int m_failed = 0;
    long m_settledKiB = 0;
    long m_growthKiB = 0;
};

void Endurance::note(const std::string& what)
{
    m_history.push_back(std::to_string(m_operations) + " window " + std::to_string(m_current) + ": " + what);
    if (m_history.size() > kHistory) {
        m_history.pop_front();
    }
}

void Endurance::check(bool ok, const char* what)
{
    const GLenum error = glGetError();
    if (!ok || error != GL_NO_ERROR) {
        ++m_failed;
        std::printf("operation %lu: %s %s (OpenGL error 0x%x)\n", m_operations, what, ok ? "was done" : "failed",
                    error);
    }
}

void Endurance::openScene()
{
    KrEnduranceState state;
    state.system = anyRobot();
    state.width = 40 + below(280);
    state.height = 40 + below(200);
    state.isOffScreen = below(3) == 0;
    auto scene = std::make_unique<KrEnduranceScene>();
    note("open " + state.system);
    const bool ok = scene->open(state);
    check(ok, "open");
    if (ok) {
        aim(*scene);
        m_scenes.push_back(std::move(scene));
    }
}

void Endurance::aim(KrEnduranceScene& scene)
{
    const double azimuth = between(0.0, 6.28);
    const double elevation = between(-1.2, 1.2);
    const double distance = scene.radius() * between(1.2, 4.0);
    const double across = distance * std::cos(elevation);
    scene.state().centre = scene.middle();
    scene.state().eye = scene.middle() + KrVector(across * std::cos(azimuth), across * std::sin(azimuth),
                                                  distance * std::sin(elevation));
    scene.state().fieldOfView = between(0.3, 1.2);
    scene.applyCamera();
}

void Endurance::pose(KrEnduranceScene& scene)
{
    scene.state().positions.clear();
    for (const KrPositionState& position : scene.system().systemState().positionStates()) {
        std::vector<double> joints;
        for (unsigned int j = 0; j < position.jointPositions().size(); ++j) {
            joints.push_back(between(-1.0, 1.0));
        }
        scene.state().positions.push_back(joints);
    }
    scene.applyPose();
}

void Endurance::select(KrEnduranceScene& scene)
{
    const std::vector<KrShapeStateCacheKey> keys = scene.shapes();
    std::vector<KrShapeStateCacheKey>& selected = scene.state().selected;
    if (below(3) == 0 || keys.empty()) {
        selected.clear();
    } else {
        const KrShapeStateCacheKey key = keys[below(static_cast<unsigned int>(keys.size()))];
        if (std::find(selected.begin(), selected.end(), key) == selected.end()) {
            selected.push_back(key);
        }
    }
    scene.applySelection();
}

/// One change of what the window shows.
void Endurance::change(KrEnduranceScene& scene)
{
    KrEnduranceState& state = scene.state();
    switch (below(12)) {
    case 0:
        state.width = 30 + below(400);
        state.height = 30 + below(300);
        note("size " + std::to_string(state.width) + " x " + std::to_string(state.height));
        scene.applySize();
        break;
    case 1:
        note("target");
        state.isOffScreen = !state.isOffScreen;
        scene.applyTarget();
        break;
    case 2: {
        const unsigned int bits[] = {KrSGWindow::Lighting,      KrSGWindow::Texturing,     KrSGWindow::Wireframe,
                                     KrSGWindow::SmoothShading, KrSGWindow::CullBackFaces, KrSGWindow::Orthographic};
        state.attributes ^= bits[below(6)];
        note("attributes " + std::to_string(state.attributes));
        scene.applyLook();
        break;
    }
    case 3:
    case 4: {
        const unsigned int bits[] = {KrRenderTypes::BoundingVolumes, KrRenderTypes::LinkAxes,
                                     KrRenderTypes::MassProperties};
        state.displayMask ^= bits[below(3)];
        note("aids " + std::to_string(state.displayMask));
        scene.applyLook();
        break;
    }
    case 5:
        state.secondaryMask ^= below(2) == 0 ? KrRenderTypes::GlobalAxisMarker : KrRenderTypes::CenterOfInterestMarker;
        note("markers " + std::to_string(state.secondaryMask));
        scene.applyLook();
        break;
    case 6:
        note("background");
        state.background = {between(0.0, 1.0), between(0.0, 1.0), between(0.0, 1.0)};
        scene.applyLook();
        break;
    case 7:
    case 8:
        note("select");
        select(scene);
        break;
    case 9:
        state.fade = between(0.0, 1.0);
        note("fade " + std::to_string(state.fade));
        scene.applySelection();
        break;
    case 10:
        note("pose");
        pose(scene);
        break;
    default:
        note("aim");
        aim(scene);
    }
}

void Endurance::stream(KrEnduranceScene& scene)
{
    const osg::ref_ptr<KrFrameStream> frames =
        new KrFrameStream(below(2) == 0 ? KrFrameStream::Content::Color : KrFrameStream::Content::DepthFloat);
    unsigned int received = 0;
    frames->setReceiver([&received](const KrFrameStream::Frame&) { ++received; });
    scene.window().setDrawCallback(frames);
    for (unsigned int i = 0; i < 4; ++i) {
        pose(scene);
        check(scene.window().renderScene(true), "a streamed frame");
    }
    scene.window().setDrawCallback(nullptr);
    check(frames->flush() && received == 4, "a stream");
}

/// Something that leaves what the window shows as it is.
void Endurance::use(KrEnduranceScene& scene)
{
    KrImage image;
    switch (below(9)) {
    case 0: {
        note("depth capture");
        KrDepthCapture capture;
        std::vector<float> depths;
        check(capture.render(scene.window(), KrDepthCapture::Options(), depths), "a depth capture");
        break;
    }
    case 1:
        note("stream");
        stream(scene);
        break;
    case 2: {
        note("range map");
        std::vector<std::vector<double>> map;
        KrCoordinateSystemTransformation view;
        view.setTranslation(scene.middle() + KrVector(0.0, 0.0, 2.0 + scene.radius()));
        const double size = 2.0 * scene.radius();
        check(KrRender2DSampleTool::get2DMap(scene.system(), view, 32, 24, size, size, 4.0 + size, map), "a range map");
        break;
    }
    case 3: {
        note("block");
        KrImageBlock block;
        block.width = 1 + below(30);
        block.height = 1 + below(30);
        check(scene.window().renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor, &block), "a block");
        break;
    }
    case 4:
        note("text");
        scene.window().setOverlayText("text", below(50), 40, KrColor(1.0, 0.0, 0.0));
        check(scene.window().renderScene(true), "a frame with text");
        scene.window().clearAllOverlayText();
        break;
    case 5: {
        note("tiles");
        KrMultiRenderWindow tiles(40, 30, 2 + below(3));
        tiles.setHideWindow(true);
        KrXmlVectorType<KrPovParameters> povs;
        povs.resize(tiles.getNumWindows());
        tiles.setPovParametersVector(povs);
        KrStatedSystem copy = scene.system();
        tiles.setStatedSystem(copy);
        check(tiles.captureWindow(image, KrSGWindow::CaptureColor), "tiles");
        break;
    }
    case 6: {
        const std::vector<KrSelfTest>& tests = KrSelfTest::all();
        const KrSelfTest& test = tests[below(static_cast<unsigned int>(tests.size()))];
        note(std::string("self test ") + test.name());
        const KrSelfTest::Result result = test("");
        check(result.passed, (std::string(test.name()) + ": " + result.message).c_str());
        break;
    }
    case 7:
        note("reload");
        scene.reload();
        break;
    default:
        note("close and open");
        scene.close();
        check(scene.reopen(), "open again");
    }
}

void Endurance::keepDifference(KrEnduranceScene& scene, const Bytes& mine, const std::string& fresh)
{
    if (m_options.keep.empty()) {
        return;
    }
    std::filesystem::create_directories(m_options.keep);
    const std::string name = m_options.keep + "/" + std::to_string(m_options.seed) + "-" + std::to_string(m_operations);
    std::ofstream(name + ".state") << scene.state().text();
    std::ofstream history(name + ".history");
    for (const std::string& line : m_history) {
        history << line << "\n";
    }
    const std::size_t colours = std::size_t(3) * scene.state().width * scene.state().height;
    for (const bool isMine : {true, false}) {
        KrImage image;
        image.allocate(3, 0, scene.state().width, scene.state().height);
        const char* const bytes = isMine ? reinterpret_cast<const char*>(mine.data()) : fresh.data();
        if ((isMine ? mine.size() : fresh.size()) >= colours) {
            std::copy(bytes, bytes + colours, image.data());
        }
        image.writeFile(name + (isMine ? "-here.png" : "-fresh.png"), KrImage::BottomRowFirst);
    }
}

void Endurance::compare(KrEnduranceScene& scene)
{
    note("compare");
    const Bytes mine = scene.picture();
    check(!mine.empty(), "a picture");
    const std::string statePath = m_folder + "/state";
    const std::string picturePath = m_folder + "/picture";
    std::ofstream(statePath) << scene.state().text();
    std::filesystem::remove(picturePath);
    // This very program. A fork would not do: it takes the drawing threads' locks with it, but not the threads.
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
    std::string arguments[] = {program, "--draw", statePath, picturePath};
    char* const list[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), arguments[3].data(), nullptr};
    pid_t process = 0;
    int status = -1;
    if (posix_spawn(&process, program.c_str(), nullptr, nullptr, list, environ) != 0 ||
        waitpid(process, &status, 0) != process || status != 0) {
        check(false, "the fresh process");
        return;
    }
    const std::string fresh = contentOf(picturePath);
    ++m_compared;
    std::size_t different = mine.size() != fresh.size() ? 1 : 0;
    for (std::size_t i = 0; i < std::min(mine.size(), fresh.size()); ++i) {
        different += mine[i] != static_cast<unsigned char>(fresh[i]) ? 1 : 0;
    }
    if (different != 0) {
        ++m_different;
        std::printf("operation %lu: %zu of %zu bytes differ from those of a fresh process\n", m_operations, different,
                    mine.size());
        keepDifference(scene, mine, fresh);
    }
}

void Endurance::endRound()
{
    note("close everything");
    m_scenes.clear();
    malloc_trim(0);
    const long resident = Process::residentKiB();
    ++m_rounds;
    if (m_rounds == 2) {
        m_settledKiB = resident;
    } else if (m_rounds > 2) {
        m_growthKiB = resident - m_settledKiB;
    }
    std::printf("round %u: %lu operations, %lu frames, %u compared, %u different, %u failed, %ld KiB resident\n",
                m_rounds, m_operations, m_frames, m_compared, m_different, m_failed, resident);
    std::fflush(stdout);
}

void Endurance::act()
{
    ++m_operations;
    if (m_scenes.empty() || (m_scenes.size() < kMostWindows && below(12) == 0)) {
        m_current = static_cast<int>(m_scenes.size());
        openScene();
        return;
    }
    const std::size_t number = below(static_cast<unsigned int>(m_scenes.size()));
    KrEnduranceScene& scene = *m_scenes[number];
    m_current = static_cast<int>(number);
    switch (below(20)) {
    case 0:
        note("close");
        m_scenes.erase(m_scenes.begin() + static_cast<std::ptrdiff_t>(number));
        return;
    case 1: {
        const std::string& robot = anyRobot();
        note("load " + robot);
        check(scene.load(robot), "load");
        aim(scene);
        break;
    }
    case 2:
    case 3:
    case 4:
    case 5:
        use(scene);
        break;
    case 6:
    case 7:
        compare(scene);
        return;
    default:
        change(scene);
    }
    if (below(2) == 0) {
        ++m_frames;
        check(scene.window().renderScene(true) && scene.window().makeCurrent(), "a frame");
    }
}

bool Endurance::run()
{
    const auto start = std::chrono::steady_clock::now();
    const auto isOver = [&] {
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
        return passed.count() >= m_options.seconds ||
               (m_options.operations != 0 && m_operations >= m_options.operations);
    };
    // A machine that is busy with other things draws little in its time: one comparison at least.
    while (!isOver() || (m_compared == 0 && m_operations < 10ul * kUsePerRound)) {
        act();
        if (m_operations % kUsePerRound == 0) {
            endRound();
        }
    }
    endRound();
    std::printf("seed %lu: %lu operations, %u of %u pictures differ, %u failures, memory %+ld KiB\n", m_options.seed,
                m_operations, m_different, m_compared, m_failed, m_growthKiB);
    return m_different == 0 && m_failed == 0 && m_growthKiB < kMostGrowthKiB && m_compared > 0;
}

int usage(const char* program)
{
    std::fprintf(stderr, "usage: %s [--seconds S] [--operations N] [--seed N] [--keep DIR] ROBOT...\n", program);
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    KrToolkitFolders::setDefault();
    beQuiet();
    if (argc == 4 && std::string(argv[1]) == "--draw") {
        return drawState(argv[2], argv[3]);
    }
    Options options;
    options.seed = std::random_device()() % 1000000;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.compare(0, 2, "--") != 0) {
            options.robots.push_back(std::filesystem::absolute(word).string());
            continue;
        }
        if (++i == argc) {
            return usage(argv[0]);
        }
        if (word == "--seconds") {
            options.seconds = std::atof(argv[i]);
        } else if (word == "--operations") {
            options.operations = std::strtoul(argv[i], nullptr, 10);
        } else if (word == "--seed") {
            options.seed = std::strtoul(argv[i], nullptr, 10);
        } else if (word == "--keep") {
            options.keep = argv[i];
        } else {
            return usage(argv[0]);
        }
    }
    if (options.robots.empty()) {
        return usage(argv[0]);
    }
    if (options.seconds <= 0.0) {
        options.seconds = options.operations != 0 ? HUGE_VAL : 10.0;
    }
    std::printf("seed %lu\n", options.seed);
    KrWindow window;
    window.setHideWindow(true);
    if (!window.init()) {
        std::printf("no OpenGL context: nothing is done\n");
        return 77;
    }
    window.closeWindow();
    return Endurance(options).run() ? 0 : 1;
}
