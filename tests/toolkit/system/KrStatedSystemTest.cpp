#include <tests/support/MessageRecorder.h>

#include <toolkit/extent/KrSpherePhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/system/KrStatedSystem.h>

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace
{

using Key = KrShapeStateCacheKey;
using Type = KrJointKinematics::Type;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr std::uint32_t kBase = Key::kBaseLink;

KrManipulatorLink link(const std::string& name, Type type, unsigned int numShapes)
{
    KrManipulatorLink result(name);
    result.jointKinematics().setName(name);
    result.jointKinematics().setType(type);
    result.jointKinematics().setLimits(-1.0, 1.0);
    for (unsigned int i = 0; i < numShapes; ++i) {
        result.addShape(boost::make_shared<KrSpherePhysicalExtent>(0.1 * (i + 1)));
    }
    return result;
}

/// Manipulator 0 is one base with a shape; manipulator 1 has joints shoulder 0, elbow 1, finger 2 (mimics the elbow
/// twice over), mount 3, the middle two below the shoulder.
KrManipulatorSystem twoManipulators()
{
    KrIndividualManipulator table("table");
    table.addShape(boost::make_shared<KrSpherePhysicalExtent>(1.0));

    KrIndividualManipulator arm("arm");
    KrManipulatorLink& shoulder = arm.addChildLink(link("shoulder", Type::Revolute, 2));
    KrManipulatorLink& elbow = shoulder.addChildLink(link("elbow", Type::Continuous, 0));
    KrManipulatorLink finger = link("finger", Type::Prismatic, 1);
    finger.jointKinematics().setMimic("elbow", 2.0, 0.25);
    finger.addShape(boost::shared_ptr<KrShape>());
    elbow.addChildLink(finger);
    arm.addChildLink(link("mount", Type::Fixed, 1));

    KrManipulatorSystem system;
    system.manipulators().push_back(table);
    system.manipulators().push_back(arm);
    return system;
}

std::vector<double> positionsOf(const KrStatedSystem& system, unsigned int manipulator)
{
    const KrPositionState::JointPositions& positions =
        system.systemState().positionStates()[manipulator].jointPositions();
    return {positions.begin(), positions.end()};
}

std::string documentOf(const KrStatedSystem& system)
{
    std::string text;
    EXPECT_TRUE(system.writeBuffer(text));
    return text;
}

} // namespace

TEST(KrStatedSystem, JointsMoveByNameAndMimicsFollow)
{
    MessageRecorder messages;
    KrStatedSystem system(twoManipulators());
    EXPECT_EQ(positionsOf(system, 1), (std::vector<double>{0.0, 0.0, 0.25, 0.0}));
    ASSERT_TRUE(system.setJointPosition(1, "elbow", 0.5));
    ASSERT_TRUE(system.setJointPosition(1, "shoulder", -2.0));
    const std::vector<double> moved = {-2.0, 0.5, 1.25, 0.0};
    EXPECT_EQ(positionsOf(system, 1), moved);
    EXPECT_EQ(messages.take(), 0u);

    const struct
    {
        unsigned int manipulator;
        const char* joint;
        double position;
    } refused[] = {{2, "elbow", 0.0},  {0, "elbow", 0.0}, {1, "wrist", 0.0}, {1, "", 0.0},
                   {1, "finger", 0.0}, {1, "mount", 0.0}, {1, "elbow", kNan}};
    for (const auto& each : refused) {
        EXPECT_FALSE(system.setJointPosition(each.manipulator, each.joint, each.position)) << each.joint;
        EXPECT_EQ(messages.take(), 1u) << each.joint;
    }
    EXPECT_EQ(positionsOf(system, 1), moved);
}

TEST(KrStatedSystem, StatesMustFitTheSystem)
{
    MessageRecorder messages;
    KrStatedSystem system(twoManipulators());
    KrManipulatorSystemState good = system.systemState();
    good.setTime(4.0);
    good.positionStates()[1].jointPositions()[1] = 7.0;

    std::vector<KrManipulatorSystemState> bad(5, good);
    bad[0].positionStates().resize(1);
    bad[1].positionStates().push_back(KrPositionState());
    bad[2].positionStates()[1].jointPositions().resize(3);
    bad[3].positionStates()[0].jointPositions().push_back(0.0);
    bad[4].positionStates()[1].jointPositions()[3] = kNan;
    for (const KrManipulatorSystemState& state : bad) {
        EXPECT_FALSE(system.setSystemState(state));
        EXPECT_EQ(messages.take(), 1u);
        EXPECT_EQ(system.systemState().time(), 0.0);
    }
    ASSERT_TRUE(system.setSystemState(good));
    EXPECT_EQ(positionsOf(system, 1)[1], 7.0);
    EXPECT_EQ(messages.take(), 0u);
}

TEST(KrStatedSystem, KeysNameShapesInDepthFirstOrder)
{
    KrStatedSystem system(twoManipulators());
    const KrXmlVectorType<KrIndividualManipulator>& manipulators = system.manipulatorSystem().manipulators();
    const KrManipulatorLink& shoulder = manipulators[1].childLinks()[0];
    const KrManipulatorLink& finger = shoulder.childLinks()[0].childLinks()[0];
    const KrManipulatorLink& mount = manipulators[1].childLinks()[1];
    EXPECT_EQ(system.shapeByKey({0, kBase, 0}), manipulators[0].shape(0));
    EXPECT_EQ(system.shapeByKey({1, 0, 1}), shoulder.shape(1));
    EXPECT_EQ(system.shapeByKey({1, 2, 0}), finger.shape(0));
    EXPECT_EQ(system.shapeByKey({1, 3, 0}), mount.shape(0));
    EXPECT_NE(system.shapeByKey({1, 3, 0}), nullptr);
    for (const Key& none : {Key(2, kBase, 0), Key(0, kBase, 1), Key(1, kBase, 0), Key(0, 0, 0), Key(1, 1, 0),
                            Key(1, 2, 1), Key(1, 4, 0), Key(1, 0xFFFFFFFFu, 0)}) {
        EXPECT_EQ(system.shapeByKey(none), nullptr) << none.manipID() << " " << none.linkID();
    }

    // In whatever order many are asked for: with links that are not there among them, forth and back, and other robots.
    std::vector<Key> expected;
    EXPECT_FALSE(system.addChangedShapes({{1, 3, 0}, {1, 0, 1}, {1, 4, 0}, {1, 2, 0}, {0, kBase, 0}, {1, 2, 0}}));
    expected = {{1, 3, 0}, {1, 0, 1}, {1, 2, 0}, {0, kBase, 0}};
    EXPECT_EQ(system.changedShapes(), expected);
    EXPECT_TRUE(system.addChangedShapes({{1, 0, 0}, {1, 0, 1}, {1, 3, 0}}));
    expected.push_back({1, 0, 0});
    EXPECT_EQ(system.changedShapes(), expected);

    // A link that appears afterwards takes its place in the order at once.
    KrManipulatorLink first = link("first", Type::Fixed, 1);
    std::vector<KrManipulatorLink>& links = system.manipulatorSystem().manipulators()[1].childLinks().values();
    links.insert(links.begin(), first);
    EXPECT_EQ(system.shapeByKey({1, 0, 1}), nullptr);
    EXPECT_EQ(system.shapeByKey({1, 1, 1}), links[1].shape(1));
}

TEST(KrStatedSystem, ListsTakeOnlyKeysOfShapesAndSayThatTheyChanged)
{
    MessageRecorder messages;
    KrStatedSystem system(twoManipulators());
    const KrStatedSystem& window = system;
    EXPECT_FALSE(system.selectShape({1, 1, 0}));
    EXPECT_EQ(messages.take(), 1u);
    EXPECT_FALSE(system.addChangedShape({5, 0, 0}));
    EXPECT_EQ(messages.take(), 1u);
    EXPECT_FALSE(window.isSelectionChanged());
    EXPECT_TRUE(window.selectedShapes().empty());

    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(system.selectShape({1, 0, 1}));
        EXPECT_TRUE(system.addChangedShape({0, kBase, 0}));
    }
    EXPECT_TRUE(window.isSelectionChanged());
    EXPECT_EQ(window.selectedShapes(), (std::vector<Key>{{1, 0, 1}}));
    EXPECT_EQ(window.changedShapes(), (std::vector<Key>{{0, kBase, 0}}));
    window.setSelectionChanged(false);

    EXPECT_TRUE(system.setTransparency(0.75));
    EXPECT_TRUE(window.isTransparencyChanged());
    EXPECT_TRUE(window.isSelectionChanged()); // faded anew
    window.setSelectionChanged(false);
    window.setTransparencyChanged(false);
    for (const double value : {-0.1, 1.1, kNan}) {
        EXPECT_FALSE(system.setTransparency(value));
        EXPECT_EQ(messages.take(), 1u);
    }
    EXPECT_EQ(window.transparency(), 0.75);
    EXPECT_FALSE(window.isTransparencyChanged());

    system.clearSelection();
    EXPECT_TRUE(window.isSelectionChanged());
    EXPECT_TRUE(window.selectedShapes().empty());
}

TEST(KrStatedSystem, LinksAreSelectedByNameAndWhatIsNotThereOrAmbiguousIsTold)
{
    using Answer = KrStatedSystem::LinkAnswer;
    MessageRecorder messages;
    KrManipulatorSystem manipulators = twoManipulators();
    manipulators.manipulators()[1].addChildLink(link("twin", Type::Fixed, 1));
    manipulators.manipulators()[1].addChildLink(link("twin", Type::Fixed, 1));
    KrStatedSystem system(manipulators);

    EXPECT_EQ(system.selectLink(1, "shoulder"), Answer::Done);
    EXPECT_EQ(system.selectLink(1, "finger"), Answer::Done); // its second shape is missing
    EXPECT_EQ(system.selectLink(0, "table"), Answer::Done);
    EXPECT_EQ(system.selectLink(1, "elbow"), Answer::NoShape);
    EXPECT_EQ(system.selectLink(1, "arm"), Answer::NoShape);
    EXPECT_EQ(messages.take(), 0u);
    const std::vector<Key> selected = {{1, 0, 0}, {1, 0, 1}, {1, 2, 0}, {0, kBase, 0}};
    EXPECT_EQ(system.selectedShapes(), selected);
    EXPECT_EQ(system.linkByKey(selected[2])->name(), "finger");
    EXPECT_EQ(system.linkByKey(selected[3])->name(), "table");
    EXPECT_EQ(system.linkByKey({1, 9, 0}), nullptr);
    EXPECT_EQ(system.linkByKey({2, kBase, 0}), nullptr);

    system.setSelectionChanged(false);
    EXPECT_EQ(system.selectLink(1, "table"), Answer::NoLink);
    EXPECT_EQ(system.selectLink(1, "twin"), Answer::SeveralLinks);
    EXPECT_EQ(system.selectLink(2, "arm"), Answer::NoManipulator);
    EXPECT_EQ(system.selectLink(1, 77u), Answer::NoLink);
    EXPECT_EQ(system.deselectLink(1, "twin"), Answer::SeveralLinks);
    EXPECT_EQ(messages.take(), 5u);
    EXPECT_EQ(system.deselectLink(1, "elbow"), Answer::Done);
    EXPECT_EQ(system.selectedShapes(), selected);
    EXPECT_FALSE(system.isSelectionChanged());

    EXPECT_EQ(system.linksByName(1, "twin"), (std::vector<std::uint32_t>{4, 5}));
    EXPECT_EQ(system.selectLink(1, 5), Answer::Done);
    EXPECT_EQ(system.deselectLink(1, "shoulder"), Answer::Done);
    EXPECT_TRUE(system.isSelectionChanged());
    EXPECT_EQ(system.selectedShapes(), (std::vector<Key>{{1, 2, 0}, {0, kBase, 0}, {1, 5, 0}}));
}

TEST(KrStatedSystem, ALinkThatIsSelectedSharesItsExtentsWithNoOther)
{
    const auto ball = boost::make_shared<KrSpherePhysicalExtent>(0.1);
    KrIndividualManipulator chain("chain");
    KrManipulatorLink inner = link("inner", Type::Revolute, 1);
    inner.addShape(ball);
    inner.addChildLink(link("leaf", Type::Fixed, 1));
    chain.addChildLink(inner);
    KrManipulatorLink& outer = chain.addChildLink(link("outer", Type::Revolute, 0));
    outer.addShape(ball);
    KrManipulatorSystem manipulators;
    manipulators.manipulators().push_back(chain);
    KrStatedSystem system(manipulators);
    const auto shape = [&](std::uint32_t index, std::uint32_t i) { return system.shapeByKey({0, index, i}); };
    const KrBasePhysicalExtent* const alone = shape(0, 0)->physicalExtent();
    ASSERT_EQ(shape(0, 1)->physicalExtent(), shape(2, 0)->physicalExtent());
    system.setNewSystem(false);

    EXPECT_EQ(system.selectLink(0, "leaf"), KrStatedSystem::LinkAnswer::Done);
    EXPECT_FALSE(system.isNewSystem()) << "nothing is shared";
    EXPECT_EQ(system.selectLink(0, "inner"), KrStatedSystem::LinkAnswer::Done);
    EXPECT_TRUE(system.isNewSystem()) << "the scene is to be built anew";
    EXPECT_EQ(system.selectedShapes(), (std::vector<Key>{{0, 1, 0}, {0, 0, 0}, {0, 0, 1}}));
    EXPECT_NE(shape(0, 1)->physicalExtent(), shape(2, 0)->physicalExtent());
    EXPECT_EQ(shape(0, 1)->physicalExtent()->triExtent()->vertices(), ball->triExtent()->vertices());
    EXPECT_EQ(shape(0, 1)->number(), 1u);
    EXPECT_EQ(shape(0, 0)->physicalExtent(), alone) << "what is not shared stays";
    EXPECT_EQ(system.linkByKey({0, 0, 0})->childLinks().size(), 1u);
    EXPECT_EQ(system.linkByKey({0, 0, 0})->jointKinematics().type(), Type::Revolute);
    system.setNewSystem(false);
    EXPECT_EQ(system.selectLink(0, "outer"), KrStatedSystem::LinkAnswer::Done);
    EXPECT_FALSE(system.isNewSystem()) << "nothing is shared any more";
}

TEST(KrStatedSystem, NewValuesAreNewSystemsWithEmptyLists)
{
    KrStatedSystem system(twoManipulators());
    const KrStatedSystem source(twoManipulators());
    const std::string document = documentOf(source);
    for (const std::string way : {"assign", "read", "systemChanged", "xmlInit"}) {
        SCOPED_TRACE(way);
        system = source;
        system.setNewSystem(false);
        ASSERT_FALSE(system.isNewSystem());
        ASSERT_TRUE(system.selectShape({1, 0, 0}) && system.addChangedShape({1, 0, 0}) && system.setTransparency(0.5));
        if (way == "assign") {
            static_cast<KrXmlObject&>(system).assign(source);
        } else if (way == "read") {
            ASSERT_TRUE(system.readBuffer(document.data(), document.size()));
        } else if (way == "xmlInit") {
            ASSERT_TRUE(system.xmlInit());
        } else {
            system.systemChanged();
        }
        EXPECT_TRUE(system.isNewSystem());
        EXPECT_TRUE(system.selectedShapes().empty());
        EXPECT_TRUE(system.changedShapes().empty());
        EXPECT_FALSE(system.isSelectionChanged());
        EXPECT_FALSE(system.isTransparencyChanged());
    }
}

TEST(KrStatedSystem, SystemChangedKeepsTheStatesThatStillFit)
{
    KrStatedSystem system(twoManipulators());
    ASSERT_TRUE(system.setJointPosition(1, "elbow", 0.5));
    KrIndividualManipulator slide("slide");
    slide.addChildLink(link("carriage", Type::Prismatic, 1)).jointKinematics().setLimits(0.5, 0.75);
    system.manipulatorSystem().manipulators().push_back(slide);
    system.systemChanged();
    EXPECT_EQ(positionsOf(system, 1)[1], 0.5);
    EXPECT_EQ(positionsOf(system, 2), std::vector<double>{0.5});

    system.manipulatorSystem().manipulators()[1].addChildLink(link("camera", Type::Fixed, 0));
    system.systemChanged();
    EXPECT_EQ(positionsOf(system, 1), (std::vector<double>{0.0, 0.0, 0.25, 0.0, 0.0}));
    system.manipulatorSystem().manipulators().resize(1);
    system.systemChanged();
    EXPECT_EQ(system.systemState().positionStates().size(), 1u);
}

TEST(KrStatedSystem, DocumentsWithoutAStateTakeTheDefaultOneAndWrongOnesAreRefused)
{
    MessageRecorder messages;
    const KrStatedSystem system(twoManipulators());
    const std::string document = documentOf(system);
    const std::size_t begin = document.find("<systemState");
    const std::string closing = "</systemState>";
    const std::size_t end = document.find(closing) + closing.size();
    ASSERT_LT(begin, end);

    const std::string without = document.substr(0, begin) + document.substr(end);
    KrStatedSystem read;
    ASSERT_TRUE(read.readBuffer(without.data(), without.size()));
    EXPECT_TRUE(read == system);
    EXPECT_EQ(positionsOf(read, 1), (std::vector<double>{0.0, 0.0, 0.25, 0.0}));

    ASSERT_TRUE(read.setJointPosition(1, "elbow", 0.5));
    read.setNewSystem(false);
    const std::string positions = "<jointPositions>0 0 0.25 0</jointPositions>";
    const std::size_t at = document.find(positions);
    ASSERT_NE(at, std::string::npos);
    for (const std::string wrong : {"0 0 0.25", "0 0 0.25 0 0", "0 0 nan 0", "0 0 0,25 0"}) {
        std::string text = document;
        text.replace(at, positions.size(), "<jointPositions>" + wrong + "</jointPositions>");
        EXPECT_FALSE(read.readBuffer(text.data(), text.size())) << wrong;
        EXPECT_EQ(messages.take(), 1u) << wrong;
        EXPECT_EQ(positionsOf(read, 1)[1], 0.5) << wrong;
        EXPECT_FALSE(read.isNewSystem()) << wrong;
    }
}
