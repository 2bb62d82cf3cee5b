#include "KrBenchOwnWay.h"

#include "KrBenchRobot.h"

#include <picture/KrLighting.h>

#include <GL/gl.h>
#include <osgViewer/Viewer>

KrBenchOwnWay::KrBenchOwnWay(const KrBenchTask& task, float levelPixels, bool isDirect)
    : m_task(task)
{
    m_window.setDirectDrawing(isDirect);
    if (!m_window.setLevelOfDetail(levelPixels)) {
        throw KrBenchFailure("that is no error for levels of detail");
    }
}

void KrBenchOwnWay::open(unsigned int width, unsigned int height)
{
    m_window.setHideWindow(true);
    m_window.setWindowSize(width, height);
    if (!m_window.init()) {
        throw KrBenchFailure("no OpenGL context to draw with");
    }
    m_window.setStatedSystem(m_task.system, m_task.parameters);
    m_window.setAmbientLight(KrLighting::ambientLight());
    m_window.setViewerAttribute(KrSGWindow::CullBackFaces, m_task.cull);
}

void KrBenchOwnWay::setSize(unsigned int width, unsigned int height)
{
    if (!m_window.setWindowSize(width, height)) {
        throw KrBenchFailure("the window does not take its new size");
    }
}

void KrBenchOwnWay::draw(unsigned int frame, Mode mode)
{
    if (!m_task.isStill || !m_isPosed) {
        m_window.setState(m_task.stateOf(frame));
        m_isPosed = true;
    }
    if (mode == Mode::Render) {
        m_window.renderScene(true);
    } else {
        m_window.renderSceneAndCaptureImage(m_image,
                                            mode == Mode::Color ? KrSGWindow::CaptureColor : KrSGWindow::CaptureDepth);
    }
    // Else the driver's work would be counted with the next frame.
    glFinish();
}

osg::Matrixd KrBenchOwnWay::projection() const
{
    return m_window.getViewer()->getCamera()->getProjectionMatrix();
}

osg::Matrixd KrBenchOwnWay::view() const
{
    return m_window.getViewer()->getCamera()->getViewMatrix();
}
