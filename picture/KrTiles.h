#pragma once

#include <toolkit/image/KrImage.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/system/KrManipulatorSystemState.h>
#include <toolkit/visualization/KrPovParameters.h>

#include <string>
#include <vector>

class KrMotion;
class KrAppScene;
struct KrAppOptions;
struct KrAppRobot;

/// One picture made of several views of the same system, in equal tiles: row by row from the upper left, in as many
/// columns as leave the tiles largest, by their shorter side. Each view is framed by itself. Pixels that do not make up
/// a whole tile, at the right and below, and tiles without a view show the background.
class KrAppTiles
{
public:
    /// The names of views that a list may hold.
    static const std::vector<std::string>& names();
    /// Splits "front,top". Throws KrAppFailure (WrongUsage) for a name that is none of them.
    static std::vector<std::string> parse(const std::string& list);

    /// Frames every view about the whole motion. Throws KrAppFailure (WrongUsage) when a tile would have no pixel.
    ///
    /// @param options     `views` is not empty; `width` and `height` are the whole picture's
    /// @param motion      fits the robot's system
    /// @param background  for pixels without a view
    KrAppTiles(const KrAppOptions& options, const KrAppRobot& robot, KrMotion& motion, const KrColor& background);

    /// Of one tile, pixels.
    unsigned int tileWidth() const { return m_width / m_columns; }
    unsigned int tileHeight() const { return m_height / m_rows; }

    /// Draws `state`, with the lamps about each view's eye, into the whole picture as `scene` draws it, `factor()`
    /// times as wide and high, before it is averaged down. Throws KrAppFailure (CouldNot).
    ///
    /// @param scene  of a tile's size
    /// @param out    RGB, row 0 at the bottom, no padding
    void draw(KrAppScene& scene, const KrManipulatorSystemState& state, unsigned char* out);

private:
    std::vector<KrPovParameters> m_povs;
    unsigned int m_width;
    unsigned int m_height;
    unsigned int m_columns = 1;
    unsigned int m_rows = 1;
    unsigned char m_background[3];
    KrImage m_tile;
};
