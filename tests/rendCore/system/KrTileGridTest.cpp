#include <rendCore/system/KrTileGrid.h>

#include <gtest/gtest.h>

namespace
{

void expectGrid(const KrTileGrid& grid, unsigned int columns, unsigned int rows, unsigned int width,
                unsigned int height)
{
    EXPECT_EQ(grid.columns, columns);
    EXPECT_EQ(grid.rows, rows);
    EXPECT_EQ(grid.width, width);
    EXPECT_EQ(grid.height, height);
}

} // namespace

TEST(KrTileGrid, TilesAreAsLargeAsTheirNumberAndThePictureAllow)
{
    expectGrid(KrTileGrid::largest(1, 640, 480), 1, 1, 640, 480);
    expectGrid(KrTileGrid::largest(4, 641, 483), 2, 2, 320, 241);
    expectGrid(KrTileGrid::largest(3, 900, 100), 3, 1, 300, 100);
    expectGrid(KrTileGrid::largest(3, 100, 900), 1, 3, 100, 300);
    expectGrid(KrTileGrid::largest(5, 300, 200), 3, 2, 100, 100);
    expectGrid(KrTileGrid::largest(3, 1, 2), 0, 0, 0, 0);
    expectGrid(KrTileGrid::largest(0, 640, 480), 0, 0, 0, 0);
}

TEST(KrTileGrid, PlacesGoRowByRowFromTheUpperLeft)
{
    const KrTileGrid grid = {3, 2, 10, 7};
    EXPECT_EQ(grid.numPlaces(), 6u);
    EXPECT_EQ(grid.left(0), 0u);
    EXPECT_EQ(grid.bottom(0), 7u) << "counted from below";
    EXPECT_EQ(grid.left(2), 20u);
    EXPECT_EQ(grid.left(4), 10u);
    EXPECT_EQ(grid.bottom(4), 0u);
    EXPECT_EQ(KrTileGrid::rowsFor(7, 3), 3u);
    EXPECT_EQ(KrTileGrid::rowsFor(6, 3), 2u);
    EXPECT_EQ(KrTileGrid::rowsFor(2, 5), 1u);
}
