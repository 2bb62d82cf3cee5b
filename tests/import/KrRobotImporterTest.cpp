#include "Bundle.h"

#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/extent/KrCapsulePhysicalExtent.h>
#include <toolkit/extent/KrCylinderPhysicalExtent.h>
#include <toolkit/extent/KrSpherePhysicalExtent.h>

#include <pthread.h>

#include <chrono>
#include <cmath>

namespace
{

using Type = KrJointKinematics::Type;

const char* const kBox = "<visual><geometry><box size=\"1 1 1\"/></geometry></visual>";

std::string link(const std::string& name, const std::string& content = "")
{
    return "<link name=\"" + name + "\">" + content + "</link>";
}

std::string joint(const std::string& name, const std::string& type, const std::string& parent, const std::string& child,
                  const std::string& content = "")
{
    return "<joint name=\"" + name + "\" type=\"" + type + "\"><parent link=\"" + parent + "\"/><child link=\"" +
           child + "\"/>" + content + "</joint>";
}

const std::string kLimit = "<limit lower=\"-1\" upper=\"2\" effort=\"3\" velocity=\"4\"/>";

class KrRobotImporterTest : public ::testing::Test
{
protected:
    Imported importText(const std::string& text) { return import(bundle.write("arm.urdf", text)); }
    Imported importRobot(const std::string& content) { return importText(robot(content)); }
    static const KrJointKinematics& kinematics(const Imported& in, const std::string& link)
    {
        return in.link(link).jointKinematics();
    }

    Bundle bundle;
};

TEST_F(KrRobotImporterTest, TreeJointsAndOrderAreTheDescriptions)
{
    const Imported in =
        importRobot(link("base", kBox) + link("z") + link("a") + link("tip") +
                    joint("j9", "revolute", "base", "z",
                          "<origin xyz=\"1 2 3\" rpy=\"0 0 1.5707963267948966\"/><axis xyz=\"0 0 2\"/>" + kLimit) +
                    joint("j1", "prismatic", "base", "a", kLimit) + joint("j5", "continuous", "z", "tip"));
    ASSERT_TRUE(in.ok);
    EXPECT_TRUE(in.report.warnings().empty()) << in.report.text();
    // The order of the description, depth first; not the alphabet's.
    EXPECT_EQ(in.robot().name(), "base");
    EXPECT_EQ(in.robot().jointIndex("j9"), 0);
    EXPECT_EQ(in.robot().jointIndex("j5"), 1);
    EXPECT_EQ(in.robot().jointIndex("j1"), 2);

    const KrJointKinematics& turning = kinematics(in, "z");
    EXPECT_EQ(turning.type(), Type::Revolute);
    EXPECT_EQ(turning.axis(), KrVector(0, 0, 1));
    EXPECT_EQ(turning.lowerLimit(), -1.0);
    EXPECT_EQ(turning.upperLimit(), 2.0);
    EXPECT_EQ(turning.maximumEffort(), 3.0);
    EXPECT_EQ(turning.maximumVelocity(), 4.0);
    EXPECT_EQ(kinematics(in, "a").axis(), KrVector(1, 0, 0)); // the format's default
    EXPECT_EQ(kinematics(in, "tip").type(), Type::Continuous);

    // A quarter turn about z and a shift: the child's x axis is the parent's y axis.
    const KrVector moved = turning.origin().transformPoint(KrVector(1, 0, 0));
    EXPECT_NEAR((moved - KrVector(1, 3, 3)).length(), 0.0, 1e-12);
    EXPECT_EQ(in.report.counts().links, 4u);
    EXPECT_EQ(in.report.counts().movableJoints, 3u);
    EXPECT_TRUE(in.system.isNewSystem());
    EXPECT_EQ(in.system.systemState().positionStates()[0].jointPositions().size(), 3u);
}

TEST_F(KrRobotImporterTest, InertiaIsTurnedIntoTheLinkFrame)
{
    const Imported in = importRobot(
        link("base", "<inertial><origin xyz=\"1 0 2\" rpy=\"0 0 1.5707963267948966\"/><mass value=\"5\"/>"
                     "<inertia ixx=\"1\" iyy=\"2\" izz=\"2.5\" ixy=\"0.1\" ixz=\"0.2\" iyz=\"0.3\"/></inertial>") +
        link("only_mass", "<inertial><mass value=\"7\"/></inertial>") +
        link("no_mass", "<inertial><inertia ixx=\"1\"/></inertial>") + joint("a", "fixed", "base", "only_mass") +
        joint("b", "fixed", "base", "no_mass"));
    const KrMassProperties& mass = in.robot().massProperties();
    EXPECT_EQ(mass.mass(), 5.0);
    EXPECT_EQ(mass.centerOfMass(), KrVector(1, 0, 2));
    // The inertial frame's x axis is the link's y axis, its y axis the link's -x axis.
    const std::array<double, 6> expected = {2.0, 1.0, 2.5, -0.1, -0.3, 0.2};
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_NEAR(mass.inertia()[i], expected[i], 1e-12) << i;
    }
    EXPECT_EQ(in.link("only_mass").massProperties().mass(), 7.0);
    EXPECT_FALSE(in.link("no_mass").massProperties().isGiven());
    EXPECT_EQ(in.warnings("link no_mass / inertial", "no mass"), 1u);
}

TEST_F(KrRobotImporterTest, SeveralVisualsAndCollisionsPerLink)
{
    const std::string shapes = "<visual><origin xyz=\"0 0 1\"/><geometry><sphere radius=\"0.5\"/></geometry></visual>"
                               "<visual><geometry><cylinder radius=\"0.5\" length=\"2\"/></geometry></visual>"
                               "<visual><geometry><capsule radius=\"0.5\" length=\"2\"/></geometry></visual>";
    const std::string volumes =
        "<collision><geometry><box size=\"1 1 1\"/></geometry></collision>"
        "<collision><origin xyz=\"5 0 0\"/><geometry><box size=\"1 1 1\"/></geometry></collision>";
    const Imported in = importRobot(link("base", volumes + shapes) + link("bare", volumes) + link("nothing") +
                                    joint("a", "fixed", "base", "bare") + joint("b", "fixed", "base", "nothing"));
    ASSERT_EQ(in.robot().numShapes(), 3u);
    EXPECT_EQ(in.robot().shape(0)->physicalExtent()->placement().translation(), KrVector(0, 0, 1));
    EXPECT_NE(dynamic_cast<const KrCapsulePhysicalExtent*>(in.robot().shape(2)->physicalExtent()), nullptr);

    // Both collision boxes are in the one volume that a viewer shows.
    std::vector<const KrShape*> list;
    in.robot().shape()->boundingVolumes(list, 1);
    ASSERT_EQ(list.size(), 4u);
    const KrTriPhysicalExtent& whole = *list[3]->physicalExtent()->triExtent();
    EXPECT_NEAR(volume(whole), 2.0, 1e-12);
    EXPECT_NEAR(worstNormal(whole), 1.0, 1e-12);
    EXPECT_NE(in.robot().dataMaps().find(whole.groupName(0)), nullptr);
    for (const std::string name : {"base", "bare"}) {
        const KrManipulatorLink& link = in.link(name);
        EXPECT_EQ(link.numShapes(), name == "base" ? 3u : 0u);
        ASSERT_EQ(link.numCollisionShapes(), 2u) << name;
        EXPECT_NE(dynamic_cast<const KrBoxPhysicalExtent*>(link.collisionShape(1)->physicalExtent()), nullptr);
        EXPECT_EQ(link.collisionShape(1)->physicalExtent()->placement().translation(), KrVector(5, 0, 0));
    }
    EXPECT_EQ(in.link("nothing").numCollisionShapes(), 0u);
    EXPECT_TRUE(in.report.warnings().empty()) << in.report.text();
    EXPECT_EQ(in.report.counts().visuals, 3u);
    EXPECT_EQ(in.report.counts().collisions, 4u);
}

TEST_F(KrRobotImporterTest, AMeshThatIsSeenAndCollidesIsOne)
{
    bundle.write("a.stl", stl(box(1, 2, 3)));
    bundle.write("b.stl", stl(box(3, 2, 1)));
    const auto element = [](const std::string& kind, const std::string& mesh, const std::string& rest = "") {
        return "<" + kind + ">" + rest + "<geometry><mesh filename=\"" + mesh + "\"/></geometry></" + kind + ">";
    };
    const std::string moved = "<origin xyz=\"0 0 1\"/>";
    const std::string red = "<material name=\"red\"><color rgba=\"1 0 0 1\"/></material>";
    const Imported in = importRobot(
        link("base", element("visual", "a.stl", red) + element("collision", "a.stl") +
                         element("collision", "a.stl", moved) + element("collision", "b.stl")) +
        link("single", element("visual", "a.stl", red) + element("collision", "a.stl")) +
        link("sphere", "<collision><geometry><sphere radius=\"1\"/></geometry></collision>"
                       "<collision><geometry><cylinder radius=\"1\" length=\"2\"/></geometry></collision>") +
        joint("a", "fixed", "base", "single") + joint("b", "fixed", "base", "sphere"));
    ASSERT_TRUE(in.ok);
    const auto collision = [&in](const std::string& name, unsigned int i) {
        return in.link(name).collisionShape(i)->physicalExtent();
    };
    const KrBasePhysicalExtent* const seen = in.robot().shape()->physicalExtent();
    ASSERT_EQ(in.robot().numCollisionShapes(), 3u);
    EXPECT_EQ(collision("base", 0), seen);
    EXPECT_NE(collision("base", 1), seen) << "it stands elsewhere";
    EXPECT_EQ(collision("single", 0), seen);
    EXPECT_NE(dynamic_cast<const KrSpherePhysicalExtent*>(collision("sphere", 0)), nullptr);
    EXPECT_NE(dynamic_cast<const KrCylinderPhysicalExtent*>(collision("sphere", 1)), nullptr);

    // The volume of a mesh that is seen has a look of its own, and is what it was although it is made when it is asked
    // for.
    auto* const changed = dynamic_cast<KrTriPhysicalExtent*>(in.link("single").shape()->mutablePhysicalExtent());
    ASSERT_NE(changed, nullptr);
    ASSERT_TRUE(changed->setMesh(KrXmlVectorVector({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}), {}, {},
                                 KrXmlVectorType<KrTriPhysicalExtent::Group>(
                                     {{std::string("one"), KrXmlVectorType<KrTriangle>({KrTriangle(0, 1, 2)})}})));
    std::vector<const KrShape*> list;
    in.link("single").shape()->boundingVolumes(list, 4);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_NE(list[0]->physicalExtent(), seen);
    EXPECT_EQ(list[0]->physicalExtent()->groupName(0), "collision");
    EXPECT_NEAR(volume(*list[0]->physicalExtent()->triExtent()), 6.0, 1e-9);
    in.robot().shape()->boundingVolumes(list, 4);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_NEAR(volume(*list[0]->physicalExtent()->triExtent()), 18.0, 1e-9) << "with one that stands elsewhere";
    for (const KrImportReport::Mesh& mesh : in.report.meshes()) {
        EXPECT_EQ(mesh.triangles, 12u) << mesh.link << " " << mesh.element;
    }
}

TEST_F(KrRobotImporterTest, ARobotOfCollisionGeometryOnlySaysSo)
{
    const Imported in = importRobot(link("base", "<collision><geometry><box size=\"1 1 1\"/></geometry></collision>"));
    EXPECT_EQ(in.robot().numCollisionShapes(), 1u);
    EXPECT_EQ(in.report.counts().triangles, 0u);
    EXPECT_EQ(in.warnings("robot", "there is collision geometry only"), 1u);
    EXPECT_EQ(in.warnings("robot", "nothing to draw"), 0u);
}

TEST_F(KrRobotImporterTest, SizeZeroDrawsNothingAndHarmsNothing)
{
    const auto visual = [](const std::string& form) { return "<visual><geometry>" + form + "</geometry></visual>"; };
    const Imported in =
        importRobot(link("base", visual("<sphere radius=\"0\"/>") + visual("<box size=\"0 0 0\"/>") +
                                     visual("<box size=\"1 0 0\"/>") + visual("<cylinder radius=\"0\" length=\"1\"/>") +
                                     visual("<box/>") + visual("") + visual("<sphere radius=\"ten\"/>") +
                                     visual("<torus radius=\"1\"/>") + "<visual/>" + visual("<box size=\"-1 1 1\"/>")));
    ASSERT_TRUE(in.ok);
    ASSERT_EQ(in.robot().numShapes(), 1u);
    EXPECT_NEAR(volume(in.mesh("base")), 1.0, 1e-12);
    for (int i = 1; i <= 4; ++i) {
        EXPECT_EQ(in.warnings("link base / visual " + std::to_string(i), "zero"), 1u) << i;
    }
    for (int i = 5; i <= 9; ++i) {
        EXPECT_EQ(in.warnings("link base / visual " + std::to_string(i), "no geometry"), 1u) << i;
    }
}

TEST_F(KrRobotImporterTest, MaterialsByNameInlineAndWithoutName)
{
    const auto visual = [](const std::string& material) {
        return "<visual><geometry><box size=\"1 1 1\"/></geometry>" + material + "</visual>";
    };
    const auto colour = [](const std::string& rgba) { return "<color rgba=\"" + rgba + "\"/>"; };
    const Imported in =
        importRobot("<material name=\"steel\">" + colour("0.5 0.5 0.5 1") + "</material>" +
                    link("base", visual("<material name=\"steel\"/>") + visual("<material name=\"late\"/>") +
                                     visual("<material name=\"\">" + colour("1 0 0 1") + "</material>") +
                                     visual("<material>" + colour("0 1 0 1") + "</material>") +
                                     visual("<material name=\"late\">" + colour("0 0 1 0.25") + "</material>") +
                                     visual("<material name=\"steel\">" + colour("0.1 0.1 0.1 1") + "</material>") +
                                     visual("<material name=\"unknown\"/>") + visual("") +
                                     visual("<material name=\"byte\">" + colour("255 0 51") + "</material>") +
                                     visual("<material name=\"bad\">" + colour("a b") + "</material>")));
    const auto redOf = [&in](unsigned int i) {
        return real(in.look(in.robot().shape(i)->physicalExtent()->groupName(0)), "krDiffuseRed");
    };
    ASSERT_EQ(in.robot().numShapes(), 10u);
    const double expected[10] = {0.5, 0.0, 1.0, 0.0, 0.0, 0.1, -1.0, -1.0, 1.0, -1.0}; // -1: the default
    for (unsigned int i = 0; i < 10; ++i) {
        EXPECT_NEAR(redOf(i), expected[i], 1e-6) << i;
    }
    EXPECT_EQ(real(in.look("late"), "krDiffuseAlpha"), 0.25);
    EXPECT_GE(real(in.look("late"), "krAmbientBlue"), 0.0);
    EXPECT_EQ(in.warnings("link base / visual 7", "not defined"), 1u);
    EXPECT_EQ(in.warnings("link base / visual 9", "bytes"), 1u);
    EXPECT_EQ(in.warnings("link base / visual 10", "not four numbers"), 1u);
    EXPECT_EQ(in.report.warnings().size(), 3u) << in.report.text();
}

TEST_F(KrRobotImporterTest, WhatCanBeMendedIsMendedWithAWarning)
{
    Imported in = importText("\n  <?xml version=\"1.0\"?><robot>" + link("base", kBox) + "</robot>");
    EXPECT_EQ(in.warnings("robot", "no name"), 1u) << in.printed;
    EXPECT_EQ(in.report.robot(), "arm");

    in = importRobot(link("base", kBox) + joint("j", "fixed", "world", "base") + joint("k", "fixed", "base", "tool"));
    EXPECT_EQ(in.robot().name(), "world");
    EXPECT_EQ(in.warnings("joint j", "\"world\" is not defined"), 1u);
    EXPECT_EQ(in.warnings("joint k", "\"tool\" is not defined"), 1u);

    // The larger tree is the robot.
    in = importRobot(link("stray", kBox) + link("base", kBox) + link("tip") + joint("j", "fixed", "base", "tip"));
    EXPECT_EQ(in.robot().name(), "base");
    EXPECT_EQ(in.robot().numJoints(), 2u);
    EXPECT_EQ(in.warnings("link stray", "no parent"), 1u);

    in = importRobot(link("base", kBox) + link("tip") +
                     joint("j", "revolute", "base", "tip", "<limit lower=\"-1\" upper=\"1\"/>"));
    EXPECT_EQ(in.warnings("joint j / limit", "no effort and no velocity"), 1u);
    EXPECT_EQ(kinematics(in, "tip").upperLimit(), 1.0);

    in = importRobot(link("base", kBox) + link("a") + link("b") + link("c") + joint("ja", "revolute", "base", "a") +
                     joint("jb", "planar", "base", "b") +
                     joint("jc", "revolute", "base", "c",
                           "<axis xyz=\"0 0 0\"/><limit lower=\"2\" upper=\"-2\" effort=\"x\" velocity=\"1\"/>") +
                     joint("jd", "fixed", "a", "b") + joint("ja", "fixed", "c", "a") + joint("je", "fixed", "c", "") +
                     link("a") + "<link/>");
    EXPECT_EQ(kinematics(in, "a").type(), Type::Continuous);
    EXPECT_EQ(kinematics(in, "b").type(), Type::Fixed);
    EXPECT_EQ(kinematics(in, "c").lowerLimit(), -2.0);
    EXPECT_EQ(kinematics(in, "c").axis(), KrVector(1, 0, 0));
    EXPECT_EQ(in.robot().numJoints(), 3u);
    for (const auto& [element, part] : {std::pair<const char*, const char*>{"joint ja", "without limits"},
                                        {"joint jb", "\"planar\""},
                                        {"joint jc / axis", "no direction"},
                                        {"joint jc / limit", "exchanged"},
                                        {"joint jc / limit", "effort"},
                                        {"joint jd", "has a parent already"},
                                        {"joint ja", "there twice"},
                                        {"joint je", "parent and a child"},
                                        {"link a", "there twice"},
                                        {"link", "without a name"}}) {
        EXPECT_GE(in.warnings(element, part), 1u) << element << " " << part << "\n" << in.report.text();
    }
}

TEST_F(KrRobotImporterTest, CirclesOfLinksAreCut)
{
    const Imported in =
        importRobot(link("a", kBox) + link("b") + link("c") + joint("ab", "fixed", "a", "b") +
                    joint("bc", "fixed", "b", "c") + joint("ca", "fixed", "c", "a") + joint("cc", "fixed", "c", "c"));
    ASSERT_TRUE(in.ok);
    EXPECT_EQ(in.robot().name(), "a");
    EXPECT_EQ(in.robot().numJoints(), 2u);
    EXPECT_EQ(in.warnings("joint ca", "circle"), 1u);
    EXPECT_EQ(in.warnings("joint cc", "circle"), 1u);
}

TEST_F(KrRobotImporterTest, MimicsFollowAndUnknownMastersAreIgnored)
{
    const auto mimic = [](const std::string& master) {
        return "<mimic joint=\"" + master + "\" multiplier=\"-2\" offset=\"0.5\"/>";
    };
    Imported in = importRobot(
        link("base", kBox) + link("a") + link("b") + link("c") + link("d") + link("e") +
        joint("ja", "continuous", "base", "a") + joint("jb", "continuous", "base", "b", mimic("ja")) +
        joint("jc", "continuous", "base", "c", mimic("gone")) + joint("jd", "continuous", "base", "d", mimic("je")) +
        joint("je", "continuous", "base", "e", mimic("jd")));
    EXPECT_EQ(kinematics(in, "b").mimicMaster(), "ja");
    EXPECT_FALSE(kinematics(in, "c").isMimic());
    EXPECT_EQ(in.warnings("joint jc / mimic", "does not exist"), 1u);
    EXPECT_EQ(in.warnings("joint jd / mimic", "follows itself"), 1u);
    EXPECT_FALSE(kinematics(in, "d").isMimic());
    EXPECT_TRUE(kinematics(in, "e").isMimic());

    ASSERT_TRUE(in.system.setJointPosition(0, "ja", 1.0));
    const auto& positions = in.system.systemState().positionStates()[0].jointPositions();
    EXPECT_NEAR(positions[1], -1.5, 1e-12);
    // The circle opens at its first joint, though another one leads into it.
    in = importRobot(link("base", kBox) + joint("ja", "continuous", "base", "a", mimic("jc")) +
                     joint("jb", "continuous", "base", "b", mimic("jc")) +
                     joint("jc", "continuous", "base", "c", mimic("jb")) +
                     joint("jd", "continuous", "base", "d", mimic("jd")));
    EXPECT_TRUE(kinematics(in, "a").isMimic() && kinematics(in, "c").isMimic());
    EXPECT_FALSE(kinematics(in, "b").isMimic() || kinematics(in, "d").isMimic());
}

TEST_F(KrRobotImporterTest, ThousandsOfJointsAreReadAtOnceAndTooManyRefused)
{
    std::string many;
    for (int i = 0; i < 9990; ++i) {
        many += joint(i % 2 ? "same" : "j" + std::to_string(i), "continuous", "base", "l" + std::to_string(i),
                      "<mimic joint=\"j" + std::to_string(i + 2 - i % 2) + "\"/>");
    }
    const auto started = std::chrono::steady_clock::now();
    const Imported in = importRobot(link("base", kBox) + many);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(20));
    EXPECT_EQ(in.report.counts().joints, 9990u);
    EXPECT_EQ(kinematics(in, "l9989").name(), "same 4995");

    for (int i = 0; i < 11; ++i) {
        many += joint("x" + std::to_string(i), "fixed", "base", "m" + std::to_string(i % 9));
    }
    const Imported refused = importText(robot(link("base", kBox) + many));
    EXPECT_FALSE(refused.ok);
    EXPECT_NE(refused.printed.find("too many joints"), std::string::npos) << refused.printed;
}

TEST_F(KrRobotImporterTest, OriginsTooFarToBeDrawnAreLeftOut)
{
    const Imported in = importRobot(link("base", kBox) + link("a") +
                                    joint("ja", "fixed", "base", "a", "<origin xyz=\"0 1e39 0\" rpy=\"0 0 1\"/>"));
    EXPECT_EQ(kinematics(in, "a").origin().translation(), KrVector());
    EXPECT_EQ(in.warnings("joint ja / origin", "too large"), 1u);
}

TEST_F(KrRobotImporterTest, ImpossibleValuesAreMendedWithAMessage)
{
    const auto visual = [](const std::string& shape) { return "<visual><geometry>" + shape + "</geometry></visual>"; };
    const Imported in = importRobot(
        link("base", visual("<box size=\"1 -2 3\"/>") + visual("<sphere radius=\"1e300\"/>") +
                         visual("<cylinder radius=\"-1\" length=\"nan\"/>") + visual("<box size=\"1 inf 1\"/>") +
                         "<inertial><mass value=\"1e200\"/></inertial>") +
        joint("ja", "revolute", "base", "a",
              "<limit lower=\"-1e308\" upper=\"1e308\" effort=\"-3\" velocity=\"1e300\"/><axis xyz=\"0 0 1e30\"/>") +
        joint("jb", "continuous", "a", "b", "<mimic joint=\"ja\" multiplier=\"1e300\" offset=\"inf\"/>"));
    ASSERT_TRUE(in.ok);
    EXPECT_EQ(in.printed, ""); // no setter had anything to refuse
    EXPECT_EQ(in.warnings("link base / visual 1", "negative"), 1u);
    EXPECT_EQ(in.warnings("link base / visual 2", "too large"), 1u);
    EXPECT_EQ(in.warnings("link base / visual 3", "negative"), 1u);
    EXPECT_EQ(in.warnings("link base / visual 3", "not a number"), 1u);
    EXPECT_EQ(in.warnings("link base / visual 4", "not 3 numbers"), 1u);
    EXPECT_EQ(in.warnings("link base / inertial", "too large"), 1u);
    EXPECT_EQ(in.robot().numShapes(), 1u);
    EXPECT_FALSE(in.robot().massProperties().isGiven());
    const KrJointKinematics& ja = kinematics(in, "a");
    EXPECT_EQ(ja.axis(), KrVector(0, 0, 1));
    EXPECT_GT(ja.upperLimit(), 1e30);
    EXPECT_EQ(ja.maximumEffort(), 3.0);
    EXPECT_EQ(in.warnings("joint ja / limit", "out of reach"), 2u);
    EXPECT_EQ(kinematics(in, "b").mimicMultiplier(), 1.0);
    EXPECT_EQ(kinematics(in, "b").mimicOffset(), 0.0);
}

TEST_F(KrRobotImporterTest, LongNamesNeitherTakeTimeNorFillTheScreen)
{
    std::string path;
    for (int i = 0; i < 100000; ++i) {
        path += "a/";
    }
    const auto started = std::chrono::steady_clock::now();
    const Imported in = importText(meshRobot("package://" + path + "b.stl"));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
    EXPECT_EQ(in.warnings("link base / visual 1", "no file has a name of 200015 bytes"), 1u);
    // As long as a name may be, and every folder of it is tried.
    EXPECT_EQ(importText(meshRobot(path.substr(0, 4000) + "b.stl")).report.counts().missingMeshes, 1u);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));

    const std::string name(20000, 'x');
    for (const std::string& text :
         {meshRobot(name), robot(link(name, kBox) + joint(name, name, name, name)), "<" + name + "/>",
          "<robot " + name + ">",
          robot(link("b", "<visual><geometry><box size=\"" + name + "\"/></geometry><material name=\"" + name +
                              "\"/></visual>"))}) {
        const Imported long_ = importText(text);
        for (std::size_t at = 0; at < long_.report.text().size();) {
            const std::size_t end = long_.report.text().find('\n', at);
            EXPECT_LT(end - at, 1500u) << long_.report.text().substr(at, 80);
            at = end + 1;
        }
        EXPECT_LT(long_.printed.size(), 3000u) << long_.printed.substr(0, 200);
    }
}

TEST_F(KrRobotImporterTest, BytesThatAreNoUtf8AreReadAsLatin1)
{
    const std::string text = robot(link("gr\xFCn", kBox));
    Imported in = importText(text);
    ASSERT_TRUE(in.ok) << in.printed;
    EXPECT_EQ(in.robot().name(), "gr\xC3\xBCn");
    EXPECT_EQ(in.warnings("robot", "Latin-1"), 1u);
    in = importText("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + text.substr(text.find("<robot")));
    EXPECT_EQ(in.robot().name(), "gr\xC3\xBCn");
    EXPECT_EQ(in.warnings("robot", "Latin-1"), 0u); // it says so itself
    EXPECT_TRUE(in.system.writeFile(bundle.path("system.xml")));
}

TEST_F(KrRobotImporterTest, TheLongestChainNeedsNoLargeStack)
{
    std::string chain = link("l0", kBox);
    for (int i = 0; i < 500; ++i) {
        chain += link("l" + std::to_string(i + 1), kBox) +
                 joint("j" + std::to_string(i), "continuous", "l" + std::to_string(i), "l" + std::to_string(i + 1));
    }
    struct Import
    {
        std::string path;
        bool ok = false;
    } job{bundle.write("arm.urdf", robot(chain))};
    const auto run = [](void* argument) -> void* {
        Import& import = *static_cast<Import*>(argument);
        KrStatedSystem system;
        KrImportReport report;
        import.ok = KrRobotImporter::readFile(import.path, {}, system, report);
        return nullptr;
    };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{512} << 10);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &job), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_TRUE(job.ok);
}

TEST_F(KrRobotImporterTest, SaysWhenMacrosRemainOrNothingIsThereToDraw)
{
    Imported in =
        importText("<robot name=\"r\" xmlns:xacro=\"http://ros.org/wiki/xacro\"><xacro:include "
                   "filename=\"x\"/><xacro:arm/>" +
                   link("base", "<visual><geometry><box size=\"${w} 1 1\"/></geometry></visual>") + "</robot>");
    ASSERT_TRUE(in.ok);
    EXPECT_EQ(in.warnings("robot", "xacro not expanded: 2 elements (xacro:arm, xacro:include) and 1 expressions"), 1u);
    EXPECT_EQ(in.warnings("robot", "nothing to draw"), 1u);

    in = importText("<robot name=\"r\"><xacro:arm/></robot>"); // the prefix is not even declared
    EXPECT_FALSE(in.ok);
    EXPECT_NE(in.printed.find("xacro not expanded"), std::string::npos) << in.printed;
    EXPECT_EQ(importRobot(link("base")).warnings("robot", "nothing to draw"), 1u);
}

TEST_F(KrRobotImporterTest, WhatHoldsNoRobotIsRefusedWithOneMessage)
{
    std::string chain;
    for (int i = 0; i < 3000; ++i) {
        chain += link("l" + std::to_string(i)) +
                 joint("j" + std::to_string(i), "fixed", "l" + std::to_string(i), "l" + std::to_string(i + 1));
    }
    std::string laughs = "<!DOCTYPE r [<!ENTITY a \"haha\">";
    for (char c = 'b'; c < 'z'; ++c) {
        laughs += std::string("<!ENTITY ") + c + " \"";
        for (int i = 0; i < 10; ++i) {
            laughs += std::string("&") + static_cast<char>(c - 1) + ";";
        }
        laughs += "\">";
    }
    std::string deep;
    for (int i = 0; i < 100000; ++i) {
        deep += "<a>";
    }
    const std::pair<std::string, std::string> texts[] = {
        {"", "empty"},
        {" \n", "empty"},
        {robot("<link name=\"a\">"), "line"},
        {"\x7f"
         "ELF\x02\x01",
         "no XML"},
        {std::string(5000, '\0'), "no XML"},
        {"<sdf version=\"1.6\"><model/></sdf>", "<sdf>"},
        {robot(""), "no links"},
        {robot(chain), "chain"},
        {laughs + "]><robot name=\"&y;\">" + link("a", kBox) + "</robot>", ""},
        {"<!DOCTYPE r [<!ENTITY x SYSTEM \"file:///etc/hostname\">]><robot name=\"r\">&x;" + link("a", kBox) +
             "</robot>",
         "entities"},
        {"<robot>" + deep, ""}};
    KrStatedSystem before;
    const auto started = std::chrono::steady_clock::now();
    for (const auto& [text, part] : texts) {
        const Imported in = importText(text);
        EXPECT_FALSE(in.ok) << text.substr(0, 60);
        EXPECT_NE(in.printed.find("arm.urdf"), std::string::npos) << in.printed;
        EXPECT_NE(in.printed.find(part), std::string::npos) << in.printed;
        EXPECT_EQ(std::count(in.printed.begin(), in.printed.end(), '\n'), 1) << in.printed;
        EXPECT_TRUE(in.system == before);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(20));
    for (const std::string& path : {bundle.path("gone.urdf"), bundle.path(""), std::string()}) {
        EXPECT_FALSE(import(path).ok) << path;
    }
}

TEST_F(KrRobotImporterTest, AFailureLeavesTheSystemAsItWas)
{
    Imported in = importRobot(link("base", kBox));
    ASSERT_TRUE(in.ok);
    in.system.setNewSystem(false);
    MessageRecorder messages;
    EXPECT_FALSE(KrRobotImporter::readFile(bundle.write("bad.urdf", "<robot"), {}, in.system, in.report));
    EXPECT_EQ(messages.count(), 1u);
    EXPECT_EQ(in.robot().name(), "base");
    EXPECT_FALSE(in.system.isNewSystem());
    EXPECT_EQ(in.report.file(), bundle.path("bad.urdf"));
}

} // namespace
