// What it costs to get every frame into memory: one capture a frame against a stream of frames, in one run.
//   krStreamBenchmark compare SYSTEM [FRAMES [WIDTH HEIGHT]]   frames per second of both ways, allocations a frame
//   krStreamBenchmark long SYSTEM [FRAMES]                     a tiny picture, streamed to a writing thread as krrender
//                                                              does, and the memory held on the way
#include "KrBenchMeasure.h"
#include "KrBenchRobot.h"

#include <picture/KrFrameWriter.h>
#include <picture/KrFraming.h>
#include <rendCore/capture/KrFrameStream.h>
#include <rendCore/system/KrRenderWindow.h>
#include <tests/support/Allocations.h>
#include <tests/support/Process.h>

#include <GL/gl.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace
{

constexpr unsigned int kRounds = 5;
constexpr std::size_t kSettledAfter = 1000; // frames

struct Options
{
    std::string mode;
    std::string system;
    unsigned int frames = 0;
    unsigned int width = 640;
    unsigned int height = 480;
};

bool parse(int argc, char** argv, Options& options)
{
    // A width without a height is a slip.
    if (argc != 3 && argc != 4 && argc != 6) {
        return false;
    }
    options.mode = argv[1];
    options.system = argv[2];
    const bool isLong = options.mode == "long";
    const auto number = [argv](int i) { return static_cast<unsigned int>(std::max(0, std::atoi(argv[i]))); };
    options.frames = argc > 3 ? number(3) : isLong ? 100000 : 60;
    options.width = argc > 5 ? number(4) : isLong ? 32 : options.width;
    options.height = argc > 5 ? number(5) : isLong ? 24 : options.height;
    return (isLong ? options.frames > kSettledAfter : options.mode == "compare" && options.frames > 0) &&
           options.width > 0 && options.height > 0;
}

void open(const Options& options, const KrStatedSystem& system, KrRenderWindow& window)
{
    KrFraming framing({0.6, -0.7, 0.4}, {0.0, 0.0, 1.0}, 0.52, double(options.width) / options.height);
    framing.add(system.manipulatorSystem(), system.systemState());
    KrVisualizationParameters parameters;
    parameters.setPovParameters(framing.pov());
    window.setHideWindow(true);
    window.setWindowSize(options.width, options.height);
    if (!window.init()) {
        throw KrBenchFailure("no OpenGL context to draw with");
    }
    window.setStatedSystem(system, parameters);
}

/// Frames per second, and allocations a frame: with `new`, and all.
struct Figures
{
    double rate = 0.0;
    double withNew = 0.0;
    double withMalloc = 0.0;
};

/// @param end  completes what is on its way; its time counts
template <typename Draw, typename End>
Figures measure(unsigned int frames, const Draw& draw, const End& end)
{
    // The first frames fill caches and the buffers of the stream.
    for (unsigned int i = 0; i < 5; ++i) {
        draw();
    }
    end();
    const Allocations before = Allocations::now();
    const double start = KrBenchMeasure::wallSeconds();
    for (unsigned int i = 0; i < frames; ++i) {
        draw();
    }
    end();
    const double seconds = KrBenchMeasure::wallSeconds() - start;
    const Allocations made = Allocations::now() - before;
    return {frames / seconds, double(made.withNew) / frames, double(made.withMalloc) / frames};
}

/// The round of the middle rate.
Figures middle(std::array<Figures, kRounds>& rounds)
{
    std::sort(rounds.begin(), rounds.end(), [](const Figures& a, const Figures& b) { return a.rate < b.rate; });
    return rounds[kRounds / 2];
}

void print(const char* way, const Figures& figures)
{
    std::printf("%-10s %9.1f frames/s %7.1f allocations with new, %7.1f in all, a frame\n", way, figures.rate,
                figures.withNew, figures.withMalloc);
}

/// Both ways take turns, so that a machine that becomes busier treats them alike.
void compare(const Options& options, KrRenderWindow& window)
{
    KrImage image;
    std::array<Figures, kRounds> drawn, captured, streamed;
    for (unsigned int round = 0; round < kRounds; ++round) {
        // To the end: drivers may leave a frame undrawn that is cleared before anybody looks.
        const auto drawWhole = [&] {
            window.renderScene(true);
            glFinish();
        };
        drawn[round] = measure(options.frames, drawWhole, [] {});
        captured[round] = measure(
            options.frames, [&] { window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor); }, [] {});
        const osg::ref_ptr<KrFrameStream> stream = new KrFrameStream(KrFrameStream::Content::Color);
        std::size_t received = 0;
        stream->setReceiver([&received](const KrFrameStream::Frame&) { ++received; });
        window.setDrawCallback(stream);
        streamed[round] = measure(
            options.frames, [&] { window.renderScene(true); }, [&] { stream->flush(); });
        window.setDrawCallback(nullptr);
        // With those that measure() draws before it begins.
        if (received != options.frames + 5) {
            throw KrBenchFailure("the stream lost frames");
        }
    }
    print("drawn", middle(drawn));
    print("captured", middle(captured));
    print("streamed", middle(streamed));
    std::printf("streamed : captured %.2f\n", middle(streamed).rate / middle(captured).rate);
}

void drawLong(const Options& options, KrRenderWindow& window)
{
    // A disk is not what is measured.
    std::ofstream sink("/dev/null", std::ios::binary);
    KrFrameWriter writer(1, [&sink](const KrImage& picture, std::size_t, std::string&) {
        sink.write(reinterpret_cast<const char*>(picture.data()), static_cast<std::streamsize>(picture.sizeInBytes()));
        return true;
    });
    const osg::ref_ptr<KrFrameStream> stream = new KrFrameStream(KrFrameStream::Content::Color);
    stream->setLender([&](const KrFrameStream::Frame& frame) { return writer.lend(frame.width, frame.height); });
    stream->setReceiver([&](const KrFrameStream::Frame&) { writer.submit(); });
    window.setDrawCallback(stream);
    long settled = 0;
    for (unsigned int i = 1; i <= options.frames; ++i) {
        window.renderScene(true);
        if (i == kSettledAfter || (i > kSettledAfter && i % (options.frames / 5) == 0)) {
            settled = i == kSettledAfter ? Process::residentKiB() : settled;
            std::printf("%8u frames: %ld KiB resident\n", i, Process::residentKiB());
            std::fflush(stdout);
        }
    }
    stream->flush();
    std::string reason;
    // The figures count what was written, not what was handed over.
    writer.finish(reason);
    window.setDrawCallback(nullptr);
    std::printf("%zu frames written, %+ld KiB since frame %zu\n", writer.numWritten(), Process::residentKiB() - settled,
                kSettledAfter);
    if (writer.numWritten() != options.frames) {
        throw KrBenchFailure("the stream lost frames");
    }
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr,
                     "usage: %s compare SYSTEM [FRAMES [WIDTH HEIGHT]]\n       %s long SYSTEM [FRAMES above %zu]\n",
                     argv[0], argv[0], kSettledAfter);
        return 2;
    }
    try {
        const KrBenchRobot robot(options.system);
        KrRenderWindow window;
        open(options, robot.system, window);
        std::printf("%u x %u pixels, %s\n", options.width, options.height, window.report().renderer.c_str());
        options.mode == "long" ? drawLong(options, window) : compare(options, window);
        return 0;
    } catch (const KrBenchFailure& failure) {
        std::fprintf(stderr, "krStreamBenchmark: %s\n", failure.what());
        return 1;
    }
}
