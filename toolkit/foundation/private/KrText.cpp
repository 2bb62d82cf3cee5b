#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace
{

// A byte of UTF-8 that is not the first one of its character.
bool continues(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

} // namespace

// Of the first character in bytes; 0 where there is none.
std::size_t KrText::utf8Length(std::string_view text)
{
    if (text.empty()) {
        return 0;
    }
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    // By RFC 3629: C0 and C1 begin only overlong forms, F5 and above lie beyond U+10FFFF.
    const std::size_t length = lead < 0x80   ? 1
                               : lead < 0xC2 ? 0
                               : lead < 0xE0 ? 2
                               : lead < 0xF0 ? 3
                               : lead < 0xF5 ? 4
                                             : 0;
    if (length == 0 || length > text.size()) {
        return 0;
    }
    if (!std::all_of(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(length), continues)) {
        return 0;
    }
    // Overlong forms let a character past whoever looks for its usual one; surrogates are halves of UTF-16.
    const bool isOverlong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xF0 && byte(1) < 0x90);
    const bool isSurrogate = lead == 0xED && byte(1) > 0x9F;
    const bool isTooHigh = lead == 0xF4 && byte(1) > 0x8F;
    return isOverlong || isSurrogate || isTooHigh ? 0 : length;
}

// Character by character: a text is UTF-8 when all of it is.
bool KrText::isUtf8(std::string_view text)
{
    while (!text.empty()) {
        // Nearly all that is looked at is ASCII: eight bytes at a time, of files of many megabytes.
        std::uint64_t eight = 0;
        if (text.size() >= sizeof eight) {
            std::memcpy(&eight, text.data(), sizeof eight);
            if ((eight & 0x8080808080808080u) == 0) {
                text.remove_prefix(sizeof eight);
                continue;
            }
        }
        const std::size_t length = utf8Length(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

std::string KrText::utf8(std::string_view text)
{
    if (isUtf8(text)) {
        return std::string(text);
    }
    // What is no UTF-8 is taken for Latin-1, where every byte is a character: nothing is lost, and nothing fails.
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            result += c;
        } else {
            result += static_cast<char>(0xC0 | byte >> 6);
            result += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return result;
}

// For messages and reports: names from files may be long, of several lines, or of no known encoding.
std::string KrText::oneLine(std::string_view text, std::size_t longest)
{
    static constexpr std::string_view kLeftOut = "...";
    std::string line = utf8(text);
    if (line.size() > longest) {
        // Something of both ends is kept: paths differ at their ends, messages at their beginnings.
        const std::size_t kept = longest - kLeftOut.size();
        std::size_t front = (kept + 1) / 2;
        std::size_t back = line.size() - (kept - front);
        // Neither cut goes through a character.
        while (front > 0 && continues(line[front])) {
            --front;
        }
        while (back < line.size() && continues(line[back])) {
            ++back;
        }
        line = line.substr(0, front).append(kLeftOut).append(line, back);
    }
    // Control characters would break a terminal's line or a log's, and XML forbids most of them.
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    std::replace_if(line.begin(), line.end(), isControl, ' ');
    // U+FFFE and U+FFFF are UTF-8, but no characters of XML.
    for (std::size_t at = line.find("\xEF\xBF"); at != std::string::npos; at = line.find("\xEF\xBF", at + 2)) {
        line[at + 2] = std::min(line[at + 2], '\xBD');
    }
    return line;
}

std::string_view KrText::trimmed(std::string_view text)
{
    static constexpr std::string_view kSpaces = " \t\r\n";
    text.remove_prefix(std::min(text.find_first_not_of(kSpaces), text.size()));
    return text.substr(0, text.find_last_not_of(kSpaces) + 1); // npos + 1 is 0
}

std::string KrText::lowered(std::string_view text)
{
    // ASCII alone, whatever the locale: file extensions and keywords must not depend on the user's language.
    std::string small(text);
    for (char& c : small) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return small;
}
