#include "KrPyMessages.h"

#include "KrPyText.h"

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/KrReason.h>

#include <osg/Notify>

#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

namespace
{

constexpr std::size_t kMostWaiting = 10000; // who calls the library on and on without coming back reads no more

struct Waiting
{
    std::mutex mutex;
    std::vector<std::pair<Kr::Print::Type, std::string>> messages;
    std::atomic<bool> isAny{false}; ///< so that a frame without messages asks for no lock
};

/// Never destroyed: threads may write until the process is gone.
Waiting& waiting()
{
    static Waiting* const s_waiting = new Waiting;
    return *s_waiting;
}

void add(Kr::Print::Type type, const std::string& text)
{
    Waiting& list = waiting();
    const std::lock_guard<std::mutex> lock(list.mutex);
    if (list.messages.size() < kMostWaiting) {
        list.messages.emplace_back(type, KrReason::sentence(text));
        list.isAny = true;
    }
}

/// What would go to the standard error stream past everything.
class SceneGraphMessages : public osg::NotifyHandler
{
public:
    void notify(osg::NotifySeverity severity, const char* message) override
    {
        // The more serious, the lower.
        if (severity <= osg::WARN) {
            add(severity < osg::WARN ? Kr::Print::Error : Kr::Print::Warning, message);
        }
    }
};

/// As in Python's module logging, which has no notices.
int levelOf(Kr::Print::Type type)
{
    switch (type) {
    case Kr::Print::Debug:
        return 10;
    case Kr::Print::Info:
    case Kr::Print::Notice:
        break;
    case Kr::Print::Warning:
        return 30;
    case Kr::Print::Error:
        return 40;
    }
    return 20;
}

} // namespace

void KrPyMessages::listen()
{
    static std::once_flag s_once;
    std::call_once(s_once, [] {
        Kr::Print::instance()->setSink(add);
        osg::setNotifyHandler(new SceneGraphMessages);
    });
}

void KrPyMessages::handOn(const std::string& told)
{
    Waiting& list = waiting();
    if (!list.isAny) {
        return;
    }
    std::vector<std::pair<Kr::Print::Type, std::string>> messages;
    {
        const std::lock_guard<std::mutex> lock(list.mutex);
        messages.swap(list.messages);
        list.isAny = false;
    }
    const py::object log = py::module_::import("logging").attr("getLogger")("krrendcore").attr("log");
    for (const auto& [type, text] : messages) {
        if (!text.empty() && (told.empty() || told.find(text) == std::string::npos)) {
            // By %s: what stands in a text is no format.
            log(levelOf(type), "%s", krPyText(text));
        }
    }
}
