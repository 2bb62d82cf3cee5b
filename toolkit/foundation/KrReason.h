#pragma once

#include <string>

/// Why something just failed, in the words that the libraries wrote: for callers that get a `false` and have to tell
/// their user more.
///
/// @code
///     const KrReason reason;
///     if (!window.init()) {
///         return "no context: " + reason.text("nothing was said");
///     }
/// @endcode
class KrReason
{
public:
    /// From now on. Costs nothing to speak of: it may stand in a frame.
    KrReason();
    /// The last warning or error that this thread has written to Kr::Print since then, as `sentence`; `otherwise` when
    /// there is none. Of a very long one the beginning.
    std::string text(const std::string& otherwise) const;

    /// One line without "Class::method - " or "KrClass - " at its beginning, which tells a user nothing.
    static std::string sentence(const std::string& text);
    /// One line of `text`: line ends and runs of white space become one space, the full stop at its end goes.
    static std::string oneLine(const std::string& text);

private:
    unsigned int m_numBefore;
};
