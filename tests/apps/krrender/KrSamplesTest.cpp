#include <tests/support/Program.h>

#include <tests/support/Schema.h>

#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <gtest/gtest.h>

#include <cmath>

namespace
{

const char* const kSystems[] = {"industrial_arm.xml", "dual_arm_base.xml", "textured_rover.xml"};

std::string sample(const std::string& name)
{
    return std::string(KR_SAMPLES) + "/" + name;
}

} // namespace

TEST(Samples, EveryDocumentMeetsTheSchema)
{
    const Schema schema((KrVisualizableStatedSystem()));
    ASSERT_TRUE(schema.isValid());
    std::size_t numDocuments = 0;
    for (const auto& entry : std::filesystem::directory_iterator(KR_SAMPLES)) {
        if (entry.path().extension() == ".xml") {
            std::string reason;
            EXPECT_TRUE(schema.accepts(contentOf(entry.path().string()), &reason)) << entry.path() << ", " << reason;
            ++numDocuments;
        }
    }
    EXPECT_GE(numDocuments, 5u);
}

TEST(Samples, AreRobotsWithPossibleMassesAndPosesWithinTheirLimits)
{
    for (const char* name : kSystems) {
        KrVisualizableStatedSystem system;
        ASSERT_TRUE(system.readFile(sample(name))) << name;
        const KrIndividualManipulator& robot = system.statedSystem().manipulatorSystem().manipulators()[0];
        const auto& positions = system.statedSystem().systemState().positionStates()[0].jointPositions();
        const std::vector<const KrManipulatorLink*> links = robot.links();
        ASSERT_EQ(positions.size(), links.size());
        bool isPosed = false;
        for (unsigned int j = 0; j < positions.size(); ++j) {
            const KrJointKinematics& joint = links[j]->jointKinematics();
            const double position = positions[j];
            isPosed = isPosed || position != 0.0;
            EXPECT_TRUE(!joint.hasLimits() || (position >= joint.lowerLimit() && position <= joint.upperLimit()))
                << name << " " << joint.name();
            EXPECT_TRUE(links[j]->massProperties().isGiven()) << name << " " << links[j]->name();
            EXPECT_EQ(links[j]->massProperties().whyImpossible(), "") << name << " " << links[j]->name();
            std::vector<const KrShape*> volumes;
            links[j]->shape()->boundingVolumes(volumes, 1);
            EXPECT_FALSE(volumes.empty()) << name << " " << links[j]->name();
        }
        EXPECT_TRUE(isPosed) << name;
    }
}

// The lengths that the arm's joint frames were drawn with: 0.19 + 0.245 + 0.48 + 0.11 up, 0.1 + 0.165 + 0.34 + 0.078
// out.
TEST(Samples, TheArmReachesAsFarAsItsLinksAdd)
{
    KrVisualizableStatedSystem system;
    ASSERT_TRUE(system.readFile(sample("industrial_arm.xml")));
    const KrIndividualManipulator& arm = system.statedSystem().manipulatorSystem().manipulators()[0];
    std::vector<KrCoordinateSystemTransformation> poses;
    ASSERT_TRUE(arm.linkPoses(arm.defaultState(), poses));
    const KrVector flange = poses[static_cast<std::size_t>(arm.jointIndex("joint_6"))].translation();
    EXPECT_NEAR((flange - KrVector(0.683, 0.0, 1.025)).length(), 0.0, 1e-9);
}
