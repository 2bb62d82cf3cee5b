// A glTF beside one buffer, or a GLB: the content tells.

#include "KrMeshFuzz.h"

#include <array>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const KrMeshFuzzFolder folder;
    static const std::string buffer = [] {
        const std::array<float, 9> corners{0, 0, 0, 1, 0, 0, 0, 1, 0};
        const std::array<std::uint16_t, 3> indices{0, 1, 2};
        std::string bytes(sizeof corners + sizeof indices, '\0');
        std::memcpy(&bytes[0], corners.data(), sizeof corners);
        std::memcpy(&bytes[sizeof corners], indices.data(), sizeof indices);
        return bytes;
    }();
    folder.write("a.bin", buffer);
    fuzzMesh(folder.write("mesh.gltf", fuzzText(data, size)));
    return 0;
}
