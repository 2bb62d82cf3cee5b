#pragma once

#include <import/mesh/KrMeshData.h>
#include <import/mesh/KrMeshLimits.h>

#include <string>

/// Reads mesh files: STL, OBJ, DAE, PLY, OFF, glTF and GLB.
///
/// Lengths become metres where the format tells its unit; the up axis a DAE declares is ignored, as robot descriptions
/// expect; the transformations of nodes are applied, mirroring ones turn the winding; cameras, lights, points and lines
/// are left out. Normals that are absent, zero or not of unit length are marked to be computed, those of STL files
/// always.
class KrMeshFile
{
public:
    /// @param data  written on success only; may hold no triangle at all
    /// @param why   on failure one clause that says what is wrong with the file
    static bool read(const std::string& path, const KrMeshLimits& limits, KrMeshData& data, std::string& why);
    /// The same of a file whose `content` has been read already, within the limits. @param path  for its place and
    /// extension
    static bool readContent(const std::string& path, std::string&& content, const KrMeshLimits& limits,
                            KrMeshData& data, std::string& why);
};
