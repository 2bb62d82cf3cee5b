#pragma once

#include <rendCore/model/KrRenderLink.h>
#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/system/KrIndividualManipulator.h>
#include <toolkit/system/KrManipulatorSystemState.h>

#include <osg/Matrixd>

#include <boost/make_shared.hpp>

#include <string>
#include <vector>

// Small systems and helpers that the tests of the scene model share.
namespace SceneSamples
{

using ExtentPointer = boost::shared_ptr<KrBasePhysicalExtent>;

inline ExtentPointer box(double edge = 1.0)
{
    return boost::make_shared<KrBoxPhysicalExtent>(KrVector(edge, edge, edge));
}

inline KrCoordinateSystemTransformation translation(double x, double y, double z)
{
    KrCoordinateSystemTransformation pose;
    pose.setTranslation(KrVector(x, y, z));
    return pose;
}

/// A link that turns about its parent's z axis, without shapes.
inline KrManipulatorLink hinge(const std::string& name)
{
    KrManipulatorLink link(name);
    link.jointKinematics().setName(name + "_joint");
    link.jointKinematics().setType(KrJointKinematics::Type::Continuous);
    return link;
}

inline KrManipulatorLink hinge(const std::string& name, const ExtentPointer& extent)
{
    KrManipulatorLink link = hinge(name);
    link.addShape(extent);
    return link;
}

/// Base with children a (with child a1) and b, one shape each.
inline KrIndividualManipulator branching()
{
    KrIndividualManipulator manipulator("base");
    manipulator.addShape(box());
    manipulator.addChildLink(hinge("a", box())).addChildLink(hinge("a1", box()));
    manipulator.addChildLink(hinge("b", box()));
    return manipulator;
}

/// The state of a system of one manipulator.
inline KrManipulatorSystemState stateOf(const KrCoordinateSystemTransformation& base,
                                        const std::vector<double>& jointPositions)
{
    KrPositionState position;
    position.setBaseTransformation(base);
    for (const double value : jointPositions) {
        position.jointPositions().push_back(value);
    }
    KrManipulatorSystemState state;
    state.positionStates().push_back(position);
    return state;
}

/// A link node without a DH frame.
class BareLink : public KrRenderLink
{
public:
    using KrRenderLink::KrRenderLink;
    osg::ref_ptr<osg::MatrixTransform> getDhFrame() const override { return nullptr; }
};

inline double distance(const osg::Vec3d& a, const osg::Vec3d& b)
{
    return (a - b).length();
}

} // namespace SceneSamples
