#pragma once

#include <toolkit/foundation/KrPrint.h>

#include <string>
#include <vector>

/// Catches the toolkit's messages while it lives.
class KrMessages
{
public:
    KrMessages()
        : m_before(Kr::Print::instance()->setSink(
              [this](Kr::Print::Type, const std::string& text) { m_texts.push_back(text); }))
    {
    }
    ~KrMessages() { Kr::Print::instance()->setSink(m_before); }
    KrMessages(const KrMessages&) = delete;
    KrMessages& operator=(const KrMessages&) = delete;

    /// How many came since the last call.
    std::size_t take()
    {
        const std::size_t count = m_texts.size();
        if (count > 0) {
            m_last = m_texts.back();
        }
        m_texts.clear();
        return count;
    }
    /// The last of those that were taken.
    const std::string& last() const { return m_last; }

private:
    std::vector<std::string> m_texts;
    std::string m_last;
    Kr::Print::Sink m_before;
};
