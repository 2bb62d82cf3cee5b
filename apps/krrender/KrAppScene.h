#pragma once

#include <rendCore/capture/KrDepthCapture.h>
#include <rendCore/capture/KrFrameStream.h>
#include <rendCore/system/KrRenderWindow.h>
#include <toolkit/image/KrImage.h>
#include <toolkit/system/KrPoseDriver.h>

#include <optional>
#include <vector>

class KrAppMessages;

/// Draws states of one system into pictures, without a display.
///
/// Each picture is drawn larger by a whole factor and averaged down, so that edges are smooth.
class KrAppScene
{
public:
    /// Opens the window. Throws KrAppFailure (CouldNot): no OpenGL context, or a size that it cannot draw.
    ///
    /// @param width, height  of the pictures, pixels
    /// @param samples        drawn pixels for each of a picture: 1, 4, 9 or 16; fewer where the driver draws no larger
    KrAppScene(unsigned int width, unsigned int height, unsigned int samples, KrAppMessages& messages);

    /// Shapes whose poses follow joints bend with the states that are drawn.
    /// @param system        borrowed, outlives the scene; its list of changed shapes gets those that bend
    /// @param isOwnLighting  the parameters' lights are this program's: the light from everywhere becomes theirs, too
    void show(KrStatedSystem& system, const KrVisualizationParameters& parameters, bool isOwnLighting);
    KrRenderWindow& window() { return m_window; }
    /// Draws `state`: width x height, RGB, row 0 at the bottom. Throws KrAppFailure (CouldNot).
    void draw(const KrManipulatorSystemState& state, KrImage& picture);
    /// Draws `state` as it is before it is averaged: `factor` times as wide and high. Throws KrAppFailure (CouldNot).
    void drawLarge(const KrManipulatorSystemState& state, KrImage& picture);
    /// Draws `state` for `stream`, which hands out the frame later, as it was drawn: `factor` times as wide and high.
    /// Throws KrAppFailure (CouldNot).
    void draw(const KrManipulatorSystemState& state, KrFrameStream& stream);
    /// Drawn pixels for each pixel of a picture, across and down.
    unsigned int factor() const { return m_factor; }
    /// The same as depth: one channel, nearer is darker, the background 0.
    void drawDepth(const KrManipulatorSystemState& state, KrImage& picture);

    /// Depths in metres at the picture's own size, one sample at each pixel's centre. Throws KrAppFailure (CouldNot).
    void drawDepth(const KrManipulatorSystemState& state, const KrDepthCapture::Options& options,
                   std::vector<float>& depths);

    /// The light from everywhere that goes with this program's lamps, for a window that is open.
    static void lightFromEverywhere(KrRenderWindow& window);
    /// Averages `factor` x `factor` pixels into one; `large` is `factor` times as wide and high as the result.
    static void average(const KrImage& large, unsigned int factor, KrImage& small);
    /// Takes the lower left one of `factor` x `factor` pixels: depths are not to be mixed.
    static void pick(const KrImage& large, unsigned int factor, KrImage& small);

private:
    void pose(const KrManipulatorSystemState& state);
    void resize(unsigned int factor);
    [[noreturn]] void failToDraw() const;
    void capture(const KrManipulatorSystemState& state, unsigned int flags, KrImage& picture);

    KrRenderWindow m_window;
    KrAppMessages& m_messages;
    std::optional<KrPoseDriver> m_poses;
    KrDepthCapture m_depthCapture;
    unsigned int m_width;
    unsigned int m_height;
    unsigned int m_factor = 1;
    unsigned int m_drawnFactor = 0; ///< that of the window's present size; 0 at first
    KrImage m_large;
};
