#include <rendCore/aids/KrRenderMorphLink.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderManipulator.h>

#include <tests/support/Systems.h>

#include <osg/Image>
#include <osg/Notify>
#include <osgUtil/UpdateVisitor>

#include <gtest/gtest.h>

#include <string>

namespace
{

/// Base, A, A1, B: joints 0, 1, 2.
KrIndividualManipulator tree()
{
    KrIndividualManipulator robot("robot");
    KrManipulatorLink a = Systems::turningLink("a", KrVector(1.0, 0.0, 0.0));
    a.addChildLink(Systems::turningLink("a1", KrVector(0.0, 2.0, 0.0)));
    robot.addChildLink(a);
    robot.addChildLink(Systems::turningLink("b", KrVector(0.0, 0.0, 3.0)));
    return robot;
}

TEST(KrRenderMorphLink, WritesLinkMatricesRelativeToTheManipulator)
{
    KrIndividualManipulator robot = tree();
    KrCoordinateSystemTransformation placement;
    placement.setTranslation(KrVector(100.0, 0.0, 0.0));
    robot.setPlacement(placement);
    const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 900);
    KrManipulatorSystemState state;
    state.positionStates().resize(901);
    state.positionStates()[900] = robot.defaultState();
    osgUtil::UpdateVisitor update;
    ASSERT_TRUE(KrRenderLink::updateState(&update, &state));
    node->accept(update);

    const osg::ref_ptr<MorphTexture> texture = KrRenderMorphLink::updateVertexTexture(node);
    ASSERT_NE(texture, nullptr);
    EXPECT_EQ(texture->getImage()->s(), 4) << "three links, rounded up";
    const float* const data = reinterpret_cast<const float*>(texture->getImage()->data());
    EXPECT_EQ(data[12], 1.0f) << "joint 0, without the manipulator's placement";
    EXPECT_EQ(data[16 + 15], 0.0f) << "joint 1 waits for the texture to be drawn with";

    texture->setTextureWidth(4);
    EXPECT_EQ(KrRenderMorphLink::updateVertexTexture(node), texture);
    EXPECT_EQ(data[16 + 12], 1.0f) << "the child before its parent";
    EXPECT_EQ(data[16 + 13], 2.0f);
}

TEST(KrRenderMorphLink, BuildsItsProgramAndAttachesNothing)
{
    KrRenderMorphLink::init(nullptr);
    KrRenderMorphLink::createGeometry(nullptr);
    EXPECT_EQ(KrRenderMorphLink::updateVertexTexture(nullptr), nullptr);
    const KrIndividualManipulator robot = tree();
    const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 901);
    KrRenderMorphLink::init(node);
    const osg::NotifySeverity severity = osg::getNotifyLevel();
    osg::setNotifyLevel(osg::ALWAYS); // the refused uniform is reported by the scene graph
    KrRenderMorphLink::createGeometry(node);
    osg::setNotifyLevel(severity);
    EXPECT_EQ(node->getStateSet(), nullptr);
}

// Not even the misspelt name and the declaration that no compiler takes are to change: the text goes to the driver as
// applications know it.
TEST(KrRenderMorphLink, TheShaderKeepsItsSlips)
{
    const std::string source = KrRenderMorphLink::vertexShaderSource();
    for (const char* const slip : {"vec4 morphPosition(0.0);", "morphtPosition += weightValue5to8[i]",
                                   "uniform sampler1D matrixTexture;", "texture1DRect(matrixTexture, location)"}) {
        EXPECT_NE(source.find(slip), std::string::npos) << slip;
    }
}

} // namespace
