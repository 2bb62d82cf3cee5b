#include <rendCore/KrRenderMassProperties.h>

#include <rendCore/KrRenderManipulator.h>
#include <rendCore/KrRenderShape.h>
#include <tests/rendCore/SceneSamples.h>
#include <tests/support/MessageRecorder.h>

#include <osg/StateSet>

#include <gtest/gtest.h>

namespace
{

using namespace SceneSamples;

/// A solid ball, whose ellipsoid is itself: I = 2/5 m r^2.
void makeBall(KrManipulatorLink& link, double radius)
{
    const double inertia = 0.4 * 10.0 * radius * radius;
    link.massProperties().setMass(10.0);
    link.massProperties().setCenterOfMass(KrVector(1.0, 2.0, 3.0));
    link.massProperties().setInertia({inertia, inertia, inertia, 0.0, 0.0, 0.0});
}

} // namespace

TEST(KrRenderMassProperties, EveryLinkWithAMassGetsItsEllipsoidUnderItsDhFrame)
{
    KrIndividualManipulator robot("robot");
    makeBall(robot, 1.0);
    KrManipulatorLink arm = hinge("arm"), light = hinge("light"), impossible = hinge("impossible");
    makeBall(arm, 0.5);
    impossible.massProperties().setMass(1.0);
    impossible.massProperties().setInertia({1.0, 1.0, 9.0, 0.0, 0.0, 0.0});
    robot.addChildLink(light);
    robot.addChildLink(arm);
    robot.addChildLink(impossible);
    const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 0);
    const osg::Group* base = node->getChild(0)->asGroup();
    const auto frameOf = [](const osg::Node* link) { return dynamic_cast<const KrRenderLink&>(*link).getDhFrame(); };

    const MessageRecorder messages;
    KrRenderMassProperties::init(node);
    // One message, for the inertia that no body can have; none for the link without mass.
    ASSERT_EQ(messages.count(), 1u);
    EXPECT_NE(messages.all().find("impossible"), std::string::npos);
    EXPECT_EQ(frameOf(base->getChild(1))->getNumChildren(), 0u);
    EXPECT_EQ(frameOf(base->getChild(3))->getNumChildren(), 0u);

    ASSERT_EQ(frameOf(base->getChild(2))->getNumChildren(), 1u);
    osg::Node* ellipsoid = frameOf(base->getChild(2))->getChild(0);
    EXPECT_EQ(ellipsoid->getName(), "arm - Mass Prop 1");
    EXPECT_EQ(ellipsoid->getNodeMask(), 8u);
    EXPECT_EQ(dynamic_cast<KrRenderShape*>(ellipsoid), nullptr);
    // A polyhedron inscribed in the ball: a percent or two inside it.
    const osg::BoundingBox bounds = ellipsoid->asGeode()->getBoundingBox();
    EXPECT_NEAR(bounds.xMax() - bounds.xMin(), 1.0, 0.04);
    EXPECT_NEAR(bounds.zMax() - bounds.zMin(), 1.0, 0.04);
    EXPECT_LT(distance(bounds.center(), osg::Vec3d(1.0, 2.0, 3.0)), 0.02);
    const osg::StateSet* state = ellipsoid->getStateSet();
    EXPECT_TRUE(state == nullptr || state->getRenderBinMode() == osg::StateSet::INHERIT_RENDERBIN_DETAILS);

    ASSERT_EQ(frameOf(base)->getNumChildren(), 1u);
    ellipsoid = frameOf(base)->getChild(0);
    EXPECT_EQ(ellipsoid->getName(), "robot - Mass Prop 4294967294");
    ASSERT_NE(ellipsoid->getStateSet(), nullptr);
    EXPECT_EQ(ellipsoid->getStateSet()->getBinNumber(), 11);
    EXPECT_EQ(ellipsoid->getStateSet()->getBinName(), "DepthSortedBin");

    KrRenderMassProperties::init(node);
    EXPECT_EQ(frameOf(base)->getNumChildren(), 2u);
    KrRenderMassProperties::init(nullptr);
}
