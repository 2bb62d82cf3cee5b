#include <rendCore/model/KrTextureMarker.h>

#include <rendCore/model/private/KrLabelCamera.h>
#include <rendCore/model/private/KrMarkNodes.h>
#include <rendCore/model/private/KrMarkPainter.h>

#include <toolkit/foundation/KrGL.h>
#include <toolkit/foundation/KrPrint.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Image>
#include <osg/NodeCallback>
#include <osg/TexEnv>
#include <osgUtil/CullVisitor>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>

using KrMarkNodes::kTextureUnit;

namespace
{

// Drivers of today draw into textures of that size; it takes 256 MiB of pixels.
constexpr unsigned int kMaxSize = 8192;
// A window that is never drawn must not gather marks without end.
constexpr std::size_t kMaxPending = 4096;
constexpr std::size_t kMaxPoints = 1024; // of one texture of points, which every context can hold

/// One form for all refusals: they tell what was asked and why it is not done.
void refuse(const char* operation, const char* reason)
{
    Kr::Print::instance()->write(Kr::Print::Warning, "KrTextureMarker::%s - nothing is marked: %s.\n", operation,
                                 reason);
}

// A number that is none would reach the shaders, and what they draw then is the driver's choice.
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

/// An image may be there and have no memory, after a file that could not be read.
bool hasPixels(const osg::Image* picture)
{
    return picture && picture->data() && picture->s() > 0 && picture->t() > 0;
}

/// One drawable with coordinates is enough; the others show no marks.
bool hasTextureCoordinates(const osg::Geode& shape)
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
const osg::Texture2D* firstTexture(const osg::Geode& shape)
{
    const osg::Texture2D* const own = textureOf(shape.getStateSet());
    // An override at the shape beats the textures of its groups.
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

/// With its override flags, so that what is put back counts as much as it did.
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

} // namespace

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
        auto* const cullVisitor = visitor->asCullVisitor();
        // What was drawn with an earlier frame is dropped now: until then the frame that draws it may be under way.
        if (m_marker->m_pending.empty()) {
            m_marker->m_painter->tidy(*visitor);
        } else if (cullVisitor && !KrLabelCamera::of(*cullVisitor)) {
            // Labels show no marks, which wait for colours. Marks wait for a visitor that culls: others draw nothing.
            m_marker->m_painter->draw(m_marker->m_pending, *cullVisitor);
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
        const KrMarkFrame frame(*visitor);
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
        // A callback may draw a frame of another window with the same shape: only the outermost call tidies the list.
        const bool isInner = std::exchange(marker->m_isCalling, true);
        // Counted before: those that are added meanwhile wait for the next frame.
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
    KrMarkFrame m_frame;
};

// The callback on the shape is the only record of a marker, and goes with the shape.
KrTextureMarker* KrTextureMarker::find(const osg::Geode& shape)
{
    // Callbacks are nested in one another: an application's own may come before or after ours.
    for (const osg::Callback* callback = shape.getCullCallback(); callback; callback = callback->getNestedCallback()) {
        if (const auto* const hook = dynamic_cast<const CullHook*>(callback)) {
            return hook->marker();
        }
    }
    return nullptr;
}

KrTextureMarker* KrTextureMarker::of(osg::Geode& shape, unsigned int width, unsigned int height)
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

KrTextureMarker::KrTextureMarker(osg::Geode& shape, unsigned int width, unsigned int height)
    : m_shape(&shape)
    , m_original(KrMarkTexture::newPicture(width, height))
{
    const osg::Texture2D* const before = firstTexture(shape);
    if (before) {
        KrMarkTexture::resample(*before->getImage(), *m_original);
    } else {
        // White: a texture is multiplied with the material's colour, and white leaves that as it is.
        std::memset(m_original->data(), 255, m_original->getTotalSizeInBytes());
    }
    // Two pictures: the original is what `clear` goes back to.
    m_image = new osg::Image(*m_original, osg::CopyOp::DEEP_COPY_ALL);
    m_texture = new KrMarkTexture(m_image);
    if (before) {
        // The texture in its place repeats and filters as before, so that a shape that is not
        // marked yet looks the same.
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
    // Behind the texture: its camera takes the size from it.
    m_painter = new KrMarkPainter(*m_texture);
    m_texture->setPainter(m_painter);
}

KrTextureMarker::~KrTextureMarker()
{
    // The state set may hold the texture longer than this lives.
    m_texture->setPainter(nullptr);
}

void KrTextureMarker::attach(osg::Geode& shape)
{
    osg::StateSet& states = *shape.getOrCreateStateSet();
    // Before anything is set: it is what `detach` puts back.
    m_ownLook = {attributeOf(states, osg::StateAttribute::TEXTURE), attributeOf(states, osg::StateAttribute::TEXENV),
                 states.getTextureMode(kTextureUnit, GL_TEXTURE_2D)};
    // With override: groups have textures of their own, whose picture the marks' texture began as.
    states.setTextureAttribute(kTextureUnit, m_texture, osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    // Without override: a group may have switched textures off, or apply its own in another way.
    states.setTextureMode(kTextureUnit, GL_TEXTURE_2D, osg::StateAttribute::ON);
    states.setTextureAttribute(kTextureUnit, new osg::TexEnv(osg::TexEnv::MODULATE));
    shape.addCullCallback(new CullHook(*this));
}

void KrTextureMarker::detach(osg::Geode& shape)
{
    osg::Callback* hook = shape.getCullCallback();
    while (hook && !dynamic_cast<CullHook*>(hook)) {
        hook = hook->getNestedCallback();
    }
    if (!hook) {
        return;
    }
    // Held: the hook is the marker's owner and goes below.
    const osg::ref_ptr<KrTextureMarker> marker = dynamic_cast<CullHook*>(hook)->marker();
    if (marker->m_updateHook.valid()) {
        shape.removeUpdateCallback(marker->m_updateHook);
        marker->m_updateHook = nullptr;
    }
    // Callbacks of an application stay, wherever they are nested.
    shape.removeCullCallback(hook);
    osg::StateSet& states = *shape.getOrCreateStateSet();
    putBack(states, osg::StateAttribute::TEXTURE, marker->m_ownLook.texture);
    putBack(states, osg::StateAttribute::TEXENV, marker->m_ownLook.texEnv);
    // Last: a texture that is removed takes its mode with it.
    states.setTextureMode(kTextureUnit, GL_TEXTURE_2D, marker->m_ownLook.mode);
    marker->m_shape = nullptr;
}

bool KrTextureMarker::moveTo(osg::Geode& shape)
{
    if (find(shape) == this) {
        return true;
    }
    if (!hasTextureCoordinates(shape)) {
        return false;
    }
    // The shape that is left may be the only one who holds this.
    const osg::ref_ptr<KrTextureMarker> self(this);
    osg::ref_ptr<osg::Geode> before;
    if (m_shape.lock(before)) {
        detach(*before);
    }
    // A marker that is there ends: a shape has one.
    detach(shape);
    m_shape = &shape;
    for (const osg::ref_ptr<osg::Node>& mark : m_pending) {
        if (auto* const projection = dynamic_cast<KrMarkProjection*>(mark.get())) {
            // Strokes and stamps lie in texture space; a projection is thrown onto a surface.
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

// Callbacks ask before they mark, and come back in a later frame.
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
            // Long strokes come in pieces, each with a texture of its own for its points.
            m_pending.push_back(KrMarkNodes::stroke(begin, begin + kMaxPoints, brush, m_painter->strokeProgram()));
            begin += kMaxPoints - 1; // the next piece starts where this one ends
        }
        m_pending.push_back(KrMarkNodes::stroke(begin, end, brush, m_painter->strokeProgram()));
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
    // Everything is looked at before anything is made.
    if (!hasPixels(picture) || !isSound) {
        refuse("stamp", "the picture is empty, a number is not finite or a size is not positive");
        return false;
    }
    if (!checkRoom("stamp")) {
        return false;
    }
    m_pending.push_back(KrMarkNodes::stamp(picture, placement, m_painter->stampProgram()));
    return true;
}

bool KrTextureMarker::stamp(const KrImage& picture, KrImage::Orientation orientation, const Placement& placement)
{
    const osg::ref_ptr<osg::Image> image = new osg::Image;
    // Empty pictures and those without memory are refused in one place, below.
    if (picture.data()) {
        image->allocateImage(static_cast<int>(picture.width()), static_cast<int>(picture.height()), 1,
                             KrGL::pixelFormat(picture.channels()), GL_UNSIGNED_BYTE, 1);
    }
    if (image->data()) {
        std::memcpy(image->data(), picture.data(), picture.sizeInBytes());
        if (orientation == KrImage::TopRowFirst) {
            // Marks have row 0 at the bottom, as OpenGL has.
            image->flipVertical();
        }
    }
    return stamp(image, placement);
}

bool KrTextureMarker::addProjection(osg::Image* picture, const Brush& brush, const osg::Matrixd& view,
                                    const osg::Matrixd& projection)
{
    osg::ref_ptr<osg::Geode> shape;
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
    // The shape is observed: its geometry counts as it is when the mark is drawn.
    m_pending.push_back(new KrMarkProjection(*shape, picture, brush, view, projection, m_painter->projectionProgram()));
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
    // The shader takes the opacity from the brush in both cases.
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
    // Every context that has the texture sends the picture again.
    m_image->dirty();
}

void KrTextureMarker::addCallback(KrMarkingCallback* callback)
{
    if (!callback || std::find(m_callbacks.begin(), m_callbacks.end(), callback) != m_callbacks.end()) {
        return;
    }
    // Held until it is taken out, as the scene graph holds its own.
    m_callbacks.push_back(callback);
    // Not locked: a shape under construction has no reference yet.
    osg::Geode* const shape = m_shape.get();
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
        // The list is being walked: places are closed up when the outermost call is over.
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
    // `allocate` has told of the lack of memory.
    if (!out.data() || out.sizeInBytes() != m_image->getTotalSizeInBytes()) {
        return false;
    }
    std::memcpy(out.data(), m_image->data(), out.sizeInBytes());
    return true;
}
