#include <dataset/formats/KrDatasetWebDataset.h>

#include <dataset/KrDatasetSample.h>
#include <dataset/KrDatasetWriter.h>
#include <dataset/formats/private/KrRunLengths.h>
#include <dataset/formats/private/KrSampleImages.h>
#include <dataset/formats/private/KrSampleJson.h>
#include <dataset/formats/private/KrTarFile.h>

#include <toolkit/foundation/private/KrJson.h>

namespace
{

class ShardWriter : public KrDatasetWriter
{
public:
    explicit ShardWriter(const KrDatasetInfo& info)
        : m_info(info)
    {
    }
    // The same name in every shard's folder: one pattern of braces then names all shards.
    bool open(const std::string& folder, std::string& reason) { return m_tar.open(folder + "/samples.tar", reason); }

    bool add(const KrDatasetSample& sample, std::string& reason) override
    {
        for (const KrSampleImages::Kind& kind : KrSampleImages::kinds()) {
            if (m_info.kinds.*kind.isWanted &&
                !((m_images.*kind.encode)(sample, reason) &&
                  append(sample, std::string(kind.name) + kind.extension, m_images.file(), reason))) {
                return false;
            }
        }
        // One member for all masks: samples all have the same members, whatever they show.
        return (!m_info.kinds.masks || append(sample, "masks.json", masks(sample), reason)) &&
               append(sample, "json", KrSampleJson::text(m_info, sample), reason);
    }
    bool finish(std::string& reason) override { return m_tar.close(reason); }

private:
    template <typename Content>
    bool append(const KrDatasetSample& sample, const std::string& extension, const Content& content,
                std::string& reason)
    {
        return m_tar.add(KrSampleJson::name(sample.number) + "." + extension, content.data(), content.size(), reason);
    }

    /// Of the parts that cover anything: their labels and what they cover.
    std::string masks(const KrDatasetSample& sample)
    {
        std::vector<std::string> items;
        for (const KrDatasetSample::Part& part : sample.parts) {
            m_mask.setAmodal(sample, part);
            if (!m_mask.isEmpty()) {
                items.push_back(KrJson::Object().count("label", part.label).raw("amodal", m_mask.json(sample)).text());
            }
        }
        return KrJson::array(items, "\n", [](const std::string& item) { return item; }) + "\n";
    }

    const KrDatasetInfo& m_info;
    KrTarFile m_tar{m_writingTime};
    KrSampleImages m_images;
    KrRunLengths m_mask;
};

} // namespace

bool KrDatasetWebDataset::check(const KrDatasetInfo& info, std::string& reason) const
{
    return KrSampleImages::check(info, reason);
}

std::unique_ptr<KrDatasetWriter> KrDatasetWebDataset::writer(const KrDatasetInfo& info, const KrDatasetShard&,
                                                             const std::string& folder, std::string& reason) const
{
    auto writer = std::make_unique<ShardWriter>(info);
    return writer->open(folder, reason) ? std::move(writer) : nullptr;
}
