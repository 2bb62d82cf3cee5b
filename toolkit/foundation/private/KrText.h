#pragma once

#include <toolkit/foundation/KrLimits.h>

#include <cstddef>
#include <string>
#include <string_view>

/// Text that came from outside, made fit to be printed or kept.
namespace KrText
{

/// The length of the UTF-8 character at the start of `text` (RFC 3629, section 4); 0 when there is none.
std::size_t utf8Length(std::string_view text);
bool isUtf8(std::string_view text);

/// `text` as UTF-8: as it is when it is that already, else its bytes are read as Latin-1.
std::string utf8(std::string_view text);

/// `text` as UTF-8 for a message: at most `longest` bytes, the middle of a longer one left out, on one line.
///
/// Control characters become spaces, what is left out becomes "...", and what XML has no character for U+FFFD: the
/// result is fit to be a name, too.
/// @param longest  at least 8
std::string oneLine(std::string_view text, std::size_t longest = Kr::Limits::kMessageName);

/// `text` without the white space (blanks, tabs, line ends) around it: a part of it.
std::string_view trimmed(std::string_view text);

/// `text` with the letters A to Z as small ones, whatever the locale.
std::string lowered(std::string_view text);

} // namespace KrText
