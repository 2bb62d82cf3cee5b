#pragma once

#include <rendCore/window/KrSGBaseInputHandler.h>

#include <osg/Matrixd>
#include <osg/Vec2d>
#include <osg/Vec3d>
#include <osg/Viewport>

/// Lets a user walk around a scene: orbit, pan, zoom to the cursor, home, fit.
///
/// The orbit is that of a turntable: `orbit` turns about an axis that stays upright in the picture (world +z, see
/// `setAxis`) and raises the eye up to the poles and no further, so that nothing turns over. A point of view with
/// a tilted horizon is kept until the first orbit, which levels it.
///
/// Whatever moves the camera goes to the window's point of view at once: `getPovParameters` of the window and of the
/// handler are what is seen. Install it with `KrSGWindow::setInputHandler`. It works with perspective, symmetric or
/// not, and, with the window's Orthographic attribute, as a parallel projection of its own in place of the fixed box:
/// as high as the perspective picture is at the centre of interest, as wide as the window's aspect ratio asks, as deep
/// as the scene. In a window of several views its picture is view 0: proportions and positions are those of its tile,
/// and what begins over another view means nothing here.
///
/// Two ways in: events of the viewer (`handle`), and the same motions as calls, for widgets, scripts and tests.
/// Positions in the picture, and the calls' `x` and `y`, run from -1 (left, bottom) to 1 (right, top), as
/// osgGA::GUIEventAdapter::getXnormalized has them. The calls change the next frame; nothing is drawn and no context
/// is needed. No motion allocates memory but `fit` and `centerOnSurface`.
///
/// | input | does |
/// |---|---|
/// | left drag | orbit; the height of the window is half a turn |
/// | middle drag, Shift + left drag | pan: the point in the middle's depth stays under the cursor |
/// | wheel | zoom to the cursor |
/// | + and - | zoom to the middle |
/// | right drag | zoom to where the drag began; upwards is nearer |
/// | left double click | what was clicked becomes the centre of interest |
/// | arrows, Shift + arrows | orbit, pan |
/// | f | fit the scene into the picture |
/// | h, Home, space | home |
/// | 1, 3, 7; with Ctrl | front (from +x), right (from -y), top (from +z); back, left, bottom |
/// | 5 | perspective or parallel projection |
class KrOrbitInputHandler : public KrSGBaseInputHandler
{
public:
    /// What is nearer would be cut off by the nearest near plane that a window has. m
    static constexpr double kSmallestDistance = 0.008;
    static constexpr double kLargestDistance = 1e7; ///< m

    /// @param window  as for KrSGBaseInputHandler; null moves a camera that no window shows, of aspect ratio 1
    explicit KrOrbitInputHandler(KrSGWindow* window);

    using KrSGBaseInputHandler::handle;
    using KrSGBaseInputHandler::home;
    /// As `home()`; nothing without a window.
    void home(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;

    const char* className() const override { return "KrOrbitInputHandler"; }

    /// The bindings above. An event that another handler has taken is left alone. A frame is asked for of `action` when
    /// the camera moved.
    /// @return true when the event meant something here
    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    /// The view matrix, and the projection while it is parallel.
    void updateCamera(osg::Camera& camera) override;
    void setPovParameters(const KrPovParameters& pov) override;

    /// Turns the eye about the centre of interest.
    /// @param azimuth    rad, about the axis, counter-clockwise seen from its tip
    /// @param elevation  rad, upwards; ends at the poles
    void orbit(double azimuth, double elevation);
    /// Moves the picture by (x, y): the centre of interest's plane moves with the cursor.
    void pan(double x, double y);
    /// The point at (x, y) in the plane of the centre of interest, and all behind and in front of it, stays where it is
    /// in the picture.
    /// @param factor  > 1 is nearer: what the eye's distance is divided by. Refused when it is not positive.
    void zoomAt(double factor, double x, double y);
    /// The home position: that of the window's visualization parameters. The lens stays.
    void home();
    /// Looks at the bounding sphere of what the window shows (display mask), from the present direction, so that it
    /// fills the picture and an orbit keeps it there. False, and nothing done, when nothing is shown.
    bool fit();
    /// Looks at the present centre of interest from a direction.
    /// @param azimuth    of the eye, rad, about the axis; for world +z from +x towards +y
    /// @param elevation  of the eye, rad, limited to the poles
    void lookFrom(double azimuth, double elevation);
    /// The nearest surface at (x, y) moves to the middle of the picture and becomes the centre of interest. False, and
    /// nothing done, when there is none.
    bool centerOnSurface(double x, double y);
    /// Parallel projection or perspective; the window's Orthographic attribute. Nothing without a window.
    void setParallel(bool parallel);
    bool isParallel() const;

    /// What is upright in the picture, any length but 0; world +z unless set. Counts from the next orbit on.
    void setAxis(const osg::Vec3d& axis);
    const osg::Vec3d& axis() const { return m_axis; }

    /// One line for each binding, for a user to read.
    static const char* bindings();

protected:
    ~KrOrbitInputHandler() override = default;

private:
    enum class Drag
    {
        None,
        Orbit,
        Pan,
        Zoom
    };

    bool handlePointer(const osgGA::GUIEventAdapter& event);
    bool handleKey(const osgGA::GUIEventAdapter& event);
    bool handleArrow(int key, bool isPan);
    void beginDrag(const osgGA::GUIEventAdapter& event);
    void drag(double x, double y);
    void takeWindowPov();
    void publish();
    const osg::Viewport* tile() const;
    osg::Vec2d position(const osgGA::GUIEventAdapter& event) const;
    double aspectRatio() const;
    double halfHeight() const;
    osg::Matrixd projection() const;
    osg::Matrixd parallelProjection() const;
    osg::Vec3d worldAt(double x, double y, double depth) const;
    osg::Vec3d rightOfTurntable() const;
    void aim(const osg::Vec3d& right, double elevation);

    osg::Vec3d m_axis = osg::Vec3d(0.0, 0.0, 1.0);
    Drag m_drag = Drag::None;
    KrPovParameters m_windowPov; ///< as last seen: another one is the client's, and newer than the camera
    double m_lastX = 0.0;        ///< of the drag
    double m_lastY = 0.0;
    double m_firstX = 0.0;
    double m_firstY = 0.0;
};
