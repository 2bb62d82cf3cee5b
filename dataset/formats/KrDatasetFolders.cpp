#include <dataset/formats/KrDatasetFolders.h>

#include <dataset/KrDatasetSample.h>
#include <dataset/KrDatasetWriter.h>

#include <toolkit/foundation/private/KrJson.h>
#include <toolkit/image/private/KrNumpyFile.h>
#include <toolkit/image/private/KrPngEncoder.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace
{

constexpr std::size_t kMostLabels = 65535; // of 16 bits

/// The rows of the matrix that multiplies column vectors, as descriptions of frames have them.
std::string jsonOf(const osg::Matrixd& matrix)
{
    const std::array<int, 4> indices = {0, 1, 2, 3};
    return KrJson::array(indices, " ", [&](int row) {
        return KrJson::array(indices, " ", [&](int column) { return KrJson::number(matrix(column, row)); });
    });
}

std::string jsonOf(const KrDatasetSample::Box& box)
{
    return KrJson::array(std::array<unsigned int, 4>{box.x, box.y, box.width, box.height}, " ",
                         [](unsigned int n) { return std::to_string(n); });
}

class Writer : public KrDatasetWriter
{
public:
    Writer(const KrDatasetInfo& info, const std::string& folder)
        : m_info(info)
        , m_folder(folder)
    {
    }

    bool add(const KrDatasetSample& sample, std::string& reason) override;
    bool finish(std::string&) override { return true; }

private:
    std::string path(const char* kind, const std::string& name) const { return m_folder + "/" + kind + "/" + name; }
    bool writePng(const KrPngEncoder::Picture& picture, const std::string& path, std::string& reason);
    bool writeLabels(const KrDatasetSample& sample, const std::string& name, std::string& reason);
    bool writeNormals(const KrDatasetSample& sample, const std::string& name, std::string& reason);
    bool writeMasks(const KrDatasetSample& sample, const std::string& name, std::string& reason);
    std::string json(const KrDatasetSample& sample) const;

    const KrDatasetInfo& m_info;
    const std::string m_folder;
    KrPngEncoder m_encoder;
    std::vector<std::uint8_t> m_bytes;   ///< of the file that is made
    std::vector<std::uint16_t> m_values; ///< of the picture that is encoded
    std::vector<std::uint8_t> m_mask;
};

bool Writer::add(const KrDatasetSample& sample, std::string& reason)
{
    // Eight digits sort as text up to a hundred million samples.
    char name[40];
    std::snprintf(name, sizeof name, "%08llu", static_cast<unsigned long long>(sample.number));
    if (!sample.color.empty() &&
        !writePng({sample.color.data(), sample.width, sample.height, 3}, path("color", name) + ".png", reason)) {
        return false;
    }
    if (!sample.depth.empty()) {
        const std::string file = krNumpyFile(sample.depth.data(), sample.width, sample.height);
        if (!writeFile(path("depth", name) + ".npy", file.data(), file.size(), reason)) {
            return false;
        }
    }
    // Labels are there for masks, too, and are not wanted as files then.
    if ((m_info.kinds.labels && !writeLabels(sample, name, reason)) ||
        (!sample.normals.empty() && !writeNormals(sample, name, reason)) || !writeMasks(sample, name, reason)) {
        return false;
    }
    const std::string text = json(sample);
    return writeFile(path("frames", name) + ".json", text.data(), text.size(), reason);
}

bool Writer::writePng(const KrPngEncoder::Picture& picture, const std::string& path, std::string& reason)
{
    const std::string failure = m_encoder.encode(picture, m_bytes);
    if (!failure.empty()) {
        reason = path + ": " + failure;
        return false;
    }
    return writeFile(path, m_bytes.data(), m_bytes.size(), reason);
}

bool Writer::writeLabels(const KrDatasetSample& sample, const std::string& name, std::string& reason)
{
    // No label is lost: the format refuses data sets with more.
    m_values.resize(sample.labels.size());
    std::transform(sample.labels.begin(), sample.labels.end(), m_values.begin(),
                   [](std::uint32_t label) { return static_cast<std::uint16_t>(label); });
    return writePng({m_values.data(), sample.width, sample.height, 1, 16}, path("labels", name) + ".png", reason);
}

bool Writer::writeNormals(const KrDatasetSample& sample, const std::string& name, std::string& reason)
{
    // -1 to 1 becomes 1 to 65535, so that 0 in all three is left for where nothing is.
    m_values.resize(sample.normals.size());
    for (std::size_t i = 0; i < sample.normals.size(); i += 3) {
        const float* const n = &sample.normals[i];
        const bool isNothing = n[0] == 0.0f && n[1] == 0.0f && n[2] == 0.0f;
        for (std::size_t c = 0; c < 3; ++c) {
            const long value = std::lround(32768.0 + 32767.0 * std::clamp(static_cast<double>(n[c]), -1.0, 1.0));
            m_values[i + c] = isNothing ? 0 : static_cast<std::uint16_t>(value);
        }
    }
    return writePng({m_values.data(), sample.width, sample.height, 3, 16}, path("normals", name) + ".png", reason);
}

bool Writer::writeMasks(const KrDatasetSample& sample, const std::string& name, std::string& reason)
{
    for (const KrDatasetSample::Part& part : sample.parts) {
        if (part.amodalPixels == 0) {
            continue;
        }
        m_mask.assign(std::size_t{sample.width} * sample.height, 0);
        const KrDatasetSample::Box& box = part.amodalBox;
        for (std::size_t row = 0; row < box.height; ++row) {
            const auto from = part.amodalMask.begin() + static_cast<std::ptrdiff_t>(row * box.width);
            const std::size_t to = (box.y + row) * sample.width + box.x;
            std::copy(from, from + box.width, m_mask.begin() + static_cast<std::ptrdiff_t>(to));
        }
        const std::string file = path("masks", name) + "_" + std::to_string(part.label) + ".png";
        if (!writePng({m_mask.data(), sample.width, sample.height, 1}, file, reason)) {
            return false;
        }
    }
    return true;
}

/// The description of the frame, which is read as one, with two members more.
std::string Writer::json(const KrDatasetSample& sample) const
{
    const auto part = [&](const KrDatasetSample::Part& p) {
        const KrDatasetPart& known = m_info.parts[p.label - 1];
        KrJson::Object object;
        object.count("label", p.label)
            .string("name", known.name)
            .count("category", known.category)
            .raw("linkToOptical", jsonOf(p.linkToOptical))
            .raw("linkToWorld", jsonOf(p.linkToWorld))
            .count("visiblePixels", p.visiblePixels)
            .raw("visibleBox", jsonOf(p.visibleBox));
        if (m_info.kinds.masks) {
            object.count("amodalPixels", p.amodalPixels).raw("amodalBox", jsonOf(p.amodalBox));
        }
        return "\n  " + object.text();
    };
    const std::string which = KrJson::Object()
                                  .raw("number", std::to_string(sample.number))
                                  .raw("state", std::to_string(sample.state))
                                  .string("camera", m_info.cameras[sample.camera])
                                  .text();
    std::string text = sample.description.json();
    text.erase(text.find_last_of('}'));
    return text + ",\n\"sample\": " + which + ",\n\"parts\": " + KrJson::array(sample.parts, "", part) + "}\n";
}

} // namespace

bool KrDatasetFolders::check(const KrDatasetInfo& info, std::string& reason) const
{
    if (info.kinds.labels && info.parts.size() > kMostLabels) {
        reason = "the format \"folders\" has label images of 16 bits: " + std::to_string(info.parts.size()) +
                 " parts are more than " + std::to_string(kMostLabels);
        return false;
    }
    return true;
}

std::uint64_t KrDatasetFolders::bytesPerSample(const KrDatasetInfo& info) const
{
    // What pictures of robots before a plain background were seen to take, and half as much again; depths are not
    // compressed.
    const KrDatasetKinds& kinds = info.kinds;
    const double perPixel = (kinds.color ? 1.0 : 0.0) + (kinds.depth ? 4.0 : 0.0) + (kinds.labels ? 0.1 : 0.0) +
                            (kinds.normals ? 2.0 : 0.0) + (kinds.masks ? 0.01 * info.parts.size() : 0.0);
    // Files take whole blocks.
    constexpr std::uint64_t kBlock = 4096;
    const std::uint64_t numFiles = 5 + (kinds.masks ? info.parts.size() : 0);
    return static_cast<std::uint64_t>(perPixel * info.width * info.height) + kBlock * numFiles +
           600 * info.parts.size();
}

std::unique_ptr<KrDatasetWriter> KrDatasetFolders::writer(const KrDatasetInfo& info, const KrDatasetShard&,
                                                          const std::string& folder, std::string&) const
{
    return std::make_unique<Writer>(info, folder);
}
