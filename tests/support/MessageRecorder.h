#pragma once

#include <toolkit/foundation/KrPrint.h>

#include <string>
#include <utility>
#include <vector>

/// Collects what is printed while it lives; none of it is shown.
class MessageRecorder
{
public:
    MessageRecorder()
        : m_previous(Kr::Print::instance()->setSink(
              [this](Kr::Print::Type type, const std::string& text) { m_messages.emplace_back(type, text); }))
    {
    }
    ~MessageRecorder() { Kr::Print::instance()->setSink(std::move(m_previous)); }
    MessageRecorder(const MessageRecorder&) = delete;
    MessageRecorder& operator=(const MessageRecorder&) = delete;

    std::size_t count() const { return m_messages.size(); }
    std::size_t count(Kr::Print::Type type, const std::string& text) const
    {
        std::size_t found = 0;
        for (const auto& message : m_messages) {
            found += message.first == type && message.second == text ? 1 : 0;
        }
        return found;
    }
    const std::string& text(std::size_t i) const { return m_messages.at(i).second; }
    Kr::Print::Type type(std::size_t i) const { return m_messages.at(i).first; }
    /// All of them, one after the other.
    std::string all() const
    {
        std::string text;
        for (const auto& message : m_messages) {
            text += message.second;
        }
        return text;
    }
    /// The one message; a text that says so when there is not exactly one.
    std::string only() const { return count() == 1 ? text(0) : std::to_string(count()) + " messages"; }
    void clear() { m_messages.clear(); }
    /// Forgets them; how many there were.
    std::size_t take()
    {
        const std::size_t taken = count();
        m_last = taken > 0 ? m_messages.back().second : m_last;
        m_messages.clear();
        return taken;
    }
    /// The last one, be it taken or not.
    const std::string& last() const { return m_messages.empty() ? m_last : m_messages.back().second; }

private:
    Kr::Print::Sink m_previous;
    std::vector<std::pair<Kr::Print::Type, std::string>> m_messages;
    std::string m_last;
};
