#include <rendCore/window/private/KrGuestFrame.h>

#include <osg/Camera>
#include <osg/GLExtensions>
#include <osg/State>
#include <osgViewer/Viewer>

namespace
{

/// Nothing for a camera that has not cleared the client's framebuffer, or not to an opaque colour: its alpha is meant.
void fillAlpha(const osg::Camera& camera, osg::State& state)
{
    const osg::Viewport* const viewport = camera.getViewport();
    if (!viewport || camera.getRenderTargetImplementation() == osg::Camera::FRAME_BUFFER_OBJECT ||
        (camera.getClearMask() & GL_COLOR_BUFFER_BIT) == 0 || !(camera.getClearColor().a() >= 1.0f)) {
        return;
    }
    // Clearing knows no viewport: the scissor keeps it inside the camera's.
    state.applyMode(GL_SCISSOR_TEST, true);
    glScissor(static_cast<GLint>(viewport->x()), static_cast<GLint>(viewport->y()),
              static_cast<GLsizei>(viewport->width()), static_cast<GLsizei>(viewport->height()));
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_TRUE);
    glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    // Told to the scene graph, which would otherwise not set its own again.
    state.haveAppliedAttribute(osg::StateAttribute::COLORMASK);
    state.applyMode(GL_SCISSOR_TEST, false);
}

} // namespace

void KrGuestFrame::makeOpaque(osgViewer::Viewer& viewer)
{
    osg::GraphicsContext* const context = viewer.getCamera()->getGraphicsContext();
    osg::State* const state = context ? context->getState() : nullptr;
    const osg::GLExtensions* const gl = state ? state->get<osg::GLExtensions>() : nullptr;
    if (!gl) {
        return;
    }
    if (gl->isFrameBufferObjectSupported) {
        // A camera that draws into a texture may have left its own bound.
        gl->glBindFramebuffer(GL_FRAMEBUFFER_EXT, context->getDefaultFboId());
    }
    GLint alphaBits = 0;
    glGetIntegerv(GL_ALPHA_BITS, &alphaBits);
    // Without alpha there is nothing to see through.
    if (alphaBits == 0) {
        return;
    }
    fillAlpha(*viewer.getCamera(), *state);
    // The views of a window of several are slaves.
    for (unsigned int i = 0; i < viewer.getNumSlaves(); ++i) {
        fillAlpha(*viewer.getSlave(i)._camera, *state);
    }
}
