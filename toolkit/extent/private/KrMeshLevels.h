#pragma once

class KrIndexedMesh;

/// Coarser and coarser forms of a mesh.
namespace KrMeshLevels
{

/// Level 0 of `mesh`, and behind it levels of about half the triangles of the one before each.
///
/// Positions are those of the mesh, whatever normals it has there; borders between groups and seams of texture
/// coordinates stay where they are, within the error. A corner has the normal of level 0 that fits the face, or one
/// fitted to the shading of the surface that it stands for (KrLevelNormals), as a vertex behind those of the mesh. A
/// level with less than a quarter fewer triangles than the one before is left out, and so are those that lie farther
/// off than a tenth of the mesh's size.
KrIndexedMesh make(const KrIndexedMesh& mesh);

} // namespace KrMeshLevels
