#include <dataset/private/KrDatasetFile.h>

#include <dataset/private/KrDatasetClock.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

KrDatasetFile::KrDatasetFile(double& time)
    : m_time(time)
{
}

KrDatasetFile::~KrDatasetFile()
{
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

bool KrDatasetFile::open(const std::string& path, std::string& reason)
{
    const KrDatasetClock clock(m_time);
    m_path = path;
    const auto make = [&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666); };
    m_descriptor = make();
    if (m_descriptor < 0 && errno == ENOENT) {
        // Its folder is looked for only now: all files of a folder but the first find it.
        std::error_code error;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
        if (error) {
            return fail(error.value(), reason);
        }
        m_descriptor = make();
    }
    return m_descriptor >= 0 || fail(errno, reason);
}

bool KrDatasetFile::write(const void* data, std::size_t size, std::string& reason)
{
    const KrDatasetClock clock(m_time);
    const char* at = static_cast<const char*>(data);
    while (size > 0) {
        // The system takes no more than 2 GiB at once.
        const ssize_t count = ::write(m_descriptor, at, std::min<std::size_t>(size, std::size_t{1} << 30));
        if (count < 0 && errno != EINTR) {
            return fail(errno, reason);
        }
        at += std::max<ssize_t>(count, 0);
        size -= static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    return true;
}

bool KrDatasetFile::close(std::string& reason)
{
    const KrDatasetClock clock(m_time);
    const int descriptor = m_descriptor;
    m_descriptor = -1;
    // Interrupted or not, it is closed then.
    return ::close(descriptor) == 0 || errno == EINTR || fail(errno, reason);
}

bool KrDatasetFile::fail(int error, std::string& reason)
{
    reason = "cannot write " + m_path + ": " + std::strerror(error);
    return false;
}
