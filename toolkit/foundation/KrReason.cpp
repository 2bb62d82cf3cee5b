#include <toolkit/foundation/KrReason.h>

#include <toolkit/foundation/private/KrLastMessage.h>

#include <algorithm>
#include <cctype>

KrLastMessage& KrLastMessage::ofThread()
{
    // Of each thread its own: an error in one thread is no reason of a failure in another.
    thread_local KrLastMessage t_message;
    return t_message;
}

// Messages before this one are no reason of what follows.
KrReason::KrReason()
    : m_numBefore(KrLastMessage::ofThread().number)
{
}

std::string KrReason::text(const std::string& otherwise) const
{
    const KrLastMessage& last = KrLastMessage::ofThread();
    // No message since this object was made means that nobody knew a reason.
    return last.number == m_numBefore ? otherwise : sentence(last.text);
}

std::string KrReason::oneLine(const std::string& text)
{
    // One line for a dialog or a list: line feeds and runs of blanks become one blank.
    std::string line;
    for (const char c : text) {
        const bool isSpace = std::isspace(static_cast<unsigned char>(c)) != 0;
        if (!isSpace) {
            line += c;
        } else if (!line.empty() && line.back() != ' ') {
            line += ' ';
        }
    }
    // The caller puts the reason into a sentence of its own.
    while (!line.empty() && (line.back() == ' ' || line.back() == '.')) {
        line.pop_back();
    }
    return line;
}

std::string KrReason::sentence(const std::string& text)
{
    const std::string line = oneLine(text);
    const std::size_t dash = line.find(" - ");
    // Messages begin "Class::method - " or "KrClass - "; any other dash belongs to the sentence.
    if (dash == std::string::npos || line.find(' ') != dash) {
        return line;
    }
    const bool isClass = dash > 2 && line.compare(0, 2, "Kr") == 0 &&
                         std::all_of(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(dash),
                                     [](unsigned char c) { return std::isalnum(c) != 0; });
    return isClass || line.find("::") < dash ? line.substr(dash + 3) : line;
}
