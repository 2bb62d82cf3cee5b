#include <dataset/KrDatasetSampler.h>

#include <tests/support/JointedSystems.h>

#include <toolkit/math/KrAngle.h>

#include <gtest/gtest.h>

#include <cmath>

namespace
{

using Place = KrDatasetRecipe::Camera::Place;

/// Robot "a" of JointedSystems at (2, 0, 0) turned by 90 degrees, and "b"; a camera on a shell about (0, 0, 1), one on
/// the link that "turn" of "a" moves.
class Sampler : public testing::Test
{
protected:
    Sampler()
    {
        m_recipe.count = 1000;
        m_recipe.seed = 3;
        m_recipe.robots.resize(2);
        m_recipe.robots[0].name = "a";
        m_recipe.robots[0].pose.x = {2.0, 2.0};
        m_recipe.robots[0].pose.yaw = {0.5 * Kr::Angle::kPi, 0.5 * Kr::Angle::kPi};
        m_recipe.robots[1].name = "b";
        m_recipe.cameras.resize(2);
        KrDatasetRecipe::Camera& shell = m_recipe.cameras[0];
        shell.name = "shell";
        shell.fieldOfView = 1.0;
        shell.place = Place::Shell;
        shell.center = KrVector(0.0, 0.0, 1.0);
        shell.distance = {2.0, 3.0};
        shell.elevation = {-0.5 * Kr::Angle::kPi, 0.5 * Kr::Angle::kPi};
        shell.azimuth = {-1.0, 2.0};
        KrDatasetRecipe::Camera& hand = m_recipe.cameras[1];
        hand.name = "hand";
        hand.fieldOfView = 1.0;
        hand.place = Place::Link;
        hand.robot = "a";
        hand.link = "turn";
        hand.pose.z = {0.5, 0.5};
        m_recipe.background.colors = {KrColor(0.1, 0.2, 0.3), KrColor(0.3, 0.4, 0.5)};
        m_recipe.background.isBetween = true;
    }
    std::string prepare()
    {
        std::string reason;
        return m_sampler.prepare(m_recipe, m_system, {{"a", 0, 1}, {"b", 1, 1}}, reason) ? "" : reason;
    }

    KrStatedSystem m_system = JointedSystems::twoRobots();
    KrDatasetRecipe m_recipe;
    KrDatasetSampler m_sampler;
};

TEST_F(Sampler, JointsFillTheirLimitsAndMimicsFollow)
{
    m_recipe.robots[1].joints["turn_joint"] = {};
    static_cast<KrDatasetRecipe::Range&>(m_recipe.robots[1].joints["turn_joint"]) = {0.2, 0.3};
    ASSERT_EQ(prepare(), "");
    double lowest = 1.0;
    double highest = -1.0;
    for (std::uint64_t k = 0; k < 400; k += 2) {
        const KrDatasetShot shot = m_sampler.shot(k, 0);
        const double turn = JointedSystems::jointAt(shot.state, 0, 0);
        lowest = std::min(lowest, turn);
        highest = std::max(highest, turn);
        EXPECT_TRUE(turn >= -1.0 && turn < 1.0);
        EXPECT_EQ(JointedSystems::jointAt(shot.state, 0, 2), 0.0); // fixed
        EXPECT_DOUBLE_EQ(JointedSystems::jointAt(shot.state, 0, 3), 2.0 * turn + 0.1);
        const double other = JointedSystems::jointAt(shot.state, 1, 0);
        EXPECT_TRUE(other >= 0.2 && other < 0.3);
        EXPECT_LE(std::abs(JointedSystems::jointAt(shot.state, 1, 1)), Kr::Angle::kPi); // without limits
        // The other camera sees the same state, from another place, before another background.
        const KrDatasetShot second = m_sampler.shot(k + 1, 0);
        EXPECT_EQ(second.state, shot.state);
        EXPECT_EQ(second.camera, 1u);
        EXPECT_NE(second.background, shot.background);
    }
    EXPECT_LT(lowest, -0.95);
    EXPECT_GT(highest, 0.95);
}

TEST_F(Sampler, CamerasOnTheShellLookAtItsMiddleWithTheHorizonLevel)
{
    ASSERT_EQ(prepare(), "");
    unsigned int numHigh = 0;
    for (std::uint64_t k = 0; k < 2000; k += 2) {
        const KrDatasetShot shot = m_sampler.shot(k, 0);
        const KrCoordinateSystemTransformation& pose = shot.opticalToWorld;
        ASSERT_TRUE(pose.isPose());
        const KrVector inView = pose.inverse().transformPoint(KrVector(0.0, 0.0, 1.0));
        EXPECT_NEAR(inView.x(), 0.0, 1e-12);
        EXPECT_NEAR(inView.y(), 0.0, 1e-12);
        EXPECT_TRUE(inView.z() > 2.0 - 1e-9 && inView.z() < 3.0 + 1e-9);
        EXPECT_NEAR(pose.rotation(2, 0), 0.0, 1e-12); // x to the right is level
        EXPECT_LE(pose.rotation(2, 1), 1e-12);        // y points downwards
        const KrVector eye = pose.translation() - KrVector(0.0, 0.0, 1.0);
        const double azimuth = std::atan2(eye.y(), eye.x());
        EXPECT_TRUE(azimuth > -1.0 - 1e-9 && azimuth < 2.0 + 1e-9);
        numHigh += eye.z() > 0.5 * eye.length() ? 1 : 0;
        EXPECT_LT((shot.pov.eyepoint() - pose.translation()).length(), 1e-12);
    }
    // A quarter of a sphere's area lies above half its radius; five standard deviations of a thousand.
    EXPECT_NEAR(numHigh, 250.0, 5.0 * std::sqrt(1000 * 0.25 * 0.75));
}

TEST_F(Sampler, CamerasOnALinkGoWithIt)
{
    ASSERT_EQ(prepare(), "");
    const KrDatasetShot shot = m_sampler.shot(1, 0);
    // "turn" turns about z at the robot's origin: the camera stands half a metre above it, turned by the joint and the
    // robot's quarter turn.
    const KrCoordinateSystemTransformation& pose = shot.opticalToWorld;
    EXPECT_LT((pose.translation() - KrVector(2.0, 0.0, 0.5)).length(), 1e-12);
    const double angle = 0.5 * Kr::Angle::kPi + JointedSystems::jointAt(shot.state, 0, 0);
    EXPECT_NEAR(pose.rotation(0, 0), std::cos(angle), 1e-12);
    EXPECT_NEAR(pose.rotation(1, 0), std::sin(angle), 1e-12);
}

TEST_F(Sampler, WhatIsAddedShiftsNothingElse)
{
    ASSERT_EQ(prepare(), "");
    const KrDatasetShot before = m_sampler.shot(42, 0);
    m_recipe.lights = KrDatasetRecipe::Lights();
    m_recipe.lights->lamps.resize(2);
    m_recipe.lights->lamps[0].color.colors = m_recipe.lights->lamps[1].color.colors = {KrColor(1.0, 1.0, 1.0)};
    m_recipe.robots[1].pose.x = {0.0, 1.0};
    m_recipe.materials.push_back({"b", {"turn"}, {{KrColor(), KrColor(1.0, 1.0, 1.0)}, true}});
    m_recipe.count = 7000;
    ASSERT_EQ(prepare(), "");
    const KrDatasetShot after = m_sampler.shot(42, 0);
    EXPECT_EQ(after.state.positionStates()[0], before.state.positionStates()[0]);
    EXPECT_EQ(after.opticalToWorld, before.opticalToWorld);
    EXPECT_EQ(after.background, before.background);
    EXPECT_EQ(after.lights.lights().size(), 2u);
    ASSERT_EQ(after.colors.size(), 1u);
    EXPECT_EQ(after.colors[0].link, 1u);
    // A further attempt moves the camera alone.
    const KrDatasetShot again = m_sampler.shot(42, 1);
    EXPECT_EQ(again.state, after.state);
    EXPECT_EQ(again.colors[0].color, after.colors[0].color);
    EXPECT_NE(again.opticalToWorld, after.opticalToWorld);
}

TEST_F(Sampler, SaysWhichJointOrLinkIsNotThere)
{
    m_recipe.robots[0].joints["turn_joit"] = {};
    EXPECT_EQ(prepare(), "robot \"a\" has no joint \"turn_joit\" that moves by itself; did you mean turn_joint?");
    m_recipe.robots[0].joints = {{"shadow_joint", {}}};
    EXPECT_NE(prepare().find("has no joint \"shadow_joint\" that moves by itself"), std::string::npos);
    m_recipe.robots[0].joints = {{"slide_joint", {}}};
    m_recipe.robots[0].joints["slide_joint"].isLength = false;
    EXPECT_EQ(prepare(), "robot \"a\": joint \"slide_joint\" slides, but its range is an angle");
    m_recipe.robots[0].joints.clear();
    m_recipe.cameras[1].link = "trn";
    EXPECT_EQ(prepare(), "camera \"hand\": \"a\" has no link \"trn\"; did you mean turn?");
}

} // namespace
