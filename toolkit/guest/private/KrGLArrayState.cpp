#define GL_GLEXT_PROTOTYPES

#include <toolkit/guest/private/KrGLArrayState.h>

#include <toolkit/guest/private/KrGLCalls.h>

using KrGLCalls::bindBuffer;
using KrGLCalls::integer;

// The current layout of one fixed-function array. Normals and fog coordinates have a fixed size, for which there is no
// name.
KrGLArrayState::ArrayLayout KrGLArrayState::readLayout(const ArrayNames& names)
{
    ArrayLayout layout;
    layout.size = names.size ? integer(names.size) : 0;
    layout.type = integer(names.type);
    layout.stride = integer(names.stride);
    layout.buffer = integer(names.buffer);
    void* pointer = nullptr;
    glGetPointerv(names.pointer, &pointer);
    // Kept as a number: with a buffer bound it is an offset, not an address.
    layout.pointer = reinterpret_cast<std::uintptr_t>(pointer);
    return layout;
}

// The same call serves arrays in memory and in buffers: what the pointer means depends on the buffer that is bound.
void KrGLArrayState::applyLayout(GLenum array, const ArrayLayout& layout)
{
    // A pointer call takes the buffer that is bound at that moment. Where the buffer has been deleted, the old pointer
    // would be taken for an address in memory, so the array is left alone.
    if (!bindBuffer(GL_ARRAY_BUFFER, layout.buffer)) {
        return;
    }
    const auto type = static_cast<GLenum>(layout.type);
    switch (array) {
    case GL_VERTEX_ARRAY:
        glVertexPointer(layout.size, type, layout.stride, layout.address());
        break;
    case GL_NORMAL_ARRAY:
        glNormalPointer(type, layout.stride, layout.address());
        break;
    case GL_COLOR_ARRAY:
        glColorPointer(layout.size, type, layout.stride, layout.address());
        break;
    case GL_SECONDARY_COLOR_ARRAY:
        glSecondaryColorPointer(layout.size, type, layout.stride, layout.address());
        break;
    case GL_FOG_COORD_ARRAY:
        glFogCoordPointer(type, layout.stride, layout.address());
        break;
    default:
        glTexCoordPointer(layout.size, type, layout.stride, layout.address());
        break;
    }
}

// `canBeInteger`: whether the context knows integer attributes, which OpenGL 3.0 introduced; older ones refuse the
// question.
// Of one generic attribute; size, type and the rest are told one by one.
KrGLArrayState::ArrayLayout KrGLArrayState::readAttributeLayout(GLuint attribute, bool canBeInteger)
{
    ArrayLayout layout;
    glGetVertexAttribiv(attribute, GL_VERTEX_ATTRIB_ARRAY_SIZE, &layout.size);
    glGetVertexAttribiv(attribute, GL_VERTEX_ATTRIB_ARRAY_TYPE, &layout.type);
    glGetVertexAttribiv(attribute, GL_VERTEX_ATTRIB_ARRAY_STRIDE, &layout.stride);
    glGetVertexAttribiv(attribute, GL_VERTEX_ATTRIB_ARRAY_NORMALIZED, &layout.isNormalized);
    if (canBeInteger) {
        glGetVertexAttribiv(attribute, GL_VERTEX_ATTRIB_ARRAY_INTEGER, &layout.isInteger);
    }
    glGetVertexAttribiv(attribute, GL_VERTEX_ATTRIB_ARRAY_BUFFER_BINDING, &layout.buffer);
    void* pointer = nullptr;
    glGetVertexAttribPointerv(attribute, GL_VERTEX_ATTRIB_ARRAY_POINTER, &pointer);
    layout.pointer = reinterpret_cast<std::uintptr_t>(pointer);
    return layout;
}

void KrGLArrayState::applyAttributeLayout(GLuint attribute, const ArrayLayout& layout)
{
    if (!bindBuffer(GL_ARRAY_BUFFER, layout.buffer)) {
        return;
    }
    const auto type = static_cast<GLenum>(layout.type);
    // Integer attributes reach the shader unconverted; the other call would turn them into floating point.
    if (layout.isInteger) {
        glVertexAttribIPointer(attribute, layout.size, type, layout.stride, layout.address());
    } else {
        glVertexAttribPointer(attribute, layout.size, type, layout.isNormalized != 0, layout.stride, layout.address());
    }
}
