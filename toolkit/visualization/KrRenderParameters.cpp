#include <toolkit/visualization/KrRenderParameters.h>

#include <toolkit/xml/KrXmlReader.h>

#include <cmath>

template class KrXmlObjectOf<KrRenderParameters, KrXmlCompoundType>;

KrRenderParameters::KrRenderParameters() = default;
KrRenderParameters::KrRenderParameters(const KrRenderParameters& other) = default;
KrRenderParameters::KrRenderParameters(KrRenderParameters&& other) noexcept = default;
KrRenderParameters& KrRenderParameters::operator=(const KrRenderParameters& other) = default;
KrRenderParameters& KrRenderParameters::operator=(KrRenderParameters&& other) noexcept = default;
KrRenderParameters::~KrRenderParameters() = default;

KrXmlToken KrRenderParameters::token() const
{
    return {KrXmlNamespace::render(), "renderParameters"};
}

void KrRenderParameters::registerComponents()
{
    const std::string& uri = KrXmlNamespace::render();
    registerComponent({uri, "autoClipping"}, m_autoClipping, Presence::Optional);
    registerComponent({uri, "nearClipping"}, m_nearClipping, Presence::Optional);
    registerComponent({uri, "farClipping"}, m_farClipping, Presence::Optional);
    registerComponent({uri, "backgroundColor"}, m_backgroundColor, Presence::Optional);
}

bool KrRenderParameters::validate(KrXmlReader& reader) const
{
    // Written so that NaN fails too.
    if (!(nearClipping() > 0.0 && farClipping() > nearClipping() && std::isfinite(farClipping()))) {
        return reader.fail("the clipping planes lie at 0 < near < far, finite, not at %g and %g m", nearClipping(),
                           farClipping());
    }
    return true;
}
