#include <tests/support/Allocations.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{

std::atomic<std::size_t> s_withNew{0};
std::atomic<std::size_t> s_withMalloc{0};

} // namespace

Allocations Allocations::now()
{
    return {s_withNew, s_withMalloc};
}

// A sanitizer brings allocation functions of its own, and only glibc gives its own a second name.
#if defined(__GLIBC__) && !defined(KR_SANITIZED)

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* malloc(std::size_t size)
{
    s_withMalloc.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size)
{
    s_withMalloc.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size)
{
    s_withMalloc.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(memory, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size)
{
    s_withMalloc.fetch_add(1, std::memory_order_relaxed);
    return __libc_memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size)
{
    s_withMalloc.fetch_add(1, std::memory_order_relaxed);
    *memory = __libc_memalign(alignment, size);
    return *memory ? 0 : 12; // ENOMEM
}

} // extern "C"

#endif

void* operator new(std::size_t size)
{
    s_withNew.fetch_add(1, std::memory_order_relaxed);
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

// Replaced as well: a sanitizer's own would not go with the operator delete below.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    s_withNew.fetch_add(1, std::memory_order_relaxed);
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
