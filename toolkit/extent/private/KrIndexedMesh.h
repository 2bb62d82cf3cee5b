#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

class KrCoordinateSystemTransformation;
class KrTriPhysicalExtent;

/// A triangle mesh as it goes to the graphics card: shared vertices, indices, and coarser levels over
/// the same vertices.
///
/// Plain data, immutable once it is made; shared between shapes, windows and threads.
class KrIndexedMesh
{
public:
    /// A run of `count` indices from `first` on.
    struct Range
    {
        std::uint32_t first = 0;
        std::uint32_t count = 0;
    };
    struct Level
    {
        /// Farthest that the surface lies from that of level 0, either way, m; 0 for level 0. Measured at points spread
        /// evenly over both; single corners of level 0 may lie up to twice as far off, and a body of which nothing is
        /// left is narrower than this.
        float error = 0.0f;
        /// How much of a body's picture this level changes, as KrLevelPictures tells: the share of its pixels that
        /// differ visibly from level 0, or more where small differences are many; 0 for level 0. It is the same at
        /// every distance.
        float change = 0.0f;
        /// One for each group of the mesh, in its order; empty ones, too.
        std::vector<Range> groups;
    };

    /// Level 0 of a mesh, with one vertex for all corners whose numbers are the same bits.
    ///
    /// Triangles keep their order and that of their corners: of equal depths the first one drawn is seen, and wherever
    /// surfaces meet, touch or fold some pixels have equal depths. A group that names what the mesh does not have is
    /// empty.
    ///
    /// @param mesh  read during the call only; of fewer than 2^32 corners (Kr::Limits are far lower)
    static std::shared_ptr<const KrIndexedMesh> make(const KrTriPhysicalExtent& mesh);

    /// The same with further levels: first one of all triangles, in the order that vertex caches like, then coarser
    /// ones, each of about half the triangles of the one before (KrMeshLevels). Level 0 and its vertices are unchanged;
    /// vertices that only the others use follow them.
    static std::shared_ptr<const KrIndexedMesh> withLevels(const KrIndexedMesh& mesh);

    /// The form of a mesh that was moved, from that of the mesh before.
    ///
    /// @param moved  the same lists, moved by `pose`, which turns and shifts
    /// @return null where vertices that were one are none any more, by the rounding to single precision
    static std::shared_ptr<const KrIndexedMesh> moved(const KrIndexedMesh& mesh, const KrTriPhysicalExtent& moved,
                                                      const KrCoordinateSystemTransformation& pose);

    std::size_t numVertices() const { return vertices.size() / 6; }
    /// Whether this is `other` with levels, or without, or a copy of it.
    bool hasLevelZeroOf(const KrIndexedMesh& other) const;
    /// Whether every index, range and level fits the lists, as it does in what `make` gives: for data out of files.
    /// @param numKnown  vertices, the first ones, whose numbers are known to be finite
    bool isConsistent(std::size_t numKnown = 0) const;

    /// Six numbers a vertex: position (m, extent's frame) and unit normal, those of the mesh in single precision.
    std::vector<float> vertices;
    /// Two numbers a vertex, u and v; empty for a mesh without.
    std::vector<float> textureCoordinates;
    /// Three a triangle, those of all levels behind one another.
    std::vector<std::uint32_t> indices;
    /// The finest first, errors and changes rising: level 0 has every triangle of every group.
    std::vector<Level> levels;
    /// Whether the surface encloses bodies, all groups together, and every face's corners run counter-clockwise seen
    /// from outside. An eye outside the bodies then sees the fronts of faces only. False where that is not sure.
    bool isClosed = false;
    /// Whether coarser levels were made, however few came of it.
    bool areLevelsMade = false;
};
