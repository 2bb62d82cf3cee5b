#include <import/files/KrPlainXml.h>

#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <array>

namespace
{

// What more than that is meant by, another reader may say.
constexpr std::size_t kMostAttributes = 64;
constexpr std::size_t kLongestName = 1000;
// As deep as that reader goes.
constexpr std::size_t kDeepest = 1000;
// A loop of a fixed length becomes instructions for many bytes at once.
constexpr std::size_t kBlock = 64;

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

constexpr bool isNameStart(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

/// By a table: names are half of some files.
bool isNamePart(char c)
{
    static constexpr auto kParts = [] {
        std::array<bool, 256> parts{};
        for (unsigned int byte = 0; byte < 128; ++byte) {
            const auto letter = static_cast<char>(byte);
            parts[byte] = isNameStart(letter) || (letter >= '0' && letter <= '9') || letter == '-' || letter == '.' ||
                          letter == ':';
        }
        return parts;
    }();
    return kParts[static_cast<unsigned char>(c)];
}

/// What ends a name that is known to be one.
bool isNameEnd(char c)
{
    return isSpace(c) || c == '/' || c == '>' || c == '=' || c == '<';
}

/// What other readers refuse in an attribute, or make blanks of.
bool hasOdd(std::string_view value)
{
    bool isOdd = false;
    // To the end: values are short.
    for (const char c : value) {
        isOdd |= (c == '<') | (c == '\t') | (c == '\n') | (c == '\r');
    }
    return isOdd;
}

/// No references and no characters that XML does not know.
bool hasPlainBytes(std::string_view text)
{
    const auto isBad = [](unsigned char c) -> unsigned char {
        return static_cast<unsigned char>((c < 0x20) & (c != '\t') & (c != '\n') & (c != '\r')) | (c == '&');
    };
    unsigned char bad = 0;
    unsigned char all = 0;
    std::size_t at = 0;
    for (; bad == 0 && text.size() - at >= kBlock; at += kBlock) {
        const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data()) + at;
        for (std::size_t i = 0; i < kBlock; ++i) {
            bad |= isBad(bytes[i]);
            all |= bytes[i];
        }
    }
    for (; bad == 0 && at < text.size(); ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        bad |= isBad(byte);
        all |= byte;
    }
    // The two numbers that UTF-8 can write and XML does not have both begin with EF BF.
    return bad == 0 && (all < 0x80 || (KrText::isUtf8(text) && text.find("\xEF\xBF") == std::string_view::npos));
}

} // namespace

bool KrPlainXml::read(std::string_view text, Origin origin)
{
    m_text = text;
    m_origin = origin;
    m_at = 0;
    m_open = none;
    m_depth = 0;
    m_elements.clear();
    m_attributes.clear();
    m_comments.clear();
    // The end of a section stands nowhere else in XML.
    if (origin == Origin::File && (!hasPlainBytes(text) || text.find("]]>") != std::string_view::npos)) {
        return false;
    }
    skipSpace();
    // What a declaration can say of a text that is UTF-8 is not listened to; some exporters write it wrongly.
    if (isNext("<?xml")) {
        const std::size_t end = m_text.find("?>", m_at);
        m_at = end == std::string_view::npos ? m_text.size() : end + 2;
    }
    while (m_at < m_text.size()) {
        const std::size_t tag = std::min(m_text.find('<', m_at), m_text.size());
        if (!takeText(tag)) {
            return false;
        }
        m_at = tag;
        if (m_at < m_text.size() && !takeTag()) {
            return false;
        }
    }
    return m_open == none && !m_elements.empty();
}

bool KrPlainXml::takeText(std::size_t end)
{
    const std::string_view piece = m_text.substr(m_at, end - m_at);
    std::size_t blanks = 0;
    while (blanks < piece.size() && isSpace(piece[blanks])) {
        ++blanks;
    }
    if (blanks == piece.size()) {
        return true;
    }
    // Text outside the root is no XML.
    if (m_open == none) {
        return false;
    }
    m_hasText = true;
    std::string_view& text = m_elements[m_open].text;
    text = text.empty() ? piece : text;
    return true;
}

bool KrPlainXml::takeTag()
{
    if (isNext("<!--")) {
        return takeComment();
    }
    m_hasText = false;
    return isNext("</") ? takeEndTag() : takeStartTag();
}

bool KrPlainXml::takeComment()
{
    const std::size_t end = m_text.find("--", m_at + 4);
    // Two dashes stand at the end of a comment only. Behind text it would cut that in two.
    if (m_hasText || end == std::string_view::npos || m_text.substr(end, 3) != "-->") {
        return false;
    }
    if (m_open != none) {
        m_comments.push_back({m_at, end + 3});
    }
    m_at = end + 3;
    return true;
}

bool KrPlainXml::takeStartTag()
{
    // One root. What begins otherwise (sections, instructions, types) has no name here.
    if (m_open == none && !m_elements.empty()) {
        return false;
    }
    Element element;
    element.begin = m_at++;
    element.parent = m_open;
    bool isEmpty = false;
    if (!takeName(element.name) || !takeAttributes(element, isEmpty) ||
        (++m_depth > kDeepest && m_origin == Origin::File)) {
        return false;
    }
    const auto number = static_cast<std::uint32_t>(m_elements.size());
    if (isEmpty) {
        element.endTag = m_at;
        element.end = m_at;
        element.next = number + 1;
        --m_depth;
    } else {
        m_open = number;
    }
    m_elements.push_back(element);
    return true;
}

bool KrPlainXml::takeAttributes(Element& element, bool& isEmpty)
{
    element.firstAttribute = static_cast<std::uint32_t>(m_attributes.size());
    for (;;) {
        const std::size_t behind = m_at;
        skipSpace();
        isEmpty = isNext("/>");
        if (isEmpty || isNext(">")) {
            m_at += isEmpty ? 2 : 1;
            return true;
        }
        Attribute attribute;
        // White space stands before each of them.
        const bool isOneMore = element.numAttributes < kMostAttributes || m_origin == Origin::Writer;
        if (m_at == behind || !isOneMore || !takeName(attribute.name)) {
            return false;
        }
        skipSpace();
        if (!isNext("=")) {
            return false;
        }
        ++m_at;
        skipSpace();
        const char quote = m_at < m_text.size() ? m_text[m_at] : '\0';
        const std::size_t end = quote == '"' || quote == '\'' ? m_text.find(quote, m_at + 1) : std::string_view::npos;
        if (end == std::string_view::npos) {
            return false;
        }
        attribute.value = m_text.substr(m_at + 1, end - m_at - 1);
        m_at = end + 1;
        // Readers make blanks of line ends and tabs. The writer makes references of them, and no attribute twice.
        if (m_origin == Origin::File && (hasOdd(attribute.value) || this->attribute(element, attribute.name))) {
            return false;
        }
        m_attributes.push_back(attribute);
        ++element.numAttributes;
    }
}

bool KrPlainXml::takeEndTag()
{
    // The name may be that of the open element and nothing else.
    if (m_open == none) {
        return false;
    }
    Element& element = m_elements[m_open];
    element.endTag = m_at;
    m_at += 2;
    if (!isNext(element.name)) {
        return false;
    }
    m_at += element.name.size();
    skipSpace();
    if (!isNext(">")) {
        return false;
    }
    element.end = ++m_at;
    element.next = static_cast<std::uint32_t>(m_elements.size());
    m_open = element.parent;
    --m_depth;
    return true;
}

bool KrPlainXml::takeName(std::string_view& name)
{
    // Loops instead of functions of the library: names are half of some files, and those take a call for each letter.
    std::size_t end = m_at;
    bool hasColon = false;
    if (m_origin == Origin::Writer) {
        // Letters of all languages: the reader of all XML has looked at them.
        while (end < m_text.size() && !isNameEnd(m_text[end])) {
            ++end;
        }
    } else if (end < m_text.size() && isNameStart(m_text[end])) {
        while (end < m_text.size() && isNamePart(m_text[end])) {
            hasColon |= m_text[end++] == ':';
        }
    }
    name = m_text.substr(m_at, end - m_at);
    m_at = end;
    // A prefix and a name, each of a letter at least; what else a colon may mean is a matter of taste.
    const std::size_t colon = hasColon ? name.find(':') : std::string_view::npos;
    const bool isQualified =
        !hasColon || (colon + 1 < name.size() && isNameStart(name[colon + 1]) && colon == name.rfind(':'));
    return !name.empty() && (m_origin == Origin::Writer || (name.size() <= kLongestName && isQualified));
}

void KrPlainXml::skipSpace()
{
    while (m_at < m_text.size() && isSpace(m_text[m_at])) {
        ++m_at;
    }
}

const KrPlainXml::Attribute* KrPlainXml::attribute(const Element& element, std::string_view name) const
{
    const Attribute* const first = m_attributes.data() + element.firstAttribute;
    for (const Attribute* found = first; found != first + element.numAttributes; ++found) {
        // Most are told apart by their length or first letter.
        if (found->name.size() == name.size() && !name.empty() && found->name[0] == name[0] && found->name == name) {
            return found;
        }
    }
    return nullptr;
}

std::string_view KrPlainXml::attributeOf(const Element& element, std::string_view name) const
{
    const Attribute* const found = attribute(element, name);
    return found ? found->value : std::string_view();
}
