#include <toolkit/deformation/KrDeformationPose.h>

KrDeformationPose::KrDeformationPose(const std::string& name, const KrXmlVectorVector& vertices)
    : m_name(name)
    , m_vertices(vertices)
{
}

void KrDeformationPose::setJoint(const std::string& joint, double position)
{
    m_joint = joint;
    m_jointPosition = position;
}

KrXmlToken KrDeformationPose::token() const
{
    return {KrXmlNamespace::core(), "pose"};
}

void KrDeformationPose::registerComponents()
{
    registerComponent({KrXmlNamespace::core(), "name"}, m_name);
    // A pose that follows no joint names none.
    registerComponent({KrXmlNamespace::core(), "weight"}, m_weight, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "joint"}, m_joint, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "jointPosition"}, m_jointPosition, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "vertices"}, m_vertices);
}
