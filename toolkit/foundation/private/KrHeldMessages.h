#pragma once

#include <toolkit/foundation/KrPrint.h>

#include <string>
#include <utility>
#include <vector>

/// Keeps back what this thread writes to Kr::Print, for work that is done out of order: its messages are told later, in
/// the order that a person expects.
class KrHeldMessages
{
public:
    using List = std::vector<std::pair<Kr::Print::Type, std::string>>;

    /// From now on, and for as long as the object lives; it stays in the thread that made it.
    KrHeldMessages();
    ~KrHeldMessages();
    KrHeldMessages(const KrHeldMessages&) = delete;
    KrHeldMessages& operator=(const KrHeldMessages&) = delete;

    /// What was kept back until now; nothing is left.
    List take() { return std::exchange(m_messages, {}); }
    /// Writes kept messages to Kr::Print.
    static void tell(const List& messages);

    /// For Kr::Print: false when the thread keeps nothing back.
    static bool hold(Kr::Print::Type type, const std::string& text);

private:
    KrHeldMessages* m_outer;
    List m_messages;
};
