#include <toolkit/system/KrPoseDriver.h>

#include <toolkit/foundation/KrPrint.h>

#include <algorithm>
#include <set>

// Names are looked up here, once; every frame then works with numbers.
KrPoseDriver::KrPoseDriver(const KrManipulatorSystem& system)
{
    for (unsigned int m = 0; m < system.manipulators().size(); ++m) {
        const KrIndividualManipulator& manipulator = system.manipulators()[m];
        addShapes(manipulator, manipulator, KrShapeStateCacheKey(m, KrShapeStateCacheKey::kBaseLink, 0));
        // The order of links() is that of the joints, so the place in it is the link's number.
        std::uint32_t joint = 0;
        for (const KrManipulatorLink* link : manipulator.links()) {
            addShapes(*link, manipulator, KrShapeStateCacheKey(m, joint++, 0));
        }
    }
}

void KrPoseDriver::addShapes(const KrManipulatorLink& link, const KrIndividualManipulator& manipulator,
                             const KrShapeStateCacheKey& linkKey)
{
    bool isDeformable = false;
    link.deformable(isDeformable);
    // A rigid link's shapes do not deform, even when their kind could.
    for (unsigned int i = 0; i < link.numShapes() && isDeformable; ++i) {
        const KrShape* const shape = link.shape(i);
        if (shape == nullptr) {
            continue;
        }
        const auto extent = boost::dynamic_pointer_cast<KrDeformationPhysicalExtent>(shape->extentPointer());
        // Links may share an extent: the first one's joints move it.
        const bool isKnown = std::any_of(m_tracks.begin(), m_tracks.end(),
                                         [&extent](const Track& track) { return track.extent == extent; });
        if (extent && !isKnown && addTracks(extent, manipulator, linkKey.manipID())) {
            m_shapes.push_back(KrShapeStateCacheKey(linkKey.manipID(), linkKey.linkID(), i));
        }
    }
}

/// False when no pose follows a joint.
bool KrPoseDriver::addTracks(const boost::shared_ptr<KrDeformationPhysicalExtent>& extent,
                             const KrIndividualManipulator& manipulator, unsigned int manipulatorIndex)
{
    // In alphabetical order and each joint once; poses without a joint are the client's to weigh.
    std::set<std::string> joints;
    for (unsigned int i = 0; i < extent->numPoses(); ++i) {
        joints.insert(extent->pose(i).joint());
    }
    joints.erase(std::string());
    const std::size_t numBefore = m_tracks.size();
    for (const std::string& name : joints) {
        const int joint = manipulator.jointIndex(name);
        if (joint < 0) {
            Kr::Print::instance()->write(Kr::Print::Warning,
                                         "KrPoseDriver::KrPoseDriver - manipulator \"%s\" has no joint \"%s\"; the "
                                         "poses that name it stay as they are.\n",
                                         manipulator.name().c_str(), name.c_str());
            continue;
        }
        // One track for each joint: the poses that follow it, by its position.
        Track track{extent, manipulatorIndex, static_cast<unsigned int>(joint), {}};
        for (unsigned int i = 0; i < extent->numPoses(); ++i) {
            if (extent->pose(i).joint() == name) {
                track.keys.push_back({extent->pose(i).jointPosition(), i});
            }
        }
        // Last, so that a pose at 0 stands before it and is the one that stays.
        track.keys.push_back({0.0, kNeutral});
        // Stable, so that of two poses at one position the first stays when the second is dropped.
        std::stable_sort(track.keys.begin(), track.keys.end(),
                         [](const Key& a, const Key& b) { return a.position < b.position; });
        track.keys.erase(std::unique(track.keys.begin(), track.keys.end(),
                                     [](const Key& a, const Key& b) { return a.position == b.position; }),
                         track.keys.end());
        m_tracks.push_back(track);
    }
    return m_tracks.size() != numBefore;
}

// A joint that a state does not have leaves its poses as they are.
void KrPoseDriver::drive(const KrManipulatorSystemState& state)
{
    for (const Track& track : m_tracks) {
        // A state may be of another system for a moment; nothing of it is read that is not there.
        if (track.manipulator < state.positionStates().size()) {
            const KrPositionState::JointPositions& positions =
                state.positionStates()[track.manipulator].jointPositions();
            if (track.joint < positions.size()) {
                drive(track, positions[track.joint]);
            }
        }
    }
}

void KrPoseDriver::drive(const Track& track, double position)
{
    const std::vector<Key>& keys = track.keys;
    // Linear between neighbouring keys: only the two around the position have a weight. Beyond the ends the last one
    // holds.
    // The first key beyond the position.
    std::size_t next = 0;
    while (next < keys.size() && keys[next].position <= position) {
        ++next;
    }
    for (std::size_t i = 0; i < keys.size(); ++i) {
        double weight = 0.0;
        if (i == next) {
            // Keys are at different positions, so neither difference is 0.
            weight = i == 0 ? 1.0 : (position - keys[i - 1].position) / (keys[i].position - keys[i - 1].position);
        } else if (i + 1 == next) {
            weight =
                next == keys.size() ? 1.0 : (keys[next].position - position) / (keys[next].position - keys[i].position);
        }
        // The extent may have fewer poses by now.
        if (keys[i].pose != kNeutral && keys[i].pose < track.extent->numPoses()) {
            track.extent->setWeight(keys[i].pose, weight);
        }
    }
}
