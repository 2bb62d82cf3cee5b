#pragma once

#include <EGL/egl.h>

/// The OpenGL context that is current in this thread, EGL's or GLX's, remembered so that it can be put back.
///
/// Only handles are kept, nothing is owned: the remembered context must still exist when it is put back. EGL and
/// GLX refuse to switch away from each other's contexts, so whoever switches calls the matching `leave` first.
class KrCurrentContext
{
public:
    /// Remembers what is current now; that may be nothing.
    KrCurrentContext();

    /// Makes the remembered context, with its surfaces, current again; nothing is current after it when nothing was.
    void restore() const;
    /// True when the remembered context, with its surfaces, is the current one; also when there was none and is none.
    bool isStillCurrent() const;

    bool isEgl(EGLContext context) const { return m_eglContext != EGL_NO_CONTEXT && m_eglContext == context; }
    /// @param context a GLXContext
    bool isGlx(const void* context) const { return m_glxContext != nullptr && m_glxContext == context; }

    static void leaveEgl(); ///< no EGL context is current afterwards
    static void leaveGlx(); ///< no GLX context is current afterwards
    /// True when an OpenGL context is current in this thread, whoever made it.
    static bool exists();
    /// True when the current context can draw a surface of that size, pixels (GL_MAX_VIEWPORT_DIMS).
    static bool canDraw(unsigned int width, unsigned int height);

private:
    EGLDisplay m_eglDisplay = EGL_NO_DISPLAY;
    EGLContext m_eglContext = EGL_NO_CONTEXT;
    EGLSurface m_eglDraw = EGL_NO_SURFACE;
    EGLSurface m_eglRead = EGL_NO_SURFACE;
    // X types stay out of the header: Xlib's macros (None, Bool, Status) break other people's headers.
    void* m_glxDisplay = nullptr;
    void* m_glxContext = nullptr;
    unsigned long m_glxDraw = 0;
    unsigned long m_glxRead = 0;
};
