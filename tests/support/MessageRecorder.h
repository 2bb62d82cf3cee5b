#pragma once

#include <toolkit/foundation/KrPrint.h>

#include <string>
#include <utility>
#include <vector>

/// Collects what is printed while it lives.
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
    std::string all() const
    {
        std::string text;
        for (const auto& message : m_messages) {
            text += message.second;
        }
        return text;
    }
    void clear() { m_messages.clear(); }

private:
    Kr::Print::Sink m_previous;
    std::vector<std::pair<Kr::Print::Type, std::string>> m_messages;
};
