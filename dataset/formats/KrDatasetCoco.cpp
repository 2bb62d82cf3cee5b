#include <dataset/formats/KrDatasetCoco.h>

#include <dataset/KrDatasetSample.h>
#include <dataset/KrDatasetWriter.h>
#include <dataset/formats/private/KrRunLengths.h>
#include <dataset/formats/private/KrSampleImages.h>
#include <dataset/formats/private/KrSampleJson.h>
#include <dataset/private/KrDatasetFile.h>

#include <toolkit/foundation/private/KrFileReplacement.h>
#include <toolkit/foundation/private/KrInputFile.h>
#include <toolkit/foundation/private/KrJson.h>

#include <nlohmann/json.hpp>

#include <cstring>

namespace
{

// The lines between the items of an annotation file, each of which has a line of its own: files are joined line by
// line, and their beginnings and ends are told from the items.
constexpr const char* kAnnotations = "\"annotations\": [";
constexpr const char* kImages = "],\"images\": [";
constexpr const char* kEnd = "]}";
constexpr const char* kFileName = "annotations.json";
constexpr const char* kFileMember = "\"file_name\": \"";
// A mask of single pixels in the largest picture that OpenGL draws takes less.
constexpr std::size_t kLongestLine = std::size_t{256} << 20;
constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 62; // of a shard's file: it is never in memory as a whole
// Readers keep ids as doubles.
constexpr std::uint64_t kLargestId = std::uint64_t{1} << 53;

/// All before the annotations. Nothing in it tells when it was written.
std::string beginning(const KrDatasetInfo& info)
{
    const std::string about = KrJson::Object()
                                  .string("description", info.name)
                                  .string("version", info.recipeHash)
                                  .string("contributor", "krrender " + info.rendererVersion)
                                  .text();
    const auto category = [](const KrDatasetCategory& c) {
        return "\n" + KrJson::Object()
                          .count("id", c.id)
                          .string("name", c.name)
                          .string("supercategory", c.supercategory)
                          .text();
    };
    return "{\"info\": " + about +
           ",\n\"licenses\": [],\n\"categories\": " + KrJson::array(info.categories, "", category) + ",\n" +
           kAnnotations + "\n";
}

/// All behind the annotations. @param images  their lines, joined by commas
std::string ending(bool hasAnnotations, const std::string& images)
{
    return (hasAnnotations ? "\n" : "") + std::string(kImages) + "\n" + images + "\n" + kEnd + "\n";
}

class ShardWriter : public KrDatasetWriter
{
public:
    ShardWriter(const KrDatasetInfo& info, const std::string& folder)
        : m_info(info)
        , m_folder(folder)
    {
    }

    bool open(std::string& reason)
    {
        const std::string text = beginning(m_info);
        return m_annotations.open(m_folder + "/" + kFileName, reason) &&
               m_annotations.write(text.data(), text.size(), reason);
    }

    bool add(const KrDatasetSample& sample, std::string& reason) override
    {
        const std::string name = KrSampleJson::name(sample.number);
        for (const KrSampleImages::Kind& kind : KrSampleImages::kinds()) {
            const std::string path = folderOf(kind) + "/" + name + kind.extension;
            if (m_info.kinds.*kind.isWanted &&
                !((m_images.*kind.encode)(sample, reason) &&
                  writeFile(m_folder + "/" + path, m_images.file().data(), m_images.file().size(), reason))) {
                return false;
            }
        }
        const std::string frame = KrSampleJson::text(m_info, sample);
        m_imageLines += (m_imageLines.empty() ? "" : ",\n") + image(sample, name);
        const std::string lines = annotations(sample);
        return writeFile(m_folder + "/frames/" + name + ".json", frame.data(), frame.size(), reason) &&
               m_annotations.write(lines.data(), lines.size(), reason);
    }

    bool finish(std::string& reason) override
    {
        const std::string text = ending(m_hasAnnotations, m_imageLines);
        return m_annotations.write(text.data(), text.size(), reason) && m_annotations.close(reason);
    }

private:
    /// Readers look for "images".
    static std::string folderOf(const KrSampleImages::Kind& kind)
    {
        return kind.isWanted == &KrDatasetKinds::color ? "images" : kind.name;
    }

    std::string image(const KrDatasetSample& sample, const std::string& name) const
    {
        return KrJson::Object()
            .raw("id", std::to_string(sample.number))
            .count("width", sample.width)
            .count("height", sample.height)
            .string("file_name", "images/" + name + ".png")
            .string("camera", m_info.cameras[sample.camera])
            .text();
    }

    /// A line for each part that is seen.
    std::string annotations(const KrDatasetSample& sample)
    {
        KrRunLengths::ofLabels(sample, m_masks);
        std::string lines;
        for (const KrDatasetSample::Part& part : sample.parts) {
            if (!m_masks[part.label - 1].isEmpty()) {
                lines += (m_hasAnnotations ? ",\n" : "") + annotation(sample, part);
                m_hasAnnotations = true;
            }
        }
        return lines;
    }

    std::string annotation(const KrDatasetSample& sample, const KrDatasetSample::Part& part)
    {
        // The same in whatever shard the sample is, and never 0, which evaluations take for "none".
        const std::uint64_t id = sample.number * m_info.parts.size() + part.label;
        KrJson::Object object;
        object.raw("id", std::to_string(id))
            .raw("image_id", std::to_string(sample.number))
            .count("category_id", m_info.parts[part.label - 1].category)
            .raw("segmentation", m_masks[part.label - 1].json(sample))
            .raw("area", std::to_string(part.visiblePixels))
            .raw("bbox", KrSampleJson::box(part.visibleBox))
            .count("iscrowd", 0)
            .count("label", part.label);
        if (m_info.kinds.masks) {
            m_amodal.setAmodal(sample, part);
            object.raw("amodal_segmentation", m_amodal.json(sample))
                .raw("amodal_area", std::to_string(part.amodalPixels))
                .raw("amodal_bbox", KrSampleJson::box(part.amodalBox));
        }
        return object.text();
    }

    const KrDatasetInfo& m_info;
    const std::string m_folder;
    KrDatasetFile m_annotations{m_writingTime};
    bool m_hasAnnotations = false;
    std::string m_imageLines;
    KrSampleImages m_images;
    std::vector<KrRunLengths> m_masks;
    KrRunLengths m_amodal;
};

/// Copies the items of the shards' annotation files into one file, which is complete or as it was before. A file that
/// is not as a writer left it is refused.
class Joiner
{
public:
    explicit Joiner(const std::string& path)
        : m_out(path)
    {
    }

    bool begin(const KrDatasetInfo& info) { return write(beginning(info)); }

    /// @param path   of the shard's file
    /// @param shard  its folder in that of the data set, for the names of pictures
    bool add(const std::string& path, const std::string& shard, std::string& reason)
    {
        KrInputFile in(kMostBytes, KrInputFile::Accept::Files);
        Section section = Section::Beginning;
        std::string line;
        bool isRight = in.open(path);
        while (isRight && section != Section::End && in.readLine(line, kLongestLine)) {
            isRight = addLine(line, shard, section);
        }
        if (section == Section::End) {
            return true;
        }
        const std::string why = m_out.reason().empty() ? in.reason() : m_out.reason();
        reason = "cannot take over " + path + ": " + (why.empty() ? "it is not as it was written" : why);
        return false;
    }

    bool finish() { return write(ending(m_hasAnnotations, m_images)) && m_out.replace(); }
    const std::string& reason() const { return m_out.reason(); }

private:
    enum class Section
    {
        Beginning,
        Annotations,
        Images,
        End
    };

    bool write(const std::string& text) { return m_out.write(text.data(), text.size()); }

    bool addLine(std::string& line, const std::string& shard, Section& section)
    {
        if (section == Section::Beginning) {
            // What stands there is the same in all files, and written anew.
            section = line == kAnnotations ? Section::Annotations : section;
            return true;
        }
        if (section == Section::Annotations && line == kImages) {
            section = Section::Images;
            return true;
        }
        if (section == Section::Images && line == kEnd) {
            section = Section::End;
            return true;
        }
        if (line.empty()) {
            return true;
        }
        if (line.back() == ',') {
            line.pop_back();
        }
        // A zero byte ends a text for the library, whatever is behind it. No tree is made: that of a hostile line could
        // be deep.
        if (line.empty() || line.front() != '{' || line.find('\0') != std::string::npos ||
            !nlohmann::json::accept(line)) {
            return false;
        }
        return section == Section::Annotations ? addAnnotation(line) : addImage(line, shard);
    }

    bool addAnnotation(const std::string& line)
    {
        const bool isFirst = !m_hasAnnotations;
        m_hasAnnotations = true;
        return write((isFirst ? "" : ",\n") + line);
    }

    bool addImage(std::string& line, const std::string& shard)
    {
        const std::size_t place = line.find(kFileMember);
        if (place == std::string::npos) {
            return false;
        }
        line.insert(place + std::strlen(kFileMember), shard + "/");
        m_images += (m_images.empty() ? "" : ",\n") + line;
        return true;
    }

    KrFileReplacement m_out;
    bool m_hasAnnotations = false;
    std::string m_images; ///< their lines, joined
};

} // namespace

bool KrDatasetCoco::check(const KrDatasetInfo& info, std::string& reason) const
{
    if (!info.kinds.color || !(info.kinds.labels || info.kinds.masks)) {
        reason = "the format \"coco\" needs the kinds color and labels";
        return false;
    }
    if (!info.parts.empty() && info.numSamples > kLargestId / info.parts.size() - 1) {
        reason = "the format \"coco\" has no ids for the parts of so many samples";
        return false;
    }
    return KrSampleImages::check(info, reason);
}

std::unique_ptr<KrDatasetWriter> KrDatasetCoco::writer(const KrDatasetInfo& info, const KrDatasetShard&,
                                                       const std::string& folder, std::string& reason) const
{
    auto writer = std::make_unique<ShardWriter>(info, folder);
    return writer->open(reason) ? std::move(writer) : nullptr;
}

bool KrDatasetCoco::writeSet(const KrDatasetInfo& info, const std::string& folder, std::string& reason) const
{
    Joiner joiner(folder + "/" + kFileName);
    const bool isGood = joiner.begin(info);
    const std::uint64_t numShards = (info.numSamples + info.samplesPerShard - 1) / info.samplesPerShard;
    for (std::uint64_t shard = 0; isGood && shard < numShards; ++shard) {
        const std::string name = shardFolder(shard);
        if (!joiner.add(folder + "/" + name + "/" + kFileName, name, reason)) {
            return false;
        }
    }
    if (!isGood || !joiner.finish()) {
        reason = "cannot write " + folder + "/" + kFileName + ": " + joiner.reason();
        return false;
    }
    return true;
}
