#pragma once

#include <toolkit/system/KrManipulatorSystem.h>
#include <toolkit/system/KrManipulatorSystemState.h>
#include <toolkit/system/KrShapeStateCacheKey.h>

#include <memory>
#include <vector>

template <typename Row>
class KrRowTable;

/// A manipulator system together with its current state, and what changed about it since it was last looked at.
///
/// One window at a time looks at a stated system: looking resets the change flags, hence they are mutable.
class KrStatedSystem : public KrXmlObjectOf<KrStatedSystem, KrXmlCompoundType>
{
public:
    KrStatedSystem();
    /// The system with every manipulator in its default state.
    explicit KrStatedSystem(const KrManipulatorSystem& system);
    KrStatedSystem(const KrStatedSystem& other);
    /// The new value is a new system; selection and change lists are emptied.
    KrStatedSystem& operator=(const KrStatedSystem& other);
    ~KrStatedSystem() override;

    /// The manipulators, borrowed from this object.
    const KrManipulatorSystem& manipulatorSystem() const { return m_system; }
    /// For changes: call `systemChanged` when they are done.
    KrManipulatorSystem& manipulatorSystem() { return m_system; }
    /// Declares the system new; gives every manipulator whose number of joints does not fit its state a default state,
    /// and empties selection and change lists.
    void systemChanged();

    /// Where they are: base poses and joint positions, at a time.
    const KrManipulatorSystemState& systemState() const { return m_state; }
    /// False, after one message, and no change when `state` does not fit the system.
    bool setSystemState(const KrManipulatorSystemState& state);
    /// Sets the joint of that name (rad or m) in a manipulator, and the joints that mimic it.
    /// False, after one message, and no change when there is none of that name, it is fixed or a mimic, or `position`
    /// is not finite.
    bool setJointPosition(unsigned int manipulator, const std::string& joint, double position);

    // What a window asks.
    /// Whether windows have to load the system before they draw it again.
    bool isNewSystem() const { return m_newSystem; }
    /// True has windows load the system again, as it is: unlike `systemChanged` nothing of it is emptied.
    void setNewSystem(bool isNew) const { m_newSystem = isNew; }
    const std::vector<KrShapeStateCacheKey>& changedShapes() const;
    /// Null for a key that names no shape.
    const KrShape* shapeByKey(const KrShapeStateCacheKey& key) const;
    /// The link whose shape a key names, whether it has that shape or not; null for a key that names no link.
    const KrManipulatorLink* linkByKey(const KrShapeStateCacheKey& key) const;
    /// The link ids (KrShapeStateCacheKey::linkID) of a manipulator's links of that name, its base among them; empty
    /// when there is none, or no such manipulator.
    std::vector<std::uint32_t> linksByName(unsigned int manipulator, const std::string& name) const;
    bool isSelectionChanged() const { return m_selectionChanged; }
    void setSelectionChanged(bool changed) const { m_selectionChanged = changed; }
    const std::vector<KrShapeStateCacheKey>& selectedShapes() const;
    bool isTransparencyChanged() const { return m_transparencyChanged; }
    void setTransparencyChanged(bool changed) const { m_transparencyChanged = changed; }
    /// Opacity of shapes that are not selected, in [0, 1].
    double transparency() const { return m_transparency.value(); }

    /// What an application says. Keys are checked here: false, after one message, for one that names no shape.
    bool addChangedShape(const KrShapeStateCacheKey& key);
    /// Each of them; false when one was refused. In the order of their links many take hardly longer than one.
    bool addChangedShapes(const std::vector<KrShapeStateCacheKey>& keys);
    void clearChangedShapes();
    bool selectShape(const KrShapeStateCacheKey& key);
    void clearSelection();

    /// What became of a link that was to be selected, or no longer.
    enum class LinkAnswer
    {
        Done,
        NoManipulator, ///< there are fewer
        NoLink,        ///< the manipulator has none of that name or id
        SeveralLinks,  ///< the name is ambiguous: ask `linksByName`, and select by id
        NoShape        ///< the link is there, and nothing of it can be seen
    };
    /// Selects everything that is seen of a link, and of no other: where it shares an extent with another link, which
    /// would be drawn, and selected, as one, it gets a copy, and windows are asked for a new scene.
    /// What is refused changes nothing; all answers but Done and NoShape come after one message.
    LinkAnswer selectLink(unsigned int manipulator, const std::string& name);
    /// @param link  as in KrShapeStateCacheKey::linkID: joint index or kBaseLink
    LinkAnswer selectLink(unsigned int manipulator, std::uint32_t link);
    /// Takes the link's shapes out of the selection; Done, too, when none is in it.
    LinkAnswer deselectLink(unsigned int manipulator, const std::string& name);
    LinkAnswer deselectLink(unsigned int manipulator, std::uint32_t link);

    /// Declares the selection changed, too, when there is one: it is faded anew.
    /// False, after one message, and no change outside [0, 1].
    bool setTransparency(double transparency);

    /// As an assignment; manipulators take their default states where the document holds no position states.
    bool read(KrXmlReader& reader) override;
    KrXmlToken token() const override;
    void registerComponents() override;
    bool operator==(const KrStatedSystem& other) const
    {
        return m_system == other.m_system && m_state == other.m_state && m_transparency == other.m_transparency;
    }

protected:
    bool validate(KrXmlRefusal& refusal) const override;

private:
    void becomeNew();
    LinkAnswer findLink(const char* method, unsigned int manipulator, const std::string& name,
                        std::uint32_t& link) const;

    KrManipulatorSystem m_system;
    KrManipulatorSystemState m_state;
    /// Lists in which each key stands once, in the order in which they came.
    using KeyList = KrRowTable<KrShapeStateCacheKey>;
    std::unique_ptr<KeyList> m_changedShapes;
    std::unique_ptr<KeyList> m_selectedShapes;
    KrXmlBasicType<double> m_transparency = 0.3;
    mutable bool m_newSystem = true;
    mutable bool m_selectionChanged = false;
    mutable bool m_transparencyChanged = false;
};
