#include <rendCore/system/KrTileGrid.h>

#include <algorithm>

unsigned int KrTileGrid::rowsFor(unsigned int count, unsigned int columns)
{
    // Not (count + columns - 1) / columns, whose sum may overflow.
    return count / columns + (count % columns > 0 ? 1 : 0);
}

KrTileGrid KrTileGrid::largest(unsigned int count, unsigned int pictureWidth, unsigned int pictureHeight)
{
    KrTileGrid best;
    // Every grid is tried: there are as many as views, which are few.
    for (unsigned int columns = 1; columns <= count; ++columns) {
        const unsigned int rows = rowsFor(count, columns);
        const KrTileGrid grid = {columns, rows, pictureWidth / columns, pictureHeight / rows};
        // By the shorter side: a tile is as good as its narrower direction. Of equal grids the
        // one with fewer columns stays.
        if (std::min(grid.width, grid.height) > std::min(best.width, best.height)) {
            best = grid;
        }
    }
    return best;
}
