#include <dataset/formats/KrDatasetFolders.h>

#include <dataset/KrDatasetSample.h>
#include <dataset/KrDatasetWriter.h>
#include <dataset/formats/private/KrSampleImages.h>
#include <dataset/formats/private/KrSampleJson.h>

#include <algorithm>
#include <cmath>

namespace
{

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
    /// The image that was encoded last. @param name  with its extension
    bool write(const char* kind, const std::string& name, std::string& reason)
    {
        return writeFile(m_folder + "/" + kind + "/" + name, m_images.file().data(), m_images.file().size(), reason);
    }
    bool writeNormals(const KrDatasetSample& sample, const std::string& name, std::string& reason);
    bool writeMasks(const KrDatasetSample& sample, const std::string& name, std::string& reason);

    const KrDatasetInfo& m_info;
    const std::string m_folder;
    KrSampleImages m_images;
    std::vector<std::uint16_t> m_values; ///< of the picture that is encoded
};

bool Writer::add(const KrDatasetSample& sample, std::string& reason)
{
    const std::string name = KrSampleJson::name(sample.number);
    for (const KrSampleImages::Kind& kind : KrSampleImages::kinds()) {
        // Normals have a form of their own here.
        const bool isGood =
            !(m_info.kinds.*kind.isWanted) ||
            (kind.isWanted == &KrDatasetKinds::normals
                 ? writeNormals(sample, name, reason)
                 : (m_images.*kind.encode)(sample, reason) && write(kind.name, name + kind.extension, reason));
        if (!isGood) {
            return false;
        }
    }
    const std::string text = KrSampleJson::text(m_info, sample);
    return (!m_info.kinds.masks || writeMasks(sample, name, reason)) &&
           writeFile(m_folder + "/frames/" + name + ".json", text.data(), text.size(), reason);
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
    return m_images.png(m_values.data(), 3, 16, sample, reason) && write("normals", name + ".png", reason);
}

bool Writer::writeMasks(const KrDatasetSample& sample, const std::string& name, std::string& reason)
{
    for (const KrDatasetSample::Part& part : sample.parts) {
        if (part.amodalPixels > 0 && !(m_images.amodalMask(sample, part, reason) &&
                                       write("masks", name + "_" + std::to_string(part.label) + ".png", reason))) {
            return false;
        }
    }
    return true;
}

} // namespace

bool KrDatasetFolders::check(const KrDatasetInfo& info, std::string& reason) const
{
    return KrSampleImages::check(info, reason);
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
