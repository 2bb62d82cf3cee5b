#include <rendCore/model/KrRenderSelection.h>

#include <rendCore/aids/KrRenderBoundingVolumes.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/model/KrRenderShape.h>
#include <tests/support/MessageRecorder.h>
#include <tests/support/SceneSamples.h>

#include <osg/BlendFunc>
#include <osg/Material>
#include <osg/MatrixTransform>
#include <osg/NodeVisitor>
#include <osg/PolygonMode>
#include <osg/StateSet>
#include <osg/Switch>

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

namespace
{

using namespace SceneSamples;
using osg::StateAttribute;

const KrShapeStateCacheKey kLeft(0, 0, 0), kOther(0, 2, 0);

/// For every node below a root its children, however ordered: twice the same where it hangs there twice.
class Snapshot : public osg::NodeVisitor
{
public:
    explicit Snapshot(osg::Node& root)
        : osg::NodeVisitor(osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
    {
        root.accept(*this);
    }
    using osg::NodeVisitor::apply;
    void apply(osg::Node& node) override
    {
        std::multiset<const osg::Node*> children;
        if (const osg::Group* group = node.asGroup()) {
            for (unsigned int i = 0; i < group->getNumChildren(); ++i) {
                children.insert(group->getChild(i));
            }
        }
        links[&node] = children;
        parents[&node] = node.getNumParents();
        traverse(node);
    }
    bool operator==(const Snapshot& other) const { return links == other.links && parents == other.parents; }

    std::map<const osg::Node*, std::multiset<const osg::Node*>> links;
    std::map<const osg::Node*, unsigned int> parents;
};

/// Counts how often children are cut: each time those behind them move.
class CutCounter : public osg::MatrixTransform
{
public:
    bool removeChildren(unsigned int place, unsigned int count) override
    {
        ++numCuts;
        return osg::MatrixTransform::removeChildren(place, count);
    }

    unsigned int numCuts = 0;
};

/// A robot whose links "left" and "right" share an extent, whose base draws one shape twice, and whose link "other" has
/// bounding volumes.
class KrRenderSelectionTest : public testing::Test
{
protected:
    KrRenderSelectionTest()
        : robot("robot")
    {
        const ExtentPointer shared = box();
        robot.addShape(box());
        robot.addShape(boost::make_shared<KrShape>());
        robot.addChildLink(hinge("left", shared));
        robot.addChildLink(hinge("right", shared));
        KrManipulatorLink& other = robot.addChildLink(hinge("other", box()));
        other.shapePointer(0)->addBoundingVolume(boost::make_shared<KrShape>(box(2.0)));
        node = new KrRenderManipulator(robot, 0);
        KrRenderBoundingVolumes::init(node, robot.dataMaps());
    }

    KrRenderShape* shape(const KrShapeStateCacheKey& key) const
    {
        return node->getMap().at({key.linkID(), key.shapeID()}).get();
    }
    void fade(float alpha = 0.25f) { KrRenderSelection::setNonselected(node, alpha, false); }
    void restore() { KrRenderSelection::setNonselected(node, 1.0f, true); }

    static const osg::StateSet& overrides(const KrRenderShape* shape) { return *shape->getParent(0)->getStateSet(); }
    static const osg::Material& material(const KrRenderShape* shape)
    {
        return dynamic_cast<const osg::Material&>(*overrides(shape).getAttribute(StateAttribute::MATERIAL));
    }
    static bool overridesMaterial(const KrRenderShape* shape)
    {
        const osg::StateSet::RefAttributePair* pair = overrides(shape).getAttributePair(StateAttribute::MATERIAL);
        return pair != nullptr && (pair->second & StateAttribute::OVERRIDE) != 0;
    }

    KrIndividualManipulator robot;
    osg::ref_ptr<KrRenderManipulator> node;
};

} // namespace

TEST_F(KrRenderSelectionTest, ASelectedShapeIsWrappedOnceAndShowsItsOwnColour)
{
    KrRenderSelection::setSelected(node, kOther);
    KrRenderShape* other = shape(kOther);
    ASSERT_EQ(other->getNumParents(), 1u);
    osg::Group* wrapper = other->getParent(0);
    ASSERT_EQ(wrapper->getNumParents(), 1u);
    EXPECT_EQ(wrapper->getParent(0)->getName(), "Man 0:DHLink 2");
    EXPECT_FALSE(wrapper->getParent(0)->containsNode(other));
    EXPECT_FALSE(overridesMaterial(other));
    EXPECT_EQ(overrides(other).getAttributePair(StateAttribute::MATERIAL)->second, StateAttribute::PROTECTED);
    EXPECT_EQ(overrides(other).getRenderingHint(), osg::StateSet::OPAQUE_BIN);
    EXPECT_EQ(overrides(other).getMode(GL_LIGHTING), StateAttribute::ON | StateAttribute::OVERRIDE);
    EXPECT_EQ(material(other).getSpecular(osg::Material::FRONT), osg::Vec4(0.6f, 0.6f, 0.6f, 0.6f));
    EXPECT_EQ(material(other).getShininess(osg::Material::BACK), 5.0f);

    KrRenderSelection::setSelected(node, kOther);
    EXPECT_EQ(other->getNumParents(), 1u);
    EXPECT_EQ(other->getParent(0), wrapper);
    EXPECT_EQ(wrapper->getNumParents(), 1u);
}

TEST_F(KrRenderSelectionTest, FadingDrawsTheOthersInTheWrapperAndSparesTheSelectedForOnePass)
{
    shape(kLeft)->setAttribute(KrRenderTypes::Unfaded);
    KrRenderSelection::setSelected(node, kOther);
    fade();
    EXPECT_EQ(overrides(shape(kOther)).getRenderingHint(), osg::StateSet::OPAQUE_BIN);
    const KrRenderShape* left = shape(kLeft);
    EXPECT_FALSE(left->isAttributeSet(KrRenderTypes::Unfaded));
    EXPECT_EQ(overrides(left).getRenderingHint(), osg::StateSet::TRANSPARENT_BIN);
    EXPECT_EQ(material(left).getDiffuse(osg::Material::FRONT).a(), 0.25f);
    EXPECT_TRUE(overridesMaterial(left));
    EXPECT_EQ(overrides(left).getMode(GL_BLEND), StateAttribute::ON | StateAttribute::OVERRIDE);

    fade(0.5f);
    const KrRenderShape* other = shape(kOther);
    EXPECT_EQ(overrides(other).getRenderingHint(), osg::StateSet::TRANSPARENT_BIN);
    EXPECT_EQ(overrides(other).getAttribute(StateAttribute::POLYGONMODE), nullptr);
    EXPECT_EQ(overrides(other).getMode(GL_LIGHTING), StateAttribute::INHERIT);
    EXPECT_EQ(overrides(other).getTextureMode(0, GL_TEXTURE_2D), StateAttribute::INHERIT);
    EXPECT_EQ(material(left).getDiffuse(osg::Material::FRONT).a(), 0.5f);

    fade(1.0f);
    EXPECT_NE(overrides(left).getRenderingHint(), osg::StateSet::TRANSPARENT_BIN);
    EXPECT_FALSE(overridesMaterial(left));
}

TEST_F(KrRenderSelectionTest, FadedShapesLookTheSameWhateverTheyWereBefore)
{
    for (const float alpha : {0.25f, 1.0f}) {
        KrRenderSelection::setSelected(node, kOther);
        fade(0.5f);
        fade(alpha);
        const osg::StateSet& before = overrides(shape(kOther));
        const osg::StateSet& never = overrides(shape(kLeft));
        EXPECT_EQ(before.compare(never, true), 0) << "alpha " << alpha;
        EXPECT_EQ(before.getRenderingHint(), never.getRenderingHint()) << "alpha " << alpha;
        EXPECT_EQ(before.getRenderBinMode(), never.getRenderBinMode()) << "alpha " << alpha;
        restore();
    }
}

TEST_F(KrRenderSelectionTest, AShapeWithTwoParentsGetsOneWrapperUnderBoth)
{
    fade();
    const KrRenderShape* left = shape(kLeft);
    ASSERT_EQ(left->getNumParents(), 1u);
    ASSERT_EQ(left->getParent(0)->getNumParents(), 2u);
    for (unsigned int i = 0; i < 2; ++i) {
        // The wrapper in the shape's place, and the switch of bounding volumes.
        const osg::Group& frame = *left->getParent(0)->getParent(i);
        EXPECT_EQ(frame.getNumChildren(), 2u);
        EXPECT_FALSE(frame.containsNode(left));
    }
    // Selected, it is spared although the pass meets its wrapper twice.
    KrRenderSelection::setSelected(node, kLeft);
    fade();
    EXPECT_EQ(overrides(left).getRenderingHint(), osg::StateSet::OPAQUE_BIN);
}

TEST_F(KrRenderSelectionTest, RestoringGivesTheGraphBackAndTakesASelectedShapeOutTheSecondTime)
{
    const Snapshot before(*node);
    restore();
    EXPECT_TRUE(Snapshot(*node) == before);

    KrRenderSelection::setSelected(node, kLeft);
    fade();
    restore();
    EXPECT_TRUE(Snapshot(*node) == before);

    KrRenderSelection::setSelected(node, kLeft);
    restore();
    EXPECT_FALSE(Snapshot(*node) == before);
    restore();
    EXPECT_TRUE(Snapshot(*node) == before);
}

TEST_F(KrRenderSelectionTest, ShapesOfOneLinkKeepTheirOrderAroundAClientsNode)
{
    KrManipulatorLink& many = robot.addChildLink(hinge("many", box()));
    for (int i = 0; i < 4; ++i) {
        many.addShape(box());
    }
    node = new KrRenderManipulator(robot, 0);
    std::vector<osg::ref_ptr<osg::Node>> expected = {new osg::Group};
    // The selected one goes to the end first, where the others follow it.
    for (const unsigned int i : {4u, 0u, 1u, 2u, 3u}) {
        expected.push_back(shape({0, 3, i}));
    }
    osg::Group& frame = *expected[1]->getParent(0);
    frame.insertChild(2, expected[0]);
    KrRenderSelection::setSelected(node, {0, 3, 4});
    fade();
    EXPECT_EQ(frame.getChild(0), expected[0]);
    restore();
    ASSERT_EQ(frame.getNumChildren(), expected.size());
    for (unsigned int i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(frame.getChild(i), expected[i]) << i;
    }
}

TEST_F(KrRenderSelectionTest, WrappedBoundingVolumesStayAsVisibleAsTheyWere)
{
    const auto* frame = dynamic_cast<const osg::Group*>(shape(kOther)->getParent(0));
    const auto* volumes = dynamic_cast<const osg::Switch*>(frame->getChild(1));
    ASSERT_NE(volumes, nullptr);
    const osg::Switch::ValueList before = volumes->getValueList();
    ASSERT_EQ(before, (osg::Switch::ValueList{false, false, false, true})); // three computed ones and the given one
    fade();
    EXPECT_EQ(volumes->getValueList(), before);
    EXPECT_EQ(dynamic_cast<const KrRenderShape*>(volumes->getChild(0)), nullptr);
    restore();
    EXPECT_EQ(volumes->getValueList(), before);
}

// All keys of a pass at once: in time that grows with the shapes of a link, not with their square.
TEST_F(KrRenderSelectionTest, ManyShapesOfALinkAreCutTogether)
{
    KrManipulatorLink& crowded = robot.addChildLink(hinge("crowded", box()));
    std::vector<KrShapeStateCacheKey> everyOther;
    std::vector<const osg::Node*> expected;
    for (unsigned int i = 1; i < 40; ++i) {
        crowded.addShape(box());
    }
    node = new KrRenderManipulator(robot, 0);
    const osg::ref_ptr<CutCounter> parent = new CutCounter;
    for (unsigned int i = 0; i < 40; ++i) {
        const KrShapeStateCacheKey key(0, 3, i);
        parent->addChild(shape(key));
        shape(key)->getParent(0)->removeChild(shape(key));
        if (i % 2 == 1) {
            everyOther.push_back(key);
        } else {
            expected.push_back(shape(key));
        }
    }
    node->addChild(parent);
    KrRenderSelection::setSelected({node}, everyOther);
    EXPECT_EQ(parent->numCuts, 1u);
    for (const KrShapeStateCacheKey& key : everyOther) {
        ASSERT_EQ(shape(key)->getNumParents(), 1u);
        expected.push_back(shape(key)->getParent(0));
    }
    std::vector<const osg::Node*> children;
    for (unsigned int i = 0; i < parent->getNumChildren(); ++i) {
        children.push_back(parent->getChild(i));
        EXPECT_EQ(parent->getChild(i)->getNumParents(), 1u) << "child " << i;
    }
    EXPECT_EQ(children, expected) << "those that stay, then the wrappers, both in their order";

    // The second pass takes out the wrappers, which stand between the shapes now.
    KrRenderSelection::setNonselected(node, 0.25f, false);
    KrRenderSelection::setNonselected(node, 1.0f, true);
    KrRenderSelection::setNonselected(node, 1.0f, true);
    EXPECT_LE(parent->numCuts, 4u);
    EXPECT_EQ(parent->getNumChildren(), 40u);
}

TEST_F(KrRenderSelectionTest, AThousandRandomPassesLeaveNothingBehind)
{
    const Snapshot before(*node);
    std::vector<KrShapeStateCacheKey> keys;
    for (const auto& entry : node->getMap()) {
        keys.emplace_back(0, entry.first.first, entry.first.second);
    }
    std::mt19937 random(20240229);
    const auto chance = [&random](unsigned int n) { return random() % n; };
    for (int pass = 0; pass < 1000; ++pass) {
        for (unsigned int i = chance(4); i > 0; --i) {
            KrRenderSelection::setSelected(node, keys[chance(static_cast<unsigned int>(keys.size()))]);
        }
        KrRenderSelection::setNonselected(node, static_cast<float>(chance(11)) / 10.0f, chance(3) == 0);
    }
    restore();
    restore();
    EXPECT_TRUE(Snapshot(*node) == before);
}

TEST_F(KrRenderSelectionTest, AKeyWithoutAShapeIsReportedAndChangesNothing)
{
    const Snapshot before(*node);
    MessageRecorder messages;
    KrRenderSelection::setSelected(node, KrShapeStateCacheKey(0, KrShapeStateCacheKey::kBaseLink, 7));
    EXPECT_EQ(messages.count(Kr::Print::Warning, "KrRenderSelection::setSelection - cannot find shape (-2, 7)\n"), 1u);
    EXPECT_EQ(messages.count(), 1u);
    KrRenderSelection::setSelected(nullptr, kLeft);
    KrRenderSelection::setNonselected(nullptr, 0.5f, false);
    EXPECT_EQ(messages.count(), 1u);
    EXPECT_TRUE(Snapshot(*node) == before);
}
