#include <toolkit/foundation/KrPrint.h>

#include <toolkit/foundation/private/KrHeldMessages.h>
#include <toolkit/foundation/private/KrLastMessage.h>

#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_color_sinks.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <vector>

namespace Kr
{

namespace
{

spdlog::level::level_enum logLevel(Print::Type type)
{
    switch (type) {
    case Print::Debug:
        return spdlog::level::debug;
    case Print::Info:
    case Print::Notice:
        return spdlog::level::info;
    case Print::Warning:
        return spdlog::level::warn;
    // Not in `default`: the compiler then says when a type is forgotten.
    case Print::Error:
        break;
    }
    return spdlog::level::err;
}

// Empty when the format cannot be applied (a wide character that the locale lacks, for example).
std::string formatted(const char* format, std::va_list arguments)
{
    // The arguments are walked twice, once for the length; a list can be walked only once.
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::vector<char> text(length < 0 ? 1 : static_cast<std::size_t>(length) + 1, '\0');
    if (length >= 0) {
        std::vsnprintf(text.data(), text.size(), format, again);
    }
    va_end(again);
    return std::string(text.data(), text.size() - 1);
}

} // namespace

// Behind a pointer, so that clients of the header need not have spdlog.
struct Print::Private
{
    Private()
        : logger("kr", std::make_shared<spdlog::sinks::stderr_color_sink_mt>())
    {
        // Debug messages go to a sink alone: on a terminal they would bury the others.
        logger.set_level(spdlog::level::info);
        logger.set_pattern("%^%l%$: %v");
        // A program that crashes has still told what it knew.
        logger.flush_on(spdlog::level::info);
    }

    void writeToStandardError(Type type, std::string text)
    {
        // Messages end with a line feed of their own, and the logger adds one.
        while (!text.empty() && text.back() == '\n') {
            text.pop_back();
        }
        logger.log(logLevel(type), text);
    }

    // Recursive: a sink may itself print. Held while a sink runs, so that sinks need no lock of their own.
    std::recursive_mutex mutex;
    std::shared_ptr<Sink> sink = std::make_shared<Sink>();
    spdlog::logger logger;
};

Print::Print()
    : m_private(new Private)
{
}

Print::~Print() = default;

Print* Print::instance()
{
    // Never destroyed: objects that outlive main may still have something to say.
    static Print* const s_instance = new Print;
    return s_instance;
}

// From any thread, at any time, and never with an exception.
void Print::write(Type type, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    try {
        std::string text = formatted(format, arguments);
        // Only warnings and errors are reasons of a failure.
        if (type >= Warning) {
            // Not under the lock: each thread has its own.
            KrLastMessage& last = KrLastMessage::ofThread();
            ++last.number;
            last.text[text.copy(last.text, sizeof last.text - 1)] = '\0';
        }
        // Told later, and counted as a reason then once more.
        if (KrHeldMessages::hold(type, text)) {
            va_end(arguments);
            return;
        }
        const std::lock_guard<std::recursive_mutex> lock(m_private->mutex);
        // Kept alive for the call: the sink may put another one in its place.
        const std::shared_ptr<Sink> sink = m_private->sink;
        if (*sink) {
            (*sink)(type, text);
        } else {
            m_private->writeToStandardError(type, std::move(text));
        }
    } catch (...) {
        // A message that cannot be told must not become a failure of its own.
    }
    va_end(arguments);
}

// The old one is handed back, so that a caller can put it in its place again.
Print::Sink Print::setSink(Sink sink)
{
    // Made outside the lock, which is held for the exchange alone.
    const auto next = std::make_shared<Sink>(std::move(sink));
    const std::lock_guard<std::recursive_mutex> lock(m_private->mutex);
    const std::shared_ptr<Sink> before = m_private->sink;
    m_private->sink = next;
    return *before;
}

} // namespace Kr
