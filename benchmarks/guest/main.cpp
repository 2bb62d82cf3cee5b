// What it costs to keep a client's OpenGL state apart: the same frame in a context of the library's own and in a
// client's, taking turns in one run.
//   krGuestBenchmark SYSTEM [ROUNDS]
#include <picture/KrFraming.h>
#include <rendCore/system/KrRenderWindow.h>
#include <toolkit/context/KrExternalWindowImpl.h>

#include <GL/gl.h>
#include <KrAppFailure.h>
#include <KrAppMessages.h>
#include <KrAppOptions.h>
#include <KrAppRobot.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace
{

constexpr unsigned int kWidth = 160; // pixels; small, so that what does not depend on the size is seen
constexpr unsigned int kHeight = 120;
constexpr int kFrames = 30; // a round

[[noreturn]] void noWindow(const KrAppMessages& messages)
{
    throw KrAppFailure(KrAppFailure::CouldNot, messages.lastReason("no OpenGL context"));
}

void open(KrRenderWindow& window, const KrAppRobot& robot, const KrAppMessages& messages)
{
    KrFraming framing({1.0, -1.2, 0.5}, {0.0, 0.0, 1.0}, 0.5, double(kWidth) / kHeight);
    framing.add(robot.statedSystem().manipulatorSystem(), robot.statedSystem().systemState());
    window.setHideWindow(true);
    window.setWindowSize(kWidth, kHeight);
    if (!window.init()) {
        noWindow(messages);
    }
    window.setStatedSystem(robot.statedSystem());
    window.setPovParameters(framing.pov());
    window.renderScene(false);
}

/// Milliseconds a frame: the median of one round.
double median(KrRenderWindow& window)
{
    std::vector<double> taken;
    for (int i = 0; i < kFrames; ++i) {
        const auto begin = std::chrono::steady_clock::now();
        window.renderScene(false);
        glFinish();
        taken.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count());
    }
    std::nth_element(taken.begin(), taken.begin() + kFrames / 2, taken.end());
    return taken[kFrames / 2];
}

void measure(const std::string& path, int rounds, KrAppMessages& messages)
{
    KrAppOptions options;
    options.robot = path;
    // A robot for each window: one window at a time observes a system.
    KrAppRobot ownRobot, guestRobot;
    ownRobot.read(options, messages);
    guestRobot.read(options, messages);

    KrRenderWindow own;
    open(own, ownRobot, messages);
    KrWindow host;
    host.setHideWindow(true);
    host.setWindowSize(kWidth, kHeight);
    if (!host.init()) {
        noWindow(messages);
    }
    KrExternalWindowImpl::Callbacks callbacks;
    callbacks.makeCurrent = [&host] { return host.makeCurrent(); };
    callbacks.isCurrent = [&host] { return host.getImpl()->isCurrent(); };
    callbacks.doneCurrent = [&host] { host.getImpl()->releaseCurrent(); };
    KrRenderWindow guest;
    guest.setImpl(std::make_unique<KrExternalWindowImpl>(callbacks));
    open(guest, guestRobot, messages);

    std::vector<double> alone, embedded;
    for (int i = 0; i < rounds; ++i) {
        own.makeCurrent();
        alone.push_back(median(own));
        host.makeCurrent();
        embedded.push_back(median(guest));
    }
    const double a = *std::min_element(alone.begin(), alone.end());
    const double e = *std::min_element(embedded.begin(), embedded.end());
    std::printf("frame of %u x %u: own context %.3f ms, client's context %.3f ms: %+.3f ms, ratio %.2f\n", kWidth,
                kHeight, a, e, e - a, e / a);
    guest.closeWindow();
}

} // namespace

int main(int argc, char** argv)
{
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 10;
    if (argc < 2 || argc > 3 || rounds < 1) {
        std::fprintf(stderr, "usage: %s SYSTEM [ROUNDS]\n", argv[0]);
        return 2;
    }
    KrAppMessages messages;
    try {
        measure(argv[1], rounds, messages);
        return 0;
    } catch (const KrAppFailure& failure) {
        std::fprintf(stderr, "%s: %s\n", argv[0], failure.what());
        return failure.status();
    }
}
