#include <rendCore/model/KrRenderManipulator.h>

#include <rendCore/aids/KrRenderAxis.h>
#include <rendCore/aids/KrRenderBoundingVolumes.h>
#include <rendCore/aids/KrRenderMassProperties.h>
#include <rendCore/base/private/KrTraversalStack.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/SceneSamples.h>
#include <tests/support/SmallStack.h>

#include <gtest/gtest.h>

#include <osg/ComputeBoundsVisitor>
#include <osg/observer_ptr>
#include <osgUtil/UpdateVisitor>

#include <boost/make_shared.hpp>

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

KrManipulatorLink shaped(const std::string& name)
{
    KrManipulatorLink link(name);
    link.addShape(boost::shared_ptr<KrBasePhysicalExtent>(boost::make_shared<KrBoxPhysicalExtent>()));
    return link;
}

/// One link under the other; the last one has a shape.
KrIndividualManipulator chain(unsigned int numLinks)
{
    KrIndividualManipulator robot("chain");
    KrManipulatorLink* link = &robot;
    for (unsigned int i = 0; i < numLinks; ++i) {
        link = &link->addChildLink(i + 1 == numLinks ? shaped("last") : KrManipulatorLink("link"));
    }
    return robot;
}

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

TEST(KrRenderManipulator, ChainsOfAnyLengthAreBuiltAndDestroyedOnASmallStack)
{
    onStackOf(kSmallStack, [] {
        constexpr unsigned int numLinks = 50000;
        const KrIndividualManipulator robot = chain(numLinks);
        const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 0);
        EXPECT_EQ(node->getNumTotalLinks(), numLinks);
        ASSERT_EQ(node->getMap().size(), 1u);
        // Held from elsewhere, a link survives the scene with what hangs under it.
        osg::ref_ptr<osg::Group> link = node->getChild(0)->asGroup();
        while (link->getName() != "Man 0:Link 25000") {
            link = link->getChild(link->getNumChildren() - 1)->asGroup();
        }
        EXPECT_EQ(static_cast<KrRenderLink*>(link.get())->getMap().count({numLinks - 1, 0}), 1u);
        osg::observer_ptr<osg::Node> above = link->getParent(0);
        node->removeChildren(0, node->getNumChildren());
        EXPECT_FALSE(above.valid());
        EXPECT_EQ(link->getNumParents(), 0u);
        EXPECT_EQ(link->getNumChildren(), 2u);
    });
}

TEST(KrRenderManipulator, AMapKeepsWhatItHadWhenItWasTakenOver)
{
    const KrIndividualManipulator robot = branching();
    const KrRenderLink::ShapeMap::key_type late{7, 0};
    const osg::ref_ptr<KrRenderLink> parent = new KrRenderLink(robot, 0);
    const KrIndividualManipulator another = branching();
    const osg::ref_ptr<KrRenderLink> asked = new KrRenderLink(another, 0);
    EXPECT_EQ(asked->getMap().size(), 1u);
    const KrManipulatorLink leaf = shaped("leaf");
    const osg::ref_ptr<KrRenderLink> child = new KrRenderLink(leaf, 0, 5, robot.materialMap());
    EXPECT_TRUE(parent->addChildLink(child));
    EXPECT_TRUE(asked->addChildLink(child));
    const KrManipulatorLink other = shaped("other");
    const osg::ref_ptr<KrRenderLink> grandchild = new KrRenderLink(other, 0, 7, robot.materialMap());
    EXPECT_TRUE(child->addChildLink(grandchild));
    EXPECT_EQ(child->getMap().count(late), 1u);
    EXPECT_EQ(parent->getMap().size(), 2u);
    EXPECT_EQ(parent->getMap().count(late), 0u) << "it came later";
    EXPECT_EQ(asked->getMap().size(), 2u);
}

TEST(KrTraversalStack, RefusesWhatThisThreadCannotWalk)
{
    onStackOf(kSmallStack, [] {
        MessageRecorder messages;
        EXPECT_LE(KrTraversalStack::bytesLeft(), kSmallStack);
        EXPECT_TRUE(KrTraversalStack::holds(chain(20), false));
        EXPECT_EQ(messages.count(), 0u);
        const auto deep = chain(static_cast<unsigned int>(kSmallStack / KrTraversalStack::bytesPerLink()));
        EXPECT_FALSE(KrTraversalStack::holds(deep, false));
        EXPECT_EQ(messages.count(), 1u);
        EXPECT_NE(messages.all().find("KiB of stack"), std::string::npos) << messages.all();
        EXPECT_FALSE(KrTraversalStack::holds(deep, true));
        EXPECT_EQ(messages.count(), 1u);
    });
}

TEST(KrTraversalStack, LetsThroughOnlyWhatTheSceneGraphWalks)
{
    // As deep as is let through, to the last link: the traversals of a frame must get by with it.
    onStackOf(1024 * KrTraversalStack::bytesPerLink(), [] {
        const unsigned int numLinks = [] {
            unsigned int most = 100;
            MessageRecorder messages;
            while (KrTraversalStack::holds(chain(most + 50), true)) {
                most += 50;
            }
            return most;
        }();
        EXPECT_GT(numLinks, 499u);
        const KrIndividualManipulator robot = chain(numLinks);
        const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 0);
        KrRenderBoundingVolumes::init(node, robot.dataMaps());
        KrRenderMassProperties::init(node);
        osg::ref_ptr<osg::Group> root = new osg::Group;
        root->addChild(node);
        KrRenderAxis::init(root);
        KrManipulatorSystemState state;
        state.positionStates().push_back(robot.defaultState());
        osgUtil::UpdateVisitor update;
        KrRenderLink::updateState(&update, &state);
        root->accept(update);
        EXPECT_TRUE(root->getBound().valid());
        osg::ComputeBoundsVisitor bounds;
        root->accept(bounds);
        EXPECT_TRUE(bounds.getBoundingBox().valid());
    });
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
