#pragma once

#include <dataset/KrDatasetScene.h>
#include <dataset/KrDatasetStore.h>

#include <cstdint>
#include <functional>
#include <string>

/// Makes a data set, or one process's share of it, in a folder.
///
/// Process i of n makes the shards s with s % n == i that are not there yet; n processes together make all, whatever
/// ran before. What fails gives false, and says why in one sentence without a full stop; whole shards stay, and of the
/// one at work nothing is left.
class KrDatasetMaker
{
public:
    struct Options
    {
        std::uint64_t process = 0; ///< of numProcesses, from 0
        std::uint64_t numProcesses = 1;
        bool requireGpu = false; ///< refuse a driver that draws by software
        /// Asked between samples: true ends the work as a failure.
        std::function<bool()> isStopped;
        /// Told after each sample. @param total  samples that this process has to make
        std::function<void(std::uint64_t done, std::uint64_t total)> progress;
    };

    /// What was done. Times are processor time of this thread, s.
    struct Result
    {
        std::uint64_t samples = 0; ///< made by this call
        std::uint64_t shards = 0;
        std::uint64_t shardsThere = 0; ///< of this process's, before
        std::uint64_t shardsBusy = 0;  ///< that others were making, and may not finish
        KrDatasetScene::Times scene;
        double encoding = 0.0;
        double writing = 0.0;
        double publishing = 0.0; ///< manifests, and handing files to the disk
    };

    /// Reads the scene and opens, or makes, the folder; needs no OpenGL. Once.
    bool open(const KrDatasetRecipe& recipe, const std::string& folder, std::string& reason);
    const KrDatasetStore& store() const { return m_store; }
    KrDatasetScene& scene() { return m_scene; }

    /// After `open`. `result` tells what was done, on failure too.
    bool make(const Options& options, Result& result, std::string& reason);

    /// Draws one sample again, as a shard of its own in `folder`, which is not there yet. Needs no `open`.
    static bool makeSample(const KrDatasetRecipe& recipe, std::uint64_t number, bool requireGpu,
                           const std::string& folder, std::string& reason);

private:
    static bool openScene(KrDatasetScene& scene, bool requireGpu, std::string& reason);
    bool makeShard(const KrDatasetShard& shard, const std::string& folder, const Options& options, std::uint64_t total,
                   Result& result, std::string& reason);

    KrDatasetScene m_scene;
    KrDatasetStore m_store;
    KrDatasetSample m_sample; ///< kept, so that a series allocates little
};
