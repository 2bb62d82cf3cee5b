#include <rendCore/model/KrRenderManipulator.h>

#include <rendCore/model/KrRenderIntraLink.h>
#include <rendCore/model/private/KrDrawPlan.h>
#include <rendCore/model/private/KrPartNumbers.h>

#include <toolkit/foundation/KrString.h>

#include <osg/Camera>
#include <osg/LightSource>
#include <osgUtil/CullVisitor>

#include <algorithm>
#include <typeinfo>
#include <vector>

namespace
{

/// Whether the node is the root of a window's scene, which is drawn wherever its bound lies.
bool isRoot(const osg::Node* node)
{
    const osg::Node::ParentList& above = node->getParents();
    return typeid(*node) == typeid(osg::LightSource) &&
           std::all_of(above.begin(), above.end(), [](const osg::Group* group) {
               const osg::Camera* const camera = group->asCamera();
               return camera != nullptr && camera->getView() != nullptr;
           });
}

} // namespace

KrRenderManipulator::KrRenderManipulator(const KrIndividualManipulator& manipulator, unsigned int manIndex)
    : m_manIndex(manIndex)
    , m_manipulator(&manipulator)
    , m_numbers(std::make_unique<KrPartNumbers>())
{
    osg::Matrixd manipulatorToWorld;
    // Set here and never again: what moves is the base link below, by its position state.
    manipulator.placement().assign16(manipulatorToWorld.ptr());
    setMatrix(manipulatorToWorld);
    setName("Base " + KrINT2STRING(manIndex, 10));

    osg::ref_ptr<KrRenderLink> base;
    if (manipulator.intraLinks().count() == 0) {
        base = new KrRenderLink(manipulator, manIndex);
    } else {
        // It hangs its bodies under this node, so that they come before the base in the list of children.
        base = new KrRenderIntraLink(manipulator, manIndex, this);
    }
    addChild(base);
    // Named with its class: an override of a subclass cannot run before its constructor has.
    KrRenderManipulator::processChildren(base);
    // A copy, after the whole tree stands: the base's map has the shapes of every link by then.
    m_map = base->getMap();
}

KrRenderManipulator::~KrRenderManipulator() = default;

void KrRenderManipulator::updateDeformation(unsigned int jointIndex, unsigned int shapeIndex, const KrShape* shape)
{
    KrRenderShape* drawn = renderShape(jointIndex, shapeIndex);
    KrBasePhysicalExtent* extent = shape == nullptr ? nullptr : shape->mutablePhysicalExtent();
    if (drawn == nullptr || extent == nullptr) {
        return;
    }
    // Kept: the shape follows before the extent is recomputed, so that an override of `update` finds the changed flag
    // still set. The library's own shapes do not ask for it.
    drawn->update(extent);
    // Kept: the flag is asked after the shape has followed, so that what `update` changes is recomputed, too, and is
    // taken down here, so that one change is recomputed once.
    if (extent->isChanged()) {
        extent->recompute();
        extent->setChanged(false);
    }
}

void KrRenderManipulator::updateTransparency(unsigned int jointIndex, unsigned int shapeIndex, const KrShape* shape,
                                             float alpha)
{
    KrRenderShape* drawn = renderShape(jointIndex, shapeIndex);
    // Kept: silent. Keys come from the system's list, which may name shapes that are not drawn.
    if (drawn != nullptr && shape != nullptr && shape->physicalExtent() != nullptr) {
        drawn->updateAlpha(alpha);
    }
}

const KrRenderManipulator::ShapeMap& KrRenderManipulator::getMap() const
{
    return m_map;
}

const KrIndividualManipulator* KrRenderManipulator::getManipulator() const
{
    return m_manipulator;
}

void KrRenderManipulator::setShapeTable(const osg::ref_ptr<KrShapeTable>& table)
{
    m_plan = std::make_shared<KrDrawPlan>(*this, table);
}

void KrRenderManipulator::setNumbers(const KrPartNumbers& numbers)
{
    *m_numbers = numbers;
}

void KrRenderManipulator::keepBound()
{
    // Groups of a client's are culled by their bounds, which would follow from the kept one.
    const bool isBelowRoot = std::all_of(_parents.begin(), _parents.end(), isRoot);
    if (!_boundingSphereComputed && isBelowRoot) {
        _boundingSphereComputed = true;
        m_isBoundKept = true;
    }
}

void KrRenderManipulator::renewBound()
{
    if (m_isBoundKept) {
        m_isBoundKept = false;
        dirtyBound();
    }
}

void KrRenderManipulator::accept(osg::NodeVisitor& visitor)
{
    // Whoever else comes by meets the graph as it stands.
    osgUtil::CullVisitor* const cull = m_plan ? visitor.asCullVisitor() : nullptr;
    if (cull != nullptr && visitor.validNodeMask(*this)) {
        // The scene's size has been asked for. Who asks from now on, the general traversal or a client's draw callback,
        // is told the truth.
        renewBound();
        if (m_plan->cull(*cull)) {
            return;
        }
    }
    osg::MatrixTransform::accept(visitor);
}

void KrRenderManipulator::traverse(osg::NodeVisitor& visitor)
{
    if (!m_plan || visitor.getVisitorType() != osg::NodeVisitor::UPDATE_VISITOR || !m_plan->update(visitor)) {
        osg::MatrixTransform::traverse(visitor);
    }
}

void KrRenderManipulator::resizeGLObjectBuffers(unsigned int maxSize)
{
    osg::MatrixTransform::resizeGLObjectBuffers(maxSize);
    if (m_plan) {
        m_plan->table()->resizeGLObjectBuffers(maxSize);
    }
}

void KrRenderManipulator::releaseGLObjects(osg::State* state) const
{
    osg::MatrixTransform::releaseGLObjects(state);
    if (m_plan) {
        m_plan->releaseGLObjects(state);
    }
}

void KrRenderManipulator::processChildren(KrRenderLink* parent)
{
    if (parent == nullptr) {
        return;
    }
    if (typeid(*this) != typeid(KrRenderManipulator)) {
        // Kept: by recursion, so that a subclass's override is asked for every link.
        for (const KrManipulatorLink& link : parent->getLink()->childLinks()) {
            const osg::ref_ptr<KrRenderLink> child = makeLink(link);
            processChildren(child);
            parent->addChildLink(child);
        }
        return;
    }
    // Without recursion, in the order of depth-first recursion: joint numbers are handed out as links are made.
    struct Place
    {
        KrRenderLink* node;
        unsigned int next;
        osg::ref_ptr<KrRenderLink> made; ///< null for `parent`, which is not ours
    };
    std::vector<Place> open = {{parent, 0, nullptr}};
    while (!open.empty()) {
        Place& top = open.back();
        // In the order of the toolkit's list, which is that of joint positions.
        const KrXmlVectorType<KrManipulatorLink>& links = top.node->getLink()->childLinks();
        if (top.next < links.size()) {
            const osg::ref_ptr<KrRenderLink> child = makeLink(links[top.next++]);
            open.push_back({child, 0, child});
            continue;
        }
        // The subtree comes first: the child's map is complete when the parent takes it over.
        const osg::ref_ptr<KrRenderLink> child = top.made;
        open.pop_back();
        if (child) {
            open.back().node->addChildLink(child);
        }
    }
}

osg::ref_ptr<KrRenderLink> KrRenderManipulator::makeLink(const KrManipulatorLink& link)
{
    // The count of links so far is the joint number of the next.
    return new KrRenderLink(link, m_manIndex, m_numTotalLinks++, m_manipulator->materialMap());
}

KrRenderShape* KrRenderManipulator::renderShape(unsigned int jointIndex, unsigned int shapeIndex) const
{
    // By the keys of the system's selection: joint and shape number.
    const auto found = m_map.find({jointIndex, shapeIndex});
    return found == m_map.end() ? nullptr : found->second.get();
}
