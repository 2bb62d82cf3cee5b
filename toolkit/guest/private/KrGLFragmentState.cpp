// Fragment operations and rasterisation, of KrGLStateTraversal.

#define GL_GLEXT_PROTOTYPES

#include <toolkit/guest/private/KrGLStateTraversal.h>

#include <algorithm>

using KrGLCalls::integer;

// What happens to a fragment on its way into a buffer, and what buffers are cleared to.
void KrGLStateTraversal::fragments()
{
    using Color = std::array<GLfloat, 4>;
    floats(GL_COLOR_CLEAR_VALUE, Color{}, [](const GLfloat* c) { glClearColor(c[0], c[1], c[2], c[3]); });
    floats(GL_ACCUM_CLEAR_VALUE, Color{}, [](const GLfloat* c) { glClearAccum(c[0], c[1], c[2], c[3]); });
    floats(GL_BLEND_COLOR, Color{}, [](const GLfloat* c) { glBlendColor(c[0], c[1], c[2], c[3]); });
    item(
        std::array<GLdouble, 1>{1.0}, [](GLdouble* depth) { glGetDoublev(GL_DEPTH_CLEAR_VALUE, depth); },
        [](const GLdouble* depth) { glClearDepth(*depth); });
    integers(GL_STENCIL_CLEAR_VALUE, Name{0}, [](const GLint* value) { glClearStencil(*value); });
    enumerator(GL_LOGIC_OP_MODE, GL_COPY, [](GLenum mode) { glLogicOp(mode); });
    // Smaller depth wins in a new context, and depth is written.
    enumerator(GL_DEPTH_FUNC, GL_LESS, [](GLenum function) { glDepthFunc(function); });
    // A mask that is closed would keep glClear from clearing.
    integers(GL_DEPTH_WRITEMASK, Name{1}, [](const GLint* on) { glDepthMask(*on != 0); });
    // Function and reference are set by one call, so they are one item; the function's number is below 2^24 and
    // survives as a float.
    item(
        std::array<GLfloat, 2>{static_cast<GLfloat>(GL_ALWAYS), 0.0f},
        [](GLfloat* test) {
            test[0] = static_cast<GLfloat>(integer(GL_ALPHA_TEST_FUNC));
            glGetFloatv(GL_ALPHA_TEST_REF, test + 1);
        },
        [](const GLfloat* test) { glAlphaFunc(static_cast<GLenum>(test[0]), test[1]); });
    // Per buffer where the context can; the switches of the library's own draw buffers must not leak to the client's.
    blending();
    stencil(GL_FRONT, GL_STENCIL_FUNC, GL_STENCIL_FAIL, GL_STENCIL_WRITEMASK);
    stencil(GL_BACK, GL_STENCIL_BACK_FUNC, GL_STENCIL_BACK_FAIL, GL_STENCIL_BACK_WRITEMASK);
    samples();
    // Clamping of colours can be chosen from OpenGL 3.0 on.
    if (has(30)) {
        for (const GLenum name : {GL_CLAMP_VERTEX_COLOR, GL_CLAMP_FRAGMENT_COLOR, GL_CLAMP_READ_COLOR}) {
            enumerator(name, name == GL_CLAMP_VERTEX_COLOR ? GL_TRUE : GL_FIXED_ONLY,
                       [name](GLenum mode) { glClampColor(name, mode); });
        }
    }
}

// How several samples of a pixel are covered and shaded.
void KrGLStateTraversal::samples()
{
    // Value and inversion are set by one call, so both are asked for as floats.
    item(
        std::array<GLfloat, 2>{1.0f, 0.0f},
        [](GLfloat* coverage) {
            glGetFloatv(GL_SAMPLE_COVERAGE_VALUE, coverage);
            glGetFloatv(GL_SAMPLE_COVERAGE_INVERT, coverage + 1);
        },
        [](const GLfloat* coverage) { glSampleCoverage(coverage[0], coverage[1] != 0.0f); });
    // The first word of the mask: 32 samples, more than any driver offers. -1 is all of them.
    if (has(32)) {
        item(
            Name{-1}, [](GLint* mask) { glGetIntegeri_v(GL_SAMPLE_MASK_VALUE, 0, mask); },
            [](const GLint* mask) { glSampleMaski(0, static_cast<GLbitfield>(*mask)); });
    }
    if (has(40)) {
        floats(GL_MIN_SAMPLE_SHADING_VALUE, std::array<GLfloat, 1>{0.0f},
               [](const GLfloat* value) { glMinSampleShading(*value); });
    }
}

// One face: the two have names of their own for every value.
void KrGLStateTraversal::stencil(GLenum face, GLenum function, GLenum fail, GLenum mask)
{
    // Names that follow one another in neither case.
    const bool isFront = face == GL_FRONT;
    const GLenum reference = isFront ? GL_STENCIL_REF : GL_STENCIL_BACK_REF;
    const GLenum valueMask = isFront ? GL_STENCIL_VALUE_MASK : GL_STENCIL_BACK_VALUE_MASK;
    const GLenum depthFail = isFront ? GL_STENCIL_PASS_DEPTH_FAIL : GL_STENCIL_BACK_PASS_DEPTH_FAIL;
    const GLenum depthPass = isFront ? GL_STENCIL_PASS_DEPTH_PASS : GL_STENCIL_BACK_PASS_DEPTH_PASS;
    // Function, reference and mask are set by one call for each face; -1 is a mask of all bits.
    item(
        std::array<GLint, 3>{GL_ALWAYS, 0, -1},
        [=](GLint* v) {
            glGetIntegerv(function, v);
            glGetIntegerv(reference, v + 1);
            glGetIntegerv(valueMask, v + 2);
        },
        [=](const GLint* v) {
            glStencilFuncSeparate(face, static_cast<GLenum>(v[0]), v[1], static_cast<GLuint>(v[2]));
        });
    item(
        std::array<GLint, 3>{GL_KEEP, GL_KEEP, GL_KEEP},
        [=](GLint* v) {
            glGetIntegerv(fail, v);
            glGetIntegerv(depthFail, v + 1);
            glGetIntegerv(depthPass, v + 2);
        },
        [=](const GLint* v) {
            glStencilOpSeparate(face, static_cast<GLenum>(v[0]), static_cast<GLenum>(v[1]), static_cast<GLenum>(v[2]));
        });
    integers(mask, Name{-1}, [=](const GLint* v) { glStencilMaskSeparate(face, static_cast<GLuint>(*v)); });
}

// Switch, mask and functions of blending, for each draw buffer as far as the version tells them apart.
void KrGLStateTraversal::blending()
{
    // Before 3.0 all draw buffers have one switch and one mask in common.
    if (!has(30)) {
        flag(GL_BLEND, false);
        integers(GL_COLOR_WRITEMASK, std::array<GLint, 4>{1, 1, 1, 1},
                 [](const GLint* on) { glColorMask(on[0] != 0, on[1] != 0, on[2] != 0, on[3] != 0); });
    }
    for (int i = 0; has(30) && i < m_limits.drawBuffers; ++i) {
        const auto buffer = static_cast<GLuint>(i);
        flagOf(GL_BLEND, i);
        item(
            std::array<GLint, 4>{1, 1, 1, 1}, [buffer](GLint* on) { glGetIntegeri_v(GL_COLOR_WRITEMASK, buffer, on); },
            [buffer](const GLint* on) { glColorMaski(buffer, on[0] != 0, on[1] != 0, on[2] != 0, on[3] != 0); });
    }
    // One for all buffers before 4.0.
    const bool isIndexed = has(40);
    for (int i = 0; i < (isIndexed ? m_limits.drawBuffers : 1); ++i) {
        blendFunctions(static_cast<GLuint>(i), isIndexed);
    }
}

// Factors and equations of one buffer, or of all at once.
void KrGLStateTraversal::blendFunctions(GLuint buffer, bool isIndexed)
{
    // One source for both cases below: indexed state has questions of its own.
    const auto get = [=](GLenum name, GLint* value) {
        if (isIndexed) {
            glGetIntegeri_v(name, buffer, value);
        } else {
            glGetIntegerv(name, value);
        }
    };
    item(
        std::array<GLint, 4>{GL_ONE, GL_ZERO, GL_ONE, GL_ZERO},
        [&](GLint* v) {
            get(GL_BLEND_SRC_RGB, v);
            get(GL_BLEND_DST_RGB, v + 1);
            get(GL_BLEND_SRC_ALPHA, v + 2);
            get(GL_BLEND_DST_ALPHA, v + 3);
        },
        [=](const GLint* v) {
            const std::array<GLenum, 4> f = {static_cast<GLenum>(v[0]), static_cast<GLenum>(v[1]),
                                             static_cast<GLenum>(v[2]), static_cast<GLenum>(v[3])};
            if (isIndexed) {
                glBlendFuncSeparatei(buffer, f[0], f[1], f[2], f[3]);
            } else {
                glBlendFuncSeparate(f[0], f[1], f[2], f[3]);
            }
        });
    item(
        std::array<GLint, 2>{GL_FUNC_ADD, GL_FUNC_ADD},
        [&](GLint* v) {
            get(GL_BLEND_EQUATION_RGB, v);
            get(GL_BLEND_EQUATION_ALPHA, v + 1);
        },
        [=](const GLint* v) {
            if (isIndexed) {
                glBlendEquationSeparatei(buffer, static_cast<GLenum>(v[0]), static_cast<GLenum>(v[1]));
            } else {
                glBlendEquationSeparate(static_cast<GLenum>(v[0]), static_cast<GLenum>(v[1]));
            }
        });
}

// Rasterisation: how points, lines and polygons become fragments.
void KrGLStateTraversal::rasterisation()
{
    viewports();
    floats(GL_POINT_SIZE, std::array<GLfloat, 1>{1.0f}, [](const GLfloat* size) { glPointSize(*size); });
    pointParameter(GL_POINT_SIZE_MIN, 0.0f);
    pointParameter(GL_POINT_SIZE_MAX, largestPoint());
    pointParameter(GL_POINT_FADE_THRESHOLD_SIZE, 1.0f);
    floats(GL_POINT_DISTANCE_ATTENUATION, std::array<GLfloat, 3>{1.0f, 0.0f, 0.0f},
           [](const GLfloat* v) { glPointParameterfv(GL_POINT_DISTANCE_ATTENUATION, v); });
    enumerator(GL_POINT_SPRITE_COORD_ORIGIN, GL_UPPER_LEFT,
               [](GLenum v) { glPointParameteri(GL_POINT_SPRITE_COORD_ORIGIN, static_cast<GLint>(v)); });
    floats(GL_LINE_WIDTH, std::array<GLfloat, 1>{1.0f}, [](const GLfloat* width) { glLineWidth(*width); });
    item(
        std::array<GLint, 2>{1, 0xFFFF},
        [](GLint* v) {
            glGetIntegerv(GL_LINE_STIPPLE_REPEAT, v);
            glGetIntegerv(GL_LINE_STIPPLE_PATTERN, v + 1);
        },
        [](const GLint* v) { glLineStipple(v[0], static_cast<GLushort>(v[1])); });
    enumerator(GL_CULL_FACE_MODE, GL_BACK, [](GLenum v) { glCullFace(v); });
    enumerator(GL_FRONT_FACE, GL_CCW, [](GLenum v) { glFrontFace(v); });
    enumerator(GL_SHADE_MODEL, GL_SMOOTH, [](GLenum v) { glShadeModel(v); });
    // The faces are told together, but the compatibility profile takes them one by one, too, and they may differ.
    integers(GL_POLYGON_MODE, std::array<GLint, 2>{GL_FILL, GL_FILL}, [](const GLint* v) {
        glPolygonMode(GL_FRONT, static_cast<GLenum>(v[0]));
        glPolygonMode(GL_BACK, static_cast<GLenum>(v[1]));
    });
    item(
        std::array<GLfloat, 2>{0.0f, 0.0f},
        [](GLfloat* v) {
            glGetFloatv(GL_POLYGON_OFFSET_FACTOR, v);
            glGetFloatv(GL_POLYGON_OFFSET_UNITS, v + 1);
        },
        [](const GLfloat* v) { glPolygonOffset(v[0], v[1]); });
    // Restarting and provoking corners change which triangles a mesh has, so they are as important as the rest.
    if (has(31)) {
        enumerator(GL_PRIMITIVE_RESTART_INDEX, 0, [](GLuint v) { glPrimitiveRestartIndex(v); });
    }
    if (has(32)) {
        enumerator(GL_PROVOKING_VERTEX, GL_LAST_VERTEX_CONVENTION, [](GLenum v) { glProvokingVertex(v); });
    }
    if (has(40)) {
        integers(GL_PATCH_VERTICES, Name{3}, [](const GLint* v) { glPatchParameteri(GL_PATCH_VERTICES, *v); });
    }
    // From 4.5 on a client can turn the y axis and the depth range round, which would turn a whole scene upside down.
    if (has(45)) {
        item(
            std::array<GLint, 2>{GL_LOWER_LEFT, GL_NEGATIVE_ONE_TO_ONE},
            [](GLint* v) {
                glGetIntegerv(GL_CLIP_ORIGIN, v);
                glGetIntegerv(GL_CLIP_DEPTH_MODE, v + 1);
            },
            [](const GLint* v) { glClipControl(static_cast<GLenum>(v[0]), static_cast<GLenum>(v[1])); });
    }
}

// The initial limit of point sizes is what the driver can do, not a number that OpenGL names.
GLfloat KrGLStateTraversal::largestPoint()
{
    std::array<GLfloat, 2> sharp = {}, smooth = {};
    glGetFloatv(GL_ALIASED_POINT_SIZE_RANGE, sharp.data());
    glGetFloatv(GL_SMOOTH_POINT_SIZE_RANGE, smooth.data());
    return std::max(sharp[1], smooth[1]);
}

// Sizes and thresholds of points that shrink with their distance.
void KrGLStateTraversal::pointParameter(GLenum name, GLfloat initial)
{
    floats(name, std::array<GLfloat, 1>{initial}, [name](const GLfloat* v) { glPointParameterf(name, *v); });
}

// Extents count for nothing until the scene's own are set; the rest does.
void KrGLStateTraversal::viewports()
{
    // From 4.1 on there are several viewports, and the call without an index would set all of them alike.
    if (!has(41)) {
        integers(GL_VIEWPORT, std::array<GLint, 4>{0, 0, 1, 1},
                 [](const GLint* v) { glViewport(v[0], v[1], v[2], v[3]); });
        integers(GL_SCISSOR_BOX, std::array<GLint, 4>{0, 0, 1, 1},
                 [](const GLint* v) { glScissor(v[0], v[1], v[2], v[3]); });
        flag(GL_SCISSOR_TEST, false);
        item(
            std::array<GLdouble, 2>{0.0, 1.0}, [](GLdouble* v) { glGetDoublev(GL_DEPTH_RANGE, v); },
            [](const GLdouble* v) { glDepthRange(v[0], v[1]); });
    }
    for (int i = 0; has(41) && i < m_limits.viewports; ++i) {
        const auto viewport = static_cast<GLuint>(i);
        item(
            std::array<GLfloat, 4>{0.0f, 0.0f, 1.0f, 1.0f},
            [=](GLfloat* v) { glGetFloati_v(GL_VIEWPORT, viewport, v); },
            [=](const GLfloat* v) { glViewportIndexedfv(viewport, v); });
        item(
            std::array<GLint, 4>{0, 0, 1, 1}, [=](GLint* v) { glGetIntegeri_v(GL_SCISSOR_BOX, viewport, v); },
            [=](const GLint* v) { glScissorIndexedv(viewport, v); });
        // The switch belongs to the viewport from 4.1 on.
        flagOf(GL_SCISSOR_TEST, i);
        item(
            std::array<GLdouble, 2>{0.0, 1.0}, [=](GLdouble* v) { glGetDoublei_v(GL_DEPTH_RANGE, viewport, v); },
            [=](const GLdouble* v) { glDepthRangeIndexed(viewport, v[0], v[1]); });
    }
}
