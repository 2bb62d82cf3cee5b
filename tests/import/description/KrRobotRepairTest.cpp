#include <import/description/KrRobotRepair.h>

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>
#include <set>
#include <string>

namespace
{

using Joint = KrRobotDescription::Joint;
using Link = KrRobotDescription::Link;
using Type = KrJointKinematics::Type;

/// As bad as a reader may leave it: few names for many things, and numbers that fit nothing.
class Mess
{
public:
    explicit Mess(unsigned int seed)
        : m_random(seed)
    {
    }
    KrRobotDescription robot()
    {
        KrRobotDescription robot;
        robot.files = {"/a/arm.urdf"};
        for (unsigned int i = 0, count = 1 + any(6); i < count; ++i) {
            robot.links.emplace_back();
            robot.links.back().name = "l" + std::to_string(i);
            robot.links.back().visuals.resize(any(3));
            for (KrRobotDescription::Shape& visual : robot.links.back().visuals) {
                visual.material = {any(2) ? "m" + std::to_string(any(3)) : "", look(), any(2) == 1};
            }
        }
        for (unsigned int i = any(4); i > 0; --i) {
            robot.materials.push_back({{}, "m" + std::to_string(any(3)), look(), any(2) == 1});
        }
        for (unsigned int i = any(9); i > 0; --i) {
            robot.joints.push_back(joint());
        }
        return robot;
    }

private:
    unsigned int any(unsigned int count) { return static_cast<unsigned int>(m_random() % count); }
    double number()
    {
        static constexpr double kNumbers[] = {0.0, 1.0, -1.0, 3e38, -1e-300, 1e-7, 0.5};
        return kNumbers[any(7)];
    }
    KrRobotDescription::Look look()
    {
        KrRobotDescription::Look look;
        look.hasColor = any(2) == 1;
        look.color[0] = look.hasColor ? 0.5 * any(3) : 0.0;
        return look;
    }
    Joint joint()
    {
        Joint joint;
        joint.name = any(5) ? "j" + std::to_string(any(4)) : "";
        joint.type = static_cast<Type>(any(4));
        joint.parent = "l" + std::to_string(any(8));
        joint.child = "l" + std::to_string(any(8));
        joint.axis = KrVector(number(), number(), number());
        joint.hasLimits = any(2) == 1;
        joint.lower = joint.hasLimits ? number() : 0.0;
        joint.upper = joint.hasLimits ? number() : 0.0;
        joint.maximumEffort = joint.hasLimits ? number() : 0.0;
        joint.mimicMaster = any(2) ? "j" + std::to_string(any(5)) : "";
        return joint;
    }

    std::mt19937 m_random;
};

bool endsAtNoMimic(const std::map<std::string, const Joint*>& joints, const Joint& joint)
{
    const Joint* at = &joint;
    for (std::size_t i = 0; i <= joints.size(); ++i) {
        if (at->mimicMaster.empty()) {
            return true;
        }
        at = joints.at(at->mimicMaster);
    }
    return false;
}

} // namespace

TEST(KrRobotRepair, MakesARobotOfAnything)
{
    for (unsigned int seed = 0; seed < 2000; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        KrRobotDescription robot = Mess(seed).robot();
        KrImportReport report;
        std::string why;
        ASSERT_TRUE(KrRobotRepair::run(robot, {100, 100}, report, why)) << why;
        EXPECT_EQ(robot.name, "arm");

        std::map<std::string, std::string> parents;
        std::map<std::string, const Joint*> joints;
        for (const Joint& joint : robot.joints) {
            EXPECT_TRUE(!joint.name.empty() && joints.emplace(joint.name, &joint).second) << joint.name;
            EXPECT_TRUE(parents.emplace(joint.child, joint.parent).second) << joint.child;
        }
        // As many joints as links but one, each to another child, and every way up ends: one tree.
        EXPECT_EQ(robot.joints.size() + 1, robot.links.size());
        std::set<std::string> links;
        for (const Link& link : robot.links) {
            EXPECT_TRUE(links.insert(link.name).second) << link.name;
            std::string above = link.name;
            for (std::size_t i = 0; i < robot.links.size() && parents.count(above); ++i) {
                above = parents.at(above);
            }
            EXPECT_EQ(parents.count(above), 0u) << link.name;
        }
        for (const Joint& joint : robot.joints) {
            EXPECT_TRUE(links.count(joint.parent) && links.count(joint.child)) << joint.name;
            EXPECT_TRUE(endsAtNoMimic(joints, joint)) << joint.name;
            if (joint.type == Type::Fixed) {
                continue; // the rest means nothing to it
            }
            EXPECT_LE(joint.lower, joint.upper);
            EXPECT_GE(joint.maximumEffort, 0.0);
            EXPECT_TRUE(joint.hasLimits || joint.type == Type::Continuous) << joint.name;
            const double length = joint.axis.length();
            EXPECT_TRUE(length > 1e-7 && length < 1e7) << length;
        }
        std::set<std::string> materials;
        for (const KrRobotDescription::Material& material : robot.materials) {
            EXPECT_TRUE(!material.look.isEmpty() && materials.insert(material.name).second) << material.name;
        }
        for (const Link& link : robot.links) {
            for (const KrRobotDescription::Shape& visual : link.visuals) {
                EXPECT_TRUE(visual.material.name.empty() || materials.count(visual.material.name));
            }
        }
    }
}

TEST(KrRobotRepair, TellsTheLineAndTheFileOfWhatItChanges)
{
    KrRobotDescription robot;
    robot.files = {"/a/arm.urdf", "/a/hand.urdf"};
    robot.name = "arm";
    robot.links.resize(2);
    robot.links[0].name = "base";
    robot.links[1].name = "hand";
    robot.links[1].place = {1, 7};
    KrImportReport report;
    std::string why;
    ASSERT_TRUE(KrRobotRepair::run(robot, {2, 1}, report, why)) << why;
    ASSERT_EQ(report.warnings().size(), 1u);
    EXPECT_EQ(report.warnings()[0].file, "/a/hand.urdf");
    EXPECT_EQ(report.warnings()[0].element, "link hand");
    EXPECT_EQ(report.warnings()[0].line, 7u);
    EXPECT_EQ(robot.joints.at(0).parent, "base");
}
