#include <toolkit/context/private/KrForkGuard.h>

#include <sys/types.h>
#include <unistd.h>

#include <atomic>

namespace
{

/// The process that had the first context; a forked one inherits the number. 0 for none.
std::atomic<pid_t> s_process{0};

} // namespace

void KrForkGuard::noteContext()
{
    // The first process to open one stays noted; those forked off it are told apart by their number.
    pid_t none = 0;
    s_process.compare_exchange_strong(none, getpid());
}

bool KrForkGuard::isForked()
{
    const pid_t process = s_process.load();
    return process != 0 && process != getpid();
}
