#pragma once

#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/extent/KrSpherePhysicalExtent.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/system/KrStatedSystem.h>

#include <boost/make_shared.hpp>

#include <string>

/// Small systems for tests.
namespace Systems
{

inline boost::shared_ptr<KrBasePhysicalExtent> box(const KrVector& size, const KrVector& centre,
                                                   const std::string& material = "")
{
    const auto extent = boost::make_shared<KrBoxPhysicalExtent>(size);
    KrCoordinateSystemTransformation placement;
    placement.setTranslation(centre);
    extent->setPlacement(placement);
    extent->setMaterialName(material);
    return extent;
}

/// A link that turns about its parent's z axis at `origin`.
inline KrManipulatorLink turningLink(const std::string& name, const KrVector& origin)
{
    KrManipulatorLink link(name);
    link.jointKinematics().setName(name + "_joint");
    link.jointKinematics().setType(KrJointKinematics::Type::Continuous);
    KrCoordinateSystemTransformation pose;
    pose.setTranslation(origin);
    link.jointKinematics().setOrigin(pose);
    return link;
}

/// A red base box at the origin and a green arm box that turns about z: from x = 0 to x = 2 at joint position 0.
inline KrManipulatorSystem twoBoxes()
{
    KrIndividualManipulator robot("robot");
    robot.materialMap().set(std::string("red"), KrDataMap::material(KrColor(1.0, 0.0, 0.0)));
    robot.materialMap().set(std::string("green"), KrDataMap::material(KrColor(0.0, 1.0, 0.0)));
    robot.addShape(box(KrVector(1.0, 1.0, 1.0), KrVector(0.0, 0.0, 0.0), "red"));
    KrManipulatorLink arm = turningLink("arm", KrVector(0.0, 0.0, 1.0));
    arm.addShape(box(KrVector(2.0, 0.5, 0.5), KrVector(1.0, 0.0, 0.0), "green"));
    robot.addChildLink(arm);
    KrManipulatorSystem system;
    system.manipulators().push_back(robot);
    return system;
}

} // namespace Systems
