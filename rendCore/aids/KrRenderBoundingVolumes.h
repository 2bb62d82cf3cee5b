#pragma once

#include <toolkit/material/KrMaterialMap.h>
#include <toolkit/system/KrShape.h>

#include <osg/Node>
#include <osg/Switch>
#include <osg/ref_ptr>

/// Adds the bounding volumes of each link's first shape to a scene, under the link's DH frame node.
///
/// Drawn when the window's display mask has the bit KrRenderTypes::BoundingVolumes. Links and robots that share an
/// extent share what is drawn of its volumes. In the scene of a KrRenderWindow the volumes have their nodes, looks and
/// bounds from loading on; their vertices, normals and primitive sets are empty until they are culled for the first
/// time, or asked for their triangles (picking). Static operations only.
class KrRenderBoundingVolumes
{
public:
    /// Adds a switch to every link below `root` whose shape has bounding volumes; once more on every call.
    /// @param dataMap  looks of the volumes by material name; read during the call only. Volumes that the shape
    ///                 computed have a translucent look of their own (KrEnclosingShapes::look())
    static void init(osg::Node* root, const KrMaterialMap& dataMap);

    /// A switch with one KrRenderShape for each bounding volume, only the last of which is on; drawn a little
    /// nearer than they are, so that a volume does not flicker where it touches what it encloses.
    /// @param shape  not null
    /// @param linkIndex, shapeIndex  for messages; volumes of the base link (0xFFFFFFFE) are drawn sorted by depth
    /// @return null when there is none to show
    static osg::ref_ptr<osg::Switch> makeBV(const KrShape* shape, const KrMaterialMap& dataMap, unsigned int linkIndex,
                                            unsigned int shapeIndex);

    /// Draws and judges in windows of its own, see KrSelfTest. False, after one message, when something is wrong.
    static bool selfTest();
};
