#include <import/cache/KrMeshCache.h>

#include <toolkit/foundation/private/KrInputFile.h>

#include <dirent.h>
#include <fcntl.h>
#include <libdeflate.h>
#include <openssl/evp.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <tuple>
#include <vector>

namespace
{

constexpr std::string_view kMagic = "KrMesh2\n";
constexpr std::size_t kSealBytes = 16;
constexpr std::size_t kHeaderBytes = kMagic.size() + kSealBytes;
// Adler-32 begins with that.
constexpr std::uint32_t kFirstSum = 1;
// Close to the processor, and not so large that the system is asked for its memory each time.
constexpr std::size_t kBlockBytes = 64 * 1024;
constexpr char kKeyName[] = "key";
constexpr std::string_view kTemporary = ".new-";
// Half-written files of processes that ended are as old as that before they are taken away.
constexpr std::time_t kAbandonedSeconds = 3600;
// An entry that was used so lately is not marked once more: the file system would have to write it down.
constexpr std::time_t kLatelySeconds = 60;
// What a name, a key and an entry are sealed for: no seal of one purpose is one of the other.
enum Purpose : unsigned char
{
    ForName = 1,
    ForEntry = 2
};

struct Descriptor
{
    explicit Descriptor(int descriptor)
        : number(descriptor)
    {
    }
    ~Descriptor()
    {
        if (number >= 0) {
            ::close(number);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int number;
};

/// The user's own, and nobody else may write to it.
bool isOwn(const struct stat& info)
{
    return info.st_uid == ::geteuid() && (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// A regular file of the folder, for reading; links are not followed, and a pipe is not waited for.
int openFile(int folder, const char* name, struct stat& info)
{
    const int file = ::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (file >= 0 && (::fstat(file, &info) != 0 || !S_ISREG(info.st_mode) || !isOwn(info))) {
        ::close(file);
        return -1;
    }
    return file;
}

bool readAll(int file, char* to, std::size_t size)
{
    while (size > 0) {
        const ssize_t count = ::read(file, to, size);
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return false;
        }
        to += std::max<ssize_t>(count, 0);
        size -= static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    return true;
}

bool writeAll(int file, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = ::write(file, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    return true;
}

std::string hexadecimal(std::string_view bytes)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += kDigits[static_cast<unsigned char>(byte) >> 4];
        text += kDigits[static_cast<unsigned char>(byte) & 15];
    }
    return text;
}

/// As the XDG base directory specification has it: a relative path counts as none.
std::string defaultFolder()
{
    const auto absolute = [](const char* name) {
        const char* const value = std::getenv(name);
        return std::string(value && value[0] == '/' ? value : "");
    };
    const std::string cache = absolute("XDG_CACHE_HOME");
    const std::string home = absolute("HOME");
    return !cache.empty() ? cache + "/krrendcore" : !home.empty() ? home + "/.cache/krrendcore" : "";
}

} // namespace

KrMeshCache::KrMeshCache(const std::string& folder, std::uint64_t maxBytes)
    : m_maxBytes(maxBytes)
{
    const std::string path = folder.empty() ? defaultFolder() : folder;
    if (!path.empty() && maxBytes > 0) {
        open(path);
    }
}

void KrMeshCache::CipherDeleter::operator()(EVP_CIPHER* cipher) const
{
    EVP_CIPHER_free(cipher);
}

KrMeshCache::~KrMeshCache()
{
    if (m_folder >= 0) {
        ::close(m_folder);
    }
}

void KrMeshCache::open(const std::string& folder)
{
    // The folders above it, too, as every cache folder should be: for the user alone.
    for (std::size_t end = folder.find('/', 1); end != std::string::npos; end = folder.find('/', end + 1)) {
        ::mkdir(folder.substr(0, end).c_str(), 0700);
    }
    ::mkdir(folder.c_str(), 0700);
    struct stat info = {};
    // A link that the user has made himself is followed: caches are put on other disks that way.
    const bool isOwnLink = ::lstat(folder.c_str(), &info) == 0 && S_ISLNK(info.st_mode) && info.st_uid == ::geteuid();
    // From here on by descriptor: whoever renames folders later does not lead us elsewhere.
    m_folder = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | (isOwnLink ? 0 : O_NOFOLLOW));
    // Looked up once, not for every seal.
    m_cipher.reset(EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr));
    bool isGood = m_cipher && m_folder >= 0 && ::fstat(m_folder, &info) == 0 && isOwn(info);
    if (isGood && !readKey()) {
        makeKey();
        isGood = readKey();
    }
    if (!isGood && m_folder >= 0) {
        ::close(m_folder);
        m_folder = -1;
    }
}

bool KrMeshCache::readKey()
{
    struct stat info = {};
    const Descriptor file(openFile(m_folder, kKeyName, info));
    return file.number >= 0 && info.st_size == sizeof m_key &&
           readAll(file.number, reinterpret_cast<char*>(m_key), sizeof m_key);
}

void KrMeshCache::makeKey() const
{
    char key[sizeof m_key];
    std::string temporary;
    if (::getrandom(key, sizeof key, 0) != sizeof key || !writeAside({{key, sizeof key}}, temporary)) {
        return;
    }
    // The first process wins where several begin, and all read what it wrote. A key that is damaged is replaced: what
    // was sealed with it is never asked for again.
    struct stat info = {};
    const bool isDamaged =
        ::fstatat(m_folder, kKeyName, &info, AT_SYMLINK_NOFOLLOW) == 0 && info.st_size != sizeof m_key;
    if (isDamaged) {
        ::renameat(m_folder, temporary.c_str(), m_folder, kKeyName);
    } else {
        ::linkat(m_folder, temporary.c_str(), m_folder, kKeyName, 0);
    }
    ::unlinkat(m_folder, temporary.c_str(), 0);
}

/// A seal in the making.
class KrMeshCache::Seal
{
public:
    Seal(const EVP_CIPHER* cipher, const unsigned char* key, unsigned char purpose)
        : m_context(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free)
    {
        // One start for all seals of a purpose: they have to be the same each time, and are shown to nobody.
        const unsigned char start[12] = {purpose};
        m_isGood = m_context && EVP_EncryptInit_ex(m_context.get(), cipher, nullptr, key, start) == 1;
    }
    void add(std::string_view bytes)
    {
        // The library counts in int.
        constexpr std::size_t kMost = std::size_t{1} << 30;
        for (; m_isGood && !bytes.empty(); bytes.remove_prefix(std::min(kMost, bytes.size()))) {
            m_isGood = EVP_EncryptUpdate(m_context.get(), nullptr, &m_ignored,
                                         reinterpret_cast<const unsigned char*>(bytes.data()),
                                         static_cast<int>(std::min(kMost, bytes.size()))) == 1;
        }
    }
    /// Where one part ends counts as well.
    void endPart(std::uint64_t length) { m_lengths.append(reinterpret_cast<const char*>(&length), sizeof length); }
    /// Without memory there is no seal: empty. No entry has that name, and none is written under it.
    std::string finish()
    {
        add(m_lengths);
        unsigned char seal[kSealBytes] = {};
        m_isGood = m_isGood && EVP_EncryptFinal_ex(m_context.get(), seal, &m_ignored) == 1 &&
                   EVP_CIPHER_CTX_ctrl(m_context.get(), EVP_CTRL_GCM_GET_TAG, sizeof seal, seal) == 1;
        return m_isGood ? std::string(reinterpret_cast<const char*>(seal), sizeof seal) : std::string();
    }

private:
    std::unique_ptr<EVP_CIPHER_CTX, void (*)(EVP_CIPHER_CTX*)> m_context;
    std::string m_lengths;
    int m_ignored = 0;
    bool m_isGood = false;
};

std::string KrMeshCache::seal(unsigned char purpose, std::initializer_list<std::string_view> parts) const
{
    Seal seal(m_cipher.get(), m_key, purpose);
    for (const std::string_view part : parts) {
        seal.add(part);
        seal.endPart(part.size());
    }
    return seal.finish();
}

/// Of an entry of `size` bytes with the checksum `sum`. With its name: an entry under another one's name is as good as
/// damaged.
std::string KrMeshCache::entrySeal(const Name& name, std::uint64_t size, std::uint32_t sum) const
{
    return seal(
        ForEntry,
        {name, {reinterpret_cast<const char*>(&size), sizeof size}, {reinterpret_cast<const char*>(&sum), sizeof sum}});
}

KrMeshCache::Name KrMeshCache::nameOf(std::initializer_list<std::string_view> parts) const
{
    return hexadecimal(seal(ForName, parts));
}

KrMeshCache::Name KrMeshCache::nameOfFile(const std::string& path, std::uint64_t maxBytes) const
{
    KrInputFile file(maxBytes, KrInputFile::Accept::Files);
    Seal seal(m_cipher.get(), m_key, ForName);
    std::uint64_t length = 0;
    const std::unique_ptr<char[]> block(new char[kBlockBytes]);
    bool isRead = file.open(path);
    for (std::size_t count = 1; isRead && count > 0; length += count) {
        count = 0;
        isRead = file.read(block.get(), kBlockBytes, count);
        seal.add({block.get(), count});
    }
    seal.endPart(length);
    return isRead ? hexadecimal(seal.finish()) : Name();
}

bool KrMeshCache::read(const Name& name, Entry& entry) const
{
    struct stat info = {};
    const Descriptor file(isOpen() ? openFile(m_folder, name.c_str(), info) : -1);
    // Before memory is asked for. None is written that is larger.
    const auto size = static_cast<std::uint64_t>(info.st_size);
    if (file.number < 0 || size < kHeaderBytes || size > m_maxBytes || size > std::numeric_limits<std::size_t>::max()) {
        return false;
    }
    if (size > entry.m_capacity) {
        // The old one is given back before the new one is asked for.
        entry.m_file.reset();
        entry.m_capacity = 0;
        entry.m_file.reset(new char[static_cast<std::size_t>(size)]);
        entry.m_capacity = static_cast<std::size_t>(size);
    }
    const std::string_view all(entry.m_file.get(), static_cast<std::size_t>(size));
    entry.m_bytes = all.substr(kHeaderBytes);
    // Block by block: each is summed up while it is close to the processor.
    std::uint32_t sum = kFirstSum;
    bool isRead = true;
    for (std::size_t first = 0; isRead && first < all.size(); first += kBlockBytes) {
        const std::string_view block = all.substr(first, kBlockBytes);
        isRead = readAll(file.number, entry.m_file.get() + first, block.size());
        const std::string_view part = first == 0 ? block.substr(kHeaderBytes) : block;
        sum = libdeflate_adler32(sum, part.data(), part.size());
    }
    if (!isRead || all.substr(0, kMagic.size()) != kMagic ||
        all.substr(kMagic.size(), kSealBytes) != entrySeal(name, entry.m_bytes.size(), sum)) {
        return false;
    }
    // Used now. Where that cannot be noted, it only goes earlier.
    const std::time_t now = std::time(nullptr);
    // A mark of later than now is of a clock that was wrong, and would keep the entry longer than all others.
    if (info.st_mtim.tv_sec < now - kLatelySeconds || info.st_mtim.tv_sec > now) {
        ::futimens(file.number, nullptr);
    }
    return true;
}

/// Into a file of a new name, all parts of it or none.
// Not by KrFileReplacement: a cache has no use for waiting until the disk has it, since the seal tells what did not
// arrive, and it goes by a descriptor of its folder, never by a path.
bool KrMeshCache::writeAside(std::initializer_list<std::string_view> parts, std::string& temporary) const
{
    char random[12];
    if (::getrandom(random, sizeof random, 0) != sizeof random) {
        return false;
    }
    temporary = std::string(kTemporary) + hexadecimal({random, sizeof random});
    const Descriptor file(
        ::openat(m_folder, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (file.number < 0) {
        return false;
    }
    const bool isWritten =
        std::all_of(parts.begin(), parts.end(), [&file](std::string_view part) { return writeAll(file.number, part); });
    if (!isWritten) {
        ::unlinkat(m_folder, temporary.c_str(), 0);
    }
    return isWritten;
}

void KrMeshCache::write(const Name& name, std::string_view bytes) const
{
    // What is larger than all of it may be would push everything else out, and go itself.
    const std::string sealed =
        isOpen() ? entrySeal(name, bytes.size(), libdeflate_adler32(kFirstSum, bytes.data(), bytes.size()))
                 : std::string();
    if (name.empty() || sealed.empty() || bytes.size() + kHeaderBytes > m_maxBytes) {
        return;
    }
    std::string temporary;
    if (writeAside({kMagic, sealed, bytes}, temporary) &&
        ::renameat(m_folder, temporary.c_str(), m_folder, name.c_str()) != 0) {
        ::unlinkat(m_folder, temporary.c_str(), 0);
    }
}

void KrMeshCache::trim() const
{
    const int copy = isOpen() ? ::openat(m_folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(copy >= 0 ? ::fdopendir(copy) : nullptr, ::closedir);
    if (!listing) {
        if (copy >= 0) {
            ::close(copy);
        }
        return;
    }
    using Used = std::tuple<std::time_t, long, std::string, std::uint64_t>;
    std::vector<Used> entries;
    std::uint64_t sum = 0;
    while (const dirent* const entry = ::readdir(listing.get())) {
        const std::string name = entry->d_name;
        struct stat info = {};
        // The key stays, and so does what is none of ours.
        const bool isTemporary = name.compare(0, kTemporary.size(), kTemporary) == 0;
        const bool isEntry =
            name.size() == 2 * kSealBytes && name.find_first_not_of("0123456789abcdef") == std::string::npos;
        if ((!isTemporary && !isEntry) || ::fstatat(m_folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        if (isTemporary) {
            if (info.st_mtim.tv_sec < std::time(nullptr) - kAbandonedSeconds) {
                ::unlinkat(m_folder, name.c_str(), 0);
            }
            continue;
        }
        sum += static_cast<std::uint64_t>(info.st_size);
        entries.emplace_back(info.st_mtim.tv_sec, info.st_mtim.tv_nsec, name, static_cast<std::uint64_t>(info.st_size));
    }
    if (sum <= m_maxBytes) {
        return;
    }
    std::sort(entries.begin(), entries.end());
    for (const auto& [seconds, nanoseconds, name, size] : entries) {
        // Some more than need be, so that the next mesh does not find the folder full again.
        if (sum <= m_maxBytes / 10 * 9) {
            break;
        }
        ::unlinkat(m_folder, name.c_str(), 0);
        sum -= size;
    }
}
