#pragma once

#include <rendCore/model/KrRenderLink.h>

#include <toolkit/system/KrManipulatorActiveState.h>

#include <osg/Group>

#include <cstddef>
#include <vector>

/// The base link node of a manipulator with intra-links: it places those, too.
///
/// Each intra-link is a transform under the manipulator node, beside this one; its matrix is the intra-link frame in
/// the manipulator frame. One without anything to draw costs one message, and has no node.
class KrRenderIntraLink : public KrRenderLink
{
public:
    /// @param manipulator  borrowed for the node's life
    /// @param group        gets the intra-link nodes as children; may be null, and may be under construction still
    KrRenderIntraLink(const KrIndividualManipulator& manipulator, unsigned int manIndex, osg::Group* group);

    using KrRenderLink::updateState;
    void updateState(const KrManipulatorSystemState* state) override;

    /// Which of the intra-links a node places; their number for another node.
    std::size_t indexOf(const osg::Node& node) const;

    /// Checks this object, and draws and judges in windows of its own, see KrSelfTest. False, after one message, when
    /// something is wrong.
    bool selfTest() const;

protected:
    ~KrRenderIntraLink() override;

private:
    const KrIndividualManipulator* m_manipulator;
    /// One for each intra-link; null where the intra-link has nothing to draw.
    std::vector<osg::ref_ptr<osg::MatrixTransform>> m_intraLinks;
    KrManipulatorActiveState m_activeState; ///< kept, so that a new state reuses its storage
};
