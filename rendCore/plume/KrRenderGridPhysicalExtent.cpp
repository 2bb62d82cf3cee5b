#include <rendCore/plume/KrRenderGridPhysicalExtent.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/plume/private/KrPlumeDrawCallback.h>

#include <toolkit/foundation/KrFileUtil.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/image/KrRenderShaderTexture.h>

#include <osg/Array>
#include <osg/Geometry>
#include <osg/Image>
#include <osg/Program>
#include <osg/Shader>
#include <osg/StateSet>
#include <osg/Texture3D>
#include <osg/Uniform>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

namespace
{

constexpr unsigned int kGridUnit = 0;
constexpr unsigned int kLookupUnit = 1;
constexpr unsigned int kBlockUnit = 3; // 2 is the draw callback's
// Kept: shaders of clients rely on this number.
constexpr float kLookupFactor = 100.0f;
constexpr unsigned int kEmptyLookupSize = 256;
constexpr const char* kShaderFolder = "/software/render/src/rendCore";
constexpr GLenum kGridFormat = 0x881B; // GL_RGB16F_ARB, which not every GL header has
constexpr float kMaxHalf = 65504.0f;   // the greatest finite value of that format
constexpr int kBlockEdge = 4;          // cells

/// The corners of the faces as texture coordinates. Every face winds so that its front looks into the box.
constexpr float kBox[24][3] = {
    {0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, // z = minimum
    {0, 0, 1}, {0, 1, 1}, {1, 1, 1}, {1, 0, 1}, // z = maximum
    {0, 0, 0}, {0, 1, 0}, {0, 1, 1}, {0, 0, 1}, // x = minimum
    {1, 0, 0}, {1, 0, 1}, {1, 1, 1}, {1, 1, 0}, // x = maximum
    {0, 0, 0}, {0, 0, 1}, {1, 0, 1}, {1, 0, 0}, // y = minimum
    {0, 1, 0}, {1, 1, 0}, {1, 1, 1}, {0, 1, 1}, // y = maximum
};

// What a grid tells of itself: value scale, corners (m), cells along each axis, and the shader's inflection.
struct Layout
{
    double dataScale = 1.0;
    KrVector minimum;
    KrVector maximum;
    KrVector dimensions;
    KrVector inflection;
};

/// Truncated; 0 for what is no count.
int cellCount(double real)
{
    if (!(real >= 1.0)) {
        return 0;
    }
    return static_cast<int>(std::min(real, static_cast<double>(std::numeric_limits<int>::max())));
}

/// The scaled values as floats. Values that the grid does not have stay 0.
KrRenderShader::Texture3 makeVolume(const Layout& layout, const std::vector<double>& values)
{
    KrRenderShader::Texture3 volume(
        {cellCount(layout.dimensions.x()), cellCount(layout.dimensions.y()), cellCount(layout.dimensions.z())}, 1);
    // A grid may tell of more cells than it has: what is missing is empty.
    const std::size_t count = std::min(volume.numFloats(), values.size());
    for (std::size_t i = 0; i < count; ++i) {
        // Kept: rounded to single precision before the scaling and after it; who reads the image finds the values so,
        // to the last bit.
        const auto rounded = static_cast<float>(values[i]);
        volume.data()[i] = static_cast<float>(static_cast<double>(rounded) * layout.dataScale);
    }
    return volume;
}

void warnOfLostValues(const KrRenderShader::Texture3& volume)
{
    const float* const end = volume.data() + volume.numFloats();
    const auto tooLarge = [](float value) { return !(std::abs(value) <= kMaxHalf); };
    // The first one is enough: one message for a grid, not one for a cell.
    const float* const found = std::find_if(volume.data(), end, tooLarge);
    if (found != end) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrRenderGridPhysicalExtent::init - value %zu is %g when scaled: values beyond %g "
                                     "are drawn as infinite ones.\n",
                                     static_cast<std::size_t>(found - volume.data()), static_cast<double>(*found),
                                     static_cast<double>(kMaxHalf));
    }
}

int numBlocks(int cells)
{
    // The last block may be smaller.
    return cells / kBlockEdge + (cells % kBlockEdge != 0 ? 1 : 0);
}

/// Of `outer` x `count` x `inner` values, the greatest ones of each block along the middle index. The values beside a
/// block count, too: interpolation reaches half a cell further.
std::vector<float> maximaAlong(const float* values, std::size_t outer, int count, std::size_t inner)
{
    const int blocks = numBlocks(count);
    std::vector<float> maxima(outer * static_cast<std::size_t>(blocks) * inner,
                              -std::numeric_limits<float>::infinity());
    for (std::size_t o = 0; o < outer; ++o) {
        for (int i = 0; i < count; ++i, values += inner) {
            for (int block = std::max(i - 1, 0) / kBlockEdge; block <= std::min((i + 1) / kBlockEdge, blocks - 1);
                 ++block) {
                float* const row =
                    maxima.data() + (o * static_cast<std::size_t>(blocks) + static_cast<std::size_t>(block)) * inner;
                std::transform(values, values + inner, row, row, [](float a, float b) { return std::max(a, b); });
            }
        }
    }
    return maxima;
}

/// What the shader passes over empty blocks by.
KrRenderShader::Texture3 makeBlockMaxima(const KrRenderShader::Texture3& volume)
{
    const KrRenderShader::vecT3<int> size = volume.dimensions();
    // Axis after axis, x first, which lies fastest: each step leaves less to the next.
    const KrRenderShader::vecT3<int> blocks(numBlocks(size.x), numBlocks(size.y), numBlocks(size.z));
    const auto count = [](int number) { return static_cast<std::size_t>(number); };
    std::vector<float> maxima = maximaAlong(volume.data(), count(size.z) * count(size.y), size.x, 1);
    maxima = maximaAlong(maxima.data(), count(size.z), size.y, count(blocks.x));
    maxima = maximaAlong(maxima.data(), 1, size.z, count(blocks.y) * count(blocks.x));
    return KrRenderShader::Texture3(blocks, 1, maxima.data());
}

// Grid frame to link frame, for row vectors.
osg::Matrixd matrixOf(const KrCoordinateSystemTransformation& placement)
{
    osg::Matrixd matrix;
    placement.assign16(matrix.ptr());
    return matrix;
}

/// The box of a drawable that is drawn elsewhere than its vertices are.
class PlacedBox : public osg::Drawable::ComputeBoundingBoxCallback
{
public:
    PlacedBox(const KrVector& minimum, const KrVector& maximum, const osg::Matrixd& placement)
    {
        for (const float(&corner)[3] : kBox) {
            osg::Vec3d place;
            for (unsigned int axis = 0; axis < 3; ++axis) {
                // In double precision, and rounded after it was placed.
                place[axis] = corner[axis] == 0.0f ? minimum[axis] : maximum[axis];
            }
            m_box.expandBy(osg::Vec3(place * placement));
        }
    }
    osg::BoundingBox computeBound(const osg::Drawable&) const override { return m_box; }

private:
    osg::BoundingBox m_box;
};

osg::ref_ptr<osg::Geode> makeBox(const KrVector& minimum, const KrVector& maximum, const osg::Matrixd& placement)
{
    const osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    const osg::ref_ptr<osg::Vec3Array> coordinates = new osg::Vec3Array;
    for (const float(&corner)[3] : kBox) {
        osg::Vec3 vertex;
        for (unsigned int axis = 0; axis < 3; ++axis) {
            vertex[axis] = static_cast<float>(corner[axis] == 0.0f ? minimum[axis] : maximum[axis]);
        }
        vertices->push_back(vertex);
        coordinates->push_back(osg::Vec3(corner[0], corner[1], corner[2]));
    }
    const osg::ref_ptr<osg::Geometry> box = new osg::Geometry;
    box->setVertexArray(vertices);
    box->setTexCoordArray(0, coordinates);
    // Kept: corners in the order of kBox, whose texture coordinates are places in the volume. The shaders take a ray's
    // end from them, and tell by a face's winding that it is the end.
    box->addPrimitiveSet(new osg::DrawArrays(GL_QUADS, 0, 24));
    // A display list would keep what the callback does at its first call.
    box->setUseDisplayList(false);
    box->setUseVertexBufferObjects(true);
    box->setDrawCallback(new KrPlumeDrawCallback(placement));
    box->setComputeBoundingBoxCallback(new PlacedBox(minimum, maximum, placement));
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(box);
    return geode;
}

osg::ref_ptr<osg::Texture3D> makeGridTexture(KrRenderShader::Texture3& volume)
{
    const osg::ref_ptr<osg::Image> image = new osg::Image;
    const KrRenderShader::vecT3<int> size = volume.dimensions();
    // The image owns the floats from here on, and deletes them.
    image->setImage(size.x, size.y, size.z, static_cast<GLint>(kGridFormat), GL_LUMINANCE, GL_FLOAT, volume.release(),
                    osg::Image::USE_NEW_DELETE, 1);

    const osg::ref_ptr<osg::Texture3D> texture = new osg::Texture3D;
    // Between the middles of cells values are interpolated; at the rim the outermost ones go on.
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    texture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    texture->setWrap(osg::Texture::WRAP_R, osg::Texture::CLAMP_TO_EDGE);
    texture->setResizeNonPowerOfTwoHint(false);
    texture->setInternalFormatMode(osg::Texture::USE_USER_DEFINED_FORMAT);
    // Kept: three channels for data with one; the shaders read the first.
    texture->setInternalFormat(static_cast<GLint>(kGridFormat));
    texture->setImage(image);
    return texture;
}

osg::ref_ptr<osg::Uniform> sampler(osg::Uniform::Type type, const char* name, unsigned int unit)
{
    const osg::ref_ptr<osg::Uniform> uniform = new osg::Uniform(type, name);
    uniform->set(static_cast<int>(unit));
    return uniform;
}

/// On the box and not on the node, whose state set holds the field and its look only.
void addBlocks(osg::Drawable& box, KrRenderShader::Texture3 maxima)
{
    // Nearest, unlike the field: a block's greatest value is no mean of its neighbours'.
    const osg::ref_ptr<osg::Texture3D> texture = makeGridTexture(maxima);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    osg::StateSet* const state = box.getOrCreateStateSet();
    state->setTextureAttribute(kBlockUnit, texture);
    state->addUniform(sampler(osg::Uniform::SAMPLER_3D, "blockMaxima", kBlockUnit));
    state->addUniform(new osg::Uniform("blockEdge", static_cast<float>(kBlockEdge)));
}

void addUniforms(osg::StateSet& state, const KrRenderShader::vecT3<int>& size, const Layout& layout)
{
    // Kept: these six names, all of them always there, for the shaders of clients.
    state.addUniform(sampler(osg::Uniform::SAMPLER_3D, "texture0", kGridUnit));
    state.addUniform(sampler(osg::Uniform::SAMPLER_1D, "texture1", kLookupUnit));
    state.addUniform(new osg::Uniform(
        "texSize", osg::Vec3(static_cast<float>(size.x), static_cast<float>(size.y), static_cast<float>(size.z))));
    state.addUniform(
        new osg::Uniform("scaleFactor", osg::Vec3(KrRenderTypes::ec2osg(layout.maximum - layout.minimum))));
    state.addUniform(new osg::Uniform("lutFactor", kLookupFactor));
    state.addUniform(new osg::Uniform("inflection", osg::Vec3(KrRenderTypes::ec2osg(layout.inflection))));
}

/// @param kind  for the message
void addShader(osg::Program& program, osg::Shader::Type type, const char* file, const char* kind)
{
    const osg::ref_ptr<osg::Shader> shader = new osg::Shader(type);
    const std::string path = KrFileUtil::findFile(file);
    if (!path.empty() && shader->loadShaderSourceFromFile(path)) {
        program.addShader(shader);
        return;
    }
    // Kept: the class without the method, for those who look for the message by this text.
    Kr::Print::instance()->write(Kr::Print::Warning, "KrRenderGridPhysicalExtent - unable to load %s shader.\n", kind);
}

/// Null, after a message, when it is not known where the shaders are.
osg::ref_ptr<osg::Program> makeProgram()
{
    const osg::ref_ptr<osg::Program> program = new osg::Program;
    // Kept: clients find the program by its name.
    program->setName("Ray Casting");
    const char* toolkits = std::getenv("KR_TOOLKITS");
    if (toolkits == nullptr) {
        Kr::Print::instance()->write(Kr::Print::Warning, "No KR_TOOLKITS defined\n");
        return nullptr;
    }
    // Kept: a missing file costs its stage and one message; the node is made all the same, so that the link has its
    // shape and its key.
    KrFileUtil::addDirectory(std::string(toolkits) + kShaderFolder);
    addShader(*program, osg::Shader::VERTEX, "krPlumeShader.vert", "vertex");
    addShader(*program, osg::Shader::FRAGMENT, "krPlumeShader.frag", "fragment");
    return program;
}

/// The low byte of the truncated value; values outside [0, 1] wrap. 0 for what no integer holds.
unsigned char lookupByte(double component)
{
    const double scaled = component * 255.0;
    // A conversion that does not fit an int is undefined. NaN fails here, too.
    if (!(scaled > -2147483649.0 && scaled < 2147483648.0)) {
        return 0;
    }
    return static_cast<unsigned char>(static_cast<int>(scaled));
}

} // namespace

osg::Geode* KrRenderGridPhysicalExtent::init(const KrGridPhysicalExtent* grid)
{
    if (grid == nullptr) {
        return nullptr;
    }
    Layout layout;
    grid->layout(layout.dataScale, layout.minimum, layout.maximum, layout.dimensions, layout.inflection);
    KrRenderShader::Texture3 volume = makeVolume(layout, grid->values());
    const KrRenderShader::vecT3<int> size = volume.dimensions();
    // Before the volume hands its floats to the image.
    warnOfLostValues(volume);

    osg::ref_ptr<osg::Geode> geode = makeBox(layout.minimum, layout.maximum, matrixOf(grid->placement()));
    // A grid without cells has no blocks, and draws nothing.
    if (volume.numFloats() != 0) {
        addBlocks(*geode->getDrawable(0), makeBlockMaxima(volume));
    }
    osg::StateSet* state = geode->getOrCreateStateSet();
    const osg::ref_ptr<osg::Texture3D> gridTexture = makeGridTexture(volume);
    state->setTextureAttributeAndModes(kGridUnit, gridTexture, osg::StateAttribute::ON);
    addUniforms(*state, size, layout);
    // Kept: only now is it asked where the shaders are, so that a message about values comes before theirs.
    const osg::ref_ptr<osg::Program> program = makeProgram();
    if (!program) {
        return nullptr;
    }
    // Kept: set a second time, which leaves the texture's modes as they are; nothing is known to depend on it.
    state->setTextureAttribute(kGridUnit, gridTexture, osg::StateAttribute::OFF);
    state->setTextureAttribute(kLookupUnit, createLUTTexture(grid->lookupTable()), osg::StateAttribute::OFF);
    state->setAttributeAndModes(program, osg::StateAttribute::ON);
    // Kept: a plain pointer without a reference; the caller (in the library KrRenderLink) takes the first one.
    return geode.release();
}

void KrRenderGridPhysicalExtent::drawAfterSolids(osg::Geode& plume)
{
    // On the drawables: the node's own state set asks for no bin.
    for (unsigned int i = 0; i < plume.getNumDrawables(); ++i) {
        plume.getDrawable(i)->getOrCreateStateSet()->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
    }
}

osg::Texture1D* KrRenderGridPhysicalExtent::createLUTTexture(const KrXmlVectorVector& lut)
{
    osg::ref_ptr<osg::Texture1D> texture = new osg::Texture1D;
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    // Otherwise a table of 100 colours would be resampled to 128, in the image as well.
    texture->setResizeNonPowerOfTwoHint(false);

    const osg::ref_ptr<osg::Image> image = new osg::Image;
    const unsigned int size = lut.empty() ? kEmptyLookupSize : lut.size();
    image->allocateImage(static_cast<int>(size), 1, 1, GL_RGB, GL_UNSIGNED_BYTE, 1);
    unsigned char* texel = image->data();
    // Kept: black, when the table is empty, so that a field without one is drawn black.
    std::fill_n(texel, std::size_t{3} * size, static_cast<unsigned char>(0));
    for (const KrVector& color : lut) {
        for (unsigned int channel = 0; channel < 3; ++channel) {
            *texel++ = lookupByte(color[channel]);
        }
    }
    texture->setImage(image);
    return texture.release();
}
