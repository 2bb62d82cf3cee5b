#pragma once

#include <functional>
#include <memory>
#include <string>

namespace Kr
{

/// The toolkit's one channel for messages to the user.
///
/// Messages go to a sink: by default the standard error stream; an application
/// or a test may put its own in place. Usable from any thread.
class Print
{
public:
    /// Kinds of message. The numbers are part of the interface.
    enum Type : int
    {
        Debug = 1,   ///< for the toolkit's own developers; not shown by the default sink
        Info = 2,    ///< progress, results
        Notice = 3,  ///< worth knowing, nothing is wrong
        Warning = 4, ///< recoverable failures: something was left out or refused
        Error = 5    ///< a request that could not be met at all
    };

    /// Receives one formatted message; `text` keeps the line end it was written with.
    using Sink = std::function<void(Type type, const std::string& text)>;

    /// The channel; lives as long as the process.
    static Print* instance();

    /// Formats as printf does and hands the text to the sink.
    void write(Type type, const char* format, ...) __attribute__((format(printf, 3, 4)));

    /// Puts `sink` in place and returns the one before; an empty one restores the default.
    Sink setSink(Sink sink);

private:
    Print();
    ~Print();
    struct Private;
    std::unique_ptr<Private> m_private;
};

} // namespace Kr
