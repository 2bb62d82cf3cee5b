#include <toolkit/foundation/KrJson.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace
{

/// The length of the UTF-8 character at the start of `text`; 0 when there is none (RFC 3629, section 4).
std::size_t utf8Length(std::string_view text)
{
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    const std::size_t length = lead < 0x80   ? 1
                               : lead < 0xC2 ? 0
                               : lead < 0xE0 ? 2
                               : lead < 0xF0 ? 3
                               : lead < 0xF5 ? 4
                                             : 0;
    if (length == 0 || length > text.size()) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const bool isOverlong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xF0 && byte(1) < 0x90);
    const bool isSurrogate = lead == 0xED && byte(1) > 0x9F;
    const bool isTooHigh = lead == 0xF4 && byte(1) > 0x8F;
    return isOverlong || isSurrogate || isTooHigh ? 0 : length;
}

} // namespace

std::string KrJson::quoted(std::string_view text)
{
    std::string result = "\"";
    while (!text.empty()) {
        const std::size_t length = utf8Length(text);
        const unsigned char c = static_cast<unsigned char>(text[0]);
        if (length == 0) {
            result += "\xEF\xBF\xBD";
        } else if (c == '"' || c == '\\') {
            result += std::string("\\") + text[0];
        } else if (c < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            result += escape;
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result + "\"";
}

std::string KrJson::number(double value)
{
    if (!std::isfinite(value)) {
        return "null";
    }
    char text[32];
    const std::to_chars_result end = std::to_chars(text, text + sizeof text, value);
    return std::string(text, end.ptr);
}

KrJson::Object& KrJson::Object::raw(const char* name, const std::string& value)
{
    m_text += (m_text.empty() ? "" : ", ") + quoted(name) + ": " + value;
    return *this;
}
