#pragma once

#include <dataset/KrDatasetInfo.h>

#include <cstdint>
#include <string>
#include <vector>

struct KrDatasetRecipe;

/// What lies in the folder of a shard, and how its file `manifest.json` says it. For use inside the library.
struct KrDatasetManifest
{
    static constexpr const char* kName = "manifest.json";

    struct File
    {
        std::string path; ///< in the shard's folder, '/' between folders
        std::uint64_t bytes = 0;
        std::string hash; ///< SHA-256
    };

    KrDatasetShard shard;
    std::string recipeHash;
    std::string rendererVersion;
    std::string renderer;    ///< what has drawn it
    std::vector<File> files; ///< by path; without the manifest

    /// Lists the files of `folder` with all their folders, and reads every one.
    /// @return false, with a reason, where something is there that is no file, or cannot be read
    bool list(const std::string& folder, std::string& reason);
    std::string json() const;
    /// @return false, with a reason, for a file that is not there or no manifest
    bool read(const std::string& folder, std::string& reason);
};

/// What dataset.json says. @return empty, with a reason, where a file of the recipe cannot be read
std::string krDatasetDescription(const KrDatasetRecipe& recipe, const KrDatasetInfo& info, std::string& reason);
