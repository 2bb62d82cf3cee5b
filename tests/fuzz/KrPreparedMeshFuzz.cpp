#include <import/cache/KrPreparedMesh.h>

#include <cstdlib>

// What the cache of meshes has on disk, behind its seal: bytes that are read are those of a mesh that can be written.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    KrPreparedMesh mesh;
    if (KrPreparedMesh::read({reinterpret_cast<const char*>(data), size}, mesh)) {
        KrPreparedMesh again;
        if (!KrPreparedMesh::read(mesh.bytes(), again)) {
            std::abort();
        }
    }
    return 0;
}
