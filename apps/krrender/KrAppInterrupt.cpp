#include "KrAppInterrupt.h"

#include <toolkit/foundation/private/KrFileReplacement.h>

#include <signal.h>
#include <time.h>

#include <atomic>
#include <cerrno>

namespace
{

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
// Service managers, terminals that close and the program timeout send one request as two signals.
constexpr unsigned int kOneBlowMs = 200;

// A signal handler looks at these.
std::atomic<bool> s_isNoting{false};
std::atomic<bool> s_isRequested{false};
std::atomic<unsigned int> s_requestMs{0};
std::atomic<pid_t> s_processGroup{0};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<pid_t>::is_always_lock_free,
              "a signal handler must not wait");

sigset_t allSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : kSignals) {
        sigaddset(&set, number);
    }
    return set;
}

/// Since an arbitrary moment; wraps around.
unsigned int nowMs()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned int>(now.tv_sec) * 1000u + static_cast<unsigned int>(now.tv_nsec / 1000000);
}

/// Whether the signal leaves the program running.
bool isNoted(int number)
{
    // Nobody reads any more: there is nothing to finish the work for.
    if (number == SIGPIPE || !s_isNoting.load()) {
        return false;
    }
    if (!s_isRequested.load()) {
        // The time before the flag: whoever sees the flag finds the time.
        s_requestMs = nowMs();
        s_isRequested = true;
        return true;
    }
    // Without a sign, the difference is right across the wrap.
    return nowMs() - s_requestMs.load() < kOneBlowMs;
}

void onSignal(int number)
{
    // Whatever was interrupted may be about to look at errno.
    const int error = errno;
    if (!isNoted(number)) {
        // Processes first: they would make their file anew.
        if (s_processGroup.load() > 0) {
            kill(-s_processGroup.load(), SIGKILL);
        }
        KrFileReplacement::removeUnfinished();
        // By the signal itself, so that the caller sees what ended the program.
        signal(number, SIG_DFL);
        raise(number); // comes when this function returns
    }
    errno = error;
}

} // namespace

KrAppInterrupt::KrAppInterrupt()
{
    s_isNoting = true;
}

KrAppInterrupt::~KrAppInterrupt()
{
    s_isNoting = false;
}

void KrAppInterrupt::install()
{
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_mask = allSignals();
    action.sa_flags = SA_RESTART; // libraries do not expect to be interrupted
    for (const int number : kSignals) {
        struct sigaction before = {};
        // What the caller ignores stays ignored: nohup does it with SIGHUP.
        if (sigaction(number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
            sigaction(number, &action, nullptr);
        }
    }
}

bool KrAppInterrupt::isRequested()
{
    return s_isRequested.load();
}

void KrAppInterrupt::setProcessGroup(pid_t group)
{
    s_processGroup = group;
}

KrAppInterrupt::Pause::Pause()
{
    const sigset_t set = allSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

KrAppInterrupt::Pause::~Pause()
{
    const sigset_t set = allSignals();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}
