#pragma once

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>
#include <toolkit/system/KrManipulatorSystem.h>
#include <toolkit/system/KrManipulatorSystemState.h>
#include <toolkit/system/KrShapeStateCacheKey.h>

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

/// Bends deforming shapes with the joints of their manipulator.
///
/// The poses of an extent that name one joint are its keys, ordered by their joint positions; the neutral mesh is the
/// key at 0 unless a pose is. Between two keys the shape is blended evenly from one to the other, beyond the
/// outermost ones it stays as it is there. Poses without a joint keep their weights.
class KrPoseDriver
{
public:
    /// Looks for deforming shapes; holds their extents, not `system`. One message for each joint that is not there.
    explicit KrPoseDriver(const KrManipulatorSystem& system);

    /// Sets the weights that belong to `state`. Positions that it lacks move nothing. Does not allocate.
    void drive(const KrManipulatorSystemState& state);
    /// The shapes that may move, each to be given to KrStatedSystem::addChangedShape once.
    const std::vector<KrShapeStateCacheKey>& shapes() const { return m_shapes; }

private:
    struct Key
    {
        double position = 0.0;
        unsigned int pose = 0; ///< kNeutral for the neutral mesh
    };
    /// The keys of one extent along one joint, by position, no two at one place; a single one, at 0, always holds.
    struct Track
    {
        boost::shared_ptr<KrDeformationPhysicalExtent> extent;
        unsigned int manipulator = 0;
        unsigned int joint = 0;
        std::vector<Key> keys;
    };
    static constexpr unsigned int kNeutral = 0xFFFFFFFFu;

    void addShapes(const KrManipulatorLink& link, const KrIndividualManipulator& manipulator,
                   const KrShapeStateCacheKey& linkKey);
    bool addTracks(const boost::shared_ptr<KrDeformationPhysicalExtent>& extent,
                   const KrIndividualManipulator& manipulator, unsigned int manipulatorIndex);
    static void drive(const Track& track, double position);

    std::vector<Track> m_tracks;
    std::vector<KrShapeStateCacheKey> m_shapes;
};
