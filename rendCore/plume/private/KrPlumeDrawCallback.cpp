#include <rendCore/plume/private/KrPlumeDrawCallback.h>

#include <toolkit/foundation/KrPrint.h>

#include <osg/GLExtensions>
#include <osg/Image>
#include <osg/Material>
#include <osg/Program>
#include <osg/RenderInfo>
#include <osg/State>
#include <osg/Texture3D>

#include <algorithm>

namespace
{

/// 0 and 1 hold the field and its colours.
constexpr unsigned int kDepthUnit = 2;
constexpr GLenum kFramebufferBinding = 0x8CA6; // GL_FRAMEBUFFER_BINDING, which not every GL header has
constexpr GLenum kSampleBuffers = 0x80A8;      // GL_SAMPLE_BUFFERS, which not every GL header has

int query(GLenum name)
{
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
}

/// Only a framebuffer of the window system resolves its samples when it is copied from.
bool canCopyDepth()
{
    // Asked in every frame: the same plume is drawn into windows and off screen.
    return query(GL_DEPTH_BITS) > 0 && (query(kFramebufferBinding) == 0 || query(kSampleBuffers) == 0);
}

/// The opacity that a material above the plume asks for: that of one which fades.
float fade(const osg::State& state)
{
    const auto* material =
        dynamic_cast<const osg::Material*>(state.getLastAppliedAttribute(osg::StateAttribute::MATERIAL));
    // A selection fades with a material of this mode; one of another mode has nothing to say to a shader.
    if (material == nullptr || material->getColorMode() != osg::Material::OFF) {
        return 1.0f;
    }
    return std::clamp(material->getDiffuse(osg::Material::FRONT).a(), 0.0f, 1.0f);
}

osg::ref_ptr<osg::Texture2D> makeDepthTexture(int width, int height)
{
    const osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D;
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    texture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    texture->setResizeNonPowerOfTwoHint(false);
    // 24 bits, as depth buffers have: coarser ones would show as steps where rays end.
    texture->setInternalFormat(GL_DEPTH_COMPONENT24);
    texture->setSourceFormat(GL_DEPTH_COMPONENT);
    texture->setSourceType(GL_UNSIGNED_INT);
    texture->setTextureSize(width, height);
    return texture;
}

} // namespace

KrPlumeDrawCallback::KrPlumeDrawCallback(const osg::Matrixd& placement)
    : m_placement(placement)
    , m_isPlaced(!placement.isIdentity())
    // The shader's colours are multiplied by their opacity already.
    , m_blending(new osg::BlendFunc(osg::BlendFunc::ONE, osg::BlendFunc::ONE_MINUS_SRC_ALPHA))
    , m_culling(new osg::CullFace(osg::CullFace::BACK))
    , m_depthWriting(new osg::Depth(osg::Depth::LESS, 0.0, 1.0, false))
    , m_depthUnit(new osg::Uniform("sceneDepth", static_cast<int>(kDepthUnit)))
    , m_depthArea(new osg::Uniform("sceneDepthArea", osg::Vec4()))
    , m_alpha(new osg::Uniform("plumeAlpha", 1.0f))
{
}

void KrPlumeDrawCallback::drawImplementation(osg::RenderInfo& renderInfo, const osg::Drawable* drawable) const
{
    osg::State& state = *renderInfo.getState();
    // One message for a plume, and not one for each frame.
    std::call_once(m_sizeCheck, [this, &state] { checkSize(state); });
    // Asked for and not taken from the state: whoever draws may have set another one.
    GLint viewport[4] = {};
    glGetIntegerv(GL_VIEWPORT, viewport);
    const Area area = {viewport[0], viewport[1], viewport[2], viewport[3]};

    // Before the plume is drawn: the depths of the solids are in the buffer.
    const bool hasDepth = copyDepth(state, area);
    setUniforms(state, area, hasDepth);
    state.applyMode(GL_BLEND, true);
    state.applyAttribute(m_blending);
    state.applyMode(GL_CULL_FACE, true);
    state.applyAttribute(m_culling);
    // What is translucent hides nothing from what is drawn later.
    state.applyAttribute(m_depthWriting);
    if (hasDepth) {
        // The shader ends rays at solids itself; a depth test would cut the plume at the box's far faces.
        state.applyMode(GL_DEPTH_TEST, false);
    }
    drawBox(renderInfo, *drawable);
}

/// Only a context knows how large a texture may be; of a larger one a part is drawn.
void KrPlumeDrawCallback::checkSize(const osg::State& state) const
{
    const auto* field =
        dynamic_cast<const osg::Texture3D*>(state.getLastAppliedTextureAttribute(0, osg::StateAttribute::TEXTURE));
    const osg::Image* cells = field != nullptr ? field->getImage() : nullptr;
    const int limit = state.get<osg::GLExtensions>()->maxTexture3DSize;
    if (cells != nullptr && std::max({cells->s(), cells->t(), cells->r()}) > limit) {
        Kr::Print::instance()->write(
            Kr::Print::Warning,
            "KrPlumeDrawCallback::drawImplementation - a plume of %d x %d x %d cells is not drawn "
            "whole: the graphics driver allows %d along an axis.\n",
            cells->s(), cells->t(), cells->r(), limit);
    }
}

/// The shaders find rays along the box's edges: the box is moved by the matrix and not by its vertices.
void KrPlumeDrawCallback::drawBox(osg::RenderInfo& renderInfo, const osg::Drawable& box) const
{
    if (!m_isPlaced) {
        box.drawImplementation(renderInfo);
        return;
    }
    osg::State& state = *renderInfo.getState();
    const osg::Matrixd nodeToEye = state.getModelViewMatrix();
    state.applyModelViewMatrix(m_placement * nodeToEye);
    box.drawImplementation(renderInfo);
    state.applyModelViewMatrix(nodeToEye);
}

bool KrPlumeDrawCallback::copyDepth(osg::State& state, const Area& area) const
{
    if (area.width <= 0 || area.height <= 0 || !canCopyDepth()) {
        return false;
    }
    // One for each context: windows that draw the same plume may have sizes of their own.
    osg::Texture2D& texture = depthTexture(state.getContextID(), area);
    state.setActiveTextureUnit(kDepthUnit);
    // Made here when it is new: glCopyTexSubImage2D wants a texture that is there.
    texture.apply(state);
    state.haveAppliedTextureAttribute(kDepthUnit, &texture);
    // To the texture's lower left corner, whichever part of the window is drawn into.
    glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, area.x, area.y, area.width, area.height);
    return true;
}

osg::Texture2D& KrPlumeDrawCallback::depthTexture(unsigned int contextId, const Area& area) const
{
    osg::ref_ptr<osg::Texture2D>& texture = m_depths[contextId];
    // Views of several sizes in one window share it: it never shrinks.
    const int width = std::max(area.width, texture ? texture->getTextureWidth() : 0);
    const int height = std::max(area.height, texture ? texture->getTextureHeight() : 0);
    if (!texture || width != texture->getTextureWidth() || height != texture->getTextureHeight()) {
        texture = makeDepthTexture(width, height);
    }
    return *texture;
}

void KrPlumeDrawCallback::setUniforms(const osg::State& state, const Area& area, bool hasDepth) const
{
    const osg::Program::PerContextProgram* program = state.getLastAppliedProgramObject();
    // Without shader files there is no program: the box is drawn plain.
    if (program == nullptr) {
        return;
    }
    osg::Vec4 depthArea;
    if (hasDepth) {
        const osg::Texture2D& texture = *m_depths[state.getContextID()];
        depthArea.set(static_cast<float>(area.x), static_cast<float>(area.y),
                      1.0f / static_cast<float>(texture.getTextureWidth()),
                      1.0f / static_cast<float>(texture.getTextureHeight()));
    }
    // An area of zeros says that there are no depths.
    m_depthArea->set(depthArea);
    m_alpha->set(fade(state));
    // Applied by hand: the state's own uniforms were set before this callback was called.
    program->apply(*m_depthUnit);
    program->apply(*m_depthArea);
    program->apply(*m_alpha);
}
