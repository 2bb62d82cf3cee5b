#include <dataset/KrDatasetStore.h>

#include <dataset/KrDatasetFormat.h>
#include <dataset/KrDatasetRecipe.h>
#include <dataset/private/KrDatasetHash.h>
#include <dataset/private/KrDatasetManifest.h>

#include <toolkit/foundation/private/KrFileReplacement.h>
#include <toolkit/foundation/private/KrInputFile.h>
#include <toolkit/foundation/private/KrJson.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <set>

namespace
{

namespace fs = std::filesystem;

constexpr const char* kRecipe = "recipe.json";
constexpr const char* kDescription = "dataset.json";
constexpr const char* kIndex = "index.json";
constexpr const char* kLeftover = ".tmp";
constexpr const char* kLock = ".lock";

bool fail(const std::string& what, int error, std::string& reason)
{
    reason = what + ": " + std::strerror(error);
    return false;
}

/// ".shard-000012": what hidden names of a shard begin with.
std::string hiddenName(std::uint64_t shard)
{
    char text[40];
    std::snprintf(text, sizeof text, ".shard-%06llu", static_cast<unsigned long long>(shard));
    return text;
}

bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// The shard of a hidden folder or lock; none for other names.
std::optional<std::uint64_t> shardOfLeftover(const std::string& name)
{
    unsigned long long number = 0;
    int end = 0;
    const bool isOne = std::sscanf(name.c_str(), ".shard-%llu.%n", &number, &end) == 1 && end > 0 &&
                       (endsWith(name, kLeftover) || endsWith(name, kLock));
    return isOne ? std::optional<std::uint64_t>(number) : std::nullopt;
}

/// Hands what `path` holds, a file or a folder, to the disk.
bool sync(const std::string& path, std::string& reason)
{
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return fail(path, errno, reason);
    }
    const bool isSynced = ::fsync(descriptor) == 0;
    const int error = errno;
    ::close(descriptor);
    // File systems that cannot sync a folder have written it when the call that changed it came back.
    return isSynced || error == EINVAL || fail(path + " cannot be handed to the disk", error, reason);
}

/// Held while files of the data set itself are written, by whoever does so. It waits for the one before; where the file
/// system has no locks nothing is held.
class FolderLock
{
public:
    explicit FolderLock(const std::string& folder)
        : m_descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
        , m_isLocked(m_descriptor >= 0 && ::flock(m_descriptor, LOCK_EX) == 0)
    {
    }
    ~FolderLock()
    {
        if (m_descriptor >= 0) {
            ::close(m_descriptor);
        }
    }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    bool isLocked() const { return m_isLocked; }

private:
    int m_descriptor;
    bool m_isLocked;
};

/// Removes unfinished files of those who were killed while they held the lock of `folder`, which is the caller's now.
void removePartialFiles(const std::string& folder)
{
    std::error_code error;
    std::vector<fs::path> found;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        const std::string name = at->path().filename().string();
        if (name.front() == '.' && name.find(".partial") != std::string::npos && at->is_regular_file(error)) {
            found.push_back(at->path());
        }
    }
    for (const fs::path& path : found) {
        fs::remove(path, error);
    }
}

/// Has the system begin to write a file, so that syncing many one after the other does not wait for each.
void beginSync(const std::string& path)
{
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor >= 0) {
        ::sync_file_range(descriptor, 0, 0, SYNC_FILE_RANGE_WRITE);
        ::close(descriptor);
    }
}

/// Writes a file unless one is there, in one step: of several that begin together one is first, and it stays.
/// @return why it failed; empty for none
std::string writeOnce(const std::string& path, const std::string& text)
{
    KrFileReplacement file(path);
    if (file.write(text.data(), text.size()) && ::fsync(file.descriptor()) == 0 &&
        (::link(file.temporaryPath().c_str(), path.c_str()) == 0 || errno == EEXIST)) {
        return std::string();
    }
    // A file system without second names; there two that begin together with two recipes are not told apart.
    return file.replace() ? std::string() : file.reason();
}

} // namespace

/// Held while a shard is made: whoever gets it knows that nobody else is at work there, wherever it runs.
class KrDatasetStore::Draft::Lock
{
public:
    ~Lock()
    {
        if (m_descriptor >= 0) {
            // Before it is let go: who waits for this file finds out that it has no name any more.
            ::unlink(m_path.c_str());
            ::close(m_descriptor);
        }
    }

    /// False where the file system has no locks: nobody knows who else is at work.
    bool isLocked() const { return m_isLocked; }

    /// @return false where somebody else has it (`isBusy`), or the system fails
    bool take(const std::string& path, bool& isBusy, std::string& reason)
    {
        isBusy = false;
        while (true) {
            const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
            if (descriptor < 0) {
                return fail(path, errno, reason);
            }
            m_isLocked = ::flock(descriptor, LOCK_EX | LOCK_NB) == 0;
            // Cluster file systems may be mounted without locks. Work goes on there: a shard is published in one step,
            // and the second one to do so finds it done.
            const int error = errno;
            const bool isUnknown = error == ENOSYS || error == EOPNOTSUPP || error == ENOLCK;
            if (!m_isLocked && !isUnknown) {
                ::close(descriptor);
                isBusy = error == EWOULDBLOCK;
                return fail(path + " cannot be locked", error, reason);
            }
            // The one before may have removed the name between opening and locking: then this is nobody's lock.
            struct stat locked = {};
            struct stat named = {};
            if (::fstat(descriptor, &locked) == 0 && ::stat(path.c_str(), &named) == 0 &&
                locked.st_ino == named.st_ino && locked.st_dev == named.st_dev) {
                m_path = path;
                m_descriptor = descriptor;
                return true;
            }
            ::close(descriptor);
        }
    }

private:
    std::string m_path;
    int m_descriptor = -1;
    bool m_isLocked = false;
};

KrDatasetStore::Draft::Draft(const KrDatasetStore& store, const KrDatasetShard& shard)
    : m_store(store)
    , m_shard(shard)
    , m_lock(new Lock)
{
}

KrDatasetStore::Draft::~Draft()
{
    // Under the lock, which goes behind it: nobody takes this folder for a leftover meanwhile.
    if (!m_folder.empty()) {
        std::error_code error;
        fs::remove_all(m_folder, error);
    }
}

bool KrDatasetStore::Draft::publish(const std::string& renderer, std::string& reason)
{
    KrDatasetManifest manifest;
    manifest.shard = m_shard;
    manifest.recipeHash = m_store.m_info->recipeHash;
    manifest.rendererVersion = m_store.m_info->rendererVersion;
    manifest.renderer = renderer;
    std::error_code error;
    std::vector<std::string> folders = {m_folder};
    for (fs::recursive_directory_iterator at(m_folder, error), end; !error && at != end; at.increment(error)) {
        at->is_directory(error) ? folders.push_back(at->path().string()) : beginSync(at->path().string());
    }
    // Written back while they are read.
    if (!manifest.list(m_folder, reason)) {
        return false;
    }
    const std::string failure = KrFileReplacement::write(m_folder + "/" + KrDatasetManifest::kName, manifest.json());
    if (!failure.empty()) {
        reason = m_folder + "/" + KrDatasetManifest::kName + ": " + failure;
        return false;
    }
    for (const KrDatasetManifest::File& file : manifest.files) {
        if (!sync(m_folder + "/" + file.path, reason)) {
            return false;
        }
    }
    // Names are in the folders: without them files would be on the disk that nobody finds.
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        if (!sync(*folder, reason)) {
            return false;
        }
    }
    const fs::path target = m_store.shardPath(m_shard.number);
    fs::create_directories(target.parent_path(), error);
    if (error) {
        return fail(target.string(), error.value(), reason);
    }
    if (::rename(m_folder.c_str(), target.c_str()) != 0) {
        // Where locks mean nothing, somebody may have been faster: the shard is there, and has the same bytes.
        return ((errno == ENOTEMPTY || errno == EEXIST) && m_store.isDone(m_shard.number)) ||
               fail(target.string(), errno, reason);
    }
    m_folder.clear();
    return sync(target.parent_path().string(), reason) && sync(m_store.m_folder, reason);
}

bool KrDatasetStore::open(const std::string& folder, const KrDatasetRecipe& recipe, const KrDatasetInfo& info,
                          std::string& reason)
{
    m_folder = folder;
    m_recipe = &recipe;
    m_info = &info;
    m_format = KrDatasetFormat::find(recipe.format);
    if (m_format == nullptr) {
        reason = "there is no format \"" + recipe.format + "\"";
        return false;
    }
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        reason = folder + " cannot be made: " + error.message();
        return false;
    }
    const bool isBegun = fs::exists(folder + "/" + kRecipe, error);
    for (fs::directory_iterator at(folder, error), end; !isBegun && !error && at != end; at.increment(error)) {
        // Hidden files are those of others who are just beginning.
        if (at->path().filename().string().front() != '.') {
            // Somebody may have begun since.
            std::error_code ignored;
            if (fs::exists(folder + "/" + kRecipe, ignored)) {
                break;
            }
            reason = folder + " is no data set's folder: it holds \"" + at->path().filename().string() + "\" and no " +
                     kRecipe;
            return false;
        }
    }
    const std::string description = krDatasetDescription(recipe, info, reason);
    const FolderLock lock(folder);
    const bool isOurs =
        !description.empty() &&
        settle(kRecipe, recipe.text, "the recipe is not the one by which " + folder + " was begun", reason) &&
        settle(kDescription, description, "robots, meshes or the renderer have changed since " + folder + " was begun",
               reason);
    if (isOurs && lock.isLocked()) {
        removePartialFiles(folder);
    }
    return isOurs;
}

/// Writes a file that is the same for all processes; one that is there must be the same already.
bool KrDatasetStore::settle(const std::string& name, const std::string& text, const std::string& what,
                            std::string& reason) const
{
    const std::string path = m_folder + "/" + name;
    std::error_code error;
    if (!fs::exists(path, error)) {
        // Two processes that begin together write the same bytes, or the later one sees below that it does not.
        const std::string failure = writeOnce(path, text);
        if (!failure.empty()) {
            reason = path + ": " + failure;
            return false;
        }
    }
    std::string there;
    const std::string failure =
        KrInputFile::readWhole(path, KrInputFile::Accept::Files, std::numeric_limits<std::uint64_t>::max(), there);
    if (!failure.empty()) {
        reason = path + ": " + failure;
        return false;
    }
    if (there != text) {
        reason = what + " (see " + path + "); give another folder";
        return false;
    }
    return true;
}

std::string KrDatasetStore::shardPath(std::uint64_t shard) const
{
    return m_folder + "/" + m_format->shardFolder(shard);
}

bool KrDatasetStore::isDone(std::uint64_t shard) const
{
    std::error_code error;
    return fs::exists(shardPath(shard) + "/" + KrDatasetManifest::kName, error);
}

void KrDatasetStore::removeLeftovers(std::uint64_t process, std::uint64_t numProcesses) const
{
    std::error_code error;
    std::map<std::uint64_t, std::vector<std::string>> leftovers;
    for (fs::directory_iterator at(m_folder, error), end; !error && at != end; at.increment(error)) {
        const auto shard = shardOfLeftover(at->path().filename().string());
        if (shard && *shard % numProcesses == process) {
            leftovers[*shard].push_back(at->path().string());
        }
    }
    for (const auto& [shard, paths] : leftovers) {
        Draft::Lock lock;
        bool isBusy = false;
        std::string ignored;
        // Whoever made them held this lock until its end: it is free, so they are nobody's.
        if (lock.take(m_folder + "/" + hiddenName(shard) + kLock, isBusy, ignored) && lock.isLocked()) {
            for (const std::string& path : paths) {
                // The lock itself goes with this one.
                if (!endsWith(path, kLock)) {
                    fs::remove_all(path, error);
                }
            }
        }
    }
}

KrDatasetStore::Begin KrDatasetStore::begin(const KrDatasetShard& shard, std::unique_ptr<Draft>& draft,
                                            std::string& reason) const
{
    if (isDone(shard.number)) {
        return Begin::Done;
    }
    std::unique_ptr<Draft> made(new Draft(*this, shard));
    const std::string hidden = m_folder + "/" + hiddenName(shard.number);
    bool isBusy = false;
    if (!made->m_lock->take(hidden + kLock, isBusy, reason)) {
        return isBusy ? Begin::Busy : Begin::Failed;
    }
    // Another one may have finished it before the lock was ours.
    if (isDone(shard.number)) {
        return Begin::Done;
    }
    for (unsigned int attempt = 0;; ++attempt) {
        const std::string folder =
            hidden + "." + std::to_string(::getpid()) + "." + std::to_string(attempt) + kLeftover;
        if (::mkdir(folder.c_str(), 0777) == 0) {
            made->m_folder = folder;
            draft = std::move(made);
            return Begin::Ours;
        }
        if (errno != EEXIST) {
            fail(folder, errno, reason);
            return Begin::Failed;
        }
    }
}

bool KrDatasetStore::verify(std::uint64_t process, std::uint64_t numProcesses, std::vector<std::string>& faults,
                            std::string& reason) const
{
    for (std::uint64_t number = 0; number < m_recipe->numShards(); ++number) {
        if (number % numProcesses != process) {
            continue;
        }
        const std::string folder = shardPath(number);
        const std::string name = m_format->shardFolder(number);
        if (!isDone(number)) {
            faults.push_back("shard " + std::to_string(number) + " is missing");
            continue;
        }
        KrDatasetManifest told;
        KrDatasetManifest found;
        std::string why;
        if (!told.read(folder, why) || !found.list(folder, why)) {
            faults.push_back("shard " + std::to_string(number) + " is damaged: " + why);
            continue;
        }
        const KrDatasetShard expected = m_recipe->shard(number);
        if (told.recipeHash != m_info->recipeHash || told.shard.number != expected.number ||
            told.shard.first != expected.first || told.shard.count != expected.count) {
            faults.push_back("shard " + std::to_string(number) + " is of another data set");
            continue;
        }
        std::map<std::string, const KrDatasetManifest::File*> there;
        for (const KrDatasetManifest::File& file : found.files) {
            there[file.path] = &file;
        }
        for (const KrDatasetManifest::File& file : told.files) {
            const auto at = there.find(file.path);
            if (at == there.end()) {
                faults.push_back(name + "/" + file.path + " is missing");
            } else if (at->second->bytes != file.bytes || at->second->hash != file.hash) {
                faults.push_back(name + "/" + file.path + " is damaged: it has not the bytes that were written");
            }
            there.erase(file.path);
        }
        for (const auto& [path, file] : there) {
            faults.push_back(name + "/" + path + " does not belong there");
        }
    }
    reason.clear();
    return true;
}

bool KrDatasetStore::merge(std::string& reason) const
{
    std::string shards;
    std::set<std::string> drivers;
    std::uint64_t numBytes = 0;
    for (std::uint64_t number = 0; number < m_recipe->numShards(); ++number) {
        KrDatasetManifest manifest;
        if (!isDone(number)) {
            reason = "shard " + std::to_string(number) + " of " + std::to_string(m_recipe->numShards()) +
                     " is missing: what is there cannot be merged yet";
            return false;
        }
        if (!manifest.read(shardPath(number), reason)) {
            return false;
        }
        std::uint64_t bytes = 0;
        for (const KrDatasetManifest::File& file : manifest.files) {
            bytes += file.bytes;
        }
        numBytes += bytes;
        drivers.insert(manifest.renderer);
        std::string why;
        const std::string hash = KrDatasetHash::ofFile(shardPath(number) + "/" + KrDatasetManifest::kName, why);
        shards += (shards.empty() ? "\n  " : ",\n  ") + KrJson::Object()
                                                            .string("folder", m_format->shardFolder(number))
                                                            .raw("first", std::to_string(manifest.shard.first))
                                                            .raw("count", std::to_string(manifest.shard.count))
                                                            .count("files", manifest.files.size())
                                                            .raw("bytes", std::to_string(bytes))
                                                            .string("manifest", hash)
                                                            .text();
    }
    const FolderLock lock(m_folder);
    if (!m_format->writeSet(*m_info, m_folder, reason)) {
        return false;
    }
    // Last: where it is, everything is.
    const std::string text =
        "{\"format\": \"krDatasetIndex\", \"version\": 1, \"name\": " + KrJson::quoted(m_info->name) +
        ",\n\"recipe\": " + KrJson::quoted(m_info->recipeHash) +
        ",\n\"samples\": " + std::to_string(m_info->numSamples) + ", \"bytes\": " + std::to_string(numBytes) +
        ",\n\"drivers\": " +
        KrJson::array(drivers, " ", [](const std::string& driver) { return KrJson::quoted(driver); }) +
        ",\n\"shards\": [" + shards + "]}\n";
    const std::string failure = KrFileReplacement::write(m_folder + "/" + kIndex, text);
    if (!failure.empty()) {
        reason = m_folder + "/" + kIndex + ": " + failure;
    }
    return failure.empty();
}

std::uint64_t KrDatasetStore::freeBytes() const
{
    struct statvfs system = {};
    if (::statvfs(m_folder.c_str(), &system) != 0) {
        return std::numeric_limits<std::uint64_t>::max();
    }
    return std::uint64_t{system.f_bavail} * system.f_frsize;
}
