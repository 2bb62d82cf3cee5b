#include <import/cache/KrPreparedMesh.h>

#include <cstdlib>

namespace
{

/// As it would be of lists that nobody has looked at.
bool isMesh(const KrTriPhysicalExtent& extent)
{
    KrTriPhysicalExtent checked;
    return checked.setMesh(extent.vertices(), extent.normals(), extent.textureCoordinates(), extent.groups()) &&
           checked.setIndexedMesh(extent.indexedMesh());
}

} // namespace

// What the cache of meshes has on disk, behind its seal: bytes that are read are those of a mesh that can be written.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    KrPreparedMesh mesh;
    if (KrPreparedMesh::read({reinterpret_cast<const char*>(data), size}, mesh)) {
        KrPreparedMesh again;
        if ((mesh.result.extent && !isMesh(*mesh.result.extent)) || !KrPreparedMesh::read(mesh.bytes(), again)) {
            std::abort();
        }
    }
    return 0;
}
