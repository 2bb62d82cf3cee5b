// Framebuffers are asked through the GL library itself: the scene graph's table of functions lacks the question.
#define GL_GLEXT_PROTOTYPES

#include <rendCore/capture/KrFrameStream.h>

#include <rendCore/base/private/KrPixelConversion.h>
#include <rendCore/base/private/KrPixelTransferGuard.h>
#include <rendCore/capture/private/KrLabelPass.h>
#include <rendCore/capture/private/KrLabelRows.h>
#include <rendCore/capture/private/KrMetricDepth.h>
#include <rendCore/window/private/KrContextRestorer.h>
#include <rendCore/window/private/KrRenderStages.h>

#include <toolkit/foundation/KrPrint.h>

#include <osg/FrameBufferObject>
#include <osg/GLExtensions>
#include <osg/observer_ptr>
#include <osgUtil/RenderStage>
#include <osgViewer/Viewer>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace
{

// The frame that is drawn now is the newest; those before it have had one or two frames' time to arrive.
constexpr unsigned int kMostFramesLate = 2;
constexpr std::size_t kSlots = kMostFramesLate + 1; // one more: the frame that is being drawn

using Content = KrFrameStream::Content;

/// As handed out. Colours have three channels and no alpha, as pictures elsewhere; depths and labels are four bytes.
std::size_t pixelBytes(Content content)
{
    return content == Content::Color ? 3 : content == Content::Normals ? 3 * sizeof(float) : 4;
}

/// Whether it is read behind the frame, in a pass of its own.
bool isOfLabelPass(Content content)
{
    return content == Content::Depth || content == Content::Labels || content == Content::Normals;
}

GLint queried(GLenum name)
{
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
}

/// How a frame's pixels stand in the driver's buffer: as it likes to pack them, which is not always as they are told to
/// be handed out.
struct Packing
{
    GLenum format = GL_RGB;
    GLenum type = GL_UNSIGNED_BYTE;
    std::size_t pixelBytes = 3;
    bool isOpacityLeftOut = false; ///< it is packed, and not handed out
    unsigned int depthBits = 0;    ///< 0 unless integers are handed out as floats
};

/// Whether the depths that are read are floats by themselves: only those of 32 bits may be.
bool areFloats()
{
    GLint object = GL_NONE;
    GLint type = GL_NONE;
    const GLenum depth = queried(GL_READ_FRAMEBUFFER_BINDING) == 0 ? GL_DEPTH : GL_DEPTH_ATTACHMENT;
    glGetFramebufferAttachmentParameteriv(GL_READ_FRAMEBUFFER, depth, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE, &object);
    if (object != GL_NONE) {
        glGetFramebufferAttachmentParameteriv(GL_READ_FRAMEBUFFER, depth, GL_FRAMEBUFFER_ATTACHMENT_COMPONENT_TYPE,
                                              &type);
    }
    return type != GL_UNSIGNED_NORMALIZED;
}

/// @param canBeAsked  the driver knows what a framebuffer's depths are
Packing packingOf(Content content, bool canBeAsked)
{
    if (content == Content::Color) {
        // Four channels are copied as they stand, where the buffer has as many; three are packed pixel by pixel.
        return queried(GL_ALPHA_BITS) > 0 ? Packing{GL_RGBA, GL_UNSIGNED_BYTE, 4, true, 0} : Packing{};
    }
    if (content == Content::DepthRaw) {
        return {GL_DEPTH_COMPONENT, GL_UNSIGNED_INT, 4, false, 0};
    }
    // Integers are read as they stand; drivers turn them into floats row by row, with memory for each.
    const GLint bits = queried(GL_DEPTH_BITS);
    if (bits > 0 && (bits < 32 || (bits == 32 && canBeAsked && !areFloats()))) {
        return {GL_DEPTH_COMPONENT, GL_UNSIGNED_INT, 4, false, static_cast<unsigned int>(bits)};
    }
    return {GL_DEPTH_COMPONENT, GL_FLOAT, 4, false, 0};
}

/// Hands out what the driver has packed.
void unpack(const Packing& packing, const unsigned char* packed, std::size_t count, unsigned char* memory)
{
    if (packing.isOpacityLeftOut) {
        KrPixelConversion::toRgb(packed, count, memory);
        return;
    }
    // A lender's memory may begin at any byte: floats are made in memory of their own.
    constexpr std::size_t kBlock = 256;
    std::uint32_t depths[kBlock];
    float fractions[kBlock];
    for (std::size_t first = 0; first < count; first += kBlock) {
        const std::size_t size = std::min(kBlock, count - first);
        std::memcpy(depths, packed + 4 * first, 4 * size);
        KrPixelConversion::toFractions(depths, size, {packing.depthBits}, fractions);
        std::memcpy(memory + 4 * first, fractions, 4 * size);
    }
}

/// Reads from a framebuffer object, and puts the one before back; null reads from where the context reads.
class ReadTarget
{
public:
    ReadTarget(const osg::GLExtensions& gl, osg::State& state, const osg::FrameBufferObject* target)
        : m_gl(gl)
        , m_isBound(target != nullptr)
    {
        if (m_isBound) {
            m_before = static_cast<GLuint>(queried(GL_READ_FRAMEBUFFER_BINDING));
            // For reading only: what the frame draws into stays bound for drawing.
            target->apply(state, osg::FrameBufferObject::READ_FRAMEBUFFER);
        }
    }
    ~ReadTarget()
    {
        if (m_isBound) {
            m_gl.glBindFramebuffer(GL_READ_FRAMEBUFFER, m_before);
        }
    }
    ReadTarget(const ReadTarget&) = delete;
    ReadTarget& operator=(const ReadTarget&) = delete;

private:
    const osg::GLExtensions& m_gl;
    bool m_isBound;
    GLuint m_before = 0;
};

/// The framebuffer object in which the camera's picture stands; null for the window's own.
const osg::FrameBufferObject* targetOf(osg::Camera& camera)
{
    // Before the first frame there is no stage, and nothing was drawn anywhere.
    const osgUtil::RenderStage* const stage = KrRenderStages::of(camera);
    if (!stage || camera.getRenderTargetImplementation() != osg::Camera::FRAME_BUFFER_OBJECT) {
        return nullptr;
    }
    // A target with several samples is resolved into a second one, and only that can be read.
    const osg::FrameBufferObject* const resolved = stage->getMultisampleResolveFramebufferObject();
    return resolved ? resolved : stage->getFrameBufferObject();
}

/// Whether `observer` watches `object`. By itself an observer of what is gone equals whatever lies there now.
template <typename T>
bool isSame(const osg::observer_ptr<T>& observer, const T* object)
{
    return observer.valid() && observer.get() == object;
}

} // namespace

/// The driver's buffers and the frames in them, oldest first.
class KrFrameStream::Ring
{
public:
    explicit Ring(Content content)
        : m_content(content)
    {
    }
    Content content() const { return m_content; }
    ~Ring() { release(); }

    unsigned int numInFlight() const { return m_inFlight; }
    std::uint64_t numLost() const { return m_lost; }
    /// The next frame that is drawn is to be read, as this one.
    void arm(std::uint64_t number)
    {
        m_isArmed = true;
        m_number = number;
    }
    /// Ends that; whether the frame was read.
    bool disarm()
    {
        const bool wasRead = !m_isArmed;
        m_isArmed = false;
        return wasRead;
    }

    /// Reads the frame that has just been drawn, when it is armed.
    void read(osg::RenderInfo& info);
    /// Reads what a label pass has drawn, and has bound for reading.
    void read(osg::State& state, const KrLabelPass::View& view, KrLabelPass::Content target,
              const KrFrameCapture::Options& options);
    /// Whether the oldest frame has arrived; false, too, where the driver cannot tell.
    bool isOldestReady() const;
    const Frame& oldest() const { return m_slots[m_first].frame; }
    /// Copies the oldest frame into `memory` (null: it is let go) and forgets it. False when it is lost: the driver
    /// does not give it.
    bool takeOldest(unsigned char* memory);
    void loseOldest();
    bool isIn(const osg::State& state) const { return isSame(m_context, state.getGraphicsContext()); }
    /// Makes the buffers' context current; false when it is gone.
    bool makeCurrent() const;
    /// Frees the GL objects in their own context. Frames that are still in them are lost.
    void release();

private:
    struct Slot
    {
        GLuint buffer = 0;
        std::size_t capacity = 0;
        GLsync fence = nullptr;
        Packing packing;
        Frame frame;
        // Of a label pass.
        KrLabelPass::View view;
        KrLabelPass::Content target = KrLabelPass::Content::Labels;
        KrFrameCapture::Options options;
    };

    const osg::GLExtensions* extensions() const;
    bool reserve(const osg::GLExtensions& gl, Slot& slot, std::size_t size) const;
    Slot& prepare(osg::State& state, const osg::Camera& camera, unsigned int width, unsigned int height);
    void commit(const osg::GLExtensions& gl, Slot& slot);
    void unpack(const Slot& slot, const unsigned char* packed, unsigned char* memory);
    void forgetOldest(const osg::GLExtensions* gl);

    Content m_content;
    std::array<Slot, kSlots> m_slots;
    std::size_t m_first = 0;
    unsigned int m_inFlight = 0;
    std::uint64_t m_number = 0; ///< of the frame that is read next
    std::uint64_t m_lost = 0;
    bool m_isArmed = false;
    bool m_canBeAsked = false; ///< the context's driver: what a framebuffer's depths are
    KrMetricDepth m_metric;
    std::vector<std::uint32_t> m_words; ///< of a row, or of depths; kept, as the next
    std::vector<std::uint32_t> m_labels;
    std::vector<float> m_floats;
    osg::observer_ptr<osg::GraphicsContext> m_context;
};

/// What draws and what it draws, of contents that are no window's.
struct KrFrameStream::LabelPass
{
    LabelPass() = default;
    ~LabelPass() { pass->detach(); }
    LabelPass(const LabelPass&) = delete;
    LabelPass& operator=(const LabelPass&) = delete;

    osg::ref_ptr<KrLabelPass> pass = new KrLabelPass;
    std::vector<KrLabelPass::View> views; ///< kept, so that a frame allocates nothing
};

/// The ring's place in the drawing of a frame: behind the scene, before what is drawn over it, as captures are.
class KrFrameStream::Reader : public osg::Camera::DrawCallback
{
public:
    // Shared: a camera may hold the reader longer than the stream lives.
    explicit Reader(std::vector<std::shared_ptr<Ring>> rings)
        : m_rings(std::move(rings))
    {
    }
    void operator()(osg::RenderInfo& info) const override
    {
        for (const std::shared_ptr<Ring>& ring : m_rings) {
            ring->read(info);
        }
    }
    void releaseGLObjects(osg::State* state) const override
    {
        osg::Camera::DrawCallback::releaseGLObjects(state);
        for (const std::shared_ptr<Ring>& ring : m_rings) {
            // No state means every context's objects.
            if (!state || ring->isIn(*state)) {
                ring->release();
            }
        }
    }

    osg::observer_ptr<osg::Camera> camera; ///< the one that this is a callback of

private:
    std::vector<std::shared_ptr<Ring>> m_rings;
};

const osg::GLExtensions* KrFrameStream::Ring::extensions() const
{
    const osg::State* const state = m_context.valid() ? m_context->getState() : nullptr;
    return state ? state->get<osg::GLExtensions>() : nullptr;
}

bool KrFrameStream::Ring::makeCurrent() const
{
    // A context that was closed is an object still, without state.
    return m_context.valid() && m_context->getState() && m_context->valid() && m_context->makeCurrent();
}

void KrFrameStream::Ring::release()
{
    // What is in buffers that go can never be handed out, and is counted.
    m_lost += m_inFlight;
    m_inFlight = 0;
    const osg::GLExtensions* const gl = extensions();
    if (gl) {
        const KrContextRestorer restorer(nullptr);
        if (makeCurrent()) {
            for (const Slot& slot : m_slots) {
                if (slot.fence) {
                    gl->glDeleteSync(slot.fence);
                }
                if (slot.buffer != 0) {
                    gl->glDeleteBuffers(1, &slot.buffer);
                }
            }
        }
    }
    // Where the context has gone, it has taken the buffers with it: only the names are forgotten.
    m_slots = {};
    m_context = nullptr;
}

/// Storage grows and is kept: a window that shrinks and grows again allocates nothing.
bool KrFrameStream::Ring::reserve(const osg::GLExtensions& gl, Slot& slot, std::size_t size) const
{
    if (slot.capacity >= size) {
        return true;
    }
    gl.glBufferData(GL_PIXEL_PACK_BUFFER, static_cast<GLsizeiptr>(size), nullptr, GL_STREAM_READ);
    GLint stored = 0;
    // Asked and not taken for granted: a driver without memory leaves the buffer as it was.
    gl.glGetBufferParameteriv(GL_PIXEL_PACK_BUFFER, GL_BUFFER_SIZE, &stored);
    slot.capacity = static_cast<std::size_t>(stored);
    if (slot.capacity >= size) {
        return true;
    }
    Kr::Print::instance()->write(Kr::Print::Warning, "KrFrameStream - the driver has no buffer for %zu bytes.\n", size);
    return false;
}

/// The slot of the next frame, with all but its pixels.
KrFrameStream::Ring::Slot& KrFrameStream::Ring::prepare(osg::State& state, const osg::Camera& camera,
                                                        unsigned int width, unsigned int height)
{
    // Buffers are of one context: a window that was closed and opened again has another.
    if (!isIn(state)) {
        release();
        m_context = state.getGraphicsContext();
        m_canBeAsked = osg::isGLExtensionOrVersionSupported(state.getContextID(), "GL_ARB_framebuffer_object", 3.0f);
    }
    // The first free one behind those that are in flight.
    Slot& slot = m_slots[(m_first + m_inFlight) % kSlots];
    if (slot.buffer == 0) {
        // There, because `preRender` has asked for buffers of pixels.
        state.get<osg::GLExtensions>()->glGenBuffers(1, &slot.buffer);
    }
    Frame& frame = slot.frame;
    frame.width = width;
    frame.height = height;
    frame.content = m_content;
    frame.sizeInBytes = std::size_t(frame.width) * frame.height * pixelBytes(m_content);
    frame.number = m_number;
    // Now: when the frame is handed out the camera stands elsewhere.
    frame.worldToEye = camera.getViewMatrix();
    frame.projection = camera.getProjectionMatrix();
    return slot;
}

/// Its pixels have been asked for.
void KrFrameStream::Ring::commit(const osg::GLExtensions& gl, Slot& slot)
{
    if (gl.glFenceSync && gl.glClientWaitSync && gl.glDeleteSync) {
        // The fence says when the pixels are there. Without fences frames are handed out by their number alone.
        slot.fence = gl.glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
    }
    ++m_inFlight;
    m_isArmed = false;
}

void KrFrameStream::Ring::read(osg::RenderInfo& info)
{
    osg::State& state = *info.getState();
    osg::Camera* const camera = info.getCurrentCamera();
    const osg::Viewport* const viewport = camera ? camera->getViewport() : nullptr;
    // Not armed: somebody else draws the camera, not the window's frame.
    if (!m_isArmed || !viewport || m_inFlight == kSlots || isOfLabelPass(m_content)) {
        return;
    }
    Slot& slot = prepare(state, *camera, static_cast<unsigned int>(viewport->width()),
                         static_cast<unsigned int>(viewport->height()));
    const osg::GLExtensions& gl = *state.get<osg::GLExtensions>();
    // With the buffer bound, the pointer of glReadPixels is an offset into it, and the call
    // returns before the pixels come.
    const KrPixelTransferGuard guard(gl, 1, slot.buffer);
    const ReadTarget target(gl, state, targetOf(*camera));
    slot.packing = packingOf(m_content, m_canBeAsked);
    const Frame& frame = slot.frame;
    if (!reserve(gl, slot, std::size_t(frame.width) * frame.height * slot.packing.pixelBytes)) {
        return;
    }
    glReadPixels(static_cast<GLint>(viewport->x()), static_cast<GLint>(viewport->y()),
                 static_cast<GLsizei>(frame.width), static_cast<GLsizei>(frame.height), slot.packing.format,
                 slot.packing.type, nullptr);
    commit(gl, slot);
}

void KrFrameStream::Ring::read(osg::State& state, const KrLabelPass::View& view, KrLabelPass::Content target,
                               const KrFrameCapture::Options& options)
{
    if (!m_isArmed || m_inFlight == kSlots) {
        return;
    }
    const KrLabelPass::Area& area = view.area;
    Slot& slot =
        prepare(state, *view.camera, static_cast<unsigned int>(area.width), static_cast<unsigned int>(area.height));
    slot.frame.projection = view.projection;
    slot.view = view;
    slot.target = target;
    slot.options = options;
    const osg::GLExtensions& gl = *state.get<osg::GLExtensions>();
    const KrPixelTransferGuard guard(gl, 4, slot.buffer);
    const std::size_t words = m_content != Content::Depth && target == KrLabelPass::Content::Normals ? 2 : 1;
    if (!reserve(gl, slot, std::size_t(slot.frame.width) * slot.frame.height * words * sizeof(std::uint32_t))) {
        return;
    }
    if (m_content == Content::Depth) {
        KrLabelPass::askForDepths(area, nullptr);
    } else {
        KrLabelPass::askForPixels(area, target, nullptr);
    }
    commit(gl, slot);
}

/// Hands out what the driver has packed.
void KrFrameStream::Ring::unpack(const Slot& slot, const unsigned char* packed, unsigned char* memory)
{
    const Frame& frame = slot.frame;
    const std::size_t count = std::size_t(frame.width) * frame.height;
    if (!isOfLabelPass(m_content)) {
        ::unpack(slot.packing, packed, count, memory);
        return;
    }
    // A lender's memory may begin at any byte: numbers are made in memory of their own.
    if (m_content == Content::Depth) {
        m_words.resize(count);
        m_floats.resize(count);
        std::memcpy(m_words.data(), packed, 4 * count);
        m_metric.convert({frame.width, frame.height, slot.view.projection, KrLabelPass::kDepthBits,
                          slot.options.depthKind, slot.options.background},
                         m_words.data(), m_floats.data(), static_cast<std::ptrdiff_t>(frame.width));
        std::memcpy(memory, m_floats.data(), frame.sizeInBytes);
        return;
    }
    const KrLabelRows rows(slot.view, slot.target, slot.options.normalFrame);
    m_words.resize(rows.rowSize());
    m_floats.resize(std::size_t(3) * frame.width);
    std::vector<std::uint32_t>& labels = m_labels;
    labels.resize(frame.width);
    const std::size_t rowBytes = frame.sizeInBytes / std::max<std::size_t>(1, frame.height);
    for (unsigned int row = 0; row < frame.height; ++row) {
        std::memcpy(m_words.data(), packed + row * rows.rowSize() * 4, rows.rowSize() * 4);
        if (m_content == Content::Labels) {
            rows.toLabels(m_words.data(), labels.data());
            std::memcpy(memory + row * rowBytes, labels.data(), rowBytes);
        } else {
            rows.toNormals(m_words.data(), row, m_floats.data());
            std::memcpy(memory + row * rowBytes, m_floats.data(), rowBytes);
        }
    }
}

bool KrFrameStream::Ring::isOldestReady() const
{
    const osg::GLExtensions* const gl = extensions();
    const GLsync fence = m_slots[m_first].fence;
    if (!gl || !fence) {
        return false;
    }
    // A question and no wait: its time is 0. It flushes, because a fence that the driver holds back is never passed.
    const GLenum answer = gl->glClientWaitSync(fence, GL_SYNC_FLUSH_COMMANDS_BIT, 0);
    return answer == GL_ALREADY_SIGNALED || answer == GL_CONDITION_SATISFIED;
}

bool KrFrameStream::Ring::takeOldest(unsigned char* memory)
{
    const osg::GLExtensions* const gl = extensions();
    const Slot& slot = m_slots[m_first];
    // Null from a lender: the frame is not wanted, and is let go without being waited for.
    if (memory && gl) {
        // Waits for the frame where it has not arrived.
        // The client's own binding is put back.
        const KrPixelTransferGuard::PackBuffer binding(*gl, slot.buffer);
        const Frame& frame = slot.frame;
        if (!isOfLabelPass(m_content) && !slot.packing.isOpacityLeftOut && slot.packing.depthBits == 0) {
            gl->glGetBufferSubData(GL_PIXEL_PACK_BUFFER, 0, static_cast<GLsizeiptr>(frame.sizeInBytes), memory);
        } else if (const void* const packed = gl->glMapBuffer(GL_PIXEL_PACK_BUFFER, GL_READ_ONLY)) {
            unpack(slot, static_cast<const unsigned char*>(packed), memory);
            gl->glUnmapBuffer(GL_PIXEL_PACK_BUFFER);
        } else {
            loseOldest();
            return false;
        }
    }
    forgetOldest(gl);
    return true;
}

void KrFrameStream::Ring::loseOldest()
{
    forgetOldest(extensions());
    ++m_lost;
}

void KrFrameStream::Ring::forgetOldest(const osg::GLExtensions* gl)
{
    Slot& slot = m_slots[m_first];
    if (slot.fence && gl) {
        gl->glDeleteSync(slot.fence);
    }
    // The buffer stays with its slot, for a later frame.
    slot.fence = nullptr;
    m_first = (m_first + 1) % kSlots;
    --m_inFlight;
}

KrFrameStream::KrFrameStream(Content content)
    : KrFrameStream(std::vector<Content>{content})
{
}

KrFrameStream::KrFrameStream(const std::vector<Content>& contents)
{
    for (const Content content : contents) {
        m_rings.push_back(std::make_shared<Ring>(content));
    }
    if (std::any_of(contents.begin(), contents.end(), isOfLabelPass)) {
        m_labels = std::make_unique<LabelPass>();
    }
    m_reader = new Reader(m_rings);
}

KrFrameStream::~KrFrameStream()
{
    detach();
    // Somebody may hold the reader, a copy of the camera for one.
    for (const std::shared_ptr<Ring>& ring : m_rings) {
        ring->release();
    }
}

void KrFrameStream::setReceiver(Receiver receiver)
{
    m_receiver = std::move(receiver);
}

void KrFrameStream::setLender(Lender lender)
{
    m_lender = std::move(lender);
}

unsigned int KrFrameStream::numInFlight() const
{
    unsigned int most = 0;
    for (const std::shared_ptr<Ring>& ring : m_rings) {
        most = std::max(most, ring->numInFlight());
    }
    return most;
}

std::uint64_t KrFrameStream::numLost() const
{
    std::uint64_t count = 0;
    for (const std::shared_ptr<Ring>& ring : m_rings) {
        count += ring->numLost();
    }
    return count;
}

void KrFrameStream::attach(osg::Camera& camera)
{
    // The same camera from frame to frame: nothing is added.
    if (isSame(m_reader->camera, &camera)) {
        return;
    }
    if (m_reader->camera.valid()) {
        flush();
        detach();
    }
    // A camera that is gone has left its chain of callbacks behind, in which the reader stood.
    m_reader->setNestedCallback(nullptr);
    // Behind the scene and before the overlay, which is a camera of its own: streams show what captures show.
    camera.addPostDrawCallback(m_reader);
    m_reader->camera = &camera;
}

void KrFrameStream::detach()
{
    if (m_reader->camera.valid()) {
        m_reader->camera->removePostDrawCallback(m_reader);
        m_reader->camera = nullptr;
    }
}

bool KrFrameStream::preRender(osgViewer::Viewer* viewer)
{
    osg::Camera* const camera = viewer ? viewer->getCamera() : nullptr;
    osg::GraphicsContext* const context = camera ? camera->getGraphicsContext() : nullptr;
    osg::State* const state = context ? context->getState() : nullptr;
    if (!state) {
        Kr::Print::instance()->write(Kr::Print::Error, "KrFrameStream::preRender - there is no open viewer.\n");
        return false;
    }
    // Before the first frame nobody has asked the driver yet.
    if (!state->get<osg::GLExtensions>()) {
        state->initializeExtensionProcs();
    }
    if (!state->get<osg::GLExtensions>()->isPBOSupported) {
        Kr::Print::instance()->write(Kr::Print::Error,
                                     "KrFrameStream::preRender - the driver has no pixel buffer objects.\n");
        return false;
    }
    attach(*camera);
    for (const std::shared_ptr<Ring>& ring : m_rings) {
        ring->arm(m_number);
    }
    return true;
}

/// What is not colours or the window's depths, of the frame that has just been drawn.
bool KrFrameStream::readLabelPass(osgViewer::Viewer& viewer)
{
    osg::Camera* const camera = viewer.getCamera();
    osg::GraphicsContext* const context = camera->getGraphicsContext();
    const osg::Viewport* const viewport = camera->getViewport();
    // Somebody who is called in the frame may have closed the window.
    if (!context || !context->getState() || !viewport) {
        return false;
    }
    KrLabelPass::Request request;
    request.level = m_options.labelLevel;
    for (const std::shared_ptr<Ring>& ring : m_rings) {
        if (ring->content() == Content::Normals) {
            request.content = KrLabelPass::Content::Normals;
        }
    }
    const int width = static_cast<int>(viewport->width());
    const int height = static_cast<int>(viewport->height());
    m_labels->views.assign(1, {camera, {0, 0, width, height}, osg::Matrixd(), osg::Matrixd()});
    const char* failure = m_labels->pass->draw(viewer, width, height, request, m_labels->views);
    if (!failure && !KrMetricDepth::isSupported(m_labels->views.front().projection)) {
        failure = "its projection mixes depth with x or y";
        m_labels->pass->end(viewer);
    }
    if (failure) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrFrameStream - labels cannot be drawn: %s.\n", failure);
        return false;
    }
    for (const std::shared_ptr<Ring>& ring : m_rings) {
        if (isOfLabelPass(ring->content())) {
            ring->read(*context->getState(), m_labels->views.front(), request.content, m_options);
        }
    }
    m_labels->pass->end(viewer);
    return true;
}

bool KrFrameStream::postRender(osgViewer::Viewer* viewer)
{
    bool wasRead = !m_labels || readLabelPass(*viewer);
    // A frame that was not read makes the window's callback fail; those before it are handed out all the same.
    bool isAnyRead = false;
    for (const std::shared_ptr<Ring>& ring : m_rings) {
        const bool isRead = ring->disarm();
        wasRead = isRead && wasRead;
        isAnyRead = isRead || isAnyRead;
    }
    m_number += isAnyRead ? 1 : 0;
    // Never the frame that was read last: it would be waited for.
    handOut(kMostFramesLate);
    while (numInFlight() > 1 && isReady()) {
        handOut(numInFlight() - 1);
    }
    return wasRead;
}

/// Whether all of the oldest frame has arrived.
bool KrFrameStream::isReady() const
{
    return std::all_of(m_rings.begin(), m_rings.end(), [](const std::shared_ptr<Ring>& ring) {
        return ring->numInFlight() == 0 || ring->isOldestReady();
    });
}

bool KrFrameStream::flush()
{
    if (numInFlight() > 0) {
        const KrContextRestorer restorer(nullptr);
        // Outside of a frame another context may be current.
        const auto isGone = [](const std::shared_ptr<Ring>& ring) {
            return ring->numInFlight() > 0 && !ring->makeCurrent();
        };
        if (std::none_of(m_rings.begin(), m_rings.end(), isGone)) {
            handOut(0);
        } else {
            for (const std::shared_ptr<Ring>& ring : m_rings) {
                ring->release();
            }
        }
    }
    const bool isWhole = numLost() == m_lostAtFlush;
    // Losses are told once, to the first who asks.
    m_lostAtFlush = numLost();
    return isWhole;
}

unsigned char* KrFrameStream::memoryFor(const Frame& frame)
{
    if (m_lender) {
        // The client's memory: what it holds is the client's affair.
        return m_lender(frame);
    }
    // Grows and is kept, as the driver's buffers are.
    if (m_memory.size() < frame.sizeInBytes) {
        m_memory.resize(frame.sizeInBytes);
    }
    return m_memory.data();
}

void KrFrameStream::handOut(unsigned int mostLeft)
{
    while (numInFlight() > mostLeft) {
        // What one frame has of every content; a ring that could not read a frame is one behind, or ahead.
        std::uint64_t number = std::numeric_limits<std::uint64_t>::max();
        for (const std::shared_ptr<Ring>& ring : m_rings) {
            number = ring->numInFlight() > 0 ? std::min(number, ring->oldest().number) : number;
        }
        for (const std::shared_ptr<Ring>& ring : m_rings) {
            if (ring->numInFlight() > 0 && ring->oldest().number == number) {
                handOut(*ring);
            }
        }
    }
}

/// The oldest frame of one content.
void KrFrameStream::handOut(Ring& ring)
{
    Frame frame = ring.oldest();
    unsigned char* memory = nullptr;
    try {
        memory = memoryFor(frame);
    } catch (const std::bad_alloc&) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrFrameStream - no memory for a frame of %zu bytes.\n",
                                     frame.sizeInBytes);
        ring.loseOldest();
        return;
    }
    // Taken before the receiver is called: what it throws leaves the ring in order.
    const bool isTaken = ring.takeOldest(memory);
    if (isTaken && memory && m_receiver) {
        // Set for the receiver alone: the stream keeps no pointer to memory that is lent.
        frame.data = memory;
        m_receiver(frame);
    }
}
