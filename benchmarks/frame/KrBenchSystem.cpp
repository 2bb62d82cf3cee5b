#include "KrBenchSystem.h"

#include <picture/KrFraming.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/math/KrAngle.h>

#include <boost/make_shared.hpp>

#include <cmath>
#include <functional>
#include <map>

namespace
{

using Visitor = std::function<void(const KrManipulatorLink&)>;

/// Bases, too, which links() leaves out.
void forEachLink(const KrStatedSystem& system, const Visitor& visit)
{
    for (const KrIndividualManipulator& manipulator : system.manipulatorSystem().manipulators()) {
        visit(manipulator);
        for (const KrManipulatorLink* link : manipulator.links()) {
            visit(*link);
        }
    }
}

/// As often as it is drawn: what links share counts for each of them.
std::vector<boost::shared_ptr<const KrTriPhysicalExtent>> meshes(const KrStatedSystem& system)
{
    std::vector<boost::shared_ptr<const KrTriPhysicalExtent>> found;
    forEachLink(system, [&found](const KrManipulatorLink& link) {
        for (unsigned int i = 0; i < link.numShapes(); ++i) {
            const KrShape* const shape = link.shape(i);
            const boost::shared_ptr<const KrTriPhysicalExtent> mesh =
                shape && shape->physicalExtent() ? shape->physicalExtent()->triExtent() : nullptr;
            if (mesh) {
                found.push_back(mesh);
            }
        }
    });
    return found;
}

/// One of each group: as many draw calls, and next to nothing to draw.
boost::shared_ptr<KrBasePhysicalExtent> firstTriangles(const KrTriPhysicalExtent& mesh)
{
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups = mesh.groups();
    for (KrTriPhysicalExtent::Group& group : groups) {
        group.second().resize(std::min(group.second().size(), 1u));
    }
    auto reduced = boost::make_shared<KrTriPhysicalExtent>();
    reduced->setMaterialMap(mesh.materialMap());
    reduced->setMesh(mesh.vertices(), mesh.normals(), mesh.textureCoordinates(), groups);
    return reduced;
}

} // namespace

KrStatedSystem KrBenchSystem::copied(const KrStatedSystem& system, unsigned int copies)
{
    // From anywhere: only the box is asked for.
    KrFraming bounds({1.0, 0.0, 0.0}, {0.0, 0.0, 1.0}, 0.5, 1.0);
    bounds.add(system.manipulatorSystem(), system.systemState());
    const KrVector size = bounds.size();
    // Nearly a square, so that all copies are seen at about one size.
    const auto columns = static_cast<unsigned int>(std::ceil(std::sqrt(static_cast<double>(copies))));

    KrManipulatorSystem many;
    KrManipulatorSystemState state;
    for (unsigned int i = 0; i < copies; ++i) {
        // A tenth of their size apart, so that no two touch.
        const KrVector offset(1.1 * size.x() * (i / columns), 1.1 * size.y() * (i % columns), 0.0);
        for (unsigned int m = 0; m < system.manipulatorSystem().manipulators().size(); ++m) {
            KrIndividualManipulator copy = system.manipulatorSystem().manipulators()[m];
            KrCoordinateSystemTransformation placement = copy.placement();
            placement.setTranslation(placement.translation() + offset);
            copy.setPlacement(placement);
            many.manipulators().push_back(copy);
            state.positionStates().push_back(system.systemState().positionStates()[m]);
        }
    }
    KrStatedSystem result(many);
    result.setSystemState(state);
    return result;
}

void KrBenchSystem::keepOneTriangle(KrStatedSystem& system)
{
    // Shapes are held by pointer: what several links share is reduced once.
    std::map<const KrBasePhysicalExtent*, boost::shared_ptr<KrBasePhysicalExtent>> reduced;
    std::vector<boost::shared_ptr<KrBasePhysicalExtent>> originals; // kept, so that no address is used twice
    forEachLink(system, [&](const KrManipulatorLink& link) {
        for (unsigned int i = 0; i < link.numShapes(); ++i) {
            const boost::shared_ptr<KrShape> shape = link.shapePointer(i);
            const KrBasePhysicalExtent* const extent = shape ? shape->physicalExtent() : nullptr;
            const boost::shared_ptr<const KrTriPhysicalExtent> mesh = extent ? extent->triExtent() : nullptr;
            if (!mesh) {
                continue;
            }
            // Before the shape lets go of it.
            originals.push_back(shape->extentPointer());
            const auto [place, isNew] = reduced.try_emplace(extent);
            if (isNew) {
                place->second = firstTriangles(*mesh);
                reduced.try_emplace(place->second.get(), place->second); // a shape that was seen already
            }
            shape->setPhysicalExtent(place->second);
        }
    });
    // The shapes were changed past the system's own functions.
    system.systemChanged();
}

std::vector<KrManipulatorSystemState> KrBenchSystem::swinging(const KrStatedSystem& system, unsigned int count)
{
    constexpr double kTwoPi = 2.0 * Kr::Angle::kPi;
    std::vector<KrManipulatorSystemState> states;
    for (unsigned int i = 0; i < count; ++i) {
        KrManipulatorSystemState state = system.systemState();
        for (unsigned int m = 0; m < state.positionStates().size(); ++m) {
            const KrIndividualManipulator& manipulator = system.manipulatorSystem().manipulators()[m];
            const std::vector<const KrManipulatorLink*> links = manipulator.links();
            KrPositionState& position = state.positionStates()[m];
            for (unsigned int j = 0; j < links.size(); ++j) {
                const KrJointKinematics& joint = links[j]->jointKinematics();
                // Mimic joints follow below.
                if (!joint.isMovable() || joint.isMimic()) {
                    continue;
                }
                const double range = joint.hasLimits() ? joint.upperLimit() - joint.lowerLimit() : 1.0;
                // A tenth of the range, each joint at another point of its swing: no two poses of a round are alike.
                const double swing = 0.1 * range * std::sin(kTwoPi * i / count + j);
                position.jointPositions()[j].setValue(position.jointPositions()[j].value() + swing);
            }
            manipulator.applyMimics(position);
        }
        states.push_back(state);
    }
    return states;
}

std::size_t KrBenchSystem::numMeshes(const KrStatedSystem& system)
{
    return meshes(system).size();
}

std::size_t KrBenchSystem::numTriangles(const KrStatedSystem& system)
{
    std::size_t sum = 0;
    for (const auto& mesh : meshes(system)) {
        sum += mesh->numTriangles();
    }
    return sum;
}

std::size_t KrBenchSystem::numGroups(const KrStatedSystem& system)
{
    std::size_t sum = 0;
    for (const auto& mesh : meshes(system)) {
        sum += mesh->groups().size();
    }
    return sum;
}
