#include <toolkit/context/private/KrCurrentContext.h>

#include <toolkit/context/private/KrForkGuard.h>
#include <toolkit/context/private/KrXErrorTrap.h>

#include <GL/glx.h>

KrCurrentContext::KrCurrentContext()
{
    // EGL is asked first; only one of the two is expected to be current.
    m_eglContext = eglGetCurrentContext();
    if (m_eglContext != EGL_NO_CONTEXT) {
        m_eglDisplay = eglGetCurrentDisplay();
        m_eglDraw = eglGetCurrentSurface(EGL_DRAW);
        m_eglRead = eglGetCurrentSurface(EGL_READ);
        return;
    }
    m_glxContext = glXGetCurrentContext();
    if (m_glxContext) {
        m_glxDisplay = glXGetCurrentDisplay();
        m_glxDraw = glXGetCurrentDrawable();
        m_glxRead = glXGetCurrentReadDrawable();
    }
}

// What is current already is left alone: switching flushes.
void KrCurrentContext::restore() const
{
    // Contexts of the parent must not be touched in a forked process.
    if (KrForkGuard::isForked()) {
        return;
    }
    if (m_glxContext) {
        // The other API's context goes first, so that there is never one of each.
        leaveEgl();
        if (glXGetCurrentContext() == m_glxContext && glXGetCurrentDrawable() == m_glxDraw &&
            glXGetCurrentReadDrawable() == m_glxRead) {
            return;
        }
        // The client may have closed its drawable in the meantime, which is an error of X.
        const KrXErrorTrap trap(m_glxDisplay);
        glXMakeContextCurrent(static_cast<Display*>(m_glxDisplay), m_glxDraw, m_glxRead,
                              static_cast<GLXContext>(m_glxContext));
        return;
    }
    leaveGlx();
    // Nothing was current: then nothing is.
    if (m_eglContext == EGL_NO_CONTEXT) {
        leaveEgl();
    } else if (eglGetCurrentContext() != m_eglContext || eglGetCurrentSurface(EGL_DRAW) != m_eglDraw ||
               eglGetCurrentSurface(EGL_READ) != m_eglRead) {
        eglMakeCurrent(m_eglDisplay, m_eglDraw, m_eglRead, m_eglContext);
    }
}

// Surfaces are compared too: a client may have gone on to another one of the same context.
bool KrCurrentContext::isStillCurrent() const
{
    const KrCurrentContext now;
    return now.m_eglContext == m_eglContext && now.m_eglDraw == m_eglDraw && now.m_eglRead == m_eglRead &&
           now.m_glxContext == m_glxContext && now.m_glxDraw == m_glxDraw && now.m_glxRead == m_glxRead;
}

void KrCurrentContext::leaveEgl()
{
    // Left through the display that it is current on, which need not be ours.
    if (!KrForkGuard::isForked() && eglGetCurrentContext() != EGL_NO_CONTEXT) {
        eglMakeCurrent(eglGetCurrentDisplay(), EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    }
}

void KrCurrentContext::leaveGlx()
{
    if (!KrForkGuard::isForked() && glXGetCurrentContext()) {
        glXMakeContextCurrent(glXGetCurrentDisplay(), None, None, nullptr);
    }
}

bool KrCurrentContext::exists()
{
    return eglGetCurrentContext() != EGL_NO_CONTEXT || glXGetCurrentContext() != nullptr;
}

// The renderer's own limit on what it draws into, in pixels.
bool KrCurrentContext::canDraw(unsigned int width, unsigned int height)
{
    GLint limit[2] = {0, 0};
    glGetIntegerv(GL_MAX_VIEWPORT_DIMS, limit);
    return width <= static_cast<unsigned int>(limit[0]) && height <= static_cast<unsigned int>(limit[1]);
}
