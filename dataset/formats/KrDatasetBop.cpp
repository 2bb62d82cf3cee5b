#include <dataset/formats/KrDatasetBop.h>

#include <dataset/KrDatasetSample.h>
#include <dataset/KrDatasetWriter.h>
#include <dataset/formats/private/KrPartModel.h>
#include <dataset/formats/private/KrSampleImages.h>
#include <dataset/formats/private/KrSampleJson.h>
#include <dataset/private/KrDatasetFile.h>

#include <toolkit/foundation/private/KrFileReplacement.h>
#include <toolkit/foundation/private/KrJson.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

namespace
{

constexpr double kMillimetres = 1000.0; // of a metre
constexpr std::uint64_t kMostImages = 1000;
constexpr double kLargestValue = 65535.0; // of a depth image

/// Six digits, as the format has them in names.
std::string digits(std::uint64_t number)
{
    char text[32];
    std::snprintf(text, sizeof text, "%06llu", static_cast<unsigned long long>(number));
    return text;
}

template <typename Numbers>
std::string json(const Numbers& numbers)
{
    return KrJson::array(numbers, " ", KrJson::number);
}

std::string rotation(const osg::Matrixd& pose)
{
    return json(KrSampleJson::rotation(pose));
}

std::string translation(const osg::Matrixd& pose)
{
    std::array<double, 3> lengths = KrSampleJson::translation(pose);
    for (double& length : lengths) {
        length *= kMillimetres;
    }
    return json(lengths);
}

/// The unit of a depth image, mm: the smallest in which its largest depth fits, from a tenth of a millimetre on.
double depthScale(const std::vector<float>& depths)
{
    double farthest = 0.0;
    for (const float depth : depths) {
        farthest = std::isfinite(depth) ? std::max(farthest, kMillimetres * depth) : farthest;
    }
    double scale = 0.1;
    for (const double larger : {1.0, 10.0, 100.0, 1000.0}) {
        scale = farthest / scale > kLargestValue ? larger : scale;
    }
    return scale;
}

/// One file with an entry for each image: {"0": ..., "1": ...}, an entry a line.
class EntryFile
{
public:
    explicit EntryFile(double& time)
        : m_file(time)
    {
    }
    bool open(const std::string& path, std::string& reason) { return m_file.open(path, reason); }
    bool add(std::uint64_t image, const std::string& value, std::string& reason)
    {
        const std::string line = (m_isEmpty ? "{\n\"" : ",\n\"") + std::to_string(image) + "\": " + value;
        m_isEmpty = false;
        return m_file.write(line.data(), line.size(), reason);
    }
    bool close(std::string& reason)
    {
        const std::string end = m_isEmpty ? "{}\n" : "\n}\n";
        return m_file.write(end.data(), end.size(), reason) && m_file.close(reason);
    }

private:
    KrDatasetFile m_file;
    bool m_isEmpty = true;
};

class SceneWriter : public KrDatasetWriter
{
public:
    SceneWriter(const KrDatasetInfo& info, const KrDatasetShard& shard, const std::string& folder)
        : m_info(info)
        , m_folder(folder + "/")
        , m_first(shard.first)
    {
    }

    bool open(std::string& reason)
    {
        return m_cameras.open(m_folder + "scene_camera.json", reason) &&
               m_poses.open(m_folder + "scene_gt.json", reason) &&
               m_facts.open(m_folder + "scene_gt_info.json", reason);
    }

    bool add(const KrDatasetSample& sample, std::string& reason) override
    {
        const std::uint64_t image = sample.number - m_first;
        const double scale = depthScale(sample.depth);
        setDepths(sample, scale);
        const std::string frame = KrSampleJson::text(m_info, sample);
        return writeImages(sample, digits(image), reason) && m_cameras.add(image, camera(sample, scale), reason) &&
               addObjects(sample, image, reason) &&
               writeFile(m_folder + "frames/" + digits(image) + ".json", frame.data(), frame.size(), reason);
    }

    bool finish(std::string& reason) override
    {
        return m_cameras.close(reason) && m_poses.close(reason) && m_facts.close(reason);
    }

private:
    bool write(const std::string& path, std::string& reason)
    {
        return writeFile(m_folder + path, m_images.file().data(), m_images.file().size(), reason);
    }

    /// 0 is for what was not measured: for what is not there, and beyond the largest scale.
    void setDepths(const KrDatasetSample& sample, double scale)
    {
        m_depths.resize(sample.depth.size());
        std::transform(sample.depth.begin(), sample.depth.end(), m_depths.begin(), [scale](float depth) {
            const double value = std::round(kMillimetres * depth / scale);
            return static_cast<std::uint16_t>(value <= kLargestValue ? std::max(value, 1.0) : 0.0);
        });
    }

    bool writeImages(const KrDatasetSample& sample, const std::string& name, std::string& reason)
    {
        for (const KrSampleImages::Kind& kind : KrSampleImages::kinds()) {
            const bool isDepth = kind.isWanted == &KrDatasetKinds::depth;
            const std::string folder = kind.isWanted == &KrDatasetKinds::color ? "rgb" : kind.name;
            const std::string path = folder + "/" + name + (isDepth ? ".png" : kind.extension);
            if (m_info.kinds.*kind.isWanted && !((isDepth ? m_images.png(m_depths.data(), 1, 16, sample, reason)
                                                          : (m_images.*kind.encode)(sample, reason)) &&
                                                 write(path, reason))) {
                return false;
            }
        }
        return true;
    }

    static std::string camera(const KrDatasetSample& sample, double scale)
    {
        const KrCameraIntrinsics& lens = *sample.description.intrinsics;
        const osg::Matrixd view = sample.description.opticalView();
        // Pixel centres are at whole numbers here, and half a pixel further in ours.
        const std::array<double, 9> k = {lens.fx, 0.0, lens.cx - 0.5, 0.0, lens.fy, lens.cy - 0.5, 0.0, 0.0, 1.0};
        return KrJson::Object()
            .raw("cam_K", json(k))
            .real("depth_scale", scale)
            .raw("cam_R_w2c", rotation(view))
            .raw("cam_t_w2c", translation(view))
            .text();
    }

    /// Those that would be seen if nothing stood before them, in the order of their labels.
    bool addObjects(const KrDatasetSample& sample, std::uint64_t image, std::string& reason)
    {
        std::vector<std::string> poses;
        std::vector<std::string> facts;
        for (const KrDatasetSample::Part& part : sample.parts) {
            if (part.amodalPixels == 0) {
                continue;
            }
            const std::string name = digits(image) + "_" + digits(poses.size()) + ".png";
            poses.push_back("\n  " + KrJson::Object()
                                         .raw("cam_R_m2c", rotation(part.linkToOptical))
                                         .raw("cam_t_m2c", translation(part.linkToOptical))
                                         .count("obj_id", m_info.parts[part.label - 1].category)
                                         .text());
            facts.push_back("\n  " + factsOf(sample, part));
            if (!writeMasks(sample, part, name, reason)) {
                return false;
            }
        }
        const auto itself = [](const std::string& text) { return text; };
        return m_poses.add(image, KrJson::array(poses, "", itself), reason) &&
               m_facts.add(image, KrJson::array(facts, "", itself), reason);
    }

    bool writeMasks(const KrDatasetSample& sample, const KrDatasetSample::Part& part, const std::string& name,
                    std::string& reason)
    {
        return m_images.amodalMask(sample, part, reason) && write("mask/" + name, reason) &&
               m_images.visibleMask(sample, part, reason) && write("mask_visib/" + name, reason);
    }

    std::string factsOf(const KrDatasetSample& sample, const KrDatasetSample::Part& part) const
    {
        const KrDatasetSample::Box& all = part.amodalBox;
        std::uint64_t numMeasured = 0;
        for (std::size_t y = 0; y < all.height; ++y) {
            for (std::size_t x = 0; x < all.width; ++x) {
                const bool isCovered = part.amodalMask[y * all.width + x] != 0;
                numMeasured += isCovered && m_depths[KrSampleImages::pixel(sample, all, y) + x] != 0 ? 1 : 0;
            }
        }
        const bool isSeen = part.visiblePixels > 0;
        return KrJson::Object()
            .raw("bbox_obj", KrSampleJson::box(all))
            .raw("bbox_visib", isSeen ? KrSampleJson::box(part.visibleBox) : "[-1, -1, -1, -1]")
            .raw("px_count_all", std::to_string(part.amodalPixels))
            .raw("px_count_valid", std::to_string(numMeasured))
            .raw("px_count_visib", std::to_string(part.visiblePixels))
            .real("visib_fract", static_cast<double>(part.visiblePixels) / static_cast<double>(part.amodalPixels))
            .text();
    }

    const KrDatasetInfo& m_info;
    const std::string m_folder;
    const std::uint64_t m_first;
    EntryFile m_cameras{m_writingTime};
    EntryFile m_poses{m_writingTime};
    EntryFile m_facts{m_writingTime};
    KrSampleImages m_images;
    std::vector<std::uint16_t> m_depths; ///< of the present sample
};

/// A text for models_info.json.
std::string factsOf(const KrPartModel& model)
{
    KrJson::Object object;
    object.real("diameter", model.diameter());
    constexpr const char* kLow[] = {"min_x", "min_y", "min_z"};
    constexpr const char* kSize[] = {"size_x", "size_y", "size_z"};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        object.real(kLow[axis], model.low()[axis]);
    }
    for (std::size_t axis = 0; axis < 3; ++axis) {
        object.real(kSize[axis], model.size()[axis]);
    }
    return object.text();
}

} // namespace

bool KrDatasetBop::check(const KrDatasetInfo& info, std::string& reason) const
{
    if (!info.kinds.color || !info.kinds.depth || !info.kinds.masks) {
        reason = "the format \"bop\" needs the kinds color, depth and masks";
        return false;
    }
    if (info.samplesPerShard > kMostImages) {
        reason = "a scene of the format \"bop\" has at most " + std::to_string(kMostImages) +
                 " images, and shards of " + std::to_string(info.samplesPerShard) + " samples are asked for";
        return false;
    }
    for (const KrDatasetPart& part : info.parts) {
        if (!KrPartModel::isRigid(info, part)) {
            reason =
                "objects of the format \"bop\" are rigid, and \"" + part.name + "\" has links that move: label links";
            return false;
        }
    }
    return KrSampleImages::check(info, reason);
}

std::string KrDatasetBop::shardFolder(std::uint64_t number) const
{
    return "train/" + digits(number);
}

std::uint64_t KrDatasetBop::bytesPerSample(const KrDatasetInfo& info) const
{
    // Two masks of a part are two files, and files take whole blocks.
    constexpr std::uint64_t kBlock = 4096;
    return KrDatasetFormat::bytesPerSample(info) + 2 * kBlock * info.parts.size();
}

std::unique_ptr<KrDatasetWriter> KrDatasetBop::writer(const KrDatasetInfo& info, const KrDatasetShard& shard,
                                                      const std::string& folder, std::string& reason) const
{
    auto writer = std::make_unique<SceneWriter>(info, shard, folder);
    return writer->open(reason) ? std::move(writer) : nullptr;
}

bool KrDatasetBop::writeSet(const KrDatasetInfo& info, const std::string& folder, std::string& reason) const
{
    const std::string models = folder + "/models";
    std::error_code error;
    std::filesystem::create_directories(models, error);
    std::vector<bool> isTold(info.categories.size() + 1, false);
    std::string facts;
    for (const KrDatasetPart& part : info.parts) {
        // Parts of one category look the same: the first one tells.
        if (isTold[part.category]) {
            continue;
        }
        isTold[part.category] = true;
        const KrPartModel model(info, part);
        if (model.isEmpty()) {
            continue;
        }
        const std::string path = models + "/obj_" + digits(part.category) + ".ply";
        KrFileReplacement file(path);
        if (!model.writePly(file) || !file.replace()) {
            reason = "cannot write " + path + ": " + file.reason();
            return false;
        }
        facts += (facts.empty() ? "\n\"" : ",\n\"") + std::to_string(part.category) + "\": " + factsOf(model);
    }
    const std::string path = models + "/models_info.json";
    const std::string failure = KrFileReplacement::write(path, "{" + facts + "\n}\n");
    if (!failure.empty()) {
        reason = "cannot write " + path + ": " + failure;
    }
    return failure.empty();
}
