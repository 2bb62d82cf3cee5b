#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// What this process holds. Linux.
namespace Process
{

/// Resident memory; 0 where it is not told.
inline long residentKiB()
{
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word && word != "VmRSS:") {
    }
    long value = 0;
    status >> value;
    return value;
}

inline long numOpenDescriptors()
{
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<long>(std::distance(begin(entries), end(entries)));
}

} // namespace Process
