#include <dataset/KrDatasetRecipe.h>

#include <dataset/private/KrDatasetRecipeJson.h>

#include <toolkit/foundation/private/KrInputFile.h>

#include <algorithm>
#include <filesystem>
#include <utility>

bool KrDatasetRecipe::Pose::isFixed() const
{
    return x.isFixed() && y.isFixed() && z.isFixed() && roll.isFixed() && pitch.isFixed() && yaw.isFixed();
}

bool KrDatasetRecipe::Camera::isFixed() const
{
    return place == Place::Shell ? distance.isFixed() && elevation.isFixed() && azimuth.isFixed() && roll.isFixed()
                                 : pose.isFixed();
}

bool KrDatasetRecipe::readFile(const std::string& path, std::string& reason)
{
    std::string json;
    const std::string failure = KrInputFile::readWhole(path, KrInputFile::Accept::FilesAndPipes, kMostBytes, json);
    if (!failure.empty()) {
        reason = path + ": " + failure;
        return false;
    }
    return readText(json, std::filesystem::path(path).parent_path().string(), path, reason);
}

bool KrDatasetRecipe::readText(const std::string& json, const std::string& folder, const std::string& source,
                               std::string& reason)
{
    KrDatasetRecipe read;
    const std::string failure =
        json.size() > kMostBytes ? "it is too large for a recipe" : KrDatasetRecipeJson::parse(json, folder, read);
    if (!failure.empty()) {
        reason = source + ": " + failure;
        return false;
    }
    read.text = json;
    *this = std::move(read);
    return true;
}

KrDatasetShard KrDatasetRecipe::shard(std::uint64_t number) const
{
    const std::uint64_t first = number * samplesPerShard;
    return {number, first, std::min(samplesPerShard, count - first)};
}
