#include <rendCore/aids/KrRenderCollisionShapes.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderShape.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/foundation/KrString.h>
#include <toolkit/material/KrDataMap.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/system/KrManipulatorLink.h>

#include <osg/Depth>
#include <osg/NodeVisitor>
#include <osg/PolygonOffset>
#include <osg/StateSet>

#include <map>

namespace
{

/// One geode in one look, whatever materials the groups of the extent have; null where there is no surface.
osg::ref_ptr<osg::Geode> makeShape(const KrBasePhysicalExtent& extent)
{
    const boost::shared_ptr<const KrTriPhysicalExtent> mesh = extent.triExtent();
    if (!mesh) {
        return nullptr;
    }
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    for (const KrTriPhysicalExtent::Group& group : mesh->groups()) {
        // A group out of range is drawn empty, so that there is always a drawable to add.
        geode->addDrawable(KrRenderShape::addGroup(mesh.get(), group.second(), KrRenderCollisionShapes::look()));
    }
    return geode;
}

/// How the shapes of a link are drawn together.
osg::ref_ptr<osg::StateSet> groupState()
{
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    // A mesh is often both what is seen and what collides: drawn a little nearer, it does not flicker, nor does it over
    // a bounding volume in the same place. The units count where it faces the eye: depths of triangles that differ are
    // some 16 units apart in one plane.
    state->setAttributeAndModes(new osg::PolygonOffset(-2.0f, -64.0f));
    // Textures are on in the whole scene: without links beside them the shapes would take the one that was made last.
    state->setTextureMode(0, GL_TEXTURE_2D, osg::StateAttribute::OFF);
    // Shapes of a link overlap: none hides another, in whatever order they are drawn.
    state->setAttributeAndModes(new osg::Depth(osg::Depth::LESS, 0.0, 1.0, false));
    return state;
}

/// Makes the groups of many links: those that share an extent, as copies of a robot do, share what is drawn of it.
class GroupMaker
{
public:
    osg::ref_ptr<osg::Group> make(const KrManipulatorLink& link);

private:
    osg::ref_ptr<osg::StateSet> m_state = groupState();
    /// Nothing changes the links while groups are made: no address is used twice.
    std::map<const KrBasePhysicalExtent*, osg::ref_ptr<osg::Geode>> m_shapes;
};

osg::ref_ptr<osg::Group> GroupMaker::make(const KrManipulatorLink& link)
{
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    for (unsigned int i = 0; i < link.numCollisionShapes(); ++i) {
        const KrShape* const shape = link.collisionShape(i);
        const KrBasePhysicalExtent* const extent = shape != nullptr ? shape->physicalExtent() : nullptr;
        if (extent == nullptr) {
            continue;
        }
        const auto [place, isNew] = m_shapes.try_emplace(extent);
        if (isNew) {
            place->second = makeShape(*extent);
        }
        // Counted by the link's own numbers: a shape without a surface leaves a gap in the names and nothing else.
        if (place->second) {
            const osg::ref_ptr<osg::Geode> geode = new osg::Geode(*place->second);
            geode->setName(link.name() + " - Collision " + KrINT2STRING(i, 10));
            group->addChild(geode);
        }
    }
    if (group->getNumChildren() == 0) {
        return nullptr;
    }
    group->setName(link.name() + " - Collision");
    group->setNodeMask(KrRenderTypes::CollisionShapes);
    group->setStateSet(m_state);
    return group;
}

/// Adds the collision shapes of every link that it meets.
class CollisionShapesVisitor : public osg::NodeVisitor
{
public:
    CollisionShapesVisitor()
        : osg::NodeVisitor(osg::NodeVisitor::UPDATE_VISITOR, osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
    {
        setNodeMaskOverride(~0u); // what is hidden now may be shown later
    }

    using osg::NodeVisitor::apply;
    void apply(osg::MatrixTransform& node) override
    {
        if (const auto* const link = dynamic_cast<const KrRenderLink*>(&node)) {
            // Where a link's other shapes hang: placements of collision shapes are in the same frame.
            const osg::ref_ptr<osg::MatrixTransform> dhFrame = link->getDhFrame();
            const osg::ref_ptr<osg::Group> shapes = m_groups.make(*link->getLink());
            if (shapes && dhFrame) {
                dhFrame->addChild(shapes);
            }
        }
        traverse(node);
    }

private:
    GroupMaker m_groups;
};

} // namespace

void KrRenderCollisionShapes::init(osg::Node* root)
{
    if (root != nullptr) {
        CollisionShapesVisitor visitor;
        root->accept(visitor);
    }
}

osg::ref_ptr<osg::Group> KrRenderCollisionShapes::makeGroup(const KrManipulatorLink& link)
{
    return GroupMaker().make(link);
}

const KrDataMap& KrRenderCollisionShapes::look()
{
    // Translucent, so that what is behind remains visible through it.
    static const KrDataMap s_look = KrDataMap::material(KrColor(0.1, 0.75, 0.45, 0.35));
    return s_look;
}
