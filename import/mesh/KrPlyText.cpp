#include <import/mesh/KrPlyText.h>

#include <import/mesh/KrMeshTokens.h>

#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <utility>
#include <vector>

namespace
{

using KrMeshTokens::isCount;
using KrMeshTokens::refuse;
using KrMeshTokens::takeLine;
using KrMeshTokens::takeWord;
using KrText::trimmed;

/// The next line that holds a word.
bool takeFilledLine(std::string_view& text, std::string_view& line)
{
    while (takeLine(text, line)) {
        if (!trimmed(line).empty()) {
            return true;
        }
    }
    return false;
}

/// The next word as a whole number up to `limit`.
bool takeCount(std::string_view& text, std::uint64_t limit, std::uint64_t& number)
{
    return isCount(takeWord(text), limit, number);
}

/// Walks a PLY file by its own header.
class PlyCheck
{
public:
    explicit PlyCheck(std::string_view content)
        : m_rest(content)
        , m_size(content.size())
    {
    }

    bool run(std::string& why);

private:
    struct Property
    {
        std::size_t countBytes = 0; ///< of a list's length; 0 when it is no list
        std::size_t bytes = 0;
    };
    struct Element
    {
        std::string_view name;
        std::uint64_t count = 0;
        std::vector<Property> properties;
    };

    bool readHeader(std::string& why);
    bool readProperty(std::string_view line);
    bool takeTextElement(const Element& element);
    bool takeBinaryElement(const Element& element);

    std::string_view m_rest;
    std::uint64_t m_size;
    bool m_isText = false;
    bool m_isBigEndian = false;
    std::vector<Element> m_elements;
};

/// The bytes of a number of a PLY type; 0 for an unknown one.
std::size_t plyBytes(std::string_view type)
{
    static const std::pair<std::string_view, std::size_t> kTypes[] = {
        {"char", 1},   {"int8", 1},    {"uchar", 1},  {"uint8", 1},   {"short", 2}, {"int16", 2},
        {"ushort", 2}, {"uint16", 2},  {"int", 4},    {"int32", 4},   {"uint", 4},  {"uint32", 4},
        {"float", 4},  {"float32", 4}, {"double", 8}, {"float64", 8},
    };
    const auto isIt = [type](const auto& entry) { return entry.first == type; };
    const auto place = std::find_if(std::begin(kTypes), std::end(kTypes), isIt);
    return place == std::end(kTypes) ? 0 : place->second;
}

bool PlyCheck::run(std::string& why)
{
    if (!readHeader(why)) {
        return false;
    }
    // What stands behind the last element is read by nobody.
    for (const Element& element : m_elements) {
        if (!(m_isText ? takeTextElement(element) : takeBinaryElement(element))) {
            return refuse(why, "it holds fewer values than its header declares, or something else than numbers");
        }
    }
    return true;
}

bool PlyCheck::readHeader(std::string& why)
{
    std::string_view line;
    takeLine(m_rest, line);
    while (takeFilledLine(m_rest, line)) {
        // Before it is taken apart: the message shows the line.
        const std::string whole(line.substr(0, 60));
        const std::string_view word = takeWord(line);
        bool isGood = true;
        if (word == "end_header") {
            return true;
        }
        if (word == "format") {
            const std::string_view format = takeWord(line);
            m_isText = format == "ascii";
            m_isBigEndian = format == "binary_big_endian";
            isGood = m_isText || m_isBigEndian || format == "binary_little_endian";
        } else if (word == "element") {
            const std::string_view name = takeWord(line);
            // The library makes its arrays for the last one of a name and fills them for each.
            isGood = !name.empty() && std::none_of(m_elements.begin(), m_elements.end(),
                                                   [name](const Element& known) { return known.name == name; });
            m_elements.emplace_back();
            m_elements.back().name = name;
            // An element takes a byte at least, but for one without properties, which the library counts all the same.
            isGood = isGood && takeCount(line, m_size, m_elements.back().count);
        } else if (word == "property") {
            isGood = readProperty(line);
        } else {
            // A header has no other words: what a reader makes of them is not tried out.
            isGood = word == "comment" || word == "obj_info";
        }
        if (!isGood) {
            return refuse(why, "its header has the line \"" + whole + "\"");
        }
    }
    return refuse(why, "its header does not end");
}

bool PlyCheck::readProperty(std::string_view line)
{
    if (m_elements.empty()) {
        return false;
    }
    Property property;
    std::string_view type = takeWord(line);
    if (type == "list") {
        const std::string_view countType = takeWord(line);
        property.countBytes = plyBytes(countType);
        // A length is a whole number.
        if (property.countBytes == 0 || countType.front() == 'f' || countType.front() == 'd') {
            return false;
        }
        type = takeWord(line);
    }
    // Added also when it is no good: the header is refused then as a whole.
    property.bytes = plyBytes(type);
    m_elements.back().properties.push_back(property);
    return property.bytes > 0 && !takeWord(line).empty();
}

bool PlyCheck::takeTextElement(const Element& element)
{
    for (std::uint64_t i = 0; i < element.count; ++i) {
        std::string_view line;
        if (!takeFilledLine(m_rest, line)) {
            return false;
        }
        for (const Property& property : element.properties) {
            std::uint64_t numbers = 1;
            // A list cannot be longer than its line.
            if (property.countBytes > 0 && !takeCount(line, line.size(), numbers)) {
                return false;
            }
            for (; numbers > 0; --numbers) {
                if (takeWord(line).empty()) {
                    return false;
                }
            }
        }
    }
    return true;
}

bool PlyCheck::takeBinaryElement(const Element& element)
{
    const auto isList = [](const Property& property) { return property.countBytes > 0; };
    std::uint64_t bytes = 0;
    for (const Property& property : element.properties) {
        bytes += property.bytes;
    }
    // Without lists the size is known at once: millions of vertices are not walked.
    if (std::none_of(element.properties.begin(), element.properties.end(), isList)) {
        // No overflow: the size of the file bounds both factors.
        bytes *= element.count;
        const bool isThere = bytes <= m_rest.size();
        m_rest.remove_prefix(isThere ? static_cast<std::size_t>(bytes) : 0);
        return isThere;
    }
    for (std::uint64_t i = 0; i < element.count; ++i) {
        for (const Property& property : element.properties) {
            std::uint64_t numbers = property.countBytes > 0 ? 0 : 1;
            if (m_rest.size() < property.countBytes) {
                return false;
            }
            // The count of a list first, in the byte order of the file.
            for (std::size_t k = 0; k < property.countBytes; ++k) {
                const std::size_t place = m_isBigEndian ? k : property.countBytes - 1 - k;
                numbers = numbers << 8 | static_cast<unsigned char>(m_rest[place]);
            }
            m_rest.remove_prefix(property.countBytes);
            // Fewer than 2^32 numbers of eight bytes: no overflow. A negative count is a large one here.
            if (numbers * property.bytes > m_rest.size()) {
                return false;
            }
            m_rest.remove_prefix(static_cast<std::size_t>(numbers) * property.bytes);
        }
    }
    return true;
}

} // namespace

bool KrPlyText::check(std::string_view content, std::string& why)
{
    return PlyCheck(content).run(why);
}
