#include <toolkit/visualization/KrRenderParameters.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/private/KrNumberCheck.h>
#include <toolkit/xml/KrXmlReader.h>

#include <cmath>

namespace
{

// Whether near is below far is asked by `validate` alone: the setters are called one after the other.
bool isDistance(const char* method, double distance)
{
    // Written so that NaN fails too.
    const bool isGood = distance > 0.0 && std::isfinite(distance);
    if (!isGood) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrRenderParameters::%s - no plane lies at %g m; nothing is changed.\n", method,
                                     distance);
    }
    return isGood;
}

} // namespace

template class KrXmlObjectOf<KrRenderParameters, KrXmlCompoundType>;

// Copies are compiled here, once, and not in every file that includes the header.
KrRenderParameters::KrRenderParameters() = default;
KrRenderParameters::KrRenderParameters(const KrRenderParameters& other) = default;
KrRenderParameters::KrRenderParameters(KrRenderParameters&& other) noexcept = default;
KrRenderParameters& KrRenderParameters::operator=(const KrRenderParameters& other) = default;
KrRenderParameters& KrRenderParameters::operator=(KrRenderParameters&& other) noexcept = default;
KrRenderParameters::~KrRenderParameters() = default;

bool KrRenderParameters::setNearClipping(double distance)
{
    return isDistance("setNearClipping", distance) && (m_nearClipping = distance, true);
}

bool KrRenderParameters::setFarClipping(double distance)
{
    return isDistance("setFarClipping", distance) && (m_farClipping = distance, true);
}

// Refused as a whole where one of the four channels is outside 0 to 1.
bool KrRenderParameters::setBackgroundColor(const KrColor& color)
{
    return Kr::NumberCheck::areShares("KrRenderParameters::setBackgroundColor",
                                      {color.red(), color.green(), color.blue(), color.alpha()}) &&
           (m_backgroundColor = color, true);
}

KrXmlToken KrRenderParameters::token() const
{
    return {KrXmlNamespace::render(), "renderParameters"};
}

void KrRenderParameters::registerComponents()
{
    // What a document leaves out keeps the value of a new object.
    const std::string& uri = KrXmlNamespace::render();
    registerComponent({uri, "autoClipping"}, m_autoClipping, Presence::Optional);
    registerComponent({uri, "nearClipping"}, m_nearClipping, Presence::Optional);
    registerComponent({uri, "farClipping"}, m_farClipping, Presence::Optional);
    registerComponent({uri, "backgroundColor"}, m_backgroundColor, Presence::Optional);
}

// Both planes are there when a document has been read, so their order can be asked about.
bool KrRenderParameters::validate(KrXmlRefusal& refusal) const
{
    // Written so that NaN fails too.
    if (!(nearClipping() > 0.0 && farClipping() > nearClipping() && std::isfinite(farClipping()))) {
        return refusal.fail("the clipping planes lie at 0 < near < far, finite, not at %g and %g m", nearClipping(),
                            farClipping());
    }
    return true;
}
