#include <dataset/KrDatasetMaker.h>

#include <dataset/KrDatasetFormat.h>
#include <dataset/KrDatasetWriter.h>
#include <dataset/private/KrDatasetClock.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

namespace
{

/// A double: what is asked for may be more than 64 bits count.
std::string sizeText(double bytes)
{
    char text[64];
    const double gigabytes = bytes / (1024.0 * 1024.0 * 1024.0);
    std::snprintf(text, sizeof text, gigabytes < 0.1 ? "%.3f GiB" : "%.1f GiB", gigabytes);
    return text;
}

/// Makes a hidden folder beside `folder`, and the folders above it: one that nobody had before.
bool makeUnfinished(const std::filesystem::path& folder, std::string& unfinished, std::string& reason)
{
    std::error_code error;
    if (folder.has_parent_path()) {
        std::filesystem::create_directories(folder.parent_path(), error);
    }
    const std::string name = "." + folder.filename().string() + "." + std::to_string(::getpid()) + ".";
    for (unsigned int attempt = 0;; ++attempt) {
        unfinished = (folder.parent_path() / (name + std::to_string(attempt) + ".tmp")).string();
        if (::mkdir(unfinished.c_str(), 0777) == 0) {
            return true;
        }
        if (errno != EEXIST) {
            reason = unfinished + ": " + std::strerror(errno);
            return false;
        }
    }
}

} // namespace

bool KrDatasetMaker::open(const KrDatasetRecipe& recipe, const std::string& folder, std::string& reason)
{
    return m_scene.load(recipe, reason) && m_store.open(folder, m_scene.recipe(), m_scene.info(), reason);
}

bool KrDatasetMaker::openScene(KrDatasetScene& scene, bool requireGpu, std::string& reason)
{
    if (!scene.open(reason)) {
        return false;
    }
    if (requireGpu && scene.isSoftware()) {
        reason = "a graphics processor is required, but \"" + scene.renderer() + "\" draws by software";
        return false;
    }
    return true;
}

bool KrDatasetMaker::make(const Options& options, Result& result, std::string& reason)
{
    result = Result();
    m_store.removeLeftovers(options.process, options.numProcesses);
    const KrDatasetRecipe& recipe = m_scene.recipe();
    // Written so that no number of processes is too many to be added.
    const auto behind = [&](std::uint64_t number) {
        return recipe.numShards() - number > options.numProcesses ? number + options.numProcesses : recipe.numShards();
    };
    std::uint64_t total = 0;
    for (std::uint64_t number = options.process; number < recipe.numShards(); number = behind(number)) {
        total += m_store.isDone(number) ? 0 : recipe.shard(number).count;
    }
    // Of this process alone: what others do, and where, it cannot know.
    const std::uint64_t each = KrDatasetFormat::find(recipe.format)->bytesPerSample(m_scene.info());
    if (total > m_store.freeBytes() / each) {
        reason = "about " + sizeText(static_cast<double>(total) * static_cast<double>(each)) + " are needed for " +
                 std::to_string(total) + " samples, but " + m_store.folder() + " has room for " +
                 sizeText(static_cast<double>(m_store.freeBytes()));
        return false;
    }
    // A window only where there is something to draw: a rerun of what is done costs nothing.
    if (total > 0 && !openScene(m_scene, options.requireGpu, reason)) {
        return false;
    }
    bool isMade = true;
    for (std::uint64_t number = options.process; isMade && number < recipe.numShards(); number = behind(number)) {
        std::unique_ptr<KrDatasetStore::Draft> draft;
        const KrDatasetShard shard = recipe.shard(number);
        switch (m_store.begin(shard, draft, reason)) {
        case KrDatasetStore::Begin::Done:
            ++result.shardsThere;
            break;
        case KrDatasetStore::Begin::Busy:
            ++result.shardsBusy;
            break;
        case KrDatasetStore::Begin::Failed:
            isMade = false;
            break;
        case KrDatasetStore::Begin::Ours:
            isMade = makeShard(shard, draft->folder(), options, total, result, reason);
            if (isMade) {
                const KrDatasetClock clock(result.publishing);
                isMade = draft->publish(m_scene.renderer(), reason);
            }
            result.shards += isMade ? 1 : 0;
            break;
        }
    }
    result.scene = m_scene.times();
    return isMade;
}

bool KrDatasetMaker::makeShard(const KrDatasetShard& shard, const std::string& folder, const Options& options,
                               std::uint64_t total, Result& result, std::string& reason)
{
    const KrDatasetFormat& format = *KrDatasetFormat::find(m_scene.recipe().format);
    const std::unique_ptr<KrDatasetWriter> writer = format.writer(m_scene.info(), shard, folder, reason);
    if (!writer) {
        return false;
    }
    double adding = 0.0;
    for (std::uint64_t number = shard.first; number < shard.first + shard.count; ++number) {
        if (options.isStopped && options.isStopped()) {
            reason = "stopped after " + std::to_string(result.samples) + " of " + std::to_string(total) +
                     " samples; whole shards stay, and the same command goes on from there";
            return false;
        }
        if (!m_scene.draw(number, m_sample, reason)) {
            return false;
        }
        {
            const KrDatasetClock clock(adding);
            if (!writer->add(m_sample, reason)) {
                return false;
            }
        }
        ++result.samples;
        if (options.progress) {
            options.progress(result.samples, total);
        }
    }
    bool isFinished = false;
    {
        const KrDatasetClock clock(adding);
        isFinished = writer->finish(reason);
    }
    result.writing += writer->writingTime();
    result.encoding += adding - writer->writingTime();
    return isFinished;
}

bool KrDatasetMaker::makeSample(const KrDatasetRecipe& recipe, std::uint64_t number, bool requireGpu,
                                const std::string& folder, std::string& reason)
{
    namespace fs = std::filesystem;
    if (number >= recipe.count) {
        reason = "there is no sample " + std::to_string(number) + ": the recipe has 0 to " +
                 std::to_string(recipe.count - 1);
        return false;
    }
    fs::path target(folder);
    if (!target.has_filename()) {
        target = target.parent_path(); // "folder/"
    }
    std::error_code error;
    if (fs::exists(target, error)) {
        reason = folder + " is there already";
        return false;
    }
    KrDatasetScene scene;
    KrDatasetSample sample;
    if (!scene.load(recipe, reason) || !openScene(scene, requireGpu, reason) || !scene.draw(number, sample, reason)) {
        return false;
    }
    std::string unfinished;
    if (!makeUnfinished(target, unfinished, reason)) {
        return false;
    }
    const KrDatasetFormat& format = *KrDatasetFormat::find(recipe.format);
    const KrDatasetShard shard = {number / recipe.samplesPerShard, number, 1};
    const std::unique_ptr<KrDatasetWriter> writer = format.writer(scene.info(), shard, unfinished, reason);
    const bool isWritten = writer && writer->add(sample, reason) && writer->finish(reason);
    if (isWritten && std::rename(unfinished.c_str(), target.c_str()) == 0) {
        return true;
    }
    reason = isWritten ? folder + ": " + std::strerror(errno) : reason;
    fs::remove_all(unfinished, error);
    return false;
}
