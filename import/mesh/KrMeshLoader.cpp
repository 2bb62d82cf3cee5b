#include <import/mesh/KrMeshLoader.h>

#include <import/files/KrImportPath.h>
#include <import/mesh/KrMeshFile.h>

#include <toolkit/foundation/private/KrInputFile.h>
#include <toolkit/foundation/private/KrParallel.h>
#include <toolkit/foundation/private/KrText.h>

#include <assimp/version.h>

#include <dlfcn.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <exception>
#include <new>
#include <tuple>
#include <utility>

namespace
{

// More at once would leave each too small a part of the limits.
constexpr std::size_t kMostAtOnce = 16;
// Files of one length that each further one is compared with. Those that differ mostly do so at their beginning, but
// somebody might make thousands that differ at their end.
constexpr std::size_t kMostAlike = 8;
// Of the form in which meshes are kept, and of what stands in it.
constexpr unsigned int kPreparation = 3;
// Of the clocks of file systems, generously.
constexpr std::int64_t kClockTickNs = 50000000;
// States of other files, beside the digest of what was read; no digest looks like that.
const char* const kThere = "there";
const char* const kUnreadable = "unreadable";

KrMeshFacts factsOf(KrMeshData& data)
{
    KrMeshFacts facts;
    facts.unit = data.unit;
    facts.upAxis = std::move(data.upAxis);
    facts.textures = std::move(data.textures);
    facts.warnings = std::move(data.warnings);
    for (const KrMeshData::Group& group : data.groups) {
        facts.numLooks += group.hasLook;
        facts.hasPlainGroups = facts.hasPlainGroups || !group.hasLook;
    }
    facts.hasTextureCoordinates = !data.textureCoordinates.empty();
    return facts;
}

KrMeshBuilder::Options optionsOf(const KrMeshLoader::Wish& wish, const KrMeshFacts& facts, const std::string& path)
{
    KrMeshBuilder::Options options;
    options.scale = wish.scale;
    options.useLooks = wish.useLooks;
    options.material = wish.material;
    options.name = path;
    // A mesh that brings all its looks is one extent whatever material the description gives.
    if (facts.hasPlainGroups) {
        const bool isUsable = facts.hasTextureCoordinates || !wish.hasTexture;
        options.material = isUsable ? wish.material : KrMeshLoader::plainName(wish.material);
        options.materialHasTexture = isUsable ? wish.hasTexture : wish.hasPlainTexture;
    }
    return options;
}

std::uint64_t sideBytesOf(const KrMeshData& data)
{
    std::uint64_t sum = 0;
    for (const KrMeshData::OtherFile& other : data.otherFiles) {
        struct stat info = {};
        sum += other.isRead && ::stat(other.path.c_str(), &info) == 0 ? static_cast<std::uint64_t>(info.st_size) : 0;
    }
    return sum;
}

std::int64_t nsOf(const timespec& time)
{
    return time.tv_sec * std::int64_t{1000000000} + time.tv_nsec;
}

std::int64_t nowNs()
{
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return nsOf(now);
}

/// Everything that decides what becomes of the bytes of a mesh file, besides those bytes and what is wished.
std::string versionText()
{
    std::string text = std::to_string(kPreparation) + " " + std::to_string(aiGetVersionMajor()) + "." +
                       std::to_string(aiGetVersionMinor()) + "." + std::to_string(aiGetVersionPatch()) + "." +
                       std::to_string(aiGetVersionRevision()) + " " + std::to_string(sizeof(std::size_t));
    // The libraries as they were built, ours and the toolkit's: whoever changes how meshes are prepared need not think
    // of the number above.
    for (const void* const place :
         {reinterpret_cast<const void*>(&versionText), reinterpret_cast<const void*>(&Kr::Print::instance)}) {
        Dl_info library = {};
        struct stat info = {};
        if (::dladdr(place, &library) != 0 && ::stat(library.dli_fname, &info) == 0) {
            text += " " + std::to_string(info.st_size) + " " + std::to_string(nsOf(info.st_mtim));
        }
    }
    return text;
}

/// Asked for once: what runs stays what it is, whatever becomes of the files.
const std::string& version()
{
    static const std::string text = versionText();
    return text;
}

bool isSameContent(const std::string& a, const std::string& b, std::uint64_t maxBytes)
{
    KrInputFile files[2] = {KrInputFile(maxBytes, KrInputFile::Accept::Files),
                            KrInputFile(maxBytes, KrInputFile::Accept::Files)};
    if (!files[0].open(a) || !files[1].open(b)) {
        return false;
    }
    // Piece by piece: files of one length mostly differ in the first one, which is short.
    constexpr std::size_t kFirst = 4096;
    constexpr std::size_t kFurther = 65536;
    std::vector<char> blocks[2];
    for (std::size_t size = kFirst;; size = kFurther) {
        for (std::vector<char>& block : blocks) {
            block.resize(size);
        }
        std::size_t counts[2] = {0, 0};
        for (unsigned int i = 0; i < 2; ++i) {
            if (!files[i].read(blocks[i].data(), blocks[i].size(), counts[i])) {
                return false;
            }
        }
        // Regular files give all that is asked for up to their end.
        if (counts[0] != counts[1] ||
            !std::equal(blocks[0].begin(), blocks[0].begin() + counts[0], blocks[1].begin())) {
            return false;
        }
        if (counts[0] == 0) {
            return true;
        }
    }
}

} // namespace

/// A mesh file, with all that is wanted of it.
struct KrMeshLoader::Job
{
    std::string path;
    struct stat info = {}; ///< zeros for what is not there
    File file;
    std::map<Wish, Mesh> meshes;
    bool isDone = false;
    bool needsOthers = false; ///< the mesh is made of more than this file
    Job* same = nullptr;      ///< another name of this content, which is loaded instead
    Job& leader() { return same ? *same : *this; }
};

/// Memory for an entry, from those that are done with theirs: new memory costs more than what is read into it.
struct KrMeshLoader::EntryLoan
{
    explicit EntryLoan(KrMeshLoader& owner)
        : loader(owner)
    {
        const std::lock_guard<std::mutex> lock(loader.m_entriesMutex);
        if (!loader.m_entries.empty()) {
            entry = std::move(loader.m_entries.back());
            loader.m_entries.pop_back();
        }
    }
    ~EntryLoan()
    {
        const std::lock_guard<std::mutex> lock(loader.m_entriesMutex);
        if (loader.m_entries.size() < kMostAtOnce) {
            loader.m_entries.push_back(std::move(entry));
        }
    }
    EntryLoan(const EntryLoan&) = delete;
    EntryLoan& operator=(const EntryLoan&) = delete;

    KrMeshLoader& loader;
    KrMeshCache::Entry entry;
};

void KrMeshLoader::prepare(KrMeshBuilder::Result& result) const
{
    using Preparation = KrImportOptions::Preparation;
    if (!result.extent || m_options.preparation == Preparation::None) {
        return;
    }
    // The extent keeps what it makes.
    if (m_options.preparation == Preparation::Levels) {
        result.extent->indexedMeshWithLevels();
    } else {
        result.extent->indexedMesh();
    }
    result.isIndexed = true;
}

bool KrMeshLoader::Wish::operator<(const Wish& other) const
{
    const auto key = [](const Wish& w) {
        return std::make_tuple(w.scale.x(), w.scale.y(), w.scale.z(), w.useLooks, std::cref(w.material), w.hasTexture,
                               w.hasPlainTexture);
    };
    return key(*this) < key(other);
}

KrMeshLoader::KrMeshLoader(const Options& options)
    : m_options(options)
    , m_cache(options.cacheFolder, options.maxCacheBytes)
    , m_version(m_cache.isOpen() ? version() : std::string())
{
    // So that giving one back never asks for memory.
    m_entries.reserve(kMostAtOnce);
}

KrMeshLoader::~KrMeshLoader() = default;

KrMeshLoader::Job& KrMeshLoader::jobOf(const std::string& path)
{
    std::unique_ptr<Job>& job = m_jobs[path];
    if (!job) {
        job = std::make_unique<Job>();
        job->path = path;
        if (::stat(path.c_str(), &job->info) != 0) {
            job->info = {};
        }
    }
    return *job;
}

void KrMeshLoader::want(const std::string& path, const Wish& wish)
{
    jobOf(path).meshes[wish];
}

void KrMeshLoader::load()
{
    run(uniqueJobs());
    // A mesh that other files belong to is another one in another place, and what cannot be read may lack them.
    std::vector<Job*> apart;
    for (const auto& [path, job] : m_jobs) {
        if (job->same && (job->same->needsOthers || !job->same->file.isRead)) {
            job->same = nullptr;
            apart.push_back(job.get());
        }
    }
    run(apart);
    m_entries.clear();
    if (m_hasKept) {
        m_cache.trim();
    }
}

/// One for each content; the others follow it.
std::vector<KrMeshLoader::Job*> KrMeshLoader::uniqueJobs()
{
    std::vector<Job*> jobs;
    // By length: only files of one length can be the same.
    std::map<off_t, std::vector<Job*>> leaders;
    for (const auto& [path, job] : m_jobs) {
        Job& own = *job;
        std::vector<Job*>& alike = leaders[own.info.st_size];
        const auto isSame = [&own, this](const Job* other) {
            // The extension may tell the format. Links and second names of a file need not be read for it.
            return own.info.st_ino != 0 &&
                   KrImportPath::extensionOf(own.path) == KrImportPath::extensionOf(other->path) &&
                   ((own.info.st_ino == other->info.st_ino && own.info.st_dev == other->info.st_dev) ||
                    isSameContent(own.path, other->path, m_options.limits.maxBytes));
        };
        const auto found = std::find_if(alike.begin(), alike.end(), isSame);
        if (found == alike.end()) {
            if (alike.size() < kMostAlike) {
                alike.push_back(&own);
            }
            jobs.push_back(&own);
        } else {
            own.same = *found;
            own.same->meshes.insert(own.meshes.begin(), own.meshes.end());
        }
    }
    return jobs;
}

void KrMeshLoader::run(const std::vector<Job*>& jobs)
{
    const std::size_t numLanes = std::min({KrParallel::numCores(), jobs.size(), kMostAtOnce});
    if (numLanes > 1) {
        // Large files first, so that none is left for one core when the others are done.
        std::vector<Job*> sorted = jobs;
        std::stable_sort(sorted.begin(), sorted.end(),
                         [](const Job* a, const Job* b) { return a->info.st_size > b->info.st_size; });
        const KrMeshLimits part{m_options.limits.maxBytes / numLanes, m_options.limits.maxTriangles / numLanes};
        for (const Job* const job : sorted) {
            m_bytesLeft += bytesOf(*job);
        }
        KrParallel::forEach(sorted.size(), numLanes, [&](std::size_t i) {
            runJob(*sorted[i], part, false);
            m_bytesLeft -= bytesOf(*sorted[i]);
        });
    }
    for (Job* const job : jobs) {
        if (!job->isDone) {
            runJob(*job, m_options.limits, true);
        }
    }
}

/// Of the file; never 0.
std::uint64_t KrMeshLoader::bytesOf(const Job& job)
{
    return static_cast<std::uint64_t>(std::max<off_t>(job.info.st_size, 1));
}

/// The file's share of the cores, by its length among all that are not done: the others keep theirs busy. A large file
/// gets more than its lane, and all of them when it is the last one.
std::size_t KrMeshLoader::numThreadsFor(const Job& job) const
{
    const std::uint64_t numCores = KrParallel::numCores();
    const std::uint64_t left = std::max(m_bytesLeft.load(), bytesOf(job));
    const std::uint64_t share = (numCores * bytesOf(job) + left / 2) / left;
    return static_cast<std::size_t>(std::clamp<std::uint64_t>(share, 1, numCores));
}

/// @param isAlone  false: what fails is left undone, because it may be no more than its part of the limits that is
/// lacking
void KrMeshLoader::runJob(Job& job, const KrMeshLimits& limits, bool isAlone)
{
    KrHeldMessages messages;
    File file;
    try {
        const std::int64_t startNs = nowNs();
        // By a look through it, without the memory that all of it takes: mostly no more is needed.
        std::string digest = m_cache.isOpen() ? m_cache.nameOfFile(job.path, limits.maxBytes) : std::string();
        const auto isDone = [&](auto& item) {
            auto& [wish, mesh] = item;
            return mesh.isLoaded || (!digest.empty() && takeKept(digest, job, wish, mesh, file));
        };
        // All of them, though one may be lacking: those that are kept need not be built.
        const auto numDone = std::count_if(job.meshes.begin(), job.meshes.end(), isDone);
        if (numDone < static_cast<std::ptrdiff_t>(job.meshes.size()) || !file.isRead) {
            std::string content;
            KrMeshData data;
            // A regular file: a description could name a device that never ends.
            file.why = KrInputFile::readWhole(job.path, KrInputFile::Accept::Files, limits.maxBytes, content);
            // Of what is read now, whatever it was before.
            digest = !digest.empty() && file.why.empty() ? m_cache.nameOf({content}) : std::string();
            file.isRead =
                file.why.empty() && KrMeshFile::readContent(job.path, std::move(content), limits, data, file.why);
            if (!isAlone && (!file.isRead || sideBytesOf(data) > limits.maxBytes)) {
                return;
            }
            job.needsOthers = !data.otherFiles.empty();
            file.facts = factsOf(data);
            file.messages = messages.take();
            OtherFiles others;
            const bool isKept = !digest.empty() && file.messages.empty() && statesOf(data.otherFiles, startNs, others);
            auto numLacking = static_cast<std::ptrdiff_t>(job.meshes.size()) - numDone;
            for (auto& [wish, mesh] : job.meshes) {
                if (!file.isRead || mesh.isLoaded) {
                    continue;
                }
                KrMeshBuilder::Options options = optionsOf(wish, file.facts, job.path);
                options.numThreads = numThreadsFor(job);
                // Most files are wanted in one way; the last one may use the data up. (What is moved is not used again:
                // none is lacking then.)
                mesh.result = --numLacking > 0 ? KrMeshBuilder::build(data, options) // NOLINT(bugprone-use-after-move)
                                               : KrMeshBuilder::build(std::move(data), options);
                mesh.messages = messages.take();
                mesh.isLoaded = true;
                prepare(mesh.result);
                if (isKept && mesh.messages.empty()) {
                    keep(nameOf(job, digest, wish, !others.empty()), file.facts, mesh, others);
                }
            }
        }
    } catch (const std::bad_alloc&) {
        file.isRead = false;
        file.why = "out of memory"; // short enough to need none
    } catch (const std::exception& exception) {
        file.isRead = false;
        file.why = KrText::oneLine(exception.what());
    }
    job.file = std::move(file);
    job.isDone = true;
}

/// What the entry of a wish is called. A mesh of one file alone goes by its bytes, wherever it lies; one that other
/// files belong to goes by its place, too, since that is where they are looked for.
KrMeshCache::Name KrMeshLoader::nameOf(const Job& job, const std::string& digest, const Wish& wish,
                                       bool needsOthers) const
{
    std::string numbers;
    const auto append = [&numbers](const auto& value) {
        numbers.append(reinterpret_cast<const char*>(&value), sizeof value);
    };
    for (unsigned int i = 0; i < 3; ++i) {
        append(wish.scale[i]);
    }
    append(m_options.limits.maxBytes);
    append(m_options.limits.maxTriangles);
    for (const bool flag : {wish.useLooks, wish.hasTexture, wish.hasPlainTexture}) {
        append(flag);
    }
    append(m_options.preparation);
    const std::string place = needsOthers ? KrImportPath::absolute(job.path) : KrImportPath::extensionOf(job.path);
    return m_cache.nameOf({digest, m_version, numbers, wish.material, place});
}

/// False when the cache has no such mesh, or has it of other files than there are now.
bool KrMeshLoader::takeKept(const std::string& digest, Job& job, const Wish& wish, Mesh& mesh, File& file)
{
    EntryLoan loan(*this);
    KrMeshCache::Entry& entry = loan.entry;
    KrPreparedMesh kept;
    const auto isSame = [this](const KrPreparedMesh::OtherFile& other) {
        return stateOf(other.path, other.isRead) == other.state;
    };
    const bool isFound = (m_cache.read(nameOf(job, digest, wish, false), entry) ||
                          m_cache.read(nameOf(job, digest, wish, true), entry)) &&
                         KrPreparedMesh::read(entry.bytes(), kept) &&
                         std::all_of(kept.otherFiles.begin(), kept.otherFiles.end(), isSame);
    if (isFound) {
        file.isRead = true;
        file.facts = std::move(kept.facts);
        mesh.result = std::move(kept.result);
        mesh.isLoaded = true;
        job.needsOthers = !kept.otherFiles.empty();
    }
    return isFound;
}

void KrMeshLoader::keep(const KrMeshCache::Name& name, const KrMeshFacts& facts, const Mesh& mesh,
                        const OtherFiles& otherFiles)
{
    // What could not be made is tried again the next time: it may be memory that was lacking.
    if (mesh.result.extent || mesh.result.triangles == 0) {
        m_cache.write(name, KrPreparedMesh{facts, mesh.result, otherFiles}.bytes());
        m_hasKept = true;
    }
}

/// What the other files of a mesh are like; false when that is not known well enough for the next time.
/// @param startNs  when the mesh began to be read
bool KrMeshLoader::statesOf(const std::vector<KrMeshData::OtherFile>& files, std::int64_t startNs,
                            OtherFiles& states) const
{
    for (const KrMeshData::OtherFile& file : files) {
        struct stat info = {};
        const bool isThere = ::stat(file.path.c_str(), &info) == 0;
        const std::string state = stateOf(file.path, file.isRead);
        // It is looked at a second time here. What has changed meanwhile, or could have within a tick of the file
        // system's clock, may be other than what the mesh was made of.
        if (state == kUnreadable || (isThere && file.isRead && nsOf(info.st_ctim) + kClockTickNs > startNs)) {
            return false;
        }
        states.push_back({file.path, file.isRead, state});
    }
    return true;
}

std::string KrMeshLoader::stateOf(const std::string& path, bool isRead) const
{
    if (!KrImportPath::isFile(path)) {
        return "";
    }
    if (!isRead) {
        return kThere;
    }
    const std::string digest = m_cache.nameOfFile(path, m_options.limits.maxBytes);
    return digest.empty() ? kUnreadable : digest;
}

const KrMeshLoader::File& KrMeshLoader::file(const std::string& path)
{
    Job& job = jobOf(path).leader();
    if (!job.isDone) {
        runJob(job, m_options.limits, true);
    }
    return job.file;
}

const std::string& KrMeshLoader::identity(const std::string& path)
{
    return jobOf(path).leader().path;
}

KrMeshLoader::Mesh& KrMeshLoader::mesh(const std::string& path, const Wish& wish)
{
    Job& job = jobOf(path).leader();
    if (!job.isDone || job.meshes.count(wish) == 0) {
        job.meshes[wish];
        runJob(job, m_options.limits, true);
    }
    return job.meshes.at(wish);
}
