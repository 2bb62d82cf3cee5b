#include <toolkit/foundation/private/KrInputFile.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace
{

// Large enough for calls not to matter, small enough for many files at a time.
constexpr std::size_t kBlockSize = 64 * 1024;

/// Why something of this kind is not read; null when it is.
const char* refusal(mode_t mode, KrInputFile::Accept accept)
{
    if (S_ISREG(mode)) {
        return nullptr;
    }
    if (S_ISDIR(mode)) {
        return "it is a folder";
    }
    if (accept == KrInputFile::Accept::Files) {
        return "it is no regular file";
    }
    // A device may never end, and reading some of them has effects.
    return S_ISFIFO(mode) || S_ISSOCK(mode) ? nullptr : "it is a device, neither a file nor a pipe";
}

// In the unit that the limits are written in, where that comes out even.
std::string sizeText(std::uint64_t bytes)
{
    constexpr std::uint64_t kMiB = 1u << 20;
    constexpr std::uint64_t kGiB = 1u << 30;
    return bytes >= kGiB && bytes % kGiB == 0   ? std::to_string(bytes / kGiB) + " GiB"
           : bytes >= kMiB && bytes % kMiB == 0 ? std::to_string(bytes / kMiB) + " MiB"
                                                : std::to_string(bytes) + " bytes";
}

} // namespace

KrInputFile::KrInputFile(std::uint64_t mostBytes, Accept accept)
    : m_mostBytes(mostBytes)
    , m_accept(accept)
{
}

KrInputFile::~KrInputFile()
{
    if (m_isOwner) {
        ::close(m_descriptor);
    }
}

bool KrInputFile::fail(const std::string& reason)
{
    // The first failure is the cause of those that follow.
    m_reason = m_reason.empty() ? reason : m_reason;
    return false;
}

bool KrInputFile::open(const std::string& path)
{
    // Looked at before it is opened: opening a pipe waits for a writer, and opening some devices has effects.
    struct stat info = {};
    if (::stat(path.c_str(), &info) != 0) {
        return fail(errno == ENOENT ? "there is no such file" : std::strerror(errno));
    }
    if (const char* const reason = refusal(info.st_mode, m_accept)) {
        return fail(reason);
    }
    // Never waits where no pipe is wanted, though one may have taken the name in between.
    // A terminal that is opened does not become the controlling one, and a child process inherits no descriptor.
    const int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | (m_accept == Accept::Files ? O_NONBLOCK : 0);
    int descriptor = -1;
    do {
        descriptor = ::open(path.c_str(), flags);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0) {
        return fail(std::strerror(errno));
    }
    m_isOwner = true;
    return take(descriptor);
}

bool KrInputFile::openDescriptor(int descriptor)
{
    return take(descriptor);
}

bool KrInputFile::take(int descriptor)
{
    m_descriptor = descriptor;
    // Again: another file may have taken the name in between.
    struct stat info = {};
    if (::fstat(descriptor, &info) != 0) {
        return fail(std::strerror(errno));
    }
    if (const char* const reason = refusal(info.st_mode, m_accept)) {
        return fail(reason);
    }
    // Only regular files have a size in advance; pipes are counted as they are read.
    m_size = S_ISREG(info.st_mode) ? static_cast<std::uint64_t>(info.st_size) : 0;
    if (m_size > m_mostBytes) {
        return fail("it is larger than " + sizeText(m_mostBytes));
    }
    return true;
}

bool KrInputFile::read(char* data, std::size_t size, std::size_t& count)
{
    if (!m_reason.empty() || m_descriptor < 0) {
        return fail("it is not open");
    }
    ssize_t got = ::read(m_descriptor, data, size);
    while (got < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) {
        // A pipe may have come from a program that does not wait for it.
        pollfd wait = {m_descriptor, POLLIN, 0};
        ::poll(&wait, 1, -1);
        got = ::read(m_descriptor, data, size);
    }
    if (got < 0) {
        return fail(std::strerror(errno));
    }
    count = static_cast<std::size_t>(got);
    m_numBytes += count;
    // Counted as well, since a file may grow while it is read.
    return m_numBytes <= m_mostBytes || fail("it is larger than " + sizeText(m_mostBytes));
}

// To the end, or to the limit.
bool KrInputFile::readAll(std::string& content)
{
    // What readLine has read ahead belongs to the rest.
    std::string whole = m_buffer.substr(m_start);
    // The rest of a regular file and a byte more, to see the end; files of some systems have size 0 and yet something
    // inside.
    std::size_t step = m_size > m_numBytes ? static_cast<std::size_t>(m_size - m_numBytes) + 1 : kBlockSize;
    for (std::size_t count = 1; count > 0; step = kBlockSize) {
        const std::size_t held = whole.size();
        whole.resize(held + step);
        const bool isRead = read(&whole[held], whole.size() - held, count);
        whole.resize(held + (isRead ? count : 0));
        if (!isRead) {
            return false;
        }
        // The byte more was not there.
        if (count < step && m_numBytes == m_size) {
            break;
        }
    }
    // Moved at the end: on failure `content` is as it was.
    m_buffer.clear();
    m_start = 0;
    content = std::move(whole);
    return true;
}

std::string KrInputFile::readWhole(const std::string& path, Accept accept, std::uint64_t mostBytes,
                                   std::string& content)
{
    KrInputFile file(mostBytes, accept);
    return file.open(path) && file.readAll(content) ? std::string() : file.reason();
}

// For formats of lines, so that a file is never in memory as a whole.
bool KrInputFile::readLine(std::string& line, std::size_t longest)
{
    std::size_t searched = m_start;
    std::size_t end = m_buffer.find('\n', searched);
    // Reads on until a line end is there or the line is too long; the buffer never holds more than one line and a
    // block.
    while (end == std::string::npos && m_buffer.size() - m_start <= longest) {
        m_buffer.erase(0, m_start);
        m_start = 0;
        searched = m_buffer.size();
        std::size_t count = 0;
        m_buffer.resize(searched + kBlockSize);
        const bool isRead = read(&m_buffer[searched], kBlockSize, count);
        m_buffer.resize(searched + (isRead ? count : 0));
        if (!isRead) {
            return false;
        }
        if (count == 0) {
            break;
        }
        end = m_buffer.find('\n', searched);
    }
    const bool isLast = end == std::string::npos;
    // A last line without a line end counts; nothing behind the last line end does not.
    if (isLast && m_buffer.empty()) {
        return false;
    }
    end = isLast ? m_buffer.size() : end;
    if (end - m_start > longest) {
        return fail("it has a line of more than " + sizeText(longest));
    }
    line.assign(m_buffer, m_start, end - m_start);
    m_start = isLast ? end : end + 1;
    // Files of other systems end their lines with CR LF.
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return true;
}
