#pragma once

#include <rendCore/model/KrRenderShape.h>

#include <toolkit/material/KrMaterialMap.h>
#include <toolkit/system/KrIndividualManipulator.h>
#include <toolkit/system/KrManipulatorSystemState.h>
#include <toolkit/system/KrShapeStateCacheKey.h>

#include <osg/MatrixTransform>
#include <osg/NodeCallback>
#include <osg/Referenced>
#include <osg/ref_ptr>

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>

/// Carries the state of a system on an update visitor.
class StateData : public osg::Referenced
{
public:
    /// Borrowed: outlives every traversal it is attached to. Null: nothing moves.
    const KrManipulatorSystemState* state = nullptr;

protected:
    ~StateData() override = default;
};

/// Update callback of link nodes: poses the link from the state that the visitor carries, then traverses.
class MatrixUpdateCallback : public osg::NodeCallback
{
public:
    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override;

protected:
    ~MatrixUpdateCallback() override = default;
};

/// The scene node of one link: its matrix is the link frame in the parent link frame for the last state.
///
/// A second, fixed transform under it, the DH frame node, carries the link's shapes; child links hang directly under
/// the link node. Visitors recognise link nodes by a dynamic cast. Scene thread only.
class KrRenderLink : public osg::MatrixTransform
{
public:
    /// Shapes by (joint index, shape index).
    using ShapeMap = std::map<std::pair<unsigned int, unsigned int>, osg::ref_ptr<KrRenderShape>>;

    /// The joint index of a base link node.
    static constexpr unsigned int kBaseJointIndex = KrShapeStateCacheKey::kBaseLink;

    /// An ordinary link.
    /// @param link         borrowed for the node's life
    /// @param jointIndex   number of the link in depth-first pre-order
    /// @param materialMap  read during the call only
    KrRenderLink(const KrManipulatorLink& link, unsigned int manIndex, unsigned int jointIndex,
                 const KrMaterialMap& materialMap);
    /// The base link of a manipulator, which is borrowed for the node's life.
    KrRenderLink(const KrIndividualManipulator& manipulator, unsigned int manIndex);

    // The order of the virtual operations is part of the interface.
    /// The shapes of this link and of all links below it; a shape that several links share stands under its first one.
    virtual const ShapeMap& getMap() const;
    virtual const KrManipulatorLink* getLink() const;
    virtual osg::ref_ptr<osg::MatrixTransform> getDhFrame() const;
    /// Poses the node. Null, and a state that has no entry for this link, leave the matrix as it is.
    virtual void updateState(const KrManipulatorSystemState* state);
    /// Merges the child's complete map into this one (entries already here stay) and hangs the child under this node.
    /// False for null.
    virtual bool addChildLink(KrRenderLink* child);
    /// Builds the shapes of `link` under the DH frame node, sharing those that another link already draws.
    virtual void addLinkGeometry(const KrManipulatorLink& link, const KrMaterialMap& materialMap);

    /// Where the link's joint stands in a position state, and which manipulator of the system it belongs to.
    unsigned int getJointIndex() const { return m_jointIndex; }
    unsigned int getManIndex() const { return m_manIndex; }
    /// Which of the link's shapes a node under the DH frame draws; the link's number of shapes for another node.
    unsigned int shapeIndexOf(const KrRenderShape& shape) const;

    /// Makes `visitor` carry `state`, which is borrowed until another one is attached.
    /// False for null and for a visitor that carries something else already.
    static bool updateState(osg::NodeVisitor* visitor, const KrManipulatorSystemState* state);

    /// Draws what else hangs under a link (a volume, an ellipsoid) sorted by depth if that link is the base.
    static void sortIfUnderBase(osg::Node& aid, unsigned int jointIndex);

    /// Checks this object, and draws and judges in windows of its own, see KrSelfTest. False, after one message, when
    /// something is wrong.
    bool selfTest() const;

protected:
    ~KrRenderLink() override;

    /// Sets the matrix of `node`; nothing where it is the same already, bit for bit.
    static void setPose(osg::MatrixTransform& node, const KrCoordinateSystemTransformation& pose);
    /// The position state of this node's manipulator; null when `state` has none.
    const KrPositionState* positionState(const KrManipulatorSystemState& state) const;

private:
    enum class Kind : std::uint32_t
    {
        Base = 0,
        Ordinary = 1
    };

    class Shapes;

    /// Those of this link, to be added to.
    Shapes& ownShapes();
    void createDhFrame(const std::string& name, const KrCoordinateSystemTransformation& pose);
    void addShape(KrRenderShape* shape, const std::string& linkName, unsigned int shapeIndex);

    const KrManipulatorLink* m_link;
    Kind m_kind;
    unsigned int m_manIndex;
    unsigned int m_jointIndex;
    osg::ref_ptr<osg::MatrixTransform> m_dhFrame;
    /// The shapes that the map holds. They refer to those of the links below instead of repeating them: a chain's maps
    /// would grow with the square of its length.
    osg::ref_ptr<Shapes> m_shapes;
    /// What the nodes under the DH frame draw; the nodes are those that were added.
    std::unordered_map<const KrRenderShape*, unsigned int> m_shapeIndices;
    mutable ShapeMap m_map; ///< made when it is asked for first
    mutable bool m_isMapMade = false;
};
