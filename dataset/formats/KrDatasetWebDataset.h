#pragma once

#include <dataset/KrDatasetFormat.h>

/// "webdataset": a shard is one tar archive, the files of a sample follow one another in it and share their name up to
/// the first dot. docs/dataset-formats.md tells the rest.
class KrDatasetWebDataset : public KrDatasetFormat
{
public:
    std::string name() const override { return "webdataset"; }
    bool check(const KrDatasetInfo& info, std::string& reason) const override;
    std::unique_ptr<KrDatasetWriter> writer(const KrDatasetInfo& info, const KrDatasetShard& shard,
                                            const std::string& folder, std::string& reason) const override;
};
