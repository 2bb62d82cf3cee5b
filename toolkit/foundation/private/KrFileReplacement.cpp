#include <toolkit/foundation/private/KrFileReplacement.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace
{

namespace fs = std::filesystem;

constexpr int kMostLinks = 40; ///< one behind the other, as the system follows them
// Of names that are taken already. Two in a row do not happen by chance, since each has 64 random bits.
constexpr int kMostAttempts = 16;
constexpr int kMostWaits = 1000; ///< of a millisecond, for a file that another thread is opening
// Together far below the 255 bytes that a name may have.
constexpr std::size_t kLongestStem = 60;
constexpr std::size_t kLongestExtension = 16;

/// A temporary file as a signal handler finds it: in memory that is always there, without a lock.
struct Unfinished
{
    std::atomic<bool> isTaken{false};
    std::atomic<bool> isBeingMade{false}; ///< a thread is inside `open`: the file may appear at any moment
    std::atomic<bool> isThere{false};
    char path[PATH_MAX] = {};
};

// More files than that are not written at once; one that finds no place is only not removed by a signal.
std::array<Unfinished, 16> s_unfinished;
/// The process ends and its temporary files have been removed: none is made any more.
std::atomic<bool> s_isEnding{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler must not wait");

/// @return the place in the list; -1 when there is none
int keepInMind(const std::string& path)
{
    for (std::size_t i = 0; path.size() < PATH_MAX && i < s_unfinished.size(); ++i) {
        Unfinished& place = s_unfinished[i];
        if (!place.isTaken.exchange(true)) {
            place.path[path.copy(place.path, path.size())] = '\0';
            place.isThere = true;
            return static_cast<int>(i);
        }
    }
    return -1;
}

/// Opens the temporary file of a place in the list so that `removeUnfinished` finds it, or refuses to. No signal comes
/// in between: its handler would wait for the thread that it interrupts. -1 with errno set.
int openUnfinished(Unfinished& place, const char* path, mode_t mode)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    place.isBeingMade = true;
    int descriptor = -1;
    int error = ECANCELED;
    if (!s_isEnding.load()) {
        descriptor = ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
        error = errno;
    }
    place.isBeingMade = false;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return descriptor;
}

// The link itself, not what it points to; what cannot be looked at counts as none.
bool isLink(const fs::path& path)
{
    std::error_code error;
    return fs::is_symlink(fs::symlink_status(path, error));
}

/// The first bytes of a name, never half a character of UTF-8.
std::string beginning(const std::string& name, std::size_t size)
{
    while (size < name.size() && size > 0 && (static_cast<unsigned char>(name[size]) & 0xC0u) == 0x80u) {
        --size;
    }
    return name.substr(0, size);
}

/// Nobody can make the name of a file first that nobody can guess. False with errno set.
bool randomNumber(std::uint64_t& number)
{
    ssize_t size = 0;
    do {
        size = ::getrandom(&number, sizeof number, 0);
    } while (size < 0 && errno == EINTR);
    return size == static_cast<ssize_t>(sizeof number);
}

/// "picture.png" -> ".picture.0123456789abcdef.partial.png"
/// Hidden by its dot, and with the target's extension, for libraries that choose a format by it.
std::string temporaryName(const fs::path& target, std::uint64_t number)
{
    char digits[32];
    std::snprintf(digits, sizeof digits, ".%016llx.partial", static_cast<unsigned long long>(number));
    const std::string extension = target.extension().string();
    return "." + beginning(target.stem().string(), kLongestStem) + digits +
           (extension.size() <= kLongestExtension ? extension : std::string());
}

} // namespace

KrFileReplacement::KrFileReplacement(const std::string& path)
    : m_target(target(path))
{
    const fs::path whole(m_target);
    struct stat info = {};
    // target() has followed all links that there may be, so one that is left belongs to a ring, or to a chain that the
    // system would not follow either.
    if (isLink(whole)) {
        fail(ELOOP);
        return;
    }
    if (::stat(path.c_str(), &info) == 0) {
        if (!S_ISREG(info.st_mode)) {
            S_ISDIR(info.st_mode) ? fail(EISDIR) : fail("it is no regular file");
            return;
        }
        // A rename asks nobody about the old file: one that the user has protected against writing must not be
        // replaced. With the effective user, as `open` would judge.
        if (::faccessat(AT_FDCWD, m_target.c_str(), W_OK, AT_EACCESS) != 0) {
            fail(errno);
            return;
        }
        m_isNew = false;
        m_permissions = info.st_mode & 0777u;
    }
    if (whole.filename().empty()) {
        fail(m_target.empty() ? ENOENT : EISDIR);
        return;
    }
    // What only the owner may read is not shown to others while it is written.
    const mode_t mode = m_isNew ? 0666 : 0600;
    int error = EEXIST;
    // EEXIST alone is worth another name; any other error would come again.
    for (int attempt = 0; attempt < kMostAttempts && error == EEXIST; ++attempt) {
        std::uint64_t number = 0;
        if (!randomNumber(number)) {
            error = errno;
            break;
        }
        m_temporary = (whole.parent_path() / temporaryName(whole, number)).string();
        // Before the file is there: a signal may come right behind it.
        m_slot = keepInMind(m_temporary);
        // Without a place in the list the file is made all the same.
        Unfinished unlisted;
        m_descriptor = openUnfinished(m_slot < 0 ? unlisted : s_unfinished[static_cast<std::size_t>(m_slot)],
                                      m_temporary.c_str(), mode);
        error = m_descriptor < 0 ? errno : 0;
        if (m_descriptor < 0) {
            forget();
        }
    }
    if (m_descriptor < 0) {
        m_temporary.clear();
        fail(error);
    }
}

KrFileReplacement::~KrFileReplacement()
{
    discard();
}

bool KrFileReplacement::fail(int error)
{
    return fail(std::string(std::strerror(error)));
}

bool KrFileReplacement::fail(const std::string& reason)
{
    // Otherwise the message would name a consequence, a bad descriptor for example.
    // The first failure is the cause of those that follow.
    m_reason = m_reason.empty() ? reason : m_reason;
    return false;
}

// Harmless twice, and after a success.
void KrFileReplacement::discard()
{
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
        m_descriptor = -1;
    }
    // Whatever has gone wrong, the file under the target's name has not been touched.
    if (!m_temporary.empty()) {
        ::unlink(m_temporary.c_str());
        m_temporary.clear();
    }
    forget();
}

void KrFileReplacement::forget()
{
    if (m_slot >= 0) {
        Unfinished& place = s_unfinished[static_cast<std::size_t>(m_slot)];
        // In this order: a place that is free must not name a file, or a signal handler would remove another one's.
        place.isThere = false;
        place.isTaken = false;
        m_slot = -1;
    }
}

void KrFileReplacement::removeUnfinished()
{
    s_isEnding = true;
    for (const Unfinished& place : s_unfinished) {
        // Another thread may be inside `open`; on a disk that does not answer the process ends all the same.
        for (int wait = 0; wait < kMostWaits && place.isBeingMade.load(); ++wait) {
            const timespec aMillisecond = {0, 1000000};
            ::nanosleep(&aMillisecond, nullptr);
        }
        if (place.isThere.load()) {
            ::unlink(place.path);
        }
    }
}

bool KrFileReplacement::write(const void* data, std::size_t size)
{
    if (m_descriptor < 0 || !m_reason.empty()) {
        return fail(EBADF);
    }
    const char* rest = static_cast<const char*>(data);
    // A write may take a part only (a signal, a pipe, a disk that becomes full).
    while (size > 0) {
        const ssize_t count = ::write(m_descriptor, rest, size);
        if (count < 0 && errno != EINTR) {
            return fail(errno);
        }
        const std::size_t written = count > 0 ? static_cast<std::size_t>(count) : 0;
        rest += written;
        size -= written;
    }
    return true;
}

// On failure nothing has happened to the target, and the temporary file is gone.
bool KrFileReplacement::replace()
{
    if (m_descriptor < 0) {
        return fail(EBADF);
    }
    // Before the rename, so that the file never stands there with other permissions than it had.
    if (m_reason.empty() && !m_isNew && ::fchmod(m_descriptor, m_permissions) != 0) {
        fail(errno);
    }
    // Some disks are found to be full only here, or when the file is closed.
    if (m_reason.empty() && ::fsync(m_descriptor) != 0) {
        fail(errno);
    }
    const int descriptor = m_descriptor;
    m_descriptor = -1;
    // An interrupted close has closed the file.
    if (::close(descriptor) != 0 && errno != EINTR) {
        fail(errno);
    }
    // On one file system, since both are in one folder: readers see the old file or the new one, never a half.
    if (m_reason.empty() && ::rename(m_temporary.c_str(), m_target.c_str()) != 0) {
        fail(errno);
    }
    if (!m_reason.empty()) {
        discard();
        return false;
    }
    m_temporary.clear();
    forget();
    return true;
}

std::string KrFileReplacement::write(const std::string& path, const void* content, std::size_t size)
{
    KrFileReplacement file(path);
    if (file.isOpen() && file.write(content, size)) {
        file.replace();
    }
    return file.reason();
}

std::string KrFileReplacement::target(const std::string& path)
{
    std::error_code error;
    fs::path file(path);
    // Link by link: what the last one names need not be there yet.
    for (int i = 0; i < kMostLinks && isLink(file); ++i) {
        file = file.parent_path() / fs::read_symlink(file, error);
    }
    return file.string();
}
