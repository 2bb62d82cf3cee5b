#include <rendCore/aids/KrRenderBoundingVolumes.h>

#include <rendCore/aids/private/KrVolumeMaker.h>

#include <toolkit/foundation/KrNullDeleter.h>

void KrRenderBoundingVolumes::init(osg::Node* root, const KrMaterialMap& dataMap)
{
    if (root != nullptr) {
        KrVolumeMaker(KrVolumeMaker::Corners::Now).addTo(*root, dataMap);
    }
}

osg::ref_ptr<osg::Switch> KrRenderBoundingVolumes::makeBV(const KrShape* shape, const KrMaterialMap& dataMap,
                                                          unsigned int linkIndex, unsigned int shapeIndex)
{
    // Borrowed: with corners now, nothing of the shape is kept.
    const boost::shared_ptr<const KrShape> borrowed(shape, KrNullDeleter());
    return KrVolumeMaker(KrVolumeMaker::Corners::Now).makeSwitch(borrowed, dataMap, linkIndex, shapeIndex);
}
