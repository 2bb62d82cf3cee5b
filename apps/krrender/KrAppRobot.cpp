#include "KrAppRobot.h"

#include "KrAppFailure.h"
#include "KrAppFiles.h"
#include "KrAppMessages.h"

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/grid/KrGridPhysicalExtent.h>

#include <algorithm>

namespace
{

/// Whether there is something to draw.
bool isVisible(const KrShape* shape)
{
    const KrBasePhysicalExtent* const extent = shape ? shape->physicalExtent() : nullptr;
    if (extent == nullptr) {
        return false;
    }
    const boost::shared_ptr<const KrTriPhysicalExtent> mesh = extent->triExtent();
    // A field is seen without a triangle.
    return mesh ? mesh->numTriangles() > 0 : dynamic_cast<const KrGridPhysicalExtent*>(extent) != nullptr;
}

bool isVisible(const KrManipulatorLink& link)
{
    for (unsigned int i = 0; i < link.numShapes(); ++i) {
        if (isVisible(link.shape(i))) {
            return true;
        }
    }
    return false;
}

} // namespace

void KrAppRobot::read(const std::string& file, const KrImportOptions& options, KrAppMessages& messages)
{
    // The readers take paths, and the system has one for the stream.
    std::string reason;
    if (!KrSystemFile::read(KrAppFiles::isStandard(file) ? "/dev/stdin" : file, options, Accept::Systems, reason)) {
        throw KrAppFailure(KrAppFailure::CouldNot, reason);
    }
    // An importer's messages are in its report; the native readers have printed theirs.
    if (kind == Kind::Robot) {
        messages.clear();
    }
}

bool KrAppRobot::hasVisibleShape() const
{
    for (const KrIndividualManipulator& manipulator : manipulators()) {
        const std::vector<const KrManipulatorLink*> links = manipulator.links();
        if (isVisible(manipulator) ||
            std::any_of(links.begin(), links.end(), [](const auto* link) { return isVisible(*link); })) {
            return true;
        }
        // Bodies between links belong to none of them.
        for (unsigned int i = 0; i < manipulator.intraLinks().count(); ++i) {
            if (isVisible(manipulator.intraLinks().intraLink(i).shape())) {
                return true;
            }
        }
    }
    return false;
}

std::size_t KrAppRobot::numCollisionShapes() const
{
    std::size_t count = 0;
    for (const KrIndividualManipulator& manipulator : manipulators()) {
        // The base by itself: links() does not list it.
        count += manipulator.numCollisionShapes();
        for (const KrManipulatorLink* const link : manipulator.links()) {
            count += link->numCollisionShapes();
        }
    }
    return count;
}

std::size_t KrAppRobot::numTriangles() const
{
    return report.counts().triangles;
}
