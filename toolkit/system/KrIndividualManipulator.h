#pragma once

#include <toolkit/material/KrMaterialMap.h>
#include <toolkit/system/KrIntraLink.h>
#include <toolkit/system/KrManipulatorLink.h>
#include <toolkit/system/KrPositionState.h>

#include <string>
#include <vector>

/// A kinematic tree of links with its place in the world. It is itself the base link.
///
/// Joint index: every link but the base has one, 0, 1, 2, ... in depth-first pre-order.
class KrIndividualManipulator : public KrXmlObjectOf<KrIndividualManipulator, KrManipulatorLink>
{
public:
    /// Without a name or links.
    KrIndividualManipulator();
    KrIndividualManipulator(const KrIndividualManipulator& other);
    KrIndividualManipulator(KrIndividualManipulator&& other) noexcept;
    KrIndividualManipulator& operator=(const KrIndividualManipulator& other);
    KrIndividualManipulator& operator=(KrIndividualManipulator&& other) noexcept;
    ~KrIndividualManipulator() override;
    explicit KrIndividualManipulator(const std::string& name);

    /// Manipulator frame to world frame. Setters of poses are false, after one message and without a change, for what
    /// is none.
    const KrCoordinateSystemTransformation& placement() const { return m_placement; }
    bool setPlacement(const KrCoordinateSystemTransformation& placement);
    /// DH frame of the base to base link frame: carries the base's shapes.
    const KrCoordinateSystemTransformation& baseDhFrame() const { return m_baseDhFrame; }
    bool setBaseDhFrame(const KrCoordinateSystemTransformation& frame);

    /// Looks of shape groups, by material name.
    const KrMaterialMap& materialMap() const { return m_materialMap; }
    KrMaterialMap& materialMap() { return m_materialMap; }
    /// Further named data; looks of bounding volumes, by material name.
    const KrMaterialMap& dataMaps() const { return m_dataMaps; }
    KrMaterialMap& dataMaps() { return m_dataMaps; }

    /// The bodies between two of its links.
    const KrIntraLinkDescription& intraLinks() const { return m_intraLinks; }
    KrIntraLinkDescription& intraLinks() { return m_intraLinks; }

    /// Links other than the base; one more than the highest joint index. Walks the tree.
    unsigned int numJoints() const;
    /// Links from the base to the one with the most others above it, without the base. Walks the tree.
    unsigned int depth() const;
    /// The links in the order of their joint indices; borrowed until the tree changes.
    std::vector<const KrManipulatorLink*> links() const;
    /// For each joint index the joint index of the parent link, -1 for the base.
    std::vector<int> parents() const;
    /// The joint index of the joint (or, failing that, the link) of that name; -1 when there is none.
    int jointIndex(const std::string& name) const;

    /// A state of this manipulator: base at the identity, every joint at 0 or at the limit nearest to 0, mimics
    /// followed.
    KrPositionState defaultState() const;
    /// Makes mimic joints follow their masters, chains of them too; a circle, an unknown master
    /// or a position that is not finite leaves the joint.
    /// False, after one message, and no change, when `state` has another number of joints.
    bool applyMimics(KrPositionState& state) const;

    /// Link frame to manipulator frame for every joint index.
    /// False, after one message, and no change, when `state` has another number of joints.
    bool linkPoses(const KrPositionState& state, std::vector<KrCoordinateSystemTransformation>& poses) const;

    /// Link frame to manipulator frame of the first link of that name; the empty name and the manipulator's own are the
    /// base. Quick and without allocation: for one link in the frame loop.
    /// False, silently, and no change, when there is no such link or `state` has no position for a joint on the way.
    bool linkPose(const std::string& link, const KrPositionState& state, KrCoordinateSystemTransformation& pose) const;

    KrXmlToken token() const override;
    void registerComponents() override;

private:
    KrCoordinateSystemTransformation m_placement;
    KrCoordinateSystemTransformation m_baseDhFrame;
    KrMaterialMap m_materialMap;
    KrMaterialMap m_dataMaps;
    KrIntraLinkDescription m_intraLinks;
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrIndividualManipulator, KrManipulatorLink>;
extern template class KrXmlObjectOf<KrXmlVectorType<KrIndividualManipulator>, KrXmlObject>;
extern template class KrXmlVectorType<KrIndividualManipulator>;
