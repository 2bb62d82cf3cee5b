#include <dataset/formats/private/KrRunLengths.h>

#include <toolkit/foundation/private/KrJson.h>

void KrRunLengths::ofLabels(const KrDatasetSample& sample, std::vector<KrRunLengths>& masks)
{
    masks.assign(sample.parts.size(), KrRunLengths());
    for (std::size_t x = 0; x < sample.width; ++x) {
        // A run that goes on in the next column is joined with its beginning there.
        std::size_t y = 0;
        while (y < sample.height) {
            const std::uint32_t label = sample.labels[y * sample.width + x];
            const std::size_t start = y;
            while (y < sample.height && sample.labels[y * sample.width + x] == label) {
                ++y;
            }
            if (label > 0) {
                masks[label - 1].add(std::uint64_t{x} * sample.height + start, y - start);
            }
        }
    }
}

void KrRunLengths::setAmodal(const KrDatasetSample& sample, const KrDatasetSample::Part& part)
{
    *this = KrRunLengths();
    const KrDatasetSample::Box& box = part.amodalBox;
    for (std::size_t x = 0; x < box.width; ++x) {
        for (std::size_t y = 0; y < box.height; ++y) {
            if (part.amodalMask[y * box.width + x] != 0) {
                add((std::uint64_t{box.x} + x) * sample.height + box.y + y, 1);
            }
        }
    }
}

std::string KrRunLengths::json(const KrDatasetSample& sample) const
{
    std::vector<std::uint64_t> counts = m_counts;
    const std::uint64_t numPixels = std::uint64_t{sample.width} * sample.height;
    if (m_end < numPixels) {
        counts.push_back(numPixels - m_end);
    }
    const auto number = [](std::uint64_t value) { return std::to_string(value); };
    const std::string size = "[" + number(sample.height) + ", " + number(sample.width) + "]";
    return KrJson::Object().raw("size", size).raw("counts", KrJson::array(counts, "", number)).text();
}

void KrRunLengths::add(std::uint64_t first, std::uint64_t count)
{
    if (first == m_end && !m_counts.empty()) {
        m_counts.back() += count;
    } else {
        // The first run is one of zeros, if need be of none.
        m_counts.push_back(first - m_end);
        m_counts.push_back(count);
    }
    m_end = first + count;
}
