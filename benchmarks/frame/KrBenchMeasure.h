#pragma once

#include <functional>
#include <vector>

/// Times of the wall clock and of the processor.
namespace KrBenchMeasure
{

double wallSeconds();
/// Of all threads of the process.
double processorSeconds();
/// The most memory that the process has held so far, MiB.
double peakMemoryMiB();

double median(std::vector<double> values);
/// Of the quotients, element by element: figures of one moment are compared with one another.
double medianRatio(const std::vector<double>& numerators, const std::vector<double>& denominators);

/// What frames cost.
struct Frames
{
    std::vector<double> seconds;          ///< each round's median
    std::vector<double> processorSeconds; ///< of all threads, a frame of each round
    double fastestSeconds = 0.0;
    double slowTenthSeconds = 0.0;      ///< nine of ten frames are faster
    double allocationsWithNew = 0.0;    ///< a frame
    double allocationsWithMalloc = 0.0; ///< a frame
};

/// Draws frame 0, 1, 2, ...; the picture is done when it returns.
using Draw = std::function<void(unsigned int)>;

/// Lets the ways take turns, `frames` of one and then of the next, for `rounds` rounds: what the machine does besides
/// falls on all of them. Each is warmed up before, and each goes first in its share of the rounds.
std::vector<Frames> takeTurns(const std::vector<Draw>& ways, unsigned int rounds, unsigned int frames);

} // namespace KrBenchMeasure

/// `count` frames from `first` on. A name that a profiler finds, for what is counted is what happens inside.
extern "C" void krBenchSteadyFrames(const KrBenchMeasure::Draw* draw, unsigned int first, unsigned int count);
/// Drawn before anything is measured: caches fill, and drivers compile, in the first frames.
constexpr unsigned int kBenchWarmUpFrames = 10;
