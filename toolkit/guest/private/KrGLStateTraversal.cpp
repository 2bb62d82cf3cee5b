#define GL_GLEXT_PROTOTYPES

#include <toolkit/guest/private/KrGLStateTraversal.h>

#include <toolkit/guest/private/KrGLArrayState.h>
#include <toolkit/guest/private/KrGLStateTables.h>

#include <algorithm>

using namespace KrGLArrayState;
using namespace KrGLStateTables;
using KrGLCalls::bindBuffer;
using KrGLCalls::integer;
using KrGLCalls::nth;
using KrGLCalls::set;

void KrGLStateTraversal::initialize(Values& values)
{
    m_purpose = Purpose::Initialize;
    m_values = &values;
    run();
}
void KrGLStateTraversal::read(Values& values)
{
    m_purpose = Purpose::Read;
    m_values = &values;
    run();
}
// What is alike on both sides is left out, which is nearly everything.
void KrGLStateTraversal::write(Values& values, const Values& present)
{
    m_purpose = Purpose::Write;
    m_values = &values;
    m_present = &present;
    run();
}

void KrGLStateTraversal::run()
{
    // The order of the steps is the order of the values in the list, so that every purpose takes the same ones. Lights,
    // clip planes and texture planes come before the matrices, and what the walk itself alters comes last.
    m_position = 0;
    m_unit = -1;
    begin();
    arrays();
    bindings();
    pixels();
    switches();
    fragments();
    rasterisation();
    lighting();
    // Shaders may have more units than the fixed pipeline, or fewer.
    for (int unit = 0; unit < std::max(m_limits.imageUnits, m_limits.textureUnits); ++unit) {
        m_unit = unit;
        textureUnit(unit);
    }
    m_unit = -1;
    currentAttributes();
    matrices();
    selectors();
}

// Makes the context fit to be asked, and for writing fit to be set.
void KrGLStateTraversal::begin()
{
    // The values of a new context come from the tables; the current one is left as it is.
    if (m_purpose == Purpose::Initialize) {
        return;
    }
    // What the walk leaves otherwise; written back in selectors().
    m_activeTexture = integer(GL_ACTIVE_TEXTURE);
    m_clientActiveTexture = integer(GL_CLIENT_ACTIVE_TEXTURE);
    m_arrayBuffer = integer(GL_ARRAY_BUFFER_BINDING);
    m_vertexArray = m_limits.hasVertexArrays ? integer(GL_VERTEX_ARRAY_BINDING) : 0;
    m_selectedUnit = m_activeTexture - GL_TEXTURE0;
    // The client's arrays are told from object 0; with another one bound its arrays would be told instead.
    if (m_vertexArray) {
        glBindVertexArray(0);
    }
    if (m_purpose == Purpose::Write) {
        // Lights, clip planes and texture planes are transformed when they are set, and materials follow the
        // colour.
        glDisable(GL_COLOR_MATERIAL);
        glMatrixMode(GL_MODELVIEW);
        glLoadIdentity();
    }
}

// One array: its switch and its layout. Those of texture coordinates belong to a unit, which is selected before each
// question; `unit` is -1 for the others.
void KrGLStateTraversal::array(const ArrayNames& names, int unit)
{
    const auto select = [unit] {
        if (unit >= 0) {
            glClientActiveTexture(nth(GL_TEXTURE0, unit));
        }
    };
    item(
        Name{0},
        [&](GLint* on) {
            select();
            *on = glIsEnabled(names.array);
        },
        [&](const GLint* on) {
            select();
            *on ? glEnableClientState(names.array) : glDisableClientState(names.array);
        });
    ArrayLayout initial;
    initial.size = names.initialSize;
    item(
        std::array<ArrayLayout, 1>{initial},
        [&](ArrayLayout* layout) {
            select();
            *layout = readLayout(names);
        },
        [&](const ArrayLayout* layout) {
            select();
            applyLayout(names.array, *layout);
        });
}

// Those of the vertex array object 0; any other keeps its arrays by itself.
void KrGLStateTraversal::arrays()
{
    for (const ArrayNames& names : kArrays) {
        array(names, -1);
    }
    for (int unit = 0; unit < m_limits.textureCoords; ++unit) {
        array(kTextureCoordArray, unit);
    }
    // Nothing of ours has these; enabled, they would be read.
    for (const GLenum name : {GL_INDEX_ARRAY, GL_EDGE_FLAG_ARRAY}) {
        item(
            Name{0}, [name](GLint* on) { *on = glIsEnabled(static_cast<GLenum>(name)); },
            [name](const GLint* on) { *on ? glEnableClientState(name) : glDisableClientState(name); });
    }
    // Generic attributes: those of shader programs, numbered through.
    for (int i = 0; i < m_limits.attributes; ++i) {
        attribute(static_cast<GLuint>(i));
    }
    // This binding belongs to the vertex array object 0 like the arrays, so it is told while that one is bound.
    integers(GL_ELEMENT_ARRAY_BUFFER_BINDING, Name{0},
             [](const GLint* name) { bindBuffer(GL_ELEMENT_ARRAY_BUFFER, *name); });
}

// One generic attribute. Its divisor, for instanced drawing, is known from 3.3 on.
void KrGLStateTraversal::attribute(GLuint index)
{
    item(
        Name{0}, [index](GLint* on) { glGetVertexAttribiv(index, GL_VERTEX_ATTRIB_ARRAY_ENABLED, on); },
        [index](const GLint* on) { *on ? glEnableVertexAttribArray(index) : glDisableVertexAttribArray(index); });
    const bool canBeInteger = has(30);
    item(
        std::array<ArrayLayout, 1>{ArrayLayout()},
        [=](ArrayLayout* layout) { *layout = readAttributeLayout(index, canBeInteger); },
        [=](const ArrayLayout* layout) { applyAttributeLayout(index, *layout); });
    if (has(33)) {
        item(
            Name{0}, [index](GLint* divisor) { glGetVertexAttribiv(index, GL_VERTEX_ATTRIB_ARRAY_DIVISOR, divisor); },
            [index](const GLint* divisor) { glVertexAttribDivisor(index, static_cast<GLuint>(*divisor)); });
    }
}

// What is bound to targets of the context, not of a texture unit or a vertex array.
void KrGLStateTraversal::bindings()
{
    // A name that has been deleted meanwhile must not be bound: that would make a new object of it, or fail. Such a
    // binding is left as it is.
    for (const Target& target : kBufferTargets) {
        if (has(target.version)) {
            integers(target.binding, Name{0}, [&target](const GLint* name) { bindBuffer(target.target, *name); });
        }
    }
    if (m_limits.hasFramebuffers) {
        enumerator(GL_RENDERBUFFER_BINDING, 0, [](GLuint name) {
            if (name == 0 || glIsRenderbuffer(name)) {
                glBindRenderbuffer(GL_RENDERBUFFER, name);
            }
        });
    }
    if (has(20)) {
        enumerator(GL_CURRENT_PROGRAM, 0, [](GLuint name) {
            if (name == 0 || glIsProgram(name)) {
                glUseProgram(name);
            }
        });
    }
    if (has(41)) {
        enumerator(GL_PROGRAM_PIPELINE_BINDING, 0, [](GLuint name) {
            if (name == 0 || glIsProgramPipeline(name)) {
                glBindProgramPipeline(name);
            }
        });
    }
    if (m_limits.hasAssemblyPrograms) {
        assemblyProgram(GL_VERTEX_PROGRAM_ARB);
        assemblyProgram(GL_FRAGMENT_PROGRAM_ARB);
    }
}

// Programs in the assembly languages of ARB_vertex_program and ARB_fragment_program, which are bound and switched on
// apart from shaders.
void KrGLStateTraversal::assemblyProgram(GLenum target)
{
    flag(target, false);
    item(
        Name{0}, [target](GLint* name) { glGetProgramivARB(target, GL_PROGRAM_BINDING_ARB, name); },
        [target](const GLint* name) {
            if (*name == 0 || glIsProgramARB(static_cast<GLuint>(*name))) {
                glBindProgramARB(target, static_cast<GLuint>(*name));
            }
        });
}

// How pixels are packed and changed on their way to and from memory.
void KrGLStateTraversal::pixels()
{
    for (const GLenum name : kPixelStores) {
        // Rows are aligned to 4 bytes at first, everything else is 0 or off.
        const bool isAlignment = name == GL_PACK_ALIGNMENT || name == GL_UNPACK_ALIGNMENT;
        integers(name, Name{isAlignment ? 4 : 0}, [name](const GLint* value) { glPixelStorei(name, *value); });
    }
    for (const PixelTransfer& transfer : kPixelTransfers) {
        floats(transfer.name, std::array<GLfloat, 1>{transfer.initial},
               [&transfer](const GLfloat* value) { glPixelTransferf(transfer.name, *value); });
    }
    item(
        std::array<GLfloat, 2>{1.0f, 1.0f},
        [](GLfloat* zoom) {
            glGetFloatv(GL_ZOOM_X, zoom);
            glGetFloatv(GL_ZOOM_Y, zoom + 1);
        },
        [](const GLfloat* zoom) { glPixelZoom(zoom[0], zoom[1]); });
}

// What glEnable turns on, with what belongs to a single switch.
void KrGLStateTraversal::switches()
{
    for (const Switch& item : kSwitches) {
        if (has(item.version)) {
            flag(item.capability, item.initial);
        }
    }
    for (int i = 0; i < m_limits.clipPlanes; ++i) {
        // Planes are told in eye coordinates and transformed when they are set, as lights are.
        const GLenum plane = nth(GL_CLIP_PLANE0, i);
        flag(plane, false);
        item(
            std::array<GLdouble, 4>{0.0, 0.0, 0.0, 0.0}, [plane](GLdouble* value) { glGetClipPlane(plane, value); },
            [plane](const GLdouble* value) { glClipPlane(plane, value); });
    }
    if (m_limits.hasTwoSidedStencil) {
        flag(GL_STENCIL_TEST_TWO_SIDE_EXT, false);
    }
    // OpenGL leaves it to the driver at first, whatever the hint is about.
    for (const GLenum name : kHints) {
        enumerator(name, GL_DONT_CARE, [name](GLenum mode) { glHint(name, mode); });
    }
}

// What vertices get that bring no attribute of their own.
void KrGLStateTraversal::currentAttributes()
{
    floats(GL_CURRENT_COLOR, std::array<GLfloat, 4>{1.0f, 1.0f, 1.0f, 1.0f}, [](const GLfloat* v) { glColor4fv(v); });
    floats(GL_CURRENT_SECONDARY_COLOR, std::array<GLfloat, 4>{0.0f, 0.0f, 0.0f, 1.0f},
           [](const GLfloat* v) { glSecondaryColor3fv(v); });
    floats(GL_CURRENT_NORMAL, std::array<GLfloat, 3>{0.0f, 0.0f, 1.0f}, [](const GLfloat* v) { glNormal3fv(v); });
    floats(GL_CURRENT_FOG_COORD, std::array<GLfloat, 1>{0.0f}, [](const GLfloat* v) { glFogCoordfv(v); });
    integers(GL_EDGE_FLAG, Name{1}, [](const GLint* v) { glEdgeFlag(*v != 0); });
    // Attribute 0 is the vertex, which has no current value.
    for (int i = 1; i < m_limits.attributes; ++i) {
        const auto attribute = static_cast<GLuint>(i);
        item(
            std::array<GLfloat, 4>{0.0f, 0.0f, 0.0f, 1.0f},
            [=](GLfloat* v) { glGetVertexAttribfv(attribute, GL_CURRENT_VERTEX_ATTRIB, v); },
            [=](const GLfloat* v) { glVertexAttrib4fv(attribute, v); });
    }
}

// The tops of the stacks: nothing of the library leaves a stack deeper than it was.
void KrGLStateTraversal::matrices()
{
    floats(GL_PROJECTION_MATRIX, kIdentity, [](const GLfloat* matrix) {
        glMatrixMode(GL_PROJECTION);
        glLoadMatrixf(matrix);
    });
    // Always written: begin() has loaded the identity, whatever the two sides had.
    item(
        kIdentity, [](GLfloat* matrix) { glGetFloatv(GL_MODELVIEW_MATRIX, matrix); },
        [](const GLfloat* matrix) {
            glMatrixMode(GL_MODELVIEW);
            glLoadMatrixf(matrix);
        },
        Writing::Always);
}

// Which unit, array and matrix calls are about; last, since all steps before alter them.
void KrGLStateTraversal::selectors()
{
    // Before the switch of the colour material: what is to follow the colour is chosen while nothing follows it.
    item(
        std::array<GLint, 2>{GL_FRONT_AND_BACK, GL_AMBIENT_AND_DIFFUSE},
        [](GLint* v) {
            glGetIntegerv(GL_COLOR_MATERIAL_FACE, v);
            glGetIntegerv(GL_COLOR_MATERIAL_PARAMETER, v + 1);
        },
        [](const GLint* v) { glColorMaterial(static_cast<GLenum>(v[0]), static_cast<GLenum>(v[1])); });
    // Always written: begin() has switched it off.
    item(
        Name{0}, [](GLint* on) { *on = glIsEnabled(GL_COLOR_MATERIAL); },
        [](const GLint* on) { set(GL_COLOR_MATERIAL, *on != 0); }, Writing::Always);
    selector(GL_MODELVIEW, integer(GL_MATRIX_MODE), [](GLint mode) { glMatrixMode(static_cast<GLenum>(mode)); });
    selector(GL_TEXTURE0, m_activeTexture, [](GLint unit) { glActiveTexture(static_cast<GLenum>(unit)); });
    selector(GL_TEXTURE0, m_clientActiveTexture, [](GLint unit) { glClientActiveTexture(static_cast<GLenum>(unit)); });
    selector(0, m_arrayBuffer, [](GLint name) { bindBuffer(GL_ARRAY_BUFFER, name); });
    if (m_limits.hasVertexArrays) {
        selector(0, m_vertexArray, [](GLint name) {
            if (name == 0 || glIsVertexArray(static_cast<GLuint>(name))) {
                glBindVertexArray(static_cast<GLuint>(name));
            }
        });
    }
}

/// What a walk itself alters: put back by a reading walk, too.
template <typename Set>
void KrGLStateTraversal::selector(GLint initial, GLint found, const Set& setValue)
{
    const auto get = [&](GLint* value) {
        *value = found;
        setValue(found);
    };
    item(
        Name{initial}, get, [&](const GLint* value) { setValue(*value); }, Writing::Always);
}
