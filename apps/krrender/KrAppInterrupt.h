#pragma once

/// While one lives, Ctrl-C (SIGINT) and SIGTERM are noted instead of ending the program, so that long work can stop
/// between two frames and clean up. One at a time.
class KrAppInterrupt
{
public:
    KrAppInterrupt();
    ~KrAppInterrupt();
    KrAppInterrupt(const KrAppInterrupt&) = delete;
    KrAppInterrupt& operator=(const KrAppInterrupt&) = delete;

    bool isRequested() const;
};
