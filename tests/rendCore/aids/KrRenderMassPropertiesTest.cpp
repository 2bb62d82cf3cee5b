#include <rendCore/aids/KrRenderMassProperties.h>

#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/model/KrRenderShape.h>
#include <tests/support/MessageRecorder.h>
#include <tests/support/SceneSamples.h>

#include <osg/Geometry>
#include <osg/StateSet>

#include <gtest/gtest.h>

#include <cmath>

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

    MessageRecorder messages;
    KrRenderMassProperties::init(node);
    EXPECT_EQ(messages.count(), 0u) << "the window tells when the aid is shown";
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
    EXPECT_EQ(messages.count(), 0u) << "told once";
    KrRenderMassProperties::init(nullptr);

    const osg::ref_ptr<KrRenderLink> bareLink = new BareLink(arm, 0, 0, KrMaterialMap());
    KrRenderMassProperties::init(bareLink);
    EXPECT_EQ(bareLink->getChild(0)->asGroup()->getNumChildren(), 0u) << "no DH frame is told";
}

TEST(KrRenderMassProperties, TheEllipsoidOfATurnedBoxIsTurnedInTheWorld)
{
    // A solid box of 1 x 2 x 3 m and 12 kg has the moments 13, 10 and 5 kg m^2 about its edges. It stands at (1, 2, 3)
    // of its link, a third of a turn about (1, 1, 1): the first edge along y, the second along z, the third along x.
    KrIndividualManipulator robot("robot");
    KrManipulatorLink link = hinge("box");
    link.massProperties().setMass(12.0);
    link.massProperties().setCenterOfMass(KrVector(1.0, 2.0, 3.0));
    link.massProperties().setInertia({5.0, 13.0, 10.0, 0.0, 0.0, 0.0});
    robot.addChildLink(link);
    // One more, an eighth of a turn about z: moments 9 and 9, product (13 - 5) / 2 = 4 with the sign of -integral x y.
    KrManipulatorLink skew = hinge("skew");
    skew.massProperties() = link.massProperties();
    skew.massProperties().setInertia({9.0, 9.0, 10.0, -4.0, 0.0, 0.0});
    robot.addChildLink(skew);
    const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 0);
    // The base is moved by (10, 0, 0); row vectors.
    const osg::ref_ptr<osg::MatrixTransform> world = new osg::MatrixTransform(osg::Matrixd::translate(10.0, 0.0, 0.0));
    world->addChild(node);
    KrRenderMassProperties::init(world);

    const double s = std::sqrt(5.0 / 12.0); // semi-axes are the edges times this
    const double h = std::sqrt(0.5);
    const struct
    {
        unsigned int child;
        osg::Vec3d edges[3]; // along the edges of 1, 2 and 3 m
    } cases[] = {
        {1, {{0, 1, 0}, {0, 0, 1}, {1, 0, 0}}},
        {2, {{h, -h, 0}, {0, 0, 1}, {h, h, 0}}}, // the least moment, 9 - 4, lies along (1, 1, 0)
    };
    for (const auto& expected : cases) {
        const auto* const renderLink =
            dynamic_cast<const KrRenderLink*>(node->getChild(0)->asGroup()->getChild(expected.child));
        ASSERT_NE(renderLink, nullptr);
        osg::Node* const ellipsoid = renderLink->getDhFrame()->getChild(0);
        const osg::Matrixd toWorld = ellipsoid->getWorldMatrices().front();
        const auto& vertices =
            dynamic_cast<const osg::Vec3Array&>(*ellipsoid->asGeode()->getDrawable(0)->asGeometry()->getVertexArray());
        ASSERT_GT(vertices.size(), 500u);
        for (const osg::Vec3& vertex : vertices) {
            const osg::Vec3d offset = osg::Vec3d(vertex) * toWorld - osg::Vec3d(11.0, 2.0, 3.0);
            double sum = 0.0;
            for (unsigned int i = 0; i < 3; ++i) {
                const double part = (offset * expected.edges[i]) / (s * (i + 1));
                sum += part * part;
            }
            ASSERT_NEAR(sum, 1.0, 1e-4) << "link " << expected.child;
        }
    }
}
