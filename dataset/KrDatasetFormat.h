#pragma once

#include <dataset/KrDatasetInfo.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class KrDatasetWriter;

/// A format of data sets: where its shards lie, and who writes them. Formats have no state and live as long as the
/// program.
///
/// What fails gives false or null and says why in one sentence without a full stop.
class KrDatasetFormat
{
public:
    virtual ~KrDatasetFormat() = default;

    // These two know the formats, hence defined in their room (formats/KrDatasetFormatTable.cpp).
    /// Of all formats, as recipes name them: "folders" is one picture file for each image.
    static std::vector<std::string> names();
    /// Null for a name that is no format's.
    static const KrDatasetFormat* find(const std::string& name);

    /// As in `names`.
    virtual std::string name() const = 0;
    /// Whether such a data set can be written: the kinds of image are there, the size is not too large. All is fine
    /// unless a format says otherwise.
    virtual bool check(const KrDatasetInfo& info, std::string& reason) const;
    /// Folder of a shard in the folder of the data set, with '/' between nested ones: "shard-000012" unless a format
    /// says otherwise. Each shard has its own; none lies in that of another.
    virtual std::string shardFolder(std::uint64_t number) const;
    /// The bytes that the images of one sample take at most or so, for the question whether the disk has room: those
    /// of the kinds without compression unless a format says otherwise.
    virtual std::uint64_t bytesPerSample(const KrDatasetInfo& info) const;
    /// @param info    borrowed, outlives the writer
    /// @param folder  exists, is empty and is the writer's alone
    virtual std::unique_ptr<KrDatasetWriter> writer(const KrDatasetInfo& info, const KrDatasetShard& shard,
                                                    const std::string& folder, std::string& reason) const = 0;
    /// Writes what the format wants once for the whole data set, from shards that are all there. The files are
    /// complete or as they were before, and made again when this is called again. Nothing unless a format says
    /// otherwise.
    /// @param folder  of the data set
    virtual bool writeSet(const KrDatasetInfo& info, const std::string& folder, std::string& reason) const;
};
