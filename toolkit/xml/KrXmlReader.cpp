#include <toolkit/xml/KrXmlReader.h>

#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/xml/KrXmlObject.h>
#include <toolkit/xml/KrXmlText.h>

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <functional>
#include <map>
#include <poll.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace
{

// Of what is read at a time; memory does not grow with the size of a document but with its largest text.
constexpr std::size_t kChunkSize = 64 * 1024;

// From version 2.12 on libxml2 hands errors out as const.
#if LIBXML_VERSION >= 21200
using XmlErrorPointer = const xmlError*;
#else
using XmlErrorPointer = xmlErrorPtr;
#endif

struct ParserDeleter
{
    void operator()(xmlParserCtxt* context) const { xmlFreeParserCtxt(context); }
};

// Closes what openFile has opened. Shared by the copies of a std::function, which has to be copyable.
class Descriptor
{
public:
    explicit Descriptor(int descriptor)
        : m_descriptor(descriptor)
    {
    }
    ~Descriptor() { ::close(m_descriptor); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_descriptor; }

private:
    int m_descriptor;
};

/// Reads up to `size` bytes; 0 at the end, -1 with errno set on failure.
using Source = std::function<long(char* data, std::size_t size)>;

// Waits where a socket has nothing yet, also one that does not wait by itself.
long readDescriptor(int descriptor, char* data, std::size_t size)
{
    for (;;) {
        const ssize_t count = ::read(descriptor, data, size);
        if (count >= 0) {
            return static_cast<long>(count);
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            pollfd wait{descriptor, POLLIN, 0};
            ::poll(&wait, 1, -1);
        } else if (errno != EINTR) {
            return -1;
        }
    }
}

// A stream may be set to throw; nothing may leave through the parser.
long readStream(std::istream& stream, char* data, std::size_t size)
{
    try {
        stream.read(data, static_cast<std::streamsize>(size));
    } catch (const std::ios_base::failure&) {
        // The stream's own state tells the same below.
    }
    // A stream that fails without being bad has come to its end; what was read of it counts.
    if (stream.bad()) {
        errno = EIO;
        return -1;
    }
    return static_cast<long>(stream.gcount());
}

using Attributes = std::vector<std::pair<std::string, std::string>>;

/// One thing that the parser saw. Names belong to the parser's dictionary.
/// Kept in a queue, since one piece of input may hold many.
struct Event
{
    enum class Kind
    {
        Start,
        End,
        Text,
        Trouble
    };
    Kind kind = Kind::Text;
    int line = 0;
    const xmlChar* name = nullptr;
    const xmlChar* uri = nullptr;
    Attributes attributes; ///< Start
    std::string text;      ///< Text and Trouble
};

// The parser's text is UTF-8 in unsigned bytes.
const char* chars(const xmlChar* text)
{
    return text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

} // namespace

/// Feeds libxml2's push parser piece by piece and turns its callbacks into a queue of events.
///
/// The push parser and not the pull reader: only its callbacks can refuse a document type
/// before any of it is read, and they build no tree, so that memory stays at the size of the numbers.
struct KrXmlReader::Private
{
    struct Level
    {
        KrXmlToken token;
        int line = 0;
    };

    Source source;
    std::string name;
    std::string folder;
    std::unique_ptr<xmlParserCtxt, ParserDeleter> parser;
    std::vector<char> chunk;
    std::deque<Event> events;
    // Bounds what a single tag or comment may take, which the parser has to hold as a whole.
    std::size_t bytesSinceEvent = 0;
    std::size_t parseDepth = 0;
    bool isInputAtEnd = false;
    bool isParserStopped = false;

    std::vector<Level> levels; ///< the elements that were entered
    Level current;
    Attributes attributes;
    bool isConsumed = true;
    bool hasFailed = false;
    // See Scratch.
    int scratchDepth = 0;
    std::map<std::string, boost::shared_ptr<KrXmlObject>> sharedObjects;

    bool open(Source newSource, const std::string& newName);
    bool fill();
    bool nextEvent(Event& event);
    void stand(Event& event);
    bool leaveElement(std::string* text);
    void push(Event event);
    template <typename Work>
    void guarded(Work work);
    void trouble(const std::string& reason);
    bool report(int where, const std::string& reason);

    int line() const { return parser ? xmlSAX2GetLineNumber(parser.get()) : 0; }

    static void onStart(void* self, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri, int numNamespaces,
                        const xmlChar** namespaces, int numAttributes, int numDefaulted, const xmlChar** attributes);
    static void onEnd(void* self, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri);
    static void onText(void* self, const xmlChar* text, int length);
    static void onDocumentType(void* self, const xmlChar* name, const xmlChar* externalId, const xmlChar* systemId);
    static void onError(void* self, XmlErrorPointer error);
};

/// Nothing may be thrown through the parser, which is C: what cannot be stored stops it.
template <typename Work>
void KrXmlReader::Private::guarded(Work work)
{
    try {
        if (!isParserStopped) {
            work();
        }
    } catch (...) {
        isParserStopped = true;
    }
}

// Every event knows its line, for messages that come when the parser is further on.
void KrXmlReader::Private::push(Event event)
{
    // There is progress: only markup without an event is counted.
    bytesSinceEvent = 0;
    event.line = line();
    events.push_back(std::move(event));
}

// Queued like everything else: what stands before the trouble is still read, and refused first if it is wrong.
void KrXmlReader::Private::trouble(const std::string& reason)
{
    Event event;
    event.kind = Event::Kind::Trouble;
    event.text = reason;
    push(std::move(event));
    isParserStopped = true;
}

void KrXmlReader::Private::onStart(void* self, const xmlChar* name, const xmlChar*, const xmlChar* uri, int,
                                   const xmlChar**, int numAttributes, int, const xmlChar** attributes)
{
    Private& reader = *static_cast<Private*>(self);
    reader.guarded([&] {
        if (++reader.parseDepth > Kr::Limits::kElementDepth) {
            reader.trouble("elements are nested deeper than " + std::to_string(Kr::Limits::kElementDepth));
            return;
        }
        Event event;
        event.kind = Event::Kind::Start;
        event.name = name;
        event.uri = uri;
        // Five pointers an attribute: name, prefix, namespace, begin and end of the value.
        for (const xmlChar** a = attributes; a != attributes + 5 * std::ptrdiff_t(numAttributes); a += 5) {
            // Attributes of other namespaces are not ours and are passed over.
            if (a[2] == nullptr) {
                event.attributes.emplace_back(chars(a[0]), std::string(chars(a[3]), chars(a[4])));
            }
        }
        reader.push(std::move(event));
    });
}

void KrXmlReader::Private::onEnd(void* self, const xmlChar*, const xmlChar*, const xmlChar*)
{
    Private& reader = *static_cast<Private*>(self);
    reader.guarded([&] {
        --reader.parseDepth;
        Event event;
        event.kind = Event::Kind::End;
        reader.push(std::move(event));
    });
}

void KrXmlReader::Private::onText(void* self, const xmlChar* text, int length)
{
    Private& reader = *static_cast<Private*>(self);
    reader.guarded([&] {
        // The parser hands out a text in pieces, which are put together again.
        if (reader.events.empty() || reader.events.back().kind != Event::Kind::Text) {
            reader.push(Event());
        }
        reader.bytesSinceEvent = 0;
        reader.events.back().text.append(chars(text), static_cast<std::size_t>(length));
    });
}

void KrXmlReader::Private::onDocumentType(void* self, const xmlChar*, const xmlChar*, const xmlChar*)
{
    Private& reader = *static_cast<Private*>(self);
    reader.guarded([&] { reader.trouble("document types and entities are not accepted"); });
    // At once: the declarations that follow can be made to grow without bound.
    xmlStopParser(reader.parser.get());
}

void KrXmlReader::Private::onError(void* self, XmlErrorPointer error)
{
    Private& reader = *static_cast<Private*>(self);
    // Warnings, about a namespace that is not absolute for example, are no failures.
    if (error == nullptr || error->level < XML_ERR_ERROR) {
        return;
    }
    reader.guarded([&] {
        std::string reason = error->message == nullptr ? "this is no XML" : error->message;
        // In our message the reason stands in the middle of a sentence.
        std::replace(reason.begin(), reason.end(), '\n', ' ');
        while (!reason.empty() && (reason.back() == ' ' || reason.back() == '.')) {
            reason.pop_back();
        }
        reader.trouble(reason);
    });
}

bool KrXmlReader::Private::report(int where, const std::string& reason)
{
    // The first failure is the cause of those that follow, so it alone is told.
    if (hasFailed) {
        return false;
    }
    hasFailed = true;
    std::string place = name;
    if (where > 0) {
        place += ", line " + std::to_string(where);
    }
    if (!current.token.name.empty()) {
        place += ", element \"" + current.token.name + "\"";
    }
    Kr::Print::instance()->write(Kr::Print::Warning, "KrXmlReader - %s: %s.\n", place.c_str(), reason.c_str());
    return false;
}

bool KrXmlReader::Private::open(Source newSource, const std::string& newName)
{
    // Once, and before parsers run on several threads; a local static sees to both.
    static const bool s_initialised = (xmlInitParser(), true);
    (void)s_initialised;
    // Nothing of an earlier document is left, its failure and its shared objects included.
    *this = Private();
    source = std::move(newSource);
    name = newName;
    chunk.resize(kChunkSize);

    // Callbacks that are not set do nothing: no tree is built, and no entity is looked up.
    xmlSAXHandler handler = {};
    handler.initialized = XML_SAX2_MAGIC;
    handler.startElementNs = onStart;
    handler.endElementNs = onEnd;
    handler.characters = onText;
    handler.ignorableWhitespace = onText;
    handler.cdataBlock = onText;
    handler.internalSubset = onDocumentType;
    handler.serror = onError;
    parser.reset(xmlCreatePushParserCtxt(&handler, this, nullptr, 0, nullptr));
    if (!parser) {
        return report(0, "out of memory");
    }
    // The parser's own limits on sizes are lifted: text may be as long as a mesh is large. Ours are above.
    xmlCtxtUseOptions(parser.get(), XML_PARSE_NONET | XML_PARSE_HUGE);

    // To the root; comments and processing instructions give no events.
    Event event;
    do {
        if (!nextEvent(event)) {
            return false;
        }
    } while (event.kind != Event::Kind::Start);
    stand(event);
    return true;
}

/// Parses one more piece of the input; false when there is none or it cannot be read.
/// Reads only when an event is asked for, so that a document which is refused early is not read to its end.
bool KrXmlReader::Private::fill()
{
    if (isInputAtEnd || isParserStopped) {
        return isParserStopped && events.empty() ? report(current.line, "out of memory") : false;
    }
    const long count = source(chunk.data(), chunk.size());
    if (count < 0) {
        return report(current.line, std::string("cannot be read: ") + std::strerror(errno));
    }
    // An empty piece tells the parser that the document ends here.
    isInputAtEnd = count == 0;
    bytesSinceEvent += static_cast<std::size_t>(count);
    if (bytesSinceEvent > Kr::Limits::kMarkupBytes) {
        return report(line(), "a tag or comment is longer than 4 MiB");
    }
    // Its result is not looked at: onError has been told whatever there was.
    xmlParseChunk(parser.get(), chunk.data(), static_cast<int>(count), isInputAtEnd ? 1 : 0);
    return true;
}

/// Takes the next event; false at the end of the document and after a failure, which is reported.
bool KrXmlReader::Private::nextEvent(Event& event)
{
    while (!hasFailed && events.empty()) {
        if (!fill()) {
            return false;
        }
    }
    if (hasFailed) {
        return false;
    }
    event = std::move(events.front());
    events.pop_front();
    if (event.kind == Event::Kind::Trouble) {
        return report(event.line, event.text);
    }
    return true;
}

void KrXmlReader::Private::stand(Event& event)
{
    current.token.uri = chars(event.uri);
    current.token.name = chars(event.name);
    current.line = event.line;
    attributes = std::move(event.attributes);
    // The element's content comes next in the queue.
    isConsumed = false;
}

/// Reads to the end of the current element. Its text goes to `text` and it may then have no children;
/// without `text` everything is passed over.
bool KrXmlReader::Private::leaveElement(std::string* text)
{
    isConsumed = true;
    std::size_t depth = 1;
    Event event;
    while (nextEvent(event)) {
        if (event.kind == Event::Kind::Start && text != nullptr) {
            return report(event.line,
                          std::string("element \"") + chars(event.name) + "\" stands where text is expected");
        }
        if (event.kind == Event::Kind::Start) {
            ++depth;
        } else if (event.kind == Event::Kind::End && --depth == 0) {
            return true;
            // The first piece is moved: text of a mesh may be large.
        } else if (text != nullptr && text->empty()) {
            *text = std::move(event.text);
        } else if (text != nullptr) {
            *text += event.text;
        }
    }
    return false;
}

KrXmlReader::KrXmlReader()
    : m_private(new Private)
{
}

KrXmlReader::~KrXmlReader() = default;

// Any kind of file that can be read, a pipe as well.
// The file stays open until the reader has another document or goes.
bool KrXmlReader::openFile(const std::string& path)
{
    const int opened = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (opened < 0) {
        // The reader may have had another document, which must not show in this message.
        m_private->hasFailed = false;
        m_private->current = Private::Level();
        m_private->name = path;
        return m_private->report(0, std::string("cannot be opened: ") + std::strerror(errno));
    }
    const auto descriptor = std::make_shared<Descriptor>(opened);
    const bool ok = m_private->open(
        [descriptor](char* data, std::size_t size) { return readDescriptor(descriptor->get(), data, size); }, path);
    const std::size_t slash = path.rfind('/');
    // Never empty: an empty folder means that the document did not come from a file.
    m_private->folder = slash == std::string::npos ? "./" : path.substr(0, slash + 1);
    return ok;
}

// The stream is the caller's and has to live until reading is over.
bool KrXmlReader::openStream(std::istream& stream, const std::string& name)
{
    return m_private->open([&stream](char* data, std::size_t size) { return readStream(stream, data, size); }, name);
}

// The bytes are borrowed until reading is over.
bool KrXmlReader::openBuffer(const char* data, std::size_t size, const std::string& name)
{
    return m_private->open(
        // The lambda keeps its place; the caller keeps the bytes until reading is over.
        [data, size, done = std::size_t(0)](char* out, std::size_t room) mutable {
            const std::size_t count = std::min(room, size - done);
            if (count > 0) {
                std::memcpy(out, data + done, count);
                done += count;
            }
            return static_cast<long>(count);
        },
        name);
}

// The descriptor stays the caller's, and open.
bool KrXmlReader::openDescriptor(int descriptor, const std::string& name)
{
    return m_private->open(
        [descriptor](char* data, std::size_t size) { return readDescriptor(descriptor, data, size); }, name);
}

const std::string& KrXmlReader::documentName() const
{
    return m_private->name;
}

// Empty where the document came from elsewhere than a file.
const std::string& KrXmlReader::documentFolder() const
{
    return m_private->folder;
}

const KrXmlToken& KrXmlReader::element() const
{
    return m_private->current.token;
}

// The value stays as it is when there is none.
bool KrXmlReader::attribute(const char* name, std::string& value) const
{
    // An element has a handful of them, so they are searched one by one.
    for (const auto& [key, text] : m_private->attributes) {
        if (key == name) {
            value = text;
            return true;
        }
    }
    return false;
}

// From here on nextChild() is about the children of the current element.
void KrXmlReader::enter()
{
    m_private->levels.push_back(m_private->current);
    m_private->isConsumed = true;
}

bool KrXmlReader::nextChild()
{
    Private& reader = *m_private;
    // What the caller has not read of the last child is passed over.
    if (reader.hasFailed || reader.levels.empty() || (!reader.isConsumed && !reader.leaveElement(nullptr))) {
        return false;
    }
    Event event;
    while (reader.nextEvent(event)) {
        if (event.kind == Event::Kind::Start) {
            reader.stand(event);
            return true;
        }
        // Messages from here on are about the element whose children these are.
        reader.current = reader.levels.back();
        if (event.kind == Event::Kind::End) {
            reader.levels.pop_back();
            reader.attributes.clear();
            return false;
        }
        if (event.text.find_first_not_of(" \t\r\n") != std::string::npos) {
            return reader.report(event.line, "text stands where elements are expected");
        }
    }
    return false;
}

// White space is kept: only the caller knows whether it means something.
bool KrXmlReader::text(std::string& out)
{
    out.clear();
    return !m_private->hasFailed && m_private->leaveElement(&out);
}

// Text that may hold what XML cannot is written percent-encoded, and says so.
bool KrXmlReader::string(std::string& out)
{
    std::string encoding;
    const bool isEncoded = attribute("encoding", encoding);
    // An encoding of a later version is refused, rather than taken for plain text.
    if (isEncoded && encoding != KrXmlText::kPercent) {
        return fail("a text in the encoding \"%.40s\" is not known here", encoding.c_str());
    }
    return text(out) && (!isEncoded || KrXmlText::decodePercent(out) ||
                         fail("\"%.40s\" is no text with bytes as %%XX", out.c_str()));
}

// For elements that a reader knows and has no use for.
bool KrXmlReader::skip()
{
    return !m_private->hasFailed && m_private->leaveElement(nullptr);
}

// What stands behind the root must be read for its errors to be found.
bool KrXmlReader::finish()
{
    Private& reader = *m_private;
    Event event;
    // Every event is looked at, since each may tell of trouble.
    while (reader.nextEvent(event)) {
    }
    return !reader.hasFailed;
}

void KrXmlReader::refuse(const char* reason)
{
    m_private->report(m_private->current.line, reason);
}

// After one message; everything that is asked from then on is false.
bool KrXmlReader::failed() const
{
    return m_private->hasFailed;
}

KrXmlReader::Scratch::Scratch(KrXmlReader& reader)
    : m_reader(reader)
{
    // A count, since objects that are being read lie inside each other.
    ++m_reader.m_private->scratchDepth;
}

KrXmlReader::Scratch::~Scratch()
{
    --m_reader.m_private->scratchDepth;
}

bool KrXmlReader::isScratch() const
{
    return m_private->scratchDepth > 0;
}

// A second object under the same id takes the first one's place.
void KrXmlReader::keepShared(const std::string& id, const boost::shared_ptr<KrXmlObject>& object)
{
    m_private->sharedObjects[id] = object;
}

// Null for an id that has not been read yet, or never will be.
boost::shared_ptr<KrXmlObject> KrXmlReader::shared(const std::string& id) const
{
    const auto found = m_private->sharedObjects.find(id);
    return found == m_private->sharedObjects.end() ? boost::shared_ptr<KrXmlObject>() : found->second;
}
