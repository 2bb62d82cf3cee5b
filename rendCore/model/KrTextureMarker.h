#pragma once

#include <toolkit/image/KrImage.h>

#include <osg/Matrixd>
#include <osg/Node>
#include <osg/Referenced>
#include <osg/StateSet>
#include <osg/Texture2D>
#include <osg/Vec2>
#include <osg/Vec4>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <vector>

class KrMarkPainter;
class KrMarkTexture;
class KrTextureMarker;

namespace osg
{
class Geode;
} // namespace osg

/// An application's own marks, issued anew or not at all in each frame.
class KrMarkingCallback : public osg::Referenced
{
public:
    /// Called once before each frame of a window that shows the shape, whether the shape is in view or not. May call
    /// every operation of `marker`, `detach` too; its marks are in that frame. A callback that is added meanwhile is
    /// first called before the next frame.
    virtual void mark(KrTextureMarker& marker) = 0;

protected:
    ~KrMarkingCallback() override = default;
};

/// Draws marks into the texture of a render shape, on the graphics device.
///
/// The shape gets a texture of its own on unit 0, which starts as a copy of the picture that it shows (white where it
/// has none) and is modulated by the materials as before. Marks lie in texture space: they stay where they are on the
/// surface when the shape deforms, in every window that draws it, and in a window that opens later. A KrRenderWindow
/// that builds its scene anew moves them to the shape that draws the same extent then.
///
/// Marks wait until a window next draws the shape; then they are drawn, in the order in which they were issued,
/// through a framebuffer object just before the shape itself, so that the same frame (and its capture) shows them. A
/// frame without new marks draws and allocates nothing extra. For the rendering thread, between frames or in a
/// KrMarkingCallback.
///
/// Texture coordinates are (u, v), (0, 0) being the lower left corner of the texture. Where a surface repeats the
/// texture it repeats the marks. Colours are (red, green, blue, opacity), each in [0, 1].
class KrTextureMarker : public osg::Referenced
{
public:
    struct Brush
    {
        float radius = 0.02f; ///< texture units, > 0
        osg::Vec4 color = {0.0f, 0.0f, 0.0f, 1.0f};
        float hardness = 0.5f; ///< the part of the radius, in [0, 1], within which the colour does not fade
    };

    /// Where a stamp lies: a rectangle about `centre`, turned counter-clockwise.
    struct Placement
    {
        osg::Vec2 centre = {0.5f, 0.5f};
        osg::Vec2 size = {1.0f, 1.0f}; ///< width and height before the turn, texture units, > 0
        float rotation = 0.0f;         ///< rad
        float opacity = 1.0f;
    };

    /// The marker of `shape`, made with its texture of `width` x `height` pixels when there is none yet (else the
    /// sizes are not looked at). It belongs to the shape and lives until `detach`, or as long as the shape and the one
    /// that it moves to; hold it by an osg::ref_ptr to keep it longer, which does no harm.
    /// @return null, after one message, for a shape without texture coordinates on unit 0 or a size that is not
    ///         within 1 to 8192
    static KrTextureMarker* of(osg::Geode& shape, unsigned int width = 1024, unsigned int height = 1024);
    /// The marker that `shape` has; null when it has none.
    static KrTextureMarker* find(const osg::Geode& shape);
    /// Goes over to `shape`, which takes the place of the present one, with texture, waiting marks and callbacks; a
    /// marker that `shape` has ends. False, and nothing changes, for a shape without texture coordinates on unit 0.
    bool moveTo(osg::Geode& shape);
    /// Gives `shape` the look back that it had before, textures of its own state set included, and ends the marking of
    /// it; nothing when it has no marker.
    static void detach(osg::Geode& shape);

    /// One stroke of a round brush along a polyline, or a dot for one point. A stroke does not darken where it crosses
    /// itself, but where pieces of 1024 points meet.
    /// @return false, after one message, and nothing is drawn: without points, with numbers that are not finite, a
    ///         radius that is not positive, or too many marks (hasRoom) waiting for a frame
    bool stroke(const std::vector<osg::Vec2>& points, const Brush& brush);
    /// A picture of 1 to 4 channels (grey, grey and opacity, RGB, RGBA); copied. False as for `stroke`, or without
    /// pixels.
    bool stamp(const KrImage& picture, KrImage::Orientation orientation, const Placement& placement);
    /// `picture` (row 0 at the bottom) is held, and read when it is drawn. False as above.
    bool stamp(osg::Image* picture, const Placement& placement);
    /// Throws `picture` onto the surface as a slide projector does, upright and filling the view, onto what the
    /// projector sees of the shape in the next frame: parts that the shape itself hides stay as they are. A texel
    /// takes the mark when its centre lies on the surface. A shape with several parents is where the frame meets it
    /// first.
    /// @param view        world to projector, as of a camera
    /// @param projection  projector to clip space, as of a camera
    /// @return false as above
    bool project(osg::Image* picture, const osg::Matrixd& view, const osg::Matrixd& projection, float opacity = 1.0f);
    /// The same with a round spot that touches the sides of the projector's view; `brush.radius` is not used.
    bool project(const Brush& brush, const osg::Matrixd& view, const osg::Matrixd& projection);
    /// Back to the picture of the beginning; marks that wait for a frame are dropped.
    void clear();

    /// Adds a callback once; held.
    void addCallback(KrMarkingCallback* callback);
    void removeCallback(KrMarkingCallback* callback);

    /// The texture with every mark that was drawn in a frame so far: RGBA, row 0 at the bottom. False, after one
    /// message, without memory.
    bool snapshot(KrImage& out) const;
    /// Marks that wait for a frame.
    std::size_t numPendingMarks() const { return m_pending.size(); }
    /// Whether fewer marks wait than may: 4096.
    bool hasRoom() const;
    /// What the shape shows.
    const osg::Texture2D& texture() const;

    /// Checks this object, and draws and judges in windows of its own, see KrSelfTest. False, after one message, when
    /// something is wrong.
    bool selfTest() const;

protected:
    ~KrTextureMarker() override;

private:
    class CullHook;
    class UpdateHook;

    KrTextureMarker(osg::Geode& shape, unsigned int width, unsigned int height);

    /// What a state set had on unit 0 before it was marked; null where there was nothing.
    struct OwnLook
    {
        osg::StateSet::RefAttributePair texture;
        osg::StateSet::RefAttributePair texEnv;
        osg::StateAttribute::GLModeValue mode = osg::StateAttribute::INHERIT;
    };

    void attach(osg::Geode& shape);
    bool checkRoom(const char* operation) const;
    bool addProjection(osg::Image* picture, const Brush& brush, const osg::Matrixd& view,
                       const osg::Matrixd& projection);

    osg::observer_ptr<osg::Geode> m_shape;
    osg::ref_ptr<osg::Image> m_original; ///< what `clear` goes back to
    osg::ref_ptr<osg::Image> m_image;    ///< the texture as of the last frame; new contexts start with it
    osg::ref_ptr<KrMarkTexture> m_texture;
    osg::ref_ptr<KrMarkPainter> m_painter;
    std::vector<osg::ref_ptr<osg::Node>> m_pending;
    std::vector<osg::ref_ptr<KrMarkingCallback>> m_callbacks; ///< null where one was removed while they are called
    bool m_isCalling = false;
    osg::ref_ptr<UpdateHook> m_updateHook;
    OwnLook m_ownLook;
};
