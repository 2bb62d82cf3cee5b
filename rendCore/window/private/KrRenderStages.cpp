#include <rendCore/window/private/KrRenderStages.h>

#include <osgUtil/RenderStage>
#include <osgViewer/Renderer>
#include <osgViewer/Viewer>

namespace
{

void compileInFrame(osg::Camera& camera)
{
    // A client may have given the camera a renderer of its own kind.
    if (auto* const renderer = dynamic_cast<osgViewer::Renderer*>(camera.getRenderer())) {
        // A new scene sets it again: so this is said before every frame.
        renderer->setCompileOnNextDraw(false);
    }
}

} // namespace

osgUtil::RenderStage* KrRenderStages::of(osg::Camera& camera)
{
    auto* const renderer = dynamic_cast<osgViewer::Renderer*>(camera.getRenderer());
    // The first of the two: a viewer on one thread draws with no other.
    osgUtil::SceneView* const sceneView = renderer ? renderer->getSceneView(0) : nullptr;
    return sceneView ? sceneView->getRenderStage() : nullptr;
}

osgUtil::RenderStage* KrRenderStages::ofMain(osgViewer::Viewer* viewer)
{
    return viewer && viewer->getCamera() ? of(*viewer->getCamera()) : nullptr;
}

void KrRenderStages::setUp(osgUtil::RenderStage& stage, osg::Camera& camera, osgViewer::Viewer& viewer)
{
    osg::GraphicsContext* const context = camera.getGraphicsContext();
    osg::State* const state = context ? context->getState() : nullptr;
    const bool isSetUp = !stage.getCameraRequiresSetUp() && stage.getCamera() == &camera &&
                         stage.getCameraAttachmentMapCount() == camera.getAttachmentMapModifiedCount();
    if (!state || isSetUp) {
        return;
    }
    // The set-up asks the driver for framebuffer objects, and before a first frame nobody has asked what it can.
    state->initializeExtensionProcs();
    stage.setViewport(camera.getViewport());
    stage.setCamera(&camera);
    osg::RenderInfo renderInfo(state, &viewer);
    stage.runCameraSetUp(renderInfo);
}

void KrRenderStages::compileInFrame(osgViewer::Viewer& viewer)
{
    ::compileInFrame(*viewer.getCamera());
    for (unsigned int i = 0; i < viewer.getNumSlaves(); ++i) {
        ::compileInFrame(*viewer.getSlave(i)._camera);
    }
}
