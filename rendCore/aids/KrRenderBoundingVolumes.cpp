#include <rendCore/aids/KrRenderBoundingVolumes.h>

#include <rendCore/aids/private/KrVolumeMaker.h>

void KrRenderBoundingVolumes::init(osg::Node* root, const KrMaterialMap& dataMap)
{
    if (root != nullptr) {
        KrVolumeMaker(KrVolumeMaker::Corners::Now).addTo(*root, dataMap);
    }
}

osg::ref_ptr<osg::Switch> KrRenderBoundingVolumes::makeBV(const KrShape* shape, const KrMaterialMap& dataMap,
                                                          unsigned int linkIndex, unsigned int shapeIndex)
{
    return KrVolumeMaker(KrVolumeMaker::Corners::Now).makeSwitch(*shape, dataMap, linkIndex, shapeIndex);
}
