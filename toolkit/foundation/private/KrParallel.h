#pragma once

#include <cstddef>
#include <functional>

/// Work that is done on several cores at once.
namespace KrParallel
{

/// The cores that the process may run on, 1 at least; those that it was kept from (taskset, a container) do not count.
std::size_t numCores();

/// Calls `work(i)` once for each i below `count`, low numbers first, in `numThreads` threads, the calling one among
/// them; it returns when all are done. There may be fewer threads where the system gives no more.
///
/// @param work  must not throw: an exception ends the process
void forEach(std::size_t count, std::size_t numThreads, const std::function<void(std::size_t)>& work);

} // namespace KrParallel
