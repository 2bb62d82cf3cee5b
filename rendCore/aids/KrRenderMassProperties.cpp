#include <rendCore/aids/KrRenderMassProperties.h>

#include <rendCore/aids/private/KrEllipsoidMaker.h>

void KrRenderMassProperties::init(osg::Node* root)
{
    if (root != nullptr) {
        KrEllipsoidMaker(KrEllipsoidMaker::Corners::Now).addTo(*root);
    }
}
