#include <import/files/KrImportXml.h>

#include <import/files/KrImportPath.h>

#include <toolkit/foundation/private/KrText.h>
#include <toolkit/xml/KrXmlText.h>

#include <libxml/parser.h>
#include <libxml/xmlsave.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace
{

struct ParserDeleter
{
    void operator()(xmlParserCtxt* parser) const { xmlFreeParserCtxt(parser); }
};
/// Of the parser's context only: a document that it has made does not belong to it, and outlives it.
using UniqueParser = std::unique_ptr<xmlParserCtxt, ParserDeleter>;

/// libxml2 has a character type of its own, unsigned, for UTF-8.
const xmlChar* xml(const char* text)
{
    return reinterpret_cast<const xmlChar*>(text);
}

/// Absent text, null in libxml2, is empty here.
const char* plain(const xmlChar* text)
{
    return text ? reinterpret_cast<const char*>(text) : "";
}

/// Whether the element has this name, without a prefix. One with a prefix belongs to another vocabulary, whatever it is
/// called: simulators put theirs among ours.
bool isNamed(const xmlNode& node, const char* name)
{
    return node.name && std::strcmp(plain(node.name), name) == 0 && !(node.ns && node.ns->prefix);
}

/// Whether the XML declaration names an encoding other than UTF-8.
/// Such a declaration is believed; files that say nothing, or wrongly UTF-8, are looked at.
bool declaresEncoding(const std::string& content)
{
    // A declaration has some dozens of bytes; the bound keeps a file without "?>" from being copied whole.
    const std::string declaration = KrText::lowered(content.substr(0, std::min<std::size_t>(content.find("?>"), 200)));
    const std::size_t at = declaration.find("encoding");
    return content.compare(0, 5, "<?xml") == 0 && at != std::string::npos &&
           declaration.find("utf-8", at) == std::string::npos && declaration.find("utf8", at) == std::string::npos;
}

/// Comments, blanks and elements of other vocabularies are passed over by all readers.
/// @param name  null for any
bool isElement(const xmlNode& node, const char* name)
{
    return node.type == XML_ELEMENT_NODE && !(node.ns && node.ns->prefix) && (!name || isNamed(node, name));
}

/// Starts with the byte order mark of UTF-16, either way.
bool isWide(const std::string& content)
{
    return content.compare(0, 2, "\xFF\xFE") == 0 || content.compare(0, 2, "\xFE\xFF") == 0;
}

/// False with one clause in `why`. `accept` says whether a pipe is read: what a file names must be a regular file.
bool load(const std::string& path, KrInputFile::Accept accept, std::uint64_t maxBytes, std::string& content,
          std::string& why)
{
    // The parser counts in int.
    // Half of that, since Latin-1 text at most doubles as UTF-8.
    const std::uint64_t limit = std::min<std::uint64_t>(maxBytes, std::numeric_limits<int>::max() / 2);
    why = KrInputFile::readWhole(path, accept, limit, content);
    if (!why.empty()) {
        return false;
    }
    return true;
}

/// Entities can grow without bound and name files; no robot needs them. Long texts are read without the parser's own
/// guard against growth, so the first declaration ends the reading.
void stopAtEntity(void* context, const xmlChar*, int, const xmlChar*, const xmlChar*, xmlChar*)
{
    // Noted as well: a parser that was stopped looks like one that met a broken file.
    xmlParserCtxt* const parser = static_cast<xmlParserCtxt*>(context);
    *static_cast<bool*>(parser->_private) = true;
    xmlStopParser(parser);
}

/// What libxml2 calls with each piece of a text that it writes.
int appendTo(void* text, const char* bytes, int count)
{
    static_cast<std::string*>(text)->append(bytes, static_cast<std::size_t>(count));
    return count;
}

/// One clause, without the line end that libxml2 gives its messages.
std::string parserMessage(const xmlParserCtxt& parser)
{
    std::string message = parser.lastError.message ? parser.lastError.message : "not well-formed";
    while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) {
        message.pop_back();
    }
    return "it is no XML: line " + std::to_string(parser.lastError.line) + ": " + KrText::oneLine(message);
}

} // namespace

KrImportXml::UniqueDocument KrImportXml::read(const std::string& path, KrInputFile::Accept accept,
                                              std::uint64_t maxBytes, std::string& why, bool* isForeign)
{
    std::string content;
    return load(path, accept, maxBytes, content, why) ? parse(content, Text::Short, why, isForeign) : nullptr;
}

KrImportXml::UniqueDocument KrImportXml::parse(std::string& content, Text text, std::string& why, bool* isForeign)
{
    // A blank line before the XML declaration is a common slip that parsers refuse.
    content.erase(0, std::min(content.find_first_not_of(" \t\r\n"), content.size()));
    if (content.empty()) {
        why = "it is empty";
        return nullptr;
    }
    // Exporters write Latin-1 without saying so, and the parser would refuse the whole robot for one letter.
    if (!isWide(content) && !declaresEncoding(content) && !KrText::isUtf8(content)) {
        content = KrText::utf8(content);
        if (isForeign) {
            *isForeign = true;
        }
    }
    // The declaration of a UTF-8 file says nothing that is not known by now, and some exporters write it wrongly:
    // meshes are read in spite of that.
    if (text == Text::Long && content.compare(0, 5, "<?xml") == 0 && KrText::isUtf8(content)) {
        const std::size_t end = content.find("?>");
        content.erase(0, end == std::string::npos ? 0 : end + 2);
    }
    const UniqueParser parser(xmlNewParserCtxt());
    if (!parser || content.size() > std::numeric_limits<int>::max()) {
        why = parser ? "it is too large" : "out of memory";
        return nullptr;
    }
    bool hasEntities = false;
    parser->_private = &hasEntities;
    parser->sax->entityDecl = stopAtEntity;
    // Text on both sides of a comment becomes one piece, as every reader means it.
    parser->sax->comment = nullptr;
    parser->sax->processingInstruction = nullptr;
    // No network, nothing on the standard error, and lines beyond 65535 counted. What would load a DTD or replace
    // entities has options of its own, which are not set.
    const int options =
        // Without a piece of memory for each short text.
        XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_BIG_LINES | XML_PARSE_COMPACT |
        // A text may have 10 MB unless HUGE is set, and the numbers of a mesh have more. Without
        // CDATA nodes every text is of one kind.
        // Blanks between the elements of a mesh are half of the tree.
        (text == Text::Long ? XML_PARSE_HUGE | XML_PARSE_NOCDATA | XML_PARSE_NOBLANKS : 0);
    UniqueDocument document(
        xmlCtxtReadMemory(parser.get(), content.data(), static_cast<int>(content.size()), nullptr, nullptr, options));
    // First: whatever a parser that was stopped gives back, it is no whole document.
    if (hasEntities) {
        why = "it declares entities, which are not read";
        document.reset();
    } else if (!document) {
        why = parserMessage(*parser);
    }
    return document;
}

std::string KrImportXml::textOf(const xmlDoc& document, std::size_t sizeHint)
{
    std::string text;
    text.reserve(sizeHint);
    // From the root on: what stands before it, a document type too, is not written.
    xmlSaveCtxt* const writer = xmlSaveToIO(appendTo, nullptr, &text, "UTF-8", 0);
    if (writer) {
        xmlSaveTree(writer, xmlDocGetRootElement(&document));
        xmlSaveClose(writer);
    }
    return text;
}

std::string KrImportXml::nameOf(const xmlNode& node)
{
    // As the file writes it, which is what messages show.
    const std::string prefix = node.ns ? plain(node.ns->prefix) : "";
    return prefix.empty() ? plain(node.name) : prefix + ":" + plain(node.name);
}

std::vector<xmlNode*> KrImportXml::children(const xmlNode& node, const char* name)
{
    std::vector<xmlNode*> found;
    for (xmlNode* child = node.children; child; child = child->next) {
        if (isElement(*child, name)) {
            found.push_back(child);
        }
    }
    return found;
}

xmlNode* KrImportXml::child(const xmlNode& node, const char* name)
{
    xmlNode* child = node.children;
    while (child && !isElement(*child, name)) {
        child = child->next;
    }
    return child;
}

bool KrImportXml::attribute(const xmlNode& node, const char* name, std::string& value)
{
    // Most attributes are one piece of text, which is there already.
    for (const xmlAttr* attribute = node.properties; attribute; attribute = attribute->next) {
        const xmlNode* const text = attribute->children;
        if (!attribute->ns && text && !text->next && text->type == XML_TEXT_NODE && text->content &&
            xmlStrEqual(attribute->name, xml(name))) {
            value = plain(text->content);
            return true;
        }
    }
    if (!node.properties && !(node.doc && node.doc->intSubset)) {
        return false;
    }
    // Attributes with a prefix are another vocabulary's. The text is a copy that libxml2 wants back.
    xmlChar* const text = xmlGetNoNsProp(&node, xml(name));
    if (!text) {
        return false;
    }
    value = plain(text);
    xmlFree(text);
    return true;
}

std::string KrImportXml::attributeOf(const xmlNode& node, const char* name)
{
    std::string value;
    attribute(node, name, value);
    return value;
}

unsigned int KrImportXml::lineOf(const xmlNode& node)
{
    // libxml2 gives -1 where it knows no line; places take 0 for that.
    return static_cast<unsigned int>(std::max(0l, xmlGetLineNo(&node)));
}

std::string KrImportXml::textOf(const xmlNode& node)
{
    // Of everything inside, so that markup in a name does not cut it.
    xmlChar* const content = xmlNodeGetContent(&node);
    const std::string text = plain(content);
    xmlFree(content);
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

bool KrImportXml::numbers(const std::string& text, std::vector<double>& values)
{
    std::string spaced;
    std::string_view rest = text;
    // Commas between numbers are a common slip; as a decimal point nobody writes them in these files.
    if (text.find(',') != std::string::npos) {
        spaced = text;
        std::replace(spaced.begin(), spaced.end(), ',', ' ');
        rest = spaced;
    }
    std::vector<double> read;
    read.reserve(4); // most have 1, 3 or 4
    while (!KrXmlText::atEnd(rest)) {
        if (rest.front() == '+') {
            rest.remove_prefix(1);
        }
        double value = 0.0;
        // "nan" and "inf" are numbers to the reader, but nothing that a robot can have.
        if (!KrXmlText::take(rest, value) || !std::isfinite(value)) {
            return false;
        }
        read.push_back(value);
    }
    // Only now: a text that is not good to its end leaves the caller's list as it was.
    values = std::move(read);
    return true;
}

std::string KrImportXml::text(double value)
{
    std::string text;
    KrXmlText::append(text, value);
    return text;
}
