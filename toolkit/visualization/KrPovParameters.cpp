#include <toolkit/visualization/KrPovParameters.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/private/KrNumberCheck.h>
#include <toolkit/math/KrAngle.h>
#include <toolkit/xml/KrXmlReader.h>

namespace
{

using Kr::Angle::kPi;

// For the setters; the message names the method.
bool isFinite(const char* method, const KrVector& vector)
{
    return Kr::NumberCheck::areFinite(method, {vector.x(), vector.y(), vector.z()});
}

// Written so that NaN fails too.
// At 0 nothing would be seen; from pi on there is no picture plane.
bool isFieldOfView(double angle)
{
    return angle > 0.0 && angle < kPi;
}

} // namespace

template class KrXmlObjectOf<KrPovParameters, KrXmlCompoundType>;

// Copies are compiled here, once, and not in every file that includes the header.
KrPovParameters::KrPovParameters() = default;
KrPovParameters::KrPovParameters(const KrPovParameters& other) = default;
KrPovParameters::KrPovParameters(KrPovParameters&& other) noexcept = default;
KrPovParameters& KrPovParameters::operator=(const KrPovParameters& other) = default;
KrPovParameters& KrPovParameters::operator=(KrPovParameters&& other) noexcept = default;
KrPovParameters::~KrPovParameters() = default;

// Not kept by itself: it follows from the two points.
double KrPovParameters::viewingDistance() const
{
    // Not kept by itself: eye point and centre of interest are what is stored.
    return (centerOfInterest() - eyepoint()).length();
}

bool KrPovParameters::setEyepoint(const KrVector& eye)
{
    return isFinite("KrPovParameters::setEyepoint", eye) && (m_eyepoint = eye, true);
}

bool KrPovParameters::setCenterOfInterest(const KrVector& center)
{
    return isFinite("KrPovParameters::setCenterOfInterest", center) && (m_centerOfInterest = center, true);
}

bool KrPovParameters::setUp(const KrVector& up)
{
    if (!isFinite("KrPovParameters::setUp", up)) {
        return false;
    }
    // Whether it lies along the line of sight is not asked: the eye point may be set later.
    if (!(up.length() > 0.0)) {
        Kr::Print::instance()->write(
            Kr::Print::Warning,
            "KrPovParameters::setUp - a vector without length has no direction; nothing is changed.\n");
        return false;
    }
    m_up = up;
    return true;
}

bool KrPovParameters::setFieldOfView(double angle)
{
    if (!isFieldOfView(angle)) {
        Kr::Print::instance()->write(
            Kr::Print::Warning,
            "KrPovParameters::setFieldOfView - %g rad is not between 0 and pi; nothing is changed.\n", angle);
        return false;
    }
    m_fieldOfView = angle;
    return true;
}

// From a camera's pose, as a viewer has it after the user has looked around.
bool KrPovParameters::setFromViewTransformationAndDistance(const KrCoordinateSystemTransformation& view,
                                                           double distance)
{
    // The columns of the pose are the camera's axes in the world; it looks along -z, with y up, as OpenGL has it.
    const KrVector eye = view.translation();
    const KrVector center = eye + view.transformDirection(KrVector(0.0, 0.0, -distance));
    const KrVector up = view.transformDirection(KrVector(0.0, 1.0, 0.0));
    // The class is left out: the message of this one begins with the method.
    const char* const method = "setFromViewTransformationAndDistance";
    // All three before the first is assigned: a refused pose leaves the point of view as it was.
    if (!isFinite(method, eye) || !isFinite(method, center) || !isFinite(method, up)) {
        return false;
    }
    m_eyepoint = eye;
    m_centerOfInterest = center;
    m_up = up;
    return true;
}

KrXmlToken KrPovParameters::token() const
{
    return {KrXmlNamespace::render(), "povParameters"};
}

void KrPovParameters::registerComponents()
{
    // What a document leaves out keeps the value of a new object.
    const std::string& uri = KrXmlNamespace::render();
    registerComponent({uri, "eyepoint"}, m_eyepoint, Presence::Optional);
    registerComponent({uri, "centerOfInterest"}, m_centerOfInterest, Presence::Optional);
    registerComponent({uri, "up"}, m_up, Presence::Optional);
    registerComponent({uri, "fieldOfView"}, m_fieldOfView, Presence::Optional);
}

bool KrPovParameters::validate(KrXmlRefusal& refusal) const
{
    if (!eyepoint().isFinite() || !centerOfInterest().isFinite() || !up().isFinite()) {
        return refusal.fail("a point of view is made of finite numbers");
    }
    // A setter cannot ask this, since the two points are set one after the other. Written so that NaN fails too.
    if (!(viewingDistance() > 0.0)) {
        return refusal.fail("the eye point is its own centre of interest: it looks nowhere");
    }
    if (!(up().length() > 0.0)) {
        return refusal.fail("the up vector has no direction");
    }
    if (!isFieldOfView(fieldOfView())) {
        return refusal.fail("the field of view is between 0 and pi rad, not %g", fieldOfView());
    }
    return true;
}
