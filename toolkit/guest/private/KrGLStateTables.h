#pragma once

#include <GL/gl.h>
#include <GL/glext.h>

/// What there is of each kind of OpenGL state, with the values of a new context (OpenGL 4.5, compatibility profile,
/// chapter 23). For use inside the library.
namespace KrGLStateTables
{

/// Something that objects are bound to.
struct Target
{
    GLenum target;
    GLenum binding;
    int version; ///< of OpenGL, from which on it exists
};

inline constexpr Target kTextureTargets[] = {
    {GL_TEXTURE_1D, GL_TEXTURE_BINDING_1D, 11},
    {GL_TEXTURE_2D, GL_TEXTURE_BINDING_2D, 11},
    {GL_TEXTURE_3D, GL_TEXTURE_BINDING_3D, 12},
    {GL_TEXTURE_CUBE_MAP, GL_TEXTURE_BINDING_CUBE_MAP, 13},
    {GL_TEXTURE_1D_ARRAY, GL_TEXTURE_BINDING_1D_ARRAY, 30},
    {GL_TEXTURE_2D_ARRAY, GL_TEXTURE_BINDING_2D_ARRAY, 30},
    {GL_TEXTURE_RECTANGLE, GL_TEXTURE_BINDING_RECTANGLE, 31},
    {GL_TEXTURE_BUFFER, GL_TEXTURE_BINDING_BUFFER, 31},
    {GL_TEXTURE_2D_MULTISAMPLE, GL_TEXTURE_BINDING_2D_MULTISAMPLE, 32},
    {GL_TEXTURE_2D_MULTISAMPLE_ARRAY, GL_TEXTURE_BINDING_2D_MULTISAMPLE_ARRAY, 32},
    {GL_TEXTURE_CUBE_MAP_ARRAY, GL_TEXTURE_BINDING_CUBE_MAP_ARRAY, 40}};

// Without those of arrays and their elements, which belong to the vertex arrays.
inline constexpr Target kBufferTargets[] = {{GL_PIXEL_PACK_BUFFER, GL_PIXEL_PACK_BUFFER_BINDING, 21},
                                            {GL_PIXEL_UNPACK_BUFFER, GL_PIXEL_UNPACK_BUFFER_BINDING, 21},
                                            {GL_TRANSFORM_FEEDBACK_BUFFER, GL_TRANSFORM_FEEDBACK_BUFFER_BINDING, 30},
                                            {GL_UNIFORM_BUFFER, GL_UNIFORM_BUFFER_BINDING, 31},
                                            {GL_COPY_READ_BUFFER, GL_COPY_READ_BUFFER_BINDING, 31},
                                            {GL_COPY_WRITE_BUFFER, GL_COPY_WRITE_BUFFER_BINDING, 31},
                                            {GL_TEXTURE_BUFFER, GL_TEXTURE_BUFFER_BINDING, 31},
                                            {GL_DRAW_INDIRECT_BUFFER, GL_DRAW_INDIRECT_BUFFER_BINDING, 40},
                                            {GL_ATOMIC_COUNTER_BUFFER, GL_ATOMIC_COUNTER_BUFFER_BINDING, 42},
                                            {GL_SHADER_STORAGE_BUFFER, GL_SHADER_STORAGE_BUFFER_BINDING, 43},
                                            {GL_DISPATCH_INDIRECT_BUFFER, GL_DISPATCH_INDIRECT_BUFFER_BINDING, 43},
                                            {GL_QUERY_BUFFER, GL_QUERY_BUFFER_BINDING, 44}};

struct Switch
{
    GLenum capability;
    bool initial;
    int version;
};

inline constexpr Switch kSwitches[] = {{GL_ALPHA_TEST, false, 11},
                                       {GL_AUTO_NORMAL, false, 11},
                                       {GL_COLOR_LOGIC_OP, false, 11},
                                       {GL_COLOR_SUM, false, 14},
                                       {GL_CULL_FACE, false, 11},
                                       {GL_DEPTH_TEST, false, 11},
                                       {GL_DITHER, true, 11},
                                       {GL_FOG, false, 11},
                                       {GL_INDEX_LOGIC_OP, false, 11},
                                       {GL_LIGHTING, false, 11},
                                       {GL_LINE_SMOOTH, false, 11},
                                       {GL_LINE_STIPPLE, false, 11},
                                       {GL_MULTISAMPLE, true, 13},
                                       {GL_NORMALIZE, false, 11},
                                       {GL_POINT_SMOOTH, false, 11},
                                       {GL_POINT_SPRITE, false, 20},
                                       {GL_POLYGON_OFFSET_FILL, false, 11},
                                       {GL_POLYGON_OFFSET_LINE, false, 11},
                                       {GL_POLYGON_OFFSET_POINT, false, 11},
                                       {GL_POLYGON_SMOOTH, false, 11},
                                       {GL_POLYGON_STIPPLE, false, 11},
                                       {GL_RESCALE_NORMAL, false, 12},
                                       {GL_SAMPLE_ALPHA_TO_COVERAGE, false, 13},
                                       {GL_SAMPLE_ALPHA_TO_ONE, false, 13},
                                       {GL_SAMPLE_COVERAGE, false, 13},
                                       {GL_STENCIL_TEST, false, 11},
                                       {GL_VERTEX_PROGRAM_POINT_SIZE, false, 20},
                                       {GL_VERTEX_PROGRAM_TWO_SIDE, false, 20},
                                       {GL_FRAMEBUFFER_SRGB, false, 30},
                                       {GL_RASTERIZER_DISCARD, false, 30},
                                       {GL_PRIMITIVE_RESTART, false, 31},
                                       {GL_DEPTH_CLAMP, false, 32},
                                       {GL_SAMPLE_MASK, false, 32},
                                       {GL_TEXTURE_CUBE_MAP_SEAMLESS, false, 32},
                                       {GL_SAMPLE_SHADING, false, 40},
                                       {GL_PRIMITIVE_RESTART_FIXED_INDEX, false, 43}};

inline constexpr GLenum kHints[] = {GL_PERSPECTIVE_CORRECTION_HINT,
                                    GL_POINT_SMOOTH_HINT,
                                    GL_LINE_SMOOTH_HINT,
                                    GL_POLYGON_SMOOTH_HINT,
                                    GL_FOG_HINT,
                                    GL_GENERATE_MIPMAP_HINT,
                                    GL_TEXTURE_COMPRESSION_HINT,
                                    GL_FRAGMENT_SHADER_DERIVATIVE_HINT};

inline constexpr GLenum kPixelStores[] = {
    GL_UNPACK_SWAP_BYTES, GL_UNPACK_LSB_FIRST,   GL_UNPACK_ROW_LENGTH,  GL_UNPACK_IMAGE_HEIGHT,
    GL_UNPACK_SKIP_ROWS,  GL_UNPACK_SKIP_PIXELS, GL_UNPACK_ALIGNMENT,   GL_PACK_SWAP_BYTES,
    GL_PACK_LSB_FIRST,    GL_PACK_ROW_LENGTH,    GL_UNPACK_SKIP_IMAGES, GL_PACK_SKIP_IMAGES,
    GL_PACK_IMAGE_HEIGHT, GL_PACK_SKIP_ROWS,     GL_PACK_SKIP_PIXELS,   GL_PACK_ALIGNMENT};

struct PixelTransfer
{
    GLenum name;
    GLfloat initial;
};

inline constexpr PixelTransfer kPixelTransfers[] = {
    {GL_MAP_COLOR, 0.0f},   {GL_MAP_STENCIL, 0.0f}, {GL_INDEX_SHIFT, 0.0f}, {GL_INDEX_OFFSET, 0.0f},
    {GL_RED_SCALE, 1.0f},   {GL_GREEN_SCALE, 1.0f}, {GL_BLUE_SCALE, 1.0f},  {GL_ALPHA_SCALE, 1.0f},
    {GL_DEPTH_SCALE, 1.0f}, {GL_RED_BIAS, 0.0f},    {GL_GREEN_BIAS, 0.0f},  {GL_BLUE_BIAS, 0.0f},
    {GL_ALPHA_BIAS, 0.0f},  {GL_DEPTH_BIAS, 0.0f}};

struct EnvironmentValue
{
    GLenum name;
    GLint initial;
};

inline constexpr EnvironmentValue kTextureEnvironment[] = {{GL_TEXTURE_ENV_MODE, GL_MODULATE},
                                                           {GL_COMBINE_RGB, GL_MODULATE},
                                                           {GL_COMBINE_ALPHA, GL_MODULATE},
                                                           {GL_SRC0_RGB, GL_TEXTURE},
                                                           {GL_SRC1_RGB, GL_PREVIOUS},
                                                           {GL_SRC2_RGB, GL_CONSTANT},
                                                           {GL_SRC0_ALPHA, GL_TEXTURE},
                                                           {GL_SRC1_ALPHA, GL_PREVIOUS},
                                                           {GL_SRC2_ALPHA, GL_CONSTANT},
                                                           {GL_OPERAND0_RGB, GL_SRC_COLOR},
                                                           {GL_OPERAND1_RGB, GL_SRC_COLOR},
                                                           {GL_OPERAND2_RGB, GL_SRC_ALPHA},
                                                           {GL_OPERAND0_ALPHA, GL_SRC_ALPHA},
                                                           {GL_OPERAND1_ALPHA, GL_SRC_ALPHA},
                                                           {GL_OPERAND2_ALPHA, GL_SRC_ALPHA},
                                                           {GL_RGB_SCALE, 1},
                                                           {GL_ALPHA_SCALE, 1}};

} // namespace KrGLStateTables
