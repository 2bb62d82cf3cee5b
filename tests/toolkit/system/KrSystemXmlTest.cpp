#include "KrPoseCompare.h"
#include <tests/support/MessageRecorder.h>

#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/extent/KrSpherePhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <boost/make_shared.hpp>

#include <string>
#include <vector>

namespace
{

boost::shared_ptr<KrTriPhysicalExtent> triangle()
{
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    groups.push_back({std::string("paint"), KrXmlVectorType<KrTriangle>({KrTriangle(0, 1, 2)})});
    const auto result = boost::make_shared<KrTriPhysicalExtent>();
    EXPECT_TRUE(result->setMesh(KrXmlVectorVector({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}), {}, {}, groups));
    result->setMaterial("paint", KrDataMap::material(KrColor(1.0, 0.0, 0.5)));
    return result;
}

boost::shared_ptr<KrShape> shapeWithVolume(const boost::shared_ptr<KrBasePhysicalExtent>& extent)
{
    const auto shape = boost::make_shared<KrShape>(extent);
    shape->addBoundingVolume(boost::make_shared<KrShape>(boost::make_shared<KrSpherePhysicalExtent>(2.0)));
    shape->addBoundingVolume(
        boost::make_shared<KrShape>(boost::make_shared<KrBoxPhysicalExtent>(KrVector(1.0, 2.0, 3.0))));
    return shape;
}

/// Two wheels that share an extent, an arm with a gripper that mimics, a piston; every kind of component off its
/// default.
KrIndividualManipulator rover()
{
    KrIndividualManipulator result("rover");
    result.setPlacement(shift(1.0, 2.0, 3.0) * turn(KrVector(1.0, 1.0, 1.0), 0.4));
    result.setBaseDhFrame(turn(KrVector(0.0, 1.0, 0.0), 0.1));
    result.materialMap().set(std::string("red"), KrDataMap::material(KrColor(1.0, 0.0, 0.0, 0.5)));
    result.dataMaps().set(std::string("volume"), KrDataMap::blueColor());
    result.addShape(shapeWithVolume(triangle()));
    result.addShape(boost::shared_ptr<KrShape>());

    const boost::shared_ptr<KrBasePhysicalExtent> wheel = boost::make_shared<KrSpherePhysicalExtent>(0.3);
    wheel->setMaterialName("red");
    for (const std::string name : {"left wheel", "right <wheel> & \"tyre\""}) {
        KrManipulatorLink link(name);
        link.addShape(wheel);
        link.addCollisionShape(boost::make_shared<KrBoxPhysicalExtent>(KrVector(0.6, 0.1, 0.6)));
        link.addCollisionShape(wheel); // seen, too
        link.jointKinematics().setName(name);
        link.jointKinematics().setType(KrJointKinematics::Type::Continuous);
        link.jointKinematics().setAxis(KrVector(1.0, 2.0, -0.5));
        result.addChildLink(link);
    }

    KrManipulatorLink arm("arm");
    arm.setDeformable(true);
    arm.massProperties().setMass(2.5);
    arm.massProperties().setCenterOfMass(KrVector(0.1, 0.2, 0.3));
    arm.massProperties().setInertia({1.0, 2.0, 2.5, 0.1, -0.2, 0.3});
    KrJointKinematics& shoulder = arm.jointKinematics();
    shoulder.setDenavitHartenberg(KrJointKinematics::Type::Revolute, 0.1, 0.2, 0.3, 0.4);
    shoulder.setDhFrame(shift(0.0, 0.0, 0.1));
    shoulder.setName("shoulder");
    shoulder.setLimits(-1.0, 0.5);
    shoulder.setMaximumVelocity(2.0);
    shoulder.setMaximumEffort(50.0);
    KrManipulatorLink finger("finger");
    finger.jointKinematics().setType(KrJointKinematics::Type::Prismatic);
    finger.jointKinematics().setMimic("shoulder", 0.5, 0.01);
    arm.addChildLink(finger);
    result.addChildLink(arm);

    KrIntraLink piston("", KrVector(1.0, 0.0, 0.0), "arm", KrVector(0.0, 0.0, 1.0));
    piston.setShape(boost::make_shared<KrShape>(boost::make_shared<KrBoxPhysicalExtent>(KrVector(1.0, 0.1, 0.1))));
    result.intraLinks().addIntraLink(piston);
    return result;
}

KrVisualizableStatedSystem everything()
{
    KrVisualizableStatedSystem result;
    KrStatedSystem& system = result.statedSystem();
    system.manipulatorSystem().manipulators().push_back(rover());
    system.manipulatorSystem().manipulators().push_back(KrIndividualManipulator("ground"));
    system.systemChanged();
    KrManipulatorSystemState state = system.systemState();
    state.setTime(12.5);
    state.positionStates()[0].setBaseTransformation(shift(0.0, 1.0 / 3.0, 0.0));
    EXPECT_TRUE(system.setSystemState(state));
    EXPECT_TRUE(system.setJointPosition(0, "shoulder", 0.1));

    KrPovParameters pov;
    pov.setFromViewTransformationAndDistance(shift(5.0, 4.0, 3.0) * turn(KrVector(1.0, 0.0, 0.0), 0.3), 6.0);
    pov.setFieldOfView(0.9);
    KrRenderParameters render;
    render.setAutoClipping(false);
    render.setNearClipping(0.5);
    render.setFarClipping(20.0);
    render.setBackgroundColor(KrColor(0.1, 0.2, 0.3));
    KrLight light;
    light.setAtEye(true);
    light.setOn(false);
    light.setSpotCutoff(0.5);
    light.setDiffuse(KrColor(0.4, 0.5, 0.6));
    KrLightParameters lights;
    lights.lights().push_back(light);
    KrGUIObjectParameters gui;
    gui.setAxisScale(0.7);
    result.visualizationParameters().setPovParameters(pov);
    result.visualizationParameters().setRenderParameters(render);
    result.visualizationParameters().setLightParameters(lights);
    result.visualizationParameters().setGUIObjectParameters(gui);
    return result;
}

std::string documentOf(const KrXmlObject& object)
{
    std::string text;
    EXPECT_TRUE(object.writeBuffer(text));
    return text;
}

/// With the first `from` replaced by `to`.
std::string changed(std::string text, const std::string& from, const std::string& to)
{
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

} // namespace

TEST(KrSystemXml, AWholeSystemComesBackAsItWas)
{
    MessageRecorder messages;
    const KrVisualizableStatedSystem written = everything();
    const std::string document = documentOf(written);
    KrVisualizableStatedSystem read;
    ASSERT_TRUE(read.readBuffer(document.data(), document.size())) << messages.last();
    EXPECT_TRUE(read == written);
    EXPECT_EQ(documentOf(read), document);
    EXPECT_EQ(messages.take(), 0u);

    const KrIndividualManipulator& robot = read.statedSystem().manipulatorSystem().manipulators()[0];
    const std::vector<const KrManipulatorLink*> links = robot.links();
    ASSERT_EQ(links.size(), 4u);
    EXPECT_EQ(links[0]->shape()->physicalExtent(), links[1]->shape()->physicalExtent()); // shared still
    ASSERT_EQ(links[1]->numCollisionShapes(), 2u);
    EXPECT_NE(dynamic_cast<const KrBoxPhysicalExtent*>(links[1]->collisionShape(0)->physicalExtent()), nullptr);
    EXPECT_EQ(links[1]->collisionShape(1)->physicalExtent(), links[1]->shape()->physicalExtent());
    EXPECT_EQ(links[1]->collisionShape(1)->number(), 1u);
    EXPECT_EQ(links[1]->collisionShape(2), nullptr);
    EXPECT_EQ(links[1]->name(), "right <wheel> & \"tyre\"");
    bool deformable = false;
    links[2]->deformable(deformable);
    EXPECT_TRUE(deformable);
    EXPECT_EQ(robot.numShapes(), 2u);
    EXPECT_EQ(robot.shape(1), nullptr); // the missing one keeps its place
    EXPECT_EQ(robot.intraLinks().count(), 1u);
    std::vector<const KrShape*> volumes;
    robot.shape()->boundingVolumes(volumes, 5);
    ASSERT_EQ(volumes.size(), 1u);
    EXPECT_NE(dynamic_cast<const KrBoxPhysicalExtent*>(volumes[0]->physicalExtent()), nullptr);
    const KrXmlBasicType<double> finger = read.statedSystem().systemState().positionStates()[0].jointPositions()[3];
    EXPECT_NEAR(finger.value(), 0.06, 1e-12); // 0.5 * 0.1 + 0.01
    EXPECT_TRUE(written.selfTest());
}

TEST(KrSystemXml, EqualityNoticesEveryPart)
{
    const KrVisualizableStatedSystem original = everything();
    std::vector<KrVisualizableStatedSystem> others(8, original);
    const auto robot = [&others](int i) -> KrIndividualManipulator& {
        return others[i].statedSystem().manipulatorSystem().manipulators()[0];
    };
    robot(0).childLinks()[2].childLinks()[0].setName("thumb");
    robot(1).childLinks()[2].massProperties().setMass(2.6);
    robot(2).addShape(boost::make_shared<KrBoxPhysicalExtent>(KrVector(1.0, 1.0, 1.0)));
    robot(3).setPlacement(KrCoordinateSystemTransformation());
    robot(4).materialMap().erase(std::string("red"));
    EXPECT_TRUE(others[5].statedSystem().setJointPosition(0, "shoulder", 0.2));
    robot(7).childLinks()[0].addCollisionShape(boost::make_shared<KrSpherePhysicalExtent>(0.1));
    others[6].visualizationParameters().setPovParameters(KrPovParameters());
    for (const KrVisualizableStatedSystem& other : others) {
        EXPECT_FALSE(other == original);
        EXPECT_FALSE(original.equality(&other));
    }
    EXPECT_TRUE(KrVisualizableStatedSystem(original) == original);
    EXPECT_FALSE(original.equality(nullptr));
}

TEST(KrSystemXml, AHandWrittenFileNeedsLittle)
{
    const std::string document = "<visualizableStatedSystem xmlns=\"" + KrXmlNamespace::system() +
                                 "\"><statedSystem><manipulatorSystem><manipulators>"
                                 "<individualManipulator><name>door</name><childLinks><manipulatorLink>"
                                 "<jointKinematics><name>hinge</name><type>revolute</type>"
                                 "<lowerLimit>0.25</lowerLimit><upperLimit>2</upperLimit></jointKinematics>"
                                 "</manipulatorLink></childLinks></individualManipulator>"
                                 "</manipulators></manipulatorSystem></statedSystem></visualizableStatedSystem>";
    MessageRecorder messages;
    KrVisualizableStatedSystem read = everything();
    ASSERT_TRUE(read.readBuffer(document.data(), document.size()));
    EXPECT_EQ(messages.take(), 0u);
    const KrStatedSystem& system = read.statedSystem();
    ASSERT_EQ(system.systemState().positionStates().size(), 1u);
    EXPECT_EQ(system.systemState().positionStates()[0].jointPositions()[0].value(), 0.25);
    EXPECT_TRUE(read.visualizationParameters() == KrVisualizationParameters());
}

TEST(KrSystemXml, BadSystemsAreToldOnceAndChangeNothing)
{
    MessageRecorder messages;
    const KrVisualizableStatedSystem original = everything();
    const std::string document = documentOf(original);
    const std::string bad[] = {
        document.substr(0, document.size() / 2),
        changed(document, "<type>continuous</type>", "<type>round</type>"),
        changed(document, "<mass>2.5</mass>", "<mass>heavy</mass>"),
        changed(document, "<mass>2.5</mass>", "<mass>inf</mass>"),
        changed(document, "fieldOfView>0.9<", "fieldOfView>3.2<"),
        changed(document, "nearClipping>0.5<", "nearClipping>50<"),
        changed(document, "<deformable>true<", "<deformable>maybe<"),
        changed(document, "<name>finger</name>", "<nickname>finger</nickname>"),
        changed(document, "<time>12.5</time>", "<time>12.5</time><time>13</time>"),
        changed(document, "<time>12.5</time>", "<time>nan</time>"),
        changed(document, "<manipulatorSystem>", "<manipulatorSystem><!--").append("-->"),
        "<visualizableStatedSystem xmlns=\"" + KrXmlNamespace::system() + "\"/>",
        "",
    };
    KrVisualizableStatedSystem system = original;
    system.statedSystem().setNewSystem(false);
    for (const std::string& text : bad) {
        EXPECT_FALSE(system.readBuffer(text.data(), text.size(), "bad")) << text.substr(0, 200);
        EXPECT_EQ(messages.take(), 1u) << messages.last();
        EXPECT_NE(messages.last().find("bad"), std::string::npos) << messages.last();
    }
    EXPECT_TRUE(system == original);
    EXPECT_FALSE(system.statedSystem().isNewSystem());
}

TEST(KrShape, BoundingVolumesRunFromCoarseToFine)
{
    const boost::shared_ptr<KrShape> shape = shapeWithVolume(boost::make_shared<KrSpherePhysicalExtent>(1.0));
    shape->addBoundingVolume(boost::shared_ptr<KrShape>());
    std::vector<const KrShape*> all(1, nullptr);
    std::vector<const KrShape*> list;
    shape->boundingVolumes(all, 1);
    // Three that are computed, two that were added.
    ASSERT_EQ(all.size(), 5u);
    EXPECT_NE(dynamic_cast<const KrBoxPhysicalExtent*>(all[0]->physicalExtent()), nullptr);
    EXPECT_NE(dynamic_cast<const KrSpherePhysicalExtent*>(all[1]->physicalExtent()), nullptr);
    EXPECT_NE(dynamic_cast<const KrSpherePhysicalExtent*>(all[3]->physicalExtent()), nullptr);
    shape->boundingVolumes(list, 5);
    EXPECT_EQ(list, std::vector<const KrShape*>{all[4]});
    shape->boundingVolumes(list, 0);
    EXPECT_EQ(list, all);
    shape->boundingVolumes(list, 6);
    EXPECT_TRUE(list.empty());
    shape->boundingVolumes(list, 0xFFFFFFFFu);
    EXPECT_TRUE(list.empty());
}
