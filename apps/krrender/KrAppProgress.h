#pragma once

#include <cstddef>
#include <string>

/// Tells how far a long work has come: a bar on a terminal (standard error), plain lines on standard output otherwise.
class KrAppProgress
{
public:
    /// @param what  names the work, "frames"
    KrAppProgress(const std::string& what, std::size_t total, bool isQuiet);
    ~KrAppProgress();

    void setDone(std::size_t done);

private:
    std::string m_what;
    std::size_t m_total;
    std::size_t m_linesDone = 0; ///< tenths told in plain lines
    bool m_isQuiet;
    bool m_isTerminal;
    bool m_hasBar = false;
};
