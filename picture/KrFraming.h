#pragma once

#include <toolkit/extent/KrEllipsoid.h>
#include <toolkit/math/KrAngle.h>
#include <toolkit/math/KrVector.h>
#include <toolkit/system/KrStatedSystem.h>
#include <toolkit/visualization/KrPovParameters.h>

#include <cstdint>
#include <map>

class KrMotion;

/// Chooses a point of view from which everything fits the picture tightly.
///
/// Points come one after the other; nothing is kept of them but what the four sides of the view need. World frame, m.
class KrFraming
{
public:
    // Where one looks at a robot from when nothing else is asked for: it faces +x, past the viewer's right shoulder.
    static constexpr double kAzimuth = Kr::Angle::radians(-50.0);    ///< of the eye about z from +x, rad
    static constexpr double kElevation = Kr::Angle::radians(22.0);   ///< of the eye above the horizon, rad
    static constexpr double kFieldOfView = Kr::Angle::radians(30.0); ///< full vertical angle, rad
    /// The direction of that length 1, from the scene to the eye.
    static KrVector towardsEye(double azimuth = kAzimuth, double elevation = kElevation);

    /// @param towardsEye   from the scene to the eye; any non-zero length
    /// @param up           up in the picture; replaced by a sideways direction where it is parallel to `towardsEye`
    /// @param fieldOfView  full vertical angle, rad, in (0, pi)
    /// @param aspectRatio  picture width / height, > 0
    KrFraming(const KrVector& towardsEye, const KrVector& up, double fieldOfView, double aspectRatio);

    /// What is shown of a system.
    struct Shown
    {
        bool shapes = true;      ///< what is visible of the links
        double axisLength = 0.0; ///< of the axes of every link, m; 0 for none
        bool volumes = false;    ///< what encloses each link's first shape
        bool masses = false;     ///< ellipsoids
        bool collisions = false; ///< collision shapes
    };
    /// Of systems that are added from now on.
    void setShown(const Shown& shown) { m_shown = shown; }

    /// A point that is to be in the picture.
    void add(const KrVector& point);
    /// Every corner of what is shown of `system`, posed by `state`, which fits the system. The system stays where it is
    /// while this object lives.
    void add(const KrManipulatorSystem& system, const KrManipulatorSystemState& state);

    /// Every pose of a motion; a long one is sampled: its outline does not change from one frame to the next. Shapes
    /// that bend are left as the first state bends them.
    void addMotion(const KrManipulatorSystem& system, KrMotion& motion);

    /// Whether nothing was added that has an extent.
    bool isEmpty() const { return m_numPoints == 0; }
    /// The middle of the bounding box; the origin when there is no point.
    KrVector center() const;
    /// A corner of the bounding box: bits 0, 1 and 2 of `i` choose its high x, y and z.
    KrVector corner(unsigned int i) const;
    /// Of the bounding box.
    KrVector size() const { return m_high - m_low; }

    /// The nearest eye point, in the direction that was asked for, from which every point is inside the four sides
    /// with a margin, and the points fill the picture's width or height evenly.
    ///
    /// For a side whose plane has slope t a point (x, y, z) in camera axes is inside when x + t z <= ex + t ez: the
    /// largest left sides of two opposite planes give the eye's place between them and its distance. In the direction
    /// that is not filled, narrower planes (smaller t) that hold everything from that distance put it in the middle.
    /// Without points: looks at the origin from 3 m away.
    KrPovParameters pov() const;

private:
    static constexpr unsigned int kNumSlopes = 12;

    void addLinkAndAids(const KrManipulatorLink& link, const KrCoordinateSystemTransformation& toWorld,
                        const KrCoordinateSystemTransformation& dhFrame);
    void addIntraLinks(const KrIndividualManipulator& manipulator, const KrPositionState& position);
    void addShape(const KrShape* shape, const KrCoordinateSystemTransformation& toWorld);
    void addEllipsoid(const KrManipulatorLink& link, const KrCoordinateSystemTransformation& dhToWorld);
    bool holds(const KrVector& point) const;
    struct Box;
    bool holds(const Box& box, const KrCoordinateSystemTransformation& toWorld) const;

    /// Two opposite sides of the view, for slopes from a twelfth of the picture's to the whole.
    struct Sides
    {
        double slope = 0.0;               ///< of the picture's sides, margin taken off
        double positive[kNumSlopes] = {}; ///< largest x + t z
        double negative[kNumSlopes] = {}; ///< largest -x + t z

        double slopeAt(unsigned int i) const { return slope * (i + 1) / kNumSlopes; }
        void add(double x, double z, bool isFirst);
        bool holds(double x, double z) const;
        /// The smallest distance from which everything is between the sides of slope `i`.
        double distance(unsigned int i) const { return (positive[i] + negative[i]) / (2.0 * slopeAt(i)); }
        /// The eye's place between them, at `z`.
        double middle(double z) const;
    };

    KrVector m_right;   ///< camera x in world axes
    KrVector m_up;      ///< camera y
    KrVector m_towards; ///< camera z, to the eye
    double m_fieldOfView;
    Shown m_shown;
    /// Of the links that were added: a motion asks for each again and again.
    std::map<const KrManipulatorLink*, KrEllipsoid> m_ellipsoids;
    /// About the vertices of a mesh, in its own frame, and a little more.
    struct Box
    {
        std::uint32_t revision = 0; ///< of the extent
        KrVector low;
        KrVector high;
    };
    /// Of the shapes that were added: copies of a robot share them.
    std::map<const KrBasePhysicalExtent*, Box> m_boxes;
    Sides m_horizontal;
    Sides m_vertical;
    double m_nearest = 0.0; ///< largest z
    KrVector m_low;
    KrVector m_high;
    std::size_t m_numPoints = 0;
};
