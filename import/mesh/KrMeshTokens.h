#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Words, lines and numbers of a mesh file's text. Blanks, tabs and line ends stand between words; text is borrowed.
namespace KrMeshTokens
{

/// In these formats, whatever the locale says.
inline bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

/// How many words there are in a text of XML, where other control characters than white space do not stand.
std::uint64_t numWords(std::string_view text);
/// Whether there is nothing but digits, minus signs and white space in a text of XML.
bool areIndices(std::string_view text);
/// Takes one word off the front of `text`, and the white space before it; empty at the end.
std::string_view takeWord(std::string_view& text);
/// Takes the rest of the line off the front of `text`, its end included; false when nothing is left.
bool takeLine(std::string_view& text, std::string_view& line);
/// Whether `word` is nothing but digits, of a number up to `limit`.
bool isCount(std::string_view word, std::uint64_t limit, std::uint64_t& number);
/// Takes one word off the front of `text` when it is a number, a NaN among them; else false, and no change.
bool takeNumber(std::string_view& text, double& number);
/// The most that putNumber() writes, bytes.
constexpr std::size_t kNumberBytes = 32;
/// As appendNumber(), to a place of kNumberBytes. @return its end
char* putNumber(char* to, double number);
/// Appends what reads back as the same single precision number: digits, or "nan" for what has no such number.
void appendNumber(std::string& text, double number);

/// Sets the reason; false, so that a check ends with `return refuse(why, ...)`.
bool refuse(std::string& why, const std::string& reason);

} // namespace KrMeshTokens
