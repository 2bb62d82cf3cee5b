#include <toolkit/system/KrIntraLink.h>

#include <toolkit/foundation/private/KrNumberCheck.h>
#include <toolkit/system/KrIndividualManipulator.h>
#include <toolkit/system/KrManipulatorActiveState.h>
#include <toolkit/xml/KrXmlReader.h>

namespace
{

/// Sine of the angle below which two directions count as parallel.
constexpr double kParallel = 1e-6;

// The constructor cannot refuse, so it mends.
/// A point that is not finite becomes the origin of its link, after one message.
KrVector checkedPoint(const KrVector& point)
{
    const bool isGood = Kr::NumberCheck::areFinite("KrIntraLink::KrIntraLink", {point.x(), point.y(), point.z()});
    return isGood ? point : KrVector();
}

/// What is left of `direction` without its share along the unit vector `axis`.
KrVector across(const KrVector& direction, const KrVector& axis)
{
    return direction - axis * direction.dot(axis);
}

/// A frame at `origin` whose x axis is the unit vector `x`, and whose z axis is close to `start`'s.
KrCoordinateSystemTransformation frameAlong(const KrVector& x, const KrVector& origin,
                                            const KrCoordinateSystemTransformation& start)
{
    // Where x runs along the start link's z axis, its y axis takes that one's place: the two cannot both be parallel to
    // x.
    KrVector z = across(start.transformDirection(KrVector(0.0, 0.0, 1.0)), x);
    if (z.length() < kParallel) {
        z = across(start.transformDirection(KrVector(0.0, 1.0, 0.0)), x);
    }
    z.normalize();
    // Right-handed: y = z x x, of length 1, since both are at right angles and normalised.
    const KrVector y = z.cross(x);

    KrCoordinateSystemTransformation frame;
    frame.setRotation({x.x(), y.x(), z.x(), //
                       x.y(), y.y(), z.y(), //
                       x.z(), y.z(), z.z()});
    frame.setTranslation(origin);
    return frame;
}

} // namespace

template class KrXmlObjectOf<KrIntraLink, KrXmlCompoundType>;
template class KrXmlObjectOf<KrXmlVectorType<KrIntraLink>, KrXmlObject>;
template class KrXmlVectorType<KrIntraLink>;

// Copies are compiled here, once, and not in every file that includes the header.
KrIntraLink::KrIntraLink() = default;
KrIntraLink::KrIntraLink(const KrIntraLink& other) = default;
KrIntraLink::KrIntraLink(KrIntraLink&& other) noexcept = default;
KrIntraLink& KrIntraLink::operator=(const KrIntraLink& other) = default;
KrIntraLink& KrIntraLink::operator=(KrIntraLink&& other) noexcept = default;
KrIntraLink::~KrIntraLink() = default;

KrIntraLink::KrIntraLink(const std::string& startLink, const KrVector& startPoint, const std::string& endLink,
                         const KrVector& endPoint)
    : m_startLink(startLink)
    , m_startPoint(checkedPoint(startPoint))
    , m_endLink(endLink)
    , m_endPoint(checkedPoint(endPoint))
{
}

// From the intra-link's frame to the manipulator's; x runs from the start point to the end point.
KrCoordinateSystemTransformation KrIntraLink::placement(const KrManipulatorActiveState& state,
                                                        const KrIndividualManipulator& manipulator) const
{
    KrCoordinateSystemTransformation start;
    KrCoordinateSystemTransformation end;
    // A link that is not there, or has no position: the identity, without a message, since this is asked in every
    // frame.
    if (!manipulator.linkPose(startLink(), state.positionState(), start) ||
        !manipulator.linkPose(endLink(), state.positionState(), end)) {
        return {};
    }

    const KrVector origin = start.transformPoint(startPoint());
    KrVector x = end.transformPoint(endPoint()) - origin;
    if (!(x.normalize() > 0.0)) {
        // The points meet: there is no direction but the start link's own.
        start.setTranslation(origin);
        return start;
    }
    return frameAlong(x, origin, start);
}

KrXmlToken KrIntraLink::token() const
{
    return {KrXmlNamespace::system(), "intraLink"};
}

void KrIntraLink::registerComponents()
{
    const std::string& uri = KrXmlNamespace::system();
    registerComponent({uri, "startLink"}, m_startLink, Presence::Optional);
    registerComponent({uri, "startPoint"}, m_startPoint, Presence::Optional);
    registerComponent({uri, "endLink"}, m_endLink, Presence::Optional);
    registerComponent({uri, "endPoint"}, m_endPoint, Presence::Optional);
    registerComponent({uri, "shape"}, m_shape, Presence::Optional);
}

// Whether the links exist is not asked: a document may tell them later.
bool KrIntraLink::validate(KrXmlRefusal& refusal) const
{
    if (!startPoint().isFinite() || !endPoint().isFinite()) {
        return refusal.fail("the points of an intra-link are finite");
    }
    return true;
}

template class KrXmlObjectOf<KrIntraLinkDescription, KrXmlCompoundType>;

KrIntraLinkDescription::KrIntraLinkDescription() = default;
KrIntraLinkDescription::KrIntraLinkDescription(const KrIntraLinkDescription& other) = default;
KrIntraLinkDescription::KrIntraLinkDescription(KrIntraLinkDescription&& other) noexcept = default;
KrIntraLinkDescription& KrIntraLinkDescription::operator=(const KrIntraLinkDescription& other) = default;
KrIntraLinkDescription& KrIntraLinkDescription::operator=(KrIntraLinkDescription&& other) noexcept = default;
KrIntraLinkDescription::~KrIntraLinkDescription() = default;

KrXmlToken KrIntraLinkDescription::token() const
{
    return {KrXmlNamespace::system(), "intraLinkDescription"};
}

void KrIntraLinkDescription::registerComponents()
{
    registerComponent({KrXmlNamespace::system(), "intraLinks"}, m_intraLinks, Presence::Optional);
}
