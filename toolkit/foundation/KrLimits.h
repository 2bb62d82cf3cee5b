#pragma once

#include <cstddef>
#include <cstdint>

/// What a file, a name or a request may ask for at most.
///
/// A file is hostile until it is read: each of these bounds is held before memory is asked for. What is over a bound
/// is refused with one message that tells the bound. The bounds lie far above what robots need and far below what a
/// machine has; docs/limits.md says why each has its value.
namespace Kr::Limits
{

constexpr std::uint64_t kPictureBytes = std::uint64_t{1} << 28;  ///< of a picture file
constexpr std::uint64_t kPicturePixels = std::uint64_t{1} << 28; ///< of a picture file, width times height
constexpr unsigned int kPictureSide = 65535;                     ///< of a picture file, either way, pixels

constexpr std::uint64_t kMeshBytes = std::uint64_t{1} << 30;      ///< of a mesh file and of each side file
constexpr std::uint64_t kMeshTriangles = std::uint64_t{20} << 20; ///< of a mesh file
constexpr std::size_t kMeshMaterials = 4096;                      ///< of a mesh file
constexpr std::size_t kMeshNesting = 200;                         ///< of the elements and the nodes of a mesh file
constexpr std::uint64_t kPolygonWork = std::uint64_t{1} << 30;    ///< sum of the squares of a mesh's polygons' corners

constexpr std::uint64_t kMeshCacheBytes = std::uint64_t{1} << 30; ///< of all prepared meshes that are kept on disk

constexpr std::uint64_t kRobotBytes = std::uint64_t{64} << 20; ///< of a robot description
constexpr std::size_t kLinks = 10000;                          ///< of a robot description
constexpr std::size_t kLinkChain = 500;                        ///< links in a row, from the base outwards
constexpr std::size_t kPathBytes = 4096;                       ///< of the name of a file
constexpr std::size_t kWarnings = 1000;                        ///< in the report of an import

constexpr std::size_t kElementDepth = std::size_t{1} << 18; ///< of a native document, elements inside each other
constexpr unsigned int kNestedObjects = 128;                ///< of a native document, objects but links in each other
constexpr std::uint64_t kMarkupBytes = std::uint64_t{4} << 20; ///< of a native document, a tag or a comment

constexpr std::size_t kStackReserve = std::size_t{64} << 10; ///< of a scene, besides its links, bytes

constexpr std::uint64_t kGridBytes = std::uint64_t{1} << 30; ///< of a file of grid values, unpacked too
constexpr unsigned int kGridValues = 1u << 27;               ///< of a grid, 1 GiB

constexpr unsigned int kWindowSide = 32767; ///< of a window on a screen, pixels
constexpr unsigned int kWindowSamples = 64; ///< asked for each pixel

constexpr double kLargestBody = 1e9; ///< m, of mass properties: semi-axes, and how far the centre of mass is away

constexpr std::uint64_t kTextBytes = std::uint64_t{256} << 20;   ///< of a trajectory, a camera or another text
constexpr std::size_t kTextLine = std::size_t{1} << 20;          ///< of a trajectory, bytes
constexpr std::size_t kTrajectoryRows = 1000000;                 ///< of a trajectory: nine hours at 30 frames a second
constexpr std::size_t kTrajectoryNumbers = std::size_t{1} << 26; ///< kept of a trajectory, rows times joints that move
constexpr std::uint64_t kCameraBytes = std::uint64_t{4} << 20;   ///< of a camera's description; its tree takes far more
constexpr std::uint64_t kStateBytes = std::uint64_t{16} << 20;   ///< of a state of a system
constexpr std::size_t kMessageName = 120;                        ///< of a name from a file in a message, bytes

} // namespace Kr::Limits
