#pragma once

#include <picture/KrFraming.h>
#include <rendCore/system/KrTileGrid.h>
#include <toolkit/image/KrImage.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/math/KrVector.h>
#include <toolkit/system/KrManipulatorSystemState.h>
#include <toolkit/visualization/KrPovParameters.h>

#include <string>
#include <vector>

class KrMotion;
class KrPictureScene;

/// From where a view looks at a system: a robot faces +x and has its left at +y.
struct KrViewSide
{
    KrVector towardsEye; ///< of any length but 0
    KrVector up;

    /// "front", "back", "left", "right", "side" (as right), "top", "bottom", "perspective" (KrFraming::towardsEye).
    static const std::vector<std::string>& names();
    /// False, and no change, when there is none of that name.
    static bool find(const std::string& name, KrViewSide& side);
};

/// One picture made of several views of the same system, in equal tiles (KrTileGrid::largest). Each view is framed by
/// itself. Pixels that do not make up a whole tile, at the right and below, and tiles without a view show the
/// background.
class KrTiles
{
public:
    /// @param width, height  of the whole picture, pixels
    /// @param background     for pixels without a view
    KrTiles(unsigned int width, unsigned int height, const KrColor& background);

    /// Frames every view about the whole motion.
    /// @param fieldOfView  full vertical angle, rad
    /// @param shown        of the system
    /// @param motion       fits the system
    /// @return false, with a reason and no change, when a tile would have no pixel
    bool frame(const std::vector<KrViewSide>& sides, double fieldOfView, const KrFraming::Shown& shown,
               const KrManipulatorSystem& system, KrMotion& motion, std::string& reason);

    /// Of one tile, pixels: the size of the scene that draws it.
    unsigned int tileWidth() const { return m_grid.width; }
    unsigned int tileHeight() const { return m_grid.height; }

    /// Draws `state`, with the lamps about each view's eye, into the whole picture as `scene` draws it, `factor()`
    /// times as wide and high, before it is averaged down.
    /// @param scene  of a tile's size
    /// @param out    RGB, row 0 at the bottom, no padding
    bool draw(KrPictureScene& scene, const KrManipulatorSystemState& state, unsigned char* out, std::string& reason);
    /// The same, averaged down.
    bool draw(KrPictureScene& scene, const KrManipulatorSystemState& state, KrImage& picture, std::string& reason);

private:
    std::vector<KrPovParameters> m_povs;
    unsigned int m_width;
    unsigned int m_height;
    KrTileGrid m_grid;
    unsigned char m_background[3];
    KrImage m_tile;
    KrImage m_large;
};
