#include <toolkit/foundation/KrLimits.h>
#include <toolkit/system/KrVisualizableStatedSystem.h>
#include <toolkit/system/private/KrLinkWalk.h>

#include <tests/support/SmallStack.h>

#include <tests/support/MessageRecorder.h>

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <string>

namespace
{

constexpr unsigned int kLinks = 100000;

/// A chain that slides on by a metre with every link, and a side arm at its root that comes last.
KrIndividualManipulator chain(unsigned int numLinks)
{
    KrIndividualManipulator manipulator("chain");
    KrManipulatorLink* link = &manipulator.addChildLink(KrManipulatorLink("first"));
    for (unsigned int i = 1; i < numLinks; ++i) {
        link->jointKinematics().setType(KrJointKinematics::Type::Prismatic);
        link->jointKinematics().setAxis(KrVector(1.0, 0.0, 0.0));
        link = &link->addChildLink(KrManipulatorLink(i + 1 == numLinks ? "last" : "link"));
    }
    return manipulator;
}

} // namespace

TEST(KrLongChain, IsCopiedComparedAndDestroyedOnASmallStack)
{
    onStackOf(kSmallStack, [] {
        KrIndividualManipulator original = chain(kLinks);
        EXPECT_EQ(original.numJoints(), kLinks);
        EXPECT_EQ(original.depth(), kLinks);

        KrIndividualManipulator copy = original;
        EXPECT_TRUE(copy == original);
        KrManipulatorLink* deep = &copy.childLinks()[0];
        while (!deep->childLinks().empty()) {
            deep = &deep->childLinks()[0];
        }
        deep->setName("another");
        EXPECT_FALSE(copy == original);
        copy = original;
        EXPECT_TRUE(copy == original);

        KrXmlVectorType<KrManipulatorLink> list = copy.childLinks();
        EXPECT_TRUE(list == original.childLinks());
        list.clear();

        // From inside of itself: the rest of the chain takes the place of all of it.
        KrManipulatorLink& link = copy.childLinks()[0];
        link = link.childLinks()[0];
        EXPECT_EQ(copy.numJoints(), kLinks - 1);
        link = std::move(link.childLinks()[0]);
        EXPECT_EQ(copy.numJoints(), kLinks - 2);
    });
}

TEST(KrLongChain, IsPosedOnASmallStack)
{
    onStackOf(kSmallStack, [] {
        KrManipulatorSystem system;
        system.manipulators().push_back(chain(kLinks));
        KrStatedSystem stated(system);
        const KrIndividualManipulator& manipulator = stated.manipulatorSystem().manipulators()[0];
        KrPositionState state = manipulator.defaultState();
        for (unsigned int i = 0; i < kLinks; ++i) {
            state.jointPositions()[i] = 1.0;
        }
        std::vector<KrCoordinateSystemTransformation> poses;
        ASSERT_TRUE(manipulator.linkPoses(state, poses));
        EXPECT_EQ(poses.back().translation().x(), kLinks - 1.0); // the last joint is fixed
        KrCoordinateSystemTransformation pose;
        ASSERT_TRUE(manipulator.linkPose("last", state, pose));
        EXPECT_EQ(pose.translation().x(), kLinks - 1.0);
        EXPECT_EQ(manipulator.parents()[kLinks - 1], static_cast<int>(kLinks) - 2);
        EXPECT_EQ(manipulator.jointIndex("last"), static_cast<int>(kLinks) - 1);
        EXPECT_EQ(stated.shapeByKey(KrShapeStateCacheKey(0, kLinks - 1, 0)), nullptr);
    });
}

TEST(KrLongChain, IsWrittenAndReadBackOnASmallStack)
{
    onStackOf(kSmallStack, [] {
        const KrIndividualManipulator original = chain(kLinks / 4); // texts take their time

        std::string text;
        ASSERT_TRUE(original.writeBuffer(text));
        // Indented throughout it would be some gigabytes.
        EXPECT_LT(text.size(), std::size_t(50) << 20);
        KrIndividualManipulator copy;
        ASSERT_TRUE(copy.readBuffer(text.data(), text.size()));
        EXPECT_TRUE(copy == original);
    });
}

TEST(KrLongChain, BeyondTheLimitIsToldWhenItIsWritten)
{
    MessageRecorder messages;
    const KrIndividualManipulator original = chain(static_cast<unsigned int>(Kr::Limits::kElementDepth / 2));
    std::string text = "as it was";
    EXPECT_FALSE(original.writeBuffer(text));
    EXPECT_EQ(text, "as it was");
    EXPECT_EQ(messages.take(), 1u);
    EXPECT_NE(messages.last().find("nested deeper"), std::string::npos) << messages.last();
}

TEST(KrLongChain, OfEnclosingShapesIsComparedAndDestroyedOnASmallStack)
{
    onStackOf(kSmallStack, [] {
        const auto make = [] {
            const auto first = boost::make_shared<KrShape>();
            boost::shared_ptr<KrShape> last = first;
            for (unsigned int i = 0; i < kLinks; ++i) {
                const auto next = boost::make_shared<KrShape>();
                EXPECT_TRUE(last->addBoundingVolume(next));
                last = next;
            }
            return first;
        };
        EXPECT_TRUE(*make() == *make());
    });
    MessageRecorder messages;
    const auto outer = boost::make_shared<KrShape>();
    const auto inner = boost::make_shared<KrShape>();
    EXPECT_TRUE(inner->addBoundingVolume(boost::make_shared<KrShape>()));
    EXPECT_FALSE(outer->addBoundingVolume(inner));
    EXPECT_EQ(messages.take(), 1u);
}

TEST(KrLinkWalk, GoesInPreOrder)
{
    KrManipulatorLink root("root");
    KrManipulatorLink& a = root.addChildLink(KrManipulatorLink("a"));
    a.addChildLink(KrManipulatorLink("a1")).addChildLink(KrManipulatorLink("a11"));
    a.addChildLink(KrManipulatorLink("a2"));
    root.addChildLink(KrManipulatorLink("b"));
    KrLinkWalk walk(root);
    std::string order;
    while (const KrManipulatorLink* const link = walk.next()) {
        order += link->name() + "=" + std::to_string(walk.index()) + "<" + std::to_string(walk.parent()) + " ";
    }
    EXPECT_EQ(order, "a=0<-1 a1=1<0 a11=2<1 a2=3<0 b=4<-1 ");
    EXPECT_EQ(walk.next(), nullptr);
    const KrManipulatorLink leaf;
    EXPECT_EQ(KrLinkWalk(leaf).next(), nullptr);
}
