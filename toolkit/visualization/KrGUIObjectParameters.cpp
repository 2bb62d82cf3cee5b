#include <toolkit/visualization/KrGUIObjectParameters.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/xml/KrXmlReader.h>

#include <cmath>

namespace
{

// Written so that NaN fails too.
// 0 is allowed: such a marker is not seen.
bool isLength(double length)
{
    return length >= 0.0 && std::isfinite(length);
}

// For the setters alike; `method` names the one that is called. What is refused leaves the length as it was.
void setLength(KrXmlBasicType<double>& length, double value, const char* method)
{
    if (!isLength(value)) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrGUIObjectParameters::%s - no marker has a size of %g m; it stays %g m.\n",
                                     method, value, length.value());
        return;
    }
    length = value;
}

} // namespace

void KrGUIObjectParameters::setAxisScale(double scale)
{
    setLength(m_axisScale, scale, "setAxisScale");
}

void KrGUIObjectParameters::setGlobalAxisScale(double scale)
{
    setLength(m_globalAxisScale, scale, "setGlobalAxisScale");
}

void KrGUIObjectParameters::setCenterOfInterestScale(double scale)
{
    setLength(m_centerOfInterestScale, scale, "setCenterOfInterestScale");
}

KrXmlToken KrGUIObjectParameters::token() const
{
    return {KrXmlNamespace::render(), "guiObjectParameters"};
}

void KrGUIObjectParameters::registerComponents()
{
    // What a document leaves out keeps the value of a new object.
    registerComponent({KrXmlNamespace::render(), "axisScale"}, m_axisScale, Presence::Optional);
    registerComponent({KrXmlNamespace::render(), "globalAxisScale"}, m_globalAxisScale, Presence::Optional);
    registerComponent({KrXmlNamespace::render(), "centerOfInterestScale"}, m_centerOfInterestScale, Presence::Optional);
}

// All three in one message, since they are written side by side.
bool KrGUIObjectParameters::validate(KrXmlRefusal& refusal) const
{
    // Asked again here, for documents: they reach the lengths without the setters.
    if (!isLength(m_axisScale) || !isLength(m_globalAxisScale) || !isLength(m_centerOfInterestScale)) {
        return refusal.fail("marker sizes are finite and not below 0, not %g, %g and %g m", axisScale(),
                            globalAxisScale(), centerOfInterestScale());
    }
    return true;
}
