#pragma once

#include <osg/Group>
#include <osg/Node>
#include <osg/ref_ptr>

class KrDataMap;
class KrManipulatorLink;

/// Adds the collision shapes of each link to a scene, under the link's DH frame node: they move with the link.
///
/// Drawn when the window's display mask has the bit KrRenderTypes::CollisionShapes; KrRenderWindow adds them to its
/// scene when that is so for the first time. Each shape is drawn as it is described, translucent, in a look of its own
/// whatever its materials are, over visible shapes in the same place, and hides nothing. Links and robots that share an
/// extent share what is drawn of it. Static operations only.
class KrRenderCollisionShapes
{
public:
    /// Adds a group to every link below `root` that has collision shapes; once more on every call.
    static void init(osg::Node* root);

    /// A group named "LINK - Collision" with one geode for each collision shape of `link`, in their order, each named
    /// "LINK - Collision " and the shape's number.
    /// @return null when there is nothing to draw: fields and shapes without an extent have no surface
    static osg::ref_ptr<osg::Group> makeGroup(const KrManipulatorLink& link);

    /// A translucent green.
    static const KrDataMap& look();
};
