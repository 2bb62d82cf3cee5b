#include <toolkit/geometry/KrDeformationPose.h>

KrDeformationPose::KrDeformationPose(const std::string& name, const KrXmlVectorVector& vertices)
    : m_name(name)
    , m_vertices(vertices)
{
}

KrXmlToken KrDeformationPose::token() const
{
    return {KrXmlNamespace::core(), "pose"};
}

void KrDeformationPose::registerComponents()
{
    registerComponent({KrXmlNamespace::core(), "name"}, m_name);
    registerComponent({KrXmlNamespace::core(), "weight"}, m_weight, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "vertices"}, m_vertices);
}
