#pragma once

class KrIndexedMesh;

/// Coarser and coarser forms of a mesh.
namespace KrMeshLevels
{

/// Level 0 of `mesh`, and behind it levels of about half the triangles of the one before each; closer to one another
/// where they change pictures by about as much as half a pixel of error may, and farther apart beyond.
///
/// Borders between groups and seams of texture coordinates stay where they are, within the error. Corners lie where the
/// level is nearest to level 0 (KrLevelPositions), those at one position together. A corner has the normal of level 0
/// that fits the face, or one fitted to the shading of the surface that it stands for (KrLevelNormals). It is a vertex
/// behind those of the mesh where that has none like it. A level with hardly fewer triangles than the one before is
/// left out, and so are those that lie farther off than a tenth of the mesh's size.
KrIndexedMesh make(const KrIndexedMesh& mesh);

} // namespace KrMeshLevels
