#include <picture/KrFrameWriter.h>

#include <picture/KrDownscale.h>

#include <exception>
#include <utility>

KrFrameWriter::KrFrameWriter(unsigned int factor, Write write)
    : m_factor(factor)
    , m_write(std::move(write))
    // The last member: everything that the thread uses is there when it starts.
    , m_thread([this] { run(); })
{
}

KrFrameWriter::~KrFrameWriter()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        // What still waits is dropped; whoever wants it written has called finish().
        m_isEnding = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

unsigned char* KrFrameWriter::lend(unsigned int width, unsigned int height)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    // Drawing must not run away from writing with the memory.
    m_changed.wait(lock, [this] { return m_hasFailed || m_numSubmitted - m_numWritten < kMostWaiting; });
    if (m_hasFailed) {
        return nullptr;
    }
    // Free: the writing thread looks at it only after it is submitted.
    KrImage& drawn = m_drawn[m_numSubmitted % kMostWaiting];
    // Allocating takes time for which the other thread need not wait.
    lock.unlock();
    constexpr unsigned int kChannels = 3;
    if (drawn.width() != width || drawn.height() != height || !drawn.data()) {
        drawn.allocate(kChannels, 0, width, height);
    }
    // Without memory the picture stays empty.
    const bool fits = drawn.width() == width && drawn.height() == height;
    return fits ? drawn.data() : nullptr;
}

void KrFrameWriter::submit()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_numSubmitted;
    }
    m_changed.notify_all();
}

std::size_t KrFrameWriter::numWritten() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_numWritten;
}

bool KrFrameWriter::hasFailed() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_hasFailed;
}

bool KrFrameWriter::finish(std::string& reason)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_hasFailed || m_numWritten == m_numSubmitted; });
    if (m_hasFailed) {
        reason = m_reason;
    }
    return !m_hasFailed;
}

bool KrFrameWriter::write(std::size_t number, KrImage& small, std::string& reason)
{
    const KrImage& drawn = m_drawn[number % kMostWaiting];
    // An exception that left this thread would end the program.
    try {
        if (m_factor > 1) {
            KrDownscale::average(drawn, m_factor, small);
        }
        // Without samples the drawn picture is the one to write: nothing is copied.
        return m_write(m_factor > 1 ? small : drawn, number, reason);
    } catch (const std::exception& error) {
        reason = error.what();
    } catch (...) {
        reason = "the writing failed";
    }
    return false;
}

void KrFrameWriter::run()
{
    KrImage picture;
    std::unique_lock<std::mutex> lock(m_mutex);
    while (true) {
        m_changed.wait(lock, [this] { return m_isEnding || m_numWritten < m_numSubmitted; });
        // Before what still waits, see the destructor.
        if (m_isEnding) {
            return;
        }
        // The lock is free while a picture is written: the next one is drawn meanwhile.
        const std::size_t number = m_numWritten;
        lock.unlock();
        std::string reason;
        const bool isWritten = write(number, picture, reason);
        lock.lock();
        // A failure ends the thread; lend() and finish() tell of it.
        m_hasFailed = !isWritten;
        m_reason = reason;
        m_numWritten += isWritten ? 1 : 0;
        m_changed.notify_all();
        if (!isWritten) {
            return;
        }
    }
}
