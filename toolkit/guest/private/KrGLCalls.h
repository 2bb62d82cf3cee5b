#pragma once

#ifndef GL_GLEXT_PROTOTYPES
#define GL_GLEXT_PROTOTYPES
#endif
#include <GL/gl.h>
#include <GL/glext.h>

/// Short forms of calls of the current context. For use inside the library.
namespace KrGLCalls
{

inline GLint integer(GLenum name)
{
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
}

/// The i-th of names that follow one another, GL_LIGHT0 and the like.
inline GLenum nth(GLenum first, int i)
{
    return first + static_cast<GLenum>(i);
}

inline void set(GLenum capability, bool on)
{
    if (on) {
        glEnable(capability);
    } else {
        glDisable(capability);
    }
}

/// To bind a deleted name would make a new object of that name: this leaves it, as does bindBuffer.
inline void bindTexture(GLenum target, GLint name)
{
    const auto texture = static_cast<GLuint>(name);
    if (name == 0 || glIsTexture(texture)) {
        glBindTexture(target, texture);
    }
}

/// @return false, and nothing bound, for a name that is no buffer's any more
inline bool bindBuffer(GLenum target, GLint name)
{
    const auto buffer = static_cast<GLuint>(name);
    if (name != 0 && !glIsBuffer(buffer)) {
        return false;
    }
    glBindBuffer(target, buffer);
    return true;
}

} // namespace KrGLCalls
