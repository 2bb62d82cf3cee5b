#include <rendCore/model/KrRenderLink.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/plume/KrRenderGridPhysicalExtent.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/KrString.h>
#include <toolkit/grid/KrGridPhysicalExtent.h>

#include <osg/CopyOp>
#include <osg/NodeVisitor>
#include <osg/StateSet>

#include <boost/shared_ptr.hpp>

#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

namespace
{

/// The shape that draws `extent` already, if one is alive.
osg::ref_ptr<KrRenderShape> livingShape(const KrBasePhysicalExtent& extent)
{
    // The handle's pointer owns nothing: it is turned into a counted reference before anything else happens.
    const boost::shared_ptr<KrRenderShape> observed = extent.renderShape().lock();
    return osg::ref_ptr<KrRenderShape>(observed.get());
}

/// A shape that draws the field; null when it cannot be drawn.
osg::ref_ptr<KrRenderShape> makeGridShape(const KrGridPhysicalExtent& grid)
{
    const osg::ref_ptr<osg::Geode> geode = KrRenderGridPhysicalExtent::init(&grid);
    if (!geode) {
        return nullptr;
    }
    // Only here: a node that an application puts into a scene of its own is ordered as the application wants.
    KrRenderGridPhysicalExtent::drawAfterSolids(*geode);
    // A shallow copy: the drawables, and with them textures and callbacks, are the field's own.
    osg::ref_ptr<KrRenderShape> shape = new KrRenderShape(*geode, osg::CopyOp());
    shape->setVolume();
    return shape;
}

} // namespace

/// What was put into a shape map, in order: shapes, and other maps as they were.
///
/// What another one refers to never changes any more: its owner goes on with a copy.
class KrRenderLink::Shapes : public osg::Referenced
{
public:
    Shapes() = default;
    Shapes(const Shapes& other)
        : osg::Referenced()
        , m_entries(other.m_entries)
    {
    }

    // A map of a whole subtree at every link would take time and memory by depth squared: it is
    // made when it is asked for.
    void add(const ShapeMap::key_type& key, KrRenderShape* shape) { m_entries.push_back({key, shape, nullptr}); }
    void add(const Shapes& others) { m_entries.push_back({{}, nullptr, &others}); }
    /// Entries that `map` has already stay.
    void putInto(ShapeMap& map) const;

protected:
    ~Shapes() override;

private:
    struct Entry
    {
        ShapeMap::key_type key;
        osg::ref_ptr<KrRenderShape> shape;
        osg::ref_ptr<const Shapes> others;
    };
    std::vector<Entry> m_entries;
};

void KrRenderLink::Shapes::putInto(ShapeMap& map) const
{
    // A list of its own in place of recursion: it takes no stack for maps inside one another.
    struct Place
    {
        const Shapes* shapes;
        std::size_t next;
    };
    std::vector<Place> open = {{this, 0}};
    while (!open.empty()) {
        Place& top = open.back();
        if (top.next == top.shapes->m_entries.size()) {
            open.pop_back();
            continue;
        }
        const Entry& entry = top.shapes->m_entries[top.next++];
        if (entry.others) {
            open.push_back({entry.others.get(), 0});
        } else {
            // Kept: an entry that is there stays, so that a key of selection or deformation goes on to mean one shape.
            map.insert({entry.key, entry.shape});
        }
    }
}

/// Those that only this one refers to go one after the other, not one inside the other.
KrRenderLink::Shapes::~Shapes()
{
    std::vector<Entry> open = std::move(m_entries);
    while (!open.empty()) {
        const Entry entry = std::move(open.back());
        open.pop_back();
        if (entry.others && entry.others->referenceCount() == 1) {
            // Nobody else refers to it, so that nobody sees it change.
            std::vector<Entry>& below = const_cast<Shapes&>(*entry.others).m_entries;
            std::move(below.begin(), below.end(), std::back_inserter(open));
            below.clear();
        }
    }
}

void MatrixUpdateCallback::operator()(osg::Node* node, osg::NodeVisitor* visitor)
{
    auto* link = dynamic_cast<KrRenderLink*>(node);
    // Only a visitor that KrRenderLink::updateState has prepared carries a state; others pass by.
    auto* data = visitor == nullptr ? nullptr : dynamic_cast<StateData*>(visitor->getUserData());
    if (link != nullptr && data != nullptr) {
        // Through the virtual table: an intra-link node places its bodies, too.
        link->updateState(data->state);
    }
    // In every case: other callbacks and the links below want the visitor, too.
    traverse(node, visitor);
}

KrRenderLink::KrRenderLink(const KrManipulatorLink& link, unsigned int manIndex, unsigned int jointIndex,
                           const KrMaterialMap& materialMap)
    : m_link(&link)
    , m_kind(Kind::Ordinary)
    , m_manIndex(manIndex)
    , m_jointIndex(jointIndex)
    , m_shapes(new Shapes)
{
    const std::string manipulator = "Man " + KrINT2STRING(manIndex, 10);
    const std::string joint = KrINT2STRING(jointIndex, 10);
    // Kept, as all names of nodes: clients look nodes up by them.
    setName(manipulator + ":Link " + joint);
    createDhFrame(manipulator + ":DHLink " + joint, link.jointKinematics().dhFrame());
    // Named with its class: no override of a subclass runs in a constructor, and this says so.
    KrRenderLink::addLinkGeometry(link, materialMap);
}

KrRenderLink::KrRenderLink(const KrIndividualManipulator& manipulator, unsigned int manIndex)
    : m_link(&manipulator)
    , m_kind(Kind::Base)
    , m_manIndex(manIndex)
    , m_jointIndex(kBaseJointIndex)
    , m_shapes(new Shapes)
{
    setName("Man Base " + KrINT2STRING(manIndex, 10));
    // The frame under which the shapes hang; it never changes, while the link's own matrix follows the joint.
    createDhFrame("Man DH " + KrINT2STRING(manIndex, 10), manipulator.baseDhFrame());
    KrRenderLink::addLinkGeometry(manipulator, manipulator.materialMap());
}

/// Takes the links from under each other first: a group's own way goes down to the deepest of them.
KrRenderLink::~KrRenderLink()
{
    std::vector<osg::ref_ptr<osg::Node>> open;
    const auto take = [&open](osg::Group& group) {
        for (unsigned int i = 0; i < group.getNumChildren(); ++i) {
            open.emplace_back(group.getChild(i));
        }
        // Held by `open` from here on.
        group.removeChildren(0, group.getNumChildren());
    };
    take(*this);
    while (!open.empty()) {
        const osg::ref_ptr<osg::Node> node = std::move(open.back());
        open.pop_back();
        // One reference is the one here: whatever else holds a link keeps its children with it.
        auto* const link = node->referenceCount() == 1 ? dynamic_cast<KrRenderLink*>(node.get()) : nullptr;
        if (link != nullptr) {
            take(*link);
        }
    }
}

const KrRenderLink::ShapeMap& KrRenderLink::getMap() const
{
    // The map is const to callers only: it is a form of what is there already.
    if (!m_isMapMade) {
        m_shapes->putInto(m_map);
        m_isMapMade = true;
    }
    return m_map;
}

const KrManipulatorLink* KrRenderLink::getLink() const
{
    return m_link;
}

osg::ref_ptr<osg::MatrixTransform> KrRenderLink::getDhFrame() const
{
    return m_dhFrame;
}

void KrRenderLink::sortIfUnderBase(osg::Node& aid, unsigned int jointIndex)
{
    constexpr int kSortedBin = 11;
    // Kept: the aids of no other link are sorted. In bin 11 the base's are drawn after all that is translucent (10).
    if (jointIndex == kBaseJointIndex) {
        aid.getOrCreateStateSet()->setRenderBinDetails(kSortedBin, "DepthSortedBin",
                                                       osg::StateSet::USE_RENDERBIN_DETAILS);
    }
}

void KrRenderLink::updateState(const KrManipulatorSystemState* state)
{
    const KrPositionState* position = state == nullptr ? nullptr : positionState(*state);
    if (position == nullptr) {
        return;
    }
    // The base has no joint: its place is the state's.
    if (m_kind == Kind::Base) {
        setPose(*this, position->baseTransformation());
        return;
    }
    // A state with fewer joints than the robot leaves the others where they are: it may come
    // from a client at any time.
    if (m_jointIndex >= position->jointPositions().size()) {
        return;
    }
    KrCoordinateSystemTransformation linkToParent;
    m_link->jointKinematics().linkTransformation(position->jointPositions()[m_jointIndex], linkToParent);
    setPose(*this, linkToParent);
}

bool KrRenderLink::addChildLink(KrRenderLink* child)
{
    if (child == nullptr) {
        return false;
    }
    // Kept: the child's shapes as they are now; what is added below it later is in no map above. A manipulator's map is
    // whole because a child is attached when its subtree is complete.
    ownShapes().add(*child->m_shapes);
    if (m_isMapMade) {
        child->m_shapes->putInto(m_map);
    }
    // Under the link and not under its DH frame: a joint's pose is given in the parent link's frame.
    return addChild(child);
}

void KrRenderLink::addLinkGeometry(const KrManipulatorLink& link, const KrMaterialMap& materialMap)
{
    // Kept: a new one at each call, in place of the one before, so that a traversal poses the link once.
    setUpdateCallback(new MatrixUpdateCallback);
    // Kept: not cleared from one shape to the next, so that a shape without an extent shows the one before it again.
    osg::ref_ptr<KrRenderShape> working;
    for (unsigned int i = 0; i < link.numShapes(); ++i) {
        const KrShape* shape = link.shape(i);
        if (shape == nullptr) {
            // Kept: the message names another operation, for those who look for it by this text. The link's later
            // shapes are not looked at, so that they have neither node nor key.
            Kr::Print::instance()->write(Kr::Print::Error, "KrRenderLink::render() Shape %d missing from joint (%s).\n",
                                         static_cast<int>(i), link.name().c_str());
            return;
        }
        const KrBasePhysicalExtent* extent = shape->physicalExtent();
        if (const auto* grid = dynamic_cast<const KrGridPhysicalExtent*>(extent)) {
            // Kept: a field that cannot be drawn leaves the working shape as it is; one before it is shown again.
            if (const osg::ref_ptr<KrRenderShape> gridShape = makeGridShape(*grid)) {
                working = gridShape;
            }
        } else if (extent != nullptr) {
            if (const osg::ref_ptr<KrRenderShape> shared = livingShape(*extent)) {
                // Kept: neither a new name nor a map entry; selection finds it by its first owner's key alone.
                shared->setNodeMask(KrRenderTypes::SceneContent);
                m_dhFrame->addChild(shared);
                m_shapeIndices.emplace(shared.get(), i);
                continue;
            }
            working = KrRenderShape::newKrRenderShape(link, extent, materialMap);
        }
        if (!working) {
            Kr::Print::instance()->write(Kr::Print::Warning,
                                         "KrRenderLink - unable to add geometry for link %s (%d), shape %d.\n",
                                         link.name().c_str(), static_cast<int>(m_jointIndex), static_cast<int>(i));
            continue;
        }
        addShape(working, link.name(), i);
        if (extent != nullptr) {
            // Another link of the same extent finds it there; the handle observes, and the scene owns.
            extent->setRenderShape(working->getSharedPtr());
        }
    }
}

bool KrRenderLink::updateState(osg::NodeVisitor* visitor, const KrManipulatorSystemState* state)
{
    if (visitor == nullptr) {
        return false;
    }
    // User data of another kind belong to somebody: they stay, and false says that no state goes with this visitor.
    if (visitor->getUserData() == nullptr) {
        visitor->setUserData(new StateData);
    }
    auto* data = dynamic_cast<StateData*>(visitor->getUserData());
    if (data == nullptr) {
        return false;
    }
    // Borrowed: the state outlives the traversal that it is attached for.
    data->state = state;
    return true;
}

unsigned int KrRenderLink::shapeIndexOf(const KrRenderShape& shape) const
{
    // The node of one that is shown again stands there twice: it is the first.
    const auto known = m_shapeIndices.find(&shape);
    return known != m_shapeIndices.end() ? known->second : m_link->numShapes();
}

void KrRenderLink::setPose(osg::MatrixTransform& node, const KrCoordinateSystemTransformation& pose)
{
    osg::Matrixd matrix;
    pose.assign16(matrix.ptr());
    // Most links of a robot stand still from one frame to the next, and setting a matrix makes every bound above it
    // stale. Bitwise, because the matrix's own comparison takes NaN for equal to anything.
    if (std::memcmp(matrix.ptr(), node.getMatrix().ptr(), 16 * sizeof(double)) != 0) {
        node.setMatrix(matrix);
    }
}

const KrPositionState* KrRenderLink::positionState(const KrManipulatorSystemState& state) const
{
    // A state may have fewer manipulators than the scene: those without a position state stay where they are.
    const KrXmlVectorType<KrPositionState>& positions = state.positionStates();
    return m_manIndex < positions.size() ? &positions[m_manIndex] : nullptr;
}

void KrRenderLink::createDhFrame(const std::string& name, const KrCoordinateSystemTransformation& pose)
{
    m_dhFrame = new osg::MatrixTransform;
    m_dhFrame->setName(name);
    setPose(*m_dhFrame, pose);
    addChild(m_dhFrame);
}

void KrRenderLink::addShape(KrRenderShape* shape, const std::string& linkName, unsigned int shapeIndex)
{
    shape->setNodeMask(KrRenderTypes::SceneContent);
    // Kept: the name is of the toolkit's link and not of this node; clients and messages name the shape by it.
    shape->setName(linkName + " - " + KrINT2STRING(shapeIndex, 10));
    m_dhFrame->addChild(shape);
    m_shapeIndices.emplace(shape, shapeIndex);
    ownShapes().add({m_jointIndex, shapeIndex}, shape);
    if (m_isMapMade) {
        m_map.insert({{m_jointIndex, shapeIndex}, shape});
    }
}

KrRenderLink::Shapes& KrRenderLink::ownShapes()
{
    // A parent that took these over sees them as they were: what is added now goes into a copy.
    if (m_shapes->referenceCount() > 1) {
        m_shapes = new Shapes(*m_shapes);
    }
    return *m_shapes;
}
