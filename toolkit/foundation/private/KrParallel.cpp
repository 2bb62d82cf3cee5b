#include <toolkit/foundation/private/KrParallel.h>

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

std::size_t KrParallel::numCores()
{
    // A set of the usual size is too small for the largest machines: it grows until the system takes it.
    for (int most = CPU_SETSIZE; most <= 1 << 20; most *= 2) {
        const std::unique_ptr<cpu_set_t, void (*)(cpu_set_t*)> set(CPU_ALLOC(most), [](cpu_set_t* s) { CPU_FREE(s); });
        const std::size_t size = CPU_ALLOC_SIZE(most);
        if (set && ::sched_getaffinity(0, size, set.get()) == 0) {
            return static_cast<std::size_t>(std::max(1, CPU_COUNT_S(size, set.get())));
        }
        if (errno != EINVAL) {
            break;
        }
    }
    return 1;
}

void KrParallel::forEach(std::size_t count, std::size_t numThreads, const std::function<void(std::size_t)>& work)
{
    std::atomic<std::size_t> next{0};
    const auto run = [&]() noexcept {
        for (std::size_t i = next++; i < count; i = next++) {
            work(i);
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(numThreads);
    try {
        while (threads.size() + 1 < std::min(numThreads, count)) {
            threads.emplace_back(run);
        }
    } catch (const std::system_error&) {
        // A process may have all the threads that it may have: those that there are do the work.
    }
    run();
    for (std::thread& thread : threads) {
        thread.join();
    }
}
