#include <toolkit/xml/KrXmlWriter.h>

#include <toolkit/foundation/KrPrint.h>

#include <libxml/xmlwriter.h>

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

namespace
{

constexpr std::size_t kDepthLimit = 1024; // the reader's
constexpr std::size_t kPieceSize = 1 << 20;

struct TextWriterDeleter
{
    void operator()(xmlTextWriter* writer) const { xmlFreeTextWriter(writer); }
};

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
    std::ostream* stream = nullptr;
    std::unique_ptr<xmlTextWriter, TextWriterDeleter> writer;
    std::vector<std::pair<std::string, std::string>> prefixes; ///< namespace and prefix, declared at the root
    std::vector<std::string> defaultNamespaces;                ///< of the open elements
    std::map<const void*, std::string> ids;
    bool hasFailed = false;
    bool isRefused = false;

    bool check(int result)
    {
        hasFailed = hasFailed || result < 0 || !*stream;
        return !hasFailed;
    }
    bool refuse(const std::string& reason);
    bool declareNamespaces(const std::string& rootUri);
    std::string qualifiedName(const KrXmlToken& token, bool& isNewDefault) const;
};

bool KrXmlWriter::Private::refuse(const std::string& reason)
{
    if (!hasFailed) {
        hasFailed = true;
        isRefused = true;
        Kr::Print::instance()->write(Kr::Print::Warning, "KrXmlWriter - the document cannot be written: %s.\n",
                                     reason.c_str());
    }
    return false;
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
    const std::string outerDefault = defaultNamespaces.empty() ? std::string() : defaultNamespaces.back();
    isNewDefault = false;
    if (token.uri == outerDefault) {
        return token.name;
    }
    for (const auto& [uri, prefix] : prefixes) {
        if (uri == token.uri) {
            return prefix + ":" + token.name;
        }
    }
    isNewDefault = true;
    return token.name;
}

KrXmlWriter::KrXmlWriter(std::ostream& stream)
    : m_private(new Private)
{
    m_private->stream = &stream;
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
    std::vector<std::string>& defaults = m_private->defaultNamespaces;
    if (defaults.size() == kDepthLimit) {
        return m_private->refuse("element \"" + token.name + "\" is nested deeper than " + std::to_string(kDepthLimit));
    }
    const bool isRoot = defaults.empty();
    bool isNewDefault = false;
    const std::string name = m_private->qualifiedName(token, isNewDefault);
    xmlTextWriter* const writer = m_private->writer.get();
    bool ok = m_private->check(xmlTextWriterStartElement(writer, xml(name.c_str())));
    if (isNewDefault) {
        ok = ok && m_private->check(xmlTextWriterWriteAttribute(writer, xml("xmlns"), xml(token.uri.c_str())));
    }
    if (isRoot) {
        ok = ok && m_private->declareNamespaces(token.uri);
    }
    defaults.push_back(isNewDefault || isRoot ? token.uri : defaults.back());
    return ok;
}

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

bool KrXmlWriter::text(std::string_view value)
{
    std::string piece;
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

bool KrXmlWriter::endElement()
{
    if (m_private->hasFailed || m_private->defaultNamespaces.empty()) {
        return false;
    }
    m_private->defaultNamespaces.pop_back();
    return m_private->check(xmlTextWriterEndElement(m_private->writer.get()));
}

bool KrXmlWriter::finish()
{
    if (!m_private->hasFailed) {
        m_private->check(xmlTextWriterEndDocument(m_private->writer.get()));
        m_private->check(xmlTextWriterFlush(m_private->writer.get()));
    }
    try {
        m_private->stream->flush();
    } catch (...) {
        // The stream's own state tells the same.
    }
    return !m_private->hasFailed && bool(*m_private->stream);
}

bool KrXmlWriter::isRefused() const
{
    return m_private->isRefused;
}

std::string KrXmlWriter::sharedId(const void* object)
{
    const auto [place, isNew] = m_private->ids.try_emplace(object);
    if (isNew) {
        place->second = std::to_string(m_private->ids.size());
        return std::string();
    }
    return place->second;
}

std::string KrXmlWriter::idOf(const void* object) const
{
    const auto found = m_private->ids.find(object);
    return found == m_private->ids.end() ? std::string() : found->second;
}
