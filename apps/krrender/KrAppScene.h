#pragma once

#include <rendCore/KrRenderWindow.h>
#include <toolkit/image/KrImage.h>

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

    /// @param system        borrowed, outlives the scene
    /// @param isOwnLighting  the parameters' lights are this program's: the light from everywhere becomes theirs, too
    void show(const KrStatedSystem& system, const KrVisualizationParameters& parameters, bool isOwnLighting);
    KrRenderWindow& window() { return m_window; }
    /// Draws `state`: width x height, RGB, row 0 at the bottom. Throws KrAppFailure (CouldNot).
    void draw(const KrManipulatorSystemState& state, KrImage& picture);
    /// The same as depth: one channel, nearer is darker, the background 0.
    void drawDepth(const KrManipulatorSystemState& state, KrImage& picture);

    /// Averages `factor` x `factor` pixels into one; `large` is `factor` times as wide and high as the result.
    static void average(const KrImage& large, unsigned int factor, KrImage& small);
    /// Takes the lower left one of `factor` x `factor` pixels: depths are not to be mixed.
    static void pick(const KrImage& large, unsigned int factor, KrImage& small);

private:
    void capture(const KrManipulatorSystemState& state, unsigned int flags);

    KrRenderWindow m_window;
    KrAppMessages& m_messages;
    unsigned int m_factor = 1;
    KrImage m_large;
};
