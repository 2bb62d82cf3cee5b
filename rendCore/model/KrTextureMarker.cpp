#include <rendCore/model/KrTextureMarker.h>

#include <rendCore/base/private/KrPixelTransferGuard.h>
#include <rendCore/model/KrRenderShape.h>

#include <toolkit/foundation/KrGL.h>
#include <toolkit/foundation/KrPrint.h>

#include <osg/BlendFunc>
#include <osg/Camera>
#include <osg/ColorMask>
#include <osg/CullFace>
#include <osg/Depth>
#include <osg/FrameStamp>
#include <osg/GLExtensions>
#include <osg/Geometry>
#include <osg/Image>
#include <osg/NodeCallback>
#include <osg/PolygonMode>
#include <osg/PolygonOffset>
#include <osg/Program>
#include <osg/TexEnv>
#include <osgUtil/CullVisitor>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>

namespace
{

constexpr unsigned int kTextureUnit = 0;
constexpr unsigned int kPictureUnit = 1; ///< of a projection, whose unit 0 holds the depths
constexpr unsigned int kMaxSize = 8192;
constexpr std::size_t kMaxPending = 4096;
constexpr std::size_t kMaxPoints = 1024;
constexpr int kDepthSize = 1024;

// What surrounds a shape, the look of a selected one for instance, is not to reach its marks.
constexpr osg::StateAttribute::GLModeValue kOnHere =
    osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE | osg::StateAttribute::PROTECTED;
constexpr osg::StateAttribute::GLModeValue kOffHere =
    osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE | osg::StateAttribute::PROTECTED;

const char* const kFlatVertexShader = "#version 120\n"
                                      "varying vec2 place;\n"
                                      "void main()\n"
                                      "{\n"
                                      "    place = gl_Vertex.xy;\n"
                                      "    gl_TexCoord[0] = gl_MultiTexCoord0;\n"
                                      "    gl_Position = gl_ModelViewProjectionMatrix * gl_Vertex;\n"
                                      "}\n";

// The distance to the whole polyline decides, so that joints and crossings are no darker than the rest.
const char* const kStrokeFragmentShader =
    "#version 120\n"
    "uniform sampler2D points;\n"
    "uniform int numPoints;\n"
    "uniform float radius;\n"
    "uniform float hardness;\n"
    "uniform vec4 brushColor;\n"
    "varying vec2 place;\n"
    "vec2 point(int i) { return texture2D(points, vec2((float(i) + 0.5) / float(numPoints), 0.5)).xy; }\n"
    "void main()\n"
    "{\n"
    "    vec2 start = point(0);\n"
    "    float nearest = distance(place, start);\n"
    "    for (int i = 1; i < numPoints; ++i) {\n"
    "        vec2 end = point(i);\n"
    "        vec2 along = end - start;\n"
    "        float t = clamp(dot(place - start, along) / max(dot(along, along), 1.0e-20), 0.0, 1.0);\n"
    "        nearest = min(nearest, distance(place, start + t * along));\n"
    "        start = end;\n"
    "    }\n"
    "    float d = nearest / radius;\n"
    "    if (d >= 1.0) discard;\n"
    "    gl_FragColor = vec4(brushColor.rgb, brushColor.a * (1.0 - smoothstep(min(hardness, 0.999), 1.0, d)));\n"
    "}\n";

const char* const kStampFragmentShader = "#version 120\n"
                                         "uniform sampler2D picture;\n"
                                         "uniform float opacity;\n"
                                         "void main()\n"
                                         "{\n"
                                         "    vec4 color = texture2D(picture, gl_TexCoord[0].xy);\n"
                                         "    gl_FragColor = vec4(color.rgb, color.a * opacity);\n"
                                         "}\n";

// The surface is unrolled: its texture coordinates are where it is drawn.
const char* const kProjectionVertexShader = "#version 120\n"
                                            "uniform mat4 localToClip;\n"
                                            "varying vec4 projected;\n"
                                            "void main()\n"
                                            "{\n"
                                            "    projected = localToClip * gl_Vertex;\n"
                                            "    gl_Position = vec4(gl_MultiTexCoord0.xy * 2.0 - 1.0, 0.0, 1.0);\n"
                                            "}\n";

const char* const kProjectionFragmentShader =
    "#version 120\n"
    "uniform sampler2D depths;\n"
    "uniform sampler2D picture;\n"
    "uniform bool hasPicture;\n"
    "uniform float hardness;\n"
    "uniform vec4 brushColor;\n"
    "varying vec4 projected;\n"
    "void main()\n"
    "{\n"
    "    if (projected.w <= 0.0) discard;\n"
    "    vec3 place = projected.xyz / projected.w;\n"
    "    if (max(max(abs(place.x), abs(place.y)), abs(place.z)) > 1.0) discard;\n"
    "    vec3 window = place * 0.5 + 0.5;\n"
    "    if (window.z > texture2D(depths, window.xy).r) discard;\n"
    "    vec4 color = brushColor;\n"
    "    if (hasPicture) {\n"
    "        vec4 texel = texture2D(picture, window.xy);\n"
    "        color = vec4(texel.rgb, texel.a * brushColor.a);\n"
    "    } else {\n"
    "        color.a *= 1.0 - smoothstep(min(hardness, 0.999), 1.0, length(place.xy));\n"
    "    }\n"
    "    gl_FragColor = color;\n"
    "}\n";

void refuse(const char* operation, const char* reason)
{
    Kr::Print::instance()->write(Kr::Print::Warning, "KrTextureMarker::%s - nothing is marked: %s.\n", operation,
                                 reason);
}

bool isFinite(const osg::Vec2& v)
{
    return std::isfinite(v.x()) && std::isfinite(v.y());
}

bool isFinite(const osg::Vec4& v)
{
    return std::isfinite(v.x()) && std::isfinite(v.y()) && std::isfinite(v.z()) && std::isfinite(v.w());
}

bool isFinite(const osg::Matrixd& m)
{
    return std::all_of(m.ptr(), m.ptr() + 16, [](double value) { return std::isfinite(value); });
}

bool hasPixels(const osg::Image* picture)
{
    return picture && picture->data() && picture->s() > 0 && picture->t() > 0;
}

bool hasTextureCoordinates(const KrRenderShape& shape)
{
    for (unsigned int i = 0; i < shape.getNumDrawables(); ++i) {
        const osg::Drawable* const drawable = shape.getDrawable(i);
        const osg::Geometry* const geometry = drawable ? drawable->asGeometry() : nullptr;
        if (geometry && geometry->getTexCoordArray(kTextureUnit)) {
            return true;
        }
    }
    return false;
}

/// The texture with a picture that `states` sets; null when there is none.
const osg::Texture2D* textureOf(const osg::StateSet* states)
{
    const osg::StateAttribute* const attribute =
        states ? states->getTextureAttribute(kTextureUnit, osg::StateAttribute::TEXTURE) : nullptr;
    const auto* const texture = dynamic_cast<const osg::Texture2D*>(attribute);
    return texture && hasPixels(texture->getImage()) ? texture : nullptr;
}

/// The first texture with a picture that `shape` shows; null when there is none.
const osg::Texture2D* firstTexture(const KrRenderShape& shape)
{
    const osg::Texture2D* const own = textureOf(shape.getStateSet());
    const bool isForAll =
        own && (shape.getStateSet()->getTextureAttributePair(kTextureUnit, osg::StateAttribute::TEXTURE)->second &
                osg::StateAttribute::OVERRIDE) != 0;
    for (unsigned int i = 0; i < shape.getNumDrawables() && !isForAll; ++i) {
        const osg::Drawable* const drawable = shape.getDrawable(i);
        if (const osg::Texture2D* const texture = drawable ? textureOf(drawable->getStateSet()) : nullptr) {
            return texture;
        }
    }
    return own;
}

osg::StateSet::RefAttributePair attributeOf(const osg::StateSet& states, osg::StateAttribute::Type type)
{
    const osg::StateSet::RefAttributePair* const pair = states.getTextureAttributePair(kTextureUnit, type);
    return pair ? *pair : osg::StateSet::RefAttributePair();
}

void putBack(osg::StateSet& states, osg::StateAttribute::Type type, const osg::StateSet::RefAttributePair& pair)
{
    if (pair.first.valid()) {
        states.setTextureAttribute(kTextureUnit, pair.first, pair.second);
    } else {
        states.removeTextureAttribute(kTextureUnit, type);
    }
}

/// One frame among those of all viewers.
class Frame
{
public:
    Frame() = default;
    explicit Frame(const osg::NodeVisitor& visitor)
        : m_stamp(visitor.getFrameStamp())
        , m_number(m_stamp ? m_stamp->getFrameNumber() : visitor.getTraversalNumber())
        , m_isAny(true)
    {
    }
    bool operator==(const Frame& other) const
    {
        return m_isAny == other.m_isAny && m_stamp == other.m_stamp && m_number == other.m_number;
    }
    bool operator!=(const Frame& other) const { return !(*this == other); }

private:
    osg::ref_ptr<const osg::FrameStamp> m_stamp; ///< held, lest a later viewer's has the same address
    unsigned int m_number = 0;
    bool m_isAny = false;
};

osg::ref_ptr<osg::Image> newPicture(unsigned int width, unsigned int height)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(static_cast<int>(width), static_cast<int>(height), 1, GL_RGBA, GL_UNSIGNED_BYTE, 1);
    image->setInternalTextureFormat(GL_RGBA8);
    if (!image->data()) {
        throw std::bad_alloc();
    }
    return image;
}

/// The colour at a place given in pixels, their centres being at whole numbers; between them it is interpolated.
osg::Vec4 colorAt(const osg::Image& image, double x, double y)
{
    const auto clampTo = [](double value, int size) { return std::clamp(static_cast<int>(value), 0, size - 1); };
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

/// `source` brought to the size and form of `target`.
void resample(const osg::Image& source, osg::Image& target)
{
    unsigned char* out = target.data();
    for (int y = 0; y < target.t(); ++y) {
        for (int x = 0; x < target.s(); ++x) {
            const osg::Vec4 color =
                colorAt(source, (x + 0.5) * source.s() / target.s() - 0.5, (y + 0.5) * source.t() / target.t() - 0.5);
            for (unsigned int channel = 0; channel < 4; ++channel) {
                *out++ = static_cast<unsigned char>(std::lround(255.0f * std::clamp(color[channel], 0.0f, 1.0f)));
            }
        }
    }
}

osg::ref_ptr<osg::Program> newProgram(const char* name, const char* vertexShader, const char* fragmentShader)
{
    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName(name);
    program->addShader(new osg::Shader(osg::Shader::VERTEX, vertexShader));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, fragmentShader));
    return program;
}

osg::ref_ptr<osg::Texture2D> pictureTexture(osg::Image* picture)
{
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(picture);
    texture->setResizeNonPowerOfTwoHint(false);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR_MIPMAP_LINEAR);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    texture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    return texture;
}

/// `end - begin` points as the texels of one row: x and y in red and green.
osg::ref_ptr<osg::Texture2D> pointTexture(const osg::Vec2* begin, const osg::Vec2* end)
{
    const osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(static_cast<int>(end - begin), 1, 1, GL_RGBA, GL_FLOAT, 1);
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
    states.addUniform(new osg::Uniform("hardness", std::clamp(brush.hardness, 0.0f, 1.0f)));
    states.addUniform(new osg::Uniform("brushColor", brush.color));
}

osg::ref_ptr<osg::Node> strokeNode(const osg::Vec2* begin, const osg::Vec2* end, const KrTextureMarker::Brush& brush,
                                   osg::Program* program)
{
    osg::Vec2 low = *begin;
    osg::Vec2 high = *begin;
    for (const osg::Vec2* point = begin; point != end; ++point) {
        low.set(std::min(low.x(), point->x()), std::min(low.y(), point->y()));
        high.set(std::max(high.x(), point->x()), std::max(high.y(), point->y()));
    }
    const float r = brush.radius;
    const osg::Vec2 size = high - low + osg::Vec2(2.0f * r, 2.0f * r);
    const osg::ref_ptr<osg::Geometry> box = osg::createTexturedQuadGeometry(
        osg::Vec3(low.x() - r, low.y() - r, 0.0f), osg::Vec3(size.x(), 0.0f, 0.0f), osg::Vec3(0.0f, size.y(), 0.0f));
    osg::StateSet& states = *box->getOrCreateStateSet();
    states.setAttributeAndModes(program, kOnHere);
    states.setTextureAttribute(kTextureUnit, pointTexture(begin, end), kOnHere);
    states.addUniform(new osg::Uniform("points", static_cast<int>(kTextureUnit)));
    states.addUniform(new osg::Uniform("numPoints", static_cast<int>(end - begin)));
    states.addUniform(new osg::Uniform("radius", r));
    addUniforms(states, brush);
    return box;
}

osg::ref_ptr<osg::Node> stampNode(osg::Image* picture, const KrTextureMarker::Placement& placement,
                                  osg::Program* program)
{
    const float c = std::cos(placement.rotation);
    const float s = std::sin(placement.rotation);
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

/// Draws what a shape draws now, without being its parent.
class Surface : public osg::Node
{
public:
    explicit Surface(KrRenderShape& shape)
        : m_shape(&shape)
    {
        setCullingActive(false);
    }
    void setShape(KrRenderShape& shape) { m_shape = &shape; }

    void traverse(osg::NodeVisitor& visitor) override
    {
        osg::ref_ptr<KrRenderShape> shape;
        if (!m_shape.lock(shape)) {
            return;
        }
        for (unsigned int i = 0; i < shape->getNumDrawables(); ++i) {
            if (osg::Drawable* const drawable = shape->getDrawable(i)) {
                drawable->accept(visitor);
            }
        }
    }

private:
    osg::observer_ptr<KrRenderShape> m_shape;
};

/// A camera of its own that draws into textures, whatever the camera around it does.
osg::ref_ptr<osg::Camera> newTextureCamera(const char* name, int width, int height)
{
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setName(name);
    camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    camera->setRenderOrder(osg::Camera::PRE_RENDER);
    camera->setRenderTargetImplementation(osg::Camera::FRAME_BUFFER_OBJECT);
    camera->setImplicitBufferAttachmentMask(0, 0);
    camera->setViewport(0, 0, width, height);
    camera->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    camera->setCullingMode(osg::CullSettings::NO_CULLING);
    camera->setCullingActive(false);
    camera->setAllowEventFocus(false);
    return camera;
}

/// A projector: one pass for the depths it sees, one over the unrolled surface.
class Projection : public osg::Group
{
public:
    Projection(KrRenderShape& shape, osg::Image* picture, const KrTextureMarker::Brush& brush, const osg::Matrixd& view,
               const osg::Matrixd& projection, osg::Program* program)
        : m_depthCamera(newTextureCamera("Mark Depths", kDepthSize, kDepthSize))
        , m_seen(new Surface(shape))
        , m_marked(new Surface(shape))
        , m_localToClip(new osg::Uniform(osg::Uniform::FLOAT_MAT4, "localToClip"))
        , m_view(view)
    {
        const osg::ref_ptr<osg::Texture2D> depths = newDepthTexture();
        m_depthCamera->attach(osg::Camera::DEPTH_BUFFER, depths);
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

    void setShape(KrRenderShape& shape)
    {
        m_seen->setShape(shape);
        m_marked->setShape(shape);
    }

    void setLocalToWorld(const osg::Matrixd& localToWorld)
    {
        const osg::Matrixd localToEye = localToWorld * m_view;
        m_depthCamera->setViewMatrix(localToEye);
        m_localToClip->set(osg::Matrixf(localToEye * m_depthCamera->getProjectionMatrix()));
    }

private:
    static osg::ref_ptr<osg::Texture2D> newDepthTexture()
    {
        osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D;
        texture->setTextureSize(kDepthSize, kDepthSize);
        texture->setInternalFormat(GL_DEPTH_COMPONENT24);
        texture->setSourceFormat(GL_DEPTH_COMPONENT);
        texture->setSourceType(GL_UNSIGNED_INT);
        texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
        texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
        return texture;
    }

    static void setDepthStates(osg::StateSet& states)
    {
        states.setMode(GL_BLEND, kOffHere);
        states.setTextureMode(kTextureUnit, GL_TEXTURE_2D, kOffHere);
        states.setAttributeAndModes(new osg::Depth(osg::Depth::LESS), kOnHere);
        // A surface is not to be hidden by itself: its depths move back by what a texel of them spans.
        states.setAttributeAndModes(new osg::PolygonOffset(2.0f, 8.0f), kOnHere);
    }

    osg::ref_ptr<osg::Camera> m_depthCamera;
    osg::ref_ptr<Surface> m_seen;   ///< for the depths
    osg::ref_ptr<Surface> m_marked; ///< unrolled
    osg::ref_ptr<osg::Uniform> m_localToClip;
    osg::Matrixd m_view;
};

} // namespace

/// The texture of a shape. Its GL objects go together with those of the camera that draws into it, which is not in
/// the scene.
class KrTextureMarker::Target : public osg::Texture2D
{
public:
    explicit Target(osg::Image* image)
        : osg::Texture2D(image)
    {
        setResizeNonPowerOfTwoHint(false);
        setUnRefImageDataAfterApply(false);
        setInternalFormat(GL_RGBA8);
    }

    void setStudio(const Studio* studio) { m_studio = studio; }
    void releaseGLObjects(osg::State* state) const override;

protected:
    ~Target() override = default;

private:
    const Studio* m_studio = nullptr; ///< null once the marker is gone
    mutable bool m_isReleasing = false;
};

/// Draws marks into a texture.
class KrTextureMarker::Studio : public osg::Referenced
{
public:
    explicit Studio(Target& texture);

    osg::Program* strokeProgram() const { return m_strokeProgram; }
    osg::Program* stampProgram() const { return m_stampProgram; }
    osg::Program* projectionProgram() const { return m_projectionProgram; }

    /// Puts `marks` before the frame that `visitor` culls; the list is empty afterwards.
    void draw(std::vector<osg::ref_ptr<osg::Node>>& marks, osgUtil::CullVisitor& visitor);
    /// Drops what a frame before that of `visitor` has drawn.
    void tidy(const osg::NodeVisitor& visitor)
    {
        // A shape with two parents is met twice. The scene graph holds no reference to cameras that it has yet to draw.
        if (m_batch->getNumChildren() != 0 && m_drawnFrame != Frame(visitor)) {
            m_batch->removeChildren(0, m_batch->getNumChildren());
        }
    }
    void releaseGLObjects(osg::State* state) const;

protected:
    ~Studio() override = default;

private:
    class UploadCallback;
    class ReadBackCallback;

    void setStates(osg::StateSet& states) const;

    osg::ref_ptr<osg::Camera> m_camera;
    osg::ref_ptr<osg::Group> m_batch;
    Frame m_drawnFrame;
    osg::ref_ptr<osg::Program> m_strokeProgram;
    osg::ref_ptr<osg::Program> m_stampProgram;
    osg::ref_ptr<osg::Program> m_projectionProgram;
};

/// The texture's content must be there before it is drawn upon: being a target alone does not bring it.
class KrTextureMarker::Studio::UploadCallback : public osg::Camera::DrawCallback
{
public:
    explicit UploadCallback(Target& texture)
        : m_texture(&texture)
    {
    }
    void operator()(osg::RenderInfo& info) const override
    {
        osg::State& state = *info.getState();
        state.setActiveTextureUnit(kTextureUnit);
        m_texture->apply(state);
        state.haveAppliedTextureAttribute(kTextureUnit, m_texture);
    }

private:
    osg::ref_ptr<Target> m_texture;
};

/// Takes the drawn texture into its image, from which other and later contexts get it.
class KrTextureMarker::Studio::ReadBackCallback : public osg::Camera::DrawCallback
{
public:
    explicit ReadBackCallback(Target& texture)
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
            const KrPixelTransferGuard guard(*state.get<osg::GLExtensions>());
            glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, image.data());
        }
        image.dirty();
        // This context has it already.
        m_texture->getModifiedCount(state.getContextID()) = image.getModifiedCount();
    }

private:
    osg::ref_ptr<Target> m_texture;
};

void KrTextureMarker::Target::releaseGLObjects(osg::State* state) const
{
    osg::Texture2D::releaseGLObjects(state);
    // The camera's framebuffer object releases what is attached to it, and so comes back here.
    if (m_studio && !m_isReleasing) {
        m_isReleasing = true;
        m_studio->releaseGLObjects(state);
        m_isReleasing = false;
    }
}

KrTextureMarker::Studio::Studio(Target& texture)
    : m_camera(newTextureCamera("Texture Marks", texture.getImage()->s(), texture.getImage()->t()))
    , m_batch(new osg::Group)
    , m_strokeProgram(newProgram("stroke", kFlatVertexShader, kStrokeFragmentShader))
    , m_stampProgram(newProgram("stamp", kFlatVertexShader, kStampFragmentShader))
    , m_projectionProgram(newProgram("projection", kProjectionVertexShader, kProjectionFragmentShader))
{
    m_camera->setClearMask(0);
    m_camera->setProjectionMatrixAsOrtho2D(0.0, 1.0, 0.0, 1.0);
    m_camera->attach(osg::Camera::COLOR_BUFFER, &texture, 0, 0, true);
    m_camera->setInitialDrawCallback(new UploadCallback(texture));
    m_camera->setFinalDrawCallback(new ReadBackCallback(texture));
    m_batch->setCullingActive(false);
    setStates(*m_batch->getOrCreateStateSet());
    m_camera->addChild(m_batch);
}

void KrTextureMarker::Studio::setStates(osg::StateSet& states) const
{
    for (const GLenum mode : {GL_LIGHTING, GL_CULL_FACE, GL_DEPTH_TEST, GL_ALPHA_TEST, GL_FOG, GL_STENCIL_TEST,
                              GL_SCISSOR_TEST, GL_POLYGON_OFFSET_FILL}) {
        states.setMode(mode, kOffHere);
    }
    states.setAttributeAndModes(
        new osg::BlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA), kOnHere);
    states.setAttribute(new osg::PolygonMode(osg::PolygonMode::FRONT_AND_BACK, osg::PolygonMode::FILL), kOnHere);
    states.setAttribute(new osg::ColorMask(true, true, true, true), kOnHere);
    // In the order in which the marks were issued.
    states.setRenderBinDetails(0, "TraversalOrderBin",
                               static_cast<osg::StateSet::RenderBinMode>(osg::StateSet::OVERRIDE_RENDERBIN_DETAILS |
                                                                         osg::StateSet::PROTECTED_RENDERBIN_DETAILS));
}

void KrTextureMarker::Studio::draw(std::vector<osg::ref_ptr<osg::Node>>& marks, osgUtil::CullVisitor& visitor)
{
    // The path may hold any number of cameras; the view of the present one leads from world to eye.
    const osg::Matrixd localToWorld =
        *visitor.getModelViewMatrix() * visitor.getCurrentCamera()->getInverseViewMatrix();
    m_batch->removeChildren(0, m_batch->getNumChildren());
    m_drawnFrame = Frame(visitor);
    for (const osg::ref_ptr<osg::Node>& mark : marks) {
        if (auto* const projection = dynamic_cast<Projection*>(mark.get())) {
            projection->setLocalToWorld(localToWorld);
        }
        m_batch->addChild(mark);
    }
    marks.clear();
    m_camera->accept(visitor);
}

void KrTextureMarker::Studio::releaseGLObjects(osg::State* state) const
{
    m_camera->releaseGLObjects(state);
    for (const osg::Program* const program : {m_strokeProgram.get(), m_stampProgram.get(), m_projectionProgram.get()}) {
        program->releaseGLObjects(state);
    }
}

/// Draws waiting marks when a window is about to draw the shape; owns the marker on the shape's behalf.
class KrTextureMarker::CullHook : public osg::NodeCallback
{
public:
    explicit CullHook(KrTextureMarker& marker)
        : m_marker(&marker)
    {
    }
    KrTextureMarker* marker() const { return m_marker; }

    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override
    {
        if (m_marker->m_pending.empty()) {
            m_marker->m_studio->tidy(*visitor);
        } else if (auto* const cullVisitor = visitor->asCullVisitor()) {
            m_marker->m_studio->draw(m_marker->m_pending, *cullVisitor);
        }
        traverse(node, visitor);
    }

private:
    osg::ref_ptr<KrTextureMarker> m_marker;
};

/// Calls the application before each frame.
class KrTextureMarker::UpdateHook : public osg::NodeCallback
{
public:
    explicit UpdateHook(KrTextureMarker& marker)
        : m_marker(&marker)
    {
    }

    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override
    {
        // Detached by a callback, the shape lets go of this, and of what is nested in it.
        const osg::ref_ptr<UpdateHook> self(this);
        const osg::ref_ptr<osg::Callback> nested(getNestedCallback());
        // A shape with two parents is met twice.
        const Frame frame(*visitor);
        if (m_frame != frame) {
            m_frame = frame;
            callAll();
        }
        if (nested.valid()) {
            nested->run(node, visitor);
        } else {
            visitor->traverse(*node);
        }
    }

private:
    /// By index, and with removed ones left as null: a callback may add and remove callbacks, detach the shape and draw
    /// a frame of another window.
    void callAll() const
    {
        osg::ref_ptr<KrTextureMarker> marker;
        if (!m_marker.lock(marker)) {
            return;
        }
        auto& callbacks = marker->m_callbacks;
        const bool isInner = std::exchange(marker->m_isCalling, true);
        const std::size_t numCallbacks = callbacks.size();
        for (std::size_t i = 0; i < numCallbacks && marker->m_updateHook == this; ++i) {
            if (const osg::ref_ptr<KrMarkingCallback> callback = callbacks[i]; callback.valid()) {
                callback->mark(*marker);
            }
        }
        if (!isInner) {
            marker->m_isCalling = false;
            callbacks.erase(std::remove(callbacks.begin(), callbacks.end(), nullptr), callbacks.end());
        }
    }

    osg::observer_ptr<KrTextureMarker> m_marker; ///< the cull hook owns it
    Frame m_frame;
};

KrTextureMarker* KrTextureMarker::find(const KrRenderShape& shape)
{
    for (const osg::Callback* callback = shape.getCullCallback(); callback; callback = callback->getNestedCallback()) {
        if (const auto* const hook = dynamic_cast<const CullHook*>(callback)) {
            return hook->marker();
        }
    }
    return nullptr;
}

KrTextureMarker* KrTextureMarker::of(KrRenderShape& shape, unsigned int width, unsigned int height)
{
    if (KrTextureMarker* const present = find(shape)) {
        return present;
    }
    if (width == 0 || height == 0 || width > kMaxSize || height > kMaxSize) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrTextureMarker::of - no texture of %u x %u pixels: 1 to %u are possible.\n",
                                     width, height, kMaxSize);
        return nullptr;
    }
    if (!hasTextureCoordinates(shape)) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrTextureMarker::of - the shape \"%s\" has no texture coordinates to mark at.\n",
                                     shape.getName().c_str());
        return nullptr;
    }
    try {
        const osg::ref_ptr<KrTextureMarker> marker = new KrTextureMarker(shape, width, height);
        marker->attach(shape);
        return marker;
    } catch (const std::bad_alloc&) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrTextureMarker::of - no memory for %u x %u pixels.\n", width,
                                     height);
        return nullptr;
    }
}

KrTextureMarker::KrTextureMarker(KrRenderShape& shape, unsigned int width, unsigned int height)
    : m_shape(&shape)
    , m_original(newPicture(width, height))
{
    const osg::Texture2D* const before = firstTexture(shape);
    if (before) {
        resample(*before->getImage(), *m_original);
    } else {
        std::memset(m_original->data(), 255, m_original->getTotalSizeInBytes());
    }
    m_image = new osg::Image(*m_original, osg::CopyOp::DEEP_COPY_ALL);
    m_texture = new Target(m_image);
    if (before) {
        for (const osg::Texture::WrapParameter axis : {osg::Texture::WRAP_S, osg::Texture::WRAP_T}) {
            m_texture->setWrap(axis, before->getWrap(axis));
        }
        for (const osg::Texture::FilterParameter filter : {osg::Texture::MIN_FILTER, osg::Texture::MAG_FILTER}) {
            m_texture->setFilter(filter, before->getFilter(filter));
        }
    } else {
        m_texture->setWrap(osg::Texture::WRAP_S, osg::Texture::REPEAT);
        m_texture->setWrap(osg::Texture::WRAP_T, osg::Texture::REPEAT);
    }
    m_studio = new Studio(*m_texture);
    m_texture->setStudio(m_studio);
}

KrTextureMarker::~KrTextureMarker()
{
    m_texture->setStudio(nullptr);
}

void KrTextureMarker::attach(KrRenderShape& shape)
{
    osg::StateSet& states = *shape.getOrCreateStateSet();
    m_ownLook = {attributeOf(states, osg::StateAttribute::TEXTURE), attributeOf(states, osg::StateAttribute::TEXENV),
                 states.getTextureMode(kTextureUnit, GL_TEXTURE_2D)};
    states.setTextureAttribute(kTextureUnit, m_texture, osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    // Without override: a group may have switched textures off, or apply its own in another way.
    states.setTextureMode(kTextureUnit, GL_TEXTURE_2D, osg::StateAttribute::ON);
    states.setTextureAttribute(kTextureUnit, new osg::TexEnv(osg::TexEnv::MODULATE));
    shape.addCullCallback(new CullHook(*this));
}

void KrTextureMarker::detach(KrRenderShape& shape)
{
    osg::Callback* hook = shape.getCullCallback();
    while (hook && !dynamic_cast<CullHook*>(hook)) {
        hook = hook->getNestedCallback();
    }
    if (!hook) {
        return;
    }
    const osg::ref_ptr<KrTextureMarker> marker = dynamic_cast<CullHook*>(hook)->marker();
    if (marker->m_updateHook.valid()) {
        shape.removeUpdateCallback(marker->m_updateHook);
        marker->m_updateHook = nullptr;
    }
    shape.removeCullCallback(hook);
    osg::StateSet& states = *shape.getOrCreateStateSet();
    putBack(states, osg::StateAttribute::TEXTURE, marker->m_ownLook.texture);
    putBack(states, osg::StateAttribute::TEXENV, marker->m_ownLook.texEnv);
    // Last: a texture that is removed takes its mode with it.
    states.setTextureMode(kTextureUnit, GL_TEXTURE_2D, marker->m_ownLook.mode);
    marker->m_shape = nullptr;
}

bool KrTextureMarker::moveTo(KrRenderShape& shape)
{
    if (find(shape) == this) {
        return true;
    }
    if (!hasTextureCoordinates(shape)) {
        return false;
    }
    const osg::ref_ptr<KrTextureMarker> self(this);
    osg::ref_ptr<KrRenderShape> before;
    if (m_shape.lock(before)) {
        detach(*before);
    }
    detach(shape);
    m_shape = &shape;
    for (const osg::ref_ptr<osg::Node>& mark : m_pending) {
        if (auto* const projection = dynamic_cast<Projection*>(mark.get())) {
            projection->setShape(shape);
        }
    }
    attach(shape);
    m_updateHook = nullptr;
    if (!m_callbacks.empty()) {
        m_updateHook = new UpdateHook(*this);
        shape.addUpdateCallback(m_updateHook);
    }
    return true;
}

bool KrTextureMarker::hasRoom() const
{
    return m_pending.size() < kMaxPending;
}

bool KrTextureMarker::checkRoom(const char* operation) const
{
    if (hasRoom()) {
        return true;
    }
    refuse(operation, "too many marks wait for a frame that shows the shape");
    return false;
}

bool KrTextureMarker::stroke(const std::vector<osg::Vec2>& points, const Brush& brush)
{
    const bool areNumbers =
        std::all_of(points.begin(), points.end(), [](const osg::Vec2& point) { return isFinite(point); }) &&
        isFinite(brush.color) && std::isfinite(brush.hardness);
    if (points.empty() || !areNumbers || !(brush.radius > 0.0f) || !std::isfinite(brush.radius)) {
        refuse("stroke", "there are no points, a number is not finite or the radius is not positive");
        return false;
    }
    if (!checkRoom("stroke")) {
        return false;
    }
    const osg::Vec2* const end = points.data() + points.size();
    const osg::Vec2* begin = points.data();
    try {
        while (std::size_t(end - begin) > kMaxPoints) {
            m_pending.push_back(strokeNode(begin, begin + kMaxPoints, brush, m_studio->strokeProgram()));
            begin += kMaxPoints - 1; // the next piece starts where this one ends
        }
        m_pending.push_back(strokeNode(begin, end, brush, m_studio->strokeProgram()));
    } catch (const std::bad_alloc&) {
        refuse("stroke", "there is no memory");
        return false;
    }
    return true;
}

bool KrTextureMarker::stamp(osg::Image* picture, const Placement& placement)
{
    const bool isSound = isFinite(placement.centre) && isFinite(placement.size) && placement.size.x() > 0.0f &&
                         placement.size.y() > 0.0f && std::isfinite(placement.rotation) &&
                         std::isfinite(placement.opacity);
    if (!hasPixels(picture) || !isSound) {
        refuse("stamp", "the picture is empty, a number is not finite or a size is not positive");
        return false;
    }
    if (!checkRoom("stamp")) {
        return false;
    }
    m_pending.push_back(stampNode(picture, placement, m_studio->stampProgram()));
    return true;
}

bool KrTextureMarker::stamp(const KrImage& picture, KrImage::Orientation orientation, const Placement& placement)
{
    const osg::ref_ptr<osg::Image> image = new osg::Image;
    if (picture.data()) {
        image->allocateImage(static_cast<int>(picture.width()), static_cast<int>(picture.height()), 1,
                             KrGL::pixelFormat(picture.channels()), GL_UNSIGNED_BYTE, 1);
    }
    if (image->data()) {
        std::memcpy(image->data(), picture.data(), picture.sizeInBytes());
        if (orientation == KrImage::TopRowFirst) {
            image->flipVertical();
        }
    }
    return stamp(image, placement);
}

bool KrTextureMarker::addProjection(osg::Image* picture, const Brush& brush, const osg::Matrixd& view,
                                    const osg::Matrixd& projection)
{
    osg::ref_ptr<KrRenderShape> shape;
    if (!m_shape.lock(shape)) {
        refuse("project", "the shape is gone");
        return false;
    }
    const bool areNumbers =
        isFinite(view) && isFinite(projection) && isFinite(brush.color) && std::isfinite(brush.hardness);
    if (!areNumbers) {
        refuse("project", "a number is not finite");
        return false;
    }
    if (!checkRoom("project")) {
        return false;
    }
    m_pending.push_back(new Projection(*shape, picture, brush, view, projection, m_studio->projectionProgram()));
    return true;
}

bool KrTextureMarker::project(osg::Image* picture, const osg::Matrixd& view, const osg::Matrixd& projection,
                              float opacity)
{
    if (!hasPixels(picture)) {
        refuse("project", "the picture is empty");
        return false;
    }
    Brush brush;
    brush.color.a() = opacity;
    return addProjection(picture, brush, view, projection);
}

bool KrTextureMarker::project(const Brush& brush, const osg::Matrixd& view, const osg::Matrixd& projection)
{
    return addProjection(nullptr, brush, view, projection);
}

void KrTextureMarker::clear()
{
    m_pending.clear();
    std::memcpy(m_image->data(), m_original->data(), m_original->getTotalSizeInBytes());
    m_image->dirty();
}

void KrTextureMarker::addCallback(KrMarkingCallback* callback)
{
    if (!callback || std::find(m_callbacks.begin(), m_callbacks.end(), callback) != m_callbacks.end()) {
        return;
    }
    m_callbacks.push_back(callback);
    // Not locked: a shape under construction has no reference yet.
    KrRenderShape* const shape = m_shape.get();
    if (!m_updateHook && shape) {
        m_updateHook = new UpdateHook(*this);
        shape->addUpdateCallback(m_updateHook);
    }
}

void KrTextureMarker::removeCallback(KrMarkingCallback* callback)
{
    const auto found = std::find(m_callbacks.begin(), m_callbacks.end(), callback);
    if (!callback || found == m_callbacks.end()) {
        return;
    }
    if (m_isCalling) {
        *found = nullptr;
    } else {
        m_callbacks.erase(found);
    }
}

const osg::Texture2D& KrTextureMarker::texture() const
{
    return *m_texture;
}

bool KrTextureMarker::snapshot(KrImage& out) const
{
    out.allocate(4, 0, static_cast<unsigned int>(m_image->s()), static_cast<unsigned int>(m_image->t()));
    if (!out.data() || out.sizeInBytes() != m_image->getTotalSizeInBytes()) {
        return false;
    }
    std::memcpy(out.data(), m_image->data(), out.sizeInBytes());
    return true;
}
