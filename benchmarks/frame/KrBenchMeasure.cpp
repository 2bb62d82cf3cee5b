#include "KrBenchMeasure.h"

#include <sys/resource.h>

#include <algorithm>
#include <ctime>
#include <vector>

namespace
{

/// Since a moment of the clock's own: only differences mean something.
double seconds(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

} // namespace

double KrBenchMeasure::wallSeconds()
{
    return seconds(CLOCK_MONOTONIC);
}

double KrBenchMeasure::processorSeconds()
{
    // Of all threads: drivers that draw by software have several.
    return seconds(CLOCK_PROCESS_CPUTIME_ID);
}

double KrBenchMeasure::peakMemoryMiB()
{
    rusage usage = {};
    // Linux counts in KiB.
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

KrBenchMeasure::Frames KrBenchMeasure::measure(unsigned int warmUp, unsigned int count,
                                               const std::function<void(unsigned int)>& frame)
{
    // Caches fill, and drivers compile, in the first frames.
    for (unsigned int i = 0; i < warmUp; ++i) {
        frame(i);
    }
    // Made before anything is counted.
    std::vector<double> times(count);
    const Allocations allocationsBefore = Allocations::now();
    const double processorBefore = processorSeconds();
    for (unsigned int i = 0; i < count; ++i) {
        const double start = wallSeconds();
        frame(warmUp + i);
        times[i] = wallSeconds() - start;
    }
    const double processor = processorSeconds() - processorBefore;
    const Allocations allocations = Allocations::now() - allocationsBefore;

    std::sort(times.begin(), times.end());
    Frames result;
    result.medianSeconds = times[count / 2];
    result.fastestSeconds = times.front();
    result.slowTenthSeconds = times[count * 9 / 10];
    result.processorSeconds = processor / count;
    result.allocationsWithNew = static_cast<double>(allocations.withNew) / count;
    result.allocationsWithMalloc = static_cast<double>(allocations.withMalloc) / count;
    return result;
}
