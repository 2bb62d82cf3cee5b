#include <rendCore/input/KrOrbitInputHandler.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/window/KrSGWindow.h>
#include <toolkit/foundation/KrPrint.h>

#include <osg/Camera>
#include <osg/ComputeBoundsVisitor>
#include <osg/Math>
#include <osgGA/GUIActionAdapter>
#include <osgGA/GUIEventAdapter>
#include <osgUtil/IntersectionVisitor>
#include <osgUtil/LineSegmentIntersector>
#include <osgViewer/Viewer>

#include <algorithm>
#include <cmath>

namespace
{

using Event = osgGA::GUIEventAdapter;

// Nearer to the pole than this (sine of the angle) the camera's right, not its place, tells which way it looks.
constexpr double kNearPole = 0.01;

bool isFinite(const char* method, double a, double b)
{
    if (std::isfinite(a) && std::isfinite(b)) {
        return true;
    }
    Kr::Print::instance()->write(Kr::Print::Warning,
                                 "KrOrbitInputHandler::%s - %g, %g: the numbers must be finite; nothing is moved.\n",
                                 method, a, b);
    return false;
}

/// What the user sees of the scene: neither overlays, which have axes of their own, nor markers.
template <typename Visitor>
class SceneVisitor : public Visitor
{
public:
    using Visitor::apply;
    explicit SceneVisitor(unsigned int mask) { this->setTraversalMask(mask); }

    void apply(osg::Camera& camera) override
    {
        // What has axes of its own is in no place of the scene.
        if (camera.getReferenceFrame() == osg::Transform::RELATIVE_RF) {
            Visitor::apply(camera);
        }
    }
};

unsigned int shownMask(const KrSGWindow* window)
{
    constexpr unsigned int kMarkers = KrRenderTypes::GlobalAxisMarker | KrRenderTypes::CenterOfInterestMarker;
    const osgViewer::Viewer* const viewer = window ? window->getViewer() : nullptr;
    // What a client has put on the camera itself counts; before there is one, the window's mask.
    return (viewer ? viewer->getCamera()->getCullMask() : window ? window->displayMask() : ~0u) & ~kMarkers;
}

// Asked several times a frame: comparing them as XML objects would list their components each time.
bool isSamePov(const KrPovParameters& a, const KrPovParameters& b)
{
    return a.eyepoint() == b.eyepoint() && a.centerOfInterest() == b.centerOfInterest() && a.up() == b.up() &&
           a.fieldOfView() == b.fieldOfView();
}

} // namespace

KrOrbitInputHandler::KrOrbitInputHandler(KrSGWindow* window)
    : KrSGBaseInputHandler(window)
{
    // Named with its class: the base constructor has recorded a point of view, but not placed the camera by it.
    KrOrbitInputHandler::setPovParameters(m_pov);
}

void KrOrbitInputHandler::setPovParameters(const KrPovParameters& pov)
{
    // What the window is known to have: `takeWindowPov` sees by it whether a client has changed it since.
    m_windowPov = pov;
    KrSGBaseInputHandler::setPovParameters(pov);
}

void KrOrbitInputHandler::takeWindowPov()
{
    if (window() && !isSamePov(window()->getPovParameters(), m_windowPov)) {
        const KrPovParameters pov = window()->getPovParameters();
        setPovParameters(pov);
    }
    // Eye and centre in one place could be neither turned nor zoomed.
    m_distance = osg::clampBetween(m_distance, kSmallestDistance, kLargestDistance);
}

void KrOrbitInputHandler::publish()
{
    // Double precision throughout: a scene may lie a kilometre from its origin.
    m_pov.setEyepoint(KrRenderTypes::osg2ec(m_center + m_rotation * osg::Vec3d(0.0, 0.0, m_distance)));
    m_pov.setCenterOfInterest(KrRenderTypes::osg2ec(m_center));
    m_pov.setUp(KrRenderTypes::osg2ec(m_rotation * osg::Vec3d(0.0, 1.0, 0.0)));
    m_windowPov = m_pov;
    if (window()) {
        window()->setPovParameters(m_pov);
    }
}

void KrOrbitInputHandler::setAxis(const osg::Vec3d& axis)
{
    osg::Vec3d unit = axis;
    // Written so that NaN fails, too.
    if (!(unit.normalize() > 0.0) || !unit.valid()) {
        Kr::Print::instance()->write(
            Kr::Print::Warning,
            "KrOrbitInputHandler::setAxis - (%g, %g, %g) has no direction; the axis stays as it is.\n", axis.x(),
            axis.y(), axis.z());
        return;
    }
    m_axis = unit;
}

bool KrOrbitInputHandler::isParallel() const
{
    return window() && (window()->viewerAttribute() & KrSGWindow::Orthographic) != 0;
}

void KrOrbitInputHandler::setParallel(bool parallel)
{
    if (window()) {
        window()->setViewerAttribute(KrSGWindow::Orthographic, parallel);
    }
}

/// The camera's part of a window of several views; null where it has the whole window.
const osg::Viewport* KrOrbitInputHandler::tile() const
{
    const osgViewer::Viewer* const viewer = window() ? window()->getViewer() : nullptr;
    const osg::Viewport* const viewport = viewer ? viewer->getCamera()->getViewport() : nullptr;
    const bool isPart = viewport && viewport->width() > 0.0 && viewport->height() > 0.0 &&
                        (viewport->width() < window()->windowWidth() || viewport->height() < window()->windowHeight());
    return isPart ? viewport : nullptr;
}

double KrOrbitInputHandler::aspectRatio() const
{
    if (const osg::Viewport* const part = tile()) {
        return part->width() / part->height();
    }
    // Without a window, or with one without height, pictures are square.
    return window() && window()->aspectRatio() > 0.0 ? window()->aspectRatio() : 1.0;
}

/// Where the event is in the camera's picture.
osg::Vec2d KrOrbitInputHandler::position(const Event& event) const
{
    const osg::Viewport* const part = tile();
    if (!part) {
        return osg::Vec2d(event.getXnormalized(), event.getYnormalized());
    }
    // The viewer has put it into the picture of whichever view is under the cursor, and kept where it is in the window.
    const auto* const inWindow = event.getPointerData(window()->getViewer()->getCamera()->getGraphicsContext());
    const double right = inWindow ? inWindow->getXnormalized() : event.getXnormalized();
    const double up = inWindow ? inWindow->getYnormalized() : event.getYnormalized();
    // By way of pixels of the window: the part's corner is told in them.
    const double x = 0.5 * (right + 1.0) * window()->windowWidth() - part->x();
    const double y = 0.5 * (up + 1.0) * window()->windowHeight() - part->y();
    return osg::Vec2d(2.0 * x / part->width() - 1.0, 2.0 * y / part->height() - 1.0);
}

/// Of the picture, at a distance of 1.
double KrOrbitInputHandler::halfHeight() const
{
    // The window's: a client may have set another lens since the camera moved last.
    const double fieldOfView = (window() ? window()->getPovParameters() : m_pov).fieldOfView();
    return std::tan(0.5 * fieldOfView);
}

osg::Matrixd KrOrbitInputHandler::parallelProjection() const
{
    const double top = m_distance * halfHeight();
    const double right = top * aspectRatio();
    // Without a scene to see, a range about the centre that is wide enough for any turn.
    double depth = m_distance;
    double radius = 100.0 * m_distance;
    if (getNode() && getNode()->getBound().valid()) {
        const osg::BoundingSphere& bound = getNode()->getBound();
        depth = -(osg::Vec3d(bound.center()) * getInverseMatrix()).z();
        // A little more than the scene, so that its rim is not cut by rounding.
        radius = 1.01 * bound.radius() + 0.01 * m_distance;
    }
    return osg::Matrixd::ortho(-right, right, -top, top, depth - radius, depth + radius);
}

osg::Matrixd KrOrbitInputHandler::projection() const
{
    if (isParallel()) {
        return parallelProjection();
    }
    // What is seen, which need not be symmetric; before the first frame the camera has not been given it yet.
    const osgViewer::Viewer* const viewer = window() ? window()->getViewer() : nullptr;
    if (viewer && viewer->getFrameStamp()->getFrameNumber() > 0) {
        return viewer->getCamera()->getProjectionMatrix();
    }
    const double top = halfHeight();
    const double right = top * aspectRatio();
    // The planes are any: only directions are asked of it.
    return osg::Matrixd::frustum(-right, right, -top, top, 1.0, 2.0);
}

/// The point at (x, y) of the picture, `depth` in front of the eye.
osg::Vec3d KrOrbitInputHandler::worldAt(double x, double y, double depth) const
{
    const osg::Matrixd p = projection();
    // x' = x w' solved for the eye's x and y at z = -depth; with parallel rays w is 1 whatever the depth.
    const double w = p(3, 3) - depth * p(2, 3);
    const osg::Vec3d inCamera((x * w - p(3, 0) + depth * p(2, 0)) / p(0, 0),
                              (y * w - p(3, 1) + depth * p(2, 1)) / p(1, 1), -depth);
    return inCamera * getMatrix();
}

/// The camera's right, level: at a right angle to the axis.
osg::Vec3d KrOrbitInputHandler::rightOfTurntable() const
{
    osg::Vec3d right = m_axis ^ (m_rotation * osg::Vec3d(0.0, 0.0, 1.0));
    if (right.length() > kNearPole) {
        right.normalize();
        return right;
    }
    // Straight above or below the cross product is noise; the camera's own right is level there.
    right = m_rotation * osg::Vec3d(1.0, 0.0, 0.0);
    right -= m_axis * (right * m_axis);
    right.normalize();
    return right;
}

/// @param right  unit vector at a right angle to the axis
void KrOrbitInputHandler::aim(const osg::Vec3d& right, double elevation)
{
    // Over the pole the picture would stand on its head.
    const double limited = osg::clampBetween(elevation, -osg::PI_2, osg::PI_2);
    const osg::Vec3d back = (right ^ m_axis) * std::cos(limited) + m_axis * std::sin(limited);
    // Three unit vectors at right angles: the rows of a rotation.
    const osg::Vec3d up = back ^ right;
    m_rotation = osg::Matrixd(right.x(), right.y(), right.z(), 0.0, //
                              up.x(), up.y(), up.z(), 0.0,          //
                              back.x(), back.y(), back.z(), 0.0,    //
                              0.0, 0.0, 0.0, 1.0)
                     .getRotate();
}

void KrOrbitInputHandler::orbit(double azimuth, double elevation)
{
    if (!isFinite("orbit", azimuth, elevation)) {
        return;
    }
    takeWindowPov();
    const osg::Vec3d back = m_rotation * osg::Vec3d(0.0, 0.0, 1.0);
    // Rounding may leave a product just beyond 1.
    const double before = std::asin(osg::clampBetween(back * m_axis, -1.0, 1.0));
    // The turn about the axis leaves the horizon level, whatever the camera's roll was before.
    aim(osg::Quat(azimuth, m_axis) * rightOfTurntable(), before + elevation);
    publish();
}

void KrOrbitInputHandler::lookFrom(double azimuth, double elevation)
{
    if (!isFinite("lookFrom", azimuth, elevation)) {
        return;
    }
    takeWindowPov();
    // At azimuth 0 the eye is on +x where z is the axis; an axis along x takes y in place of x.
    osg::Vec3d right = m_axis ^ osg::Vec3d(1.0, 0.0, 0.0);
    if (right.length() < kNearPole) {
        right = m_axis ^ osg::Vec3d(0.0, 1.0, 0.0);
    }
    right.normalize();
    aim(osg::Quat(azimuth, m_axis) * right, elevation);
    publish();
}

void KrOrbitInputHandler::pan(double x, double y)
{
    if (!isFinite("pan", x, y)) {
        return;
    }
    takeWindowPov();
    // What lies at the centre's depth goes along with the cursor.
    m_center -= worldAt(x, y, m_distance) - worldAt(0.0, 0.0, m_distance);
    publish();
}

void KrOrbitInputHandler::zoomAt(double factor, double x, double y)
{
    if (!isFinite("zoomAt", x, y) || !isFinite("zoomAt", factor, 1.0 / factor)) {
        return;
    }
    // 0 has no finite inverse and is refused above.
    if (factor < 0.0) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrOrbitInputHandler::zoomAt - a factor is positive, not %g; nothing is moved.\n",
                                     factor);
        return;
    }
    takeWindowPov();
    // Scaled about a point, the camera keeps everything that it sees in that direction where it is.
    const double distance = osg::clampBetween(m_distance / factor, kSmallestDistance, kLargestDistance);
    // What is under the cursor, at the depth of the centre.
    const osg::Vec3d fixed = worldAt(x, y, m_distance);
    m_center = fixed + (m_center - fixed) * (distance / m_distance);
    m_distance = distance;
    publish();
}

void KrOrbitInputHandler::home(const osgGA::GUIEventAdapter&, osgGA::GUIActionAdapter&)
{
    if (window()) {
        home();
    }
}

void KrOrbitInputHandler::home()
{
    takeWindowPov(); // for the lens, which stays
    m_pov.setEyepoint(KrRenderTypes::osg2ec(_homeEye));
    m_pov.setCenterOfInterest(KrRenderTypes::osg2ec(_homeCenter));
    m_pov.setUp(KrRenderTypes::osg2ec(_homeUp));
    // A copy: both receivers may store into what they are given.
    const KrPovParameters pov = m_pov;
    setPovParameters(pov);
    if (window()) {
        window()->setPovParameters(pov);
    }
}

bool KrOrbitInputHandler::fit()
{
    if (window() && window()->getViewer()) {
        window()->updateScene(); // a system that was just set is not in the scene before
    }
    takeWindowPov();
    osg::Node* const scene = window() ? window()->getNode().get() : getNode();
    // Of what is shown: hidden aids would make the picture small.
    SceneVisitor<osg::ComputeBoundsVisitor> visitor(shownMask(window()));
    if (scene) {
        scene->accept(visitor);
    }
    const osg::BoundingBox& box = visitor.getBoundingBox();
    // Nothing to see: the camera stays.
    if (!box.valid() || !std::isfinite(box.radius())) {
        return false;
    }
    // The cone of the narrower direction touches the sphere: d = r / sin(a / 2); parallel sides: d tan(a / 2) = r.
    const osg::Matrixd p = projection();
    const double narrow = isParallel() ? halfHeight() * std::min(1.0, aspectRatio())
                                       : std::sin(std::atan(1.0 / std::max(p(0, 0), p(1, 1))));
    m_center = osg::Vec3d(box.center());
    m_distance = osg::clampBetween(static_cast<double>(box.radius()) / narrow, kSmallestDistance, kLargestDistance);
    publish();
    return true;
}

bool KrOrbitInputHandler::centerOnSurface(double x, double y)
{
    if (!isFinite("centerOnSurface", x, y)) {
        return false;
    }
    takeWindowPov();
    // Parallel rays have the direction of view, others begin at the eye.
    const bool parallel = isParallel();
    const osg::Vec3d onRay = worldAt(x, y, m_distance);
    const osg::Vec3d direction =
        parallel ? m_rotation * osg::Vec3d(0.0, 0.0, -1.0) : onRay - osg::Vec3d(0.0, 0.0, 0.0) * getMatrix();
    osg::Node* const scene = window() ? window()->getNode().get() : getNode();
    if (!scene || !scene->getBound().valid()) {
        return false;
    }
    const osg::BoundingSphere& bound = scene->getBound();
    osg::Vec3d unit = direction;
    const double length = unit.normalize();
    const double reach = (osg::Vec3d(bound.center()) - onRay).length() + bound.radius();
    // A ray begins at the eye at the earliest; parallel ones come from behind everything.
    const double before = parallel ? reach : std::min(reach, length);
    const osg::ref_ptr<osgUtil::LineSegmentIntersector> ray =
        new osgUtil::LineSegmentIntersector(onRay - unit * before, onRay + unit * reach);
    // Only the first surface is looked for, which spares the sorting of all others.
    ray->setIntersectionLimit(osgUtil::Intersector::LIMIT_NEAREST);
    SceneVisitor<osgUtil::IntersectionVisitor> visitor(shownMask(window()));
    visitor.setIntersector(ray);
    scene->accept(visitor);
    if (!ray->containsIntersections()) {
        return false;
    }
    // The distance stays: the camera moves along instead of turning.
    m_center = ray->getFirstIntersection().getWorldIntersectPoint();
    publish();
    return true;
}

void KrOrbitInputHandler::updateCamera(osg::Camera& camera)
{
    KrSGBaseInputHandler::updateCamera(camera);
    if (isParallel()) {
        // In place of the window's unit box, by which nothing of a scene would be seen in proportion.
        camera.setProjectionMatrix(parallelProjection());
    }
}
