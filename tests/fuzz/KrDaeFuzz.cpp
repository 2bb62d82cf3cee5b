#include "KrMeshFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const KrMeshFuzzFolder folder;
    fuzzMesh(folder.write("mesh.dae", fuzzText(data, size)));
    return 0;
}
