#pragma once

#include <rendCore/aids/private/KrLateGeometry.h>

#include <osg/Geode>
#include <osg/Node>
#include <osg/ref_ptr>

#include <array>
#include <map>
#include <memory>

class KrManipulatorLink;
class KrRenderLink;

/// Makes the ellipsoids of a scene's mass properties: what equal bodies have in common is made once, and corners when
/// they are first seen.
///
/// For as long as a scene is built. KrRenderMassProperties tells what the nodes look like.
class KrEllipsoidMaker
{
public:
    using Corners = KrLateGeometry::Corners;
    explicit KrEllipsoidMaker(Corners corners);

    /// Adds an ellipsoid to every link below `root` that has mass properties.
    void addTo(osg::Node& root);

private:
    class MassPropertiesVisitor;
    using Body = std::array<double, 10>; ///< mass, centre of mass, inertia

    void addEllipsoid(const KrRenderLink& renderLink);
    osg::ref_ptr<osg::Geode> drawn(const KrManipulatorLink& link);
    osg::ref_ptr<osg::Geode> draw(const KrManipulatorLink& link);

    Corners m_corners;
    std::shared_ptr<KrArrayPool> m_arrays;
    std::map<Body, osg::ref_ptr<osg::Geode>> m_drawn; ///< null for a body without a surface
};
