#include <tests/rendCore/AllocationCounter.h>

#include <atomic>
#include <cstdlib>
#include <new>

// A file of its own: seen together with a caller, the compiler takes the free() below for a mismatch.

namespace
{

std::atomic<std::size_t> s_allocations{0};

} // namespace

std::size_t numAllocations()
{
    return s_allocations;
}

void* operator new(std::size_t size)
{
    ++s_allocations;
    if (void* memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

// Replaced as well: a sanitizer's own would not go with the operator delete below.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    ++s_allocations;
    return std::malloc(size == 0 ? 1 : size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
