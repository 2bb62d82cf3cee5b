// Recipes of data sets: JSON with limits, and what is looked up from the numbers in it.
#include <dataset/KrDatasetRecipe.h>
#include <dataset/KrDatasetSampler.h>
#include <tests/support/JointedSystems.h>
#include <toolkit/foundation/KrPrint.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const bool isQuiet = [] {
        Kr::Print::instance()->setSink([](Kr::Print::Type, const std::string&) {});
        return true;
    }();
    KrDatasetRecipe recipe;
    std::string reason;
    if (!isQuiet || !recipe.readText(std::string(reinterpret_cast<const char*>(data), size), "/", "recipe", reason)) {
        // One sentence, whatever was in the file.
        if (isQuiet && (reason.empty() || reason.find('\n') != std::string::npos)) {
            std::abort();
        }
        return 0;
    }
    const KrDatasetShard last = recipe.shard(recipe.numShards() - 1);
    if (last.count == 0 || last.first + last.count != recipe.count) {
        std::abort();
    }
    // As if the first robot's file held two robots, and nothing else were there.
    static const KrStatedSystem system = JointedSystems::twoRobots();
    recipe.meshes.clear();
    recipe.robots.resize(1);
    recipe.materials.clear();
    for (KrDatasetRecipe::Camera& camera : recipe.cameras) {
        camera.robot = recipe.robots[0].name;
    }
    KrDatasetSampler sampler;
    if (sampler.prepare(recipe, system, {{recipe.robots[0].name, 0, 2}}, reason)) {
        for (const std::uint64_t number : {std::uint64_t{0}, std::uint64_t{1}, recipe.count - 1}) {
            if (!sampler.shot(number, 1).opticalToWorld.isPose()) {
                std::abort();
            }
        }
    }
    return 0;
}
