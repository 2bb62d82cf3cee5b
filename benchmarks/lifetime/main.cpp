// Opens a window, loads a system, draws, captures and closes, again and again, and says what that leaves behind:
//   krLifetimeBenchmark ROBOT [CYCLES]        ROBOT is a URDF or a native system file; 500 cycles by default
// Ends with an error when memory grew by 2 MiB since cycle 100, a descriptor stayed open or a picture differed.
#include <import/KrRobotImporter.h>
#include <rendCore/system/KrRenderWindow.h>
#include <tests/support/Process.h>

#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace
{

constexpr int kSettledAfter = 100; // caches of the driver and the C library have their size by then
constexpr long kMostGrowthKiB = 2048;

bool load(const std::string& path, KrStatedSystem& system)
{
    if (std::filesystem::path(path).extension() == ".xml") {
        KrVisualizableStatedSystem file;
        const bool ok = file.readFile(path);
        system = file.statedSystem();
        return ok;
    }
    KrImportReport report;
    return KrRobotImporter::readFile(path, KrImportOptions(), system, report);
}

/// Everything made anew and closed, as by a client that opens a window now and then.
bool drawOnce(const KrStatedSystem& system, KrImage& image)
{
    // Never shared by two rounds: what a window leaves behind is the question.
    KrRenderWindow window;
    window.setWindowSize(320, 240);
    window.setStatedSystem(system);
    const bool ok = window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor);
    window.closeWindow();
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    const int cycles = argc > 2 ? std::atoi(argv[2]) : 500;
    KrStatedSystem system;
    if (argc < 2 || argc > 3 || cycles <= kSettledAfter) {
        std::fprintf(stderr, "usage: %s ROBOT [CYCLES above %d]\n", argv[0], kSettledAfter);
        return 2;
    }
    if (!load(argv[1], system)) {
        return 1;
    }
    KrImage first, image;
    long settledKiB = 0;
    long settledDescriptors = 0;
    int different = 0;
    for (int cycle = 1; cycle <= cycles; ++cycle) {
        if (!drawOnce(system, image)) {
            return 1;
        }
        // All later pictures must equal this one.
        if (cycle == 1) {
            first = image;
        }
        different += std::memcmp(first.data(), image.data(), first.sizeInBytes()) != 0 ? 1 : 0;
        // What grows from here on would grow for ever.
        if (cycle == kSettledAfter) {
            settledKiB = Process::residentKiB();
            settledDescriptors = Process::numOpenDescriptors();
        }
    }
    const long grownKiB = Process::residentKiB() - settledKiB;
    const long grownDescriptors = Process::numOpenDescriptors() - settledDescriptors;
    std::printf(
        "%d cycles: %+ld KiB resident since cycle %d (%ld KiB in all), %+ld descriptors, %d pictures unlike the "
        "first\n",
        cycles, grownKiB, kSettledAfter, Process::residentKiB(), grownDescriptors, different);
    return grownKiB < kMostGrowthKiB && grownDescriptors <= 0 && different == 0 ? 0 : 1;
}
