#pragma once

#include <rendCore/draw/private/KrNearestDepths.h>

#include <osg/Matrixd>
#include <osg/Vec3>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

/// Finds the triangles of a range of indices that cannot show in a picture: those that miss the middle of every pixel,
/// backs where backs are left out, and those behind others.
///
/// For drivers that draw with the processor: to shade a triangle's vertices, and to set it up, takes them ten times as
/// long as it takes to see that nothing comes of it, and of a robot from afar most triangles are smaller than a pixel.
/// What shows is never left out, whatever the driver's rounding. Immutable.
class KrTriangleSieve
{
public:
    /// From where a mesh is seen, and how it is drawn.
    struct View
    {
        osg::Matrixd modelView; ///< of the mesh
        osg::Matrixd projection;
        double width = 0.0; ///< of the viewport, pixels
        double height = 0.0;
        bool areBacksLeftOut = false;       ///< by the driver; fronts are counter-clockwise in the window
        double rounding = 0.0;              ///< how far the driver moves a corner at the most, pixels
        KrNearestDepths* nearest = nullptr; ///< of the picture, row by row; null where what is behind others may show
        double depthRounding = 0.0;         ///< how far the driver moves a depth at the most, of 0 to 1
    };
    struct Batch;
    /// A triangle before the middles of pixels that it may cover.
    struct Sight
    {
        std::uint32_t first;   ///< of its corners, in the range of indices
        std::uint32_t pixel;   ///< the first one of a tile of 8 columns and 4 rows
        float nearness;        ///< no less than that of the triangle there
        std::uint32_t middles; ///< of the tile, row by row, the first one in the last bit
    };
    /// What is found: no memory is asked for where there is enough from before.
    class Sights
    {
    public:
        /// Forgets those behind the first `size`, which are as many as there are at the most.
        void truncate(std::size_t size) { m_size = size; }
        std::size_t size() const { return m_size; }
        const Sight* data() const { return m_sights.data(); }

    private:
        friend class KrTriangleSieve;

        std::vector<Sight> m_sights;
        std::size_t m_size = 0;
        // Of the vertices of the sieve at hand.
        std::vector<float> m_x; ///< in the window, from the middle of the first pixel, parts of a pixel
        std::vector<float> m_y;
        std::vector<float> m_nearness;
        /// The columns (upper half) and rows of pixels between whose middles they lie: the last bit of a half is set
        /// where they may as well be in the next one.
        std::vector<std::uint32_t> m_cells;
        std::shared_ptr<Batch> m_batch; ///< null before it is needed; what it is, nobody else needs to know
    };

    /// The instructions that triangles are looked through with. What is found is the same, to the bit.
    enum class Vectors
    {
        Plain, ///< those that the library is compiled for
        Avx2,
    };
    /// The fastest ones that the processor has.
    static Vectors vectors();

    /// So many at once: numbers of what they share fit into 16 bits, and what is found out of it into a cache.
    static constexpr std::size_t kMostIndices = std::size_t{3} << 14;
    static constexpr std::uint16_t kNoNumber = 0xffff;

    /// @param vertices  of the mesh
    /// @param indices   16 or 32 bits each, three a triangle
    /// @param count     of indices, kMostIndices at the most
    /// @param numbers   room to work in, one for each vertex of the mesh: kNoNumber before and after
    template <typename Index>
    KrTriangleSieve(const osg::Vec3* vertices, const Index* indices, std::size_t count,
                    std::vector<std::uint16_t>& numbers);

    std::size_t numTriangles() const { return m_corners.size() / 3; }

    /// How far away the middle of the triangles is, of an eye that looks along -z. m; 0 where nothing is known
    double distance(const View& view) const;

    /// Finds the triangles that may show, and tells `view.nearest` of those that hide what is behind them.
    ///
    /// @param sights  in the order of the triangles, behind those that are there; one triangle may have several
    /// @return the number of triangles found. Of all, and nothing is added, where nothing is known: the mesh may be
    ///         beside or behind the eye, or so far from its origin that the driver's numbers are not exact
    std::size_t find(const View& view, Sights& sights) const { return find(view, sights, vectors()); }
    /// With certain instructions, which the processor must have.
    std::size_t find(const View& view, Sights& sights, Vectors vectors) const;

    /// Copies the corners of triangles that have been found, but for those that are hidden.
    ///
    /// @param indices  those of the constructor
    /// @param nearest  null for all
    /// @param kept     room for three indices for each sight
    /// @return the number of indices copied
    template <typename Index>
    static std::size_t copy(const Index* indices, const Sight* begin, const Sight* end, const KrNearestDepths* nearest,
                            Index* kept);

private:
    static bool isSeen(const Sight& sight, const KrNearestDepths& nearest);

    static constexpr std::size_t kBlock = 8;
    /// Eight vertices, which the compiler takes side by side.
    struct Block
    {
        float x[kBlock];
        float y[kBlock];
        float z[kBlock];
    };
    /// How far the driver's numbers may be from those here.
    struct Margins
    {
        float place; ///< units of spots
        float nearness;
    };
    template <bool kIsNearnessWanted>
    class Looking;

    bool findMargins(const View& view, Margins& margins) const;
    template <bool kIsNearnessWanted>
    void findSpots(const View& view, Sights& sights, std::int32_t margin) const;
    template <bool kIsNearnessWanted>
    std::size_t look(const View& view, const Margins& margins, Sights& sights) const;
    std::size_t lookPlainly(const View& view, const Margins& margins, Sights& sights) const;
    std::size_t lookWidely(const View& view, const Margins& margins, Sights& sights) const;

    std::vector<std::uint16_t> m_corners; ///< numbers of vertices in the blocks
    std::vector<Block> m_blocks;          ///< the last vertex once more behind it
    bool m_isFinite = true;
    osg::Vec3d m_center; ///< of the box around the vertices
    double m_radius = 0.0;
    osg::Vec3d m_farthest; ///< largest absolute coordinates
};
