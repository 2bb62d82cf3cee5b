#pragma once

#include <cstddef>

/// The last warning or error that a thread wrote; kept by Kr::Print, read by KrReason.
///
/// Plain memory: messages come from objects that outlive main, too, when nothing with a destructor is left.
struct KrLastMessage
{
    static constexpr std::size_t kMostBytes = 1024;

    unsigned int number = 0; ///< of messages so far
    char text[kMostBytes] = {};

    /// This thread's.
    static KrLastMessage& ofThread();
};
