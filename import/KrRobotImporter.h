#pragma once

#include <import/KrImportOptions.h>
#include <import/report/KrImportReport.h>

#include <string>

class KrStatedSystem;

/// Reads robot descriptions (URDF) with their meshes, textures and materials, and meshes on their own.
///
/// Lengths become metres; link and joint names, joint order (the order of the description, depth first), limits and
/// mimic rules stay. What can be mended is mended, each time with a warning in the report.
/// Not for several threads at once.
class KrRobotImporter
{
public:
    /// Reads a URDF into `system`: one manipulator in its default state.
    ///
    /// A mesh that is missing or bad costs that mesh only: a small marked stand-in takes its place.
    /// @param path    the file; meshes are found from its place (docs/import.md lists the rules). A pipe is read to its
    ///                end, and its place is the current folder
    /// @param system  becomes the robot; left as it was on failure
    /// @param report  becomes what was found, on failure too
    /// @return false, after one message, when there is no robot in the file
    static bool readFile(const std::string& path, const KrImportOptions& options, KrStatedSystem& system,
                         KrImportReport& report);
    /// Reads a single mesh file into `system`: a manipulator of one link, which bears the file's name without
    /// extension. Otherwise as readFile, except that there is no stand-in for a mesh that cannot be read.
    /// @return false, after one message, when the file is no mesh
    static bool readMesh(const std::string& path, const KrImportOptions& options, KrStatedSystem& system,
                         KrImportReport& report);
};
