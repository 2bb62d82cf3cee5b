#pragma once

#include <toolkit/guest/private/KrGLCalls.h>
#include <toolkit/guest/private/KrGLLimits.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

/// Moves values between the current context and a list of words, one item after another. For use inside the library.
///
/// Whoever derives from it names every item once, with its value in a new context, how it is asked for and how it is
/// set; which of the three happens is the purpose of the run.
class KrGLStateTransfer
{
public:
    using Values = std::vector<std::uint32_t>;

protected:
    using Name = std::array<GLint, 1>;

    explicit KrGLStateTransfer(const KrGLLimits& limits)
        : m_limits(limits)
    {
    }
    ~KrGLStateTransfer() = default;

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

    /// Whether the context is of that version (10 * major + minor) or a later one.
    bool has(int version) const { return m_limits.version >= version; }

    /// One value, or several that are set in one call. Writing leaves out what is there already.
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
            glActiveTexture(KrGLCalls::nth(GL_TEXTURE0, m_unit));
            m_selectedUnit = m_unit;
        }
    }

    /// What glGetFloatv tells.
    template <std::size_t N, typename Set>
    void floats(GLenum name, const std::array<GLfloat, N>& initial, const Set& setValue)
    {
        item(
            initial, [name](GLfloat* value) { glGetFloatv(name, value); }, setValue);
    }
    /// What glGetIntegerv tells.
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
    /// Something that glEnable switches.
    void flag(GLenum capability, bool initial)
    {
        item(
            Name{initial ? 1 : 0}, [capability](GLint* on) { *on = glIsEnabled(capability); },
            [capability](const GLint* on) { KrGLCalls::set(capability, *on != 0); });
    }
    /// The same of one draw buffer or viewport.
    void flagOf(GLenum capability, int index)
    {
        const auto i = static_cast<GLuint>(index);
        item(
            Name{0}, [capability, i](GLint* on) { *on = glIsEnabledi(capability, i); },
            [capability, i](const GLint* on) { *on ? glEnablei(capability, i) : glDisablei(capability, i); });
    }

    const KrGLLimits& m_limits;
    Purpose m_purpose = Purpose::Read;
    Values* m_values = nullptr;
    const Values* m_present = nullptr; ///< what the context has, as far as that is known
    std::size_t m_position = 0;
    int m_unit = -1; ///< the texture unit that is described; -1 outside
    int m_selectedUnit = 0;
};
