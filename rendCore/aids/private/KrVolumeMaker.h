#pragma once

#include <rendCore/aids/private/KrLateGeometry.h>

#include <toolkit/material/KrMaterialMap.h>

#include <osg/Geode>
#include <osg/Node>
#include <osg/StateSet>
#include <osg/Switch>
#include <osg/ref_ptr>

#include <boost/shared_ptr.hpp>

#include <list>
#include <map>
#include <memory>
#include <utility>
#include <vector>

class KrBasePhysicalExtent;
class KrRenderLink;
class KrShape;

/// Makes the bounding volumes of a scene: what links and robots have in common is made once, and corners when they are
/// first seen.
///
/// For as long as a scene is built: what it has made lives with the nodes. KrRenderBoundingVolumes tells what the nodes
/// look like.
class KrVolumeMaker
{
public:
    using Corners = KrLateGeometry::Corners;
    explicit KrVolumeMaker(Corners corners);

    /// Adds a switch to every link below `root` whose shape has bounding volumes.
    /// @param looks  by material name; read during the call only
    void addTo(osg::Node& root, const KrMaterialMap& looks);
    /// See KrRenderBoundingVolumes::makeBV.
    /// @param shape  not null
    /// @param looks  lives as long as this object
    osg::ref_ptr<osg::Switch> makeSwitch(const boost::shared_ptr<const KrShape>& shape, const KrMaterialMap& looks,
                                         unsigned int linkIndex, unsigned int shapeIndex);

private:
    /// What is drawn of an extent.
    struct Drawn
    {
        boost::shared_ptr<const KrBasePhysicalExtent> extent; ///< kept, so that no address is used twice
        osg::ref_ptr<osg::Geode> geode;
    };

    class BoundingVolumesVisitor;

    void addVolumes(const KrRenderLink& renderLink, const KrMaterialMap& looks);
    /// Those of a shape that are computed when they are seen.
    struct LateVolumes
    {
        boost::shared_ptr<const KrBasePhysicalExtent> extent; ///< of the shape; kept as above
        std::vector<osg::ref_ptr<osg::Geode>> geodes;
    };

    osg::ref_ptr<osg::Geode> drawn(const boost::shared_ptr<const KrBasePhysicalExtent>& extent,
                                   const KrMaterialMap& looks);
    const LateVolumes& lateVolumes(const boost::shared_ptr<const KrShape>& shape, bool hasOthers);
    osg::ref_ptr<osg::Geode> draw(const boost::shared_ptr<const KrBasePhysicalExtent>& extent,
                                  const KrMaterialMap& looks);
    const KrMaterialMap* knownLooks(const KrMaterialMap& looks);

    Corners m_corners;
    osg::ref_ptr<osg::StateSet> m_switchState; ///< of all switches
    std::shared_ptr<KrArrayPool> m_arrays;
    std::list<KrMaterialMap> m_looks; ///< that differ; a list, whose items stay where they are
    std::map<std::pair<const KrBasePhysicalExtent*, const KrMaterialMap*>, Drawn> m_drawn;
    osg::ref_ptr<osg::Geometry> m_computedLook; ///< of everything that is computed
    std::map<std::pair<const KrBasePhysicalExtent*, bool>, LateVolumes> m_late;
};
