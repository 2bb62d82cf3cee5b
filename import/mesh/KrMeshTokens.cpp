#include <import/mesh/KrMeshTokens.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace
{

// Loops of a fixed length become instructions for many letters at once, as long as there is no branch in them and no
// list of letters, which would be looked up in a table of bits, one by one. XML has no control characters but white
// space, so that one comparison finds that.
constexpr std::size_t kBlock = 64;

/// 0 for a digit, a minus sign and white space.
unsigned char strangeness(unsigned char letter)
{
    auto digit = static_cast<unsigned char>(letter - '0');
    digit = letter == '-' ? 0 : digit;
    digit = letter <= ' ' ? 0 : digit;
    return static_cast<unsigned char>(digit > 9);
}

} // namespace

std::uint64_t KrMeshTokens::numWords(std::string_view text)
{
    if (text.empty()) {
        return 0;
    }
    // A word begins at every letter that has a blank before it.
    const auto* const letters = reinterpret_cast<const unsigned char*>(text.data());
    const auto begins = [](unsigned char before, unsigned char letter) {
        return static_cast<unsigned char>((letter > ' ') & (before <= ' '));
    };
    std::uint64_t count = begins(' ', letters[0]);
    std::size_t at = 1;
    for (; text.size() - at >= kBlock; at += kBlock) {
        const unsigned char* const here = letters + at;
        const unsigned char* const before = here - 1;
        unsigned char words = 0;
        for (std::size_t i = 0; i < kBlock; ++i) {
            words += begins(before[i], here[i]);
        }
        count += words;
    }
    for (; at < text.size(); ++at) {
        count += begins(letters[at - 1], letters[at]);
    }
    return count;
}

bool KrMeshTokens::areIndices(std::string_view text)
{
    const auto* const letters = reinterpret_cast<const unsigned char*>(text.data());
    unsigned char strange = 0;
    std::size_t at = 0;
    for (; strange == 0 && text.size() - at >= kBlock; at += kBlock) {
        const unsigned char* const here = letters + at;
        for (std::size_t i = 0; i < kBlock; ++i) {
            strange |= strangeness(here[i]);
        }
    }
    for (; strange == 0 && at < text.size(); ++at) {
        strange |= strangeness(letters[at]);
    }
    return strange == 0;
}

std::string_view KrMeshTokens::takeWord(std::string_view& text)
{
    std::size_t begin = 0;
    while (begin < text.size() && isSpace(text[begin])) {
        ++begin;
    }
    std::size_t end = begin;
    while (end < text.size() && !isSpace(text[end])) {
        ++end;
    }
    // A view into the text: files of many megabytes are not copied by words.
    const std::string_view word = text.substr(begin, end - begin);
    text.remove_prefix(end);
    return word;
}

bool KrMeshTokens::takeLine(std::string_view& text, std::string_view& line)
{
    if (text.empty()) {
        return false;
    }
    // All three kinds of line ends, in one file too.
    std::size_t end = 0;
    // Letter by letter: lines are short, and a search for two letters begins anew for each letter.
    while (end < text.size() && text[end] != '\n' && text[end] != '\r') {
        ++end;
    }
    line = text.substr(0, end);
    const bool isPair = text.substr(end, 2) == "\r\n";
    text.remove_prefix(std::min(end + (isPair ? 2 : 1), text.size()));
    return true;
}

bool KrMeshTokens::isCount(std::string_view word, std::uint64_t limit, std::uint64_t& number)
{
    const char* const end = word.data() + word.size();
    // from_chars takes "-0" and stops at "12x"; neither is a count.
    const bool isDigits =
        !word.empty() && std::all_of(word.begin(), word.end(), [](char c) { return c >= '0' && c <= '9'; });
    return isDigits && std::from_chars(word.data(), end, number).ec == std::errc() && number <= limit;
}

bool KrMeshTokens::takeNumber(std::string_view& text, double& number)
{
    std::string_view rest = text;
    std::string_view word = takeWord(rest);
    // from_chars knows no plus sign.
    if (!word.empty() && word.front() == '+') {
        word.remove_prefix(1);
    }
    double value = 0.0;
    const std::from_chars_result end = std::from_chars(word.data(), word.data() + word.size(), value);
    if (word.empty() || end.ptr != word.data() + word.size() || end.ec == std::errc::invalid_argument) {
        return false;
    }
    number = value; // 0 for what is out of range: hardly anything but far too small is written
    text = rest;
    return true;
}

char* KrMeshTokens::putNumber(char* to, double number)
{
    // Written so that NaN fails too. The mesh library reads single precision, and a number beyond it in its own way.
    if (!(std::abs(number) <= std::numeric_limits<float>::max())) {
        return std::copy_n("nan", 3, to);
    }
    // The shortest text of a float that reads back as the same one has half as many letters at most.
    return std::to_chars(to, to + kNumberBytes, static_cast<float>(number)).ptr;
}

void KrMeshTokens::appendNumber(std::string& text, double number)
{
    char digits[kNumberBytes];
    text.append(digits, putNumber(digits, number));
}

bool KrMeshTokens::refuse(std::string& why, const std::string& reason)
{
    why = reason;
    return false;
}
