// A mesh and its materials, with a NUL between.

#include "KrMeshFuzz.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const KrMeshFuzzFolder folder;
    const std::string_view whole = fuzzText(data, size);
    const std::size_t end = std::min(whole.find('\0'), whole.size());
    folder.write("a.mtl", whole.substr(std::min(end + 1, whole.size())));
    fuzzMesh(folder.write("mesh.obj", whole.substr(0, end)));
    return 0;
}
