#include <rendCore/aids/KrRenderMorphLink.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderManipulator.h>

#include <tests/support/Systems.h>

#include <osg/Image>
#include <osg/Notify>
#include <osgUtil/UpdateVisitor>

#include <gtest/gtest.h>

#include <sstream>
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

/// `source` with each run of lines that are comments made one line "//".
std::string withoutRemarks(const std::string& source)
{
    std::istringstream lines(source);
    std::string result;
    bool wasRemark = false;
    for (std::string line; std::getline(lines, line);) {
        const bool isRemark = line.compare(0, 2, "//") == 0;
        result += isRemark ? (wasRemark ? "" : "//\n") : line + "\n";
        wasRemark = isRemark;
    }
    return result;
}

// Not even the misspelt name is to change: the text goes to the driver as it is.
TEST(KrRenderMorphLink, TheShaderIsTheOneThatApplicationsKnow)
{
    EXPECT_EQ(withoutRemarks(KrRenderMorphLink::vertexShaderSource()), R"(//
uniform sampler1D matrixTexture;
uniform float textureSize;
//
attribute vec4 matrixIndex1to4;
//
attribute vec4 weightValue1to4;
//
attribute vec4 matrixIndex5to8;
//
attribute vec4 weightValue5to8;
//
mat4 getMatrixForIndex(int index)
{
   float texIndex = 1.0 / textureSize;
   float location = (index * 4) * texIndex;
   mat4 mat;
   mat[0] = texture1DRect(matrixTexture, location); // Column 0
   location += texIndex;
   mat[1] = texture1DRect(matrixTexture, location); // Column 1
   location += texIndex;
   mat[2] = texture1DRect(matrixTexture, location); // Column 2
   location += texIndex;
   mat[3] = texture1DRect(matrixTexture, location); // Column 3
   return mat;
}
//
void main()
{
   vec4 morphPosition(0.0);
   mat4 mat;
   int i;
   for(i=0; i<4; ++i)
   {
      mat = getMatrixForIndex(matrixIndex1to4[i]);
      morphPosition += weightValue1to4[i] * mat * gl_Vertex;
   }
   for(i=0; i<4; ++i)
   {
      mat = getMatrixForIndex(matrixIndex5to8[i]);
      morphtPosition += weightValue5to8[i] * mat * gl_Vertex;
   }
   gl_Position = gl_ModelViewProjectionMatrix * morphPosition;
}
)");
}

} // namespace
