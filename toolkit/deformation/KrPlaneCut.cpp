#include <toolkit/deformation/KrPlaneCut.h>

KrXmlToken KrPlaneCut::token() const
{
    return {KrXmlNamespace::core(), "planeCut"};
}

void KrPlaneCut::registerComponents()
{
    // Without a number the whole mesh is cut, without a name there is no cap.
    registerComponent({KrXmlNamespace::core(), "piece"}, m_piece, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "point"}, m_point);
    registerComponent({KrXmlNamespace::core(), "normal"}, m_normal);
    registerComponent({KrXmlNamespace::core(), "cap"}, m_cap, Presence::Optional);
}
