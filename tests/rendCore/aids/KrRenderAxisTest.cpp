#include <rendCore/aids/KrRenderAxis.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <tests/support/SceneSamples.h>

#include <toolkit/system/KrIndividualManipulator.h>

#include <osg/Array>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LineWidth>

#include <gtest/gtest.h>

#include <algorithm>

namespace
{

unsigned int numOccurrences(const osg::Group& parent, const osg::Node* child)
{
    unsigned int count = 0;
    for (unsigned int i = 0; i < parent.getNumChildren(); ++i) {
        count += parent.getChild(i) == child ? 1 : 0;
    }
    return count;
}

/// Transforms under `parent` that hold the shared axis and nothing else.
unsigned int numTriads(const osg::Group& parent)
{
    const osg::ref_ptr<osg::Node> axis = KrRenderAxis::linkAxis(false);
    unsigned int count = 0;
    for (unsigned int i = 0; i < parent.getNumChildren(); ++i) {
        const auto* const transform = dynamic_cast<const osg::MatrixTransform*>(parent.getChild(i));
        if (transform != nullptr && transform != axis && transform->getNumChildren() == 1 &&
            transform->getChild(0) == axis) {
            EXPECT_TRUE(transform->getMatrix().getScale() == osg::Vec3d(2.0, 2.0, 2.0));
            ++count;
        }
    }
    return count;
}

} // namespace

TEST(KrRenderAxis, IsOneRedGreenAndBlueTriad)
{
    const osg::ref_ptr<osg::Node> node = KrRenderAxis::linkAxis(false);
    const auto* const transform = dynamic_cast<osg::MatrixTransform*>(node.get());
    ASSERT_NE(transform, nullptr);
    EXPECT_EQ(transform->getName(), "Axis");
    EXPECT_EQ(transform->getNodeMask(), unsigned(KrRenderTypes::LinkAxes));
    EXPECT_EQ(transform->getMatrix()(0, 0), 0.20000000298023224);
    EXPECT_EQ(KrRenderAxis::linkAxis(false), node);

    const osg::ref_ptr<osg::Node> child = KrRenderAxis::linkAxis(true);
    EXPECT_EQ(child, transform->getChild(0));
    EXPECT_EQ(child->getName(), "Axis");
    const osg::Geometry& lines = *child->asGeode()->getDrawable(0)->asGeometry();
    const auto& vertices = static_cast<const osg::Vec3Array&>(*lines.getVertexArray());
    const auto& colors = static_cast<const osg::Vec4Array&>(*lines.getColorArray());
    ASSERT_EQ(vertices.size(), 6u);
    ASSERT_EQ(colors.size(), 6u);
    EXPECT_EQ(colors.getBinding(), osg::Array::BIND_PER_VERTEX);
    for (unsigned int axis = 0; axis < 3; ++axis) {
        osg::Vec3 tip;
        tip[axis] = 1.0f;
        EXPECT_TRUE(vertices[2 * axis] == osg::Vec3());
        EXPECT_TRUE(vertices[2 * axis + 1] == tip);
        EXPECT_TRUE(colors[2 * axis] == osg::Vec4(tip, 1.0f));
        EXPECT_TRUE(colors[2 * axis + 1] == osg::Vec4(tip, 1.0f));
    }
    const auto* const width =
        dynamic_cast<osg::LineWidth*>(child->getStateSet()->getAttribute(osg::StateAttribute::LINEWIDTH));
    ASSERT_NE(width, nullptr);
    EXPECT_EQ(width->getWidth(), 3.0f);
}

TEST(KrRenderAxis, LinksGetOneTriadAndManipulatorsOneMoreAtEveryPass)
{
    KrIndividualManipulator arm("arm");
    arm.addChildLink(KrManipulatorLink("upper")).addChildLink(KrManipulatorLink("lower"));
    const osg::ref_ptr<KrRenderManipulator> manipulator = new KrRenderManipulator(arm, 0);
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(manipulator);
    KrRenderAxis::init(root);
    KrRenderAxis::init(root);
    KrRenderAxis::init(nullptr);

    EXPECT_EQ(numTriads(*manipulator), 2u);
    const osg::ref_ptr<osg::Node> axis = KrRenderAxis::linkAxis(false);
    EXPECT_EQ(numOccurrences(*manipulator, axis), 0u);
    unsigned int numLinks = 0;
    for (osg::Group* group = manipulator; group != nullptr;) {
        osg::Group* next = nullptr;
        for (unsigned int i = 0; i < group->getNumChildren(); ++i) {
            auto* const link = dynamic_cast<KrRenderLink*>(group->getChild(i));
            if (link != nullptr) {
                EXPECT_EQ(numOccurrences(*link, axis), 1u);
                EXPECT_EQ(numOccurrences(*link->getDhFrame(), axis), 1u);
                ++numLinks;
                next = link;
            }
        }
        group = next;
    }
    EXPECT_EQ(numLinks, 3u) << "the base, and the two links";
}

TEST(KrRenderAxis, ALinkWithoutDhFrameGetsTheTriadOnItselfOnly)
{
    const KrManipulatorLink description("link");
    const osg::ref_ptr<KrRenderLink> link = new SceneSamples::BareLink(description, 0, 0, KrMaterialMap());
    KrRenderAxis::init(link);
    EXPECT_EQ(numOccurrences(*link, KrRenderAxis::linkAxis(false)), 1u);
}

TEST(KrRenderAxis, ScalesEveryTriadAtOnce)
{
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(KrRenderAxis::linkAxis(false));
    const float before = root->getBound().radius();
    KrRenderAxis::scaleAxis(1.0);
    EXPECT_NEAR(root->getBound().radius(), 5.0f * before, 1e-4f);
    KrRenderAxis::scaleAxis(0.2f); // as it was, in single precision: tests run in any order
}
