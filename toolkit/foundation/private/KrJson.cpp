#include <toolkit/foundation/private/KrJson.h>

#include <nlohmann/json.hpp>

#include <charconv>
#include <cmath>

std::string KrJson::quoted(std::string_view text)
{
    // Names may come from files in any encoding: what is no UTF-8 is replaced, since JSON has no other.
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// Not by nlohmann::json, which would write a whole number as 1.0: what is written stays the same, byte for byte.
std::string KrJson::number(double value)
{
    // JSON has neither infinity nor NaN.
    if (!std::isfinite(value)) {
        return "null";
    }
    char text[32];
    // The shortest text that is read back as the same number, and never with a decimal comma.
    const std::to_chars_result end = std::to_chars(text, text + sizeof text, value);
    return std::string(text, end.ptr);
}

KrJson::Object& KrJson::Object::raw(const char* name, const std::string& value)
{
    m_text += (m_text.empty() ? "" : ", ") + quoted(name) + ": " + value;
    return *this;
}
