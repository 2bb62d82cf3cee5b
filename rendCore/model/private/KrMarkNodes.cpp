#include <rendCore/model/private/KrMarkNodes.h>

#include <osg/Depth>
#include <osg/Geometry>
#include <osg/Image>
#include <osg/PolygonOffset>
#include <osg/Texture2D>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

using KrMarkNodes::kOffHere;
using KrMarkNodes::kOnHere;
using KrMarkNodes::kTextureUnit;

namespace
{

constexpr unsigned int kPictureUnit = 1; ///< of a projection, whose unit 0 holds the depths
// Fine enough to tell parts of a robot apart, within what every driver draws.
constexpr int kDepthSize = 1024;

osg::ref_ptr<osg::Texture2D> pictureTexture(osg::Image* picture)
{
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(picture);
    // The scene graph would scale the picture to a power of two, and blur it.
    texture->setResizeNonPowerOfTwoHint(false);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR_MIPMAP_LINEAR);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    // A stamp's edge must not take colour from the opposite one.
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    texture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    return texture;
}

/// `end - begin` points as the texels of one row: x and y in red and green.
osg::ref_ptr<osg::Texture2D> pointTexture(const osg::Vec2* begin, const osg::Vec2* end)
{
    const osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(static_cast<int>(end - begin), 1, 1, GL_RGBA, GL_FLOAT, 1);
    // Points are texture coordinates of any size: eight bits, or [0, 1], would not hold them.
    image->setInternalTextureFormat(GL_RGBA32F_ARB);
    if (!image->data()) {
        throw std::bad_alloc();
    }
    auto* out = reinterpret_cast<float*>(image->data());
    for (const osg::Vec2* point = begin; point != end; ++point, out += 4) {
        const float texel[4] = {point->x(), point->y(), 0.0f, 1.0f};
        std::memcpy(out, texel, sizeof texel);
    }
    osg::ref_ptr<osg::Texture2D> texture = pictureTexture(image);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    return texture;
}

void addUniforms(osg::StateSet& states, const KrTextureMarker::Brush& brush)
{
    // At 1 the edge of the shader's smoothstep would have no width; the shader sees to that itself.
    states.addUniform(new osg::Uniform("hardness", std::clamp(brush.hardness, 0.0f, 1.0f)));
    states.addUniform(new osg::Uniform("brushColor", brush.color));
}

osg::ref_ptr<osg::Texture2D> newDepthTexture()
{
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D;
    texture->setTextureSize(kDepthSize, kDepthSize);
    // 24 bits: a surface is compared with its own depth, and 16 would show stripes.
    texture->setInternalFormat(GL_DEPTH_COMPONENT24);
    texture->setSourceFormat(GL_DEPTH_COMPONENT);
    texture->setSourceType(GL_UNSIGNED_INT);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    return texture;
}

void setDepthStates(osg::StateSet& states)
{
    // Only depths are written: whatever the shape's look asks for is out of place here.
    states.setMode(GL_BLEND, kOffHere);
    states.setTextureMode(kTextureUnit, GL_TEXTURE_2D, kOffHere);
    states.setAttributeAndModes(new osg::Depth(osg::Depth::LESS), kOnHere);
    // A surface is not to be hidden by itself: its depths move back by what a texel of them spans.
    states.setAttributeAndModes(new osg::PolygonOffset(2.0f, 8.0f), kOnHere);
}

} // namespace

osg::ref_ptr<osg::Node> KrMarkNodes::stroke(const osg::Vec2* begin, const osg::Vec2* end,
                                            const KrTextureMarker::Brush& brush, osg::Program* program)
{
    osg::Vec2 low = *begin;
    osg::Vec2 high = *begin;
    for (const osg::Vec2* point = begin; point != end; ++point) {
        low.set(std::min(low.x(), point->x()), std::min(low.y(), point->y()));
        high.set(std::max(high.x(), point->x()), std::max(high.y(), point->y()));
    }
    const float r = brush.radius;
    // The box around the line, wider by the radius: every texel outside would be discarded.
    const osg::Vec2 size = high - low + osg::Vec2(2.0f * r, 2.0f * r);
    const osg::ref_ptr<osg::Geometry> box = osg::createTexturedQuadGeometry(
        osg::Vec3(low.x() - r, low.y() - r, 0.0f), osg::Vec3(size.x(), 0.0f, 0.0f), osg::Vec3(0.0f, size.y(), 0.0f));
    osg::StateSet& states = *box->getOrCreateStateSet();
    states.setAttributeAndModes(program, kOnHere);
    states.setTextureAttribute(kTextureUnit, pointTexture(begin, end), kOnHere);
    states.addUniform(new osg::Uniform("points", static_cast<int>(kTextureUnit)));
    // The shader's loop runs to it. KrTextureMarker::stroke sees to it that a texture holds so many.
    states.addUniform(new osg::Uniform("numPoints", static_cast<int>(end - begin)));
    states.addUniform(new osg::Uniform("radius", r));
    addUniforms(states, brush);
    return box;
}

osg::ref_ptr<osg::Node> KrMarkNodes::stamp(osg::Image* picture, const KrTextureMarker::Placement& placement,
                                           osg::Program* program)
{
    const float c = std::cos(placement.rotation);
    const float s = std::sin(placement.rotation);
    // Counter-clockwise in texture space, u to the right and v upwards.
    const osg::Vec3 width(c * placement.size.x(), s * placement.size.x(), 0.0f);
    const osg::Vec3 height(-s * placement.size.y(), c * placement.size.y(), 0.0f);
    const osg::Vec3 centre(placement.centre.x(), placement.centre.y(), 0.0f);
    const osg::ref_ptr<osg::Geometry> quad =
        osg::createTexturedQuadGeometry(centre - (width + height) * 0.5f, width, height);
    osg::StateSet& states = *quad->getOrCreateStateSet();
    states.setAttributeAndModes(program, kOnHere);
    states.setTextureAttribute(kTextureUnit, pictureTexture(picture), kOnHere);
    states.addUniform(new osg::Uniform("picture", static_cast<int>(kTextureUnit)));
    states.addUniform(new osg::Uniform("opacity", placement.opacity));
    return quad;
}

osg::ref_ptr<osg::Camera> KrMarkNodes::textureCamera(const char* name, int width, int height)
{
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setName(name);
    // Whatever camera the shape is drawn with, the texture is looked at from (0, 0) to (1, 1).
    camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    // Before the frame that shows the shape, so that the marks are in it.
    camera->setRenderOrder(osg::Camera::PRE_RENDER);
    camera->setRenderTargetImplementation(osg::Camera::FRAME_BUFFER_OBJECT);
    // Nothing but what is attached: a depth buffer that nobody asked for would cost memory of the texture's size.
    camera->setImplicitBufferAttachmentMask(0, 0);
    camera->setViewport(0, 0, width, height);
    camera->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    // Marks are where they are in the texture, not in space: bounds say nothing of them.
    camera->setCullingMode(osg::CullSettings::NO_CULLING);
    camera->setCullingActive(false);
    camera->setAllowEventFocus(false);
    return camera;
}

/// Draws what a shape draws now, without being its parent.
class KrMarkProjection::Surface : public osg::Node
{
public:
    explicit Surface(osg::Geode& shape)
        : m_shape(&shape)
    {
        // Its bound is empty, having no children; culling would leave it out.
        setCullingActive(false);
    }
    void setShape(osg::Geode& shape) { m_shape = &shape; }

    void traverse(osg::NodeVisitor& visitor) override
    {
        osg::ref_ptr<osg::Geode> shape;
        if (!m_shape.lock(shape)) {
            return;
        }
        for (unsigned int i = 0; i < shape->getNumDrawables(); ++i) {
            if (osg::Drawable* const drawable = shape->getDrawable(i)) {
                // Drawable by drawable: as a child, the shape would get a parent more, and be met twice
                // by selections and updates.
                drawable->accept(visitor);
            }
        }
    }

private:
    osg::observer_ptr<osg::Geode> m_shape;
};

KrMarkProjection::KrMarkProjection(osg::Geode& shape, osg::Image* picture, const KrTextureMarker::Brush& brush,
                                   const osg::Matrixd& view, const osg::Matrixd& projection, osg::Program* program)
    : m_depthCamera(KrMarkNodes::textureCamera("Mark Depths", kDepthSize, kDepthSize))
    , m_seen(new Surface(shape))
    , m_marked(new Surface(shape))
    , m_localToClip(new osg::Uniform(osg::Uniform::FLOAT_MAT4, "localToClip"))
    , m_view(view)
{
    const osg::ref_ptr<osg::Texture2D> depths = newDepthTexture();
    m_depthCamera->attach(osg::Camera::DEPTH_BUFFER, depths);
    // There is no colour to clear.
    m_depthCamera->setClearMask(GL_DEPTH_BUFFER_BIT);
    m_depthCamera->setProjectionMatrix(projection);
    setDepthStates(*m_depthCamera->getOrCreateStateSet());
    m_depthCamera->addChild(m_seen);
    addChild(m_depthCamera);

    osg::StateSet& states = *m_marked->getOrCreateStateSet();
    states.setAttributeAndModes(program, kOnHere);
    states.setTextureAttribute(kTextureUnit, depths, kOnHere);
    states.addUniform(new osg::Uniform("depths", static_cast<int>(kTextureUnit)));
    // Two samplers of one kind may name one unit, so there is no need of a picture for the sake of the program.
    states.addUniform(new osg::Uniform("picture", static_cast<int>(picture ? kPictureUnit : kTextureUnit)));
    states.addUniform(new osg::Uniform("hasPicture", picture != nullptr));
    if (picture) {
        states.setTextureAttribute(kPictureUnit, pictureTexture(picture), kOnHere);
    }
    states.addUniform(m_localToClip);
    addUniforms(states, brush);
    addChild(m_marked);
}

void KrMarkProjection::setShape(osg::Geode& shape)
{
    m_seen->setShape(shape);
    m_marked->setShape(shape);
}

void KrMarkProjection::setLocalToWorld(const osg::Matrixd& localToWorld)
{
    const osg::Matrixd localToEye = localToWorld * m_view;
    m_depthCamera->setViewMatrix(localToEye);
    // Multiplied in double precision; a shader takes single.
    m_localToClip->set(osg::Matrixf(localToEye * m_depthCamera->getProjectionMatrix()));
}
