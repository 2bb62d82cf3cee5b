#include <toolkit/deformation/KrDeformationGroup.h>

KrDeformationGroup::KrDeformationGroup(const std::string& name, std::uint32_t piece, bool isCap)
    : m_name(name)
    , m_piece(piece)
    , m_isCap(isCap)
{
}

KrXmlToken KrDeformationGroup::token() const
{
    return {KrXmlNamespace::core(), "group"};
}

void KrDeformationGroup::registerComponents()
{
    registerComponent({KrXmlNamespace::core(), "name"}, m_name);
    // A mesh that was never cut names neither piece nor cap.
    registerComponent({KrXmlNamespace::core(), "piece"}, m_piece, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "cap"}, m_isCap, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "triangles"}, m_triangles);
}
