#include <rendCore/window/private/KrDrawnProjection.h>

#include <rendCore/window/private/KrRenderStages.h>

#include <osgUtil/RenderLeaf>
#include <osgUtil/RenderStage>
#include <osgUtil/StateGraph>
#include <osgViewer/Viewer>

namespace
{

/// A camera nested in the scene has a projection of its own, which is not looked for.
bool isCameras(const osgUtil::RenderLeaf* leaf, const osg::Matrixd& camera)
{
    return leaf && leaf->_projection.valid() && KrDrawnProjection::isSameButForDepth(*leaf->_projection, camera);
}

const osg::RefMatrix* find(osgUtil::RenderBin& bin, const osg::Matrixd& camera)
{
    // Sorted bins have their leaves in a list, the others below their state graphs.
    for (const osgUtil::RenderLeaf* leaf : bin.getRenderLeafList()) {
        if (isCameras(leaf, camera)) {
            return leaf->_projection;
        }
    }
    for (const osgUtil::StateGraph* graph : bin.getStateGraphList()) {
        for (const osg::ref_ptr<osgUtil::RenderLeaf>& leaf : graph->_leaves) {
            if (isCameras(leaf, camera)) {
                return leaf->_projection;
            }
        }
    }
    // One leaf of this camera is enough: the planes are fitted for all of them.
    for (const auto& numbered : bin.getRenderBinList()) {
        if (const osg::RefMatrix* const found = find(*numbered.second, camera)) {
            return found;
        }
    }
    return nullptr;
}

} // namespace

osg::Matrixd KrDrawnProjection::of(osgUtil::RenderBin& bin, const osg::Matrixd& camera)
{
    const osg::RefMatrix* const drawn = find(bin, camera);
    // Nothing drawn, nothing fitted.
    return drawn ? osg::Matrixd(*drawn) : camera;
}

osg::Matrixd KrDrawnProjection::of(osgViewer::Viewer& viewer)
{
    const osg::Matrixd camera = viewer.getCamera()->getProjectionMatrix();
    // The stage keeps what it has drawn until the next frame is culled.
    osgUtil::RenderStage* const stage = KrRenderStages::ofMain(&viewer);
    return stage ? of(*stage, camera) : camera;
}

bool KrDrawnProjection::isSameButForDepth(const osg::Matrixd& a, const osg::Matrixd& b)
{
    // Fitting near and far planes to a scene changes nothing but the depth column.
    for (int row = 0; row < 4; ++row) {
        if (a(row, 0) != b(row, 0) || a(row, 1) != b(row, 1) || a(row, 3) != b(row, 3)) {
            return false;
        }
    }
    return true;
}
