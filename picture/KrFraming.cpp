#include <picture/KrFraming.h>

#include <picture/KrMotion.h>
#include <toolkit/deformation/KrDeformationPhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/grid/KrGridPhysicalExtent.h>
#include <toolkit/system/KrManipulatorActiveState.h>
#include <toolkit/system/KrPoseDriver.h>

#include <algorithm>
#include <cmath>

namespace
{

constexpr double kFilledPart = 0.94;       // of the picture's width or height
constexpr double kNearestToEye = 0.15;     // of the distance to the middle: nothing comes closer to the eye
constexpr double kSmallestDistance = 0.05; // m
constexpr double kBaseAxis = 2.0;          // of a link's, at a manipulator's place

/// `up` made perpendicular to `towards`; another direction when the two are parallel.
KrVector uprightTo(const KrVector& towards, const KrVector& up)
{
    for (const KrVector& candidate : {up, KrVector(1.0, 0.0, 0.0), KrVector(0.0, 0.0, 1.0)}) {
        KrVector across = candidate.cross(towards);
        // Nearly parallel counts as parallel: what is left over would be rounding.
        if (across.length() > 1e-6 * candidate.length()) {
            KrVector upright = towards.cross(across);
            upright.normalize();
            return upright;
        }
    }
    // For what is no number only: x and z are not both parallel to anything.
    return {0.0, 1.0, 0.0};
}

/// Every vertex: a box around them would keep the robot smaller in the picture than it may be.
void addExtent(KrFraming& framing, const KrBasePhysicalExtent& extent, const KrCoordinateSystemTransformation& toWorld)
{
    if (const auto* const grid = dynamic_cast<const KrGridPhysicalExtent*>(&extent)) {
        double scale = 0.0;
        KrVector low, high, cells, inflection;
        grid->layout(scale, low, high, cells, inflection);
        for (unsigned int i = 0; i < 8; ++i) {
            // The box of the cells, since what glows in it changes with the values.
            const KrVector corner((i & 1u) ? high.x() : low.x(), (i & 2u) ? high.y() : low.y(),
                                  (i & 4u) ? high.z() : low.z());
            framing.add(toWorld.transformPoint(grid->placement().transformPoint(corner)));
        }
        return;
    }
    const boost::shared_ptr<const KrTriPhysicalExtent> mesh = extent.triExtent();
    if (!mesh) {
        return;
    }
    for (const KrVector& vertex : mesh->vertices()) {
        framing.add(toWorld.transformPoint(vertex));
    }
}

/// As far as the tips. A length of 0 is for axes that are not shown.
void addAxes(KrFraming& framing, const KrCoordinateSystemTransformation& toWorld, double length)
{
    if (!(length > 0.0)) {
        return;
    }
    for (const KrVector& tip :
         {KrVector(), KrVector(length, 0.0, 0.0), KrVector(0.0, length, 0.0), KrVector(0.0, 0.0, length)}) {
        framing.add(toWorld.transformPoint(tip));
    }
}

/// What is shown of a shape's volumes: the finest.
void addVolume(KrFraming& framing, const KrShape& shape, const KrCoordinateSystemTransformation& dhToWorld)
{
    std::vector<const KrShape*> volumes;
    shape.boundingVolumes(volumes, 1);
    if (!volumes.empty() && volumes.back()->physicalExtent() != nullptr) {
        addExtent(framing, *volumes.back()->physicalExtent(), dhToWorld);
    }
}

} // namespace

KrVector KrFraming::towardsEye(double azimuth, double elevation)
{
    return {std::cos(elevation) * std::cos(azimuth), std::cos(elevation) * std::sin(azimuth), std::sin(elevation)};
}

KrFraming::KrFraming(const KrVector& towardsEye, const KrVector& up, double fieldOfView, double aspectRatio)
    : m_towards(towardsEye)
    , m_fieldOfView(fieldOfView)
{
    m_towards.normalize();
    m_up = uprightTo(m_towards, up);
    m_right = m_up.cross(m_towards);
    // Tangents of half the angles, less the margin.
    m_vertical.slope = kFilledPart * std::tan(0.5 * fieldOfView);
    m_horizontal.slope = m_vertical.slope * aspectRatio;
}

void KrFraming::Sides::add(double x, double z, bool isFirst)
{
    // Seen from (e, d), a point is inside the slope t when |x - e| <= t (d - z): of all points the largest x + t z
    // and t z - x decide.
    for (unsigned int i = 0; i < kNumSlopes; ++i) {
        const double tz = slopeAt(i) * z;
        positive[i] = isFirst ? x + tz : std::max(positive[i], x + tz);
        negative[i] = isFirst ? tz - x : std::max(negative[i], tz - x);
    }
}

bool KrFraming::Sides::holds(double x, double z) const
{
    for (unsigned int i = 0; i < kNumSlopes; ++i) {
        const double tz = slopeAt(i) * z;
        // Written so that NaN is outside.
        if (!(x + tz <= positive[i] && tz - x <= negative[i])) {
            return false;
        }
    }
    return true;
}

double KrFraming::Sides::middle(double z) const
{
    unsigned int i = 0;
    while (i + 1 < kNumSlopes && distance(i) > z) {
        ++i;
    }
    return 0.5 * (positive[i] - negative[i]);
}

void KrFraming::add(const KrVector& point)
{
    const double z = m_towards.dot(point);
    const bool isFirst = m_numPoints++ == 0;
    m_horizontal.add(m_right.dot(point), z, isFirst);
    m_vertical.add(m_up.dot(point), z, isFirst);
    if (isFirst) {
        m_nearest = z;
        // A box has no corners before its first point.
        m_low = m_high = point;
        return;
    }
    // Nearest to the eye, where `towards` points.
    m_nearest = std::max(m_nearest, z);
    for (unsigned int i = 0; i < 3; ++i) {
        m_low[i] = std::min(m_low[i], point[i]);
        m_high[i] = std::max(m_high[i], point[i]);
    }
}

/// Whether adding the point would change nothing.
bool KrFraming::holds(const KrVector& point) const
{
    const double z = m_towards.dot(point);
    bool isInside = m_numPoints != 0 && z <= m_nearest && m_horizontal.holds(m_right.dot(point), z) &&
                    m_vertical.holds(m_up.dot(point), z);
    for (unsigned int i = 0; i < 3; ++i) {
        isInside = isInside && point[i] >= m_low[i] && point[i] <= m_high[i];
    }
    return isInside;
}

/// What holds the corners of a box holds what is in it: all that is asked for is convex.
bool KrFraming::holds(const Box& box, const KrCoordinateSystemTransformation& toWorld) const
{
    for (unsigned int i = 0; i < 8; ++i) {
        const KrVector corner((i & 1u) ? box.high.x() : box.low.x(), (i & 2u) ? box.high.y() : box.low.y(),
                              (i & 4u) ? box.high.z() : box.low.z());
        if (!holds(toWorld.transformPoint(corner))) {
            return false;
        }
    }
    return true;
}

/// What is absent, or has no extent, says nothing. Of many copies of a robot those in the middle do not either: their
/// vertices need not be looked at.
void KrFraming::addShape(const KrShape* shape, const KrCoordinateSystemTransformation& toWorld)
{
    const KrBasePhysicalExtent* const extent = shape != nullptr ? shape->physicalExtent() : nullptr;
    if (extent == nullptr) {
        return;
    }
    const boost::shared_ptr<const KrTriPhysicalExtent> mesh = extent->triExtent();
    // What bends has another box with every pose.
    if (!mesh || mesh->vertices().empty() || dynamic_cast<const KrDeformationPhysicalExtent*>(extent) != nullptr) {
        addExtent(*this, *extent, toWorld);
        return;
    }
    const auto [place, isNew] = m_boxes.try_emplace(extent);
    Box& box = place->second;
    if (!isNew && box.revision == extent->revision() && holds(box, toWorld)) {
        return;
    }
    if (isNew || box.revision != extent->revision()) {
        box = {extent->revision(), mesh->vertices()[0], mesh->vertices()[0]};
        for (const KrVector& vertex : mesh->vertices()) {
            for (unsigned int i = 0; i < 3; ++i) {
                box.low[i] = std::min(box.low[i], vertex[i]);
                box.high[i] = std::max(box.high[i], vertex[i]);
            }
        }
        // More than rounding: a vertex that is left out is inside beyond doubt.
        constexpr double kSlack = 1e-9;
        const KrVector slack = kSlack * (box.high - box.low).length() * KrVector(1.0, 1.0, 1.0);
        box.low = box.low - slack;
        box.high += slack;
    }
    addExtent(*this, *extent, toWorld);
}

void KrFraming::add(const KrManipulatorSystem& system, const KrManipulatorSystemState& state)
{
    std::vector<KrCoordinateSystemTransformation> poses;
    for (unsigned int m = 0; m < system.manipulators().size() && m < state.positionStates().size(); ++m) {
        const KrIndividualManipulator& manipulator = system.manipulators()[m];
        const KrPositionState& position = state.positionStates()[m];
        if (!manipulator.linkPoses(position, poses)) {
            continue;
        }
        addAxes(*this, manipulator.placement(), kBaseAxis * m_shown.axisLength);
        if (m_shown.shapes) {
            addIntraLinks(manipulator, position);
        }
        // The base is a link whose joint is the base transformation.
        addLinkAndAids(manipulator, manipulator.placement() * position.baseTransformation(), manipulator.baseDhFrame());
        const std::vector<const KrManipulatorLink*> links = manipulator.links();
        for (std::size_t j = 0; j < links.size() && j < poses.size(); ++j) {
            addLinkAndAids(*links[j], manipulator.placement() * poses[j], links[j]->jointKinematics().dhFrame());
        }
    }
}

void KrFraming::addLinkAndAids(const KrManipulatorLink& link, const KrCoordinateSystemTransformation& toWorld,
                               const KrCoordinateSystemTransformation& dhFrame)
{
    // Shapes hang in the DH frame, which is not the link's own.
    const KrCoordinateSystemTransformation dhToWorld = toWorld * dhFrame;
    for (unsigned int i = 0; m_shown.shapes && i < link.numShapes(); ++i) {
        addShape(link.shape(i), dhToWorld);
    }
    for (unsigned int i = 0; m_shown.collisions && i < link.numCollisionShapes(); ++i) {
        addShape(link.collisionShape(i), dhToWorld);
    }
    // Axes may be drawn at either frame of a link: there is room for both.
    addAxes(*this, toWorld, m_shown.axisLength);
    addAxes(*this, dhToWorld, m_shown.axisLength);
    if (m_shown.volumes && link.shape() != nullptr) {
        addVolume(*this, *link.shape(), dhToWorld);
    }
    if (m_shown.masses) {
        addEllipsoid(link, dhToWorld);
    }
}

void KrFraming::addIntraLinks(const KrIndividualManipulator& manipulator, const KrPositionState& position)
{
    const KrIntraLinkDescription& description = manipulator.intraLinks();
    if (description.count() == 0) {
        // Their places depend on positions only; the rest of a state stays empty.
        return;
    }
    KrManipulatorActiveState state;
    state.setPositionState(position);
    for (unsigned int i = 0; i < description.count(); ++i) {
        const KrIntraLink& intraLink = description.intraLink(i);
        addShape(intraLink.shape(), manipulator.placement() * intraLink.placement(state, manipulator));
    }
}

void KrFraming::addEllipsoid(const KrManipulatorLink& link, const KrCoordinateSystemTransformation& dhToWorld)
{
    // An ellipsoid is the same in every pose: it is made once for a whole motion.
    const auto [place, isNew] = m_ellipsoids.emplace(&link, KrEllipsoid());
    KrEllipsoid& ellipsoid = place->second;
    if (isNew) {
        KrCoordinateSystemTransformation principalAxes;
        link.massProperties().fillEllipsoid(link.name(), ellipsoid, principalAxes);
    }
    // Links without a mass, or with one that cannot be, have none.
    if (ellipsoid.physicalExtent() != nullptr) {
        addExtent(*this, *ellipsoid.physicalExtent(), dhToWorld);
    }
}

void KrFraming::addMotion(const KrManipulatorSystem& system, KrMotion& motion)
{
    // So many poses tell where a motion goes; framing must not take longer than drawing.
    constexpr std::size_t kMostPoses = 100;
    // Spread over all of the motion, and never more than that.
    const std::size_t step = motion.size() / kMostPoses + 1;
    KrPoseDriver poses(system);
    for (std::size_t i = 0; i < motion.size(); i += step) {
        const KrManipulatorSystemState& state = motion.state(i);
        poses.drive(state);
        add(system, state);
    }
    // Shapes that bend are left as the first picture shows them.
    if (motion.size() > 0) {
        poses.drive(motion.state(0));
    }
}

KrVector KrFraming::corner(unsigned int i) const
{
    return {(i & 1u) ? m_high.x() : m_low.x(), (i & 2u) ? m_high.y() : m_low.y(), (i & 4u) ? m_high.z() : m_low.z()};
}

KrVector KrFraming::center() const
{
    return 0.5 * (m_low + m_high);
}

KrPovParameters KrFraming::pov() const
{
    KrPovParameters pov;
    pov.setFieldOfView(m_fieldOfView);
    pov.setUp(m_up);
    // Any view will do, as long as it is finite.
    if (isEmpty()) {
        pov.setCenterOfInterest({0.0, 0.0, 0.0});
        pov.setEyepoint(3.0 * m_towards);
        return pov;
    }
    // Along the view; the eye looks at this plane, whatever the sides decide.
    const double middle = m_towards.dot(center());
    const double fitted = std::max(m_horizontal.distance(kNumSlopes - 1), m_vertical.distance(kNumSlopes - 1));
    // In a wide angle the sides alone would let the eye into what it looks at.
    const double z = std::max(
        {fitted, m_nearest + kNearestToEye * (m_nearest - middle), m_nearest + 1e-3, middle + kSmallestDistance});
    const KrVector eye = m_horizontal.middle(z) * m_right + m_vertical.middle(z) * m_up + z * m_towards;
    pov.setEyepoint(eye);
    pov.setCenterOfInterest(eye - (z - middle) * m_towards);
    return pov;
}
