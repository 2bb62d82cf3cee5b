#pragma once

#include <toolkit/image/KrImage.h>

#include <array>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

/// Averages drawn frames down and writes them on a thread of its own, beside the drawing of the next ones.
///
/// Frames wait in a few pictures that are used again and again: drawing that is faster than writing waits.
class KrAppFrameWriter
{
public:
    /// Writes frame `number`, counted from 0; called in order on the writing thread. What it throws ends the writing.
    using Write = std::function<void(const KrImage& picture, std::size_t number)>;

    /// @param factor  drawn pixels for each pixel of a written picture, across and down
    KrAppFrameWriter(unsigned int factor, Write write);
    /// Waits for the frame that is being written; those behind it are dropped.
    ~KrAppFrameWriter();
    KrAppFrameWriter(const KrAppFrameWriter&) = delete;
    KrAppFrameWriter& operator=(const KrAppFrameWriter&) = delete;

    /// Memory for the next frame as it is drawn: RGB, row 0 at the bottom, no padding. Waits until there is some; null
    /// when writing has failed.
    unsigned char* lend(unsigned int width, unsigned int height);
    /// The memory that was lent last holds its frame now.
    void submit();

    std::size_t numWritten() const;
    bool hasFailed() const;
    /// Waits until all frames are written. Throws what the writing threw.
    void finish();

private:
    static constexpr std::size_t kMostWaiting = 4;

    void run();

    const unsigned int m_factor;
    const Write m_write;
    std::array<KrImage, kMostWaiting> m_drawn;
    mutable std::mutex m_mutex; ///< of what follows
    std::condition_variable m_changed;
    std::size_t m_numSubmitted = 0;
    std::size_t m_numWritten = 0;
    bool m_isEnding = false;
    std::exception_ptr m_failure;
    std::thread m_thread; ///< last: it begins when all of the above is there
};
