#include <rendCore/aids/KrRenderMorphLink.h>

#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderManipulator.h>

#include <toolkit/foundation/KrGL.h>

#include <osg/Image>
#include <osg/MatrixTransform>
#include <osg/Program>
#include <osg/StateSet>
#include <osg/Uniform>

#include <cstddef>
#include <memory>
#include <mutex>

namespace
{

/// Manipulators of the same index share a texture, also those of different threads.
std::mutex s_textureMutex;

// Red, green, blue and alpha hold one row of a matrix as the scene graph stores it, which
// the shader reads as a column.
constexpr std::size_t kFloatsPerTexel = 4;
constexpr std::size_t kFloatsPerMatrix = 16;

// Kept to the letter, slips included, for applications that know the text (vertexShaderSource): it is handed to the
// driver as it stands, whatever the driver says.
const char* const kMorphVertexShader =
    R"(// The vertex texture passes the global matrix transforms, the only information that changes per frame.
uniform sampler1D matrixTexture;
uniform float textureSize;
// gl_Vertex is the static location of the vertex, gl_Position the result.
// Indices of the first four attachments.
attribute vec4 matrixIndex1to4;
// Weights of the first four attachments.
attribute vec4 weightValue1to4;
// Indices of the second four attachments.
attribute vec4 matrixIndex5to8;
// Weights of the second four attachments.
attribute vec4 weightValue5to8;
// Each entry holds a colour value of 4 components that makes one column of the matrix; the other three columns are in
// the next three slots. The incoming index is multiplied by 4, which gives nominal storage for 1024 link matrices.
// Division by the size of the texture gives coordinates in the range [0,1].
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
// Morph the vertex location by weighting factors; up to 8 attachments.
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
)";

/// Kept without effect, so that `init` leaves an application's scene as it is: it stops at the first transform of every
/// branch.
class MorphInitVisitor : public osg::NodeVisitor
{
public:
    MorphInitVisitor()
        : osg::NodeVisitor(UPDATE_VISITOR, TRAVERSE_ALL_CHILDREN)
    {
    }

    using osg::NodeVisitor::apply;
    void apply(osg::MatrixTransform& node) override
    {
        if (const auto* manipulator = dynamic_cast<KrRenderManipulator*>(&node)) {
            manipulator->getManipulator();
        }
    }
};

/// A texture for as many texels as there are links, zeros before the first update.
osg::ref_ptr<MorphTexture> makeTexture(unsigned int numLinks)
{
    // Kept: a texel for each link, though a matrix takes four. The writer admits joints by this width, and shaders
    // divide by it.
    const unsigned int width = KrGL::powerOf2(numLinks);
    // Room for one matrix more than the texels: the test of the writer admits it.
    const std::size_t bytes = (kFloatsPerTexel * width + kFloatsPerMatrix) * sizeof(float);
    auto storage = std::make_unique<unsigned char[]>(bytes);
    const osg::ref_ptr<osg::Image> image = new osg::Image;
    image->setImage(static_cast<int>(width), 1, 1, GL_RGBA, GL_RGBA, GL_FLOAT, storage.release(),
                    osg::Image::USE_NEW_DELETE, 1);
    osg::ref_ptr<MorphTexture> texture = new MorphTexture;
    texture->setImage(image);
    return texture;
}

} // namespace

std::map<unsigned int, osg::ref_ptr<MorphTexture>> KrRenderMorphLink::m_MorphTextureMap;

MorphUpdateVisitor::MorphUpdateVisitor(MorphTexture* texture)
    : osg::NodeVisitor(UPDATE_VISITOR, TRAVERSE_ALL_CHILDREN)
    , m_texture(texture)
{
}

void MorphUpdateVisitor::apply(osg::MatrixTransform& node)
{
    const osg::Matrixd saved = m_matrix;
    // The manipulator's own matrix is left out, and so is that of any transform that is no link.
    if (!dynamic_cast<KrRenderManipulator*>(&node)) {
        if (const auto* link = dynamic_cast<KrRenderLink*>(&node)) {
            // Child before parent: row vectors, as the scene graph has them.
            m_matrix.preMult(node.getMatrix());
            write(link->getJointIndex());
        }
    }
    traverse(node);
    // Siblings begin at their parent's matrix.
    m_matrix = saved;
}

void MorphUpdateVisitor::write(unsigned int jointIndex)
{
    osg::Image* const image = m_texture.valid() ? m_texture->getImage() : nullptr;
    // Kept: the width is 0 until the texture has been applied once, so that applications find joint 0 alone before; one
    // matrix past the end is admitted, for which `makeTexture` has room. Unsigned, so that the base link's index is out
    // of range.
    if (!image || !image->data() || 4u * jointIndex > static_cast<unsigned int>(m_texture->getTextureWidth())) {
        return;
    }
    auto* out = reinterpret_cast<float*>(image->data()) + kFloatsPerMatrix * jointIndex;
    for (std::size_t i = 0; i < kFloatsPerMatrix; ++i) {
        out[i] = static_cast<float>(m_matrix.ptr()[i]);
    }
    // The texture is made anew with the next frame: writing into an image alone tells the driver nothing.
    m_texture->dirtyTextureObject();
}

const char* KrRenderMorphLink::vertexShaderSource()
{
    return kMorphVertexShader;
}

void KrRenderMorphLink::init(osg::Node* root)
{
    if (root) {
        MorphInitVisitor visitor;
        root->accept(visitor);
    }
}

osg::ref_ptr<MorphTexture> KrRenderMorphLink::updateVertexTexture(KrRenderManipulator* manipulator)
{
    if (!manipulator) {
        return nullptr;
    }
    // Held until the matrices are in: two threads must not write into one texture by turns.
    const std::lock_guard<std::mutex> lock(s_textureMutex);
    osg::ref_ptr<MorphTexture>& texture = m_MorphTextureMap[manipulator->getManipulatorIndex()];
    if (!texture) {
        // Kept: the size of the first manipulator of this index stays, also when a later one has more links, so that an
        // application that draws with the texture goes on to have the right one.
        texture = makeTexture(manipulator->getNumTotalLinks());
    }
    MorphUpdateVisitor visitor(texture);
    manipulator->accept(visitor);
    return texture;
}

void KrRenderMorphLink::createGeometry(KrRenderManipulator* manipulator)
{
    const osg::ref_ptr<MorphTexture> texture = updateVertexTexture(manipulator);
    if (!texture) {
        return;
    }
    // Kept: reserved for the attributes of vertices, and empty; nothing reads them.
    const osg::ref_ptr<osg::Vec4Array> indices = new osg::Vec4Array;
    const osg::ref_ptr<osg::Vec4Array> weights = new osg::Vec4Array;
    const osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName("Vertex Morphing");
    const osg::ref_ptr<osg::StateSet> states = new osg::StateSet;
    const osg::ref_ptr<osg::Uniform> sampler = new osg::Uniform(osg::Uniform::SAMPLER_1D, "matrixTexture");
    // The unit that the texture is put on below.
    sampler->set(0);
    states->addUniform(sampler);
    const osg::ref_ptr<osg::Uniform> size = new osg::Uniform(osg::Uniform::FLOAT, "textureSize");
    // Kept: the scene graph refuses a whole number for a float, so the uniform keeps its default, 0. Nothing draws with
    // it; the refusal is seen in the scene graph's own messages.
    size->set(texture->getTextureWidth());
    states->addUniform(size);
    // Kept: the third name repeats the first, so that it ends at location 3 and matrixIndex5to8 is bound to none.
    // Nothing draws with the program.
    program->addBindAttribLocation("matrixIndex1to4", 1);
    program->addBindAttribLocation("weightValue1to4", 2);
    program->addBindAttribLocation("matrixIndex1to4", 3);
    program->addBindAttribLocation("weightValue5to8", 4);
    program->addShader(new osg::Shader(osg::Shader::VERTEX, kMorphVertexShader));
    states->setTextureAttribute(0, texture, 0);
    states->setAttributeAndModes(program, osg::StateAttribute::ON);
    // Kept: nothing of this is attached to a node, so that a scene gains no state set here; the texture stays in the
    // table, where `updateVertexTexture` finds it.
}
