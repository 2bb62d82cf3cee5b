#pragma once

#include <toolkit/image/KrImage.h>

#include <array>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

/// Averages drawn frames down and writes them on a thread of its own, beside the drawing of the next ones.
///
/// Frames wait in a few pictures that are used again and again: drawing that is faster than writing waits.
class KrFrameWriter
{
public:
    /// Writes frame `number`, counted from 0; called in order on the writing thread. False ends the writing, and
    /// `reason` says why; an exception counts as that, its text as the reason.
    using Write = std::function<bool(const KrImage& picture, std::size_t number, std::string& reason)>;

    /// @param factor  drawn pixels for each pixel of a written picture, across and down
    KrFrameWriter(unsigned int factor, Write write);
    /// Waits for the frame that is being written; those behind it are dropped.
    ~KrFrameWriter();
    KrFrameWriter(const KrFrameWriter&) = delete;
    KrFrameWriter& operator=(const KrFrameWriter&) = delete;

    /// Memory for the next frame as it is drawn: RGB, row 0 at the bottom, no padding. Waits until there is some; null
    /// when writing has failed.
    unsigned char* lend(unsigned int width, unsigned int height);
    /// The memory that was lent last holds its frame now.
    void submit();

    /// Frames that are written by now.
    std::size_t numWritten() const;
    /// Whether the writing has ended early: no memory is lent any more.
    bool hasFailed() const;
    /// Waits until all frames are written, or the writing has failed: false, and the reason is that of `Write`.
    bool finish(std::string& reason);

private:
    static constexpr std::size_t kMostWaiting = 4;

    void run();
    bool write(std::size_t number, KrImage& small, std::string& reason);

    const unsigned int m_factor;
    const Write m_write;
    std::array<KrImage, kMostWaiting> m_drawn;
    mutable std::mutex m_mutex; ///< of what follows
    std::condition_variable m_changed;
    std::size_t m_numSubmitted = 0;
    std::size_t m_numWritten = 0;
    bool m_isEnding = false;
    bool m_hasFailed = false;
    std::string m_reason;
    std::thread m_thread; ///< last: it begins when all of the above is there
};
