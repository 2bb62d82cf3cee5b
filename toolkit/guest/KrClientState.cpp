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
    if (m_limits->hasFramebuffers) {
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, static_cast<GLuint>(framebuffers.draw));
        glBindFramebuffer(GL_READ_FRAMEBUFFER, static_cast<GLuint>(framebuffers.read));
    }
}

void KrClientState::readTargetBuffers()
{
    m_targetReadBuffer = static_cast<GLenum>(integer(GL_READ_BUFFER));
    m_targetDrawBuffers.assign(static_cast<std::size_t>(std::max(1, m_limits->drawBuffers)), GL_NONE);
    for (std::size_t i = 0; i < m_targetDrawBuffers.size(); ++i) {
        m_targetDrawBuffers[i] = static_cast<GLenum>(integer(nth(GL_DRAW_BUFFER0, static_cast<int>(i))));
    }
    const GLenum readable = readableFrom(m_targetDrawBuffers.front());
    if (readable != GL_NONE && readable != m_targetReadBuffer) {
        glReadBuffer(readable);
    }
}

void KrClientState::restoreTargetBuffers() const
{
    bool areSame = true;
    std::size_t used = 1;
    for (std::size_t i = 0; i < m_targetDrawBuffers.size(); ++i) {
        const GLenum present = static_cast<GLenum>(integer(nth(GL_DRAW_BUFFER0, static_cast<int>(i))));
        areSame = areSame && present == m_targetDrawBuffers[i];
        used = m_targetDrawBuffers[i] == GL_NONE ? used : i + 1;
    }
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
    if (m_isEntered) {
        return;
    }
    if (!m_limits) {
        m_limits = std::make_unique<const KrGLLimits>(KrGLLimits::ofContext());
        KrGLStateTraversal(*m_limits).initialize(m_library);
    }
    m_clientFramebuffers = boundFramebuffers();
    KrGLStateTraversal(*m_limits).read(m_client);
    KrGLStateTraversal(*m_limits).write(m_library, m_client);
    m_target = framebuffer;
    bindFramebuffers({static_cast<int>(m_target), static_cast<int>(m_target)});
    readTargetBuffers();
    m_isEntered = true;
}

void KrClientState::leave()
{
    if (!m_isEntered) {
        return;
    }
    m_isEntered = false;
    bindFramebuffers({static_cast<int>(m_target), static_cast<int>(m_target)});
    restoreTargetBuffers();
    KrGLStateTraversal(*m_limits).read(m_library);
    KrGLStateTraversal(*m_limits).write(m_client, m_library);
    bindFramebuffers(m_clientFramebuffers);
}
