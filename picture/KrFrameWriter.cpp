#include "KrAppFrameWriter.h"

#include "KrAppScene.h"

#include <utility>

KrAppFrameWriter::KrAppFrameWriter(unsigned int factor, Write write)
    : m_factor(factor)
    , m_write(std::move(write))
    , m_thread([this] { run(); })
{
}

KrAppFrameWriter::~KrAppFrameWriter()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isEnding = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

unsigned char* KrAppFrameWriter::lend(unsigned int width, unsigned int height)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_failure || m_numSubmitted - m_numWritten < kMostWaiting; });
    if (m_failure) {
        return nullptr;
    }
    // Free: the writing thread looks at it only after it is submitted.
    KrImage& drawn = m_drawn[m_numSubmitted % kMostWaiting];
    lock.unlock();
    constexpr unsigned int kChannels = 3;
    if (drawn.width() != width || drawn.height() != height || !drawn.data()) {
        drawn.allocate(kChannels, 0, width, height);
    }
    const bool fits = drawn.width() == width && drawn.height() == height;
    return fits ? drawn.data() : nullptr;
}

void KrAppFrameWriter::submit()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_numSubmitted;
    }
    m_changed.notify_all();
}

std::size_t KrAppFrameWriter::numWritten() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_numWritten;
}

bool KrAppFrameWriter::hasFailed() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_failure != nullptr;
}

void KrAppFrameWriter::finish()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_failure || m_numWritten == m_numSubmitted; });
    if (m_failure) {
        std::rethrow_exception(m_failure);
    }
}

void KrAppFrameWriter::run()
{
    KrImage picture;
    std::unique_lock<std::mutex> lock(m_mutex);
    while (true) {
        m_changed.wait(lock, [this] { return m_isEnding || m_numWritten < m_numSubmitted; });
        if (m_isEnding) {
            return;
        }
        const std::size_t number = m_numWritten;
        lock.unlock();
        std::exception_ptr failure;
        try {
            const KrImage& drawn = m_drawn[number % kMostWaiting];
            if (m_factor > 1) {
                KrAppScene::average(drawn, m_factor, picture);
            }
            m_write(m_factor > 1 ? picture : drawn, number);
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        m_failure = failure;
        m_numWritten += failure ? 0 : 1;
        m_changed.notify_all();
        if (failure) {
            return;
        }
    }
}
