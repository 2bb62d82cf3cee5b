#include <rendCore/base/private/KrPixelTransferGuard.h>

#include <osg/GL>
#include <osg/GLExtensions>

namespace
{

// Some of these are not in every GL header.
constexpr GLenum kPackSkipImages = 0x806B;
constexpr GLenum kPackImageHeight = 0x806C;
constexpr GLenum kUnpackSkipImages = 0x806D;
constexpr GLenum kUnpackImageHeight = 0x806E;
constexpr GLenum kPixelPackBuffer = 0x88EB;
constexpr GLenum kPixelUnpackBuffer = 0x88EC;
constexpr GLenum kPixelPackBufferBinding = 0x88ED;
constexpr GLenum kPixelUnpackBufferBinding = 0x88EF;

/// 0 is the right value of all but the alignments.
constexpr GLenum kStores[] = {GL_PACK_ALIGNMENT,    GL_UNPACK_ALIGNMENT,  GL_PACK_ROW_LENGTH,  GL_PACK_SKIP_ROWS,
                              GL_PACK_SKIP_PIXELS,  GL_PACK_SWAP_BYTES,   GL_PACK_LSB_FIRST,   kPackImageHeight,
                              kPackSkipImages,      GL_UNPACK_ROW_LENGTH, GL_UNPACK_SKIP_ROWS, GL_UNPACK_SKIP_PIXELS,
                              GL_UNPACK_SWAP_BYTES, GL_UNPACK_LSB_FIRST,  kUnpackImageHeight,  kUnpackSkipImages};
// They come first, and are the only ones that differ from guard to guard.
constexpr std::size_t kNumAlignments = 2;

/// The scales come first.
constexpr GLenum kTransfers[] = {GL_RED_SCALE,   GL_GREEN_SCALE, GL_BLUE_SCALE, GL_ALPHA_SCALE,
                                 GL_DEPTH_SCALE, GL_RED_BIAS,    GL_GREEN_BIAS, GL_BLUE_BIAS,
                                 GL_ALPHA_BIAS,  GL_DEPTH_BIAS,  GL_MAP_COLOR};
constexpr std::size_t kNumScales = 5;

// A scale of one and a bias of zero leave every value as it is.
float wantedTransfer(std::size_t i)
{
    return i < kNumScales ? 1.0f : 0.0f;
}

// 0 where the context knows no such buffers: asking for the name would be an error there.
unsigned int boundBuffer(const osg::GLExtensions& gl, GLenum binding)
{
    GLint name = 0;
    if (gl.isPBOSupported) {
        glGetIntegerv(binding, &name);
    }
    return static_cast<unsigned int>(name);
}

} // namespace

KrPixelTransferGuard::PackBuffer::PackBuffer(const osg::GLExtensions& gl, unsigned int buffer)
    : m_gl(gl)
    , m_buffer(buffer)
    , m_before(boundBuffer(gl, kPixelPackBufferBinding))
{
    if (m_before != m_buffer) {
        m_gl.glBindBuffer(kPixelPackBuffer, m_buffer);
    }
}

KrPixelTransferGuard::PackBuffer::~PackBuffer()
{
    if (m_before != m_buffer) {
        m_gl.glBindBuffer(kPixelPackBuffer, m_before);
    }
}

// What is right already costs a question and nothing else.
KrPixelTransferGuard::KrPixelTransferGuard(const osg::GLExtensions& gl, int alignment, unsigned int packBuffer)
    : m_gl(gl)
    , m_packBuffer(gl, packBuffer)
    , m_unpackBuffer(boundBuffer(gl, kPixelUnpackBufferBinding))
    , m_alignment(alignment)
{
    // The header's arrays keep what the tables name.
    static_assert(std::size(kStores) == kNumStores && std::size(kTransfers) == kNumTransfers);
    if (m_unpackBuffer != 0) {
        // A bound buffer would turn the pointers of pixels into offsets in it.
        m_gl.glBindBuffer(kPixelUnpackBuffer, 0);
    }
    for (std::size_t i = 0; i < kNumStores; ++i) {
        const int wanted = i < kNumAlignments ? m_alignment : 0;
        // What a context does not know leaves the number alone, and nothing is set for it.
        m_stores[i] = wanted;
        glGetIntegerv(kStores[i], &m_stores[i]);
        if (m_stores[i] != wanted) {
            glPixelStorei(kStores[i], wanted);
        }
    }
    for (std::size_t i = 0; i < kNumTransfers; ++i) {
        m_transfers[i] = wantedTransfer(i);
        glGetFloatv(kTransfers[i], &m_transfers[i]);
        if (m_transfers[i] != wantedTransfer(i)) {
            glPixelTransferf(kTransfers[i], wantedTransfer(i));
        }
    }
}

KrPixelTransferGuard::~KrPixelTransferGuard()
{
    for (std::size_t i = 0; i < kNumTransfers; ++i) {
        if (m_transfers[i] != wantedTransfer(i)) {
            glPixelTransferf(kTransfers[i], m_transfers[i]);
        }
    }
    // Whoever moves the pixels may have set some of them, too.
    for (std::size_t i = 0; i < kNumStores; ++i) {
        glPixelStorei(kStores[i], m_stores[i]);
    }
    if (m_unpackBuffer != 0) {
        m_gl.glBindBuffer(kPixelUnpackBuffer, m_unpackBuffer);
    }
}

void KrPixelTransferGuard::resetUnpacking(const osg::GLExtensions& gl)
{
    if (gl.isPBOSupported) {
        gl.glBindBuffer(kPixelUnpackBuffer, 0);
    }
    for (const GLenum store : {GLenum{GL_UNPACK_SKIP_ROWS}, GLenum{GL_UNPACK_SKIP_PIXELS}, kUnpackSkipImages,
                               kUnpackImageHeight, GLenum{GL_UNPACK_SWAP_BYTES}, GLenum{GL_UNPACK_LSB_FIRST}}) {
        glPixelStorei(store, 0);
    }
}
