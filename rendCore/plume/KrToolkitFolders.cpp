#include <rendCore/plume/KrToolkitFolders.h>

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <system_error>

namespace
{

constexpr const char* kVariable = "KR_TOOLKITS";
constexpr const char* kShaderFile = "software/render/src/rendCore/krPlumeShader.frag";

/// The folder of the file from which this code was loaded; empty when that cannot be told.
std::filesystem::path libraryFolder()
{
    Dl_info info = {};
    // A variable and not a function: the address of a function may be that of the program's own jump table.
    static const char s_here = 0;
    if (dladdr(&s_here, &info) == 0 || info.dli_fname == nullptr) {
        return std::filesystem::path();
    }
    std::error_code error;
    // Links are followed: a library is often found through one that lies elsewhere.
    const std::filesystem::path file = std::filesystem::canonical(info.dli_fname, error);
    return error ? std::filesystem::path() : file.parent_path();
}

bool hasFile(const std::filesystem::path& toolkits)
{
    std::error_code error;
    // One of the two shaders stands for both: they are installed together.
    return std::filesystem::is_regular_file(toolkits / kShaderFile, error);
}

/// The first folder with shader files at one of the places where a build or an installation puts them; empty for none.
std::filesystem::path findToolkits(std::filesystem::path folder)
{
    // Libraries lie one or two folders below the prefix: lib, lib64, lib/x86_64-linux-gnu.
    for (int level = 0; level < 3 && folder.has_relative_path(); ++level, folder = folder.parent_path()) {
        for (const char* place : {"toolkits", "share/krRendCore"}) {
            if (hasFile(folder / place)) {
                return folder / place;
            }
        }
    }
    return std::filesystem::path();
}

} // namespace

bool KrToolkitFolders::setDefault()
{
    // Whoever sets it knows best, even where it leads nowhere.
    if (std::getenv(kVariable) != nullptr) {
        return true;
    }
    try {
        const std::filesystem::path toolkits = findToolkits(libraryFolder());
        return !toolkits.empty() && setenv(kVariable, toolkits.c_str(), 0) == 0;
    } catch (...) {
        // Out of memory: as good as not found.
        return false;
    }
}

bool KrToolkitFolders::hasShaders(const std::string& toolkits)
{
    try {
        return hasFile(toolkits);
    } catch (...) {
        // Out of memory: as good as not found.
        return false;
    }
}
