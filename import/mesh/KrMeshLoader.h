#pragma once

#include <import/KrImportOptions.h>
#include <import/cache/KrMeshCache.h>
#include <import/cache/KrPreparedMesh.h>
#include <import/mesh/KrMeshBuilder.h>
#include <import/mesh/KrMeshFacts.h>
#include <import/mesh/KrMeshLimits.h>

#include <toolkit/foundation/private/KrHeldMessages.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// Reads the mesh files of a robot and makes extents of them: on all cores, and each file once, whatever names it goes
/// by.
///
/// What is wanted is told first, then loaded at once, then asked for in the order of the description. What a file or a
/// mesh had to say on the way is kept with it, so that messages come in that order, too. What was not told is loaded
/// when it is asked for.
///
/// What a cache has of a file is not read anew: the mesh library is not asked then. An entry goes by the bytes of the
/// file, by what is wanted of it, and by what other files had their part in it; by this version of the libraries, too.
///
/// The limits hold for all files that are read at the same time together: each of them may have its part, and one that
/// needs more is read alone when the others are done.
class KrMeshLoader
{
public:
    struct Options
    {
        KrMeshLimits limits;
        KrImportOptions::Preparation preparation = KrImportOptions::Preparation::None;
        std::string cacheFolder; ///< as KrMeshCache has it
        std::uint64_t maxCacheBytes = 0;
    };
    /// How a shape wants the mesh of a file.
    struct Wish
    {
        KrVector scale = KrVector(1.0, 1.0, 1.0);
        bool useLooks = true;         ///< as in KrMeshBuilder::Options
        std::string material;         ///< for triangles without a look of their own
        bool hasTexture = false;      ///< that material
        bool hasPlainTexture = false; ///< the material of plainName(material)
        bool operator<(const Wish& other) const;
    };
    struct File
    {
        bool isRead = false;
        std::string why; ///< it is not
        KrMeshFacts facts;
        KrHeldMessages::List messages;
    };
    struct Mesh
    {
        KrMeshBuilder::Result result; ///< its extent without a placement
        KrHeldMessages::List messages;
        bool isLoaded = false;
        bool isTaken = false; ///< the extent belongs to a shape; the next one has to copy it
    };

    explicit KrMeshLoader(const Options& options);
    ~KrMeshLoader();

    /// The name of a material's stand-in for surfaces without texture coordinates.
    static std::string plainName(const std::string& material) { return material + " without texture"; }

    /// Tells what will be asked for.
    void want(const std::string& path, const Wish& wish);
    /// Loads what was told. Nothing is thrown: what fails, memory too, costs its file.
    void load();

    /// Borrowed for as long as the loader lives.
    const File& file(const std::string& path);
    /// The same for all names of one content, where that is all that the mesh is made of.
    const std::string& identity(const std::string& path);
    /// Of a file that is read. Borrowed as well; the caller marks what it takes.
    Mesh& mesh(const std::string& path, const Wish& wish);

private:
    struct Job;
    struct EntryLoan;
    using OtherFiles = std::vector<KrPreparedMesh::OtherFile>;

    Job& jobOf(const std::string& path);
    std::vector<Job*> uniqueJobs();
    void run(const std::vector<Job*>& jobs);
    static std::uint64_t bytesOf(const Job& job);
    std::size_t numThreadsFor(const Job& job) const;
    void runJob(Job& job, const KrMeshLimits& limits, bool isAlone);
    KrMeshCache::Name nameOf(const Job& job, const std::string& digest, const Wish& wish, bool needsOthers) const;
    void prepare(KrMeshBuilder::Result& result) const;
    bool takeKept(const std::string& digest, Job& job, const Wish& wish, Mesh& mesh, File& file);
    void keep(const KrMeshCache::Name& name, const KrMeshFacts& facts, const Mesh& mesh, const OtherFiles& otherFiles);
    bool statesOf(const std::vector<KrMeshData::OtherFile>& files, std::int64_t startNs, OtherFiles& states) const;
    std::string stateOf(const std::string& path, bool isRead) const;

    Options m_options;
    KrMeshCache m_cache;
    std::string m_version;
    std::vector<KrMeshCache::Entry> m_entries; ///< on loan to who reads one
    std::mutex m_entriesMutex;
    std::atomic<bool> m_hasKept{false};                 ///< something new
    std::atomic<std::uint64_t> m_bytesLeft{0};          ///< of the files that are loaded at once and not done
    std::map<std::string, std::unique_ptr<Job>> m_jobs; ///< by path
};
