#pragma once

#include <cstddef>

/// Counts heap allocations of the whole process, drivers included, by standing in for the C library's functions. For
/// programs that krAllocations is linked into: a file of its own, for seen together with a caller the compiler takes
/// its free() for a mismatch.
struct Allocations
{
    std::size_t withNew = 0; ///< operator new: this library's and the scene graph's
    std::size_t withMalloc =
        0; ///< not under a sanitizer: malloc, calloc, realloc, aligned ones: everybody's, operator new's too

    static Allocations now();
    friend Allocations operator-(const Allocations& a, const Allocations& b)
    {
        return {a.withNew - b.withNew, a.withMalloc - b.withMalloc};
    }
};
