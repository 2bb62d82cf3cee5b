#pragma once

#include <sys/types.h>

/// What Ctrl-C (SIGINT), SIGTERM, SIGHUP and a reader of standard output that has gone (SIGPIPE) do to the program.
///
/// After `install` they end it by that signal, and take along the files that are not finished. While a KrAppInterrupt
/// lives, the first one but SIGPIPE is noted instead, so that long work can stop between two frames; a second one, a
/// moment later, ends the program. A signal that was ignored when the program began (nohup) stays so. One at a time.
class KrAppInterrupt
{
public:
    KrAppInterrupt();
    ~KrAppInterrupt();
    KrAppInterrupt(const KrAppInterrupt&) = delete;
    KrAppInterrupt& operator=(const KrAppInterrupt&) = delete;

    /// Once, when the program begins.
    static void install();
    /// Whether a signal was noted since the program began.
    static bool isRequested();
    /// Processes that are killed when a signal ends the program; 0 for none.
    static void setProcessGroup(pid_t group);

    /// While one lives, this thread gets none of those signals; they come afterwards.
    class Pause
    {
    public:
        Pause();
        ~Pause();
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;
    };
};
