#include "KrAppProgress.h"

#include <unistd.h>

#include <cstdio>

KrAppProgress::KrAppProgress(const std::string& what, std::size_t total, bool isQuiet)
    : m_what(what)
    , m_total(total)
    // One picture is there or not: there is no progress to show.
    , m_isQuiet(isQuiet || total < 2)
    , m_isTerminal(isatty(STDERR_FILENO) == 1)
{
}

KrAppProgress::~KrAppProgress()
{
    if (m_hasBar) {
        std::fprintf(stderr, "\r\033[K"); // what follows stands on a clean line
    }
}

void KrAppProgress::setDone(std::size_t done)
{
    if (m_isQuiet) {
        return;
    }
    // A bar is drawn over itself, which a file cannot.
    if (m_isTerminal) {
        constexpr std::size_t kWidth = 40;
        // No division by zero: fewer than two are quiet.
        const std::size_t filled = kWidth * done / m_total;
        std::fprintf(stderr, "\r[%s%s] %zu/%zu %s", std::string(filled, '#').c_str(),
                     std::string(kWidth - filled, '.').c_str(), done, m_total, m_what.c_str());
        std::fflush(stderr);
        m_hasBar = true;
        return;
    }
    // Ten lines are enough for a log.
    const std::size_t tenths = 10 * done / m_total;
    if (tenths > m_linesDone) {
        m_linesDone = tenths;
        std::printf("%zu of %zu %s\n", done, m_total, m_what.c_str());
        std::fflush(stdout);
    }
}
