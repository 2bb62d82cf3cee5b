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
/// Every camera of `viewer` makes GL objects when it draws them first, and no sooner. Left to itself a camera with a
/// new scene makes them all before its first frame, and leaves the last texture bound behind the back of the state that
/// the frame is drawn with: what has no texture would show that one, in the first frame only.
void compileInFrame(osgViewer::Viewer& viewer);

} // namespace KrRenderStages
