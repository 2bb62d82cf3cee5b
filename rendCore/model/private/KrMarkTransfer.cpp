#include <rendCore/model/private/KrMarkTransfer.h>

#include <rendCore/model/KrRenderDeformationShape.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/model/KrRenderShape.h>

#include <toolkit/extent/KrBasePhysicalExtent.h>
#include <toolkit/system/KrManipulatorSystem.h>

#include <algorithm>

namespace
{

/// Compares what the handles were made for: the shapes themselves may be gone, and a new one at the same address.
bool areOfOneShape(const boost::weak_ptr<KrRenderShape>& a, const boost::weak_ptr<KrRenderShape>& b)
{
    return !a.owner_before(b) && !b.owner_before(a);
}

} // namespace

void KrMarkTransfer::collect(const KrRenderManipulator* manipulator)
{
    if (!manipulator) {
        return;
    }
    // The map has the shapes of every link; those of intra-links are in none.
    for (const auto& [key, shape] : manipulator->getMap()) {
        KrTextureMarker* const marker = shape ? KrTextureMarker::find(*shape) : nullptr;
        if (!marker) {
            continue;
        }
        const auto* const deforming = dynamic_cast<const KrRenderDeformationShape*>(shape.get());
        Marks marks;
        marks.shape = shape->getSharedPtr();
        marks.marker = marker;
        // It knows which strokes are painted already, so that they are not painted twice.
        marks.painter = deforming ? deforming->painter() : nullptr;
        m_marks.push_back(marks);
    }
}

void KrMarkTransfer::match(const KrManipulatorSystem& system)
{
    // Most scenes have no marks, and a walk through all links costs time.
    if (m_marks.empty()) {
        return;
    }
    std::vector<const KrManipulatorLink*> links;
    for (const KrIndividualManipulator& manipulator : system.manipulators()) {
        links.push_back(&manipulator);
    }
    // Without recursion, which would take stack for links under one another.
    while (!links.empty()) {
        const KrManipulatorLink& link = *links.back();
        links.pop_back();
        // In any order: shapes are told by their handles, not by their place.
        for (const KrManipulatorLink& child : link.childLinks()) {
            links.push_back(&child);
        }
        for (unsigned int i = 0; i < link.numShapes(); ++i) {
            const KrBasePhysicalExtent* const extent = link.shape(i) ? link.shape(i)->physicalExtent() : nullptr;
            if (!extent) {
                continue;
            }
            for (Marks& marks : m_marks) {
                if (areOfOneShape(marks.shape, extent->renderShape())) {
                    marks.extent = extent;
                }
            }
        }
    }
    // What no extent of the new system has is over.
    m_marks.erase(
        std::remove_if(m_marks.begin(), m_marks.end(), [](const Marks& marks) { return marks.extent == nullptr; }),
        m_marks.end());
}

void KrMarkTransfer::giveBack()
{
    for (const Marks& marks : m_marks) {
        // A shape that somebody holds has them still.
        // The handle owns nothing: it becomes a counted reference at once.
        const osg::ref_ptr<KrRenderShape> shape(marks.extent->renderShape().lock().get());
        if (!shape || KrTextureMarker::find(*shape) == marks.marker) {
            continue;
        }
        if (auto* const deforming = dynamic_cast<KrRenderDeformationShape*>(shape.get())) {
            deforming->takeMarks(*marks.marker, marks.painter);
        } else {
            // A shape that has lost its texture coordinates refuses: the marks are lost with them.
            marks.marker->moveTo(*shape);
        }
    }
    m_marks.clear();
}
