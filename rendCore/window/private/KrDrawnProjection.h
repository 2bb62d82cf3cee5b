#pragma once

#include <osg/Matrixd>

namespace osgUtil
{
class RenderBin;
}
namespace osgViewer
{
class Viewer;
}

/// The projection that a frame was drawn with. For use inside the library.
///
/// The viewer fits near and far planes to what it draws, in a copy of the camera's matrix that only the things drawn
/// hold; the columns for x, y and w stay as they are.
namespace KrDrawnProjection
{

/// That of the main camera in the latest frame: its own matrix when nothing was drawn.
osg::Matrixd of(osgViewer::Viewer& viewer);
/// Among what is in `bin`; `camera`, the camera's own matrix, when nothing is.
osg::Matrixd of(osgUtil::RenderBin& bin, const osg::Matrixd& camera);

/// Whether two projections differ in nothing but their planes near and far.
bool isSameButForDepth(const osg::Matrixd& a, const osg::Matrixd& b);

} // namespace KrDrawnProjection
