#pragma once

#include <dataset/KrDatasetSample.h>

#include <cstdint>
#include <string>
#include <vector>

/// A mask as COCO has it: the lengths of its runs of zeros and ones by turns, down one column after the other, zeros
/// first. Uncompressed: a list of numbers, which every reader of the format takes.
class KrRunLengths
{
public:
    /// Of all labels in the sample's label image: that of label n becomes masks[n - 1].
    static void ofLabels(const KrDatasetSample& sample, std::vector<KrRunLengths>& masks);
    /// What `part` covers when it is drawn alone.
    void setAmodal(const KrDatasetSample& sample, const KrDatasetSample::Part& part);

    /// Whether no pixel is set.
    bool isEmpty() const { return m_counts.empty(); }
    /// {"size": [height, width], "counts": [...]}
    std::string json(const KrDatasetSample& sample) const;

private:
    /// Sets `count` pixels from `first` on, which lie behind all that are set; numbered down the columns.
    void add(std::uint64_t first, std::uint64_t count);

    std::vector<std::uint64_t> m_counts; ///< the last one is of ones
    std::uint64_t m_end = 0;             ///< behind the last pixel that is set
};
