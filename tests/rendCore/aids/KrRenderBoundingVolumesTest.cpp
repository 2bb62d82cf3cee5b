#include <rendCore/aids/KrRenderBoundingVolumes.h>

#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/model/KrRenderShape.h>
#include <tests/support/MessageRecorder.h>
#include <tests/support/SceneSamples.h>
#include <toolkit/foundation/KrNullDeleter.h>

#include <osg/Material>
#include <osg/StateSet>

#include <gtest/gtest.h>

#include <memory>

namespace
{

using namespace SceneSamples;

/// Without a surface of its own, about which more volumes would be computed.
boost::shared_ptr<KrShape> shapeWithVolumes(const std::vector<boost::shared_ptr<KrShape>>& volumes)
{
    const boost::shared_ptr<KrShape> shape = boost::make_shared<KrShape>();
    for (const boost::shared_ptr<KrShape>& volume : volumes) {
        shape->addBoundingVolume(volume);
    }
    return shape;
}

boost::shared_ptr<KrShape> boxShape(double edge)
{
    return boost::make_shared<KrShape>(box(edge));
}

} // namespace

TEST(KrRenderBoundingVolumes, ShowsTheLastOfAShapesVolumesOnly)
{
    const boost::shared_ptr<KrShape> shape = shapeWithVolumes({boxShape(4.0), boxShape(3.0), boxShape(2.0)});
    const osg::ref_ptr<osg::Switch> volumes = KrRenderBoundingVolumes::makeBV(shape.get(), KrMaterialMap(), 4, 0);
    ASSERT_TRUE(volumes);
    EXPECT_EQ(volumes->getNodeMask(), 2u);
    ASSERT_EQ(volumes->getNumChildren(), 3u);
    for (unsigned int i = 0; i < volumes->getNumChildren(); ++i) {
        EXPECT_EQ(volumes->getChild(i)->getName(), " - BV 1");
        EXPECT_EQ(volumes->getValue(i), i + 1 == volumes->getNumChildren()) << i;
        EXPECT_NE(dynamic_cast<KrRenderShape*>(volumes->getChild(i)), nullptr);
        const osg::StateSet* state = volumes->getChild(i)->getStateSet();
        EXPECT_TRUE(state == nullptr || state->getRenderBinMode() == osg::StateSet::INHERIT_RENDERBIN_DETAILS);
    }
}

TEST(KrRenderBoundingVolumes, AlikeOnesShareTheirArraysAndKeepNoMesh)
{
    KrIndividualManipulator robot("robot");
    for (const double edge : {1.0, 1.0, 2.0}) {
        KrManipulatorLink link = hinge("link");
        link.addShape(box(edge));
        robot.addChildLink(link);
    }
    const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 0);
    KrRenderBoundingVolumes::init(node, KrMaterialMap());
    const auto sphereOf = [&](unsigned int link) {
        const auto& child = dynamic_cast<const KrRenderLink&>(*node->getChild(0)->asGroup()->getChild(link + 1));
        const osg::Node* const volumes = child.getDhFrame()->getChild(1);
        return volumes->asGroup()->getChild(1)->asGeode()->getDrawable(0)->asGeometry();
    };
    ASSERT_EQ(sphereOf(0)->getVertexArray()->getNumElements(), sphereOf(2)->getVertexArray()->getNumElements());
    EXPECT_EQ(sphereOf(0)->getVertexArray(), sphereOf(1)->getVertexArray());
    EXPECT_NE(sphereOf(0)->getVertexArray(), sphereOf(2)->getVertexArray());
    EXPECT_EQ(sphereOf(0)->getNormalArray(), sphereOf(2)->getNormalArray());
    EXPECT_EQ(sphereOf(2)->getNormalArray()->getBinding(), osg::Array::BIND_PER_VERTEX);
    EXPECT_NE(sphereOf(0)->getColorArray(), sphereOf(1)->getColorArray());

    // A clone shares the mesh form that its original has.
    std::vector<const KrShape*> volumes;
    robot.childLinks()[0].shape()->boundingVolumes(volumes, 2);
    const std::unique_ptr<KrXmlObject> clone(volumes[0]->physicalExtent()->clone());
    EXPECT_NE(dynamic_cast<const KrBasePhysicalExtent&>(*clone).triExtent(), volumes[0]->physicalExtent()->triExtent())
        << "it had none";
    EXPECT_NEAR(sphereOf(0)->getBoundingBox().radius(), sphereOf(2)->getBoundingBox().radius() / 2.0, 1e-3);
}

TEST(KrRenderBoundingVolumes, OnlyTheBasesVolumesAreSortedByDepth)
{
    const boost::shared_ptr<KrShape> shape = shapeWithVolumes({boxShape(2.0)});
    const osg::ref_ptr<osg::Switch> volumes =
        KrRenderBoundingVolumes::makeBV(shape.get(), KrMaterialMap(), 0xFFFFFFFEu, 0);
    ASSERT_TRUE(volumes);
    const osg::StateSet* state = volumes->getChild(0)->getStateSet();
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->getBinNumber(), 11);
    EXPECT_EQ(state->getBinName(), "DepthSortedBin");
    EXPECT_EQ(state->getRenderBinMode(), osg::StateSet::USE_RENDERBIN_DETAILS);
}

TEST(KrRenderBoundingVolumes, AVolumeWithoutAnExtentIsReportedAndTheOthersAreBuilt)
{
    const boost::shared_ptr<KrShape> broken = shapeWithVolumes({boxShape(3.0), boost::make_shared<KrShape>()});
    MessageRecorder messages;
    const osg::ref_ptr<osg::Switch> volumes = KrRenderBoundingVolumes::makeBV(broken.get(), KrMaterialMap(), 4, 6);
    EXPECT_EQ(
        messages.count(Kr::Print::Warning, "KrRenderLink - unable to add bounding volume for link (4), shape 6.\n"),
        1u);
    EXPECT_EQ(messages.count(), 1u);
    ASSERT_TRUE(volumes);
    EXPECT_EQ(volumes->getNumChildren(), 1u);
    EXPECT_TRUE(volumes->getValue(0));
}

TEST(KrRenderBoundingVolumes, AListEndsWhereTheShapeItselfStands)
{
    KrShape shape;
    const boost::shared_ptr<KrShape> itself(&shape, KrNullDeleter());
    shape.addBoundingVolume(itself);
    EXPECT_FALSE(KrRenderBoundingVolumes::makeBV(&shape, KrMaterialMap(), 0, 0));

    KrShape second;
    second.addBoundingVolume(boxShape(2.0));
    second.addBoundingVolume(boost::shared_ptr<KrShape>(&second, KrNullDeleter()));
    second.addBoundingVolume(boxShape(3.0));
    const osg::ref_ptr<osg::Switch> volumes = KrRenderBoundingVolumes::makeBV(&second, KrMaterialMap(), 0, 0);
    ASSERT_TRUE(volumes);
    EXPECT_EQ(volumes->getNumChildren(), 1u);
}

TEST(KrRenderBoundingVolumes, ComputedVolumesLetTheRobotBeSeen)
{
    const KrShape shape(box());
    const osg::ref_ptr<osg::Switch> volumes = KrRenderBoundingVolumes::makeBV(&shape, KrMaterialMap(), 0, 0);
    ASSERT_TRUE(volumes);
    ASSERT_EQ(volumes->getNumChildren(), 4u);
    for (unsigned int i = 0; i < 4; ++i) {
        EXPECT_EQ(volumes->getValue(i), i == 3);
        const osg::Geode& volume = *volumes->getChild(i)->asGeode();
        ASSERT_EQ(volume.getNumDrawables(), 1u) << i;
        const osg::StateSet& state = *volume.getDrawable(0)->getStateSet();
        EXPECT_EQ(state.getRenderingHint(), osg::StateSet::TRANSPARENT_BIN) << i;
        EXPECT_EQ(state.getMode(GL_BLEND), osg::StateAttribute::ON) << i;
        const auto& material = dynamic_cast<const osg::Material&>(*state.getAttribute(osg::StateAttribute::MATERIAL));
        EXPECT_GT(material.getDiffuse(osg::Material::FRONT).a(), 0.1f) << i;
        EXPECT_LT(material.getDiffuse(osg::Material::FRONT).a(), 0.5f) << i;
    }
}

TEST(KrRenderBoundingVolumes, EveryLinkWithAShapeGetsASwitchUnderItsDhFrame)
{
    KrIndividualManipulator robot("robot");
    robot.addChildLink(KrManipulatorLink("bare"));
    KrManipulatorLink arm("arm");
    arm.addShape(boxShape(1.0));
    robot.addChildLink(arm);
    const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 0);
    const osg::Node* base = node->getChild(0);
    const auto& armNode = dynamic_cast<const KrRenderLink&>(*base->asGroup()->getChild(2));
    const auto& bareNode = dynamic_cast<const KrRenderLink&>(*base->asGroup()->getChild(1));

    KrRenderBoundingVolumes::init(node, robot.dataMaps());
    ASSERT_EQ(armNode.getDhFrame()->getNumChildren(), 2u);
    EXPECT_EQ(armNode.getDhFrame()->getChild(1)->getName(), "arm - BV 0");
    EXPECT_EQ(bareNode.getDhFrame()->getNumChildren(), 0u);
    KrRenderBoundingVolumes::init(node, robot.dataMaps());
    EXPECT_EQ(armNode.getDhFrame()->getNumChildren(), 3u);
    KrRenderBoundingVolumes::init(nullptr, robot.dataMaps());

    const osg::ref_ptr<KrRenderLink> bareLink = new BareLink(arm, 0, 0, KrMaterialMap());
    KrRenderBoundingVolumes::init(bareLink, KrMaterialMap());
    ASSERT_EQ(bareLink->getNumChildren(), 1u);
    EXPECT_EQ(bareLink->getChild(0)->asGroup()->getNumChildren(), 1u) << "the arm's shape only";
}
