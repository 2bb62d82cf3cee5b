#include <toolkit/system/KrJointKinematics.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/private/KrNumberCheck.h>
#include <toolkit/xml/KrXmlReader.h>

#include <array>
#include <cmath>
#include <limits>
#include <optional>

namespace
{

// Enumerators and their names in documents, in one table for both ways.
struct TypeName
{
    KrJointKinematics::Type type;
    const char* name;
};

// As they stand in documents.
constexpr std::array<TypeName, 4> kTypeNames = {{{KrJointKinematics::Type::Fixed, "fixed"},
                                                 {KrJointKinematics::Type::Revolute, "revolute"},
                                                 {KrJointKinematics::Type::Continuous, "continuous"},
                                                 {KrJointKinematics::Type::Prismatic, "prismatic"}}};

// Nothing for a name that is none: `validate` tells the user, with the names that are.
std::optional<KrJointKinematics::Type> typeOf(const std::string& name)
{
    for (const TypeName& known : kTypeNames) {
        if (name == known.name) {
            return known.type;
        }
    }
    return std::nullopt;
}

/// Whether a finite position lies between them. Written so that NaN fails too.
bool areLimits(double lower, double upper)
{
    // An infinite limit is none; a lower limit of +infinity would leave no position.
    constexpr double infinity = std::numeric_limits<double>::infinity();
    return lower <= upper && lower < infinity && upper > -infinity;
}

// A length that overflows is refused, too: it cannot be normalised.
bool hasDirection(const KrVector& axis)
{
    const double length = axis.length();
    return length > 0.0 && std::isfinite(length);
}

/// Leaves alone what has unit length but for rounding, so that an axis is written and read back unchanged.
KrVector normalized(KrVector axis)
{
    if (std::abs(axis.length() - 1.0) > 1e-14) {
        axis.normalize();
    }
    return axis;
}

} // namespace

template class KrXmlObjectOf<KrJointKinematics, KrXmlCompoundType>;

// Copies are compiled here, once, and not in every file that includes the header.
KrJointKinematics::KrJointKinematics() = default;
KrJointKinematics::KrJointKinematics(const KrJointKinematics& other) = default;
KrJointKinematics::KrJointKinematics(KrJointKinematics&& other) noexcept = default;
KrJointKinematics& KrJointKinematics::operator=(const KrJointKinematics& other) = default;
KrJointKinematics& KrJointKinematics::operator=(KrJointKinematics&& other) noexcept = default;
KrJointKinematics::~KrJointKinematics() = default;

const char* KrJointKinematics::typeName(Type type)
{
    for (const TypeName& known : kTypeNames) {
        if (known.type == type) {
            return known.name;
        }
    }
    // A value that is no enumerator: as good as fixed, which is how it would move.
    return kTypeNames[0].name;
}

KrJointKinematics::Type KrJointKinematics::type() const
{
    return m_typeValue;
}

// Both forms are kept: the name is what a document has, the value is what every frame asks for.
void KrJointKinematics::setType(Type type)
{
    m_typeValue = type;
    m_type = std::string(typeName(type));
}

bool KrJointKinematics::setAxis(const KrVector& axis)
{
    if (!hasDirection(axis)) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrJointKinematics::setAxis - joint \"%s\": (%g, %g, %g) has no direction.\n",
                                     name().c_str(), axis.x(), axis.y(), axis.z());
        return false;
    }
    m_axis = normalized(axis);
    return true;
}

// The place of the joint in its parent link; the three poses of a joint are refused alike.
bool KrJointKinematics::setOrigin(const KrCoordinateSystemTransformation& origin)
{
    return origin.checkPose("KrJointKinematics::setOrigin") && (m_origin = origin, true);
}

bool KrJointKinematics::setOffset(const KrCoordinateSystemTransformation& offset)
{
    return offset.checkPose("KrJointKinematics::setOffset") && (m_offset = offset, true);
}

bool KrJointKinematics::setDhFrame(const KrCoordinateSystemTransformation& frame)
{
    return frame.checkPose("KrJointKinematics::setDhFrame") && (m_dhFrame = frame, true);
}

// The standard convention; theta and alpha in rad, d and a in m.
bool KrJointKinematics::setDenavitHartenberg(Type type, double theta, double d, double a, double alpha)
{
    // Before anything is assigned: a refused call changes nothing.
    if (!Kr::NumberCheck::areFinite("KrJointKinematics::setDenavitHartenberg", {theta, d, a, alpha})) {
        return false;
    }
    // Turning about and sliding along z commute, so that one place of the joint serves every type:
    // Rz(theta) * [Rz(q) or Tz(q)] * Tz(d) Tx(a) Rx(alpha).
    KrCoordinateSystemTransformation origin;
    origin.setAxisAngle(KrVector(0.0, 0.0, 1.0), theta);
    KrCoordinateSystemTransformation offset;
    offset.setAxisAngle(KrVector(1.0, 0.0, 0.0), alpha);
    offset.setTranslation(KrVector(a, 0.0, d));

    // The remaining values, limits for example, stay as they are.
    setType(type);
    m_origin = origin;
    m_axis = KrVector(0.0, 0.0, 1.0);
    m_offset = offset;
    return true;
}

bool KrJointKinematics::setMaximumVelocity(double velocity)
{
    // Infinity is the value of a joint without a maximum.
    return Kr::NumberCheck::areNumbers("KrJointKinematics::setMaximumVelocity", {velocity}) &&
           (m_maximumVelocity = velocity, true);
}

bool KrJointKinematics::setMaximumEffort(double effort)
{
    return Kr::NumberCheck::areNumbers("KrJointKinematics::setMaximumEffort", {effort}) &&
           (m_maximumEffort = effort, true);
}

// Told, not enforced: what happens to a position beyond them is for whoever drives the joint.
bool KrJointKinematics::setLimits(double lower, double upper)
{
    if (!areLimits(lower, upper)) {
        Kr::Print::instance()->write(
            Kr::Print::Warning, "KrJointKinematics::setLimits - joint \"%s\": no position lies between %g and %g.\n",
            name().c_str(), lower, upper);
        return false;
    }
    m_lowerLimit = lower;
    m_upperLimit = upper;
    return true;
}

// Whether there is such a master is not asked: the joint it names may be added later.
bool KrJointKinematics::setMimic(const std::string& master, double multiplier, double offset)
{
    if (!Kr::NumberCheck::areFinite("KrJointKinematics::setMimic", {multiplier, offset})) {
        return false;
    }
    m_mimicMaster = master;
    m_mimicMultiplier = multiplier;
    m_mimicOffset = offset;
    return true;
}

// In every frame and for every joint: nothing is allocated or checked.
void KrJointKinematics::linkTransformation(double position, KrCoordinateSystemTransformation& linkToParent) const
{
    // Fixed joints stay at their origin, whatever the state says.
    KrCoordinateSystemTransformation motion;
    switch (m_typeValue) {
    case Type::Fixed:
        break;
    case Type::Revolute:
    // Only their limits tell these two apart.
    case Type::Continuous:
        motion.setAxisAngle(m_axis, position);
        break;
    case Type::Prismatic:
        motion.setTranslation(m_axis.value() * position);
        break;
    }
    // Read from the right: the link's own offset, the motion, then the place of the joint in its parent.
    linkToParent = m_origin * motion * m_offset;
}

bool KrJointKinematics::read(KrXmlReader& reader)
{
    // A document that is refused leaves the joint as it was, and so nothing to settle.
    if (!KrXmlCompoundType::read(reader)) {
        return false;
    }
    settle();
    return true;
}

// After reading: what documents tell in words becomes what every frame uses. `validate` has passed the type.
void KrJointKinematics::settle()
{
    setType(typeOf(m_type).value_or(Type::Fixed));
    m_axis = normalized(m_axis);
}

KrXmlToken KrJointKinematics::token() const
{
    return {KrXmlNamespace::system(), "jointKinematics"};
}

void KrJointKinematics::registerComponents()
{
    // What a document leaves out keeps the value of a new joint.
    const std::string& uri = KrXmlNamespace::system();
    registerComponent({uri, "name"}, m_name, Presence::Optional);
    registerComponent({uri, "type"}, m_type, Presence::Optional);
    registerComponent({uri, "origin"}, m_origin, Presence::Optional);
    registerComponent({uri, "axis"}, m_axis, Presence::Optional);
    registerComponent({uri, "offset"}, m_offset, Presence::Optional);
    registerComponent({uri, "dhFrame"}, m_dhFrame, Presence::Optional);
    registerComponent({uri, "lowerLimit"}, m_lowerLimit, Presence::Optional);
    registerComponent({uri, "upperLimit"}, m_upperLimit, Presence::Optional);
    registerComponent({uri, "maximumVelocity"}, m_maximumVelocity, Presence::Optional);
    registerComponent({uri, "maximumEffort"}, m_maximumEffort, Presence::Optional);
    registerComponent({uri, "mimicMaster"}, m_mimicMaster, Presence::Optional);
    registerComponent({uri, "mimicMultiplier"}, m_mimicMultiplier, Presence::Optional);
    registerComponent({uri, "mimicOffset"}, m_mimicOffset, Presence::Optional);
}

bool KrJointKinematics::validate(KrXmlRefusal& refusal) const
{
    // The name and not the enumerator: a document sets the name alone.
    const std::string& type = m_type.value();
    if (!typeOf(type)) {
        return refusal.fail("\"%.40s\" is no joint type: fixed, revolute, continuous, prismatic", type.c_str());
    }
    if (!hasDirection(m_axis)) {
        return refusal.fail("the axis (%g, %g, %g) of joint \"%.80s\" has no direction", axis().x(), axis().y(),
                            axis().z(), name().c_str());
    }
    if (!areLimits(lowerLimit(), upperLimit())) {
        return refusal.fail("joint \"%.80s\": no position lies between its limits %g and %g", name().c_str(),
                            lowerLimit(), upperLimit());
    }
    if (!std::isfinite(mimicMultiplier()) || !std::isfinite(mimicOffset())) {
        return refusal.fail("joint \"%.80s\": the factor and the offset of a mimic are finite", name().c_str());
    }
    // Limits that are not given are infinite.
    if (std::isnan(maximumVelocity()) || std::isnan(maximumEffort())) {
        return refusal.fail("joint \"%.80s\": a maximum is no number", name().c_str());
    }
    return true;
}
