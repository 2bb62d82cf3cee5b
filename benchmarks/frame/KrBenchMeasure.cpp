#include "KrBenchMeasure.h"

#include <tests/support/Allocations.h>

#include <sys/resource.h>

#include <algorithm>
#include <cstddef>
#include <ctime>

namespace
{

/// Since a moment of the clock's own: only differences mean something.
double seconds(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// One round of one way; `times` gets one entry for each frame.
void measureRound(const KrBenchMeasure::Draw& draw, unsigned int first, std::vector<double>& times,
                  KrBenchMeasure::Frames& result)
{
    // The first frame after another way's pays for the change of context.
    draw(first);
    const Allocations allocationsBefore = Allocations::now();
    const double processorBefore = KrBenchMeasure::processorSeconds();
    for (std::size_t i = 0; i < times.size(); ++i) {
        const double start = KrBenchMeasure::wallSeconds();
        draw(first + static_cast<unsigned int>(i) + 1);
        times[i] = KrBenchMeasure::wallSeconds() - start;
    }
    const auto count = static_cast<double>(times.size());
    result.processorSeconds.push_back((KrBenchMeasure::processorSeconds() - processorBefore) / count);
    const Allocations allocations = Allocations::now() - allocationsBefore;
    result.allocationsWithNew += static_cast<double>(allocations.withNew) / count;
    result.allocationsWithMalloc += static_cast<double>(allocations.withMalloc) / count;
    result.seconds.push_back(KrBenchMeasure::median(times));
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

double KrBenchMeasure::median(std::vector<double> values)
{
    if (values.empty()) {
        return 0.0;
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double KrBenchMeasure::medianRatio(const std::vector<double>& numerators, const std::vector<double>& denominators)
{
    std::vector<double> ratios;
    for (std::size_t i = 0; i < std::min(numerators.size(), denominators.size()); ++i) {
        ratios.push_back(numerators[i] / denominators[i]);
    }
    return median(ratios);
}

std::vector<KrBenchMeasure::Frames> KrBenchMeasure::takeTurns(const std::vector<Draw>& ways, unsigned int rounds,
                                                              unsigned int frames)
{
    std::vector<Frames> results(ways.size());
    std::vector<std::vector<double>> all(ways.size());
    for (const Draw& way : ways) {
        for (unsigned int i = 0; i < kBenchWarmUpFrames; ++i) {
            way(i);
        }
    }
    // Made before anything is counted.
    std::vector<double> times(frames);
    for (unsigned int round = 0; round < rounds; ++round) {
        for (std::size_t turn = 0; turn < ways.size(); ++turn) {
            const std::size_t way = (round + turn) % ways.size();
            measureRound(ways[way], round * (frames + 1), times, results[way]);
            all[way].insert(all[way].end(), times.begin(), times.end());
        }
    }
    for (std::size_t way = 0; way < ways.size(); ++way) {
        Frames& result = results[way];
        std::sort(all[way].begin(), all[way].end());
        result.fastestSeconds = all[way].front();
        result.slowTenthSeconds = all[way][all[way].size() * 9 / 10];
        result.allocationsWithNew /= rounds;
        result.allocationsWithMalloc /= rounds;
    }
    return results;
}

__attribute__((noinline)) void krBenchSteadyFrames(const KrBenchMeasure::Draw* draw, unsigned int first,
                                                   unsigned int count)
{
    for (unsigned int i = 0; i < count; ++i) {
        (*draw)(first + i);
    }
}
