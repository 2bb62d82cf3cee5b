#pragma once

#include <GL/gl.h>
#include <GL/glext.h>

#include <cstdint>

/// Where the vertex arrays of the current context lie. For use inside the library.
namespace KrGLArrayState
{

/// An array of the fixed pipeline.
struct ArrayNames
{
    GLenum array;
    GLenum size; ///< 0 where the size is fixed
    GLenum type;
    GLenum stride;
    GLenum buffer;
    GLenum pointer;
    GLint initialSize;
};

inline constexpr ArrayNames kArrays[] = {
    {GL_VERTEX_ARRAY, GL_VERTEX_ARRAY_SIZE, GL_VERTEX_ARRAY_TYPE, GL_VERTEX_ARRAY_STRIDE,
     GL_VERTEX_ARRAY_BUFFER_BINDING, GL_VERTEX_ARRAY_POINTER, 4},
    {GL_NORMAL_ARRAY, 0, GL_NORMAL_ARRAY_TYPE, GL_NORMAL_ARRAY_STRIDE, GL_NORMAL_ARRAY_BUFFER_BINDING,
     GL_NORMAL_ARRAY_POINTER, 0},
    {GL_COLOR_ARRAY, GL_COLOR_ARRAY_SIZE, GL_COLOR_ARRAY_TYPE, GL_COLOR_ARRAY_STRIDE, GL_COLOR_ARRAY_BUFFER_BINDING,
     GL_COLOR_ARRAY_POINTER, 4},
    {GL_SECONDARY_COLOR_ARRAY, GL_SECONDARY_COLOR_ARRAY_SIZE, GL_SECONDARY_COLOR_ARRAY_TYPE,
     GL_SECONDARY_COLOR_ARRAY_STRIDE, GL_SECONDARY_COLOR_ARRAY_BUFFER_BINDING, GL_SECONDARY_COLOR_ARRAY_POINTER, 3},
    {GL_FOG_COORD_ARRAY, 0, GL_FOG_COORD_ARRAY_TYPE, GL_FOG_COORD_ARRAY_STRIDE, GL_FOG_COORD_ARRAY_BUFFER_BINDING,
     GL_FOG_COORD_ARRAY_POINTER, 0}};

inline constexpr ArrayNames kTextureCoordArray = {GL_TEXTURE_COORD_ARRAY,
                                                  GL_TEXTURE_COORD_ARRAY_SIZE,
                                                  GL_TEXTURE_COORD_ARRAY_TYPE,
                                                  GL_TEXTURE_COORD_ARRAY_STRIDE,
                                                  GL_TEXTURE_COORD_ARRAY_BUFFER_BINDING,
                                                  GL_TEXTURE_COORD_ARRAY_POINTER,
                                                  4};

/// Where an array lies and how its elements are made.
struct ArrayLayout
{
    GLint size = 4;
    GLint type = GL_FLOAT;
    GLint stride = 0;
    GLint isNormalized = 0; ///< generic attributes only, as the next
    GLint isInteger = 0;
    GLint buffer = 0;
    std::uint64_t pointer = 0; ///< address, or offset into the buffer

    const void* address() const { return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(pointer)); }
};

/// Of an array of the fixed pipeline; one of texture coordinates is that of the client's active unit.
ArrayLayout readLayout(const ArrayNames& names);
/// Leaves the array as it is where its buffer was deleted. Changes the binding of GL_ARRAY_BUFFER, as the next does.
void applyLayout(GLenum array, const ArrayLayout& layout);

/// Of a generic attribute.
/// @param canBeInteger  whether the context knows integer attributes (OpenGL 3.0)
ArrayLayout readAttributeLayout(GLuint attribute, bool canBeInteger);
/// Leaves the array as it is where its buffer was deleted.
void applyAttributeLayout(GLuint attribute, const ArrayLayout& layout);

} // namespace KrGLArrayState
