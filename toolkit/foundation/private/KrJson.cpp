#include <toolkit/foundation/private/KrJson.h>

#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

std::string KrJson::quoted(std::string_view text)
{
    std::string result = "\"";
    while (!text.empty()) {
        const std::size_t length = KrText::utf8Length(text);
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
