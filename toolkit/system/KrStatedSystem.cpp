#include <toolkit/system/KrStatedSystem.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/private/KrRowTable.h>
#include <toolkit/system/private/KrLinkWalk.h>
#include <toolkit/system/private/KrOwnShapes.h>
#include <toolkit/system/private/KrShapeLookup.h>
#include <toolkit/xml/KrXmlReader.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace
{

// Written so that NaN fails too.
bool isShare(double value)
{
    return value >= 0.0 && value <= 1.0;
}

// The rotation is not asked about: setters and readers take rotations only.
// Poses and positions that are not finite would spread to everything that hangs on them.
bool isFinite(const KrPositionState& state)
{
    const KrPositionState::JointPositions& positions = state.jointPositions();
    return state.baseTransformation().isFinite() &&
           std::all_of(positions.begin(), positions.end(), [](double position) { return std::isfinite(position); });
}

/// Why a state cannot be one of `system`; empty when it can.
std::string whyNoState(const KrManipulatorSystem& system, const KrManipulatorSystemState& state)
{
    char text[160];
    const KrXmlVectorType<KrIndividualManipulator>& manipulators = system.manipulators();
    // Numbers first: what is looked at below is there then.
    if (state.positionStates().size() != manipulators.size()) {
        std::snprintf(text, sizeof text, "the system has %u manipulators, the state %u", manipulators.size(),
                      state.positionStates().size());
        return text;
    }
    if (!std::isfinite(state.time())) {
        return "the state's time is not finite";
    }
    for (unsigned int i = 0; i < manipulators.size(); ++i) {
        // A loop over the links, so it is done once for each manipulator.
        const unsigned int joints = manipulators[i].numJoints();
        const KrPositionState& position = state.positionStates()[i];
        if (position.jointPositions().size() != joints) {
            std::snprintf(text, sizeof text, "manipulator %u has %u joints, the state %u", i, joints,
                          position.jointPositions().size());
            return text;
        }
        if (!isFinite(position)) {
            std::snprintf(text, sizeof text, "the state of manipulator %u is not finite", i);
            return text;
        }
    }
    return {};
}

/// Gives a default state to every manipulator that has none of its size.
void fitState(const KrManipulatorSystem& system, KrManipulatorSystemState& state)
{
    // States of manipulators that are gone go too; those of the same size stay as they are.
    state.positionStates().resize(system.manipulators().size());
    for (unsigned int i = 0; i < system.manipulators().size(); ++i) {
        const KrIndividualManipulator& manipulator = system.manipulators()[i];
        KrPositionState& position = state.positionStates()[i];
        if (position.jointPositions().size() != manipulator.numJoints()) {
            position = manipulator.defaultState();
        }
    }
}

bool refuseKey(const char* method, const KrShapeStateCacheKey& key)
{
    Kr::Print::instance()->write(Kr::Print::Warning,
                                 "KrStatedSystem::%s - no shape is manipulator %u, link %u, shape %u.\n", method,
                                 key.manipID(), key.linkID(), key.shapeID());
    return false;
}

// For questions by name and by number; `reason` says what is wrong with it.
void refuseLink(const char* method, unsigned int manipulator, const std::string& reason)
{
    Kr::Print::instance()->write(Kr::Print::Warning, "KrStatedSystem::%s - manipulator %u: %s.\n", method, manipulator,
                                 reason.c_str());
}

// Tells apart which of the two numbers is wrong.
KrStatedSystem::LinkAnswer refuseLinkId(const char* method, const KrManipulatorSystem& system, unsigned int manipulator,
                                        std::uint32_t link)
{
    const bool isThere = manipulator < system.manipulators().size();
    refuseLink(method, manipulator,
               isThere ? "there is no link " + std::to_string(link) : "there is no such manipulator");
    return isThere ? KrStatedSystem::LinkAnswer::NoLink : KrStatedSystem::LinkAnswer::NoManipulator;
}

// One message for all that a position may be refused for.
bool refuseJoint(unsigned int manipulator, const std::string& joint, const char* reason)
{
    Kr::Print::instance()->write(Kr::Print::Warning,
                                 "KrStatedSystem::setJointPosition - manipulator %u, joint \"%s\": %s.\n", manipulator,
                                 joint.c_str(), reason);
    return false;
}

// With memory for as many again: a client may name the same shapes in every frame.
void clear(KrRowTable<KrShapeStateCacheKey>& list)
{
    list.restart(list.size());
}

} // namespace

KrStatedSystem::KrStatedSystem()
    : m_changedShapes(std::make_unique<KeyList>())
    , m_selectedShapes(std::make_unique<KeyList>())
{
}

KrStatedSystem::~KrStatedSystem() = default;

KrStatedSystem::KrStatedSystem(const KrManipulatorSystem& system)
    : KrStatedSystem()
{
    m_system = system;
    fitState(m_system, m_state);
}

// What is marked for windows (changed and selected shapes) stays behind: a copy is new to every window.
KrStatedSystem::KrStatedSystem(const KrStatedSystem& other)
    : KrXmlObjectOf<KrStatedSystem, KrXmlCompoundType>(other)
    , m_system(other.m_system)
    , m_state(other.m_state)
    , m_changedShapes(std::make_unique<KeyList>())
    , m_selectedShapes(std::make_unique<KeyList>())
    , m_transparency(other.m_transparency)
{
}

KrStatedSystem& KrStatedSystem::operator=(const KrStatedSystem& other)
{
    m_system = other.m_system;
    m_state = other.m_state;
    m_transparency = other.m_transparency;
    becomeNew();
    return *this;
}

// Marks name shapes by their place, which may be another one's now.
void KrStatedSystem::becomeNew()
{
    clearChangedShapes();
    clear(*m_selectedShapes);
    m_newSystem = true;
    m_selectionChanged = false;
    m_transparencyChanged = false;
}

void KrStatedSystem::systemChanged()
{
    // In this order: whoever sees a new system finds a state that fits.
    fitState(m_system, m_state);
    becomeNew();
}

// All of it or nothing: a state that fits by half would tear manipulators apart.
bool KrStatedSystem::setSystemState(const KrManipulatorSystemState& state)
{
    const std::string reason = whyNoState(m_system, state);
    if (!reason.empty()) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrStatedSystem::setSystemState - %s.\n", reason.c_str());
        return false;
    }
    m_state = state;
    return true;
}

bool KrStatedSystem::setJointPosition(unsigned int manipulator, const std::string& joint, double position)
{
    // Both are asked: a client may have changed the system without saying so.
    if (manipulator >= m_system.manipulators().size() || manipulator >= m_state.positionStates().size()) {
        return refuseJoint(manipulator, joint, "there is no such manipulator");
    }
    const KrIndividualManipulator& moved = m_system.manipulators()[manipulator];
    const int index = moved.jointIndex(joint);
    if (index < 0) {
        return refuseJoint(manipulator, joint, "there is no such joint");
    }
    // Not null: the index comes from the same walk.
    const KrJointKinematics& kinematics =
        linkByKey({manipulator, static_cast<std::uint32_t>(index), 0})->jointKinematics();
    if (!kinematics.isMovable()) {
        return refuseJoint(manipulator, joint, "a fixed joint does not move");
    }
    if (kinematics.isMimic()) {
        return refuseJoint(manipulator, joint, "it follows another joint");
    }
    if (!std::isfinite(position)) {
        return refuseJoint(manipulator, joint, "the position is not finite");
    }

    KrPositionState& state = m_state.positionStates()[manipulator];
    if (state.jointPositions().size() != moved.numJoints()) {
        return refuseJoint(manipulator, joint, "the system was changed; systemChanged() comes first");
    }
    state.jointPositions()[static_cast<unsigned int>(index)] = position;
    // Joints that follow this one move with it.
    return moved.applyMimics(state);
}

const KrShape* KrStatedSystem::shapeByKey(const KrShapeStateCacheKey& key) const
{
    return KrShapeLookup(m_system).shape(key);
}

const KrManipulatorLink* KrStatedSystem::linkByKey(const KrShapeStateCacheKey& key) const
{
    // Nothing is kept from call to call: a client may change the system in between.
    return KrShapeLookup(m_system).link(key);
}

// Names need not be unique, so all are told.
// A base link is found by its manipulator's name, which is its own.
std::vector<std::uint32_t> KrStatedSystem::linksByName(unsigned int manipulator, const std::string& name) const
{
    std::vector<std::uint32_t> found;
    if (manipulator >= m_system.manipulators().size()) {
        return found;
    }
    const KrIndividualManipulator& searched = m_system.manipulators()[manipulator];
    if (searched.name() == name) {
        found.push_back(KrShapeStateCacheKey::kBaseLink);
    }
    KrLinkWalk walk(searched);
    while (const KrManipulatorLink* const link = walk.next()) {
        if (link->name() == name) {
            found.push_back(static_cast<std::uint32_t>(walk.index()));
        }
    }
    return found;
}

const std::vector<KrShapeStateCacheKey>& KrStatedSystem::changedShapes() const
{
    return m_changedShapes->rows();
}

const std::vector<KrShapeStateCacheKey>& KrStatedSystem::selectedShapes() const
{
    return m_selectedShapes->rows();
}

void KrStatedSystem::clearChangedShapes()
{
    clear(*m_changedShapes);
}

// Refused keys are told here, once, and not by every window that would look for the shape.
bool KrStatedSystem::addChangedShape(const KrShapeStateCacheKey& key)
{
    if (shapeByKey(key) == nullptr) {
        return refuseKey("addChangedShape", key);
    }
    m_changedShapes->number(key);
    return true;
}

bool KrStatedSystem::addChangedShapes(const std::vector<KrShapeStateCacheKey>& keys)
{
    bool areAllThere = true;
    KrShapeLookup lookup(m_system);
    for (const KrShapeStateCacheKey& key : keys) {
        if (lookup.shape(key) != nullptr) {
            m_changedShapes->number(key);
        } else {
            areAllThere = refuseKey("addChangedShapes", key);
        }
    }
    return areAllThere;
}

// Selecting twice is one selection, yet tells the windows again.
// What is selected keeps its opacity while the rest fades.
bool KrStatedSystem::selectShape(const KrShapeStateCacheKey& key)
{
    if (shapeByKey(key) == nullptr) {
        return refuseKey("selectShape", key);
    }
    m_selectedShapes->number(key);
    m_selectionChanged = true;
    return true;
}

// Windows are told even when nothing was selected.
void KrStatedSystem::clearSelection()
{
    clear(*m_selectedShapes);
    m_selectionChanged = true;
}

// For selecting and deselecting alike; `method` names the one that is called.
KrStatedSystem::LinkAnswer KrStatedSystem::findLink(const char* method, unsigned int manipulator,
                                                    const std::string& name, std::uint32_t& link) const
{
    if (manipulator >= m_system.manipulators().size()) {
        refuseLink(method, manipulator, "there is no such manipulator");
        return LinkAnswer::NoManipulator;
    }
    // A name that several links have is refused, rather than taken for the first one's.
    const std::vector<std::uint32_t> found = linksByName(manipulator, name);
    if (found.size() != 1) {
        refuseLink(method, manipulator,
                   (found.empty() ? "there is no link \"" : "several links are called \"") + name + "\"");
        return found.empty() ? LinkAnswer::NoLink : LinkAnswer::SeveralLinks;
    }
    link = found.front();
    return LinkAnswer::Done;
}

KrStatedSystem::LinkAnswer KrStatedSystem::selectLink(unsigned int manipulator, const std::string& name)
{
    std::uint32_t link = 0;
    const LinkAnswer answer = findLink("selectLink", manipulator, name, link);
    return answer == LinkAnswer::Done ? selectLink(manipulator, link) : answer;
}

KrStatedSystem::LinkAnswer KrStatedSystem::selectLink(unsigned int manipulator, std::uint32_t link)
{
    const KrManipulatorLink* const selected = linkByKey({manipulator, link, 0});
    if (selected == nullptr) {
        return refuseLinkId("selectLink", m_system, manipulator, link);
    }
    // A shape without extent is not drawn, so selecting it would show nothing.
    const auto isSeen = [selected](std::uint32_t i) {
        return selected->shape(i) != nullptr && selected->shape(i)->physicalExtent() != nullptr;
    };
    LinkAnswer answer = LinkAnswer::NoShape;
    // The system is ours to change; the link stays where it is.
    if (KrOwnShapes::give(m_system, const_cast<KrManipulatorLink&>(*selected))) {
        setNewSystem(true);
    }
    // Asked anew: the link's shapes may have been replaced just now.
    for (std::uint32_t i = 0; i < selected->numShapes(); ++i) {
        if (isSeen(i)) {
            selectShape({manipulator, link, i});
            answer = LinkAnswer::Done;
        }
    }
    return answer;
}

KrStatedSystem::LinkAnswer KrStatedSystem::deselectLink(unsigned int manipulator, const std::string& name)
{
    std::uint32_t link = 0;
    const LinkAnswer answer = findLink("deselectLink", manipulator, name, link);
    return answer == LinkAnswer::Done ? deselectLink(manipulator, link) : answer;
}

KrStatedSystem::LinkAnswer KrStatedSystem::deselectLink(unsigned int manipulator, std::uint32_t link)
{
    if (linkByKey({manipulator, link, 0}) == nullptr) {
        return refuseLinkId("deselectLink", m_system, manipulator, link);
    }
    // A link that was not selected is no error; the answer is the same.
    const std::vector<KrShapeStateCacheKey> before = m_selectedShapes->take();
    for (const KrShapeStateCacheKey& key : before) {
        if (key.manipID() != manipulator || key.linkID() != link) {
            m_selectedShapes->number(key);
        }
    }
    m_selectionChanged = m_selectionChanged || m_selectedShapes->size() != before.size();
    return LinkAnswer::Done;
}

// Kept: the name says transparency, the value is an opacity; 1 hides nothing. Documents and clients have it so.
bool KrStatedSystem::setTransparency(double transparency)
{
    if (!isShare(transparency)) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrStatedSystem::setTransparency - %g is not between 0 and 1.\n", transparency);
        return false;
    }
    m_transparency = transparency;
    m_transparencyChanged = true;
    // What a selection has faded is faded anew.
    m_selectionChanged = m_selectionChanged || !selectedShapes().empty();
    return true;
}

bool KrStatedSystem::read(KrXmlReader& reader)
{
    if (!KrXmlCompoundType::read(reader)) {
        return false;
    }
    // The state was checked against the system by `validate`; the marks are of the old one.
    systemChanged();
    return true;
}

KrXmlToken KrStatedSystem::token() const
{
    return {KrXmlNamespace::system(), "statedSystem"};
}

void KrStatedSystem::registerComponents()
{
    const std::string& uri = KrXmlNamespace::system();
    registerComponent({uri, "manipulatorSystem"}, m_system);
    registerComponent({uri, "systemState"}, m_state, Presence::Optional);
    registerComponent({uri, "transparency"}, m_transparency, Presence::Optional);
}

// What a document says has to fit together as what a client sets has to.
bool KrStatedSystem::validate(KrXmlRefusal& refusal) const
{
    if (!isShare(transparency())) {
        return refusal.fail("an opacity lies between 0 and 1, not at %g", transparency());
    }
    // Without position states every manipulator takes its default state.
    if (m_state.positionStates().empty() && std::isfinite(m_state.time())) {
        return true;
    }
    const std::string reason = whyNoState(m_system, m_state);
    return reason.empty() || refusal.fail("%s", reason.c_str());
}
