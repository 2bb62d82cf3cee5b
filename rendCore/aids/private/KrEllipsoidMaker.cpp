#include <rendCore/aids/private/KrEllipsoidMaker.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderShape.h>

#include <toolkit/extent/KrEllipsoid.h>
#include <toolkit/foundation/KrString.h>
#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/system/KrManipulatorLink.h>

#include <osg/NodeVisitor>

#include <algorithm>

/// Adds the ellipsoid of every link that it meets.
class KrEllipsoidMaker::MassPropertiesVisitor : public osg::NodeVisitor
{
public:
    explicit MassPropertiesVisitor(KrEllipsoidMaker& maker)
        : osg::NodeVisitor(osg::NodeVisitor::UPDATE_VISITOR, osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
        , m_maker(maker)
    {
    }

    using osg::NodeVisitor::apply;
    void apply(osg::MatrixTransform& node) override
    {
        if (const auto* link = dynamic_cast<const KrRenderLink*>(&node)) {
            m_maker.addEllipsoid(*link);
        }
        traverse(node);
    }

private:
    KrEllipsoidMaker& m_maker;
};

KrEllipsoidMaker::KrEllipsoidMaker(Corners corners)
    : m_corners(corners)
    , m_arrays(std::make_shared<KrArrayPool>())
{
}

void KrEllipsoidMaker::addTo(osg::Node& root)
{
    MassPropertiesVisitor visitor(*this);
    root.accept(visitor);
}

void KrEllipsoidMaker::addEllipsoid(const KrRenderLink& renderLink)
{
    const KrManipulatorLink* link = renderLink.getLink();
    const osg::ref_ptr<osg::Geode> shared = drawn(*link);
    const osg::ref_ptr<osg::MatrixTransform> dhFrame = renderLink.getDhFrame();
    if (!shared || !dhFrame) {
        return;
    }
    // A node for each link, by whose name it is found; what it draws is shared.
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode(*shared);
    const unsigned int jointIndex = renderLink.getJointIndex();
    geode->setNodeMask(KrRenderTypes::MassProperties);
    geode->setName(link->name() + " - Mass Prop " + KrINT2STRING(jointIndex, 10));
    KrRenderLink::sortIfUnderBase(*geode, jointIndex);
    // Kept: without a look for one that is there; each `init` adds an ellipsoid, which clients find among the
    // children. The window calls it once for its new nodes.
    dhFrame->addChild(geode);
}

/// What is drawn of the link's body; null when there is nothing to draw.
osg::ref_ptr<osg::Geode> KrEllipsoidMaker::drawn(const KrManipulatorLink& link)
{
    const KrMassProperties& properties = link.massProperties();
    // Silent: the aid is hidden as yet. KrRenderWindow tells of those that are missing when it is shown.
    if (!properties.isGiven() || !properties.whyImpossible().empty()) {
        return nullptr;
    }
    const std::array<double, 6> inertia = properties.inertia();
    Body body = {properties.mass(), properties.centerOfMass().x(), properties.centerOfMass().y(),
                 properties.centerOfMass().z()};
    std::copy(inertia.begin(), inertia.end(), body.begin() + 4);
    const auto [place, isNew] = m_drawn.try_emplace(body);
    if (isNew) {
        place->second = draw(link);
    }
    return place->second;
}

osg::ref_ptr<osg::Geode> KrEllipsoidMaker::draw(const KrManipulatorLink& link)
{
    KrEllipsoid ellipsoid;
    // Not used: the ellipsoid's extent has it as its placement.
    KrCoordinateSystemTransformation principalAxes;
    link.massProperties().fillEllipsoid(link.name(), ellipsoid, principalAxes);
    if (ellipsoid.isEmpty()) {
        return nullptr;
    }
    // Copied before it has a mesh form, which would be copied, too.
    const boost::shared_ptr<const KrXmlObject> copy(ellipsoid.physicalExtent()->clone());
    const osg::ref_ptr<osg::Geode> whole = KrRenderShape::createGeometry(ellipsoid.physicalExtent());
    if (!whole || m_corners == Corners::Now) {
        return whole;
    }
    return KrLateGeometry::geodeFor(*whole, boost::dynamic_pointer_cast<const KrBasePhysicalExtent>(copy), m_arrays);
}
