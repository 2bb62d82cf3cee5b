#include <import/KrImportFile.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace
{

class Descriptor
{
public:
    explicit Descriptor(int number)
        : m_number(number)
    {
    }
    ~Descriptor()
    {
        if (m_number >= 0) {
            ::close(m_number);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number() const { return m_number; }

private:
    int m_number;
};

bool refuse(std::string& why, const std::string& text)
{
    why = text;
    return false;
}

std::string systemError()
{
    return errno == ENOENT ? "there is no such file" : std::strerror(errno);
}

std::string sizeText(std::uint64_t bytes)
{
    return bytes >> 30 && !(bytes & ((1u << 30) - 1))   ? std::to_string(bytes >> 30) + " GiB"
           : bytes >> 20 && !(bytes & ((1u << 20) - 1)) ? std::to_string(bytes >> 20) + " MiB"
                                                        : std::to_string(bytes) + " bytes";
}

bool tooLarge(std::uint64_t maxBytes, std::string& why)
{
    return refuse(why, "it is larger than " + sizeText(maxBytes));
}

bool isOurs(const struct stat& status, KrImportFile::Kind kind, std::string& why)
{
    if (S_ISREG(status.st_mode) || (S_ISFIFO(status.st_mode) && kind == KrImportFile::Kind::RegularOrPipe)) {
        return true;
    }
    return refuse(why, S_ISDIR(status.st_mode)                     ? "it is a folder"
                       : kind == KrImportFile::Kind::RegularOrPipe ? "it is neither a file nor a pipe"
                                                                   : "it is no regular file");
}

} // namespace

bool KrImportFile::read(const std::string& path, Kind kind, std::uint64_t maxBytes, std::string& content,
                        std::string& why)
{
    content.clear();
    // A pipe that a person named is waited for; nothing else is, and what it is gets asked of the open file, which
    // nobody can exchange.
    struct stat status = {};
    const bool waits = kind == Kind::RegularOrPipe && ::stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | (waits ? 0 : O_NONBLOCK)));
    if (file.number() < 0 || ::fstat(file.number(), &status) != 0) {
        return refuse(why, systemError());
    }
    if (!isOurs(status, kind, why)) {
        return false;
    }
    const bool isPipe = S_ISFIFO(status.st_mode);
    const auto size = static_cast<std::uint64_t>(std::max<decltype(status.st_size)>(status.st_size, 0));
    if (!isPipe && size > maxBytes) {
        return tooLarge(maxBytes, why);
    }
    // One byte more than there should be, to see the end; files of some systems have size 0 and yet something inside.
    constexpr std::size_t kBlock = 65536;
    content.reserve(isPipe ? kBlock : static_cast<std::size_t>(size) + 1);
    for (;;) {
        const std::size_t held = content.size();
        content.resize(held < content.capacity() ? content.capacity() : held + kBlock);
        const ssize_t count = ::read(file.number(), &content[held], content.size() - held);
        const int error = errno;
        content.resize(held + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (count < 0 && error == EINTR) {
            continue;
        }
        if (count < 0) {
            return refuse(why, std::strerror(error));
        }
        if (content.size() > maxBytes) {
            return tooLarge(maxBytes, why);
        }
        if (count == 0) {
            return true;
        }
    }
}
