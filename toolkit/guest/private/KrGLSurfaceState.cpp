// Lights, materials, fog and texture units, of KrGLStateTraversal.

#define GL_GLEXT_PROTOTYPES

#include <toolkit/guest/private/KrGLStateTraversal.h>

#include <toolkit/guest/private/KrGLStateTables.h>

#include <utility>

using namespace KrGLStateTables;
using KrGLCalls::bindTexture;
using KrGLCalls::nth;

// One value of one light. Positions and spot directions are told in eye coordinates, but transformed by the model-view
// matrix when they are set; in a writing walk that is the identity (see begin()).
template <std::size_t N>
void KrGLStateTraversal::light(GLenum number, GLenum name, const std::array<GLfloat, N>& initial)
{
    item(
        initial, [=](GLfloat* v) { glGetLightfv(number, name, v); },
        [=](const GLfloat* v) { glLightfv(number, name, v); });
}

// Lights, the light model and materials; how they play together is OpenGL 2.1, section 2.14.
void KrGLStateTraversal::lighting()
{
    using Color = std::array<GLfloat, 4>;
    constexpr Color black = {0.0f, 0.0f, 0.0f, 1.0f};
    for (int i = 0; i < m_limits.lights; ++i) {
        const GLenum number = nth(GL_LIGHT0, i);
        // In a new context light 0 alone is white, so that a scene which only enables it is lit.
        const Color first = i == 0 ? Color{1.0f, 1.0f, 1.0f, 1.0f} : black;
        flag(number, false);
        light(number, GL_AMBIENT, black);
        light(number, GL_DIFFUSE, first);
        light(number, GL_SPECULAR, first);
        light(number, GL_POSITION, Color{0.0f, 0.0f, 1.0f, 0.0f});
        light(number, GL_SPOT_DIRECTION, std::array<GLfloat, 3>{0.0f, 0.0f, -1.0f});
        light(number, GL_SPOT_EXPONENT, std::array<GLfloat, 1>{0.0f});
        light(number, GL_SPOT_CUTOFF, std::array<GLfloat, 1>{180.0f});
        light(number, GL_CONSTANT_ATTENUATION, std::array<GLfloat, 1>{1.0f});
        light(number, GL_LINEAR_ATTENUATION, std::array<GLfloat, 1>{0.0f});
        light(number, GL_QUADRATIC_ATTENUATION, std::array<GLfloat, 1>{0.0f});
    }
    floats(GL_LIGHT_MODEL_AMBIENT, Color{0.2f, 0.2f, 0.2f, 1.0f},
           [](const GLfloat* v) { glLightModelfv(GL_LIGHT_MODEL_AMBIENT, v); });
    for (const GLenum name : {GL_LIGHT_MODEL_LOCAL_VIEWER, GL_LIGHT_MODEL_TWO_SIDE, GL_LIGHT_MODEL_COLOR_CONTROL}) {
        integers(name, Name{name == GL_LIGHT_MODEL_COLOR_CONTROL ? GL_SINGLE_COLOR : 0},
                 [name](const GLint* v) { glLightModeli(name, *v); });
    }
    // Face by face: glGetMaterial does not take GL_FRONT_AND_BACK.
    for (const GLenum face : {GL_FRONT, GL_BACK}) {
        material(face, GL_AMBIENT, Color{0.2f, 0.2f, 0.2f, 1.0f});
        material(face, GL_DIFFUSE, Color{0.8f, 0.8f, 0.8f, 1.0f});
        material(face, GL_SPECULAR, black);
        material(face, GL_EMISSION, black);
        material(face, GL_SHININESS, std::array<GLfloat, 1>{0.0f});
    }
    fog();
}

// One value of one face. It follows the current colour while GL_COLOR_MATERIAL is on, which begin() therefore switches
// off.
template <std::size_t N>
void KrGLStateTraversal::material(GLenum face, GLenum name, const std::array<GLfloat, N>& initial)
{
    item(
        initial, [=](GLfloat* v) { glGetMaterialfv(face, name, v); },
        [=](const GLfloat* v) { glMaterialfv(face, name, v); });
}

// Its switch is one of switches().
void KrGLStateTraversal::fog()
{
    // The two enumerators of fog; the call takes them as integers.
    for (const auto& [name, initial] : {std::pair<GLenum, GLenum>(GL_FOG_MODE, GL_EXP),
                                        std::pair<GLenum, GLenum>(GL_FOG_COORD_SRC, GL_FRAGMENT_DEPTH)}) {
        const GLenum parameter = name;
        enumerator(parameter, initial, [parameter](GLenum v) { glFogi(parameter, static_cast<GLint>(v)); });
    }
    for (const GLenum name : {GL_FOG_DENSITY, GL_FOG_START, GL_FOG_END}) {
        floats(name, std::array<GLfloat, 1>{name == GL_FOG_START ? 0.0f : 1.0f},
               [name](const GLfloat* v) { glFogf(name, *v); });
    }
    floats(GL_FOG_COLOR, std::array<GLfloat, 4>{}, [](const GLfloat* v) { glFogfv(GL_FOG_COLOR, v); });
}

// What belongs to one unit, which selectUnit() makes the active one before the first question or change.
void KrGLStateTraversal::textureUnit(int unit)
{
    for (const Target& target : kTextureTargets) {
        if (has(target.version)) {
            integers(target.binding, Name{0}, [&target](const GLint* name) { bindTexture(target.target, *name); });
        }
    }
    // A sampler that has been deleted cannot be bound again; the unit keeps what it has.
    if (has(33)) {
        enumerator(GL_SAMPLER_BINDING, 0, [unit](GLuint name) {
            if (name == 0 || glIsSampler(name)) {
                glBindSampler(static_cast<GLuint>(unit), name);
            }
        });
    }
    // Units above these are read by shaders alone and have no fixed-function environment; asking for one is an error.
    if (unit < m_limits.textureUnits) {
        textureEnvironment();
    }
    if (unit < m_limits.textureCoords) {
        textureCoordinates(unit);
    }
}

// How the fixed pipeline combines a unit's texture with the colour.
void KrGLStateTraversal::textureEnvironment()
{
    // Which target a fixed-function unit reads; shaders do without these switches.
    for (const GLenum target : {GL_TEXTURE_1D, GL_TEXTURE_2D, GL_TEXTURE_3D, GL_TEXTURE_CUBE_MAP}) {
        flag(target, false);
    }
    if (has(31)) {
        flag(GL_TEXTURE_RECTANGLE, false);
    }
    for (const EnvironmentValue& environment : kTextureEnvironment) {
        item(
            Name{environment.initial}, [&environment](GLint* v) { glGetTexEnviv(GL_TEXTURE_ENV, environment.name, v); },
            [&environment](const GLint* v) { glTexEnviv(GL_TEXTURE_ENV, environment.name, v); });
    }
    item(
        std::array<GLfloat, 4>{}, [](GLfloat* v) { glGetTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, v); },
        [](const GLfloat* v) { glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, v); });
    // The bias stands with the unit here; textures have one of their own, which is part of the texture object.
    item(
        std::array<GLfloat, 1>{0.0f},
        [](GLfloat* v) { glGetTexEnvfv(GL_TEXTURE_FILTER_CONTROL, GL_TEXTURE_LOD_BIAS, v); },
        [](const GLfloat* v) { glTexEnvfv(GL_TEXTURE_FILTER_CONTROL, GL_TEXTURE_LOD_BIAS, v); });
}

// Generated and current coordinates, and the matrix that they go through.
void KrGLStateTraversal::textureCoordinates(int unit)
{
    // Point sprites replace coordinates unit by unit.
    item(
        Name{0}, [](GLint* v) { glGetTexEnviv(GL_POINT_SPRITE, GL_COORD_REPLACE, v); },
        [](const GLint* v) { glTexEnviv(GL_POINT_SPRITE, GL_COORD_REPLACE, v); });
    constexpr GLenum coordinates[] = {GL_S, GL_T, GL_R, GL_Q};
    for (int i = 0; i < 4; ++i) {
        const GLenum coordinate = coordinates[i];
        std::array<GLfloat, 4> plane = {};
        // S and T take x and y at first, R and Q nothing.
        if (i < 2) {
            plane[static_cast<std::size_t>(i)] = 1.0f;
        }
        flag(nth(GL_TEXTURE_GEN_S, i), false);
        item(
            Name{GL_EYE_LINEAR}, [=](GLint* v) { glGetTexGeniv(coordinate, GL_TEXTURE_GEN_MODE, v); },
            [=](const GLint* v) { glTexGeniv(coordinate, GL_TEXTURE_GEN_MODE, v); });
        // Eye planes are transformed by the inverse of the model-view matrix when they are set: the identity in a
        // writing walk.
        for (const GLenum name : {GL_OBJECT_PLANE, GL_EYE_PLANE}) {
            item(
                plane, [=](GLfloat* v) { glGetTexGenfv(coordinate, name, v); },
                [=](const GLfloat* v) { glTexGenfv(coordinate, name, v); });
        }
    }
    floats(GL_CURRENT_TEXTURE_COORDS, std::array<GLfloat, 4>{0.0f, 0.0f, 0.0f, 1.0f},
           [unit](const GLfloat* v) { glMultiTexCoord4fv(nth(GL_TEXTURE0, unit), v); });
    // The mode is the model-view matrix's everywhere else in the walk.
    floats(GL_TEXTURE_MATRIX, kIdentity, [](const GLfloat* matrix) {
        glMatrixMode(GL_TEXTURE);
        glLoadMatrixf(matrix);
        glMatrixMode(GL_MODELVIEW);
    });
}
