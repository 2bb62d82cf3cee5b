#include <rendCore/KrRenderManipulator.h>

#include <tests/rendCore/SceneSamples.h>

#include <gtest/gtest.h>

namespace
{

using namespace SceneSamples;

class CountingBox : public KrBoxPhysicalExtent
{
public:
    void recompute() const override
    {
        ++recomputed;
        KrBoxPhysicalExtent::recompute();
    }
    mutable int recomputed = 0;
};

/// The link node that hangs as child `i` below the DH frame of `parent`.
const KrRenderLink* childLink(const osg::Group* parent, unsigned int i)
{
    return dynamic_cast<const KrRenderLink*>(parent->getChild(i + 1));
}

} // namespace

TEST(KrRenderManipulator, NumbersLinksInPreOrderAndMirrorsTheTree)
{
    KrIndividualManipulator robot = branching();
    robot.setPlacement(translation(0.0, 3.0, 0.0));
    const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 10);
    EXPECT_EQ(node->getName(), "Base 10");
    EXPECT_EQ(node->getMatrix().getTrans(), osg::Vec3d(0.0, 3.0, 0.0));
    EXPECT_EQ(node->getManipulator(), &robot);
    EXPECT_EQ(node->getNumTotalLinks(), 3u);
    ASSERT_EQ(node->getNumChildren(), 1u);
    const auto* base = dynamic_cast<const KrRenderLink*>(node->getChild(0));
    ASSERT_NE(base, nullptr);
    ASSERT_EQ(base->getNumChildren(), 3u); // DH frame, a, b
    const KrRenderLink* a = childLink(base, 0);
    const KrRenderLink* b = childLink(base, 1);
    ASSERT_TRUE(a != nullptr && b != nullptr);
    const KrRenderLink* a1 = childLink(a, 0);
    ASSERT_NE(a1, nullptr);
    EXPECT_EQ(a->getName(), "Man 10:Link 0");
    EXPECT_EQ(a1->getName(), "Man 10:Link 1");
    EXPECT_EQ(b->getName(), "Man 10:Link 2");
    EXPECT_EQ(a1->getLink(), &robot.childLinks()[0].childLinks()[0]);

    ASSERT_EQ(node->getMap().size(), 4u);
    EXPECT_EQ(node->getMap().at({1, 0}), a1->getDhFrame()->getChild(0));
    EXPECT_EQ(node->getMap().count({0xFFFFFFFEu, 0}), 1u);
    EXPECT_EQ(a->getMap().size(), 2u);
}

TEST(KrRenderManipulator, ALoneBaseHasNoJoint)
{
    KrIndividualManipulator robot("robot");
    robot.addShape(box());
    const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 0);
    EXPECT_EQ(node->getNumTotalLinks(), 0u);
    ASSERT_EQ(node->getMap().size(), 1u);
    EXPECT_EQ(node->getMap().begin()->first, std::make_pair(0xFFFFFFFEu, 0u));
    node->processChildren(nullptr);
    EXPECT_EQ(node->getNumTotalLinks(), 0u);
}

TEST(KrRenderManipulator, ASharedShapeStandsUnderItsFirstOwner)
{
    const ExtentPointer extent = box();
    KrIndividualManipulator robot("robot");
    robot.addChildLink(hinge("left", extent));
    robot.addChildLink(hinge("right", extent));
    const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 0);
    ASSERT_EQ(node->getMap().size(), 1u);
    EXPECT_EQ(node->getMap().begin()->first, std::make_pair(0u, 0u));
    EXPECT_EQ(node->getMap().begin()->second->getNumParents(), 2u);
}

TEST(KrRenderManipulator, AChangedExtentIsRecomputedOnceWhenItsShapeFollows)
{
    const boost::shared_ptr<CountingBox> extent = boost::make_shared<CountingBox>();
    KrIndividualManipulator robot("robot");
    robot.addChildLink(hinge("arm", extent));
    const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 0);
    const KrShape* shape = robot.childLinks()[0].shape(0);
    const KrShape bare;

    extent->setChanged(true);
    const int before = extent->recomputed;
    node->updateDeformation(1, 0, shape);
    node->updateDeformation(0, 1, shape);
    node->updateDeformation(0, 0, nullptr);
    node->updateDeformation(0, 0, &bare);
    node->updateTransparency(9, 9, shape, 0.5f);
    node->updateTransparency(0, 0, nullptr, 0.5f);
    EXPECT_TRUE(extent->isChanged());
    EXPECT_EQ(extent->recomputed, before);

    node->updateDeformation(0, 0, shape);
    EXPECT_FALSE(extent->isChanged());
    EXPECT_EQ(extent->recomputed, before + 1);
    node->updateDeformation(0, 0, shape);
    EXPECT_EQ(extent->recomputed, before + 1);
}
