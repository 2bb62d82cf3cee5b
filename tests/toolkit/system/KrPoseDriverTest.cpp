#include <toolkit/system/KrPoseDriver.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/Systems.h>

#include <toolkit/extent/private/KrPrimitiveMesh.h>

#include <gtest/gtest.h>

namespace
{

using Extent = KrDeformationPhysicalExtent;

/// A box with poses that follow joint "bend" at -1, 0.5 and 1.5 rad, given out of order, and one that follows nothing.
boost::shared_ptr<Extent> bendingBox(const std::string& joint = "bend")
{
    const auto extent = boost::make_shared<Extent>();
    extent->setMesh(*KrPrimitiveMesh::box(KrVector(1.0, 1.0, 1.0), "skin"));
    const struct
    {
        const char* name;
        double position;
    } poses[] = {{"far", 1.5}, {"back", -1.0}, {"near", 0.5}};
    for (const auto& pose : poses) {
        extent->setPose(pose.name, extent->vertices());
        extent->setPoseJoint(extent->poseIndex(pose.name), joint, pose.position);
    }
    extent->setPose("free", extent->vertices());
    extent->setWeight(extent->poseIndex("free"), 0.25);
    return extent;
}

/// The first link turns by "turn_joint", the second by "bend"; that one wears `extents`.
KrManipulatorSystem systemWith(const std::vector<boost::shared_ptr<Extent>>& extents)
{
    KrManipulatorLink bend = Systems::turningLink("hose", KrVector());
    bend.jointKinematics().setName("bend");
    bend.setDeformable(true);
    for (const auto& extent : extents) {
        bend.addShape(extent);
    }
    KrManipulatorLink turn = Systems::turningLink("turn", KrVector());
    turn.addChildLink(bend);
    KrIndividualManipulator robot("robot");
    robot.addChildLink(turn);
    KrManipulatorSystem system;
    system.manipulators().push_back(robot);
    return system;
}

std::vector<double> weights(const Extent& extent)
{
    std::vector<double> result;
    for (const char* const name : {"back", "near", "far", "free"}) {
        result.push_back(extent.pose(extent.poseIndex(name)).weight());
    }
    return result;
}

} // namespace

TEST(KrPoseDriver, BlendsBetweenNeighbouringPosesAndStaysBeyondTheLast)
{
    const boost::shared_ptr<Extent> extent = bendingBox();
    KrStatedSystem system(systemWith({extent, extent}));
    KrPoseDriver driver(system.manipulatorSystem());
    ASSERT_EQ(driver.shapes().size(), 1u) << "an extent that is worn twice moves once";
    EXPECT_EQ(driver.shapes()[0], KrShapeStateCacheKey(0, 1, 0));
    const struct
    {
        double position;
        std::vector<double> weights; ///< back, near, far, free
    } cases[] = {{-9.0, {1.0, 0.0, 0.0, 0.25}},   {-0.5, {0.5, 0.0, 0.0, 0.25}}, {0.0, {0.0, 0.0, 0.0, 0.25}},
                 {0.125, {0.0, 0.25, 0.0, 0.25}}, {0.5, {0.0, 1.0, 0.0, 0.25}},  {1.25, {0.0, 0.25, 0.75, 0.25}},
                 {1.5, {0.0, 0.0, 1.0, 0.25}},    {7.0, {0.0, 0.0, 1.0, 0.25}}};
    for (const auto& c : cases) {
        system.setJointPosition(0, "turn_joint", 1.0); // another joint's position is not looked at
        system.setJointPosition(0, "bend", c.position);
        driver.drive(system.systemState());
        EXPECT_EQ(weights(*extent), c.weights) << c.position;
    }
    driver.drive(KrManipulatorSystemState()); // tells nothing of the joint
    EXPECT_EQ(weights(*extent), cases[7].weights);
}

TEST(KrPoseDriver, APoseAtZeroStandsForTheNeutralShape)
{
    const boost::shared_ptr<Extent> extent = bendingBox();
    extent->setPoseJoint(extent->poseIndex("near"), "bend", 0.0);
    KrStatedSystem system(systemWith({extent}));
    KrPoseDriver driver(system.manipulatorSystem());
    driver.drive(system.systemState());
    EXPECT_EQ(weights(*extent), (std::vector<double>{0.0, 1.0, 0.0, 0.25}));
    system.setJointPosition(0, "bend", 0.75);
    driver.drive(system.systemState());
    EXPECT_EQ(weights(*extent), (std::vector<double>{0.0, 0.5, 0.5, 0.25}));
}

TEST(KrPoseDriver, AJointThatIsNotThereIsToldOnceAndItsPosesStay)
{
    const boost::shared_ptr<Extent> extent = bendingBox("bned");
    const KrStatedSystem system(systemWith({extent}));
    MessageRecorder messages;
    KrPoseDriver driver(system.manipulatorSystem());
    EXPECT_EQ(messages.count(), 1u) << messages.all();
    EXPECT_NE(messages.all().find("\"bned\""), std::string::npos);
    EXPECT_TRUE(driver.shapes().empty());
    driver.drive(system.systemState());
    EXPECT_EQ(weights(*extent), (std::vector<double>{0.0, 0.0, 0.0, 0.25}));
}
