#pragma once

#include <toolkit/math/KrXmlVectorVector.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>

#include <string>

/// A named place for every vertex of a deforming mesh, and how much of it is blended in.
class KrDeformationPose : public KrXmlObjectOf<KrDeformationPose, KrXmlCompoundType>
{
public:
    KrDeformationPose() = default;
    /// Where every vertex of the mesh is under this pose, in the mesh's frame, m. Its weight is 0 at first.
    KrDeformationPose(const std::string& name, const KrXmlVectorVector& vertices);

    /// What the pose was made with. Vertices are in the order of the mesh's own.
    const std::string& name() const { return m_name.value(); }
    const std::vector<KrVector>& vertices() const { return m_vertices.values(); }
    /// 0 without influence (as at first), 1 whole; any finite number goes.
    double weight() const { return m_weight; }
    void setWeight(double weight) { m_weight.setValue(weight); }

    /// The joint of the manipulator that the pose follows (KrPoseDriver); empty for none.
    const std::string& joint() const { return m_joint.value(); }
    /// Where that joint is when the pose is whole, rad or m.
    double jointPosition() const { return m_jointPosition; }
    void setJoint(const std::string& joint, double position);

    KrXmlToken token() const override;
    void registerComponents() override;

private:
    KrXmlBasicType<std::string> m_name;
    KrXmlBasicType<double> m_weight = 0.0;
    KrXmlBasicType<std::string> m_joint;
    KrXmlBasicType<double> m_jointPosition = 0.0;
    KrXmlVectorVector m_vertices;
};
