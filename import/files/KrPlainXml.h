#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

/// An XML document without anything that needs interpreting, as a list of elements that point into its text.
///
/// Plain are elements, attributes, texts and comments: no references, sections, instructions, types of documents or
/// control characters, no text that a comment cuts in two. Every reader of XML sees the same in such a text, so it can
/// be looked at here and handed to another reader as it stands. Nearly all files are; one that is not goes to
/// KrImportXml, whose reader knows all of XML and has the words for what is wrong.
class KrPlainXml
{
public:
    static constexpr std::uint32_t none = UINT32_MAX;

    enum class Origin
    {
        File,  ///< anything: what is not plain, or no XML at all, is refused
        Writer ///< KrImportXml::textOf(): well-formed; characters may be references, each in one way only
    };
    struct Attribute
    {
        std::string_view name; ///< as it stands in the text, with its prefix
        std::string_view value;
    };
    /// Offsets are those of bytes in the text.
    struct Element
    {
        std::string_view name;  ///< as it stands in the text, with its prefix: one with a prefix has none of our names
        std::string_view text;  ///< the first piece between two tags inside it that is not blank
        std::size_t begin = 0;  ///< of its start tag
        std::size_t endTag = 0; ///< where its end tag begins; `end` where it has none
        std::size_t end = 0;
        std::uint32_t parent = none;
        std::uint32_t next = 0; ///< the first element behind it that is not inside
        std::uint32_t firstAttribute = 0;
        std::uint32_t numAttributes = 0;
        bool isCalled(std::string_view word) const { return name == word; }
    };
    struct Range
    {
        std::size_t begin = 0;
        std::size_t end = 0;
    };

    /// @param text  borrowed for as long as the document is looked at
    /// @return false for what is not plain; the document is of no use then
    bool read(std::string_view text, Origin origin);

    /// In the order of the text; the first one is the root.
    const std::vector<Element>& elements() const { return m_elements; }
    /// Those inside the root.
    const std::vector<Range>& comments() const { return m_comments; }
    /// Null when the element has no such attribute.
    const Attribute* attribute(const Element& element, std::string_view name) const;
    /// Empty when the element has no such attribute.
    std::string_view attributeOf(const Element& element, std::string_view name) const;
    /// Where a piece of the text begins in it.
    std::size_t offsetOf(std::string_view piece) const
    {
        return static_cast<std::size_t>(piece.data() - m_text.data());
    }

private:
    bool takeTag();
    bool takeStartTag();
    bool takeEndTag();
    bool takeComment();
    bool takeText(std::size_t end);
    bool takeAttributes(Element& element, bool& isEmpty);
    bool takeName(std::string_view& name);
    void skipSpace();
    bool isNext(std::string_view word) const
    {
        // Of a word that is known here this becomes one comparison, without a call.
        return m_text.size() - m_at >= word.size() && std::memcmp(m_text.data() + m_at, word.data(), word.size()) == 0;
    }

    std::string_view m_text;
    Origin m_origin = Origin::File;
    std::size_t m_at = 0;
    std::uint32_t m_open = none; ///< the innermost element without an end so far
    std::size_t m_depth = 0;
    bool m_hasText = false; ///< since the last tag
    std::vector<Element> m_elements;
    std::vector<Attribute> m_attributes;
    std::vector<Range> m_comments;
};
