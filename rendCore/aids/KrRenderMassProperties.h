#pragma once

#include <osg/Node>

/// Adds the ellipsoid of each link's mass properties to a scene, under the link's DH frame node.
///
/// Drawn when the window's display mask has the bit KrRenderTypes::MassProperties. Links with equal properties share
/// what is drawn. In the scene of a KrRenderWindow the ellipsoids have their nodes, look and bounds from loading on,
/// and their corners when they are first seen, as bounding volumes (KrRenderBoundingVolumes). Static operations only.
class KrRenderMassProperties
{
public:
    /// Adds an ellipsoid to every link below `root` that has mass properties; once more on every call. Properties that
    /// no body can have cost the ellipsoid and one message (KrMassProperties::fillEllipsoid).
    static void init(osg::Node* root);

    /// Draws and judges in windows of its own, see KrSelfTest. False, after one message, when something is wrong.
    static bool selfTest();
};
