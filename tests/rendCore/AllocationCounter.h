#pragma once

#include <cstddef>

/// Allocations with `new` since the program began. For programs that AllocationCounter.cpp is linked into.
std::size_t numAllocations();
