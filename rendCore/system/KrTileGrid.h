#pragma once

#include <cstddef>

/// Equal tiles in a grid, filled row by row from the upper left: where the views of one picture stand. Lengths are in
/// pixels; needs no OpenGL.
struct KrTileGrid
{
    unsigned int columns = 0;
    unsigned int rows = 0;
    unsigned int width = 0;  ///< of one tile
    unsigned int height = 0; ///< of one tile

    /// Rows that `count` tiles take in `columns`, which are not 0.
    static unsigned int rowsFor(unsigned int count, unsigned int columns);
    /// In as many columns as leave `count` tiles largest, by their shorter side, in a picture of that size. Pixels that
    /// do not make up a whole tile are left over.
    /// @return without columns where a tile would have no pixel, and for no tiles
    static KrTileGrid largest(unsigned int count, unsigned int pictureWidth, unsigned int pictureHeight);

    /// Tiles that have a place, those in the last row included that nothing stands in.
    std::size_t numPlaces() const { return std::size_t(columns) * rows; }
    /// The left edge of tile `i`, from the grid's left edge. There are columns.
    unsigned int left(std::size_t i) const { return width * static_cast<unsigned int>(i % columns); }
    /// The lower edge of tile `i`, below numPlaces(), from the grid's lower edge.
    unsigned int bottom(std::size_t i) const { return height * (rows - 1 - static_cast<unsigned int>(i / columns)); }
};
