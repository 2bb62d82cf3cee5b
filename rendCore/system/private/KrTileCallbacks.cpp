#include <rendCore/system/private/KrTileCallbacks.h>

#include <osg/RenderInfo>
#include <osg/State>
#include <osgUtil/CullVisitor>
#include <osgUtil/RenderStage>

void KrEmptyTiles::operator()(osg::RenderInfo& renderInfo) const
{
    osg::State* const state = renderInfo.getState();
    if (areas.empty() || !state) {
        return;
    }
    // The background of the views beside it.
    const osg::Vec4& color = renderInfo.getCurrentCamera()->getClearColor();
    // The frame before may have masked a channel.
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    state->haveAppliedAttribute(osg::StateAttribute::COLORMASK);
    glClearColor(color.r(), color.g(), color.b(), color.a());
    // Clearing knows no viewport.
    state->applyMode(GL_SCISSOR_TEST, true);
    for (const Area& area : areas) {
        glScissor(area.x, area.y, area.width, area.height);
        glClear(GL_COLOR_BUFFER_BIT);
    }
    state->applyMode(GL_SCISSOR_TEST, false);
}

void KrOverlayOnce::operator()(osg::Node* node, osg::NodeVisitor* visitor)
{
    osgUtil::CullVisitor* const cull = visitor->asCullVisitor();
    const osg::Camera* const camera = cull && cull->getRenderStage() ? cull->getRenderStage()->getCamera() : nullptr;
    const osg::View* const view = camera ? camera->getView() : nullptr;
    const unsigned int numSlaves = view ? view->getNumSlaves() : 0;
    // The last view is drawn last, so that nothing is drawn over the overlay.
    if (numSlaves == 0 || view->getSlave(numSlaves - 1)._camera == camera) {
        traverse(node, visitor);
        return;
    }
    // The depths are still cleared, for cameras in the scene that draw after the overlay and count on that. Of this
    // view alone: else the views together would clear the window as many times as there are views.
    osgUtil::RenderStage* const overlay = cull->getCurrentRenderBin()->getStage();
    if (overlay->getCamera() == node) {
        overlay->setViewport(cull->getRenderStage()->getViewport());
    }
}
