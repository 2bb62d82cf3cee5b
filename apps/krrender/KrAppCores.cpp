#include "KrAppCores.h"

#include <sched.h>

#include <cstdlib>

void krAppLeaveOutDriverThreads(bool isOneOfMany)
{
    cpu_set_t cores;
    CPU_ZERO(&cores);
    // It fails where the set has no place for all cores of the machine: then there are many.
    if (sched_getaffinity(0, sizeof cores, &cores) == 0 && CPU_COUNT(&cores) == 1) {
        isOneOfMany = true;
    }
    if (isOneOfMany) {
        setenv("LP_NUM_THREADS", "0", 0);
    }
}
