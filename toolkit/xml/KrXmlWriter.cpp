#include <toolkit/xml/KrXmlWriter.h>

#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/xml/KrXmlText.h>

#include <libxml/xmlwriter.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace
{

// The library makes an escaped copy of what it is given; pieces keep that small.
constexpr std::size_t kPieceSize = 1 << 20;
/// Of deeper elements every line would begin with a longer blank: a file that grows with the square of its depth.
constexpr std::size_t kIndentedLevels = 64;

struct TextWriterDeleter
{
    void operator()(xmlTextWriter* writer) const { xmlFreeTextWriter(writer); }
};

// The callback of libxml2's output, which is C: no exception may pass.
int writeToStream(void* context, const char* data, int length)
{
    std::ostream& stream = *static_cast<std::ostream*>(context);
    try {
        stream.write(data, length);
    } catch (...) {
        // The stream's own state tells the same.
    }
    // Never a failure to the library, which would print it; the stream is asked instead.
    return length;
}

const xmlChar* xml(const char* text)
{
    return reinterpret_cast<const xmlChar*>(text);
}

// Characters that XML 1.0 allows (section 2.2), in UTF-8. A NUL counts as one it does not.
bool isXmlText(const std::string& text)
{
    const bool isPlain = std::none_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r';
    });
    // U+FFFE and U+FFFF are the other two that XML leaves out.
    return isPlain && xmlCheckUTF8(xml(text.c_str())) != 0 && text.find("\xEF\xBF\xBE") == std::string::npos &&
           text.find("\xEF\xBF\xBF") == std::string::npos;
}

} // namespace

struct KrXmlWriter::Private
{
    // Of each open element: what its children inherit, and whether its end tag stands on a line of its own.
    struct Level
    {
        std::string defaultNamespace;
        std::string name;
        bool hasElements = false;
    };

    std::ostream* stream = nullptr;
    std::unique_ptr<xmlTextWriter, TextWriterDeleter> writer;
    std::vector<std::pair<std::string, std::string>> prefixes; ///< namespace and prefix, declared at the root
    std::vector<Level> levels;                                 ///< the open elements
    std::map<const void*, std::string> ids;
    std::map<const void*, std::size_t> references; ///< how often each object is referred to
    std::set<const void*> open;
    bool isIndented = true;
    bool hasFailed = false;
    bool isRefused = false;

    bool check(int result)
    {
        // The stream is asked too: its failures do not come back through the library.
        hasFailed = hasFailed || result < 0 || !*stream;
        return !hasFailed;
    }
    bool refuse(const std::string& reason);
    std::string place() const;
    void indentFor(std::size_t depth);
    bool declareNamespaces(const std::string& rootUri);
    std::string qualifiedName(const KrXmlToken& token, bool& isNewDefault) const;
};

bool KrXmlWriter::Private::refuse(const std::string& reason)
{
    // The first refusal alone is told; what is tried after it writes nothing.
    if (!hasFailed) {
        hasFailed = true;
        isRefused = true;
        Kr::Print::instance()->write(Kr::Print::Warning, "KrXmlWriter - the document cannot be written: %s%s.\n",
                                     place().c_str(), reason.c_str());
    }
    return false;
}

/// The element that is being written, and the two that it stands in.
std::string KrXmlWriter::Private::place() const
{
    if (levels.empty()) {
        return {};
    }
    std::string path;
    // More of a deep path would say no more.
    for (std::size_t i = levels.size() - std::min<std::size_t>(levels.size(), 3); i < levels.size(); ++i) {
        path += (path.empty() ? "" : "/") + levels[i].name;
    }
    return "element \"" + path + "\": ";
}

/// Sets up for an element that `depth` others enclose; on a line of its own, where it stands too deep to be indented.
void KrXmlWriter::Private::indentFor(std::size_t depth)
{
    const bool wasIndented = std::exchange(isIndented, depth < kIndentedLevels);
    if (!wasIndented || !isIndented) {
        check(xmlTextWriterWriteRaw(writer.get(), xml("\n")));
    }
    // Only where it changes: the library takes it for the beginning of a line.
    if (wasIndented != isIndented) {
        xmlTextWriterSetIndent(writer.get(), isIndented ? 1 : 0);
    }
}

/// Elements of the root's namespace go without a prefix; the toolkit's other namespaces get one.
bool KrXmlWriter::Private::declareNamespaces(const std::string& rootUri)
{
    const std::pair<const std::string*, const char*> known[] = {{&KrXmlNamespace::core(), "core"},
                                                                {&KrXmlNamespace::system(), "system"},
                                                                {&KrXmlNamespace::render(), "render"}};
    bool ok = true;
    for (const auto& [uri, prefix] : known) {
        if (*uri != rootUri) {
            prefixes.emplace_back(*uri, prefix);
            const std::string name = std::string("xmlns:") + prefix;
            ok = ok && check(xmlTextWriterWriteAttribute(writer.get(), xml(name.c_str()), xml(uri->c_str())));
        }
    }
    return ok;
}

std::string KrXmlWriter::Private::qualifiedName(const KrXmlToken& token, bool& isNewDefault) const
{
    // What is inside an element inherits its default namespace.
    const std::string outerDefault = levels.empty() ? std::string() : levels.back().defaultNamespace;
    isNewDefault = false;
    if (token.uri == outerDefault) {
        return token.name;
    }
    for (const auto& [uri, prefix] : prefixes) {
        if (uri == token.uri) {
            return prefix + ":" + token.name;
        }
    }
    // Without prefix, and so declared right here.
    isNewDefault = true;
    return token.name;
}

KrXmlWriter::KrXmlWriter(std::ostream& stream)
    : m_private(new Private)
{
    m_private->stream = &stream;
    // The buffer belongs to the text writer from its making on.
    xmlOutputBuffer* const buffer = xmlOutputBufferCreateIO(writeToStream, nullptr, &stream, nullptr);
    m_private->writer.reset(buffer == nullptr ? nullptr : xmlNewTextWriter(buffer));
    if (!m_private->writer) {
        m_private->refuse("out of memory");
        return;
    }
    xmlTextWriterSetIndent(m_private->writer.get(), 1);
    xmlTextWriterSetIndentString(m_private->writer.get(), xml("  "));
    m_private->check(xmlTextWriterStartDocument(m_private->writer.get(), nullptr, "UTF-8", nullptr));
}

KrXmlWriter::~KrXmlWriter() = default;

bool KrXmlWriter::beginElement(const KrXmlToken& token)
{
    if (m_private->hasFailed) {
        return false;
    }
    std::vector<Private::Level>& levels = m_private->levels;
    // The same limit as the reader's: what is written can be read back.
    if (levels.size() == Kr::Limits::kElementDepth) {
        return m_private->refuse("elements are nested deeper than " + std::to_string(Kr::Limits::kElementDepth));
    }
    const bool isRoot = levels.empty();
    if (!isRoot) {
        levels.back().hasElements = true;
        m_private->indentFor(levels.size());
    }
    bool isNewDefault = false;
    const std::string name = m_private->qualifiedName(token, isNewDefault);
    xmlTextWriter* const writer = m_private->writer.get();
    bool ok = m_private->check(xmlTextWriterStartElement(writer, xml(name.c_str())));
    if (isNewDefault) {
        ok = ok && m_private->check(xmlTextWriterWriteAttribute(writer, xml("xmlns"), xml(token.uri.c_str())));
    }
    // At the root alone: a prefix that is declared there holds for the whole document.
    if (isRoot) {
        ok = ok && m_private->declareNamespaces(token.uri);
    }
    levels.push_back({isNewDefault || isRoot ? token.uri : levels.back().defaultNamespace, token.name, false});
    return ok;
}

// Right behind beginElement only, before text or children.
bool KrXmlWriter::attribute(const char* name, std::string_view value)
{
    if (m_private->hasFailed) {
        return false;
    }
    const std::string text(value);
    if (!isXmlText(text) || text.find('\0') != std::string::npos) {
        return m_private->refuse(std::string("attribute \"") + name + "\" holds characters that XML does not know");
    }
    return m_private->check(xmlTextWriterWriteAttribute(m_private->writer.get(), xml(name), xml(text.c_str())));
}

// A refused text stops the document: one with a gap would be read as something else.
bool KrXmlWriter::text(std::string_view value)
{
    std::string piece;
    // An empty text writes nothing, so that the element keeps its short form.
    for (std::size_t done = 0; done < value.size() && !m_private->hasFailed; done += piece.size()) {
        std::size_t size = std::min(kPieceSize, value.size() - done);
        // A character is not cut in two: back to where one begins.
        for (int i = 0; i < 3 && done + size < value.size() && (value[done + size] & 0xC0) == 0x80 && size > 1; ++i) {
            --size;
        }
        piece.assign(value.substr(done, size));
        if (!isXmlText(piece)) {
            return m_private->refuse("a text holds characters that XML does not know");
        }
        m_private->check(xmlTextWriterWriteString(m_private->writer.get(), xml(piece.c_str())));
    }
    return !m_private->hasFailed;
}

// For texts that may hold anything, file names for example.
bool KrXmlWriter::string(std::string_view value)
{
    if (isXmlText(std::string(value)) && value.find('\0') == std::string_view::npos) {
        return text(value);
    }
    // Only where needed: plain text stays readable, for people and for other programs.
    return attribute("encoding", KrXmlText::kPercent) && text(KrXmlText::encodePercent(value));
}

bool KrXmlWriter::endElement()
{
    if (m_private->hasFailed || m_private->levels.empty()) {
        return false;
    }
    const bool hasElements = m_private->levels.back().hasElements;
    m_private->levels.pop_back();
    // An end tag stands on its own line where elements came before it; right behind text it adds nothing to the text.
    if (hasElements || m_private->levels.size() < kIndentedLevels) {
        m_private->indentFor(m_private->levels.size());
    }
    return m_private->check(xmlTextWriterEndElement(m_private->writer.get()));
}

// True only when the last byte has been taken by the stream.
bool KrXmlWriter::finish()
{
    if (!m_private->hasFailed) {
        m_private->check(xmlTextWriterEndDocument(m_private->writer.get()));
        m_private->check(xmlTextWriterFlush(m_private->writer.get()));
    }
    // A stream may be set to throw.
    try {
        m_private->stream->flush();
    } catch (...) {
        // The stream's own state tells the same.
    }
    return !m_private->hasFailed && bool(*m_private->stream);
}

bool KrXmlWriter::failed() const
{
    return m_private->hasFailed;
}

void KrXmlWriter::refuse(const char* reason)
{
    m_private->refuse(reason);
}

// True the first time, when what it holds has to be counted, too.
bool KrXmlWriter::countShared(const void* object)
{
    return ++m_private->references[object] == 1;
}

bool KrXmlWriter::isShared(const void* object) const
{
    // What was not counted counts as shared: an id that nobody refers to does no harm.
    const auto found = m_private->references.find(object);
    return found == m_private->references.end() || found->second != 1;
}

bool KrXmlWriter::isRefused() const
{
    return m_private->isRefused;
}

bool KrXmlWriter::isOpen(const void* object) const
{
    // Objects that are being written: one that holds itself is found here.
    return m_private->open.count(object) != 0;
}

// Set while an object is being written, by who follows pointers.
void KrXmlWriter::setOpen(const void* object, bool isOpen)
{
    if (isOpen) {
        m_private->open.insert(object);
    } else {
        m_private->open.erase(object);
    }
}

std::string KrXmlWriter::sharedId(const void* object)
{
    // Empty for an object that is written for the first time; it has its id from then on.
    const auto [place, isNew] = m_private->ids.try_emplace(object);
    if (isNew) {
        place->second = std::to_string(m_private->ids.size());
        return std::string();
    }
    return place->second;
}

// Without giving one.
std::string KrXmlWriter::idOf(const void* object) const
{
    const auto found = m_private->ids.find(object);
    return found == m_private->ids.end() ? std::string() : found->second;
}
