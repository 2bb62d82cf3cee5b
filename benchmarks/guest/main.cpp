// What it costs to keep a client's OpenGL state apart: the same frame in a context of the library's own and in a
// client's, taking turns in one run.
//   krGuestBenchmark SYSTEM [ROUNDS]
#include "KrBenchRobot.h"

#include <picture/KrFraming.h>
#include <rendCore/system/KrRenderWindow.h>
#include <toolkit/context/KrExternalWindowImpl.h>
#include <toolkit/foundation/KrReason.h>

#include <GL/gl.h>

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

void open(KrWindow& window)
{
    const KrReason reason;
    window.setHideWindow(true);
    window.setWindowSize(kWidth, kHeight);
    if (!window.init()) {
        throw KrBenchFailure(reason.text("no OpenGL context"));
    }
}

void open(KrRenderWindow& window, const KrBenchRobot& robot)
{
    KrFraming framing({1.0, -1.2, 0.5}, {0.0, 0.0, 1.0}, 0.5, double(kWidth) / kHeight);
    framing.add(robot.system.manipulatorSystem(), robot.system.systemState());
    open(static_cast<KrWindow&>(window));
    window.setStatedSystem(robot.system);
    window.setPovParameters(framing.pov());
    // The first frame builds the scene, and is not measured.
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

void measure(const std::string& path, int rounds)
{
    // A robot for each window: one window at a time observes a system.
    const KrBenchRobot ownRobot(path), guestRobot(path);

    KrRenderWindow own;
    open(own, ownRobot);
    KrWindow host;
    open(host);
    KrExternalWindowImpl::Callbacks callbacks;
    callbacks.makeCurrent = [&host] { return host.makeCurrent(); };
    callbacks.isCurrent = [&host] { return host.getImpl()->isCurrent(); };
    callbacks.doneCurrent = [&host] { host.getImpl()->releaseCurrent(); };
    KrRenderWindow guest;
    guest.setImpl(std::make_unique<KrExternalWindowImpl>(callbacks));
    open(guest, guestRobot);

    std::vector<double> alone, embedded;
    for (int i = 0; i < rounds; ++i) {
        own.makeCurrent();
        alone.push_back(median(own));
        host.makeCurrent();
        embedded.push_back(median(guest));
    }
    // The least of the medians: whatever disturbs a round makes it slower.
    const double a = *std::min_element(alone.begin(), alone.end());
    const double e = *std::min_element(embedded.begin(), embedded.end());
    std::printf("frame of %u x %u: own context %.3f ms, client's context %.3f ms: %+.3f ms, ratio %.2f\n", kWidth,
                kHeight, a, e, e - a, e / a);
    // While the client's context is still there.
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
    try {
        measure(argv[1], rounds);
        return 0;
    } catch (const KrBenchFailure& failure) {
        std::fprintf(stderr, "%s: %s\n", argv[0], failure.what());
        return 1;
    }
}
