#pragma once

#include <toolkit/foundation/KrPrint.h>

#include <string>
#include <vector>

/// Catches what is printed while it lives.
class KrCaughtMessages
{
public:
    KrCaughtMessages()
        : m_before(Kr::Print::instance()->setSink(
              [this](Kr::Print::Type, const std::string& text) { m_texts.push_back(text); }))
    {
    }
    ~KrCaughtMessages() { Kr::Print::instance()->setSink(m_before); }
    KrCaughtMessages(const KrCaughtMessages&) = delete;
    KrCaughtMessages& operator=(const KrCaughtMessages&) = delete;

    const std::vector<std::string>& texts() const { return m_texts; }
    /// The one message; a text that says so when there is not exactly one.
    std::string only() const
    {
        return m_texts.size() == 1 ? m_texts.front() : std::to_string(m_texts.size()) + " messages";
    }

private:
    std::vector<std::string> m_texts;
    Kr::Print::Sink m_before;
};
