#pragma once

#include <osg/Matrixd>
#include <osg/ref_ptr>

#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

class KrMetricDepth;
class KrSGWindow;

/// Reads the depths of a window's frames in metres.
///
/// Keep one for as long as frames are wanted: with the same window size, nothing is allocated from the second frame on.
/// For the thread that draws the window.
class KrDepthCapture
{
public:
    enum class Kind
    {
        Planar,   ///< distance from the eye's plane, along the direction of view
        Euclidean ///< length of the ray from the eye through the pixel's centre. Parallel rays (orthographic
                  ///< projections) begin in the eye's plane, so that both kinds are the same there
    };

    enum class RowOrder
    {
        BottomRowFirst, ///< as OpenGL stores pictures
        TopRowFirst     ///< as most files do
    };

    struct Options
    {
        Kind kind = Kind::Planar;
        RowOrder rowOrder = RowOrder::BottomRowFirst;
        /// Where nothing was drawn, or something lies on the far plane.
        float background = std::numeric_limits<float>::infinity();
    };

    /// Reads nothing yet, and needs no context.
    KrDepthCapture();
    ~KrDepthCapture();
    KrDepthCapture(const KrDepthCapture&) = delete;
    KrDepthCapture& operator=(const KrDepthCapture&) = delete;

    /// Draws one frame of `window` as `renderScene(true)` does and reads the depths of its main camera's viewport.
    ///
    /// The window's own surface, an off-screen target and a client's framebuffer are read alike. The depths are those
    /// of the projection that the frame was drawn with: near and far planes that the viewer fitted to the scene, and
    /// principal points off the centre, are accounted for. Each value belongs to the centre of its pixel. With
    /// e = 2 d - 1 of a depth buffer value d in [0, 1], and a projection to clip coordinates z' = A z + B,
    /// w' = C z + D, the planar depth is -z = (B - D e) / (A - C e) (OpenGL 2.1, sections 2.11.1 and 2.11.2).
    /// Everything that writes the depth buffer counts, markers and translucent surfaces as well. A window that shows
    /// several views is read in its first.
    ///
    /// @param depths  height() rows of width() values, m. As it was on failure
    /// @return false, after one message, when the frame was not drawn or cannot be read: no context, a target without
    ///         depth or with several samples a pixel, a projection that mixes depth with x or y
    bool render(KrSGWindow& window, const Options& options, std::vector<float>& depths);

    // Of the latest frame that was read.
    unsigned int width() const { return m_width; }         ///< pixels
    unsigned int height() const { return m_height; }       ///< pixels
    unsigned int depthBits() const { return m_depthBits; } ///< of the buffer; 0 until a frame was read
    /// Eye to clip coordinates, row vectors, with the near and far plane that were in force.
    const osg::Matrixd& projection() const { return m_projection; }
    /// The largest error of a planar `depth`, m: half a step of the depth buffer, 12 x 2^-24 of its range for the
    /// single-precision arithmetic of a driver that interpolates depths over large triangles, and the rounding to
    /// float. For a perspective view with planes n and f that is about depth^2 (1/n - 1/f) (2^-bits / 2 + 12 x 2^-24).
    /// Meshes that may err by a part of a pixel (KrSGWindow::setLevelOfDetail) add as much of what a pixel is wide at
    /// that depth: the surface lies no farther off, and a slanted one's depth changes accordingly. A driver that places
    /// corners on a raster of its own adds what a slanted surface's depth changes within one of its steps, often 1/256
    /// of a pixel.
    double errorBound(double depth) const;

    /// Checks this object, and draws and judges in windows of its own, see KrSelfTest. False, after one message, when
    /// something is wrong.
    bool selfTest() const;

private:
    class Reader;

    osg::ref_ptr<Reader> m_reader;
    std::vector<std::uint32_t> m_values; ///< the depth buffer, 32-bit fixed point, bottom row first
    std::unique_ptr<KrMetricDepth> m_metric;
    unsigned int m_width = 0;
    unsigned int m_height = 0;
    unsigned int m_depthBits = 0;
    float m_levelOfDetail = 0.0f; ///< pixels
    osg::Matrixd m_projection;
};
