#include <toolkit/system/private/KrOwnShapes.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/system/KrManipulatorSystem.h>
#include <toolkit/system/private/KrLinkWalk.h>

#include <boost/make_shared.hpp>

#include <unordered_map>
#include <utility>

namespace
{

/// How many shapes of the system hold an extent. By address: equal extents that are two objects do not share anything.
using Holders = std::unordered_map<const KrBasePhysicalExtent*, unsigned int>;

const KrBasePhysicalExtent* extentOf(const KrShape* shape)
{
    return shape != nullptr ? shape->physicalExtent() : nullptr;
}

void count(const KrManipulatorLink& link, Holders& holders)
{
    for (unsigned int i = 0; i < link.numShapes(); ++i) {
        const auto known = holders.find(extentOf(link.shape(i)));
        if (known != holders.end()) {
            ++known->second;
        }
    }
}

/// For the extents of `link`, all at once: a link may have as many shapes as the rest of the system.
Holders holdersOf(const KrManipulatorSystem& system, const KrManipulatorLink& link)
{
    Holders holders;
    for (unsigned int i = 0; i < link.numShapes(); ++i) {
        holders.emplace(extentOf(link.shape(i)), 0);
    }
    for (const KrIndividualManipulator& manipulator : system.manipulators()) {
        count(manipulator, holders);
        KrLinkWalk walk(manipulator);
        while (const KrManipulatorLink* const other = walk.next()) {
            count(*other, holders);
        }
    }
    return holders;
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
    const Holders holders = holdersOf(system, link);
    // What has no triangles stays shared.
    const auto isShared = [&holders](const KrBasePhysicalExtent* extent) {
        return extent != nullptr && holders.at(extent) > 1 && extent->triExtent();
    };
    // Of the same name, and with shapes in the same order, so that keys stay valid.
    KrManipulatorLink own(link.name());
    for (unsigned int i = 0; i < link.numShapes(); ++i) {
        const bool isCopied = isShared(extentOf(link.shape(i)));
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
