#include <rendCore/draw/private/KrDrawPace.h>

#include <utility>

namespace
{

/// A driver that takes longer for a portion is stuck, and waiting does not help, ns.
constexpr GLuint64 kLongestWait = 1000000000;

} // namespace

void KrDrawPace::handOver(const osg::GLExtensions& gl, std::size_t numCorners)
{
    m_numCorners += numCorners;
    if (m_numCorners >= kPortion) {
        m_numCorners = 0;
        endPortion(gl);
    }
}

void KrDrawPace::endPortion(const osg::GLExtensions& gl)
{
    if (gl.glFenceSync == nullptr || gl.glClientWaitSync == nullptr || gl.glDeleteSync == nullptr) {
        glFlush();
        return;
    }
    m_gl = &gl;
    const GLsync oldest = std::exchange(m_portions[m_oldest], gl.glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0));
    m_oldest = (m_oldest + 1) % kMostPortions;
    glFlush();
    if (oldest != nullptr) {
        gl.glClientWaitSync(oldest, 0, kLongestWait);
        gl.glDeleteSync(oldest);
    }
}

void KrDrawPace::release()
{
    for (GLsync& portion : m_portions) {
        if (portion != nullptr) {
            m_gl->glDeleteSync(std::exchange(portion, nullptr));
        }
    }
}
