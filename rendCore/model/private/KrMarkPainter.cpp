#include <rendCore/model/private/KrMarkPainter.h>

#include <rendCore/base/private/KrPixelTransferGuard.h>
#include <rendCore/model/private/KrMarkNodes.h>
#include <rendCore/model/private/KrMarkShaders.h>

#include <osg/BlendFunc>
#include <osg/ColorMask>
#include <osg/CullFace>
#include <osg/GLExtensions>
#include <osg/Image>
#include <osg/PolygonMode>
#include <osgUtil/CullVisitor>

#include <algorithm>
#include <cmath>
#include <new>

using KrMarkNodes::kOffHere;
using KrMarkNodes::kOnHere;
using KrMarkNodes::kTextureUnit;

namespace
{

/// The colour at a place given in pixels, their centres being at whole numbers; between them it is interpolated.
osg::Vec4 colorAt(const osg::Image& image, double x, double y)
{
    // Beyond the edge the last pixel counts: half a pixel on each side has no neighbour.
    const auto clampTo = [](double value, int size) { return std::clamp(static_cast<int>(value), 0, size - 1); };
    // Of four neighbours, as a texture is filtered.
    const double left = std::floor(x);
    const double bottom = std::floor(y);
    const int columns[2] = {clampTo(left, image.s()), clampTo(left + 1.0, image.s())};
    const int rows[2] = {clampTo(bottom, image.t()), clampTo(bottom + 1.0, image.t())};
    const auto row = [&](int r) {
        const auto color = [&](int column) {
            return image.getColor(static_cast<unsigned int>(column), static_cast<unsigned int>(r));
        };
        const float weight = static_cast<float>(x - left);
        return color(columns[0]) * (1.0f - weight) + color(columns[1]) * weight;
    };
    const float weight = static_cast<float>(y - bottom);
    return row(rows[0]) * (1.0f - weight) + row(rows[1]) * weight;
}

/// Made once for each marker; the driver compiles it with the first mark of its kind.
osg::ref_ptr<osg::Program> newProgram(const char* name, const char* vertexShader, const char* fragmentShader)
{
    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName(name);
    program->addShader(new osg::Shader(osg::Shader::VERTEX, vertexShader));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, fragmentShader));
    return program;
}

} // namespace

osg::ref_ptr<osg::Image> KrMarkTexture::newPicture(unsigned int width, unsigned int height)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(static_cast<int>(width), static_cast<int>(height), 1, GL_RGBA, GL_UNSIGNED_BYTE, 1);
    image->setInternalTextureFormat(GL_RGBA8);
    if (!image->data()) {
        throw std::bad_alloc();
    }
    return image;
}

void KrMarkTexture::resample(const osg::Image& source, osg::Image& target)
{
    unsigned char* out = target.data();
    for (int y = 0; y < target.t(); ++y) {
        for (int x = 0; x < target.s(); ++x) {
            const osg::Vec4 color =
                colorAt(source, (x + 0.5) * source.s() / target.s() - 0.5, (y + 0.5) * source.t() / target.t() - 0.5);
            // By way of the image's colours, in [0, 1] for every format: grey, alpha and float pictures alike.
            for (unsigned int channel = 0; channel < 4; ++channel) {
                *out++ = static_cast<unsigned char>(std::lround(255.0f * std::clamp(color[channel], 0.0f, 1.0f)));
            }
        }
    }
}

/// The texture's content must be there before it is drawn upon: being a target alone does not bring it.
class KrMarkPainter::UploadCallback : public osg::Camera::DrawCallback
{
public:
    explicit UploadCallback(KrMarkTexture& texture)
        : m_texture(&texture)
    {
    }
    void operator()(osg::RenderInfo& info) const override
    {
        osg::State& state = *info.getState();
        state.setActiveTextureUnit(kTextureUnit);
        m_texture->apply(state);
        // The scene graph is told, or it would take another texture for the one that is bound.
        state.haveAppliedTextureAttribute(kTextureUnit, m_texture);
    }

private:
    osg::ref_ptr<KrMarkTexture> m_texture;
};

/// Takes the drawn texture into its image, from which other and later contexts get it.
class KrMarkPainter::ReadBackCallback : public osg::Camera::DrawCallback
{
public:
    explicit ReadBackCallback(KrMarkTexture& texture)
        : m_texture(&texture)
    {
    }
    void operator()(osg::RenderInfo& info) const override
    {
        osg::State& state = *info.getState();
        osg::Image& image = *m_texture->getImage();
        state.setActiveTextureUnit(kTextureUnit);
        m_texture->apply(state);
        state.haveAppliedTextureAttribute(kTextureUnit, m_texture);
        {
            // A client's settings of packing would have the driver write beside the image.
            const KrPixelTransferGuard guard(*state.get<osg::GLExtensions>());
            glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, image.data());
        }
        // For the other contexts, which have the texture as it was.
        image.dirty();
        // This context has it already.
        m_texture->getModifiedCount(state.getContextID()) = image.getModifiedCount();
    }

private:
    osg::ref_ptr<KrMarkTexture> m_texture;
};

void KrMarkTexture::releaseGLObjects(osg::State* state) const
{
    osg::Texture2D::releaseGLObjects(state);
    // The camera's framebuffer object releases what is attached to it, and so comes back here.
    if (m_painter && !m_isReleasing) {
        m_isReleasing = true;
        m_painter->releaseGLObjects(state);
        m_isReleasing = false;
    }
}

KrMarkPainter::KrMarkPainter(KrMarkTexture& texture)
    : m_camera(KrMarkNodes::textureCamera("Texture Marks", texture.getImage()->s(), texture.getImage()->t()))
    , m_batch(new osg::Group)
    , m_strokeProgram(newProgram("stroke", KrMarkShaders::kFlatVertexShader, KrMarkShaders::kStrokeFragmentShader))
    , m_stampProgram(newProgram("stamp", KrMarkShaders::kFlatVertexShader, KrMarkShaders::kStampFragmentShader))
    , m_projectionProgram(
          newProgram("projection", KrMarkShaders::kProjectionVertexShader, KrMarkShaders::kProjectionFragmentShader))
{
    // Marks are drawn over what the texture shows.
    m_camera->setClearMask(0);
    m_camera->setProjectionMatrixAsOrtho2D(0.0, 1.0, 0.0, 1.0);
    // The last argument: smaller versions are made after each drawing, because a filter may ask for them.
    m_camera->attach(osg::Camera::COLOR_BUFFER, &texture, 0, 0, true);
    m_camera->setInitialDrawCallback(new UploadCallback(texture));
    m_camera->setFinalDrawCallback(new ReadBackCallback(texture));
    m_batch->setCullingActive(false);
    setStates(*m_batch->getOrCreateStateSet());
    m_camera->addChild(m_batch);
}

void KrMarkPainter::setStates(osg::StateSet& states) const
{
    for (const GLenum mode : {GL_LIGHTING, GL_CULL_FACE, GL_DEPTH_TEST, GL_ALPHA_TEST, GL_FOG, GL_STENCIL_TEST,
                              GL_SCISSOR_TEST, GL_POLYGON_OFFSET_FILL}) {
        states.setMode(mode, kOffHere);
    }
    // Opacity is blended by another rule than colour: what is opaque stays opaque under a translucent mark.
    states.setAttributeAndModes(
        new osg::BlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA), kOnHere);
    states.setAttribute(new osg::PolygonMode(osg::PolygonMode::FRONT_AND_BACK, osg::PolygonMode::FILL), kOnHere);
    // A node above may have masked a channel out.
    states.setAttribute(new osg::ColorMask(true, true, true, true), kOnHere);
    // In the order in which the marks were issued.
    states.setRenderBinDetails(0, "TraversalOrderBin",
                               static_cast<osg::StateSet::RenderBinMode>(osg::StateSet::OVERRIDE_RENDERBIN_DETAILS |
                                                                         osg::StateSet::PROTECTED_RENDERBIN_DETAILS));
}

void KrMarkPainter::draw(std::vector<osg::ref_ptr<osg::Node>>& marks, osgUtil::CullVisitor& visitor)
{
    // The path may hold any number of cameras; the view of the present one leads from world to eye.
    const osg::Matrixd localToWorld =
        *visitor.getModelViewMatrix() * visitor.getCurrentCamera()->getInverseViewMatrix();
    m_batch->removeChildren(0, m_batch->getNumChildren());
    // `tidy` lets the batch go in a later frame, and not before.
    m_drawnFrame = KrMarkFrame(visitor);
    for (const osg::ref_ptr<osg::Node>& mark : marks) {
        if (auto* const projection = dynamic_cast<KrMarkProjection*>(mark.get())) {
            projection->setLocalToWorld(localToWorld);
        }
        m_batch->addChild(mark);
    }
    // The batch holds them until the frame is drawn.
    marks.clear();
    // Culled inside the frame that shows the shape, as a camera that renders before it.
    m_camera->accept(visitor);
}

void KrMarkPainter::releaseGLObjects(osg::State* state) const
{
    m_camera->releaseGLObjects(state);
    for (const osg::Program* const program : {m_strokeProgram.get(), m_stampProgram.get(), m_projectionProgram.get()}) {
        program->releaseGLObjects(state);
    }
}
