#pragma once

#include <toolkit/guest/private/KrGLStateTransfer.h>

namespace KrGLArrayState
{
struct ArrayNames;
} // namespace KrGLArrayState

/// Goes through all values of the OpenGL state that KrClientState covers, always in the same order. For use inside the
/// library.
class KrGLStateTraversal : private KrGLStateTransfer
{
public:
    using KrGLStateTransfer::Values;

    explicit KrGLStateTraversal(const KrGLLimits& limits)
        : KrGLStateTransfer(limits)
    {
    }

    /// The values of a new context.
    void initialize(Values& values);
    /// The values of the current context, which are left as they are.
    void read(Values& values);
    /// Gives the current context `values`, knowing that it has `present`.
    void write(Values& values, const Values& present);

private:
    void run();
    void begin();
    void array(const KrGLArrayState::ArrayNames& names, int unit);
    void arrays();
    void attribute(GLuint index);
    void bindings();
    void assemblyProgram(GLenum target);
    void pixels();
    void switches();
    void currentAttributes();
    void matrices();
    void selectors();
    template <typename Set>
    void selector(GLint initial, GLint found, const Set& setValue);

    // KrGLFragmentState.cpp
    void fragments();
    void samples();
    void stencil(GLenum face, GLenum function, GLenum fail, GLenum mask);
    void blending();
    void blendFunctions(GLuint buffer, bool isIndexed);
    void rasterisation();
    static GLfloat largestPoint();
    void pointParameter(GLenum name, GLfloat initial);
    void viewports();

    // KrGLSurfaceState.cpp
    template <std::size_t N>
    void light(GLenum number, GLenum name, const std::array<GLfloat, N>& initial);
    void lighting();
    template <std::size_t N>
    void material(GLenum face, GLenum name, const std::array<GLfloat, N>& initial);
    void fog();
    void textureUnit(int unit);
    void textureEnvironment();
    void textureCoordinates(int unit);

    static constexpr std::array<GLfloat, 16> kIdentity = {1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f,
                                                          0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f};

    // What a traversal itself alters.
    GLint m_activeTexture = 0;
    GLint m_clientActiveTexture = 0;
    GLint m_arrayBuffer = 0;
    GLint m_vertexArray = 0;
};
