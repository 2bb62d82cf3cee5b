#pragma once

#include <picture/KrFraming.h>
#include <rendCore/capture/KrDepthCapture.h>
#include <rendCore/capture/KrFrameCapture.h>
#include <rendCore/system/KrRenderWindow.h>
#include <toolkit/image/KrImage.h>
#include <toolkit/math/KrVector.h>
#include <toolkit/system/KrPoseDriver.h>

#include <optional>
#include <string>
#include <vector>

struct KrFrameDescription;
class KrFrameStream;

/// Draws states of one system into pictures, without a display.
///
/// Each picture is drawn larger by a whole factor and averaged down, so that edges are smooth. Everything runs on the
/// thread that opened the scene.
///
/// What fails gives false, and says why in one sentence without a full stop; pictures are then as they were, or empty.
class KrPictureScene
{
public:
    /// Nothing is opened yet; the window can be named.
    KrPictureScene();

    /// Opens the window. Once.
    /// @param width, height  of the pictures, pixels
    /// @param samples        drawn pixels for each of a picture: 1, 4, 9 or 16; fewer where the driver draws no larger
    /// @return false where there is no OpenGL context (`window().isInitialized()` tells), or not one of that size
    bool open(unsigned int width, unsigned int height, unsigned int samples, std::string& reason);

    /// Shapes whose poses follow joints bend with the states that are drawn. The light from everywhere stays as
    /// `window().setAmbientLight` has it.
    /// @param system  borrowed, outlives the scene; its list of changed shapes gets those that bend
    bool show(KrStatedSystem& system, const KrVisualizationParameters& parameters, std::string& reason);
    /// Shows the system as one wants to see it first: in its present state it fills the picture, in the light and
    /// before the background of KrLighting.
    /// @param towardsEye  from the system to the eye, of any length but 0; z is up
    bool show(KrStatedSystem& system, std::string& reason, const KrVector& towardsEye = KrFraming::towardsEye());

    /// Draws `state`: width x height, RGB, row 0 at the bottom.
    bool draw(const KrManipulatorSystemState& state, KrImage& picture, std::string& reason);
    /// Draws `state` as it is before it is averaged: `factor` times as wide and high.
    bool drawLarge(const KrManipulatorSystemState& state, KrImage& picture, std::string& reason);
    /// Draws `state` for `stream`, which hands out the frame later, as it was drawn: `factor` times as wide and high.
    /// The stream stays the window's draw callback until another one is set.
    bool draw(const KrManipulatorSystemState& state, KrFrameStream& stream, std::string& reason);
    /// The same as depth: one channel, nearer is darker, the background 0.
    bool drawDepth(const KrManipulatorSystemState& state, KrImage& picture, std::string& reason);
    /// Depths in metres at the picture's own size, one sample at each pixel's centre.
    bool drawDepth(const KrManipulatorSystemState& state, const KrDepthCapture::Options& options,
                   std::vector<float>& depths, std::string& reason);

    /// All kinds of image of `state` that `targets` asks for, of the same instant: width x height each. Colours are
    /// smooth, all others have one sample at each pixel's centre.
    /// @param options  `reduction` is the scene's to choose
    bool draw(const KrManipulatorSystemState& state, const KrFrameCapture::Options& options,
              const KrFrameCapture::Targets& targets, std::string& reason);
    /// What a pixel of a picture of `state` shows; none where there is no link. @param x, y  from the upper left corner
    bool pick(const KrManipulatorSystemState& state, unsigned int x, unsigned int y,
              std::optional<KrFrameCapture::Pick>& pick, std::string& reason);
    /// Which pixels each part covers in `state` when it is drawn alone.
    bool drawAmodal(const KrManipulatorSystemState& state, KrLabelTable::Level level, KrAmodalMasks& masks,
                    std::string& reason);
    // Of the latest images of `draw` besides colours.
    /// Eye to clip coordinates, row vectors, with the near and far plane that were in force.
    const osg::Matrixd& projection() const { return m_frameCapture.projection(); }
    /// The largest error of a planar depth, m.
    double depthErrorBound(double depth) const { return m_frameCapture.errorBound(depth); }
    /// Processor time that reading back images of these kinds has taken so far, s; see KrFrameCapture.
    double readingTime() const { return m_frameCapture.readingTime(); }

    /// The frame that was drawn last in numbers, as a picture of the scene's size: intrinsics and level of detail are
    /// those of it, the planes those that it was drawn with, also without colours. The rest as
    /// KrFrameDescription::fill.
    /// @return false, after one message, and no change, when no frame was drawn yet
    bool describe(KrFrameDescription& frame) const;

    /// What is drawn into: for lights, aids, nodes of one's own and intrinsics. Its size is the scene's to choose.
    KrRenderWindow& window() { return m_window; }
    /// Drawn pixels for each pixel of a picture, across and down.
    unsigned int factor() const { return m_factor; }

private:
    void pose(const KrManipulatorSystemState& state);
    bool resize(unsigned int factor, std::string& reason);
    bool capture(const KrManipulatorSystemState& state, unsigned int flags, KrImage& picture, std::string& reason);

    KrRenderWindow m_window;
    const KrStatedSystem* m_system = nullptr;
    std::optional<KrPoseDriver> m_poses;
    KrDepthCapture m_depthCapture;
    KrFrameCapture m_frameCapture;
    unsigned int m_width = 0;
    unsigned int m_height = 0;
    unsigned int m_factor = 1;
    unsigned int m_drawnFactor = 0; ///< that of the window's present size; 0 at first
    bool m_isColorless = false;     ///< the latest frame
    KrImage m_large;
    std::vector<unsigned char> m_largeColors; ///< kept, so that a series allocates nothing
};
