#include "KrAppProgress.h"

#include <unistd.h>

#include <cstdio>

KrAppProgress::KrAppProgress(const std::string& what, std::size_t total, bool isQuiet)
    : m_what(what)
    , m_total(total)
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
    if (m_isTerminal) {
        constexpr std::size_t kWidth = 40;
        const std::size_t filled = kWidth * done / m_total;
        std::fprintf(stderr, "\r[%s%s] %zu/%zu %s", std::string(filled, '#').c_str(),
                     std::string(kWidth - filled, '.').c_str(), done, m_total, m_what.c_str());
        std::fflush(stderr);
        m_hasBar = true;
        return;
    }
    const std::size_t tenths = 10 * done / m_total;
    if (tenths > m_linesDone) {
        m_linesDone = tenths;
        std::printf("%zu of %zu %s\n", done, m_total, m_what.c_str());
        std::fflush(stdout);
    }
}
