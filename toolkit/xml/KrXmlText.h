#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

/// Numbers, truth values and words as text, exact both ways and independent of the locale.
namespace KrXmlText
{

/// Appends the shortest text that reads back as the same value ("inf", "-inf", "nan" for those).
void append(std::string& out, double value);
void append(std::string& out, float value);
void append(std::string& out, int value);
void append(std::string& out, unsigned int value);
void append(std::string& out, unsigned char value); ///< as a number
void append(std::string& out, bool value);          ///< "true", "false"
void append(std::string& out, const std::string& value);

/// Takes one white-space separated word off the front of `text`; false when it is not a value of the type.
/// A plus sign may stand before a number. A word that is out of the type's range is refused, but for one that is too
/// close to zero, which is zero. For a string the whole rest is taken.
bool take(std::string_view& text, double& value);
bool take(std::string_view& text, float& value);
bool take(std::string_view& text, int& value);
bool take(std::string_view& text, unsigned int& value);
bool take(std::string_view& text, unsigned char& value);
bool take(std::string_view& text, bool& value); ///< "true", "false", "1", "0"
bool take(std::string_view& text, std::string& value);

/// How KrXmlWriter::string writes what XML cannot hold: every byte of it, and every '%', as %XX.
constexpr const char* kPercent = "percent";
std::string encodePercent(std::string_view text);
/// The inverse, in place; false, and no change, when a '%' is not followed by two hexadecimal digits.
bool decodePercent(std::string& text);

/// Drops leading white space; true when nothing else is left.
bool atEnd(std::string_view& text);

} // namespace KrXmlText

/// Says that a plain value type `T` is written as numbers in a list instead of as an element of its own.
///
/// A specialisation sets `isPlain` and gives
/// `static void append(std::string&, const T&)` and `static bool take(std::string_view&, T&)`.
template <typename T, typename = void>
struct KrXmlPlain
{
    static constexpr bool isPlain = false;
};

/// Numbers and truth values.
template <typename T>
struct KrXmlPlain<T, std::enable_if_t<std::is_arithmetic_v<T>>>
{
    static constexpr bool isPlain = true;
    /// Of numbers and truth values: as KrXmlText does it.
    static void append(std::string& out, T value) { KrXmlText::append(out, value); }
    static bool take(std::string_view& text, T& value) { return KrXmlText::take(text, value); }
};
