#include <import/mesh/KrMeshLoader.h>

#include <import/files/KrImportPath.h>
#include <import/mesh/KrMeshFile.h>

#include <toolkit/foundation/private/KrInputFile.h>
#include <toolkit/foundation/private/KrParallel.h>
#include <toolkit/foundation/private/KrText.h>

#include <sys/stat.h>

#include <algorithm>
#include <exception>
#include <tuple>
#include <utility>

namespace
{

// More at once would leave each too small a part of the limits.
constexpr std::size_t kMostAtOnce = 16;

KrMeshLoader::Facts factsOf(KrMeshData& data)
{
    KrMeshLoader::Facts facts;
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

KrMeshBuilder::Options optionsOf(const KrMeshLoader::Wish& wish, const KrMeshLoader::Facts& facts,
                                 const std::string& path)
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

bool isSameContent(const std::string& a, const std::string& b, std::uint64_t maxBytes)
{
    KrInputFile files[2] = {KrInputFile(maxBytes, KrInputFile::Accept::Files),
                            KrInputFile(maxBytes, KrInputFile::Accept::Files)};
    if (!files[0].open(a) || !files[1].open(b)) {
        return false;
    }
    // Piece by piece: files of one length mostly differ in the first one.
    std::vector<char> blocks[2] = {std::vector<char>(1 << 16), std::vector<char>(1 << 16)};
    for (;;) {
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

bool KrMeshLoader::Wish::operator<(const Wish& other) const
{
    const auto key = [](const Wish& w) {
        return std::make_tuple(w.scale.x(), w.scale.y(), w.scale.z(), w.useLooks, std::cref(w.material), w.hasTexture,
                               w.hasPlainTexture);
    };
    return key(*this) < key(other);
}

KrMeshLoader::KrMeshLoader(const KrMeshLimits& limits)
    : m_limits(limits)
{
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
                    isSameContent(own.path, other->path, m_limits.maxBytes));
        };
        const auto found = std::find_if(alike.begin(), alike.end(), isSame);
        if (found == alike.end()) {
            alike.push_back(&own);
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
        const KrMeshLimits part{m_limits.maxBytes / numLanes, m_limits.maxTriangles / numLanes};
        KrParallel::forEach(sorted.size(), numLanes, [&](std::size_t i) { runJob(*sorted[i], part, false); });
    }
    for (Job* const job : jobs) {
        if (!job->isDone) {
            runJob(*job, m_limits, true);
        }
    }
}

/// @param isAlone  false: what fails is left undone, because it may be no more than its part of the limits that is
/// lacking
void KrMeshLoader::runJob(Job& job, const KrMeshLimits& limits, bool isAlone)
{
    KrHeldMessages messages;
    File file;
    try {
        std::string content;
        KrMeshData data;
        // A regular file: a description could name a device that never ends.
        file.why = KrInputFile::readWhole(job.path, KrInputFile::Accept::Files, limits.maxBytes, content);
        file.isRead = file.why.empty() && KrMeshFile::readContent(job.path, std::move(content), limits, data, file.why);
        std::uint64_t sideBytes = 0;
        for (const KrMeshData::OtherFile& other : data.otherFiles) {
            struct stat info = {};
            sideBytes += other.isRead && ::stat(other.path.c_str(), &info) == 0 ? info.st_size : 0;
        }
        if (!isAlone && (!file.isRead || sideBytes > limits.maxBytes)) {
            return;
        }
        job.needsOthers = !data.otherFiles.empty();
        file.facts = factsOf(data);
        file.messages = messages.take();
        for (auto& [wish, mesh] : job.meshes) {
            if (file.isRead) {
                mesh.result = KrMeshBuilder::build(data, optionsOf(wish, file.facts, job.path));
                mesh.messages = messages.take();
            }
        }
    } catch (const std::exception& exception) {
        file.isRead = false;
        file.why = KrText::oneLine(exception.what());
    }
    job.file = std::move(file);
    job.isDone = true;
}

const KrMeshLoader::File& KrMeshLoader::file(const std::string& path)
{
    Job& job = jobOf(path).leader();
    if (!job.isDone) {
        runJob(job, m_limits, true);
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
        runJob(job, m_limits, true);
    }
    return job.meshes.at(wish);
}
