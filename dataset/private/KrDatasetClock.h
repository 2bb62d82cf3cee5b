#pragma once

#include <time.h>

/// Adds the processor time of the calling thread between its making and its end to a sum.
class KrDatasetClock
{
public:
    /// @param sum  s; borrowed
    explicit KrDatasetClock(double& sum)
        : m_sum(sum)
        , m_start(now())
    {
    }
    ~KrDatasetClock() { m_sum += now() - m_start; }
    KrDatasetClock(const KrDatasetClock&) = delete;
    KrDatasetClock& operator=(const KrDatasetClock&) = delete;

    /// Processor time of the calling thread, s.
    static double now()
    {
        timespec time = {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    }

private:
    double& m_sum;
    double m_start;
};
