#pragma once

#include <GL/gl.h>
#include <GL/glext.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// All that the current context answers about its state, by name.
class GlStateDump
{
public:
    GlStateDump()
    {
        readValues();
        readIndexed();
        readLightsAndMaterials();
        readArrays();
        readUnits();
    }

    /// The names whose values differ, with both; empty for none.
    std::string differences(const GlStateDump& other) const
    {
        std::string list;
        for (const auto& [name, values] : m_values) {
            const auto found = other.m_values.find(name);
            if (found == other.m_values.end()) {
                return "the context is not current";
            }
            if (values != found->second) {
                list += name + ":" + text(values) + " became" + text(found->second) + "\n";
            }
        }
        return list;
    }

private:
    static std::string text(const std::vector<double>& values)
    {
        std::string list;
        for (const double value : values) {
            list += " " + std::to_string(value);
        }
        return list;
    }
    std::vector<double>& entry(const std::string& name, std::size_t size)
    {
        std::vector<double>& values = m_values[name];
        values.resize(size, -12345.0);
        return values;
    }
    void get(GLenum name, std::size_t size = 1, const std::string& prefix = "")
    {
        glGetDoublev(name, entry(prefix + number(name), size).data());
    }
    // Functions, not lists to go through: those would take a line for each name.
    template <typename... Names>
    void getEach(Names... names)
    {
        (get(static_cast<GLenum>(names)), ...);
    }
    template <typename... Names>
    void askEach(Names... names)
    {
        ((entry("enabled " + number(static_cast<GLenum>(names)), 1)[0] = glIsEnabled(static_cast<GLenum>(names))), ...);
    }
    static std::string number(GLenum name)
    {
        static const char digits[] = "0123456789ABCDEF";
        std::string text = "0x";
        for (int shift = 12; shift >= 0; shift -= 4) {
            text += digits[(name >> shift) & 15];
        }
        return text;
    }
    using Query = void (*)(GLenum, GLenum, GLfloat*);
    void floats(const std::string& name, Query query, GLenum object, GLenum parameter)
    {
        GLfloat values[4] = {};
        query(object, parameter, values);
        entry(name, 4).assign(values, values + 4);
    }

    void readValues()
    {
        for (const GLenum name : {GL_MODELVIEW_MATRIX, GL_PROJECTION_MATRIX}) {
            get(name, 16);
        }
        for (const GLenum name : {GL_COLOR_CLEAR_VALUE, GL_ACCUM_CLEAR_VALUE, GL_BLEND_COLOR, GL_COLOR_WRITEMASK,
                                  GL_CURRENT_COLOR, GL_CURRENT_SECONDARY_COLOR, GL_FOG_COLOR, GL_LIGHT_MODEL_AMBIENT,
                                  GL_SCISSOR_BOX, GL_VIEWPORT, GL_CURRENT_RASTER_POSITION}) {
            get(name, 4);
        }
        for (const GLenum name : {GL_CURRENT_NORMAL, GL_POINT_DISTANCE_ATTENUATION}) {
            get(name, 3);
        }
        for (const GLenum name : {GL_POLYGON_MODE, GL_DEPTH_RANGE}) {
            get(name, 2);
        }
        getEach(GL_MATRIX_MODE, GL_MODELVIEW_STACK_DEPTH, GL_PROJECTION_STACK_DEPTH, GL_ATTRIB_STACK_DEPTH,
                GL_CLIENT_ATTRIB_STACK_DEPTH, GL_NAME_STACK_DEPTH, GL_RENDER_MODE, GL_LIST_BASE, GL_ACTIVE_TEXTURE,
                GL_CLIENT_ACTIVE_TEXTURE, GL_CURRENT_PROGRAM, GL_PROGRAM_PIPELINE_BINDING, GL_DRAW_FRAMEBUFFER_BINDING,
                GL_READ_FRAMEBUFFER_BINDING, GL_RENDERBUFFER_BINDING, GL_VERTEX_ARRAY_BINDING, GL_ARRAY_BUFFER_BINDING,
                GL_ELEMENT_ARRAY_BUFFER_BINDING, GL_PIXEL_PACK_BUFFER_BINDING, GL_PIXEL_UNPACK_BUFFER_BINDING,
                GL_UNIFORM_BUFFER_BINDING, GL_TRANSFORM_FEEDBACK_BUFFER_BINDING, GL_COPY_READ_BUFFER_BINDING,
                GL_COPY_WRITE_BUFFER_BINDING, GL_DRAW_INDIRECT_BUFFER_BINDING, GL_SHADER_STORAGE_BUFFER_BINDING,
                GL_ATOMIC_COUNTER_BUFFER_BINDING, GL_TEXTURE_BUFFER, GL_READ_BUFFER, GL_DRAW_BUFFER0, GL_DRAW_BUFFER1,
                GL_DEPTH_CLEAR_VALUE, GL_STENCIL_CLEAR_VALUE, GL_INDEX_CLEAR_VALUE, GL_INDEX_WRITEMASK, GL_DEPTH_FUNC,
                GL_DEPTH_WRITEMASK, GL_ALPHA_TEST_FUNC, GL_ALPHA_TEST_REF, GL_LOGIC_OP_MODE, GL_STENCIL_FUNC,
                GL_STENCIL_REF, GL_STENCIL_VALUE_MASK, GL_STENCIL_WRITEMASK, GL_STENCIL_FAIL,
                GL_STENCIL_PASS_DEPTH_FAIL, GL_STENCIL_PASS_DEPTH_PASS, GL_STENCIL_BACK_FUNC, GL_STENCIL_BACK_REF,
                GL_STENCIL_BACK_VALUE_MASK, GL_STENCIL_BACK_WRITEMASK, GL_STENCIL_BACK_FAIL,
                GL_STENCIL_BACK_PASS_DEPTH_FAIL, GL_STENCIL_BACK_PASS_DEPTH_PASS, GL_CULL_FACE_MODE, GL_FRONT_FACE,
                GL_SHADE_MODEL, GL_LINE_WIDTH, GL_LINE_STIPPLE_PATTERN, GL_LINE_STIPPLE_REPEAT, GL_POINT_SIZE,
                GL_POINT_SIZE_MIN, GL_POINT_SIZE_MAX, GL_POINT_FADE_THRESHOLD_SIZE, GL_POINT_SPRITE_COORD_ORIGIN,
                GL_POLYGON_OFFSET_FACTOR, GL_POLYGON_OFFSET_UNITS, GL_PROVOKING_VERTEX, GL_PRIMITIVE_RESTART_INDEX,
                GL_PATCH_VERTICES, GL_CLIP_ORIGIN, GL_CLIP_DEPTH_MODE, GL_LIGHT_MODEL_LOCAL_VIEWER,
                GL_LIGHT_MODEL_TWO_SIDE, GL_LIGHT_MODEL_COLOR_CONTROL, GL_COLOR_MATERIAL_FACE,
                GL_COLOR_MATERIAL_PARAMETER, GL_FOG_MODE, GL_FOG_DENSITY, GL_FOG_START, GL_FOG_END, GL_FOG_COORD_SRC,
                GL_CURRENT_FOG_COORD, GL_EDGE_FLAG, GL_PERSPECTIVE_CORRECTION_HINT, GL_POINT_SMOOTH_HINT,
                GL_LINE_SMOOTH_HINT, GL_POLYGON_SMOOTH_HINT, GL_FOG_HINT, GL_GENERATE_MIPMAP_HINT,
                GL_TEXTURE_COMPRESSION_HINT, GL_FRAGMENT_SHADER_DERIVATIVE_HINT, GL_SAMPLE_COVERAGE_VALUE,
                GL_SAMPLE_COVERAGE_INVERT, GL_MIN_SAMPLE_SHADING_VALUE, GL_CLAMP_VERTEX_COLOR, GL_CLAMP_FRAGMENT_COLOR,
                GL_CLAMP_READ_COLOR, GL_PACK_ALIGNMENT, GL_PACK_ROW_LENGTH, GL_PACK_SKIP_ROWS, GL_PACK_SKIP_PIXELS,
                GL_PACK_SKIP_IMAGES, GL_PACK_IMAGE_HEIGHT, GL_PACK_SWAP_BYTES, GL_PACK_LSB_FIRST, GL_UNPACK_ALIGNMENT,
                GL_UNPACK_ROW_LENGTH, GL_UNPACK_SKIP_ROWS, GL_UNPACK_SKIP_PIXELS, GL_UNPACK_SKIP_IMAGES,
                GL_UNPACK_IMAGE_HEIGHT, GL_UNPACK_SWAP_BYTES, GL_UNPACK_LSB_FIRST, GL_MAP_COLOR, GL_MAP_STENCIL,
                GL_INDEX_SHIFT, GL_INDEX_OFFSET, GL_RED_SCALE, GL_GREEN_SCALE, GL_BLUE_SCALE, GL_ALPHA_SCALE,
                GL_DEPTH_SCALE, GL_RED_BIAS, GL_GREEN_BIAS, GL_BLUE_BIAS, GL_ALPHA_BIAS, GL_DEPTH_BIAS, GL_ZOOM_X,
                GL_ZOOM_Y);
        askEach(GL_ALPHA_TEST, GL_AUTO_NORMAL, GL_COLOR_LOGIC_OP, GL_COLOR_MATERIAL, GL_COLOR_SUM, GL_CULL_FACE,
                GL_DEPTH_TEST, GL_DITHER, GL_FOG, GL_INDEX_LOGIC_OP, GL_LIGHTING, GL_LINE_SMOOTH, GL_LINE_STIPPLE,
                GL_MULTISAMPLE, GL_NORMALIZE, GL_POINT_SMOOTH, GL_POINT_SPRITE, GL_POLYGON_OFFSET_FILL,
                GL_POLYGON_OFFSET_LINE, GL_POLYGON_OFFSET_POINT, GL_POLYGON_SMOOTH, GL_POLYGON_STIPPLE,
                GL_RESCALE_NORMAL, GL_SAMPLE_ALPHA_TO_COVERAGE, GL_SAMPLE_ALPHA_TO_ONE, GL_SAMPLE_COVERAGE,
                GL_STENCIL_TEST, GL_VERTEX_PROGRAM_POINT_SIZE, GL_VERTEX_PROGRAM_TWO_SIDE, GL_FRAMEBUFFER_SRGB,
                GL_RASTERIZER_DISCARD, GL_PRIMITIVE_RESTART, GL_DEPTH_CLAMP, GL_SAMPLE_MASK,
                GL_TEXTURE_CUBE_MAP_SEAMLESS, GL_SAMPLE_SHADING, GL_VERTEX_ARRAY, GL_NORMAL_ARRAY, GL_COLOR_ARRAY,
                GL_SECONDARY_COLOR_ARRAY, GL_FOG_COORD_ARRAY, GL_INDEX_ARRAY, GL_EDGE_FLAG_ARRAY, GL_VERTEX_PROGRAM_ARB,
                GL_FRAGMENT_PROGRAM_ARB);
    }

    void readIndexed()
    {
        for (GLuint i = 0; i < 8; ++i) {
            const std::string prefix = "buffer " + std::to_string(i) + " ";
            entry(prefix + "blend", 1)[0] = glIsEnabledi(GL_BLEND, i);
            for (const GLenum name : {GL_COLOR_WRITEMASK, GL_BLEND_SRC_RGB, GL_BLEND_DST_RGB, GL_BLEND_SRC_ALPHA,
                                      GL_BLEND_DST_ALPHA, GL_BLEND_EQUATION_RGB, GL_BLEND_EQUATION_ALPHA}) {
                GLint values[4] = {};
                glGetIntegeri_v(name, i, values);
                entry(prefix + number(name), 4).assign(values, values + 4);
            }
        }
        for (GLuint i = 0; i < 16; ++i) {
            const std::string prefix = "viewport " + std::to_string(i) + " ";
            entry(prefix + "scissor", 1)[0] = glIsEnabledi(GL_SCISSOR_TEST, i);
            glGetDoublei_v(GL_VIEWPORT, i, entry(prefix + "extent", 4).data());
            glGetDoublei_v(GL_SCISSOR_BOX, i, entry(prefix + "box", 4).data());
            glGetDoublei_v(GL_DEPTH_RANGE, i, entry(prefix + "range", 2).data());
        }
        for (GLenum i = 0; i < 6; ++i) {
            entry("clip " + std::to_string(i), 1)[0] = glIsEnabled(GL_CLIP_PLANE0 + i);
            glGetClipPlane(GL_CLIP_PLANE0 + i, entry("plane " + std::to_string(i), 4).data());
        }
    }

    void readLightsAndMaterials()
    {
        for (GLenum light = GL_LIGHT0; light < GL_LIGHT0 + 8; ++light) {
            entry("enabled " + number(light), 1)[0] = glIsEnabled(light);
            for (const GLenum name :
                 {GL_AMBIENT, GL_DIFFUSE, GL_SPECULAR, GL_POSITION, GL_SPOT_DIRECTION, GL_SPOT_EXPONENT, GL_SPOT_CUTOFF,
                  GL_CONSTANT_ATTENUATION, GL_LINEAR_ATTENUATION, GL_QUADRATIC_ATTENUATION}) {
                floats("light " + number(light) + number(name), glGetLightfv, light, name);
            }
        }
        for (const GLenum face : {GL_FRONT, GL_BACK}) {
            for (const GLenum name : {GL_AMBIENT, GL_DIFFUSE, GL_SPECULAR, GL_EMISSION, GL_SHININESS}) {
                floats("material " + number(face) + number(name), glGetMaterialfv, face, name);
            }
        }
    }

    void readArrays()
    {
        for (const GLenum name :
             {GL_VERTEX_ARRAY_SIZE, GL_VERTEX_ARRAY_TYPE, GL_VERTEX_ARRAY_STRIDE, GL_VERTEX_ARRAY_BUFFER_BINDING,
              GL_NORMAL_ARRAY_TYPE, GL_NORMAL_ARRAY_STRIDE, GL_NORMAL_ARRAY_BUFFER_BINDING, GL_COLOR_ARRAY_SIZE,
              GL_COLOR_ARRAY_TYPE, GL_COLOR_ARRAY_STRIDE, GL_COLOR_ARRAY_BUFFER_BINDING, GL_SECONDARY_COLOR_ARRAY_SIZE,
              GL_FOG_COORD_ARRAY_STRIDE}) {
            get(name);
        }
        for (const GLenum name : {GL_VERTEX_ARRAY_POINTER, GL_NORMAL_ARRAY_POINTER, GL_COLOR_ARRAY_POINTER}) {
            void* pointer = nullptr;
            glGetPointerv(name, &pointer);
            entry("pointer " + number(name), 1)[0] = static_cast<double>(reinterpret_cast<std::uintptr_t>(pointer));
        }
        for (GLuint i = 0; i < 16; ++i) {
            const std::string prefix = "attribute " + std::to_string(i) + " ";
            for (const GLenum name :
                 {GL_VERTEX_ATTRIB_ARRAY_ENABLED, GL_VERTEX_ATTRIB_ARRAY_SIZE, GL_VERTEX_ATTRIB_ARRAY_TYPE,
                  GL_VERTEX_ATTRIB_ARRAY_STRIDE, GL_VERTEX_ATTRIB_ARRAY_NORMALIZED, GL_VERTEX_ATTRIB_ARRAY_INTEGER,
                  GL_VERTEX_ATTRIB_ARRAY_DIVISOR, GL_VERTEX_ATTRIB_ARRAY_BUFFER_BINDING}) {
                glGetVertexAttribdv(i, name, entry(prefix + number(name), 1).data());
            }
            if (i > 0) {
                glGetVertexAttribdv(i, GL_CURRENT_VERTEX_ATTRIB, entry(prefix + "current", 4).data());
            }
        }
    }

    void readUnits()
    {
        GLint active = 0, clientActive = 0, units = 0, coords = 0;
        glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
        glGetIntegerv(GL_CLIENT_ACTIVE_TEXTURE, &clientActive);
        glGetIntegerv(GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS, &units);
        glGetIntegerv(GL_MAX_TEXTURE_COORDS, &coords);
        for (GLint unit = 0; unit < units; ++unit) {
            glActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(unit));
            const std::string prefix = "unit " + std::to_string(unit) + " ";
            for (const GLenum name :
                 {GL_TEXTURE_BINDING_1D, GL_TEXTURE_BINDING_2D, GL_TEXTURE_BINDING_3D, GL_TEXTURE_BINDING_CUBE_MAP,
                  GL_TEXTURE_BINDING_1D_ARRAY, GL_TEXTURE_BINDING_2D_ARRAY, GL_TEXTURE_BINDING_RECTANGLE,
                  GL_TEXTURE_BINDING_BUFFER, GL_TEXTURE_BINDING_2D_MULTISAMPLE, GL_TEXTURE_BINDING_CUBE_MAP_ARRAY,
                  GL_SAMPLER_BINDING}) {
                get(name, 1, prefix);
            }
            if (unit < coords) {
                readFixedUnit(unit, prefix);
            }
        }
        glActiveTexture(static_cast<GLenum>(active));
        glClientActiveTexture(static_cast<GLenum>(clientActive));
    }

    void readFixedUnit(GLint unit, const std::string& prefix)
    {
        get(GL_TEXTURE_MATRIX, 16, prefix);
        get(GL_TEXTURE_STACK_DEPTH, 1, prefix);
        get(GL_CURRENT_TEXTURE_COORDS, 4, prefix);
        for (const GLenum name :
             {GL_TEXTURE_1D, GL_TEXTURE_2D, GL_TEXTURE_3D, GL_TEXTURE_CUBE_MAP, GL_TEXTURE_RECTANGLE, GL_TEXTURE_GEN_S,
              GL_TEXTURE_GEN_T, GL_TEXTURE_GEN_R, GL_TEXTURE_GEN_Q}) {
            entry(prefix + "enabled " + number(name), 1)[0] = glIsEnabled(name);
        }
        for (const GLenum name :
             {GL_TEXTURE_ENV_MODE, GL_TEXTURE_ENV_COLOR, GL_COMBINE_RGB, GL_COMBINE_ALPHA, GL_SRC0_RGB, GL_SRC1_RGB,
              GL_SRC2_RGB, GL_SRC0_ALPHA, GL_SRC1_ALPHA, GL_SRC2_ALPHA, GL_OPERAND0_RGB, GL_OPERAND1_RGB,
              GL_OPERAND2_RGB, GL_OPERAND0_ALPHA, GL_OPERAND1_ALPHA, GL_OPERAND2_ALPHA, GL_RGB_SCALE, GL_ALPHA_SCALE}) {
            floats(prefix + "environment " + number(name), glGetTexEnvfv, GL_TEXTURE_ENV, name);
        }
        floats(prefix + "bias", glGetTexEnvfv, GL_TEXTURE_FILTER_CONTROL, GL_TEXTURE_LOD_BIAS);
        floats(prefix + "replace", glGetTexEnvfv, GL_POINT_SPRITE, GL_COORD_REPLACE);
        for (const GLenum coordinate : {GL_S, GL_T, GL_R, GL_Q}) {
            for (const GLenum name : {GL_TEXTURE_GEN_MODE, GL_OBJECT_PLANE, GL_EYE_PLANE}) {
                floats(prefix + number(coordinate) + number(name), glGetTexGenfv, coordinate, name);
            }
        }
        glClientActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(unit));
        entry(prefix + "array", 1)[0] = glIsEnabled(GL_TEXTURE_COORD_ARRAY);
        for (const GLenum name : {GL_TEXTURE_COORD_ARRAY_SIZE, GL_TEXTURE_COORD_ARRAY_TYPE,
                                  GL_TEXTURE_COORD_ARRAY_STRIDE, GL_TEXTURE_COORD_ARRAY_BUFFER_BINDING}) {
            get(name, 1, prefix);
        }
    }

    std::map<std::string, std::vector<double>> m_values;
};

/// A client that sets what it can to what nobody has by default; the current context's, until it goes with that.
class GlOddState
{
public:
    explicit GlOddState(GLuint framebuffer)
    {
        setMatrices();
        setFragments();
        setRasterisation();
        setLighting();
        setTextures();
        setPixels();
        setBindings(framebuffer);
    }

    /// Something of the client's own, with what is set.
    void draw() const
    {
        glBindVertexArray(0);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
        glBegin(GL_TRIANGLES);
        glColor3f(0.9f, 0.1f, 0.4f);
        for (int i = 0; i < 3; ++i) {
            glNormal3f(0.1f, 0.2f, 0.3f);
            glTexCoord2f(0.3f * static_cast<float>(i), 0.7f);
            glVertex3f(static_cast<float>(i % 2), static_cast<float>(i / 2), -2.0f);
        }
        glEnd();
        glDrawArrays(GL_POINTS, 0, 3);
        glBindVertexArray(m_vertexArray);
    }

private:
    static void setMatrices()
    {
        for (const GLenum mode : {GL_PROJECTION, GL_MODELVIEW}) {
            glMatrixMode(mode);
            glLoadIdentity();
            glRotatef(mode == GL_PROJECTION ? 11.0f : 23.0f, 0.3f, 0.5f, 0.7f);
            glPushMatrix();
            glTranslatef(0.1f, 0.2f, 0.3f);
        }
    }

    static void setFragments()
    {
        for (const GLenum name : {GL_ALPHA_TEST, GL_COLOR_LOGIC_OP, GL_STENCIL_TEST, GL_SCISSOR_TEST, GL_DEPTH_TEST,
                                  GL_BLEND, GL_SAMPLE_COVERAGE, GL_DEPTH_CLAMP, GL_COLOR_SUM}) {
            glEnable(name);
        }
        glDisable(GL_DITHER);
        glDisable(GL_MULTISAMPLE);
        glDisablei(GL_BLEND, 3);
        glClearColor(0.11f, 0.22f, 0.33f, 0.44f);
        glClearAccum(0.5f, 0.25f, 0.125f, 0.75f);
        glClearDepth(0.375);
        glClearStencil(5);
        glColorMask(GL_TRUE, GL_FALSE, GL_TRUE, GL_FALSE);
        glColorMaski(2, GL_FALSE, GL_FALSE, GL_TRUE, GL_TRUE);
        glDepthMask(GL_FALSE);
        glDepthFunc(GL_GREATER);
        glDepthRange(0.25, 0.75);
        glAlphaFunc(GL_LESS, 0.3f);
        glLogicOp(GL_XOR);
        glBlendColor(0.4f, 0.3f, 0.2f, 0.1f);
        glBlendFuncSeparate(GL_DST_COLOR, GL_ONE_MINUS_CONSTANT_COLOR, GL_ONE, GL_SRC_ALPHA);
        glBlendFuncSeparatei(1, GL_ONE, GL_ONE, GL_ZERO, GL_ONE);
        glBlendEquationSeparate(GL_FUNC_REVERSE_SUBTRACT, GL_MAX);
        glStencilFuncSeparate(GL_FRONT, GL_LESS, 3, 0x0F);
        glStencilFuncSeparate(GL_BACK, GL_GEQUAL, 7, 0x1F);
        glStencilOpSeparate(GL_FRONT, GL_INCR, GL_DECR, GL_INVERT);
        glStencilOpSeparate(GL_BACK, GL_ZERO, GL_REPLACE, GL_INCR_WRAP);
        glStencilMaskSeparate(GL_FRONT, 0x3C);
        glStencilMaskSeparate(GL_BACK, 0x5A);
        glSampleCoverage(0.5f, GL_TRUE);
        glMinSampleShading(0.5f);
        glClampColor(GL_CLAMP_READ_COLOR, GL_TRUE);
        glClampColor(GL_CLAMP_VERTEX_COLOR, GL_FALSE);
        glScissor(3, 4, 17, 19);
        glScissorIndexed(2, 1, 2, 3, 4);
    }

    static void setRasterisation()
    {
        for (const GLenum name : {GL_CULL_FACE, GL_LINE_SMOOTH, GL_LINE_STIPPLE, GL_POINT_SMOOTH, GL_POINT_SPRITE,
                                  GL_POLYGON_OFFSET_FILL, GL_POLYGON_OFFSET_LINE, GL_POLYGON_STIPPLE,
                                  GL_VERTEX_PROGRAM_POINT_SIZE, GL_PRIMITIVE_RESTART, GL_CLIP_PLANE0, GL_CLIP_PLANE3}) {
            glEnable(name);
        }
        glViewport(5, 6, 70, 50);
        glViewportIndexedf(1, 0.5f, 1.5f, 20.25f, 30.75f);
        glCullFace(GL_FRONT_AND_BACK);
        glFrontFace(GL_CW);
        glPolygonMode(GL_FRONT, GL_POINT);
        glPolygonMode(GL_BACK, GL_LINE);
        glPolygonOffset(3.0f, 17.0f);
        glLineWidth(3.0f);
        glLineStipple(5, 0x1234);
        glPointSize(7.0f);
        glPointParameterf(GL_POINT_SIZE_MIN, 2.0f);
        glPointParameterf(GL_POINT_SIZE_MAX, 9.0f);
        glPointParameterf(GL_POINT_FADE_THRESHOLD_SIZE, 3.0f);
        const GLfloat attenuation[] = {0.5f, 0.25f, 0.125f};
        glPointParameterfv(GL_POINT_DISTANCE_ATTENUATION, attenuation);
        glPointParameteri(GL_POINT_SPRITE_COORD_ORIGIN, GL_LOWER_LEFT);
        glShadeModel(GL_FLAT);
        glProvokingVertex(GL_FIRST_VERTEX_CONVENTION);
        glPrimitiveRestartIndex(2);
        glPatchParameteri(GL_PATCH_VERTICES, 5);
        glClipControl(GL_UPPER_LEFT, GL_ZERO_TO_ONE);
        const GLdouble plane[] = {0.1, 0.2, 0.3, -100.0};
        glClipPlane(GL_CLIP_PLANE0, plane);
        glClipPlane(GL_CLIP_PLANE3, plane);
        for (const GLenum name :
             {GL_PERSPECTIVE_CORRECTION_HINT, GL_POINT_SMOOTH_HINT, GL_LINE_SMOOTH_HINT, GL_POLYGON_SMOOTH_HINT,
              GL_FOG_HINT, GL_GENERATE_MIPMAP_HINT, GL_TEXTURE_COMPRESSION_HINT, GL_FRAGMENT_SHADER_DERIVATIVE_HINT}) {
            glHint(name, GL_NICEST);
        }
    }

    static void setLighting()
    {
        for (const GLenum name : {GL_LIGHTING, GL_LIGHT0, GL_LIGHT5, GL_COLOR_MATERIAL, GL_FOG, GL_NORMALIZE}) {
            glEnable(name);
        }
        const GLfloat color[] = {0.15f, 0.35f, 0.55f, 0.75f};
        const GLfloat position[] = {1.0f, 2.0f, 3.0f, 1.0f};
        const GLfloat direction[] = {0.1f, 0.2f, -0.9f};
        for (const GLenum light : {GL_LIGHT0, GL_LIGHT1, GL_LIGHT5}) {
            for (const GLenum name : {GL_AMBIENT, GL_DIFFUSE, GL_SPECULAR}) {
                glLightfv(light, name, color);
            }
            glLightfv(light, GL_POSITION, position);
            glLightfv(light, GL_SPOT_DIRECTION, direction);
            glLightf(light, GL_SPOT_EXPONENT, 3.0f);
            glLightf(light, GL_SPOT_CUTOFF, 45.0f);
            glLightf(light, GL_CONSTANT_ATTENUATION, 0.5f);
            glLightf(light, GL_LINEAR_ATTENUATION, 0.25f);
            glLightf(light, GL_QUADRATIC_ATTENUATION, 0.125f);
        }
        glLightModelfv(GL_LIGHT_MODEL_AMBIENT, color);
        glLightModeli(GL_LIGHT_MODEL_LOCAL_VIEWER, 1);
        glLightModeli(GL_LIGHT_MODEL_COLOR_CONTROL, GL_SEPARATE_SPECULAR_COLOR);
        glColorMaterial(GL_BACK, GL_SPECULAR);
        for (const GLenum face : {GL_FRONT, GL_BACK}) {
            for (const GLenum name : {GL_AMBIENT, GL_DIFFUSE, GL_SPECULAR, GL_EMISSION}) {
                glMaterialfv(face, name, color);
            }
            glMaterialf(face, GL_SHININESS, 33.0f);
        }
        glFogi(GL_FOG_MODE, GL_LINEAR);
        glFogi(GL_FOG_COORD_SRC, GL_FOG_COORD);
        glFogf(GL_FOG_DENSITY, 0.5f);
        glFogf(GL_FOG_START, 0.125f);
        glFogf(GL_FOG_END, 2.5f);
        glFogfv(GL_FOG_COLOR, color);
        glColor4f(0.6f, 0.5f, 0.4f, 0.3f);
        glSecondaryColor3f(0.1f, 0.2f, 0.3f);
        glNormal3f(0.5f, 0.25f, 0.125f);
        glFogCoordf(0.75f);
        glEdgeFlag(GL_FALSE);
        glVertexAttrib4f(5, 0.1f, 0.2f, 0.3f, 0.4f);
    }

    void setTextures()
    {
        const unsigned char pixels[16] = {200, 100, 50, 250, 10, 20, 30, 40, 50, 60, 70, 80, 90, 1, 2, 3};
        // As an earlier odd client may have left it.
        glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
        for (const GLenum name : {GL_UNPACK_ROW_LENGTH, GL_UNPACK_SKIP_ROWS, GL_UNPACK_SKIP_PIXELS}) {
            glPixelStorei(name, 0);
        }
        glGenTextures(3, m_textures);
        glGenSamplers(1, &m_sampler);
        glSamplerParameteri(m_sampler, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        const GLfloat plane[] = {0.5f, 0.25f, 0.75f, 0.125f};
        for (const GLint unit : {0, 1, 3, 7}) {
            glActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(unit));
            glBindTexture(GL_TEXTURE_2D, m_textures[unit % 2]);
            glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 2, 2, 0, GL_RGBA, GL_UNSIGNED_BYTE, pixels);
            glBindTexture(GL_TEXTURE_CUBE_MAP, m_textures[2]);
            glBindSampler(static_cast<GLuint>(unit), m_sampler);
            glEnable(GL_TEXTURE_2D);
            glEnable(GL_TEXTURE_GEN_S);
            glEnable(GL_TEXTURE_GEN_T);
            glTexGeni(GL_S, GL_TEXTURE_GEN_MODE, GL_OBJECT_LINEAR);
            glTexGenfv(GL_S, GL_OBJECT_PLANE, plane);
            glTexGenfv(GL_T, GL_EYE_PLANE, plane);
            glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, unit == 0 ? GL_BLEND : GL_COMBINE);
            glTexEnvi(GL_TEXTURE_ENV, GL_COMBINE_RGB, GL_SUBTRACT);
            glTexEnvi(GL_TEXTURE_ENV, GL_SRC1_RGB, GL_CONSTANT);
            glTexEnvi(GL_TEXTURE_ENV, GL_OPERAND0_RGB, GL_ONE_MINUS_SRC_COLOR);
            glTexEnvi(GL_TEXTURE_ENV, GL_RGB_SCALE, 4);
            glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, plane);
            glTexEnvf(GL_TEXTURE_FILTER_CONTROL, GL_TEXTURE_LOD_BIAS, 0.5f);
            glMatrixMode(GL_TEXTURE);
            glLoadIdentity();
            glScalef(2.0f, 3.0f, 4.0f);
            glMultiTexCoord4f(GL_TEXTURE0 + static_cast<GLenum>(unit), 0.1f, 0.2f, 0.3f, 0.4f);
        }
        glActiveTexture(GL_TEXTURE0 + 29);
        glBindTexture(GL_TEXTURE_2D, m_textures[0]);
        glActiveTexture(GL_TEXTURE3);
        glMatrixMode(GL_TEXTURE);
    }

    static void setPixels()
    {
        for (const GLenum name : {GL_PACK_ROW_LENGTH, GL_PACK_SKIP_ROWS, GL_PACK_SKIP_PIXELS, GL_PACK_SKIP_IMAGES,
                                  GL_PACK_IMAGE_HEIGHT, GL_UNPACK_ROW_LENGTH, GL_UNPACK_SKIP_ROWS,
                                  GL_UNPACK_SKIP_PIXELS, GL_UNPACK_SKIP_IMAGES, GL_UNPACK_IMAGE_HEIGHT}) {
            glPixelStorei(name, 3);
        }
        for (const GLenum name : {GL_PACK_SWAP_BYTES, GL_PACK_LSB_FIRST, GL_UNPACK_SWAP_BYTES, GL_UNPACK_LSB_FIRST}) {
            glPixelStorei(name, 1);
        }
        glPixelStorei(GL_PACK_ALIGNMENT, 8);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 2);
        for (const GLenum name : {GL_RED_SCALE, GL_GREEN_SCALE, GL_BLUE_SCALE, GL_ALPHA_SCALE, GL_DEPTH_SCALE}) {
            glPixelTransferf(name, 0.5f);
        }
        for (const GLenum name : {GL_RED_BIAS, GL_GREEN_BIAS, GL_BLUE_BIAS, GL_ALPHA_BIAS, GL_DEPTH_BIAS}) {
            glPixelTransferf(name, 0.125f);
        }
        glPixelTransferi(GL_INDEX_SHIFT, 1);
        glPixelZoom(2.0f, -3.0f);
    }

    void setBindings(GLuint framebuffer)
    {
        glBindVertexArray(0);
        glGenBuffers(7, m_buffers);
        const GLenum targets[] = {GL_ELEMENT_ARRAY_BUFFER, GL_PIXEL_PACK_BUFFER, GL_PIXEL_UNPACK_BUFFER,
                                  GL_UNIFORM_BUFFER,       GL_COPY_READ_BUFFER,  GL_ARRAY_BUFFER,
                                  GL_COPY_WRITE_BUFFER};
        for (int i = 0; i < 7; ++i) {
            glBindBuffer(targets[i], m_buffers[i]);
            glBufferData(targets[i], 4096, nullptr, GL_STATIC_DRAW);
        }
        setArrays();
        glGenVertexArrays(1, &m_vertexArray);
        glBindVertexArray(m_vertexArray);
        glEnableVertexAttribArray(4);
        glVertexAttribPointer(4, 2, GL_SHORT, GL_TRUE, 8, nullptr);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, m_buffers[6]);
        glBindBuffer(GL_ARRAY_BUFFER, m_buffers[4]);
        glClientActiveTexture(GL_TEXTURE2);
        glUseProgram(program());
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        GLint renderbuffer = 0;
        glGetFramebufferAttachmentParameteriv(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0,
                                              GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &renderbuffer);
        glBindRenderbuffer(GL_RENDERBUFFER, static_cast<GLuint>(renderbuffer));
        const GLenum both[] = {GL_COLOR_ATTACHMENT0, GL_COLOR_ATTACHMENT1};
        glDrawBuffers(2, both);
        glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
    }

    // Of the array object 0, in the buffer that is bound.
    static void setArrays()
    {
        glVertexPointer(2, GL_SHORT, 12, nullptr);
        glNormalPointer(GL_BYTE, 16, nullptr);
        glColorPointer(3, GL_UNSIGNED_BYTE, 20, nullptr);
        for (const GLenum name : {GL_VERTEX_ARRAY, GL_NORMAL_ARRAY, GL_COLOR_ARRAY, GL_EDGE_FLAG_ARRAY}) {
            glEnableClientState(name);
        }
        glEdgeFlagPointer(4, nullptr);
        glClientActiveTexture(GL_TEXTURE1);
        glTexCoordPointer(3, GL_FLOAT, 24, nullptr);
        glEnableClientState(GL_TEXTURE_COORD_ARRAY);
        glEnableVertexAttribArray(6);
        glVertexAttribPointer(6, 3, GL_SHORT, GL_TRUE, 10, nullptr);
        glVertexAttribDivisor(6, 2);
    }

    GLuint program()
    {
        const char* const source = "void main() { gl_FragColor = vec4(0.2, 0.4, 0.6, 0.8); }";
        const GLuint shader = glCreateShader(GL_FRAGMENT_SHADER);
        glShaderSource(shader, 1, &source, nullptr);
        glCompileShader(shader);
        m_program = glCreateProgram();
        glAttachShader(m_program, shader);
        glLinkProgram(m_program);
        return m_program;
    }

    GLuint m_textures[3] = {};
    GLuint m_sampler = 0;
    GLuint m_buffers[7] = {};
    GLuint m_vertexArray = 0;
    GLuint m_program = 0;
};
