#include <toolkit/xml/KrXmlText.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <locale>
#include <sstream>
#include <type_traits>
#include <utility>

namespace
{

// A loop and not find_first_of: these run for every number of a mesh.
bool isSpace(char c)
{
    return c == ' ' || c == '\n' || c == '\t' || c == '\r';
}

// The four characters that XML counts as white space.
void dropSpace(std::string_view& text)
{
    std::size_t start = 0;
    while (start < text.size() && isSpace(text[start])) {
        ++start;
    }
    text.remove_prefix(start);
}

// Up to the next white space; empty at the end.
std::string_view takeWord(std::string_view& text)
{
    dropSpace(text);
    std::size_t end = 0;
    while (end < text.size() && !isSpace(text[end])) {
        ++end;
    }
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(end);
    return word;
}

// By to_chars: no locale, and the shortest text that is read back as the same number. 64 characters hold any of them.
template <typename T>
void appendNumber(std::string& out, T value)
{
    char text[64];
    out.append(text, std::to_chars(text, text + sizeof text, value).ptr);
}

template <typename T>
void appendReal(std::string& out, T value)
{
    // The sign of a NaN says nothing.
    appendNumber(out, std::isnan(value) ? std::numeric_limits<T>::quiet_NaN() : value);
}

/// Whether a number that is out of range is one that stands for zero; from_chars does not tell.
template <typename T>
// By its size below 1: what is out of range and below 1 can only be too small.
bool isTooSmall(std::string_view word)
{
    if constexpr (std::is_floating_point_v<T>) {
        // Rare and slow, so only asked for numbers that are out of range; the stream reads them as 0 or as a denormal.
        std::istringstream stream{std::string(word)};
        stream.imbue(std::locale::classic());
        T number{};
        return (stream >> number) && std::abs(number) < T(1);
    }
    return false;
}

template <typename T>
// One word, whole: "1.5m" is no number.
bool takeNumber(std::string_view& text, T& value)
{
    std::string_view word = takeWord(text);
    // XML schema allows a plus sign, which from_chars does not know.
    // "+-1" is no number.
    if (word.size() > 1 && word[0] == '+' && word[1] != '-') {
        word.remove_prefix(1);
    }
    T number{};
    const char* const end = word.data() + word.size();
    const std::from_chars_result result = std::from_chars(word.data(), end, number);
    // Too small for the type is as good as 0; too large is refused.
    const bool isOutside = result.ec == std::errc::result_out_of_range && !isTooSmall<T>(word);
    if (word.empty() || result.ec == std::errc::invalid_argument || isOutside || result.ptr != end) {
        return false;
    }
    // On failure the value stays as it was.
    value = number;
    return true;
}

template <typename T>
// As takeNumber, with the special values "inf", "-inf" and "nan".
bool takeReal(std::string_view& text, T& value)
{
    dropSpace(text);
    // from_chars would take "nan(...)" too.
    // A number that is none is written "nan"; the brackets are an addition of C.
    const std::size_t sign = !text.empty() && (text.front() == '-' || text.front() == '+') ? 1 : 0;
    const bool mayHaveBrackets = text.size() > sign && (text[sign] == 'n' || text[sign] == 'N');
    std::string_view rest = text;
    if (mayHaveBrackets && takeWord(rest).find('(') != std::string_view::npos) {
        return false;
    }
    return takeNumber(text, value);
}

} // namespace

void KrXmlText::append(std::string& out, double value)
{
    appendReal(out, value);
}

void KrXmlText::append(std::string& out, float value)
{
    appendReal(out, value);
}

void KrXmlText::append(std::string& out, int value)
{
    appendNumber(out, value);
}

void KrXmlText::append(std::string& out, unsigned int value)
{
    appendNumber(out, value);
}

void KrXmlText::append(std::string& out, unsigned char value)
{
    // As a number: a char would be taken for a character.
    appendNumber(out, static_cast<unsigned int>(value));
}

// Of the spellings that are read, the one that people understand.
void KrXmlText::append(std::string& out, bool value)
{
    out += value ? "true" : "false";
}

void KrXmlText::append(std::string& out, const std::string& value)
{
    out += value;
}

bool KrXmlText::take(std::string_view& text, double& value)
{
    return takeReal(text, value);
}

bool KrXmlText::take(std::string_view& text, float& value)
{
    return takeReal(text, value);
}

bool KrXmlText::take(std::string_view& text, int& value)
{
    return takeNumber(text, value);
}

bool KrXmlText::take(std::string_view& text, unsigned int& value)
{
    return takeNumber(text, value);
}

bool KrXmlText::take(std::string_view& text, unsigned char& value)
{
    // from_chars reads a char as a character, so a larger type is read and checked.
    unsigned int number = 0;
    if (!takeNumber(text, number) || number > std::numeric_limits<unsigned char>::max()) {
        return false;
    }
    value = static_cast<unsigned char>(number);
    return true;
}

bool KrXmlText::take(std::string_view& text, bool& value)
{
    const std::string_view word = takeWord(text);
    // The four spellings of xs:boolean.
    const bool isTrue = word == "true" || word == "1";
    if (!isTrue && word != "false" && word != "0") {
        return false;
    }
    value = isTrue;
    return true;
}

bool KrXmlText::take(std::string_view& text, std::string& value)
{
    // A text is all that is left, blanks included.
    value.assign(text);
    text = std::string_view();
    return true;
}

std::string KrXmlText::encodePercent(std::string_view text)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string result;
    // As in RFC 3986, section 2.1; '%' itself is encoded, so that the way back is clear.
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        // Which of the bytes beyond ASCII are at fault is not looked for: the whole text is no UTF-8.
        if (byte < 0x20 || byte > 0x7e || c == '%') {
            result += {'%', kDigits[byte / 16], kDigits[byte % 16]};
        } else {
            result += c;
        }
    }
    return result;
}

// In a text of its own: one that is no such text stays as it was.
bool KrXmlText::decodePercent(std::string& text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result += text[i];
            continue;
        }
        unsigned int byte = 0;
        const char* const digits = text.data() + i + 1;
        // Exactly two digits, of either case.
        if (text.size() - i < 3 || std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) {
            return false;
        }
        result += static_cast<char>(byte);
        i += 2;
    }
    text = std::move(result);
    return true;
}

// White space behind the last value is nothing.
bool KrXmlText::atEnd(std::string_view& text)
{
    dropSpace(text);
    return text.empty();
}
