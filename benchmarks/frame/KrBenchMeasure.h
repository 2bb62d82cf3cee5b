#pragma once

#include <tests/support/Allocations.h>

#include <functional>

/// Times of the wall clock and of the processor.
namespace KrBenchMeasure
{

double wallSeconds();
/// Of all threads of the process.
double processorSeconds();
/// The most memory that the process has held so far, MiB.
double peakMemoryMiB();

/// What frames cost.
struct Frames
{
    double medianSeconds = 0.0;
    double fastestSeconds = 0.0;
    double slowTenthSeconds = 0.0;      ///< nine of ten frames are faster
    double processorSeconds = 0.0;      ///< of all threads, a frame
    double allocationsWithNew = 0.0;    ///< a frame
    double allocationsWithMalloc = 0.0; ///< a frame
};

/// Draws `warmUp` frames, then measures `count` of them. `frame` gets 0, 1, 2, ... and ends when the picture is done.
Frames measure(unsigned int warmUp, unsigned int count, const std::function<void(unsigned int)>& frame);

} // namespace KrBenchMeasure
