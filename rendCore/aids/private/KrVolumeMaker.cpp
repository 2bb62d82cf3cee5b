#include <rendCore/aids/private/KrVolumeMaker.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderShape.h>

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/KrString.h>
#include <toolkit/system/KrManipulatorLink.h>

#include <osg/NodeVisitor>
#include <osg/PolygonOffset>

#include <algorithm>
#include <typeinfo>
#include <vector>

using ExtentPointer = boost::shared_ptr<const KrBasePhysicalExtent>;

/// Adds the bounding volumes of every link that it meets.
class KrVolumeMaker::BoundingVolumesVisitor : public osg::NodeVisitor
{
public:
    BoundingVolumesVisitor(KrVolumeMaker& maker, const KrMaterialMap& looks)
        : osg::NodeVisitor(osg::NodeVisitor::UPDATE_VISITOR, osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
        , m_maker(maker)
        , m_looks(looks)
    {
    }

    using osg::NodeVisitor::apply;
    void apply(osg::MatrixTransform& node) override
    {
        if (const auto* link = dynamic_cast<const KrRenderLink*>(&node)) {
            m_maker.addVolumes(*link, m_looks);
        }
        traverse(node);
    }

private:
    KrVolumeMaker& m_maker;
    const KrMaterialMap& m_looks;
};

namespace
{

/// The mesh form that an extent makes stays with it, and nobody asks for that of a volume again: a copy is drawn.
ExtentPointer copyOf(const ExtentPointer& extent)
{
    const boost::shared_ptr<const KrXmlObject> copy(extent->clone());
    const KrXmlObject& object = *copy;
    // A class that is copied as its base is drawn itself.
    const KrBasePhysicalExtent& original = *extent;
    return typeid(object) == typeid(original) ? boost::dynamic_pointer_cast<const KrBasePhysicalExtent>(copy) : extent;
}

/// Textures are on in the whole scene, and a volume lies in the very planes of a shape that is flat on a side.
osg::ref_ptr<osg::StateSet> switchState()
{
    const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    // Drawn a little nearer, it does not flicker. The units count where it faces the eye: depths of triangles that
    // differ are some 16 units apart in one plane.
    state->setAttributeAndModes(new osg::PolygonOffset(-1.0f, -32.0f));
    // Without links beside it a volume would take the texture that was made last.
    state->setTextureMode(0, GL_TEXTURE_2D, osg::StateAttribute::OFF);
    return state;
}

} // namespace

KrVolumeMaker::KrVolumeMaker(Corners corners)
    : m_corners(corners)
    , m_switchState(switchState())
    , m_arrays(std::make_shared<KrArrayPool>())
{
}

void KrVolumeMaker::addTo(osg::Node& root, const KrMaterialMap& looks)
{
    BoundingVolumesVisitor visitor(*this, *knownLooks(looks));
    root.accept(visitor);
}

void KrVolumeMaker::addVolumes(const KrRenderLink& renderLink, const KrMaterialMap& looks)
{
    // Never null: a link node is made from a link.
    const KrManipulatorLink* link = renderLink.getLink();
    const KrShape* shape = link->shape();
    if (shape == nullptr) {
        return;
    }
    const osg::ref_ptr<osg::Switch> volumes = makeSwitch(*shape, looks, renderLink.getJointIndex(), shape->number());
    const osg::ref_ptr<osg::MatrixTransform> dhFrame = renderLink.getDhFrame();
    // Kept: without a look for volumes of an earlier pass; a second `init` adds a second switch, which clients find
    // among the children. The window calls it once for each new node.
    if (volumes && dhFrame) {
        dhFrame->addChild(volumes);
        volumes->setName(link->name() + " - BV " + KrINT2STRING(shape->number(), 10));
    }
}

osg::ref_ptr<osg::Switch> KrVolumeMaker::makeSwitch(const KrShape& shape, const KrMaterialMap& looks,
                                                    unsigned int linkIndex, unsigned int shapeIndex)
{
    const osg::ref_ptr<osg::Switch> volumes = new osg::Switch;
    volumes->setNodeMask(KrRenderTypes::BoundingVolumes);
    // Volumes of a shape enclose one another: all hidden but one, which is switched on below.
    volumes->setNewChildDefaultValue(false);

    std::vector<const KrShape*> list;
    // From level 1 on, the coarsest first: the last one encloses most tightly, and only it is shown.
    shape.boundingVolumes(list, 1);
    for (const KrShape* entry : list) {
        // Kept: the shape itself ends the list, whatever comes after it. The volume before it is then the one shown; a
        // list that begins with it gives no switch.
        if (entry == &shape) {
            break;
        }
        if (entry == nullptr || entry->physicalExtent() == nullptr) {
            // Kept: the message names another class, for those who look for it by this text.
            Kr::Print::instance()->write(Kr::Print::Warning,
                                         "KrRenderLink - unable to add bounding volume for link (%d), shape %d.\n",
                                         static_cast<int>(linkIndex), static_cast<int>(shapeIndex));
            continue;
        }
        volumes->addChild(makeVolume(entry->extentPointer(), looks, linkIndex));
    }
    // Nothing to show, no node: every node costs time in every frame.
    if (volumes->getNumChildren() == 0) {
        return nullptr;
    }
    volumes->setValue(volumes->getNumChildren() - 1, true);
    volumes->setStateSet(m_switchState);
    return volumes;
}

/// A hidden child for one bounding volume, with a state set of its own where it has one.
osg::ref_ptr<KrRenderShape> KrVolumeMaker::makeVolume(const ExtentPointer& extent, const KrMaterialMap& looks,
                                                      unsigned int linkIndex)
{
    const auto [place, isNew] = m_drawn.try_emplace({extent.get(), &looks});
    if (isNew) {
        place->second = {extent, draw(extent, looks)};
    }
    // A node for each link, which selecting may wrap by itself; what it draws is shared.
    const osg::ref_ptr<KrRenderShape> volume = new KrRenderShape(*place->second.geode, osg::CopyOp());
    // Kept: always the number 1, so that all volumes bear one name.
    volume->setName(" - BV " + KrINT2STRING(1, 10));
    KrRenderLink::sortIfUnderBase(*volume, linkIndex);
    return volume;
}

osg::ref_ptr<osg::Geode> KrVolumeMaker::draw(const ExtentPointer& extent, const KrMaterialMap& looks)
{
    const bool isMesh = dynamic_cast<const KrTriPhysicalExtent*>(extent.get()) != nullptr;
    // Drawn as it is bent now, at once.
    const bool bends = dynamic_cast<const KrDeformationPhysicalExtent*>(extent.get()) != nullptr;
    const ExtentPointer drawn = isMesh || bends ? extent : copyOf(extent);
    const osg::ref_ptr<KrRenderShape> whole = new KrRenderShape(drawn.get(), looks);
    if (m_corners == Corners::Now || bends) {
        m_arrays->share(*whole);
        return whole;
    }
    // Of a solid another copy, which has no mesh form yet.
    return KrLateGeometry::geodeFor(*whole, isMesh ? extent : copyOf(extent), m_arrays);
}

/// An equal map that lives as long as this object.
const KrMaterialMap* KrVolumeMaker::knownLooks(const KrMaterialMap& looks)
{
    const auto found = std::find(m_looks.begin(), m_looks.end(), looks);
    return found != m_looks.end() ? &*found : &m_looks.emplace_back(looks);
}
