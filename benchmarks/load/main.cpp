// How long robots take to load, against the XML and mesh libraries alone on the same files:
//   krLoadBenchmark ROBOT...                  ROBOT is a URDF
// A round reads all ways one after the other, so that what disturbs the machine disturbs all of them; medians of
// eleven.
//   libraries  the description parsed, each mesh file read once with the flags that the importer gives
//   ready      the same, with equal vertices joined and smooth normals computed, as a client of the library alone needs
//   cold       KrRobotImporter without a cache; "drawable": and the form in which meshes are drawn
//   filling    the same with a cache that is empty, whose entries are written
//   warm       with a cache that has all meshes, drawable; "levels": with their coarser levels
// The libraries take one core, the importer all that the process may use (taskset).
#include <import/KrRobotImporter.h>
#include <toolkit/system/KrStatedSystem.h>

#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <libxml/parser.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace
{

constexpr int kRounds = 11;

struct Way
{
    const char* name;
    std::function<bool()> load;
    std::function<void()> prepare; ///< not timed
    std::vector<double> ms = {};
};

bool loadOurs(const std::string& robot, const std::string& cache, KrImportOptions::Preparation preparation)
{
    KrImportOptions options;
    options.preparation = preparation;
    options.useCache = !cache.empty();
    options.cacheFolder = cache;
    KrStatedSystem system;
    KrImportReport report;
    return KrRobotImporter::readFile(robot, options, system, report);
}

/// Nothing but the libraries: their scenes are thrown away.
bool loadLibraries(const std::string& robot, const std::set<std::string>& meshes, unsigned int moreFlags)
{
    xmlDoc* const document = xmlReadFile(robot.c_str(), nullptr, XML_PARSE_NONET);
    const bool ok = document != nullptr;
    xmlFreeDoc(document);
    for (const std::string& mesh : meshes) {
        Assimp::Importer importer;
        importer.SetPropertyBool(AI_CONFIG_IMPORT_COLLADA_IGNORE_UP_DIRECTION, true);
        importer.ReadFile(mesh, aiProcess_Triangulate | aiProcess_SortByPType | moreFlags);
    }
    return ok;
}

/// Those that the description's elements show, each once.
std::set<std::string> meshesOf(const std::string& robot)
{
    KrStatedSystem system;
    KrImportReport report;
    KrRobotImporter::readFile(robot, KrImportOptions(), system, report);
    std::set<std::string> meshes;
    for (const KrImportReport::Mesh& mesh : report.meshes()) {
        if (!mesh.path.empty()) {
            meshes.insert(mesh.path);
        }
    }
    return meshes;
}

double medianMs(std::vector<double> ms)
{
    std::nth_element(ms.begin(), ms.begin() + kRounds / 2, ms.end());
    return ms[kRounds / 2];
}

bool measure(const std::string& robot, const std::string& folder)
{
    const std::set<std::string> meshes = meshesOf(robot);
    const std::string warm = folder + "/warm";
    const std::string fresh = folder + "/fresh";
    using Preparation = KrImportOptions::Preparation;
    const auto nothing = [] {};
    Way ways[] = {
        {"libraries", [&] { return loadLibraries(robot, meshes, 0); }, nothing},
        {"ready",
         [&] { return loadLibraries(robot, meshes, aiProcess_JoinIdenticalVertices | aiProcess_GenSmoothNormals); },
         nothing},
        {"cold", [&] { return loadOurs(robot, "", Preparation::None); }, nothing},
        {"drawable", [&] { return loadOurs(robot, "", Preparation::Drawing); }, nothing},
        {"filling", [&] { return loadOurs(robot, fresh, Preparation::Drawing); },
         [&] { std::filesystem::remove_all(fresh); }},
        {"warm", [&] { return loadOurs(robot, warm, Preparation::Drawing); }, nothing},
        {"levels", [&] { return loadOurs(robot, warm, Preparation::Levels); }, nothing},
    };
    // One round more, which fills the cache and brings the files into memory.
    for (int round = -1; round < kRounds; ++round) {
        for (Way& way : ways) {
            way.prepare();
            const auto begin = std::chrono::steady_clock::now();
            if (!way.load()) {
                return false;
            }
            const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - begin;
            if (round >= 0) {
                way.ms.push_back(time.count());
            }
        }
    }
    const double libraries = medianMs(ways[0].ms);
    std::printf("%-28s %3zu meshes", std::filesystem::path(robot).stem().string().substr(0, 28).c_str(), meshes.size());
    for (const Way& way : ways) {
        std::printf("  %s %.2f ms (%.2f)", way.name, medianMs(way.ms), medianMs(way.ms) / libraries);
    }
    std::printf("\n");
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    std::string folder = (std::filesystem::temp_directory_path() / "krLoadXXXXXX").string();
    if (argc < 2 || ::mkdtemp(folder.data()) == nullptr) {
        std::fprintf(stderr, "usage: %s ROBOT...\n", argv[0]);
        return 2;
    }
    bool ok = true;
    for (int i = 1; i < argc; ++i) {
        ok = measure(argv[i], folder) && ok;
    }
    std::filesystem::remove_all(folder);
    return ok ? 0 : 1;
}
