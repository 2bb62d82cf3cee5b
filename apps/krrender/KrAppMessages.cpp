#include "KrAppMessages.h"

#include <toolkit/foundation/KrReason.h>

#include <algorithm>

/// Takes what would go to the standard error stream.
class KrAppMessages::SceneGraphMessages : public osg::NotifyHandler
{
public:
    explicit SceneGraphMessages(KrAppMessages& messages)
        : m_messages(messages)
    {
    }
    void notify(osg::NotifySeverity severity, const char* message) override
    {
        const std::string text = KrReason::oneLine(message);
        // The more serious, the lower.
        if (severity <= osg::WARN && !text.empty()) {
            const std::lock_guard<std::mutex> lock(m_messages.m_mutex);
            m_messages.addText(text);
        }
    }

private:
    KrAppMessages& m_messages;
};

KrAppMessages::KrAppMessages()
    : m_handlerBefore(osg::getNotifyHandler())
{
    m_before = Kr::Print::instance()->setSink([this](Kr::Print::Type type, const std::string& text) {
        // Any thread may print.
        if (type >= Kr::Print::Warning) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            // A user is told the sentence, not the function that it comes from.
            m_last = KrReason::sentence(text);
            addText(m_last);
        }
    });
    osg::setNotifyHandler(new SceneGraphMessages(*this));
}

KrAppMessages::~KrAppMessages()
{
    // The other way round: nothing may reach this object any more.
    osg::setNotifyHandler(m_handlerBefore.get());
    Kr::Print::instance()->setSink(m_before);
}

void KrAppMessages::addText(const std::string& text)
{
    // Each sentence once: a message for every frame says no more than one.
    if (std::find(m_texts.begin(), m_texts.end(), text) == m_texts.end()) {
        m_texts.push_back(text);
    }
}

void KrAppMessages::clear()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_texts.clear();
    m_last.clear();
}

std::string KrAppMessages::printable(const std::string& text)
{
    // Names come from files: a terminal must not take them for commands.
    std::string shown;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : '\0');
        // U+0080 to U+009F are two bytes of UTF-8.
        const bool isControl2 = c == 0xC2 && next >= 0x80 && next < 0xA0;
        shown += c < 0x20 || c == 0x7F || isControl2 ? '?' : text[i];
        i += isControl2 ? 1 : 0;
    }
    return shown;
}

std::string KrAppMessages::lastReason(const std::string& fallback) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_last.empty() ? fallback : m_last;
}
