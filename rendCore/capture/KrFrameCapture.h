#pragma once

#include <rendCore/capture/KrDepthCapture.h>
#include <rendCore/model/KrLabelTable.h>

#include <toolkit/math/KrVector.h>

#include <osg/Matrixd>
#include <osg/ref_ptr>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class KrAmodalMasks;
class KrRenderWindow;
class KrSGWindow;

/// Reads one frame of a window in several kinds of image, which show the same instant: colours, depths, labels and
/// normals.
///
/// However many kinds are asked for, the scene is updated once and drawn at most twice: once for colours and once for
/// all the others together. Those show the surfaces of links and nothing else: aids, markers, clouds, overlay text and
/// a client's own nodes are left out, so that a pixel has a label where it has a depth, and a normal. Each value is of
/// the surface at the centre of its pixel, and never a mean. Faded and deforming shapes count as all others.
/// A program that a client protects (osg::StateAttribute::PROTECTED) draws in the place of theirs, whatever comes of
/// it.
///
/// Keep one for as long as frames are wanted: with the same sizes and kinds, nothing is allocated from the second frame
/// on. For the thread that draws the window.
class KrFrameCapture
{
public:
    /// The axes that normals are told in.
    enum class NormalFrame
    {
        Optical, ///< the camera's: x right, y down, z forward
        World
    };

    struct Options
    {
        KrLabelTable::Level labelLevel = KrLabelTable::Level::Link;
        NormalFrame normalFrame = NormalFrame::Optical;
        KrDepthCapture::Kind depthKind = KrDepthCapture::Kind::Planar;
        /// Of depths, where nothing is.
        float background = std::numeric_limits<float>::infinity();
        KrDepthCapture::RowOrder rowOrder = KrDepthCapture::RowOrder::TopRowFirst;
        /// The window's pixels for each pixel of all images but colours, along each side: a window that is drawn larger
        /// for smooth colours has no use for larger depths. Divides the window's width and height.
        unsigned int reduction = 1;
    };

    /// Where the images go, rows without padding; null for those that are not wanted. Borrowed during the call. On
    /// failure they may hold anything.
    struct Targets
    {
        unsigned int width = 0; ///< of all images but colours, pixels: the window's, divided by the reduction
        unsigned int height = 0;
        unsigned char* color = nullptr;  ///< red, green, blue; as wide and high as the window
        float* depth = nullptr;          ///< m
        std::uint32_t* labels = nullptr; ///< see KrLabelTable; 0 where nothing is
        /// x, y, z of the shading normal, of length 1 and turned to the eye: the angle with the ray to the eye is at
        /// most a right one. 0, 0, 0 where nothing is.
        float* normals = nullptr;
    };

    /// What a pixel shows.
    struct Pick
    {
        KrLabelTable::Part part;  ///< the shape
        KrVector point;           ///< of the surface, world frame, m
        KrVector pointInLink;     ///< link frame, m
        KrVector normal;          ///< world frame, length 1, turned to the eye
        double distance = 0.0;    ///< from the eye, m; of parallel rays from the eye's plane
        double planarDepth = 0.0; ///< along the direction of view, m
    };

    /// Reads nothing yet, and needs no context.
    KrFrameCapture();
    ~KrFrameCapture();
    KrFrameCapture(const KrFrameCapture&) = delete;
    KrFrameCapture& operator=(const KrFrameCapture&) = delete;

    /// Draws one frame of `window` and reads what `targets` asks for. The window's own draw callback does not see it.
    ///
    /// A window that shows several views is read as a whole, each view where it stands; colours of places without a
    /// view are the background's. Several windows may be read in turn.
    /// @return false, after one message, when the frame was not drawn or cannot be read: no context, targets of another
    ///         size, a driver without framebuffers of whole numbers, a projection that mixes depth with x or y, views
    ///         that somebody changes in the frame, a call from within a frame that this object draws
    bool render(KrSGWindow& window, const Options& options, const Targets& targets);

    /// Looks up what the next frame of `window` would show in a pixel, without drawing its colours. Of a window that
    /// shows several views the one that the pixel lies in.
    /// @param x, y       pixels of a picture that is reduced as in Options, from the upper left corner
    /// @param pick       the result; none where there is no link
    /// @return false, after one message, and `pick` as it was, as for `render`, and for a pixel outside the window
    bool pick(KrRenderWindow& window, unsigned int x, unsigned int y, unsigned int reduction,
              std::optional<Pick>& pick);

    /// Draws every part of `window`'s system alone, as the next frame would show it, were it not for all the others.
    /// 128 parts take one pass.
    /// @param reduction  as in Options
    /// @return false, after one message, and `masks` as it was, as for `render`, and without memory
    bool renderAmodal(KrRenderWindow& window, KrLabelTable::Level level, unsigned int reduction, KrAmodalMasks& masks);

    // Of the latest frame that was read with depths, labels or normals; of its first view.
    /// Eye to clip coordinates, row vectors, with the near and far plane that were in force.
    const osg::Matrixd& projection() const;
    /// The largest error of a planar `depth`, m, as KrDepthCapture::errorBound tells.
    double errorBound(double depth) const;

    /// Processor time of the calling thread that reading back has taken since this object was made, s. The driver has
    /// finished what it draws by then: its time is not among it.
    double readingTime() const;

private:
    class Frame;

    bool isFree(const KrSGWindow& window, const char* operation) const;
    bool capture(KrSGWindow& window, bool swapBuffers, const char* operation);

    osg::ref_ptr<Frame> m_frame;
};

/// The pixels that each part of a system covers when it is drawn alone.
///
/// A part's visible share is the number of pixels that have its label, divided by `numPixels`.
class KrAmodalMasks
{
public:
    unsigned int width() const { return m_width; }   ///< pixels
    unsigned int height() const { return m_height; } ///< pixels
    /// Labels are 1 to this.
    std::uint32_t numLabels() const { return static_cast<std::uint32_t>(m_numPixels.size()); }
    /// @param label  from 1 to numLabels(), not checked  @param x, y  pixels from the upper left corner, not checked
    bool covers(std::uint32_t label, unsigned int x, unsigned int y) const;
    /// How many pixels the part covers.
    std::uint64_t numPixels(std::uint32_t label) const { return m_numPixels[label - 1]; }
    /// @param out  width x height bytes, the top row first: 255 where the part is, else 0
    void mask(std::uint32_t label, unsigned char* out) const;

private:
    friend class KrFrameCapture;

    std::size_t wordOf(std::uint32_t label) const;

    unsigned int m_width = 0;
    unsigned int m_height = 0;
    std::vector<std::uint32_t> m_words; ///< four for each pixel for each 128 labels, row 0 at the bottom
    std::vector<std::uint64_t> m_numPixels;
};
