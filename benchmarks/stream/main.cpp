// What it costs to get every frame into memory: every kind of capture against the drawing alone, in one run.
//   krStreamBenchmark compare SYSTEM [FRAMES [WIDTH HEIGHT]]   milliseconds and allocations beyond drawing; FRAMES are
//                                                              drawn in a turn
//   krStreamBenchmark kinds SYSTEM [FRAMES [WIDTH HEIGHT]]     colours, depths, labels and normals of one frame, in
//                                                              times of colours alone
//   krStreamBenchmark files SYSTEM [FRAMES [WIDTH HEIGHT]]     the same of PNG files
//   krStreamBenchmark long SYSTEM [FRAMES]                     a tiny picture, streamed to a writing thread as krrender
//                                                              does, and the memory held on the way
#include "KrBenchMeasure.h"
#include "KrBenchRobot.h"

#include <picture/KrFrameWriter.h>
#include <picture/KrFraming.h>
#include <rendCore/capture/KrDepthCapture.h>
#include <rendCore/capture/KrFrameCapture.h>
#include <rendCore/capture/KrFrameStream.h>
#include <rendCore/capture/KrRenderCaptureManager.h>
#include <rendCore/system/KrMultiRenderWindow.h>
#include <tests/support/Allocations.h>
#include <tests/support/Process.h>
#include <toolkit/image/private/KrPngEncoder.h>

#include <GL/gl.h>
#include <png.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr unsigned int kRounds = 15;
constexpr unsigned int kWarmUp = 3;         // frames, in every turn
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
    options.frames = argc > 3 ? number(3) : isLong ? 100000 : 10;
    options.width = argc > 5 ? number(4) : isLong ? 32 : options.width;
    options.height = argc > 5 ? number(5) : isLong ? 24 : options.height;
    return (isLong ? options.frames > kSettledAfter
                   : (options.mode == "compare" || options.mode == "kinds" || options.mode == "files") &&
                         options.frames > 0) &&
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

/// A way to get frames: `begin`, then frames of `draw`, then `end`, which completes what is on its way; its time
/// counts.
struct Kind
{
    const char* name;
    std::function<void()> begin;
    std::function<void()> draw;
    std::function<void()> end;
};

/// Of one frame: milliseconds by the clock and of processors, and allocations with `new` and with any function.
struct Figures
{
    double ms = 0.0;
    double processorMs = 0.0;
    double withNew = 0.0;
    double withMalloc = 0.0;
};

Figures measure(unsigned int frames, const Kind& kind)
{
    kind.begin();
    // The first frames fill caches and the buffers of the stream.
    for (unsigned int i = 0; i < kWarmUp; ++i) {
        kind.draw();
    }
    const Allocations before = Allocations::now();
    const double processorStart = KrBenchMeasure::processorSeconds();
    const double start = KrBenchMeasure::wallSeconds();
    for (unsigned int i = 0; i < frames; ++i) {
        kind.draw();
    }
    const Allocations made = Allocations::now() - before;
    kind.end();
    const double seconds = KrBenchMeasure::wallSeconds() - start;
    const double processor = KrBenchMeasure::processorSeconds() - processorStart;
    return {1000.0 * seconds / frames, 1000.0 * processor / frames, double(made.withNew) / frames,
            double(made.withMalloc) / frames};
}

template <typename Get>
double median(const std::vector<Figures>& rounds, const std::vector<Figures>& less, const Get& get)
{
    std::vector<double> values(rounds.size());
    for (std::size_t i = 0; i < rounds.size(); ++i) {
        values[i] = get(rounds[i]) - get(less[i]);
    }
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

/// All kinds take turns, so that a machine that becomes busier treats them alike. The first is the drawing alone: what
/// the others cost beyond it is told by their differences within a round. Where other programs use the machine, too,
/// the processors' time is the steadier one.
void takeTurns(const std::vector<Kind>& kinds, unsigned int frames)
{
    std::vector<std::vector<Figures>> taken(kinds.size());
    for (unsigned int round = 0; round < kRounds; ++round) {
        for (std::size_t k = 0; k < kinds.size(); ++k) {
            taken[k].push_back(measure(frames, kinds[k]));
        }
    }
    std::printf("%-30s %9s %9s %9s %9s %9s %9s %9s\n", "a frame", "ms", "beyond", "cpu ms", "beyond", "times", "new",
                "malloc");
    const std::vector<Figures> nothing(kRounds);
    const auto ms = [](const Figures& figures) { return figures.ms; };
    const auto processorMs = [](const Figures& figures) { return figures.processorMs; };
    for (std::size_t k = 0; k < kinds.size(); ++k) {
        const std::vector<Figures>& base = k == 0 ? nothing : taken[0];
        std::vector<Figures> times(kRounds);
        for (unsigned int round = 0; round < kRounds; ++round) {
            times[round].processorMs = taken[k][round].processorMs / taken[0][round].processorMs;
        }
        std::printf("%-30s %9.2f %+9.2f %9.2f %+9.2f %9.2f %+9.1f %+9.1f\n", kinds[k].name,
                    median(taken[k], nothing, ms), median(taken[k], taken[0], ms),
                    median(taken[k], nothing, processorMs), median(taken[k], taken[0], processorMs),
                    median(times, nothing, processorMs),
                    median(taken[k], base, [](const Figures& figures) { return figures.withNew; }),
                    median(taken[k], base, [](const Figures& figures) { return figures.withMalloc; }));
    }
}

/// Draws to the end: drivers may leave a frame undrawn that is cleared before anybody looks.
Kind drawing(KrRenderWindow& window)
{
    return {"drawn", [] {},
            [&window] {
                window.renderScene(true);
                glFinish();
            },
            [] {}};
}

Kind depth(const char* name, KrRenderWindow& window, KrDepthCapture::Kind kind, std::vector<float>& depths)
{
    const auto capture = std::make_shared<KrDepthCapture>();
    return {name, [] {},
            [&window, &depths, kind, capture] {
                KrDepthCapture::Options options;
                options.kind = kind;
                options.rowOrder = KrDepthCapture::RowOrder::TopRowFirst;
                if (!capture->render(window, options, depths)) {
                    throw KrBenchFailure("a depth could not be read");
                }
            },
            [] {}};
}

Kind manager(const char* name, KrRenderWindow& window, unsigned int width, unsigned int height)
{
    const osg::ref_ptr<KrRenderCaptureManager> callback = new KrRenderCaptureManager;
    callback->setCaptureSize(width, height);
    return {name, [&window, callback] { window.setDrawCallback(callback); }, [&window] { window.renderScene(true); },
            [&window] { window.setDrawCallback(nullptr); }};
}

Kind stream(const char* name, KrRenderWindow& window, KrFrameStream::Content content)
{
    const osg::ref_ptr<KrFrameStream> callback = new KrFrameStream(content);
    return {name, [&window, callback] { window.setDrawCallback(callback); }, [&window] { window.renderScene(true); },
            [&window, callback] {
                if (!callback->flush()) {
                    throw KrBenchFailure("the stream lost frames");
                }
                window.setDrawCallback(nullptr);
            }};
}

Kind capture(const char* name, KrRenderWindow& window, KrImage& image, unsigned int flags)
{
    return {name, [] {},
            [&window, &image, flags] {
                if (!window.renderSceneAndCaptureImage(image, flags)) {
                    throw KrBenchFailure("a frame could not be captured");
                }
            },
            [] {}};
}

void compare(const Options& options, KrRenderWindow& window)
{
    KrImage color, flipped, grey, block;
    std::vector<float> planar, euclidean;
    const KrImageBlock middle = {options.width / 4, options.height / 4, options.width / 2, options.height / 2};
    takeTurns({drawing(window),
               capture("colour", window, color, KrSGWindow::CaptureColor),
               capture("colour, flipped", window, flipped, KrSGWindow::CaptureColor | KrSGWindow::CaptureFlipped),
               {"colour, a block of it", [] {},
                [&] { window.renderSceneAndCaptureImage(block, KrSGWindow::CaptureColor, &middle); }, [] {}},
               capture("depth as grey", window, grey, KrSGWindow::CaptureDepth),
               depth("depth in metres", window, KrDepthCapture::Kind::Planar, planar),
               depth("depth in metres, euclidean", window, KrDepthCapture::Kind::Euclidean, euclidean),
               manager("capture manager", window, 0, 0),
               manager("capture manager, half size", window, options.width / 2, options.height / 2),
               stream("stream of colours", window, KrFrameStream::Content::Color),
               stream("stream of raw depths", window, KrFrameStream::Content::DepthRaw),
               stream("stream of depths as floats", window, KrFrameStream::Content::DepthFloat)},
              options.frames);
}

/// What every further kind of image costs, in times of the first.
void compareKinds(const Options& options, KrRenderWindow& window)
{
    const std::size_t count = std::size_t(options.width) * options.height;
    std::vector<unsigned char> color(3 * count);
    std::vector<float> depth(count), normals(3 * count);
    std::vector<std::uint32_t> labels(count);
    const auto capture = std::make_shared<KrFrameCapture>();
    const auto kind = [&](const char* name, const KrFrameCapture::Targets& targets) {
        return Kind{name, [] {},
                    [&window, capture, targets] {
                        if (!capture->render(window, KrFrameCapture::Options(), targets)) {
                            throw KrBenchFailure("a frame could not be captured");
                        }
                    },
                    [] {}};
    };
    const unsigned int w = options.width;
    const unsigned int h = options.height;
    takeTurns({kind("colour", {w, h, color.data()}), kind("depth", {w, h, nullptr, depth.data()}),
               kind("labels", {w, h, nullptr, nullptr, labels.data()}),
               kind("depth, labels, normals", {w, h, nullptr, depth.data(), labels.data(), normals.data()}),
               kind("colour, depth", {w, h, color.data(), depth.data()}),
               kind("colour, depth, labels", {w, h, color.data(), depth.data(), labels.data()}),
               kind("all four", {w, h, color.data(), depth.data(), labels.data(), normals.data()})},
              options.frames);
}

/// Four views in tiles, of a robot of their own: one window observes a system.
void compareViews(const Options& options)
{
    const KrBenchRobot robot(options.system);
    // Together as large as the other window.
    Options view = options;
    view.width = std::max(1u, options.width / 2);
    view.height = std::max(1u, options.height / 2);
    KrMultiRenderWindow window(view.width, view.height, 4);
    open(view, robot.system, window);
    window.setPovParametersVector(
        KrXmlVectorType<KrPovParameters>(std::vector<KrPovParameters>(4, window.getPovParameters())));
    KrImage color, grey;
    takeTurns(
        {drawing(window),
         {"four views, colour", [] {}, [&] { window.captureWindow(color, KrSGWindow::CaptureColor); }, [] {}},
         {"four views, depth as grey", [] {}, [&] { window.captureWindow(grey, KrSGWindow::CaptureDepth); }, [] {}}},
        options.frames);
}

/// What a picture of `image` costs as a PNG, beside libpng with its usual settings.
void compareFiles(const Options& options, KrRenderWindow& window)
{
    KrImage image;
    window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor);
    KrPngEncoder encoder;
    std::vector<std::uint8_t> file, reference(2 * image.sizeInBytes() + 65536);
    png_alloc_size_t referenceSize = 0;
    takeTurns({{"libpng", [] {},
                [&] {
                    png_image picture = {};
                    picture.version = PNG_IMAGE_VERSION;
                    picture.width = image.width();
                    picture.height = image.height();
                    picture.format = PNG_FORMAT_RGB;
                    referenceSize = reference.size();
                    // A row step below 0: the rows begin at the bottom.
                    if (!png_image_write_to_memory(&picture, reference.data(), &referenceSize, 0, image.data(),
                                                   -static_cast<png_int_32>(image.width() * 3), nullptr)) {
                        throw KrBenchFailure("libpng cannot write the picture");
                    }
                },
                [] {}},
               {"KrPngEncoder", [] {},
                [&] {
                    if (!encoder.encode({image.data(), image.width(), image.height(), 3, 8, true}, file).empty()) {
                        throw KrBenchFailure("the picture cannot be written");
                    }
                },
                [] {}}},
              options.frames);
    std::printf("%zu bytes by libpng, %zu by KrPngEncoder\n", static_cast<std::size_t>(referenceSize), file.size());
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
        std::fprintf(
            stderr,
            "usage: %s compare|kinds|files SYSTEM [FRAMES [WIDTH HEIGHT]]\n       %s long SYSTEM [FRAMES above %zu]\n",
            argv[0], argv[0], kSettledAfter);
        return 2;
    }
    try {
        const KrBenchRobot robot(options.system);
        KrRenderWindow window;
        open(options, robot.system, window);
        std::printf("%u x %u pixels, %s\n", options.width, options.height, window.report().renderer.c_str());
        if (options.mode == "long") {
            drawLong(options, window);
            return 0;
        }
        if (options.mode == "kinds") {
            compareKinds(options, window);
            return 0;
        }
        if (options.mode == "files") {
            compareFiles(options, window);
            return 0;
        }
        compare(options, window);
        compareViews(options);
        return 0;
    } catch (const KrBenchFailure& failure) {
        std::fprintf(stderr, "krStreamBenchmark: %s\n", failure.what());
        return 1;
    }
}
