// What stands in a URDF file, by itself and against the format's own reader.

#include <tests/import/Bundle.h>

#include <import/KrImportOptions.h>
#include <import/description/KrRobotRepair.h>
#include <import/urdf/KrUrdfReader.h>

#include <gtest/gtest.h>
#include <urdf_parser/urdf_parser.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>

namespace
{

namespace fs = std::filesystem;
using Form = KrRobotDescription::Geometry::Form;
using Type = KrJointKinematics::Type;

struct Described
{
    bool ok = false;
    KrRobotDescription robot;
    KrImportReport report;
    std::string why;

    std::size_t warnings(const std::string& part) const
    {
        const auto holds = [&part](const auto& warning) { return warning.text.find(part) != std::string::npos; };
        return static_cast<std::size_t>(std::count_if(report.warnings().begin(), report.warnings().end(), holds));
    }
};

Described describe(const std::string& path, bool isRepaired)
{
    const KrImportOptions options;
    Described result;
    result.ok =
        KrUrdfReader::read(path, {options.maxRobotBytes, options.maxLinks}, result.robot, result.report, result.why) &&
        (!isRepaired ||
         KrRobotRepair::run(result.robot, {options.maxLinks, options.maxChain}, result.report, result.why));
    return result;
}

Described read(const std::string& content)
{
    const Bundle bundle;
    return describe(bundle.write("arm.urdf", robot(content)), false);
}

/// Those of the samples, and robot descriptions of several makers, which may stand beside the project.
std::vector<std::string> files()
{
    const fs::path source(KR_SOURCE_DIR);
    std::vector<std::string> found;
    for (const fs::path& folder : {source / "samples", source.parent_path() / "shared" / "robots"}) {
        std::error_code none;
        for (const auto& entry : fs::recursive_directory_iterator(folder, none)) {
            if (entry.path().extension() == ".urdf") {
                found.push_back(entry.path().string());
            }
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

void expectSame(const KrVector& ours, const urdf::Vector3& theirs)
{
    EXPECT_EQ(ours, KrVector(theirs.x, theirs.y, theirs.z));
}

/// Both turn and move a point in the same way.
void expectSame(const KrCoordinateSystemTransformation& ours, const urdf::Pose& theirs)
{
    for (const KrVector& point : {KrVector(1, 0, 0), KrVector(0, 1, 0), KrVector(0, 0, 1)}) {
        const urdf::Vector3 turned = theirs.rotation * urdf::Vector3(point.x(), point.y(), point.z());
        const KrVector moved(turned.x + theirs.position.x, turned.y + theirs.position.y, turned.z + theirs.position.z);
        EXPECT_NEAR((ours.transformPoint(point) - moved).length(), 0.0, 1e-12);
    }
}

void expectSame(const KrRobotDescription::Geometry& ours, const urdf::Geometry& theirs)
{
    switch (theirs.type) {
    case urdf::Geometry::BOX:
        ASSERT_EQ(ours.form, Form::Box);
        expectSame(ours.size, static_cast<const urdf::Box&>(theirs).dim);
        break;
    case urdf::Geometry::SPHERE:
        ASSERT_EQ(ours.form, Form::Sphere);
        EXPECT_EQ(ours.radius, static_cast<const urdf::Sphere&>(theirs).radius);
        break;
    case urdf::Geometry::CYLINDER:
        ASSERT_EQ(ours.form, Form::Cylinder);
        EXPECT_EQ(ours.radius, static_cast<const urdf::Cylinder&>(theirs).radius);
        EXPECT_EQ(ours.length, static_cast<const urdf::Cylinder&>(theirs).length);
        break;
    case urdf::Geometry::MESH:
        ASSERT_EQ(ours.form, Form::Mesh);
        EXPECT_EQ(ours.uri, static_cast<const urdf::Mesh&>(theirs).filename);
        expectSame(ours.scale, static_cast<const urdf::Mesh&>(theirs).scale);
        break;
    }
}

/// Visuals or collisions.
template <typename Theirs>
void expectSame(const std::vector<KrRobotDescription::Shape>& ours, const std::vector<Theirs>& theirs)
{
    ASSERT_EQ(ours.size(), theirs.size());
    for (std::size_t i = 0; i < ours.size(); ++i) {
        SCOPED_TRACE(ours[i].label);
        expectSame(ours[i].placement, theirs[i]->origin);
        expectSame(ours[i].geometry, *theirs[i]->geometry);
    }
}

void expectSame(const KrRobotDescription::Inertial& ours, const urdf::Inertial& theirs)
{
    expectSame(ours.frame, theirs.origin);
    EXPECT_EQ(ours.mass, theirs.mass);
    EXPECT_EQ(ours.inertia,
              (std::array<double, 6>{theirs.ixx, theirs.ixy, theirs.ixz, theirs.iyy, theirs.iyz, theirs.izz}));
}

void expectSame(const KrRobotDescription::Joint& ours, const urdf::Joint& theirs)
{
    const std::map<int, Type> types = {{urdf::Joint::FIXED, Type::Fixed},
                                       {urdf::Joint::REVOLUTE, Type::Revolute},
                                       {urdf::Joint::CONTINUOUS, Type::Continuous},
                                       {urdf::Joint::PRISMATIC, Type::Prismatic}};
    EXPECT_EQ(ours.type, types.at(theirs.type));
    EXPECT_EQ(ours.parent, theirs.parent_link_name);
    EXPECT_EQ(ours.child, theirs.child_link_name);
    expectSame(ours.origin, theirs.parent_to_joint_origin_transform);
    if (ours.type == Type::Fixed) {
        return;
    }
    expectSame(ours.axis, theirs.axis);
    ASSERT_EQ(ours.hasLimits, theirs.limits != nullptr);
    if (ours.hasLimits) {
        EXPECT_EQ(ours.lower, theirs.limits->lower);
        EXPECT_EQ(ours.upper, theirs.limits->upper);
        EXPECT_EQ(ours.maximumEffort, theirs.limits->effort);
        EXPECT_EQ(ours.maximumVelocity, theirs.limits->velocity);
    }
    ASSERT_EQ(!ours.mimicMaster.empty(), theirs.mimic != nullptr);
    if (theirs.mimic) {
        EXPECT_EQ(ours.mimicMaster, theirs.mimic->joint_name);
        EXPECT_EQ(ours.mimicMultiplier, theirs.mimic->multiplier);
        EXPECT_EQ(ours.mimicOffset, theirs.mimic->offset);
    }
}

class KrUrdfReaderMeasure : public testing::TestWithParam<std::string>
{
};

} // namespace

TEST_P(KrUrdfReaderMeasure, ReadsWhatTheFormatsOwnReaderReads)
{
    std::ostringstream text;
    text << std::ifstream(GetParam()).rdbuf();
    const urdf::ModelInterfaceSharedPtr theirs = urdf::parseURDF(text.str());
    if (!theirs) {
        GTEST_SKIP() << "the format's own reader refuses it";
    }
    const Described ours = describe(GetParam(), true);
    ASSERT_TRUE(ours.ok) << ours.why;
    EXPECT_EQ(ours.robot.name, theirs->getName());
    EXPECT_EQ(ours.robot.links.size(), theirs->links_.size());
    EXPECT_EQ(ours.robot.joints.size(), theirs->joints_.size());
    for (const KrRobotDescription::Link& link : ours.robot.links) {
        SCOPED_TRACE("link " + link.name);
        const urdf::LinkConstSharedPtr their = theirs->getLink(link.name);
        ASSERT_NE(their, nullptr);
        expectSame(link.visuals, their->visual_array);
        expectSame(link.collisions, their->collision_array);
        ASSERT_EQ(link.inertial.has_value(), their->inertial != nullptr);
        if (link.inertial) {
            expectSame(*link.inertial, *their->inertial);
        }
    }
    for (const KrRobotDescription::Joint& joint : ours.robot.joints) {
        SCOPED_TRACE("joint " + joint.name);
        const urdf::JointConstSharedPtr their = theirs->getJoint(joint.name);
        ASSERT_NE(their, nullptr);
        expectSame(joint, *their);
    }
}

INSTANTIATE_TEST_SUITE_P(All, KrUrdfReaderMeasure, testing::ValuesIn(files()), [](const auto& file) {
    std::string name = fs::path(file.param).filename().string();
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); }, '_');
    return name;
});

TEST(KrUrdfReader, AnglesTurnAboutFixedAxesInTheirOrder)
{
    const Described in = read("<link name=\"a\"><visual><origin rpy=\"1.5707963267948966 0 1.5707963267948966\"/>"
                              "<geometry><sphere radius=\"1\"/></geometry></visual></link>");
    ASSERT_TRUE(in.ok) << in.why;
    // Roll takes y to z, where yaw leaves it; yaw takes x to y. About the turned axes y would end at x.
    const KrCoordinateSystemTransformation& pose = in.robot.links[0].visuals[0].placement;
    EXPECT_NEAR((pose.transformPoint(KrVector(0, 1, 0)) - KrVector(0, 0, 1)).length(), 0.0, 1e-12);
    EXPECT_NEAR((pose.transformPoint(KrVector(1, 0, 0)) - KrVector(0, 1, 0)).length(), 0.0, 1e-12);
}

TEST(KrUrdfReader, EveryElementAndEveryWarningKnowsItsLine)
{
    const Described in = read("\n<link name=\"a\">\n<visual>\n<geometry><box size=\"1 x 1\"/><sphere radius=\"1\"/>"
                              "</geometry></visual></link>\n<link name=\"b\"/>\n"
                              "<joint name=\"j\" type=\"fixed\"><parent link=\"a\"/><child link=\"b\"/></joint>");
    ASSERT_TRUE(in.ok) << in.why;
    EXPECT_EQ(in.robot.place.line, 2u); // behind the XML declaration
    EXPECT_EQ(in.robot.links[0].place.line, 3u);
    EXPECT_EQ(in.robot.links[0].visuals[0].place.line, 4u);
    EXPECT_EQ(in.robot.links[1].place.line, 6u);
    EXPECT_EQ(in.robot.joints[0].place.line, 7u);
    ASSERT_EQ(in.report.warnings().size(), 1u);
    EXPECT_EQ(in.report.warnings()[0].line, 5u);
    // Beyond what 16 bits count.
    EXPECT_EQ(read(std::string(70000, '\n') + "<link name=\"a\"/>").robot.links.at(0).place.line, 70002u);
}

TEST(KrUrdfReader, WhatUrdfDoesNotKnowIsPassedOver)
{
    const Described in =
        read("<gazebo><link name=\"no\"/></gazebo><x:link xmlns:x=\"urn:x\" name=\"no\"/><transmission/>"
             "<link name=\"a\" colour=\"red\"><sensor/><visual number=\"1\"><geometry><sphere radius=\"1\"/></geometry>"
             "<meta/></visual></link>");
    ASSERT_TRUE(in.ok) << in.why;
    ASSERT_EQ(in.robot.links.size(), 1u);
    EXPECT_EQ(in.robot.links[0].visuals.size(), 1u);
    EXPECT_TRUE(in.report.warnings().empty()) << in.report.text();
}

TEST(KrUrdfReader, NumbersAreReadTheSameInEveryCountryAndNothingElseIsOne)
{
    const auto scaleOf = [](const std::string& text) {
        const Described in = read("<link name=\"a\"><visual><geometry><mesh filename=\"m\" scale=\"" + text +
                                  "\"/></geometry></visual></link>");
        return in.warnings("neither one nor three") ? KrVector() : in.robot.links.at(0).visuals.at(0).geometry.scale;
    };
    EXPECT_EQ(scaleOf(" 1e-3\t+2 \n-.5 "), KrVector(0.001, 2, -0.5));
    EXPECT_EQ(scaleOf("1,2,3"), KrVector(1, 2, 3)); // commas stand between, never for a point
    EXPECT_EQ(scaleOf("0.001"), KrVector(0.001, 0.001, 0.001));
    for (const char* const text : {"", "1 2", "1 2 3 4", "0x10", "1m", "nan", "inf", "1e999", "--1", "1 2 ${z}"}) {
        EXPECT_EQ(scaleOf(text), KrVector()) << text;
    }
}

TEST(KrUrdfReader, AFailureLeavesTheDescriptionAsItWas)
{
    const Bundle bundle;
    KrRobotDescription robot_;
    robot_.name = "before";
    KrImportReport report;
    std::string why;
    const std::string two = robot("<link name=\"a\"/><link name=\"b\"/><link name=\"a\"/>");
    EXPECT_FALSE(KrUrdfReader::read(bundle.write("two.urdf", two), {1000, 1}, robot_, report, why));
    EXPECT_EQ(why, "it has too many links; 1 are read");
    EXPECT_FALSE(KrUrdfReader::read(bundle.path("two.urdf"), {10, 9}, robot_, report, why));
    EXPECT_EQ(robot_.name, "before");
    // One that is there twice counts once.
    EXPECT_TRUE(KrUrdfReader::read(bundle.path("two.urdf"), {1000, 2}, robot_, report, why)) << why;
}
