#pragma once

#include <toolkit/foundation/KrPrint.h>

#include <osg/Notify>
#include <osg/ref_ptr>

#include <mutex>
#include <string>
#include <vector>

/// Collects what the libraries say while the program works, so that a failure is told in one sentence and warnings are
/// shown together at the end. While it lives it is the sink of Kr::Print and of the scene graph's messages.
class KrAppMessages
{
public:
    KrAppMessages();
    ~KrAppMessages();
    KrAppMessages(const KrAppMessages&) = delete;
    KrAppMessages& operator=(const KrAppMessages&) = delete;

    /// The toolkit's last message as KrReason::sentence; `fallback` when there is none.
    std::string lastReason(const std::string& fallback) const;
    /// Forgets what was said so far: it has been told in another way.
    void clear();
    /// Everything that was said, as such sentences, each once. While no other thread works.
    const std::vector<std::string>& texts() const { return m_texts; }

    /// With "?" for what would steer a terminal instead of being shown: names come from files.
    static std::string printable(const std::string& text);

private:
    class SceneGraphMessages;

    void addText(const std::string& text);

    Kr::Print::Sink m_before;
    osg::ref_ptr<osg::NotifyHandler> m_handlerBefore;
    mutable std::mutex m_mutex; ///< frames are written on another thread
    std::vector<std::string> m_texts;
    std::string m_last;
};
