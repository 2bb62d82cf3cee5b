#pragma once

#include <dataset/KrDatasetFormat.h>

/// One file for each image, in folders by kind: docs/dataset.md tells names and units.
class KrDatasetFolders : public KrDatasetFormat
{
public:
    std::string name() const override { return "folders"; }
    bool check(const KrDatasetInfo& info, std::string& reason) const override;
    std::uint64_t bytesPerSample(const KrDatasetInfo& info) const override;
    std::unique_ptr<KrDatasetWriter> writer(const KrDatasetInfo& info, const KrDatasetShard& shard,
                                            const std::string& folder, std::string& reason) const override;
};
