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
    KrRenderGridPhysicalExtent::drawAfterSolids(*geode);
    return new KrRenderShape(*geode, osg::CopyOp());
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
            std::vector<Entry>& below = const_cast<Shapes&>(*entry.others).m_entries;
            std::move(below.begin(), below.end(), std::back_inserter(open));
            below.clear();
        }
    }
}

void MatrixUpdateCallback::operator()(osg::Node* node, osg::NodeVisitor* visitor)
{
    auto* link = dynamic_cast<KrRenderLink*>(node);
    auto* data = visitor == nullptr ? nullptr : dynamic_cast<StateData*>(visitor->getUserData());
    if (link != nullptr && data != nullptr) {
        link->updateState(data->state);
    }
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
    setName(manipulator + ":Link " + joint);
    createDhFrame(manipulator + ":DHLink " + joint, link.jointKinematics().dhFrame());
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
        group.removeChildren(0, group.getNumChildren());
    };
    take(*this);
    while (!open.empty()) {
        const osg::ref_ptr<osg::Node> node = std::move(open.back());
        open.pop_back();
        auto* const link = node->referenceCount() == 1 ? dynamic_cast<KrRenderLink*>(node.get()) : nullptr;
        if (link != nullptr) {
            take(*link);
        }
    }
}

const KrRenderLink::ShapeMap& KrRenderLink::getMap() const
{
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
    // Kept: the aids of no other link are sorted.
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
    if (m_kind == Kind::Base) {
        setPose(*this, position->baseTransformation());
        return;
    }
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
    ownShapes().add(*child->m_shapes);
    if (m_isMapMade) {
        child->m_shapes->putInto(m_map);
    }
    return addChild(child);
}

void KrRenderLink::addLinkGeometry(const KrManipulatorLink& link, const KrMaterialMap& materialMap)
{
    setUpdateCallback(new MatrixUpdateCallback);
    // Kept: not cleared from one shape to the next, so that a shape without an extent shows the one before it again.
    osg::ref_ptr<KrRenderShape> working;
    for (unsigned int i = 0; i < link.numShapes(); ++i) {
        const KrShape* shape = link.shape(i);
        if (shape == nullptr) {
            Kr::Print::instance()->write(Kr::Print::Error, "KrRenderLink::render() Shape %d missing from joint (%s).\n",
                                         static_cast<int>(i), link.name().c_str());
            return;
        }
        const KrBasePhysicalExtent* extent = shape->physicalExtent();
        if (const auto* grid = dynamic_cast<const KrGridPhysicalExtent*>(extent)) {
            if (const osg::ref_ptr<KrRenderShape> gridShape = makeGridShape(*grid)) {
                working = gridShape;
            }
        } else if (extent != nullptr) {
            if (const osg::ref_ptr<KrRenderShape> shared = livingShape(*extent)) {
                // Kept: neither a new name nor a map entry; it stays its first owner's.
                shared->setNodeMask(KrRenderTypes::SceneContent);
                m_dhFrame->addChild(shared);
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
            extent->setRenderShape(working->getSharedPtr());
        }
    }
}

bool KrRenderLink::updateState(osg::NodeVisitor* visitor, const KrManipulatorSystemState* state)
{
    if (visitor == nullptr) {
        return false;
    }
    if (visitor->getUserData() == nullptr) {
        visitor->setUserData(new StateData);
    }
    auto* data = dynamic_cast<StateData*>(visitor->getUserData());
    if (data == nullptr) {
        return false;
    }
    data->state = state;
    return true;
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
    shape->setName(linkName + " - " + KrINT2STRING(shapeIndex, 10));
    m_dhFrame->addChild(shape);
    ownShapes().add({m_jointIndex, shapeIndex}, shape);
    if (m_isMapMade) {
        m_map.insert({{m_jointIndex, shapeIndex}, shape});
    }
}

KrRenderLink::Shapes& KrRenderLink::ownShapes()
{
    if (m_shapes->referenceCount() > 1) {
        m_shapes = new Shapes(*m_shapes);
    }
    return *m_shapes;
}
