#include <dataset/private/KrDatasetManifest.h>

#include <dataset/KrDatasetRecipe.h>
#include <dataset/private/KrDatasetHash.h>

#include <toolkit/foundation/private/KrInputFile.h>
#include <toolkit/foundation/private/KrJson.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <filesystem>

namespace
{

namespace fs = std::filesystem;
using Tree = nlohmann::json;

constexpr const char* kFormat = "krDatasetShard";
constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 30; // millions of files

std::string number(std::uint64_t value)
{
    return std::to_string(value); // 64 bits on every machine
}

} // namespace

bool KrDatasetManifest::list(const std::string& folder, std::string& reason)
{
    files.clear();
    std::error_code error;
    for (fs::recursive_directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        if (at->is_directory(error) && !at->is_symlink(error)) {
            continue;
        }
        const std::string path = at->path().lexically_relative(folder).generic_string();
        if (!at->is_regular_file(error) || at->is_symlink(error)) {
            reason = at->path().string() + " is no file";
            return false;
        }
        if (path != kName) {
            files.push_back({path, at->file_size(error), std::string()});
        }
    }
    if (error) {
        reason = folder + " cannot be read: " + error.message();
        return false;
    }
    std::sort(files.begin(), files.end(), [](const File& a, const File& b) { return a.path < b.path; });
    for (File& file : files) {
        file.hash = KrDatasetHash::ofFile(folder + "/" + file.path, reason);
        if (file.hash.empty()) {
            return false;
        }
    }
    return true;
}

std::string KrDatasetManifest::json() const
{
    const auto line = [](const File& file) {
        return "\n  " + KrJson::Object()
                            .string("path", file.path)
                            .raw("bytes", number(file.bytes))
                            .string("sha256", file.hash)
                            .text();
    };
    return "{\"format\": " + KrJson::quoted(kFormat) + ", \"version\": 1,\n\"shard\": " + number(shard.number) +
           ", \"first\": " + number(shard.first) + ", \"count\": " + number(shard.count) +
           ",\n\"recipe\": " + KrJson::quoted(recipeHash) +
           ",\n\"renderer\": " + KrJson::quoted("krRendCore " + rendererVersion) +
           ", \"driver\": " + KrJson::quoted(renderer) + ",\n\"files\": " + KrJson::array(files, "", line) + "}\n";
}

bool KrDatasetManifest::read(const std::string& folder, std::string& reason)
{
    const std::string path = folder + "/" + kName;
    std::string text;
    const std::string failure = KrInputFile::readWhole(path, KrInputFile::Accept::Files, kMostBytes, text);
    if (!failure.empty()) {
        reason = path + ": " + failure;
        return false;
    }
    KrDatasetManifest found;
    try {
        const Tree tree = Tree::parse(text);
        if (tree.at("format") != kFormat || tree.at("version") != 1) {
            reason = path + " is no manifest of version 1";
            return false;
        }
        found.shard = {tree.at("shard"), tree.at("first"), tree.at("count")};
        found.recipeHash = tree.at("recipe");
        found.rendererVersion = tree.at("renderer");
        found.renderer = tree.at("driver");
        for (const Tree& file : tree.at("files")) {
            found.files.push_back({file.at("path"), file.at("bytes"), file.at("sha256")});
        }
    } catch (const Tree::exception&) {
        reason = path + " is no manifest";
        return false;
    }
    *this = std::move(found);
    return true;
}

std::string krDatasetDescription(const KrDatasetRecipe& recipe, const KrDatasetInfo& info, std::string& reason)
{
    struct Source
    {
        std::string file;
        std::string hash;
    };
    std::vector<std::string> paths;
    for (const KrDatasetRecipe::Robot& robot : recipe.robots) {
        paths.push_back(robot.file);
    }
    for (const KrDatasetRecipe::Mesh& mesh : recipe.meshes) {
        paths.push_back(mesh.file);
    }
    std::vector<Source> sources;
    for (const std::string& path : paths) {
        const std::string hash = KrDatasetHash::ofFile(path, reason);
        if (hash.empty()) {
            return std::string();
        }
        // Without its folders, which differ from machine to machine.
        sources.push_back({fs::path(path).filename().string(), hash});
    }
    std::vector<std::string> kinds;
    for (const auto& [isWanted, kind] :
         {std::make_pair(info.kinds.color, "color"), std::make_pair(info.kinds.depth, "depth"),
          std::make_pair(info.kinds.labels, "labels"), std::make_pair(info.kinds.normals, "normals"),
          std::make_pair(info.kinds.masks, "masks")}) {
        if (isWanted) {
            kinds.emplace_back(kind);
        }
    }
    const auto category = [](const KrDatasetCategory& c) {
        return "\n  " + KrJson::Object()
                            .count("id", c.id)
                            .string("name", c.name)
                            .string("supercategory", c.supercategory)
                            .text();
    };
    const auto part = [](const KrDatasetPart& p) {
        return "\n  " + KrJson::Object()
                            .count("label", p.label)
                            .string("name", p.name)
                            .string("robot", p.manipulator)
                            .string("link", p.link)
                            .count("shape", p.shapeIndex)
                            .count("category", p.category)
                            .text();
    };
    const auto source = [](const Source& s) {
        return "\n  " + KrJson::Object().string("file", s.file).string("sha256", s.hash).text();
    };
    const std::string size = KrJson::array(std::array<unsigned int, 2>{info.width, info.height}, " ",
                                           [](unsigned int n) { return std::to_string(n); });
    return "{\"format\": \"krDataset\", \"version\": 1, \"name\": " + KrJson::quoted(info.name) +
           ",\n\"recipe\": " + KrJson::quoted(info.recipeHash) +
           ",\n\"renderer\": " + KrJson::quoted("krRendCore " + info.rendererVersion) +
           ", \"writer\": " + KrJson::quoted(recipe.format) + ",\n\"size\": " + size +
           ", \"kinds\": " + KrJson::array(kinds, " ", [](const std::string& k) { return KrJson::quoted(k); }) +
           ",\n\"samples\": " + number(info.numSamples) + ", \"samplesPerShard\": " + number(info.samplesPerShard) +
           ",\n\"cameras\": " +
           KrJson::array(info.cameras, " ", [](const std::string& c) { return KrJson::quoted(c); }) +
           ",\n\"categories\": " + KrJson::array(info.categories, "", category) +
           ",\n\"parts\": " + KrJson::array(info.parts, "", part) +
           ",\n\"files\": " + KrJson::array(sources, "", source) + "}\n";
}
