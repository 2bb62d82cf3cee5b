#include <toolkit/system/private/KrOwnShapes.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/system/KrManipulatorSystem.h>
#include <toolkit/system/private/KrLinkWalk.h>

#include <boost/make_shared.hpp>

#include <utility>

namespace
{

// By address: equal extents that are two objects do not share anything.
unsigned int numHolders(const KrManipulatorLink& link, const KrBasePhysicalExtent* extent)
{
    unsigned int count = 0;
    for (unsigned int i = 0; i < link.numShapes(); ++i) {
        const KrShape* const shape = link.shape(i);
        count += shape != nullptr && shape->physicalExtent() == extent ? 1 : 0;
    }
    return count;
}

/// Whether more than one shape of the system holds what `shape` does.
bool isShared(const KrManipulatorSystem& system, const KrShape* shape)
{
    const KrBasePhysicalExtent* const extent = shape != nullptr ? shape->physicalExtent() : nullptr;
    if (extent == nullptr) {
        return false;
    }
    unsigned int count = 0;
    for (const KrIndividualManipulator& manipulator : system.manipulators()) {
        count += numHolders(manipulator, extent);
        KrLinkWalk walk(manipulator);
        while (const KrManipulatorLink* const link = walk.next()) {
            count += numHolders(*link, extent);
        }
    }
    // What has no triangles stays shared.
    return count > 1 && extent->triExtent();
}

// The shape's other values, its number for example, come along.
boost::shared_ptr<KrShape> ownCopy(const KrShape& shape)
{
    const auto own = boost::make_shared<KrShape>(shape);
    own->setPhysicalExtent(
        boost::shared_ptr<KrBasePhysicalExtent>(static_cast<KrBasePhysicalExtent*>(shape.physicalExtent()->clone())));
    return own;
}

} // namespace

// False when the link's shapes were its own already, and nothing has changed.
bool KrOwnShapes::give(KrManipulatorSystem& system, KrManipulatorLink& link)
{
    bool isAnyShared = false;
    // Of the same name, and with shapes in the same order, so that keys stay valid.
    KrManipulatorLink own(link.name());
    for (unsigned int i = 0; i < link.numShapes(); ++i) {
        const bool isCopied = isShared(system, link.shape(i));
        own.addShape(isCopied ? ownCopy(*link.shape(i)) : link.shapePointer(i));
        isAnyShared = isAnyShared || isCopied;
    }
    if (!isAnyShared) {
        return false;
    }
    // A link's shapes can be added to, not replaced: another link with the same body takes its place.
    bool isDeformable = false;
    link.deformable(isDeformable);
    own.setDeformable(isDeformable);
    own.shareCollisionShapes(link);
    own.jointKinematics() = link.jointKinematics();
    own.massProperties() = link.massProperties();
    // Moved: links that hang under this one may be many.
    own.childLinks() = std::move(link.childLinks());
    link = std::move(own); // of a manipulator its base link only
    return true;
}
