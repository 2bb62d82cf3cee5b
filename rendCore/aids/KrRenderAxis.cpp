#include <rendCore/aids/KrRenderAxis.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderManipulator.h>

#include <osg/Array>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LineWidth>
#include <osg/NodeVisitor>
#include <osg/StateSet>

#include <mutex>

namespace
{

/// Windows of several threads share the triad. Within a frame it is only read, so it is complete, its bound included,
/// before it is given out.
std::mutex s_axisMutex;

// Kept: in single precision, so that who reads the triad's matrix finds 0.20000000298 before `scaleAxis`.
constexpr float kDefaultScale = 0.2f;
constexpr double kManipulatorScale = 2.0;
constexpr float kLineWidthPixels = 3.0f;

osg::ref_ptr<osg::Geometry> makeAxisLines()
{
    const osg::Vec3 origin(0.0f, 0.0f, 0.0f);
    // Of length 1: the matrix above the geode is the length in metres.
    const osg::Vec3 tips[3] = {{1.0f, 0.0f, 0.0f}, {0.0f, 1.0f, 0.0f}, {0.0f, 0.0f, 1.0f}};
    const osg::Vec4 lineColors[3] = {{1.0f, 0.0f, 0.0f, 1.0f}, {0.0f, 1.0f, 0.0f, 1.0f}, {0.0f, 0.0f, 1.0f, 1.0f}};

    const osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    const osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array;
    for (int axis = 0; axis < 3; ++axis) {
        vertices->push_back(origin);
        vertices->push_back(tips[axis]);
        // One colour a line; the scene graph knows colours per vertex only.
        colors->push_back(lineColors[axis]);
        colors->push_back(lineColors[axis]);
    }
    const osg::ref_ptr<osg::Geometry> lines = new osg::Geometry;
    lines->setVertexArray(vertices);
    lines->addPrimitiveSet(new osg::DrawArrays(GL_LINES, 0, 6));
    lines->setColorArray(colors);
    lines->setColorBinding(osg::Geometry::BIND_PER_VERTEX);
    return lines;
}

// The one node of all triads, with the mask that shows and hides them together.
osg::ref_ptr<osg::MatrixTransform> makeAxis()
{
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->setName("Axis");
    geode->addDrawable(makeAxisLines());
    osg::StateSet* const stateSet = geode->getOrCreateStateSet();
    stateSet->setAttributeAndModes(new osg::LineWidth(kLineWidthPixels), osg::StateAttribute::ON);
    // Lines without normals are lit as if they looked along z: the axes of a link turned away would be dark.
    stateSet->setMode(GL_LIGHTING, osg::StateAttribute::OFF);

    const osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform;
    transform->setName("Axis");
    // Hidden by the mask alone: the axes hang in every scene, and the display mask decides.
    transform->setNodeMask(KrRenderTypes::LinkAxes);
    transform->setMatrix(osg::Matrixd::scale(kDefaultScale, kDefaultScale, kDefaultScale));
    transform->addChild(geode);
    return transform;
}

/// By identity: the triad is one node, and a second pass over a scene adds nothing.
void addOnce(osg::Group& parent, osg::Node* child)
{
    if (!parent.containsNode(child)) {
        parent.addChild(child);
    }
}

/// Hangs the triad under every link and, twice as long, under every manipulator that it meets.
class LinkAxisVisitor : public osg::NodeVisitor
{
public:
    LinkAxisVisitor()
        : osg::NodeVisitor(osg::NodeVisitor::UPDATE_VISITOR, osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
    {
    }

    using osg::NodeVisitor::apply;
    void apply(osg::MatrixTransform& node) override
    {
        if (auto* const link = dynamic_cast<KrRenderLink*>(&node)) {
            addTo(*link);
        } else if (dynamic_cast<KrRenderManipulator*>(&node) != nullptr) {
            // Kept: without a look whether an earlier pass has added one already; each `init` adds a triad that clients
            // find among the children. The window calls it once for its new nodes.
            const osg::ref_ptr<osg::MatrixTransform> larger =
                new osg::MatrixTransform(osg::Matrixd::scale(kManipulatorScale, kManipulatorScale, kManipulatorScale));
            larger->addChild(KrRenderAxis::linkAxis(false));
            node.addChild(larger);
        }
        // Links hang below links and manipulators: the walk goes on whatever was added.
        traverse(node);
    }

private:
    static void addTo(KrRenderLink& link)
    {
        const osg::ref_ptr<osg::Node> axis = KrRenderAxis::linkAxis(false);
        // Two frames of a link are shown: the joint's, which its node is, and the DH frame,
        // which its shapes hang under.
        addOnce(link, axis);
        const osg::ref_ptr<osg::MatrixTransform> dhFrame = link.getDhFrame();
        if (dhFrame) {
            addOnce(*dhFrame, axis);
        }
    }
};

} // namespace

osg::ref_ptr<osg::MatrixTransform> KrRenderAxis::m_theLinkAxis;

osg::ref_ptr<osg::Node> KrRenderAxis::linkAxis(bool geodeOnly)
{
    const std::lock_guard<std::mutex> lock(s_axisMutex);
    if (!m_theLinkAxis) {
        m_theLinkAxis = makeAxis();
        m_theLinkAxis->getBound();
    }
    if (geodeOnly) {
        return m_theLinkAxis->getChild(0);
    }
    return m_theLinkAxis;
}

void KrRenderAxis::scaleAxis(double scale)
{
    // Makes the triad where it is not there yet; it locks for itself, and so it comes before the lock below.
    linkAxis(false);
    const osg::Matrixd matrix = osg::Matrixd::scale(scale, scale, scale);
    const std::lock_guard<std::mutex> lock(s_axisMutex);
    // Every window sets its scale: the same one again must not disturb what other threads are drawing.
    if (m_theLinkAxis->getMatrix() != matrix) {
        m_theLinkAxis->setMatrix(matrix);
        m_theLinkAxis->dirtyBound();
        m_theLinkAxis->getBound();
    }
}

void KrRenderAxis::init(osg::Node* root)
{
    if (root == nullptr) {
        return;
    }
    LinkAxisVisitor visitor;
    root->accept(visitor);
}
