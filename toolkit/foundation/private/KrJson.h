#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Text of JSON values (RFC 8259), in the order and layout in which they are put together: a reader of files finds an
/// item in a line. UTF-8; numbers do not depend on the locale.
namespace KrJson
{

/// A string with its quotes. Bytes that are no UTF-8 become U+FFFD.
std::string quoted(std::string_view text);
/// The shortest text that reads back as the same value; "null" for one that is not finite.
std::string number(double value);

/// An array of the texts that `text(item)` gives for the items of `list`.
/// @param between  put after the comma of each item but the last
template <typename List, typename Text>
std::string array(const List& list, const std::string& between, Text text)
{
    std::string result;
    for (const auto& item : list) {
        result += (result.empty() ? "" : "," + between) + text(item);
    }
    return "[" + result + "]";
}

/// Collects the members of an object, in order: each call adds one, with the text of its value.
class Object
{
public:
    /// @param value  the text of any value
    Object& raw(const char* name, const std::string& value);
    Object& string(const char* name, std::string_view value) { return raw(name, quoted(value)); }
    Object& real(const char* name, double value) { return raw(name, number(value)); }
    Object& count(const char* name, std::size_t value) { return raw(name, std::to_string(value)); }
    Object& flag(const char* name, bool value) { return raw(name, value ? "true" : "false"); }
    std::string text() const { return "{" + m_text + "}"; }

private:
    std::string m_text;
};

} // namespace KrJson
