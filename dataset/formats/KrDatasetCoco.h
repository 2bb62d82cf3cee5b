#pragma once

#include <dataset/KrDatasetFormat.h>

/// "coco": pictures, and one file of annotations for a shard and one for the whole set, with an instance for each part
/// that is seen. docs/dataset-formats.md tells the rest.
class KrDatasetCoco : public KrDatasetFormat
{
public:
    std::string name() const override { return "coco"; }
    bool check(const KrDatasetInfo& info, std::string& reason) const override;
    std::unique_ptr<KrDatasetWriter> writer(const KrDatasetInfo& info, const KrDatasetShard& shard,
                                            const std::string& folder, std::string& reason) const override;
    /// Joins the annotations of all shards. In memory are one annotation at a time and the list of images.
    bool writeSet(const KrDatasetInfo& info, const std::string& folder, std::string& reason) const override;
};
