#pragma once

#include <dataset/KrDatasetInfo.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class KrDatasetFormat;
struct KrDatasetRecipe;

/// The folder of a data set: what counts as done in it is whole.
///
/// Beside the shards it holds `recipe.json`, a copy of the recipe, `dataset.json`, what is known of all samples, and,
/// once they are merged, `index.json`. A shard is written in a hidden folder of its own; when all its files and a
/// manifest of them (sizes, SHA-256) have been handed to the disk, the folder gets its name in one step. Several
/// processes, on several machines, may work in one folder. Where the file system has no locks they may, too: what
/// a killed one has left stays there, and of two that make the same shard one is in vain.
///
/// What fails gives false, and says why in one sentence without a full stop.
class KrDatasetStore
{
public:
    /// A shard that this process is about to make. Unless it is published, nothing of it stays.
    class Draft
    {
    public:
        ~Draft();
        Draft(const Draft&) = delete;
        Draft& operator=(const Draft&) = delete;

        /// Where it is written: empty at first, this process's alone.
        const std::string& folder() const { return m_folder; }
        /// Hands all files to the disk, and makes the shard a part of the data set. Once.
        /// @param renderer  what has drawn it, for the manifest
        bool publish(const std::string& renderer, std::string& reason);

    private:
        friend class KrDatasetStore;
        class Lock;
        Draft(const KrDatasetStore& store, const KrDatasetShard& shard);

        const KrDatasetStore& m_store;
        const KrDatasetShard m_shard;
        std::unique_ptr<Lock> m_lock;
        std::string m_folder;
    };

    /// What became of a wish to make a shard.
    enum class Begin
    {
        Ours,  ///< a draft is there
        Done,  ///< it is there already
        Busy,  ///< another process is making it
        Failed ///< with a reason
    };

    /// Makes the folder, or looks whether it is that of this recipe.
    /// @param recipe, info  borrowed, outlive the store
    /// @return false where the folder holds another data set, or other files
    bool open(const std::string& folder, const KrDatasetRecipe& recipe, const KrDatasetInfo& info, std::string& reason);

    /// Where the data set is; empty before `open`.
    const std::string& folder() const { return m_folder; }
    /// Removes what processes have left that are gone, of the shards s with s % numProcesses == process: a thousand
    /// processes that begin together do not ask for the locks of each other.
    void removeLeftovers(std::uint64_t process, std::uint64_t numProcesses) const;
    /// Whether a shard is there. Cheap: its files are not read.
    bool isDone(std::uint64_t shard) const;
    /// Makes a place for a shard that is not there, which nobody else writes into meanwhile.
    Begin begin(const KrDatasetShard& shard, std::unique_ptr<Draft>& draft, std::string& reason) const;

    /// Looks at every byte of the shards s with s % numProcesses == process; 0 and 1 for all.
    /// @param faults  a sentence for each shard that is missing and each file that is not as it was written, by shard
    /// @return false where that cannot be found out; faults are no reason for that
    bool verify(std::uint64_t process, std::uint64_t numProcesses, std::vector<std::string>& faults,
                std::string& reason) const;
    /// Writes index.json, and what the format wants of the set as a whole. False where shards are missing.
    bool merge(std::string& reason) const;
    /// Bytes that may still be written there; the highest number where the system does not tell.
    std::uint64_t freeBytes() const;

private:
    std::string shardPath(std::uint64_t shard) const;
    bool settle(const std::string& name, const std::string& text, const std::string& what, std::string& reason) const;

    std::string m_folder;
    const KrDatasetRecipe* m_recipe = nullptr;
    const KrDatasetInfo* m_info = nullptr;
    const KrDatasetFormat* m_format = nullptr;
};
