#pragma once

namespace osg
{
class LightModel;
class StateSet;
} // namespace osg
namespace osgUtil
{
class CullVisitor;
}

/// What holds for a node that is being culled by what stands above it, whatever it says of itself.
namespace KrInheritedState
{

/// Whether lighting is on: unless something above overrides it, what is nearest decides, and it is on by itself.
bool isLit(osgUtil::CullVisitor& visitor);
/// Whether lighting is off, whatever is said below.
bool isUnlitBelow(osgUtil::CullVisitor& visitor);
/// Whether back faces are left out, here and below, because something above overrides it.
bool areBackFacesCulled(osgUtil::CullVisitor& visitor);
/// The light model that is nearest above; null for none. Borrowed.
const osg::LightModel* lightModel(osgUtil::CullVisitor& visitor);
/// Whether nothing above asks for lines or points in the place of polygons.
bool isFilled(osgUtil::CullVisitor& visitor);
/// Whether nothing above cares in which order triangles come or what a group's material is: they are opaque; depths
/// decide which one is seen; fronts are fronts; no plane shows the inside of bodies; no program of a client's reads
/// materials, and no bin sorts by depth.
/// @param ignored  of the library's own, which says otherwise; null for none
bool isPlain(osgUtil::CullVisitor& visitor, const osg::StateSet* ignored);
/// Whether the state set of a node says nothing but a material, or nothing at all.
bool isLook(const osg::StateSet& states);
/// Which of two such sets counts below both; null for none.
/// @param above  of the nodes above
/// @param own    of the node
const osg::StateSet* lookBelow(const osg::StateSet* above, const osg::StateSet* own);

} // namespace KrInheritedState
