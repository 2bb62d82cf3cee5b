#pragma once

namespace osg
{
class Camera;
}
namespace osgUtil
{
class RenderStage;
}
namespace osgViewer
{
class Viewer;
}

/// What draws the cameras of a viewer. For use inside the library.
namespace KrRenderStages
{

/// Null before the camera is a viewer's.
osgUtil::RenderStage* of(osg::Camera& camera);
/// That of the main camera; null for null.
osgUtil::RenderStage* ofMain(osgViewer::Viewer* viewer);
/// Sets `stage` up for `camera` when that is due. Its next frame would do so, and drop what is attached to it by then:
/// so this comes before `attach`. The context is current.
void setUp(osgUtil::RenderStage& stage, osg::Camera& camera, osgViewer::Viewer& viewer);

} // namespace KrRenderStages
