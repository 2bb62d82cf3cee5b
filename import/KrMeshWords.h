#pragma once

#include <cstdint>
#include <string_view>

/// Words and lines of a mesh file's text.
namespace KrMeshWords
{

std::string_view trimmed(std::string_view text);
/// Takes one word off the front of `text`; empty at the end.
std::string_view takeWord(std::string_view& text);
/// Takes the rest of the line off the front of `text`, its end included; false when nothing is left.
bool takeLine(std::string_view& text, std::string_view& line);
/// Whether `word` is nothing but digits, of a number up to `limit`.
bool isCount(std::string_view word, std::uint64_t limit, std::uint64_t& number);

} // namespace KrMeshWords
