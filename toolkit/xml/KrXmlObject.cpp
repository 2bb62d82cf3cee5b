#include <toolkit/xml/KrXmlObject.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/private/KrFileReplacement.h>
#include <toolkit/xml/KrXmlReader.h>
#include <toolkit/xml/KrXmlSchema.h>
#include <toolkit/xml/KrXmlWriter.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <ostream>
#include <poll.h>
#include <sstream>
#include <streambuf>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// One form for what is told about documents; what a reader finds wrong it tells itself.
void warn(const char* method, const std::string& name, const std::string& reason)
{
    Kr::Print::instance()->write(Kr::Print::Warning, "KrXmlObject::%s - %s: %s.\n", method, name.c_str(),
                                 reason.c_str());
}

/// Keeps a peer that has gone from ending the process, in this thread and for the lifetime of the object.
class BrokenPipeIgnored
{
public:
    BrokenPipeIgnored()
    {
        // Blocked, not ignored: a signal's disposition belongs to the whole process, its mask to the thread.
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
    }
    ~BrokenPipeIgnored()
    {
        // The caller looks at errno afterwards.
        const int error = errno;
        sigset_t pending;
        sigpending(&pending);
        // The signal that the write has raised is taken away; one that was pending before stays for who waits for it.
        if (!m_wasPending && sigismember(&pending, SIGPIPE) == 1) {
            const timespec now = {};
            sigtimedwait(&m_pipe, nullptr, &now);
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
        errno = error;
    }
    BrokenPipeIgnored(const BrokenPipeIgnored&) = delete;
    BrokenPipeIgnored& operator=(const BrokenPipeIgnored&) = delete;

private:
    sigset_t m_pipe = {};
    sigset_t m_before = {};
    bool m_wasPending = false;
};

/// Writes everything; false with errno set.
/// Nothing is given up half-way: a document is written to its end or fails.
bool writeAll(int descriptor, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t count = ::write(descriptor, data, size);
        if (count >= 0) {
            data += count;
            size -= static_cast<std::size_t>(count);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            // A descriptor that does not wait is waited for here: the document goes out whole.
            pollfd wait{descriptor, POLLOUT, 0};
            ::poll(&wait, 1, -1);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

/// A stream buffer over a file descriptor, which stays the caller's.
class DescriptorBuffer : public std::streambuf
{
public:
    explicit DescriptorBuffer(int descriptor)
        : m_descriptor(descriptor)
    {
        setp(m_data.data(), m_data.data() + m_data.size());
    }
    int error() const { return m_error; }

protected:
    int_type overflow(int_type c) override
    {
        // The buffer is full, or the stream is flushed.
        if (sync() != 0) {
            return traits_type::eof();
        }
        return traits_type::eq_int_type(c, traits_type::eof()) ? traits_type::not_eof(c)
                                                               : sputc(traits_type::to_char_type(c));
    }
    int sync() override
    {
        const BrokenPipeIgnored ignored;
        // After the first error nothing more is tried: a gap in a document would not be noticed.
        if (m_error == 0 && !writeAll(m_descriptor, pbase(), static_cast<std::size_t>(pptr() - pbase()))) {
            m_error = errno;
        }
        // Emptied in any case, so that the stream does not write the same again.
        setp(m_data.data(), m_data.data() + m_data.size());
        return m_error == 0 ? 0 : -1;
    }

private:
    int m_descriptor;
    int m_error = 0;
    std::array<char, 64 * 1024> m_data;
};

/// Reads the document that `open` opens into a new object first, so that `object` is as it was when even the end of the
/// document is bad.
template <typename Open>
// One way for files, streams, buffers and sockets.
bool readDocument(KrXmlObject& object, Open open)
{
    KrXmlReader reader;
    try {
        if (!open(reader)) {
            return false;
        }
        const KrXmlToken root = object.token();
        // The root decides before anything is made of the document.
        if (reader.element() != root) {
            return reader.fail("the document should be a \"%s\" of namespace \"%s\"", root.name.c_str(),
                               root.uri.c_str());
        }
        const std::unique_ptr<KrXmlObject> fresh(object.newObject());
        // The members need no copies of their own while the whole is one.
        const KrXmlReader::Scratch scratch(reader);
        // `finish` reads to the end: what stands behind the root may be wrong as well.
        return fresh->read(reader) && reader.finish() && object.assign(*fresh);
    } catch (const std::exception& error) {
        return reader.fail("%s", error.what());
    }
}

enum class Outcome
{
    Written,
    StreamFailed, ///< to be told by whoever knows the stream
    Refused       ///< one message has told why
};

// Into a stream that is told apart from the object: only the caller can name it in a message.
Outcome writeDocument(const KrXmlObject& object, std::ostream& stream)
{
    try {
        KrXmlWriter writer(stream);
        // Before the first tag: ids are given to shared objects alone.
        object.countShared(writer);
        const bool isWritten = writer.beginElement(object.token()) && object.write(writer) && writer.endElement();
        // Finished in any case: a stream that has failed is known by then.
        if (writer.finish() && isWritten) {
            return Outcome::Written;
        }
        return writer.isRefused() ? Outcome::Refused : Outcome::StreamFailed;
    } catch (const std::exception& error) {
        warn("write", object.token().name, error.what());
        return Outcome::Refused;
    }
}

/// Writes a document to a descriptor, which stays the caller's; tells of every failure.
bool writeToDescriptor(const KrXmlObject& object, int descriptor, const char* method, const std::string& name)
{
    DescriptorBuffer buffer(descriptor);
    std::ostream stream(&buffer);
    const Outcome outcome = writeDocument(object, stream);
    if (outcome == Outcome::StreamFailed) {
        warn(method, name, std::string("cannot be written: ") + std::strerror(buffer.error()));
    }
    return outcome == Outcome::Written;
}

bool cannotWrite(const std::string& path, const std::string& reason)
{
    warn("writeFile", path, "cannot be written: " + reason);
    return false;
}

/// Pipes and devices cannot be replaced, only written to.
/// A link to a regular file counts as regular; KrFileReplacement follows it.
bool isSpecialFile(const std::string& path)
{
    struct stat info = {};
    return ::stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode);
}

bool writeSpecialFile(const KrXmlObject& object, const std::string& path)
{
    // Without O_CREAT: it is there already, or it would not be special.
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return cannotWrite(path, std::strerror(errno));
    }
    const bool ok = writeToDescriptor(object, descriptor, "writeFile", path);
    ::close(descriptor);
    return ok;
}

} // namespace

KrXmlObject::~KrXmlObject() = default;

bool KrXmlObject::selfTest() const
{
    // Written, read back and compared, in memory.
    std::string text;
    const std::unique_ptr<KrXmlObject> copy(newObject());
    return copy && writeBuffer(text) && copy->readBuffer(text.data(), text.size(), "self test") && equality(copy.get());
}

// For classes that cannot be set back; the others override it.
bool KrXmlObject::xmlInit()
{
    return false;
}

bool KrXmlObject::readFile(const std::string& path)
{
    return readDocument(*this, [&path](KrXmlReader& reader) { return reader.openFile(path); });
}

// A file is replaced when the document is whole; until then the old one stays.
bool KrXmlObject::writeFile(const std::string& path) const
{
    if (isSpecialFile(path)) {
        return writeSpecialFile(*this, path);
    }
    KrFileReplacement file(path);
    if (!file.isOpen()) {
        return cannotWrite(path, file.reason());
    }
    // The temporary file goes with its object; the old one has not been touched.
    if (!writeToDescriptor(*this, file.descriptor(), "writeFile", path)) {
        return false;
    }
    return file.replace() || cannotWrite(path, file.reason());
}

bool KrXmlObject::readStream(std::istream& stream, const std::string& name)
{
    return readDocument(*this, [&](KrXmlReader& reader) { return reader.openStream(stream, name); });
}

// Flushed but not closed: the stream is the caller's.
bool KrXmlObject::writeStream(std::ostream& stream) const
{
    const Outcome outcome = writeDocument(*this, stream);
    if (outcome == Outcome::StreamFailed) {
        warn("writeStream", token().name, "the stream takes no more");
    }
    return outcome == Outcome::Written;
}

bool KrXmlObject::readBuffer(const char* data, std::size_t size, const std::string& name)
{
    return readDocument(*this, [&](KrXmlReader& reader) { return reader.openBuffer(data, size, name); });
}

bool KrXmlObject::writeBuffer(std::string& out) const
{
    // In a string of its own: on failure `out` stays as it was.
    std::ostringstream stream;
    if (!writeStream(stream)) {
        return false;
    }
    out = stream.str();
    return true;
}

// Reads to the end of the stream: a socket carries one document.
bool KrXmlObject::readSocket(int descriptor)
{
    return readDocument(*this, [=](KrXmlReader& reader) { return reader.openDescriptor(descriptor, "socket"); });
}

bool KrXmlObject::writeSocket(int descriptor) const
{
    return writeToDescriptor(*this, descriptor, "writeSocket", "socket");
}

// Of the class alone: values have no part in a schema.
bool KrXmlObject::writeSchema(std::ostream& stream) const
{
    KrXmlSchema(token(), *this).write(stream);
    return bool(stream.flush());
}

void KrXmlObject::countShared(KrXmlWriter&) const {}

// The schema of a class that does not describe itself allows everything.
void KrXmlObject::writeSchemaContent(KrXmlSchema& schema) const
{
    schema.anything();
}
