// Annotations of a shard, as they are joined with those of others.
#include <dataset/KrDatasetFormat.h>

#include <tests/support/Folder.h>

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Folder folder;
    const KrDatasetFormat* const format = KrDatasetFormat::find("coco");
    KrDatasetInfo info;
    info.name = "fuzz";
    info.numSamples = 1;
    info.samplesPerShard = 1;
    folder.write(format->shardFolder(0) + "/annotations.json", {reinterpret_cast<const char*>(data), size});
    std::string reason;
    if (!format->writeSet(info, folder.path(""), reason)) {
        if (reason.empty() || reason.size() > 1000) {
            std::abort();
        }
        return 0;
    }
    // What is taken over makes a whole file, with nothing but objects in its lists.
    const nlohmann::json joined = nlohmann::json::parse(contentOf(folder.path("annotations.json")), nullptr, false);
    if (joined.is_discarded()) {
        std::abort();
    }
    for (const char* list : {"images", "annotations"}) {
        for (const nlohmann::json& item : joined.at(list)) {
            if (!item.is_object()) {
                std::abort();
            }
        }
    }
    return 0;
}
