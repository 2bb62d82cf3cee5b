#include <dataset/KrDatasetFormat.h>

#include <cstdio>

bool KrDatasetFormat::check(const KrDatasetInfo&, std::string&) const
{
    return true;
}

std::string KrDatasetFormat::shardFolder(std::uint64_t number) const
{
    // Six digits sort as text up to a million shards; beyond that they only look uneven.
    char text[40];
    std::snprintf(text, sizeof text, "shard-%06llu", static_cast<unsigned long long>(number));
    return text;
}

std::uint64_t KrDatasetFormat::bytesPerSample(const KrDatasetInfo& info) const
{
    const KrDatasetKinds& kinds = info.kinds;
    const std::uint64_t numPixels = std::uint64_t{info.width} * info.height;
    const std::uint64_t bytesPerPixel =
        (kinds.color ? 3 : 0) + (kinds.depth ? 4 : 0) + (kinds.labels ? 4 : 0) + (kinds.normals ? 12 : 0);
    // Masks are one bit a pixel in any form that is worth writing, and most are small.
    const std::uint64_t masks = kinds.masks ? info.parts.size() * (numPixels / 32) : 0;
    constexpr std::uint64_t kBytesOfDescription = 8192;
    return numPixels * bytesPerPixel + masks + kBytesOfDescription;
}

bool KrDatasetFormat::writeSet(const KrDatasetInfo&, const std::string&, std::string&) const
{
    return true;
}
