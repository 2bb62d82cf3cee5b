#pragma once

#include <cstddef>

/// Counts heap allocations of the whole process, drivers included, by standing in for the C library's functions.
struct KrBenchAllocations
{
    std::size_t withNew = 0;    ///< operator new: this library's and the scene graph's
    std::size_t withMalloc = 0; ///< malloc, calloc, realloc, aligned ones: everybody's, operator new's too

    static KrBenchAllocations now();
    friend KrBenchAllocations operator-(const KrBenchAllocations& a, const KrBenchAllocations& b)
    {
        return {a.withNew - b.withNew, a.withMalloc - b.withMalloc};
    }
};
