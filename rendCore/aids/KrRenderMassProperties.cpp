#include <rendCore/aids/KrRenderMassProperties.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/base/private/KrArrayPool.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderShape.h>

#include <toolkit/extent/KrEllipsoid.h>
#include <toolkit/foundation/KrString.h>
#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/system/KrManipulatorLink.h>

#include <osg/NodeVisitor>

namespace
{

/// Adds the ellipsoid of every link that it meets.
class MassPropertiesVisitor : public osg::NodeVisitor
{
public:
    MassPropertiesVisitor()
        : osg::NodeVisitor(osg::NodeVisitor::UPDATE_VISITOR, osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
    {
    }

    using osg::NodeVisitor::apply;
    void apply(osg::MatrixTransform& node) override
    {
        if (const auto* link = dynamic_cast<const KrRenderLink*>(&node)) {
            addEllipsoid(*link);
        }
        traverse(node);
    }

private:
    void addEllipsoid(const KrRenderLink& renderLink)
    {
        const KrManipulatorLink* link = renderLink.getLink();
        KrEllipsoid ellipsoid; // stays empty where there is none, which the next step takes for "nothing to draw"
        // Not used: the ellipsoid's extent has it as its placement.
        KrCoordinateSystemTransformation principalAxes;
        // Silent: the aid is hidden as yet. KrRenderWindow tells of those that are missing when it is shown.
        if (link->massProperties().whyImpossible().empty()) {
            link->massProperties().fillEllipsoid(link->name(), ellipsoid, principalAxes);
        }
        // Kept: without a look for one that is there; each `init` adds an ellipsoid, which clients find among the
        // children. The window calls it once for its new nodes.
        const osg::ref_ptr<osg::Geode> geode = KrRenderShape::createGeometry(ellipsoid.physicalExtent());
        const osg::ref_ptr<osg::MatrixTransform> dhFrame = renderLink.getDhFrame();
        if (!geode || !dhFrame) {
            return;
        }
        const unsigned int jointIndex = renderLink.getJointIndex();
        geode->setNodeMask(KrRenderTypes::MassProperties);
        geode->setName(link->name() + " - Mass Prop " + KrINT2STRING(jointIndex, 10));
        KrRenderLink::sortIfUnderBase(*geode, jointIndex);
        // Links that are alike have equal ellipsoids, which share their arrays.
        m_arrays.share(*geode);
        dhFrame->addChild(geode);
    }

    KrArrayPool m_arrays;
};

} // namespace

void KrRenderMassProperties::init(osg::Node* root)
{
    if (root != nullptr) {
        MassPropertiesVisitor visitor;
        root->accept(visitor);
    }
}
