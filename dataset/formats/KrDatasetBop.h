#pragma once

#include <dataset/KrDatasetFormat.h>

/// "bop": scenes of at most 1,000 images with the poses and the masks of all objects, which are the labelled parts, and
/// the objects' models; lengths in mm. docs/dataset-formats.md tells the rest.
class KrDatasetBop : public KrDatasetFormat
{
public:
    std::string name() const override { return "bop"; }
    bool check(const KrDatasetInfo& info, std::string& reason) const override;
    /// "train/000012".
    std::string shardFolder(std::uint64_t number) const override;
    std::uint64_t bytesPerSample(const KrDatasetInfo& info) const override;
    std::unique_ptr<KrDatasetWriter> writer(const KrDatasetInfo& info, const KrDatasetShard& shard,
                                            const std::string& folder, std::string& reason) const override;
    /// The models of the objects.
    bool writeSet(const KrDatasetInfo& info, const std::string& folder, std::string& reason) const override;
};
