#include <import/description/KrRobotRepair.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

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

// A chain of 200 links whose joints come from the base on, from the tip on and in no order; behind them one that leads
// back to the base, one back to the middle and one to a link that is carried already.
TEST(KrRobotRepair, FindsCirclesAndLengthsHoweverJointsAreOrdered)
{
    constexpr std::size_t kLinks = 200;
    const auto joint = [](std::size_t parent, std::size_t child) {
        Joint result;
        result.parent = "l" + std::to_string(parent);
        result.child = "l" + std::to_string(child);
        result.name = result.parent + result.child;
        return result;
    };
    KrRobotDescription chain;
    chain.files = {"/a/arm.urdf"};
    chain.links.resize(kLinks);
    for (std::size_t i = 0; i < kLinks; ++i) {
        chain.links[i].name = "l" + std::to_string(i);
        if (i > 0) {
            chain.joints.push_back(joint(i - 1, i));
        }
    }
    const std::vector<Joint> ordered = chain.joints;
    for (unsigned int order = 0; order < 3; ++order) {
        SCOPED_TRACE(order);
        chain.joints = ordered;
        if (order == 1) {
            std::reverse(chain.joints.begin(), chain.joints.end());
        } else if (order == 2) {
            std::shuffle(chain.joints.begin(), chain.joints.end(), std::mt19937(7));
        }
        for (const Joint& bad : {joint(kLinks - 1, 0), joint(kLinks - 1, kLinks / 2), joint(0, kLinks - 1)}) {
            chain.joints.push_back(bad);
        }
        KrRobotDescription robot = chain;
        KrImportReport report;
        std::string why;
        ASSERT_TRUE(KrRobotRepair::run(robot, {kLinks, kLinks - 1}, report, why)) << why;
        EXPECT_EQ(robot.joints.size(), kLinks - 1);
        ASSERT_EQ(report.warnings().size(), 3u + 1u); // and the robot's name
        for (unsigned int i = 0; i < 3; ++i) {
            EXPECT_NE(report.warnings()[i].text.find(i < 2 ? "closes a circle" : "has a parent already"),
                      std::string::npos)
                << report.warnings()[i].text;
        }
        // One link less in a row, and it is refused.
        robot = chain;
        EXPECT_FALSE(KrRobotRepair::run(robot, {kLinks, kLinks - 2}, report, why));
        EXPECT_NE(why.find("chain of more than 198"), std::string::npos) << why;
    }
}
