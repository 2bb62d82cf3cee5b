#pragma once

/// Where the program may run on one processor core only (the affinity mask tells), a driver that draws by software
/// starts no threads: they would take turns on it. Newer versions of the driver see to that by themselves, older ones
/// count the machine's cores. For the beginning of the program, before there is a second thread; what the user has set
/// (LP_NUM_THREADS) stays.
/// @param isOneOfMany  other processes do the same work on the other cores: no threads, either
void krAppLeaveOutDriverThreads(bool isOneOfMany);
