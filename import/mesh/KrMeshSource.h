#pragma once

#include <import/mesh/KrMeshLimits.h>
#include <import/mesh/KrStlText.h>

#include <map>
#include <string>
#include <vector>

/// What a mesh file holds, read by us and checked: all that the mesh library gets to see. It is not asked for STL
/// files.
struct KrMeshSource
{
    enum class Format
    {
        Stl,
        Obj,
        Dae,
        Ply,
        Off,
        Gltf,
        Glb
    };

    Format format = Format::Stl;
    std::string main;                         ///< the name in `files` to begin with
    std::map<std::string, std::string> files; ///< content by name: the mesh and its side files
    std::vector<KrStlText::Facet> facets;     ///< of an STL, which has nothing else; in place of `files`
    std::string upAxis;                       ///< "Z_UP" and the like; empty where the file tells none
    bool trustMaterials = true;               ///< false when the file that defines them is not there
    std::vector<std::string> warnings;        ///< one sentence each
    std::vector<std::string> sideFiles;       ///< every path where a side file was looked for, there or not

    /// Reads a mesh file, and the side files that it names.
    ///
    /// The format follows from the content where that begins with a sign of its own, otherwise from the extension.
    /// @param source  written on success only
    /// @param why     on failure one clause that says what is wrong
    /// @return false for a file in another format, over a limit, or that the mesh library had better not see
    static bool read(const std::string& path, const KrMeshLimits& limits, KrMeshSource& source, std::string& why);
    /// The same of a file whose `content` has been read already, within the limits. @param path  for its place and
    /// extension
    static bool readContent(const std::string& path, std::string&& content, const KrMeshLimits& limits,
                            KrMeshSource& source, std::string& why);
};
