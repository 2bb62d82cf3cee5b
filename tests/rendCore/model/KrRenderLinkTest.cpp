#include <rendCore/model/KrRenderLink.h>

#include <tests/support/Allocations.h>
#include <tests/support/MessageRecorder.h>
#include <tests/support/SceneSamples.h>

#include <osg/Math>
#include <osg/NodeVisitor>

#include <gtest/gtest.h>

#include <limits>

namespace
{

using namespace SceneSamples;

using Kr::Print;

osg::ref_ptr<KrRenderLink> renderLink(const KrManipulatorLink& link, unsigned int jointIndex = 3)
{
    return new KrRenderLink(link, 0, jointIndex, KrMaterialMap());
}

osg::ref_ptr<osg::NodeVisitor> updateVisitor()
{
    return new osg::NodeVisitor(osg::NodeVisitor::UPDATE_VISITOR, osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
}

/// Runs update callbacks as an update traversal does.
class UpdateVisitor : public osg::NodeVisitor
{
public:
    UpdateVisitor()
        : osg::NodeVisitor(osg::NodeVisitor::UPDATE_VISITOR, osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
    {
    }
    using osg::NodeVisitor::apply;
    void apply(osg::Node& node) override
    {
        if (osg::Callback* callback = node.getUpdateCallback()) {
            callback->run(&node, this);
        } else {
            traverse(node);
        }
    }
};

class CountingBound : public osg::Node::ComputeBoundingSphereCallback
{
public:
    osg::BoundingSphere computeBound(const osg::Node& node) const override
    {
        ++count;
        return node.computeBound();
    }
    mutable int count = 0;
};

} // namespace

TEST(KrRenderLink, NamesNodesAndKeysShapesByJointAndShapeIndex)
{
    KrManipulatorLink arm("arm");
    arm.addShape(box());
    arm.addShape(box());
    arm.jointKinematics().setDhFrame(translation(0.0, 0.0, 2.0));
    const osg::ref_ptr<KrRenderLink> link = new KrRenderLink(arm, 12, 3, KrMaterialMap());
    EXPECT_EQ(link->getName(), "Man 12:Link 3");
    EXPECT_TRUE(link->getMatrix().isIdentity());
    ASSERT_EQ(link->getNumChildren(), 1u);
    const osg::ref_ptr<osg::MatrixTransform> frame = link->getDhFrame();
    EXPECT_EQ(link->getChild(0), frame);
    EXPECT_EQ(frame->getName(), "Man 12:DHLink 3");
    EXPECT_EQ(frame->getMatrix().getTrans(), osg::Vec3d(0.0, 0.0, 2.0));
    ASSERT_EQ(frame->getNumChildren(), 2u);
    EXPECT_EQ(frame->getChild(1)->getName(), "arm - 1");
    EXPECT_EQ(frame->getChild(1)->getNodeMask(), 1u);
    ASSERT_EQ(link->getMap().count({3, 1}), 1u);
    EXPECT_EQ(link->getMap().at({3, 1}), frame->getChild(1));

    KrIndividualManipulator manipulator("robot");
    manipulator.addShape(box());
    manipulator.setBaseDhFrame(translation(1.0, 0.0, 0.0));
    const osg::ref_ptr<KrRenderLink> base = new KrRenderLink(manipulator, 2);
    EXPECT_EQ(base->getName(), "Man Base 2");
    EXPECT_EQ(base->getDhFrame()->getName(), "Man DH 2");
    EXPECT_EQ(base->getDhFrame()->getMatrix().getTrans(), osg::Vec3d(1.0, 0.0, 0.0));
    EXPECT_EQ(base->getLink(), &manipulator);
    EXPECT_EQ(base->getJointIndex(), 0xFFFFFFFEu);
    EXPECT_EQ(base->getMap().count({0xFFFFFFFEu, 0}), 1u);
}

TEST(KrRenderLink, SharesTheShapeThatDrawsAnExtentWhileItLives)
{
    const ExtentPointer extent = box();
    const KrManipulatorLink left = hinge("left", extent), right = hinge("right", extent);
    osg::ref_ptr<KrRenderLink> first = renderLink(left, 0);
    const osg::ref_ptr<KrRenderLink> second = renderLink(right, 1);
    const osg::ref_ptr<osg::Node> shape = first->getDhFrame()->getChild(0);
    ASSERT_EQ(second->getDhFrame()->getChild(0), shape);
    EXPECT_EQ(shape->getNumParents(), 2u);
    EXPECT_EQ(shape->getName(), "left - 0");
    EXPECT_EQ(first->getMap().size(), 1u);
    EXPECT_TRUE(second->getMap().empty());

    first->addChildLink(second);
    EXPECT_EQ(first->getMap().size(), 1u);
    EXPECT_FALSE(first->addChildLink(nullptr));
}

TEST(KrRenderLink, DrawsAnExtentAnewWhenItsShapeIsGone)
{
    const ExtentPointer extent = box();
    const KrManipulatorLink arm = hinge("arm", extent);
    osg::observer_ptr<osg::Node> old;
    {
        const osg::ref_ptr<KrRenderLink> link = renderLink(arm);
        old = link->getDhFrame()->getChild(0);
    }
    EXPECT_FALSE(old.valid());
    EXPECT_TRUE(extent->renderShape().expired());
    EXPECT_EQ(renderLink(arm)->getMap().size(), 1u);
}

TEST(KrRenderLink, StopsAtAMissingShape)
{
    KrManipulatorLink arm = hinge("arm", box());
    arm.addShape(box());
    arm.addShape(boost::shared_ptr<KrShape>());
    arm.addShape(box());
    MessageRecorder messages;
    const osg::ref_ptr<KrRenderLink> link = renderLink(arm);
    EXPECT_EQ(link->getDhFrame()->getNumChildren(), 2u);
    EXPECT_EQ(messages.count(Print::Error, "KrRenderLink::render() Shape 2 missing from joint (arm).\n"), 1u);
    EXPECT_EQ(messages.count(), 1u);
}

TEST(KrRenderLink, ShowsTheLastShapeAgainWhereAnExtentIsAbsent)
{
    KrIndividualManipulator robot("robot");
    robot.addShape(boost::make_shared<KrShape>()); // nothing before it: reported
    robot.addShape(box());
    robot.addShape(boost::make_shared<KrShape>());
    MessageRecorder messages;
    const osg::ref_ptr<KrRenderLink> link = new KrRenderLink(robot, 0);
    EXPECT_EQ(messages.count(Print::Warning, "KrRenderLink - unable to add geometry for link robot (-2), shape 0.\n"),
              1u);
    EXPECT_EQ(messages.count(), 1u);
    ASSERT_EQ(link->getDhFrame()->getNumChildren(), 2u);
    const osg::Node* shape = link->getDhFrame()->getChild(0);
    EXPECT_EQ(link->getDhFrame()->getChild(1), shape);
    EXPECT_EQ(shape->getName(), "robot - 2");
    EXPECT_EQ(link->getMap().count({0xFFFFFFFEu, 0}), 0u);
    EXPECT_EQ(link->getMap().at({0xFFFFFFFEu, 1}), shape);
    EXPECT_EQ(link->getMap().at({0xFFFFFFFEu, 2}), shape);
}

TEST(KrRenderLink, AnUpdateTraversalThatCarriesAStatePosesTheLinks)
{
    const KrIndividualManipulator robot("robot");
    KrManipulatorLink arm = hinge("arm", box());
    arm.jointKinematics().setOrigin(translation(0.0, 0.0, 1.0));
    arm.jointKinematics().setDhFrame(translation(5.0, 0.0, 0.0));
    const osg::ref_ptr<KrRenderLink> base = new KrRenderLink(robot, 0);
    const osg::ref_ptr<KrRenderLink> link = renderLink(arm, 0);
    base->addChildLink(link);

    UpdateVisitor visitor;
    base->accept(visitor); // carries nothing
    EXPECT_TRUE(link->getMatrix().isIdentity());

    const KrManipulatorSystemState state = stateOf(translation(7.0, 0.0, 0.0), {osg::PI_2});
    ASSERT_TRUE(KrRenderLink::updateState(&visitor, &state));
    base->accept(visitor);
    EXPECT_EQ(base->getMatrix().getTrans(), osg::Vec3d(7.0, 0.0, 0.0));
    // A quarter turn to the left takes x to y.
    EXPECT_LT(distance(osg::Vec3d(2.0, 0.0, 0.0) * link->getMatrix(), osg::Vec3d(0.0, 2.0, 1.0)), 1e-12);
    EXPECT_EQ(link->getDhFrame()->getMatrix().getTrans(), osg::Vec3d(5.0, 0.0, 0.0));

    // A null state, one without this manipulator and one without this joint move nothing.
    const osg::Matrixd before = link->getMatrix();
    const KrManipulatorSystemState empty, jointless = stateOf(translation(7.0, 0.0, 0.0), {});
    for (const KrManipulatorSystemState* other :
         {static_cast<const KrManipulatorSystemState*>(nullptr), &empty, &jointless}) {
        ASSERT_TRUE(KrRenderLink::updateState(&visitor, other));
        base->accept(visitor);
        EXPECT_EQ(link->getMatrix(), before);
    }
}

TEST(KrRenderLink, AStateIsAttachedOnlyToAVisitorThatCarriesNothingElse)
{
    const KrManipulatorSystemState state;
    EXPECT_FALSE(KrRenderLink::updateState(static_cast<osg::NodeVisitor*>(nullptr), &state));
    const osg::ref_ptr<osg::NodeVisitor> visitor = updateVisitor();
    EXPECT_TRUE(KrRenderLink::updateState(visitor, &state));
    const auto* data = dynamic_cast<const StateData*>(visitor->getUserData());
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->state, &state);
    EXPECT_TRUE(KrRenderLink::updateState(visitor, nullptr));
    EXPECT_EQ(data->state, nullptr);

    const osg::ref_ptr<osg::Referenced> other = new osg::Node;
    visitor->setUserData(other);
    EXPECT_FALSE(KrRenderLink::updateState(visitor, &state));
    EXPECT_EQ(visitor->getUserData(), other);
    const KrIndividualManipulator robot("robot");
    const osg::ref_ptr<KrRenderLink> base = new KrRenderLink(robot, 0);
    const osg::ref_ptr<MatrixUpdateCallback> callback = new MatrixUpdateCallback;
    (*callback)(base, visitor);
    (*callback)(nullptr, visitor);
    EXPECT_TRUE(base->getMatrix().isIdentity());
}

TEST(KrRenderLink, PosingAllocatesNothingAndAnUnchangedPoseLeavesBoundsAlone)
{
    const KrIndividualManipulator robot("robot");
    const KrManipulatorLink arm = hinge("arm", box());
    const osg::ref_ptr<KrRenderLink> base = new KrRenderLink(robot, 0);
    const osg::ref_ptr<KrRenderLink> link = renderLink(arm, 0);
    base->addChildLink(link);
    const osg::ref_ptr<CountingBound> bound = new CountingBound;
    base->setComputeBoundingSphereCallback(bound);

    UpdateVisitor visitor;
    const KrManipulatorSystemState bent = stateOf(translation(7.0, 0.0, 0.0), {0.5});
    const KrManipulatorSystemState turned = stateOf(translation(7.0, 0.0, 0.0), {0.6});
    KrRenderLink::updateState(&visitor, &bent);
    base->accept(visitor);
    base->getBound();
    const int computed = bound->count;

    const std::size_t allocations = Allocations::now().withNew;
    base->accept(visitor);
    base->getBound();
    EXPECT_EQ(bound->count, computed);
    KrRenderLink::updateState(&visitor, &turned);
    base->accept(visitor);
    EXPECT_EQ(Allocations::now().withNew, allocations);
    base->getBound();
    EXPECT_EQ(bound->count, computed + 1);

    // Not a number is a change as well: the picture shows that something is wrong.
    const KrManipulatorSystemState lost =
        stateOf(translation(7.0, 0.0, 0.0), {std::numeric_limits<double>::quiet_NaN()});
    KrRenderLink::updateState(&visitor, &lost);
    base->accept(visitor);
    EXPECT_TRUE(link->getMatrix().isNaN());
}
