#include <toolkit/visualization/KrPovParameters.h>

#include <toolkit/xml/KrXmlReader.h>

namespace
{

constexpr double kPi = 3.14159265358979324;

} // namespace

template class KrXmlObjectOf<KrPovParameters, KrXmlCompoundType>;

KrPovParameters::KrPovParameters() = default;
KrPovParameters::KrPovParameters(const KrPovParameters& other) = default;
KrPovParameters::KrPovParameters(KrPovParameters&& other) noexcept = default;
KrPovParameters& KrPovParameters::operator=(const KrPovParameters& other) = default;
KrPovParameters& KrPovParameters::operator=(KrPovParameters&& other) noexcept = default;
KrPovParameters::~KrPovParameters() = default;

double KrPovParameters::viewingDistance() const
{
    return (centerOfInterest() - eyepoint()).length();
}

void KrPovParameters::setFromViewTransformationAndDistance(const KrCoordinateSystemTransformation& view,
                                                           double distance)
{
    const KrVector eye = view.translation();
    m_eyepoint = eye;
    m_centerOfInterest = eye + view.transformDirection(KrVector(0.0, 0.0, -distance));
    m_up = view.transformDirection(KrVector(0.0, 1.0, 0.0));
}

KrXmlToken KrPovParameters::token() const
{
    return {KrXmlNamespace::render(), "povParameters"};
}

void KrPovParameters::registerComponents()
{
    const std::string& uri = KrXmlNamespace::render();
    registerComponent({uri, "eyepoint"}, m_eyepoint, Presence::Optional);
    registerComponent({uri, "centerOfInterest"}, m_centerOfInterest, Presence::Optional);
    registerComponent({uri, "up"}, m_up, Presence::Optional);
    registerComponent({uri, "fieldOfView"}, m_fieldOfView, Presence::Optional);
}

bool KrPovParameters::validate(KrXmlReader& reader) const
{
    if (!eyepoint().isFinite() || !centerOfInterest().isFinite() || !up().isFinite()) {
        return reader.fail("a point of view is made of finite numbers");
    }
    if (!(viewingDistance() > 0.0)) {
        return reader.fail("the eye point is its own centre of interest: it looks nowhere");
    }
    if (!(up().length() > 0.0)) {
        return reader.fail("the up vector has no direction");
    }
    // Written so that NaN fails too.
    if (!(fieldOfView() > 0.0 && fieldOfView() < kPi)) {
        return reader.fail("the field of view is between 0 and pi rad, not %g", fieldOfView());
    }
    return true;
}
