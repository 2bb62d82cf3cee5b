#include <toolkit/system/KrIndividualManipulator.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/system/private/KrLinkWalk.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string_view>

namespace
{

using Positions = KrPositionState::JointPositions;

/// Follows the mimic joints of one manipulator.
class MimicSolver
{
public:
    MimicSolver(const std::vector<const KrManipulatorLink*>& links, Positions& positions)
        : m_links(links)
        , m_positions(positions)
        , m_masters(links.size(), kNoMaster)
        , m_marks(links.size(), Mark::Open)
    {
        findMasters();
    }

    void solve()
    {
        for (std::size_t joint = 0; joint < m_links.size(); ++joint) {
            followChain(static_cast<int>(joint));
        }
    }

private:
    // A joint is walked over once, however many follow it.
    enum class Mark
    {
        Open,
        OnChain,
        Settled
    };
    static constexpr int kNoMaster = -1;

    // A mimic whose master is unknown follows nobody; its position stays as it is.
    // Names become numbers once, so that following chains compares no strings.
    void findMasters()
    {
        // Most manipulators have no mimic at all, and their states change with every frame.
        const auto isMimic = [](const KrManipulatorLink* link) { return link->jointKinematics().isMimic(); };
        if (std::none_of(m_links.begin(), m_links.end(), isMimic)) {
            return;
        }
        std::map<std::string_view, int> joints;
        for (std::size_t joint = 0; joint < m_links.size(); ++joint) {
            // Of several joints with one name the first counts, as in jointIndex().
            joints.emplace(m_links[joint]->jointKinematics().name(), static_cast<int>(joint));
        }
        for (std::size_t joint = 0; joint < m_links.size(); ++joint) {
            const KrJointKinematics& kinematics = m_links[joint]->jointKinematics();
            const auto master = joints.find(kinematics.mimicMaster());
            if (kinematics.isMimic() && master != joints.end()) {
                m_masters[joint] = master->second;
            }
        }
    }

    /// Walks from a joint up its masters to one whose position stands, then back down.
    void followChain(int joint)
    {
        std::vector<int> chain;
        while (m_marks[joint] == Mark::Open && m_masters[joint] != kNoMaster) {
            m_marks[joint] = Mark::OnChain;
            chain.push_back(joint);
            joint = m_masters[joint];
        }
        // Where the walk stops on its own chain, masters follow each other in a circle.
        if (m_marks[joint] == Mark::OnChain) {
            // A circle: its joints stay where they are, those that hang on it follow.
            while (m_marks[joint] == Mark::OnChain) {
                m_marks[chain.back()] = Mark::Settled;
                chain.pop_back();
            }
        }
        m_marks[joint] = Mark::Settled;
        for (; !chain.empty(); chain.pop_back()) {
            settle(chain.back());
        }
    }

    // The master's position stands by now: masters are settled before those that follow them.
    // position = multiplier * master + offset, in the units of the two joints.
    void settle(int joint)
    {
        const KrJointKinematics& kinematics = m_links[joint]->jointKinematics();
        const double master = m_positions[m_masters[joint]];
        const double position = kinematics.mimicMultiplier() * master + kinematics.mimicOffset();
        if (std::isfinite(position)) { // else it is beyond all numbers, and the joint stays
            m_positions[joint] = position;
        }
        m_marks[joint] = Mark::Settled;
    }

    const std::vector<const KrManipulatorLink*>& m_links;
    Positions& m_positions;
    std::vector<int> m_masters;
    std::vector<Mark> m_marks;
};

// Zero, or the limit that is next to it.
double restPosition(const KrJointKinematics& kinematics)
{
    return kinematics.hasLimits() ? std::clamp(0.0, kinematics.lowerLimit(), kinematics.upperLimit()) : 0.0;
}

// One message for all that need a state of the manipulator's size.
bool refuseState(const char* method, const std::string& manipulator, unsigned int joints, unsigned int positions)
{
    Kr::Print::instance()->write(Kr::Print::Warning,
                                 "KrIndividualManipulator::%s - manipulator \"%s\" has %u joints, the state %u.\n",
                                 method, manipulator.c_str(), joints, positions);
    return false;
}

} // namespace

template class KrXmlObjectOf<KrIndividualManipulator, KrManipulatorLink>;
template class KrXmlObjectOf<KrXmlVectorType<KrIndividualManipulator>, KrXmlObject>;
template class KrXmlVectorType<KrIndividualManipulator>;

// Copies are compiled here, once, and not in every file that includes the header.
KrIndividualManipulator::KrIndividualManipulator() = default;
KrIndividualManipulator::KrIndividualManipulator(const KrIndividualManipulator& other) = default;
KrIndividualManipulator::KrIndividualManipulator(KrIndividualManipulator&& other) noexcept = default;
KrIndividualManipulator& KrIndividualManipulator::operator=(const KrIndividualManipulator& other) = default;
KrIndividualManipulator& KrIndividualManipulator::operator=(KrIndividualManipulator&& other) noexcept = default;
KrIndividualManipulator::~KrIndividualManipulator() = default;

KrIndividualManipulator::KrIndividualManipulator(const std::string& name)
{
    setName(name);
}

bool KrIndividualManipulator::setPlacement(const KrCoordinateSystemTransformation& placement)
{
    return placement.checkPose("KrIndividualManipulator::setPlacement") && (m_placement = placement, true);
}

bool KrIndividualManipulator::setBaseDhFrame(const KrCoordinateSystemTransformation& frame)
{
    return frame.checkPose("KrIndividualManipulator::setBaseDhFrame") && (m_baseDhFrame = frame, true);
}

// Every link but the base has one joint, so links are counted.
unsigned int KrIndividualManipulator::numJoints() const
{
    unsigned int count = 0;
    KrLinkWalk walk(*this);
    while (walk.next() != nullptr) {
        ++count;
    }
    return count;
}

// How many links hang under each other at most; the walk's path is as long as its link is deep.
unsigned int KrIndividualManipulator::depth() const
{
    std::size_t deepest = 0;
    KrLinkWalk walk(*this);
    while (walk.next() != nullptr) {
        deepest = std::max(deepest, walk.path().size());
    }
    return static_cast<unsigned int>(deepest);
}

std::vector<const KrManipulatorLink*> KrIndividualManipulator::links() const
{
    std::vector<const KrManipulatorLink*> result;
    KrLinkWalk walk(*this);
    while (const KrManipulatorLink* const link = walk.next()) {
        result.push_back(link);
    }
    return result;
}

std::vector<int> KrIndividualManipulator::parents() const
{
    std::vector<int> result;
    KrLinkWalk walk(*this);
    while (walk.next() != nullptr) {
        result.push_back(walk.parent());
    }
    return result;
}

// Joints before links: a name may be both, and then means the joint. Nobody is called by an empty name.
int KrIndividualManipulator::jointIndex(const std::string& name) const
{
    if (name.empty()) {
        return -1;
    }
    // In the order of the walk, which is the order of the positions in a state.
    const std::vector<const KrManipulatorLink*> all = links();
    auto found = std::find_if(all.begin(), all.end(),
                              [&](const KrManipulatorLink* link) { return link->jointKinematics().name() == name; });
    if (found == all.end()) {
        found =
            std::find_if(all.begin(), all.end(), [&](const KrManipulatorLink* link) { return link->name() == name; });
    }
    return found == all.end() ? -1 : static_cast<int>(found - all.begin());
}

// Zero is outside of some joints' limits, hence the rest positions.
KrPositionState KrIndividualManipulator::defaultState() const
{
    KrPositionState state;
    const std::vector<const KrManipulatorLink*> all = links();
    for (const KrManipulatorLink* link : all) {
        state.jointPositions().push_back(restPosition(link->jointKinematics()));
    }
    // Last: the masters' own rest positions stand by then.
    MimicSolver(all, state.jointPositions()).solve();
    return state;
}

// A state of another size is refused before a position of it is touched.
bool KrIndividualManipulator::applyMimics(KrPositionState& state) const
{
    const std::vector<const KrManipulatorLink*> all = links();
    if (all.size() != state.jointPositions().size()) {
        return refuseState("applyMimics", name(), numJoints(), state.jointPositions().size());
    }
    MimicSolver(all, state.jointPositions()).solve();
    return true;
}

bool KrIndividualManipulator::linkPoses(const KrPositionState& state,
                                        std::vector<KrCoordinateSystemTransformation>& poses) const
{
    const unsigned int joints = numJoints();
    if (joints != state.jointPositions().size()) {
        return refuseState("linkPoses", name(), joints, state.jointPositions().size());
    }
    poses.clear();
    // The vector keeps its memory, so that nothing is allocated from the second frame on.
    poses.reserve(joints);
    KrLinkWalk walk(*this);
    while (const KrManipulatorLink* const link = walk.next()) {
        KrCoordinateSystemTransformation linkToParent;
        link->jointKinematics().linkTransformation(state.jointPositions()[static_cast<unsigned int>(walk.index())],
                                                   linkToParent);
        // Parents come before their children in this order, so their poses are there already.
        const bool isUnderBase = walk.parent() == KrLinkWalk::kRoot;
        poses.push_back((isUnderBase ? state.baseTransformation() : poses[static_cast<std::size_t>(walk.parent())]) *
                        linkToParent);
    }
    return true;
}

// For single questions: linkPoses() computes those of all links.
bool KrIndividualManipulator::linkPose(const std::string& link, const KrPositionState& state,
                                       KrCoordinateSystemTransformation& pose) const
{
    // An empty name, or the manipulator's, means its base link.
    if (link.empty() || link == name()) {
        pose = state.baseTransformation();
        return true;
    }
    KrLinkWalk walk(*this);
    const KrManipulatorLink* found = walk.next();
    while (found != nullptr && found->name() != link) {
        found = walk.next();
    }
    // The link's own index is the highest on the way to it.
    const Positions& positions = state.jointPositions();
    if (found == nullptr || static_cast<unsigned int>(walk.index()) >= positions.size()) {
        return false;
    }
    // Poses are computed on the way back, for the links above it only.
    KrCoordinateSystemTransformation linkToBase;
    for (std::size_t i = walk.path().size(); i-- > 0;) {
        const KrLinkWalk::Step& step = walk.path()[i];
        KrCoordinateSystemTransformation stepToParent;
        step.link().jointKinematics().linkTransformation(positions[static_cast<unsigned int>(step.index)],
                                                         stepToParent);
        linkToBase = stepToParent * linkToBase;
    }
    pose = state.baseTransformation() * linkToBase;
    return true;
}

KrXmlToken KrIndividualManipulator::token() const
{
    return {KrXmlNamespace::system(), "individualManipulator"};
}

void KrIndividualManipulator::registerComponents()
{
    const std::string& uri = KrXmlNamespace::system();
    registerComponent({uri, "placement"}, m_placement, Presence::Optional);
    registerComponent({uri, "baseDhFrame"}, m_baseDhFrame, Presence::Optional);
    registerComponent({uri, "materialMap"}, m_materialMap, Presence::Optional);
    registerComponent({uri, "dataMaps"}, m_dataMaps, Presence::Optional);
    // The link's components last: the tree is long, what stands above it is read first.
    KrManipulatorLink::registerComponents();
    registerComponent({uri, "intraLinkDescription"}, m_intraLinks, Presence::Optional);
}
