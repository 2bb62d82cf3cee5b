#pragma once

#include <osg/Matrixd>
#include <osg/NodeVisitor>
#include <osg/Texture1D>
#include <osg/ref_ptr>

#include <map>

namespace osg
{
class Node;
}
class KrRenderManipulator;
class KrSelfTestRun;
namespace KrSelfTestScenes
{
void morph(KrSelfTestRun& run);
}

/// The link matrices of one manipulator, for vertex shaders.
///
/// Width x 1 texels of four floats; the matrix of joint index j is in texels 4 j to 4 j + 3, texel 4 j + r holding row
/// r as osg::Matrixd stores it: a column in a shader's convention.
class MorphTexture : public osg::Texture1D
{
protected:
    ~MorphTexture() override = default;
};

/// Writes the link matrices below a manipulator, relative to it, into a texture.
class MorphUpdateVisitor : public osg::NodeVisitor
{
public:
    /// @param texture  held; null, or one without an image, is left alone
    explicit MorphUpdateVisitor(MorphTexture* texture);

    using osg::NodeVisitor::apply;
    void apply(osg::MatrixTransform& node) override;

private:
    void write(unsigned int jointIndex);

    osg::Matrixd m_matrix; ///< link to manipulator
    osg::ref_ptr<MorphTexture> m_texture;
};

/// Vertex blending of a manipulator on the graphics processor: the link matrices as a texture, and the program that
/// blends with them. Static operations only; scene thread only, and not while the textures are drawn.
class KrRenderMorphLink
{
public:
    /// Visits the manipulators below `root`; without effect. Nothing for null.
    static void init(osg::Node* root);
    /// Brings the manipulator's texture up to date and returns it; null for null. A texture is made on the first call
    /// for a manipulator index and kept for the life of the process. Until it has been drawn with, only the matrix of
    /// joint 0 is written.
    static osg::ref_ptr<MorphTexture> updateVertexTexture(KrRenderManipulator* manipulator);
    /// Builds the program "Vertex Morphing" and a state set with it and the texture. Nothing is attached to a node.
    static void createGeometry(KrRenderManipulator* manipulator);

    /// The source of the vertex shader.
    static const char* vertexShaderSource();

    /// Draws and judges in windows of its own, see KrSelfTest. False, after one message, when something is wrong.
    static bool selfTest();

private:
    friend void KrSelfTestScenes::morph(KrSelfTestRun& run); // sets the table aside meanwhile

    static std::map<unsigned int, osg::ref_ptr<MorphTexture>> m_MorphTextureMap; ///< by manipulator index
};
