#include <import/KrMeshPlausibility.h>

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace
{

// No real file comes near: a vertex has a handful of attributes.
constexpr std::uint64_t kMaxPlaces = 256;
// Of one attribute; a glTF file can ask for zeros that it does not hold.
constexpr std::uint64_t kMaxElements = 60u << 20;

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && isSpace(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}

/// The whole number at the start of `text`; the largest one for a negative or an overlong one, 0 for none.
std::uint64_t numberAt(std::string_view text)
{
    text = trimmed(text);
    if (!text.empty() && text.front() == '-') {
        return UINT64_MAX;
    }
    std::uint64_t number = 0;
    const std::from_chars_result result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc::result_out_of_range ? UINT64_MAX : number;
}

/// The highest number that follows `word` and `separator`, perhaps with a quote and white space between.
std::uint64_t highestAfter(std::string_view content, std::string_view word, char separator)
{
    std::uint64_t highest = 0;
    for (std::size_t at = content.find(word); at != std::string_view::npos; at = content.find(word, at + 1)) {
        std::string_view rest = trimmed(content.substr(at + word.size()));
        if (rest.empty() || rest.front() != separator) {
            continue;
        }
        rest = trimmed(rest.substr(1));
        if (!rest.empty() && (rest.front() == '"' || rest.front() == '\'')) {
            rest.remove_prefix(1);
        }
        highest = std::max(highest, numberAt(rest));
    }
    return highest;
}

bool isIndexText(char c)
{
    return (c >= '0' && c <= '9') || c == '-' || isSpace(c);
}

/// Whether all elements `tag` ("<p") hold whole numbers only.
bool holdsIndices(std::string_view content, std::string_view tag)
{
    for (std::size_t at = content.find(tag); at != std::string_view::npos; at = content.find(tag, at + 1)) {
        const std::string_view rest = content.substr(at + tag.size());
        if (rest.empty() || (rest.front() != '>' && !isSpace(rest.front()))) {
            continue;
        }
        const std::size_t begin = std::min(rest.find('>'), rest.size() - 1) + 1;
        const std::string_view text = rest.substr(begin, std::min(rest.find('<', begin), rest.size()) - begin);
        if (!std::all_of(text.begin(), text.end(), isIndexText)) {
            return false;
        }
    }
    return true;
}

/// Whether no input of a list of primitives claims a place that no list has.
bool areInputsSmall(std::string_view content)
{
    for (std::size_t at = content.find("<input"); at != std::string_view::npos; at = content.find("<input", at + 1)) {
        const std::string_view rest = content.substr(at);
        const std::string_view element = rest.substr(0, rest.find('>'));
        if (highestAfter(element, "offset", '=') > kMaxPlaces || highestAfter(element, "set", '=') > kMaxPlaces) {
            return false;
        }
    }
    return true;
}

bool checkCollada(std::string_view content, std::string& why)
{
    if (highestAfter(content, "stride", '=') > kMaxPlaces || !areInputsSmall(content)) {
        why = "a stride or an offset in it is far too high";
        return false;
    }
    // Text of at least two characters stands for each value.
    if (highestAfter(content, "count", '=') > content.size() || highestAfter(content, "offset", '=') > content.size()) {
        why = "it declares more values than a file of its size can hold";
        return false;
    }
    for (const char* const tag : {"<p", "<h", "<v", "<vcount"}) {
        if (!holdsIndices(content, tag)) {
            why = std::string("there is something else than indices in an element ") + tag + ">";
            return false;
        }
    }
    return true;
}

/// Whether a word of `text` is a whole number above `limit`.
bool holdsNumberAbove(std::string_view text, std::uint64_t limit)
{
    while (!(text = trimmed(text)).empty()) {
        const std::size_t end = std::min(text.find_first_of(" \t\r\n"), text.size());
        const std::string_view word = text.substr(0, end);
        const bool isWhole = word.find_first_not_of("0123456789") == std::string_view::npos;
        if (isWhole && word.size() > 8 && numberAt(word) > limit) {
            return true;
        }
        text.remove_prefix(end);
    }
    return false;
}

bool checkPly(std::string_view content, std::string& why)
{
    const std::string_view header = content.substr(0, std::min(content.find("end_header"), content.size()));
    for (std::size_t at = header.find("element "); at != std::string_view::npos; at = header.find("element ", at + 1)) {
        const std::string_view rest = trimmed(header.substr(at + 8));
        if (numberAt(rest.substr(std::min(rest.find(' '), rest.size()))) > content.size()) {
            why = "it declares more elements than a file of its size can hold";
            return false;
        }
    }
    // In a text file the length of a list may be any number, and coordinates stand beside it.
    const std::uint64_t limit = std::max<std::uint64_t>(content.size(), kMaxElements);
    if (header.find("format ascii") != std::string_view::npos &&
        holdsNumberAbove(content.substr(header.size()), limit)) {
        why = "it holds a list longer than can be read";
        return false;
    }
    return true;
}

bool checkOff(std::string_view content, std::string& why)
{
    std::string_view rest = content.substr(std::min(content.find_first_of(" \t\r\n"), content.size()));
    for (unsigned int i = 0; i < 2; ++i) {
        rest = trimmed(rest);
        if (numberAt(rest) > content.size()) {
            why = "it declares more elements than a file of its size can hold";
            return false;
        }
        rest.remove_prefix(std::min(rest.find_first_of(" \t\r\n"), rest.size()));
    }
    return true;
}

} // namespace

bool KrMeshPlausibility::check(std::string_view content, const std::string& extension, std::string& why)
{
    if (extension == "dae") {
        return checkCollada(content, why);
    }
    if (extension == "ply") {
        return checkPly(content, why);
    }
    if (extension == "off") {
        return checkOff(content, why);
    }
    if (concerns(extension) && highestAfter(content, "\"count\"", ':') > kMaxElements) {
        why = "it declares more values than can be read";
        return false;
    }
    return true;
}

bool KrMeshPlausibility::concerns(const std::string& extension)
{
    return extension == "dae" || extension == "ply" || extension == "off" || extension == "gltf" || extension == "glb";
}
