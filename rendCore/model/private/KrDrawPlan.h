#pragma once

#include <rendCore/base/private/KrDrawSettings.h>
#include <rendCore/draw/private/KrMeshBatch.h>
#include <rendCore/model/private/KrShapeTable.h>

#include <osg/BoundingSphere>
#include <osg/Matrix>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace osg
{
class Callback;
class Camera;
class Group;
class MatrixTransform;
class Node;
class NodeVisitor;
class StateSet;
} // namespace osg
namespace osgUtil
{
class CullVisitor;
}
class KrRenderLink;
class KrRenderManipulator;

/// How one manipulator is updated and culled without the general traversals, which cost more than what is drawn.
///
/// A list of its links in depth-first pre-order, with what hangs under each. Every frame looks whether the graph is
/// still what the list says, which takes a few comparisons a node; what has changed is taken up anew. Where a
/// manipulator shows more than its links, their meshes and materials above them (a selection, an aid, a client's node,
/// callback or other state set), or lines of shapes that links share, the general traversals have it as a whole: of two
/// surfaces at one depth the one that is drawn first is seen, and the order is the graph's. Handing over only the parts
/// that show more, between two batches, would not keep it: the graph draws what links share for all of them at the
/// place of the first. Poses, the planes near and far, and pixels are those of the general traversals. Scene thread
/// only.
class KrDrawPlan : public KrFrameParticipant, public std::enable_shared_from_this<KrDrawPlan>
{
public:
    KrDrawPlan(KrRenderManipulator& manipulator, const osg::ref_ptr<KrShapeTable>& table);
    ~KrDrawPlan() override;

    /// Calls what the update visitor would call. False, with nothing done, where the tree asks for the visitor itself.
    bool update(osg::NodeVisitor& visitor);
    /// Hands the manipulator, below whose parent the visitor stands, to the view. False, with nothing done, where it is
    /// for the general traversal.
    bool cull(osgUtil::CullVisitor& visitor);

    /// A frame begins by asking the scene for its size, for which all that moved would be measured anew: below the root
    /// of a scene the manipulator says its old one, until it is culled or the frame ends.
    void beginDrawing() override;
    void endDrawing() override;

    const osg::ref_ptr<KrShapeTable>& table() const { return m_table; }
    /// Those of the table, and what was drawn last knows of them.
    void releaseGLObjects(osg::State* state) const;

private:
    enum class Kind
    {
        Link,
        DhFrame,
        Shape,
        Other
    };
    /// Where the meshes of a link are.
    enum class Sight
    {
        Inside,
        Crossing, ///< the border of what is seen
        Outside,
        Unknown
    };
    /// A mesh that a view has not shown yet.
    static constexpr std::uint8_t kNoLevel = 255;

    struct Child
    {
        osg::ref_ptr<osg::Node> node; ///< kept, so that its address means nobody else
        Kind kind = Kind::Other;
        KrShapeTable::Entry* entry = nullptr; ///< of a shape
        unsigned int shapeIndex = 0;          ///< among the link's
    };
    struct Link
    {
        KrRenderLink* node = nullptr;
        osg::MatrixTransform* dhFrame = nullptr; ///< null where it is no plain one
        std::size_t parent = 0;                  ///< its own number for a root
        std::size_t end = 0;                     ///< the number behind the last link below
        std::size_t firstChild = 0;              ///< those of the node, then those of the DH frame
        std::size_t firstDhChild = 0;
        std::size_t endChild = 0;
        const osg::Callback* updateCallback = nullptr;
        unsigned int numUpdating = 0; ///< children that want the update visitor
        osg::BoundingSphere sphere;   ///< around the meshes, DH frame
    };
    /// What one view saw last.
    struct View
    {
        osg::observer_ptr<osg::Camera> camera;
        std::vector<std::uint8_t> levels; ///< of each entry of `m_children`
    };
    struct Frame;

    void keepListed();
    bool isAsListed() const;
    void list();
    void listLink(KrRenderLink& link, std::size_t parent);
    void listChildren(osg::Group& group, Link& link);
    bool canUpdate(const osg::NodeVisitor& visitor) const;
    View& viewOf(osg::Camera& camera);
    void cullLink(std::size_t number, Frame& frame);
    bool isDirect(const osg::NodeVisitor& visitor, bool isFilled);
    Sight see(const osg::BoundingSphere& sphere, const osg::Matrixd& modelView, Frame& frame) const;
    void cullShape(std::size_t place, const osg::Matrixd& modelView, bool isCrossing, Frame& frame);
    void cullByGraph(std::size_t place, const osg::Matrixd& modelView, const Frame& frame);
    std::size_t levelOf(std::size_t place, const KrMeshArena::Mesh& mesh, const Frame& frame) const;
    std::uint32_t labelOf(const Child& shape, const Frame& frame) const;
    KrMeshBatch& batch(Frame& frame);
    osg::RefMatrix* kept(const osg::Matrixd& matrix);

    KrRenderManipulator& m_manipulator;
    osg::ref_ptr<KrShapeTable> m_table;
    unsigned int m_listed = 0;  ///< the table's generation when the list was made; 0 for never
    std::vector<Child> m_roots; ///< of the manipulator
    std::vector<Link> m_links;
    std::vector<Child> m_children;
    osg::Matrixd m_modelView;                  ///< of the manipulator, in the frame and view at hand
    std::vector<osg::Matrixd> m_modelViews;    ///< of each link, in the frame and view at hand
    std::vector<const osg::StateSet*> m_looks; ///< the material that counts below each link node; null for none
    std::vector<osg::ref_ptr<KrMeshBatch>> m_batches;
    std::size_t m_lastBatch = 0; ///< that was taken
    std::vector<osg::ref_ptr<osg::RefMatrix>> m_matrices;
    std::size_t m_lastMatrix = 0;
    std::vector<osg::Node*> m_path; ///< to what is handed over
    std::vector<View> m_views;
    std::size_t m_lastView = 0;
};
