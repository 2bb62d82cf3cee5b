#pragma once

#include <toolkit/foundation/KrLimits.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Where the importer looks for what a robot description names, and how much it takes.
///
/// The limits are held before memory is asked for; what is over one is refused with a message that tells the limit. A
/// client that trusts its files may raise them.
struct KrImportOptions
{
    std::vector<std::string> packagePaths; ///< folders searched for packages, after the description's own bundle
    bool useRosPackagePath = true;         ///< then those of the environment variable ROS_PACKAGE_PATH

    /// What meshes get while they are read, on all cores. What is lacking is made when it is first asked for: levels on
    /// all cores, too, the rest mesh after mesh.
    enum class Preparation
    {
        None,    ///< for who draws nothing: the rest is time and memory for nothing
        Drawing, ///< the form in which they are drawn
        Levels   ///< and coarser levels, some microseconds a triangle: for who keeps them (useCache)
    };
    Preparation preparation = Preparation::Drawing;

    /// Whether prepared meshes are kept on disk from one process to the next (docs/import.md). Not unless it is asked
    /// for: a library does not write into a user's folders by itself.
    bool useCache = false;
    std::string cacheFolder;                                   ///< empty for krrendcore in the user's cache folder
    std::uint64_t maxCacheBytes = Kr::Limits::kMeshCacheBytes; ///< of all that is kept; 0 keeps nothing

    std::uint64_t maxRobotBytes = Kr::Limits::kRobotBytes;   ///< of the robot description
    std::size_t maxLinks = Kr::Limits::kLinks;               ///< and joints, of the robot description
    std::size_t maxChain = Kr::Limits::kLinkChain;           ///< links in a row, from the base outwards
    std::uint64_t maxMeshBytes = Kr::Limits::kMeshBytes;     ///< of a mesh file, and of all its side files together
    std::uint64_t maxTriangles = Kr::Limits::kMeshTriangles; ///< of a mesh file; three times as many vertices
};
