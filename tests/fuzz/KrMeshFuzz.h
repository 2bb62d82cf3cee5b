#pragma once

#include <tests/support/Folder.h>

#include <import/KrImportOptions.h>
#include <import/mesh/KrMeshBuilder.h>
#include <import/mesh/KrMeshFile.h>

#include <toolkit/foundation/KrPrint.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

/// A folder of one's own for what an importer reads; messages go nowhere while it is there.
class KrMeshFuzzFolder : public Folder
{
public:
    KrMeshFuzzFolder()
    {
        Kr::Print::instance()->setSink([](Kr::Print::Type, const std::string&) {});
    }
};

inline std::string_view fuzzText(const std::uint8_t* data, std::size_t size)
{
    return {reinterpret_cast<const char*>(data), size};
}

inline constexpr KrMeshLimits fuzzLimits{1u << 20, 20000};

inline KrImportOptions fuzzOptions()
{
    KrImportOptions options;
    options.useRosPackagePath = false;
    options.maxLinks = 200;
    options.maxMeshBytes = fuzzLimits.maxBytes;
    options.maxTriangles = fuzzLimits.maxTriangles;
    return options;
}

/// Reads a mesh and builds an extent of it; what was read must hold together.
inline void fuzzMesh(const std::string& path)
{
    KrMeshData data;
    std::string why;
    if (!KrMeshFile::read(path, fuzzLimits, data, why)) {
        if (why.empty() || why.find('\n') != std::string::npos) {
            std::abort();
        }
        return;
    }
    for (const KrMeshData::Group& group : data.groups) {
        for (const KrTriangle& triangle : group.triangles) {
            for (unsigned int corner = 0; corner < 3; ++corner) {
                const std::uint32_t normal = triangle.normal(corner);
                if (triangle.vertex(corner) >= data.vertices.size() ||
                    (normal != KrMeshData::noNormal && normal >= data.normals.size())) {
                    std::abort();
                }
            }
        }
    }
    const KrMeshBuilder::Result built = KrMeshBuilder::build(data, {});
    if (!built.extent && built.triangles > 0 && built.why.empty()) {
        std::abort();
    }
}
