#define GL_GLEXT_PROTOTYPES

#include <toolkit/guest/KrClientState.h>

#include <toolkit/guest/private/KrGLCalls.h>
#include <toolkit/guest/private/KrGLLimits.h>
#include <toolkit/guest/private/KrGLStateTraversal.h>

#include <algorithm>

using KrGLCalls::integer;
using KrGLCalls::nth;

namespace
{

/// The one colour buffer that drawing to `drawBuffer` fills; GL_NONE when that is none or several.
GLenum readableFrom(GLenum drawBuffer)
{
    const bool isAttachment = drawBuffer >= GL_COLOR_ATTACHMENT0 && drawBuffer <= GL_COLOR_ATTACHMENT31;
    const bool isSurface = drawBuffer >= GL_FRONT_LEFT && drawBuffer <= GL_RIGHT;
    return isAttachment || isSurface ? drawBuffer : GL_NONE;
}

} // namespace

KrClientState::KrClientState() = default;

KrClientState::~KrClientState() = default;

// Only the framebuffers: what is chosen inside one (its draw and read buffers) is a value of that framebuffer, not of
// the context, and is treated by the functions below.
KrClientState::Framebuffers KrClientState::boundFramebuffers() const
{
    Framebuffers bound;
    if (m_limits->hasFramebuffers) {
        bound.draw = integer(GL_DRAW_FRAMEBUFFER_BINDING);
        bound.read = integer(GL_READ_FRAMEBUFFER_BINDING);
    }
    return bound;
}

void KrClientState::bindFramebuffers(const Framebuffers& framebuffers) const
{
    // A context without framebuffer objects has its surface alone, which is always bound.
    if (m_limits->hasFramebuffers) {
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, static_cast<GLuint>(framebuffers.draw));
        glBindFramebuffer(GL_READ_FRAMEBUFFER, static_cast<GLuint>(framebuffers.read));
    }
}

// Notes what is chosen in the target, and directs reading to where drawing goes.
void KrClientState::readTargetBuffers()
{
    m_targetReadBuffer = static_cast<GLenum>(integer(GL_READ_BUFFER));
    // A context that tells no number of draw buffers still has the one of glDrawBuffer.
    m_targetDrawBuffers.assign(static_cast<std::size_t>(std::max(1, m_limits->drawBuffers)), GL_NONE);
    for (std::size_t i = 0; i < m_targetDrawBuffers.size(); ++i) {
        m_targetDrawBuffers[i] = static_cast<GLenum>(integer(nth(GL_DRAW_BUFFER0, static_cast<int>(i))));
    }
    const GLenum readable = readableFrom(m_targetDrawBuffers.front());
    // What is drawn is what is captured: glReadPixels reads the read buffer, which need not be where drawing goes.
    if (readable != GL_NONE && readable != m_targetReadBuffer) {
        glReadBuffer(readable);
    }
}

void KrClientState::restoreTargetBuffers() const
{
    bool areSame = true;
    // Told up to the last one in use: buffers behind it are off anyway, and drivers take no more than they have.
    std::size_t used = 1;
    for (std::size_t i = 0; i < m_targetDrawBuffers.size(); ++i) {
        const GLenum present = static_cast<GLenum>(integer(nth(GL_DRAW_BUFFER0, static_cast<int>(i))));
        areSame = areSame && present == m_targetDrawBuffers[i];
        used = m_targetDrawBuffers[i] == GL_NONE ? used : i + 1;
    }
    // A name that stands for several buffers (GL_FRONT_AND_BACK, GL_BACK of a stereo surface) is taken by glDrawBuffer,
    // but not by glDrawBuffers.
    if (!areSame && used == 1) {
        glDrawBuffer(m_targetDrawBuffers.front());
    } else if (!areSame) {
        glDrawBuffers(static_cast<GLsizei>(used), m_targetDrawBuffers.data());
    }
    if (static_cast<GLenum>(integer(GL_READ_BUFFER)) != m_targetReadBuffer) {
        glReadBuffer(m_targetReadBuffer);
    }
}

void KrClientState::enter(unsigned int framebuffer)
{
    // Entered twice, the client's values would be lost: the library's would be kept in their place.
    if (m_isEntered) {
        return;
    }
    // Asked once: limits do not change while a context lives.
    if (!m_limits) {
        m_limits = std::make_unique<const KrGLLimits>(KrGLLimits::ofContext());
        KrGLStateTraversal(*m_limits).initialize(m_library);
    }
    // Before anything is altered: binding the target hides what the client had bound.
    m_clientFramebuffers = boundFramebuffers();
    KrGLStateTraversal(*m_limits).read(m_client);
    KrGLStateTraversal(*m_limits).write(m_library, m_client);
    m_target = framebuffer;
    bindFramebuffers({static_cast<int>(m_target), static_cast<int>(m_target)});
    readTargetBuffers();
    m_isEntered = true;
}

// In the reverse order of `enter`: values first, the client's framebuffers last.
void KrClientState::leave()
{
    if (!m_isEntered) {
        return;
    }
    m_isEntered = false;
    // The scene may have bound framebuffers of its own, and the buffers to restore are those of the target.
    bindFramebuffers({static_cast<int>(m_target), static_cast<int>(m_target)});
    restoreTargetBuffers();
    // The library's state is kept as the scene leaves it, so that the next frame finds what OSG believes to be set.
    KrGLStateTraversal(*m_limits).read(m_library);
    KrGLStateTraversal(*m_limits).write(m_client, m_library);
    bindFramebuffers(m_clientFramebuffers);
}
