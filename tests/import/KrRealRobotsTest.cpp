#include "Bundle.h"

#include <algorithm>

namespace
{

// Robot descriptions of several makers, which may stand beside the project.
const std::filesystem::path kRobots = std::filesystem::path(KR_SOURCE_DIR).parent_path() / "shared" / "robots";

struct Expected
{
    const char* file;
    std::size_t links;
    std::size_t movable;
    std::size_t visuals;
    std::size_t collisions;
    std::size_t mimics;
    std::size_t textures;
    KrVector size; ///< extent along x, y, z in the default state, m
};

struct Bounds
{
    KrVector low = KrVector(1e9, 1e9, 1e9);
    KrVector high = KrVector(-1e9, -1e9, -1e9);

    void add(const KrManipulatorLink& link, const KrCoordinateSystemTransformation& pose)
    {
        for (unsigned int s = 0; s < link.numShapes(); ++s) {
            for (const KrVector& vertex : link.shape(s)->physicalExtent()->triExtent()->vertices()) {
                const KrVector p = pose.transformPoint(vertex);
                for (unsigned int i = 0; i < 3; ++i) {
                    low[i] = std::min(low[i], p[i]);
                    high[i] = std::max(high[i], p[i]);
                }
            }
        }
    }
};

Bounds boundsOf(const Imported& in)
{
    std::vector<KrCoordinateSystemTransformation> poses;
    EXPECT_TRUE(in.robot().linkPoses(in.system.systemState().positionStates()[0], poses));
    const std::vector<const KrManipulatorLink*> links = in.robot().links();
    Bounds bounds;
    bounds.add(in.robot(), {});
    for (std::size_t i = 0; i < poses.size(); ++i) {
        bounds.add(*links[i + links.size() - poses.size()], poses[i]);
    }
    return bounds;
}

class KrRealRobots : public ::testing::TestWithParam<Expected>
{
};

TEST_P(KrRealRobots, ComeInWholeAndInTheRightSize)
{
    const Expected& expected = GetParam();
    const std::filesystem::path path = kRobots / expected.file;
    if (!std::filesystem::exists(path)) {
        GTEST_SKIP() << path << " is not there";
    }
    const Imported in = import(path.string());
    ASSERT_TRUE(in.ok) << in.printed;
    EXPECT_EQ(in.printed, "");
    const KrImportReport::Counts& counts = in.report.counts();
    EXPECT_EQ(counts.missingMeshes, 0u) << in.report.text();
    EXPECT_EQ(counts.links, expected.links);
    EXPECT_EQ(counts.joints, expected.links - 1);
    EXPECT_EQ(counts.movableJoints, expected.movable);
    EXPECT_EQ(counts.mimicJoints, expected.mimics);
    EXPECT_EQ(counts.visuals, expected.visuals);
    EXPECT_EQ(counts.collisions, expected.collisions);
    EXPECT_EQ(counts.textures, expected.textures);
    // One warning for each guessed path, and hardly any other.
    EXPECT_LE(in.report.warnings().size(), in.report.meshes().size() + 2) << in.report.text();

    const Bounds bounds = boundsOf(in);
    for (unsigned int i = 0; i < 3; ++i) {
        EXPECT_NEAR(bounds.high[i] - bounds.low[i], expected.size[i], 0.02) << "axis " << i;
    }
    for (const KrManipulatorLink* link : in.robot().links()) {
        for (unsigned int s = 0; s < link->numShapes(); ++s) {
            EXPECT_GT(worstNormal(*link->shape(s)->physicalExtent()->triExtent()), -2.0) << link->name();
        }
    }
}

// Sizes from the makers' drawings where there is one, else from the meshes themselves, in metres.
INSTANTIATE_TEST_SUITE_P(
    All, KrRealRobots,
    ::testing::Values(
        Expected{"irb1200/abb_irb1200_support/urdf/irb1200_7_70.urdf", 10, 6, 7, 7, 0, 0, {0.626, 0.263, 0.885}},
        Expected{"anymal_c/robots/anymal_c_simple_description/urdf/anymal.urdf",
                 78,
                 12,
                 46,
                 45,
                 0,
                 17,
                 {1.052, 0.652, 0.916}},
        Expected{"allegro_hand/drake/manipulation/models/allegro_hand_description/urdf/"
                 "allegro_hand_description_right.urdf",
                 22,
                 16,
                 21,
                 21,
                 0,
                 0,
                 {0.068, 0.241, 0.245}},
        Expected{"double_pendulum/double_pendulum_description/urdf/double_pendulum_simple.urdf",
                 4,
                 2,
                 3,
                 3,
                 0,
                 0,
                 {0.075, 0.05, 0.325}},
        Expected{"robotiq_c2/robotiq_2f_c2_gripper_visualization/urdf/robotiq_c2_model.urdf",
                 10,
                 6,
                 10,
                 10,
                 5,
                 0,
                 {0.143, 0.153, 0.102}},
        Expected{"robotiq_2f85/robotiq_2f_85_gripper_visualization/urdf/robotiq_arg2f_85_model.urdf",
                 11,
                 6,
                 11,
                 11,
                 5,
                 0,
                 {0.075, 0.148, 0.153}},
        Expected{"turtlebot3/turtlebot3_description/urdf/turtlebot3_waffle_for_open_manipulator.urdf",
                 13,
                 2,
                 5,
                 7,
                 0,
                 0,
                 {0.267, 0.306, 0.141}},
        Expected{"schunk_lwa4p/schunk_description/urdf/schunk_lwa4p.urdf", 9, 6, 7, 7, 0, 0, {0.144, 0.2, 0.89}}),
    [](const ::testing::TestParamInfo<Expected>& test) {
        const std::string file = test.param.file;
        return file.substr(0, file.find('/'));
    });

} // namespace
