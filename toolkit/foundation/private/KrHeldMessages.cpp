#include <toolkit/foundation/private/KrHeldMessages.h>

namespace
{

// Innermost first. A plain pointer: nothing has to be taken down when a thread ends.
thread_local KrHeldMessages* t_innermost = nullptr;

} // namespace

KrHeldMessages::KrHeldMessages()
    : m_outer(std::exchange(t_innermost, this))
{
}

KrHeldMessages::~KrHeldMessages()
{
    t_innermost = m_outer;
}

void KrHeldMessages::tell(const List& messages)
{
    for (const auto& [type, text] : messages) {
        // As an argument: the text may hold percent signs of a file's name.
        Kr::Print::instance()->write(type, "%s", text.c_str());
    }
}

bool KrHeldMessages::hold(Kr::Print::Type type, const std::string& text)
{
    if (t_innermost) {
        t_innermost->m_messages.emplace_back(type, text);
    }
    return t_innermost != nullptr;
}
