#include <dataset/formats/private/KrSampleImages.h>

#include <toolkit/image/private/KrNumpyFile.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace
{

constexpr std::size_t kMostLabels = std::numeric_limits<std::uint16_t>::max();

} // namespace

const std::array<KrSampleImages::Kind, 4>& KrSampleImages::kinds()
{
    static const std::array<Kind, 4> all = {{
        {"color", ".png", &KrDatasetKinds::color, &KrSampleImages::color},
        {"depth", ".npy", &KrDatasetKinds::depth, &KrSampleImages::depth},
        {"labels", ".png", &KrDatasetKinds::labels, &KrSampleImages::labels},
        {"normals", ".npy", &KrDatasetKinds::normals, &KrSampleImages::normals},
    }};
    return all;
}

bool KrSampleImages::check(const KrDatasetInfo& info, std::string& reason)
{
    if (!info.kinds.labels || info.parts.size() <= kMostLabels) {
        return true;
    }
    reason = "label images hold labels up to " + std::to_string(kMostLabels) + ", and the scene has " +
             std::to_string(info.parts.size()) + " parts";
    return false;
}

bool KrSampleImages::color(const KrDatasetSample& sample, std::string& reason)
{
    return png(sample.color.data(), 3, 8, sample, reason);
}

bool KrSampleImages::depth(const KrDatasetSample& sample, std::string&)
{
    npy(sample.depth, krNumpyHeader(sizeof(float), {sample.height, sample.width}));
    return true;
}

bool KrSampleImages::labels(const KrDatasetSample& sample, std::string& reason)
{
    m_values.resize(sample.labels.size());
    // All fit: `check` has seen how many there are.
    std::transform(sample.labels.begin(), sample.labels.end(), m_values.begin(),
                   [](std::uint32_t label) { return static_cast<std::uint16_t>(label); });
    return png(m_values.data(), 1, 16, sample, reason);
}

bool KrSampleImages::normals(const KrDatasetSample& sample, std::string&)
{
    npy(sample.normals, krNumpyHeader(sizeof(float), {sample.height, sample.width, 3}));
    return true;
}

bool KrSampleImages::amodalMask(const KrDatasetSample& sample, const KrDatasetSample::Part& part, std::string& reason)
{
    m_mask.assign(std::size_t{sample.width} * sample.height, 0);
    const KrDatasetSample::Box& box = part.amodalBox;
    for (std::size_t row = 0; row < box.height; ++row) {
        std::copy_n(part.amodalMask.data() + row * box.width, box.width, m_mask.data() + pixel(sample, box, row));
    }
    return png(m_mask.data(), 1, 8, sample, reason);
}

bool KrSampleImages::visibleMask(const KrDatasetSample& sample, const KrDatasetSample::Part& part, std::string& reason)
{
    m_mask.assign(std::size_t{sample.width} * sample.height, 0);
    const KrDatasetSample::Box& box = part.visibleBox;
    for (std::size_t row = 0; row < box.height; ++row) {
        const std::size_t first = pixel(sample, box, row);
        for (std::size_t i = first; i < first + box.width; ++i) {
            m_mask[i] = sample.labels[i] == part.label ? 255 : 0;
        }
    }
    return png(m_mask.data(), 1, 8, sample, reason);
}

bool KrSampleImages::png(const void* values, unsigned int channels, unsigned int bits, const KrDatasetSample& sample,
                         std::string& reason)
{
    const std::string failure = m_encoder.encode({values, sample.width, sample.height, channels, bits, false}, m_file);
    if (!failure.empty()) {
        reason = "sample " + std::to_string(sample.number) + " cannot be written: " + failure;
    }
    return failure.empty();
}

void KrSampleImages::npy(const std::vector<float>& values, const std::string& header)
{
    const std::size_t size = values.size() * sizeof(float);
    m_file.resize(header.size() + size);
    std::memcpy(m_file.data(), header.data(), header.size());
    std::memcpy(m_file.data() + header.size(), values.data(), size);
}
