#pragma once

#include <vector>

class KrCoordinateSystemTransformation;
class KrStatedSystem;

/// Samples a stated system into a regular grid of distances. Static operations only.
class KrRender2DSampleTool
{
public:
    /// A range map: what an orthographic camera sees, as distances along its viewing direction.
    ///
    /// Draws off screen in a window of its own, and leaves pending new-system, selection and transparency changes to
    /// other windows of the system. Where shapes are selected the selection is declared changed: windows share shapes,
    /// and show it again with their next frame.
    ///
    /// @param view      camera to world: looks along its -z axis, y up
    /// @param width     samples a row
    /// @param height    rows
    /// @param xSize     extent of the sampled area to the right, m
    /// @param ySize     extent of the sampled area upwards, m
    /// @param distance  far limit from the view point, m, above 1; the near limit is 1 m
    /// @param map       `height` rows of `width` distances, m; the first row is the lowest. Where nothing is hit the
    ///                  value is `distance`; resolution (distance - 1) / (2^32 - 1) for a depth buffer of 32 bits
    /// @return false for arguments outside their range, with `map` as it was; false when the frame cannot be drawn,
    ///         with `map` of its new size
    static bool get2DMap(const KrStatedSystem& system, const KrCoordinateSystemTransformation& view, unsigned int width,
                         unsigned int height, double xSize, double ySize, double distance,
                         std::vector<std::vector<double>>& map);

    /// Draws and judges in windows of its own, see KrSelfTest. False, after one message, when something is wrong.
    static bool selfTest();
};
