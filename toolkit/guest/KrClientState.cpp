#define GL_GLEXT_PROTOTYPES

#include <toolkit/guest/KrClientState.h>

#include <toolkit/context/KrWindowImpl.h>
#include <toolkit/window/KrWindow.h>

#include <GL/gl.h>
#include <GL/glext.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

namespace
{

using Name = std::array<GLint, 1>;

GLint integer(GLenum name)
{
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
}

bool hasExtension(const std::string& name)
{
    const auto* list = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    return list && (" " + std::string(list) + " ").find(" " + name + " ") != std::string::npos;
}

GLenum nth(GLenum first, int i)
{
    return first + static_cast<GLenum>(i);
}

void set(GLenum capability, bool on)
{
    if (on) {
        glEnable(capability);
    } else {
        glDisable(capability);
    }
}

// To bind a deleted name would make a new object of that name.
void bindTexture(GLenum target, GLint name)
{
    const auto texture = static_cast<GLuint>(name);
    if (name == 0 || glIsTexture(texture)) {
        glBindTexture(target, texture);
    }
}

bool bindBuffer(GLenum target, GLint name)
{
    const auto buffer = static_cast<GLuint>(name);
    if (name != 0 && !glIsBuffer(buffer)) {
        return false;
    }
    glBindBuffer(target, buffer);
    return true;
}

struct Target
{
    GLenum target;
    GLenum binding;
    int version; ///< of OpenGL, from which on it exists
};

constexpr Target kTextureTargets[] = {{GL_TEXTURE_1D, GL_TEXTURE_BINDING_1D, 11},
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
constexpr Target kBufferTargets[] = {{GL_PIXEL_PACK_BUFFER, GL_PIXEL_PACK_BUFFER_BINDING, 21},
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

constexpr Switch kSwitches[] = {{GL_ALPHA_TEST, false, 11},
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

constexpr GLenum kHints[] = {GL_PERSPECTIVE_CORRECTION_HINT,
                             GL_POINT_SMOOTH_HINT,
                             GL_LINE_SMOOTH_HINT,
                             GL_POLYGON_SMOOTH_HINT,
                             GL_FOG_HINT,
                             GL_GENERATE_MIPMAP_HINT,
                             GL_TEXTURE_COMPRESSION_HINT,
                             GL_FRAGMENT_SHADER_DERIVATIVE_HINT};

constexpr GLenum kPixelStores[] = {
    GL_UNPACK_SWAP_BYTES, GL_UNPACK_LSB_FIRST,   GL_UNPACK_ROW_LENGTH,  GL_UNPACK_IMAGE_HEIGHT,
    GL_UNPACK_SKIP_ROWS,  GL_UNPACK_SKIP_PIXELS, GL_UNPACK_ALIGNMENT,   GL_PACK_SWAP_BYTES,
    GL_PACK_LSB_FIRST,    GL_PACK_ROW_LENGTH,    GL_UNPACK_SKIP_IMAGES, GL_PACK_SKIP_IMAGES,
    GL_PACK_IMAGE_HEIGHT, GL_PACK_SKIP_ROWS,     GL_PACK_SKIP_PIXELS,   GL_PACK_ALIGNMENT};

struct PixelTransfer
{
    GLenum name;
    GLfloat initial;
};

constexpr PixelTransfer kPixelTransfers[] = {{GL_MAP_COLOR, 0.0f},    {GL_MAP_STENCIL, 0.0f}, {GL_INDEX_SHIFT, 0.0f},
                                             {GL_INDEX_OFFSET, 0.0f}, {GL_RED_SCALE, 1.0f},   {GL_GREEN_SCALE, 1.0f},
                                             {GL_BLUE_SCALE, 1.0f},   {GL_ALPHA_SCALE, 1.0f}, {GL_DEPTH_SCALE, 1.0f},
                                             {GL_RED_BIAS, 0.0f},     {GL_GREEN_BIAS, 0.0f},  {GL_BLUE_BIAS, 0.0f},
                                             {GL_ALPHA_BIAS, 0.0f},   {GL_DEPTH_BIAS, 0.0f}};

struct EnvironmentValue
{
    GLenum name;
    GLint initial;
};

constexpr EnvironmentValue kTextureEnvironment[] = {{GL_TEXTURE_ENV_MODE, GL_MODULATE},
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

constexpr ArrayNames kArrays[] = {{GL_VERTEX_ARRAY, GL_VERTEX_ARRAY_SIZE, GL_VERTEX_ARRAY_TYPE, GL_VERTEX_ARRAY_STRIDE,
                                   GL_VERTEX_ARRAY_BUFFER_BINDING, GL_VERTEX_ARRAY_POINTER, 4},
                                  {GL_NORMAL_ARRAY, 0, GL_NORMAL_ARRAY_TYPE, GL_NORMAL_ARRAY_STRIDE,
                                   GL_NORMAL_ARRAY_BUFFER_BINDING, GL_NORMAL_ARRAY_POINTER, 0},
                                  {GL_COLOR_ARRAY, GL_COLOR_ARRAY_SIZE, GL_COLOR_ARRAY_TYPE, GL_COLOR_ARRAY_STRIDE,
                                   GL_COLOR_ARRAY_BUFFER_BINDING, GL_COLOR_ARRAY_POINTER, 4},
                                  {GL_SECONDARY_COLOR_ARRAY, GL_SECONDARY_COLOR_ARRAY_SIZE,
                                   GL_SECONDARY_COLOR_ARRAY_TYPE, GL_SECONDARY_COLOR_ARRAY_STRIDE,
                                   GL_SECONDARY_COLOR_ARRAY_BUFFER_BINDING, GL_SECONDARY_COLOR_ARRAY_POINTER, 3},
                                  {GL_FOG_COORD_ARRAY, 0, GL_FOG_COORD_ARRAY_TYPE, GL_FOG_COORD_ARRAY_STRIDE,
                                   GL_FOG_COORD_ARRAY_BUFFER_BINDING, GL_FOG_COORD_ARRAY_POINTER, 0}};

constexpr ArrayNames kTextureCoordArray = {GL_TEXTURE_COORD_ARRAY,
                                           GL_TEXTURE_COORD_ARRAY_SIZE,
                                           GL_TEXTURE_COORD_ARRAY_TYPE,
                                           GL_TEXTURE_COORD_ARRAY_STRIDE,
                                           GL_TEXTURE_COORD_ARRAY_BUFFER_BINDING,
                                           GL_TEXTURE_COORD_ARRAY_POINTER,
                                           4};

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

ArrayLayout readLayout(const ArrayNames& names)
{
    ArrayLayout layout;
    layout.size = names.size ? integer(names.size) : 0;
    layout.type = integer(names.type);
    layout.stride = integer(names.stride);
    layout.buffer = integer(names.buffer);
    void* pointer = nullptr;
    glGetPointerv(names.pointer, &pointer);
    layout.pointer = reinterpret_cast<std::uintptr_t>(pointer);
    return layout;
}

void applyLayout(GLenum array, const ArrayLayout& layout)
{
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

ArrayLayout readAttributeLayout(GLuint attribute, bool canBeInteger)
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

void applyAttributeLayout(GLuint attribute, const ArrayLayout& layout)
{
    if (!bindBuffer(GL_ARRAY_BUFFER, layout.buffer)) {
        return;
    }
    const auto type = static_cast<GLenum>(layout.type);
    if (layout.isInteger) {
        glVertexAttribIPointer(attribute, layout.size, type, layout.stride, layout.address());
    } else {
        glVertexAttribPointer(attribute, layout.size, type, layout.isNormalized != 0, layout.stride, layout.address());
    }
}

/// The one colour buffer that drawing to `drawBuffer` fills; GL_NONE when that is none or several.
GLenum readableFrom(GLenum drawBuffer)
{
    const bool isAttachment = drawBuffer >= GL_COLOR_ATTACHMENT0 && drawBuffer <= GL_COLOR_ATTACHMENT31;
    const bool isSurface = drawBuffer >= GL_FRONT_LEFT && drawBuffer <= GL_RIGHT;
    return isAttachment || isSurface ? drawBuffer : GL_NONE;
}

} // namespace

/// Goes through all values of the state, always in the same order.
class KrClientState::Walk
{
public:
    using Values = std::vector<std::uint32_t>;

    explicit Walk(const Limits& limits)
        : m_limits(limits)
    {
    }

    /// The values of a new context.
    void initialize(Values& values)
    {
        m_purpose = Purpose::Initialize;
        m_values = &values;
        run();
    }
    /// The values of the current context, which are left as they are.
    void read(Values& values)
    {
        m_purpose = Purpose::Read;
        m_values = &values;
        run();
    }
    /// Gives the current context `values`, knowing that it has `present`.
    void write(Values& values, const Values& present)
    {
        m_purpose = Purpose::Write;
        m_values = &values;
        m_present = &present;
        run();
    }

private:
    enum class Purpose
    {
        Initialize,
        Read,
        Write
    };
    enum class Writing
    {
        WhereDifferent,
        Always ///< for what the walk itself alters
    };

    void run()
    {
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
        for (int unit = 0; unit < std::max(m_limits.imageUnits, m_limits.textureUnits); ++unit) {
            m_unit = unit;
            textureUnit(unit);
        }
        m_unit = -1;
        currentAttributes();
        matrices();
        selectors();
    }

    bool has(int version) const { return m_limits.version >= version; }

    template <typename T, std::size_t N, typename Get, typename Set>
    void item(const std::array<T, N>& initial, const Get& get, const Set& setValue,
              Writing writing = Writing::WhereDifferent)
    {
        static_assert(sizeof(T) % sizeof(std::uint32_t) == 0 && std::is_trivially_copyable_v<T>, "kept in words");
        constexpr std::size_t size = N * sizeof(T);
        const std::size_t position = m_position;
        m_position += size / sizeof(std::uint32_t);
        if (m_values->size() < m_position) {
            m_values->resize(m_position);
        }
        std::uint32_t* const words = m_values->data() + position;
        if (m_purpose == Purpose::Initialize) {
            std::memcpy(words, initial.data(), size);
            return;
        }
        if (m_purpose == Purpose::Write && writing == Writing::WhereDifferent &&
            std::memcmp(words, m_present->data() + position, size) == 0) {
            return;
        }
        selectUnit();
        std::array<T, N> value = {};
        if (m_purpose == Purpose::Read) {
            get(value.data());
            std::memcpy(words, value.data(), size);
        } else {
            std::memcpy(static_cast<void*>(value.data()), words, size);
            setValue(value.data());
        }
    }

    /// What follows is asked of and told to a texture unit, where it is inside one.
    void selectUnit()
    {
        if (m_unit >= 0 && m_unit != m_selectedUnit) {
            glActiveTexture(nth(GL_TEXTURE0, m_unit));
            m_selectedUnit = m_unit;
        }
    }

    template <std::size_t N, typename Set>
    void floats(GLenum name, const std::array<GLfloat, N>& initial, const Set& setValue)
    {
        item(
            initial, [name](GLfloat* value) { glGetFloatv(name, value); }, setValue);
    }
    template <std::size_t N, typename Set>
    void integers(GLenum name, const std::array<GLint, N>& initial, const Set& setValue)
    {
        item(
            initial, [name](GLint* value) { glGetIntegerv(name, value); }, setValue);
    }
    /// One enumerator or name, given to a function of it alone.
    template <typename Set>
    void enumerator(GLenum name, GLenum initial, const Set& setValue)
    {
        integers(name, Name{static_cast<GLint>(initial)},
                 [&setValue](const GLint* value) { setValue(static_cast<GLenum>(*value)); });
    }
    void flag(GLenum capability, bool initial)
    {
        item(
            Name{initial ? 1 : 0}, [capability](GLint* on) { *on = glIsEnabled(capability); },
            [capability](const GLint* on) { set(capability, *on != 0); });
    }
    void flagOf(GLenum capability, int index)
    {
        const auto i = static_cast<GLuint>(index);
        item(
            Name{0}, [capability, i](GLint* on) { *on = glIsEnabledi(capability, i); },
            [capability, i](const GLint* on) { *on ? glEnablei(capability, i) : glDisablei(capability, i); });
    }

    void begin()
    {
        if (m_purpose == Purpose::Initialize) {
            return;
        }
        // What the walk leaves otherwise; written back in selectors().
        m_activeTexture = integer(GL_ACTIVE_TEXTURE);
        m_clientActiveTexture = integer(GL_CLIENT_ACTIVE_TEXTURE);
        m_arrayBuffer = integer(GL_ARRAY_BUFFER_BINDING);
        m_vertexArray = m_limits.hasVertexArrays ? integer(GL_VERTEX_ARRAY_BINDING) : 0;
        m_selectedUnit = m_activeTexture - GL_TEXTURE0;
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

    void array(const ArrayNames& names, int unit)
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
    void arrays()
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
        for (int i = 0; i < m_limits.attributes; ++i) {
            attribute(static_cast<GLuint>(i));
        }
        integers(GL_ELEMENT_ARRAY_BUFFER_BINDING, Name{0},
                 [](const GLint* name) { bindBuffer(GL_ELEMENT_ARRAY_BUFFER, *name); });
    }

    void attribute(GLuint index)
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
                Name{0},
                [index](GLint* divisor) { glGetVertexAttribiv(index, GL_VERTEX_ATTRIB_ARRAY_DIVISOR, divisor); },
                [index](const GLint* divisor) { glVertexAttribDivisor(index, static_cast<GLuint>(*divisor)); });
        }
    }

    void bindings()
    {
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

    void assemblyProgram(GLenum target)
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

    void pixels()
    {
        for (const GLenum name : kPixelStores) {
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

    void switches()
    {
        for (const Switch& item : kSwitches) {
            if (has(item.version)) {
                flag(item.capability, item.initial);
            }
        }
        for (int i = 0; i < m_limits.clipPlanes; ++i) {
            const GLenum plane = nth(GL_CLIP_PLANE0, i);
            flag(plane, false);
            item(
                std::array<GLdouble, 4>{0.0, 0.0, 0.0, 0.0}, [plane](GLdouble* value) { glGetClipPlane(plane, value); },
                [plane](const GLdouble* value) { glClipPlane(plane, value); });
        }
        if (m_limits.hasTwoSidedStencil) {
            flag(GL_STENCIL_TEST_TWO_SIDE_EXT, false);
        }
        for (const GLenum name : kHints) {
            enumerator(name, GL_DONT_CARE, [name](GLenum mode) { glHint(name, mode); });
        }
    }

    void fragments()
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
        enumerator(GL_DEPTH_FUNC, GL_LESS, [](GLenum function) { glDepthFunc(function); });
        integers(GL_DEPTH_WRITEMASK, Name{1}, [](const GLint* on) { glDepthMask(*on != 0); });
        item(
            std::array<GLfloat, 2>{static_cast<GLfloat>(GL_ALWAYS), 0.0f},
            [](GLfloat* test) {
                test[0] = static_cast<GLfloat>(integer(GL_ALPHA_TEST_FUNC));
                glGetFloatv(GL_ALPHA_TEST_REF, test + 1);
            },
            [](const GLfloat* test) { glAlphaFunc(static_cast<GLenum>(test[0]), test[1]); });
        blending();
        stencil(GL_FRONT, GL_STENCIL_FUNC, GL_STENCIL_FAIL, GL_STENCIL_WRITEMASK);
        stencil(GL_BACK, GL_STENCIL_BACK_FUNC, GL_STENCIL_BACK_FAIL, GL_STENCIL_BACK_WRITEMASK);
        samples();
        if (has(30)) {
            for (const GLenum name : {GL_CLAMP_VERTEX_COLOR, GL_CLAMP_FRAGMENT_COLOR, GL_CLAMP_READ_COLOR}) {
                enumerator(name, name == GL_CLAMP_VERTEX_COLOR ? GL_TRUE : GL_FIXED_ONLY,
                           [name](GLenum mode) { glClampColor(name, mode); });
            }
        }
    }

    void samples()
    {
        item(
            std::array<GLfloat, 2>{1.0f, 0.0f},
            [](GLfloat* coverage) {
                glGetFloatv(GL_SAMPLE_COVERAGE_VALUE, coverage);
                glGetFloatv(GL_SAMPLE_COVERAGE_INVERT, coverage + 1);
            },
            [](const GLfloat* coverage) { glSampleCoverage(coverage[0], coverage[1] != 0.0f); });
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

    void stencil(GLenum face, GLenum function, GLenum fail, GLenum mask)
    {
        // Names that follow one another in neither case.
        const bool isFront = face == GL_FRONT;
        const GLenum reference = isFront ? GL_STENCIL_REF : GL_STENCIL_BACK_REF;
        const GLenum valueMask = isFront ? GL_STENCIL_VALUE_MASK : GL_STENCIL_BACK_VALUE_MASK;
        const GLenum depthFail = isFront ? GL_STENCIL_PASS_DEPTH_FAIL : GL_STENCIL_BACK_PASS_DEPTH_FAIL;
        const GLenum depthPass = isFront ? GL_STENCIL_PASS_DEPTH_PASS : GL_STENCIL_BACK_PASS_DEPTH_PASS;
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
                glStencilOpSeparate(face, static_cast<GLenum>(v[0]), static_cast<GLenum>(v[1]),
                                    static_cast<GLenum>(v[2]));
            });
        integers(mask, Name{-1}, [=](const GLint* v) { glStencilMaskSeparate(face, static_cast<GLuint>(*v)); });
    }

    void blending()
    {
        if (!has(30)) {
            flag(GL_BLEND, false);
            integers(GL_COLOR_WRITEMASK, std::array<GLint, 4>{1, 1, 1, 1},
                     [](const GLint* on) { glColorMask(on[0] != 0, on[1] != 0, on[2] != 0, on[3] != 0); });
        }
        for (int i = 0; has(30) && i < m_limits.drawBuffers; ++i) {
            const auto buffer = static_cast<GLuint>(i);
            flagOf(GL_BLEND, i);
            item(
                std::array<GLint, 4>{1, 1, 1, 1},
                [buffer](GLint* on) { glGetIntegeri_v(GL_COLOR_WRITEMASK, buffer, on); },
                [buffer](const GLint* on) { glColorMaski(buffer, on[0] != 0, on[1] != 0, on[2] != 0, on[3] != 0); });
        }
        // One for all buffers before 4.0.
        const bool isIndexed = has(40);
        for (int i = 0; i < (isIndexed ? m_limits.drawBuffers : 1); ++i) {
            blendFunctions(static_cast<GLuint>(i), isIndexed);
        }
    }

    void blendFunctions(GLuint buffer, bool isIndexed)
    {
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

    void rasterisation()
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
        if (has(31)) {
            enumerator(GL_PRIMITIVE_RESTART_INDEX, 0, [](GLuint v) { glPrimitiveRestartIndex(v); });
        }
        if (has(32)) {
            enumerator(GL_PROVOKING_VERTEX, GL_LAST_VERTEX_CONVENTION, [](GLenum v) { glProvokingVertex(v); });
        }
        if (has(40)) {
            integers(GL_PATCH_VERTICES, Name{3}, [](const GLint* v) { glPatchParameteri(GL_PATCH_VERTICES, *v); });
        }
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

    static GLfloat largestPoint()
    {
        std::array<GLfloat, 2> sharp = {}, smooth = {};
        glGetFloatv(GL_ALIASED_POINT_SIZE_RANGE, sharp.data());
        glGetFloatv(GL_SMOOTH_POINT_SIZE_RANGE, smooth.data());
        return std::max(sharp[1], smooth[1]);
    }

    void pointParameter(GLenum name, GLfloat initial)
    {
        floats(name, std::array<GLfloat, 1>{initial}, [name](const GLfloat* v) { glPointParameterf(name, *v); });
    }

    // Extents count for nothing until the scene's own are set; the rest does.
    void viewports()
    {
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
            flagOf(GL_SCISSOR_TEST, i);
            item(
                std::array<GLdouble, 2>{0.0, 1.0}, [=](GLdouble* v) { glGetDoublei_v(GL_DEPTH_RANGE, viewport, v); },
                [=](const GLdouble* v) { glDepthRangeIndexed(viewport, v[0], v[1]); });
        }
    }

    template <std::size_t N>
    void light(GLenum number, GLenum name, const std::array<GLfloat, N>& initial)
    {
        item(
            initial, [=](GLfloat* v) { glGetLightfv(number, name, v); },
            [=](const GLfloat* v) { glLightfv(number, name, v); });
    }

    void lighting()
    {
        using Color = std::array<GLfloat, 4>;
        constexpr Color black = {0.0f, 0.0f, 0.0f, 1.0f};
        for (int i = 0; i < m_limits.lights; ++i) {
            const GLenum number = nth(GL_LIGHT0, i);
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
        for (const GLenum face : {GL_FRONT, GL_BACK}) {
            material(face, GL_AMBIENT, Color{0.2f, 0.2f, 0.2f, 1.0f});
            material(face, GL_DIFFUSE, Color{0.8f, 0.8f, 0.8f, 1.0f});
            material(face, GL_SPECULAR, black);
            material(face, GL_EMISSION, black);
            material(face, GL_SHININESS, std::array<GLfloat, 1>{0.0f});
        }
        fog();
    }

    template <std::size_t N>
    void material(GLenum face, GLenum name, const std::array<GLfloat, N>& initial)
    {
        item(
            initial, [=](GLfloat* v) { glGetMaterialfv(face, name, v); },
            [=](const GLfloat* v) { glMaterialfv(face, name, v); });
    }

    void fog()
    {
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

    void textureUnit(int unit)
    {
        for (const Target& target : kTextureTargets) {
            if (has(target.version)) {
                integers(target.binding, Name{0}, [&target](const GLint* name) { bindTexture(target.target, *name); });
            }
        }
        if (has(33)) {
            enumerator(GL_SAMPLER_BINDING, 0, [unit](GLuint name) {
                if (name == 0 || glIsSampler(name)) {
                    glBindSampler(static_cast<GLuint>(unit), name);
                }
            });
        }
        if (unit < m_limits.textureUnits) {
            textureEnvironment();
        }
        if (unit < m_limits.textureCoords) {
            textureCoordinates(unit);
        }
    }

    void textureEnvironment()
    {
        for (const GLenum target : {GL_TEXTURE_1D, GL_TEXTURE_2D, GL_TEXTURE_3D, GL_TEXTURE_CUBE_MAP}) {
            flag(target, false);
        }
        if (has(31)) {
            flag(GL_TEXTURE_RECTANGLE, false);
        }
        for (const EnvironmentValue& environment : kTextureEnvironment) {
            item(
                Name{environment.initial},
                [&environment](GLint* v) { glGetTexEnviv(GL_TEXTURE_ENV, environment.name, v); },
                [&environment](const GLint* v) { glTexEnviv(GL_TEXTURE_ENV, environment.name, v); });
        }
        item(
            std::array<GLfloat, 4>{}, [](GLfloat* v) { glGetTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, v); },
            [](const GLfloat* v) { glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, v); });
        item(
            std::array<GLfloat, 1>{0.0f},
            [](GLfloat* v) { glGetTexEnvfv(GL_TEXTURE_FILTER_CONTROL, GL_TEXTURE_LOD_BIAS, v); },
            [](const GLfloat* v) { glTexEnvfv(GL_TEXTURE_FILTER_CONTROL, GL_TEXTURE_LOD_BIAS, v); });
    }

    void textureCoordinates(int unit)
    {
        item(
            Name{0}, [](GLint* v) { glGetTexEnviv(GL_POINT_SPRITE, GL_COORD_REPLACE, v); },
            [](const GLint* v) { glTexEnviv(GL_POINT_SPRITE, GL_COORD_REPLACE, v); });
        constexpr GLenum coordinates[] = {GL_S, GL_T, GL_R, GL_Q};
        for (int i = 0; i < 4; ++i) {
            const GLenum coordinate = coordinates[i];
            std::array<GLfloat, 4> plane = {};
            if (i < 2) {
                plane[static_cast<std::size_t>(i)] = 1.0f;
            }
            flag(nth(GL_TEXTURE_GEN_S, i), false);
            item(
                Name{GL_EYE_LINEAR}, [=](GLint* v) { glGetTexGeniv(coordinate, GL_TEXTURE_GEN_MODE, v); },
                [=](const GLint* v) { glTexGeniv(coordinate, GL_TEXTURE_GEN_MODE, v); });
            for (const GLenum name : {GL_OBJECT_PLANE, GL_EYE_PLANE}) {
                item(
                    plane, [=](GLfloat* v) { glGetTexGenfv(coordinate, name, v); },
                    [=](const GLfloat* v) { glTexGenfv(coordinate, name, v); });
            }
        }
        floats(GL_CURRENT_TEXTURE_COORDS, std::array<GLfloat, 4>{0.0f, 0.0f, 0.0f, 1.0f},
               [unit](const GLfloat* v) { glMultiTexCoord4fv(nth(GL_TEXTURE0, unit), v); });
        floats(GL_TEXTURE_MATRIX, kIdentity, [](const GLfloat* matrix) {
            glMatrixMode(GL_TEXTURE);
            glLoadMatrixf(matrix);
            glMatrixMode(GL_MODELVIEW);
        });
    }

    void currentAttributes()
    {
        floats(GL_CURRENT_COLOR, std::array<GLfloat, 4>{1.0f, 1.0f, 1.0f, 1.0f},
               [](const GLfloat* v) { glColor4fv(v); });
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
    void matrices()
    {
        floats(GL_PROJECTION_MATRIX, kIdentity, [](const GLfloat* matrix) {
            glMatrixMode(GL_PROJECTION);
            glLoadMatrixf(matrix);
        });
        item(
            kIdentity, [](GLfloat* matrix) { glGetFloatv(GL_MODELVIEW_MATRIX, matrix); },
            [](const GLfloat* matrix) {
                glMatrixMode(GL_MODELVIEW);
                glLoadMatrixf(matrix);
            },
            Writing::Always);
    }

    void selectors()
    {
        item(
            std::array<GLint, 2>{GL_FRONT_AND_BACK, GL_AMBIENT_AND_DIFFUSE},
            [](GLint* v) {
                glGetIntegerv(GL_COLOR_MATERIAL_FACE, v);
                glGetIntegerv(GL_COLOR_MATERIAL_PARAMETER, v + 1);
            },
            [](const GLint* v) { glColorMaterial(static_cast<GLenum>(v[0]), static_cast<GLenum>(v[1])); });
        item(
            Name{0}, [](GLint* on) { *on = glIsEnabled(GL_COLOR_MATERIAL); },
            [](const GLint* on) { set(GL_COLOR_MATERIAL, *on != 0); }, Writing::Always);
        selector(GL_MODELVIEW, integer(GL_MATRIX_MODE), [](GLint mode) { glMatrixMode(static_cast<GLenum>(mode)); });
        selector(GL_TEXTURE0, m_activeTexture, [](GLint unit) { glActiveTexture(static_cast<GLenum>(unit)); });
        selector(GL_TEXTURE0, m_clientActiveTexture,
                 [](GLint unit) { glClientActiveTexture(static_cast<GLenum>(unit)); });
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
    void selector(GLint initial, GLint found, const Set& setValue)
    {
        const auto get = [&](GLint* value) {
            *value = found;
            setValue(found);
        };
        item(
            Name{initial}, get, [&](const GLint* value) { setValue(*value); }, Writing::Always);
    }

    static constexpr std::array<GLfloat, 16> kIdentity = {1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f,
                                                          0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f};

    const Limits& m_limits;
    Purpose m_purpose = Purpose::Read;
    Values* m_values = nullptr;
    const Values* m_present = nullptr;
    std::size_t m_position = 0;
    int m_unit = -1; ///< the texture unit that is described; -1 outside
    int m_selectedUnit = 0;
    GLint m_activeTexture = 0;
    GLint m_clientActiveTexture = 0;
    GLint m_arrayBuffer = 0;
    GLint m_vertexArray = 0;
};

void KrClientState::readLimits()
{
    int major = 1;
    int minor = 1;
    const auto* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    if (version) {
        std::sscanf(version, "%d.%d", &major, &minor);
    }
    m_limits.version = 10 * major + minor;
    m_limits.lights = integer(GL_MAX_LIGHTS);
    m_limits.clipPlanes = integer(GL_MAX_CLIP_PLANES);
    m_limits.textureUnits = integer(GL_MAX_TEXTURE_UNITS);
    m_limits.textureCoords = integer(GL_MAX_TEXTURE_COORDS);
    m_limits.imageUnits = integer(GL_MAX_TEXTURE_IMAGE_UNITS);
    m_limits.attributes = integer(GL_MAX_VERTEX_ATTRIBS);
    m_limits.drawBuffers = integer(GL_MAX_DRAW_BUFFERS);
    m_limits.viewports = m_limits.version >= 41 ? integer(GL_MAX_VIEWPORTS) : 1;
    m_limits.hasFramebuffers = m_limits.version >= 30 || hasExtension("GL_ARB_framebuffer_object");
    m_limits.hasVertexArrays = m_limits.version >= 30 || hasExtension("GL_ARB_vertex_array_object");
    m_limits.hasAssemblyPrograms = hasExtension("GL_ARB_vertex_program") && hasExtension("GL_ARB_fragment_program");
    m_limits.hasTwoSidedStencil = hasExtension("GL_EXT_stencil_two_side");
}

KrClientState::Framebuffers KrClientState::boundFramebuffers() const
{
    Framebuffers bound;
    if (m_limits.hasFramebuffers) {
        bound.draw = integer(GL_DRAW_FRAMEBUFFER_BINDING);
        bound.read = integer(GL_READ_FRAMEBUFFER_BINDING);
    }
    return bound;
}

void KrClientState::bindFramebuffers(const Framebuffers& framebuffers) const
{
    if (m_limits.hasFramebuffers) {
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, static_cast<GLuint>(framebuffers.draw));
        glBindFramebuffer(GL_READ_FRAMEBUFFER, static_cast<GLuint>(framebuffers.read));
    }
}

void KrClientState::readTargetBuffers()
{
    m_targetReadBuffer = static_cast<GLenum>(integer(GL_READ_BUFFER));
    m_targetDrawBuffers.assign(static_cast<std::size_t>(std::max(1, m_limits.drawBuffers)), GL_NONE);
    for (std::size_t i = 0; i < m_targetDrawBuffers.size(); ++i) {
        m_targetDrawBuffers[i] = static_cast<GLenum>(integer(nth(GL_DRAW_BUFFER0, static_cast<int>(i))));
    }
    const GLenum readable = readableFrom(m_targetDrawBuffers.front());
    if (readable != GL_NONE && readable != m_targetReadBuffer) {
        glReadBuffer(readable);
    }
}

void KrClientState::restoreTargetBuffers() const
{
    bool areSame = true;
    std::size_t used = 1;
    for (std::size_t i = 0; i < m_targetDrawBuffers.size(); ++i) {
        const GLenum present = static_cast<GLenum>(integer(nth(GL_DRAW_BUFFER0, static_cast<int>(i))));
        areSame = areSame && present == m_targetDrawBuffers[i];
        used = m_targetDrawBuffers[i] == GL_NONE ? used : i + 1;
    }
    if (!areSame && used == 1) {
        glDrawBuffer(m_targetDrawBuffers.front());
    } else if (!areSame) {
        glDrawBuffers(static_cast<GLsizei>(used), m_targetDrawBuffers.data());
    }
    if (static_cast<GLenum>(integer(GL_READ_BUFFER)) != m_targetReadBuffer) {
        glReadBuffer(m_targetReadBuffer);
    }
}

void KrClientState::enter(unsigned int framebuffer)
{
    if (m_isEntered) {
        return;
    }
    if (m_limits.version == 0) {
        readLimits();
        Walk(m_limits).initialize(m_library);
    }
    m_clientFramebuffers = boundFramebuffers();
    Walk(m_limits).read(m_client);
    Walk(m_limits).write(m_library, m_client);
    m_target = framebuffer;
    bindFramebuffers({static_cast<int>(m_target), static_cast<int>(m_target)});
    readTargetBuffers();
    m_isEntered = true;
}

void KrClientState::leave()
{
    if (!m_isEntered) {
        return;
    }
    m_isEntered = false;
    bindFramebuffers({static_cast<int>(m_target), static_cast<int>(m_target)});
    restoreTargetBuffers();
    Walk(m_limits).read(m_library);
    Walk(m_limits).write(m_client, m_library);
    bindFramebuffers(m_clientFramebuffers);
}

KrClientState::Visit::Visit(std::shared_ptr<KrClientState> state, KrWindow& window)
    : m_window(window)
{
    if (state && !state->isEntered()) {
        m_state = std::move(state);
        m_state->enter(window.getImpl()->defaultFramebuffer());
    }
}

// A callback in the frame may have left another context current, or closed the window.
KrClientState::Visit::~Visit()
{
    const bool isThere =
        m_state && m_window.isInitialized() && (m_window.getImpl()->isCurrent() || m_window.makeCurrent());
    if (isThere) {
        m_state->leave();
    }
}
