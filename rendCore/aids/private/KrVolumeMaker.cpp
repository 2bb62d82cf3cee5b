#include <rendCore/aids/private/KrVolumeMaker.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/base/private/KrVec3.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderShape.h>

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>
#include <toolkit/extent/KrEnclosingShapes.h>
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

bool isMesh(const KrBasePhysicalExtent& extent)
{
    return dynamic_cast<const KrTriPhysicalExtent*>(&extent) != nullptr;
}

bool bends(const KrBasePhysicalExtent* extent)
{
    return dynamic_cast<const KrDeformationPhysicalExtent*>(extent) != nullptr;
}

/// Without a corner yet.
osg::ref_ptr<osg::Geometry> computedLook()
{
    const KrTriPhysicalExtent none;
    return KrRenderShape::addGroup(&none, {}, KrEnclosingShapes::look());
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
    , m_computedLook(computedLook())
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
    const boost::shared_ptr<const KrShape> shape = link->shapePointer(0);
    if (!shape) {
        return;
    }
    const osg::ref_ptr<osg::Switch> volumes = makeSwitch(shape, looks, renderLink.getJointIndex(), shape->number());
    const osg::ref_ptr<osg::MatrixTransform> dhFrame = renderLink.getDhFrame();
    // Kept: without a look for volumes of an earlier pass; a second `init` adds a second switch, which clients find
    // among the children. The window calls it once for each new node.
    if (volumes && dhFrame) {
        dhFrame->addChild(volumes);
        volumes->setName(link->name() + " - BV " + KrINT2STRING(shape->number(), 10));
    }
}

osg::ref_ptr<osg::Switch> KrVolumeMaker::makeSwitch(const boost::shared_ptr<const KrShape>& shape,
                                                    const KrMaterialMap& looks, unsigned int linkIndex,
                                                    unsigned int shapeIndex)
{
    const osg::ref_ptr<osg::Switch> volumes = new osg::Switch;
    volumes->setNodeMask(KrRenderTypes::BoundingVolumes);
    // Volumes of a shape enclose one another: all hidden but one, which is switched on below.
    volumes->setNewChildDefaultValue(false);
    // A node for each link, which selecting may wrap by itself; what it draws is shared.
    const auto add = [&volumes, linkIndex](const osg::Geode& drawn) {
        const osg::ref_ptr<KrRenderShape> volume = new KrRenderShape(drawn, osg::CopyOp());
        // Kept: always the number 1, so that all volumes bear one name.
        volume->setName(" - BV " + KrINT2STRING(1, 10));
        KrRenderLink::sortIfUnderBase(*volume, linkIndex);
        volumes->addChild(volume);
    };

    std::vector<const KrShape*> list;
    // What bends has its volumes as it is bent now.
    if (m_corners == Corners::Now || bends(shape->physicalExtent())) {
        // From level 1 on, the coarsest first: the last one encloses most tightly, and only it is shown.
        shape->boundingVolumes(list, 1);
    } else {
        shape->addedVolumes(list);
        for (const osg::ref_ptr<osg::Geode>& volume : lateVolumes(shape, !list.empty()).geodes) {
            add(*volume);
        }
    }
    for (const KrShape* entry : list) {
        // Kept: the shape itself ends the list, whatever comes after it. The volume before it is then the one shown; a
        // list that begins with it gives no switch.
        if (entry == shape.get()) {
            break;
        }
        if (entry == nullptr || entry->physicalExtent() == nullptr) {
            // Kept: the message names another class, for those who look for it by this text.
            Kr::Print::instance()->write(Kr::Print::Warning,
                                         "KrRenderLink - unable to add bounding volume for link (%d), shape %d.\n",
                                         static_cast<int>(linkIndex), static_cast<int>(shapeIndex));
            continue;
        }
        add(*drawn(entry->extentPointer(), looks));
    }
    // Nothing to show, no node: every node costs time in every frame.
    if (volumes->getNumChildren() == 0) {
        return nullptr;
    }
    volumes->setValue(volumes->getNumChildren() - 1, true);
    volumes->setStateSet(m_switchState);
    return volumes;
}

/// Hulls of large meshes take long: until somebody looks there is but the box about the shape.
const KrVolumeMaker::LateVolumes& KrVolumeMaker::lateVolumes(const boost::shared_ptr<const KrShape>& shape,
                                                             bool hasOthers)
{
    const auto [place, isNew] = m_late.try_emplace({shape->physicalExtent(), hasOthers});
    LateVolumes& late = place->second;
    if (!isNew) {
        return late;
    }
    late.extent = shape->extentPointer();
    KrVector low, high;
    const unsigned int count = shape->numComputedVolumes(low, high);
    for (unsigned int i = 0; i < count; ++i) {
        const auto source = [shape, i] {
            std::vector<const KrShape*> list;
            shape->boundingVolumes(list, 1);
            const ExtentPointer extent = i < list.size() ? list[i]->extentPointer() : nullptr;
            return extent && !isMesh(*extent) ? copyOf(extent) : extent;
        };
        osg::BoundingBox box;
        // The last one, the hull, reaches as far as the shape. Where others were added those are shown.
        if (i == 3) {
            box.set(vec3(low), vec3(high));
        }
        const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        geode->addDrawable(new KrLateGeometry(*m_computedLook, box, source, 0, m_arrays));
        late.geodes.push_back(geode);
    }
    return late;
}

/// What is drawn of an extent.
osg::ref_ptr<osg::Geode> KrVolumeMaker::drawn(const ExtentPointer& extent, const KrMaterialMap& looks)
{
    const auto [place, isNew] = m_drawn.try_emplace({extent.get(), &looks});
    if (isNew) {
        place->second = {extent, draw(extent, looks)};
    }
    return place->second.geode;
}

osg::ref_ptr<osg::Geode> KrVolumeMaker::draw(const ExtentPointer& extent, const KrMaterialMap& looks)
{
    // Drawn as it is bent now, at once.
    const bool isNow = m_corners == Corners::Now || bends(extent.get());
    const bool isSolid = !isMesh(*extent) && !bends(extent.get());
    const osg::ref_ptr<KrRenderShape> whole = new KrRenderShape((isSolid ? copyOf(extent) : extent).get(), looks);
    if (isNow) {
        m_arrays->share(*whole);
        return whole;
    }
    // Of a solid another copy, which has no mesh form yet.
    return KrLateGeometry::geodeFor(*whole, isSolid ? copyOf(extent) : extent, m_arrays);
}

/// An equal map that lives as long as this object.
const KrMaterialMap* KrVolumeMaker::knownLooks(const KrMaterialMap& looks)
{
    const auto found = std::find(m_looks.begin(), m_looks.end(), looks);
    return found != m_looks.end() ? &*found : &m_looks.emplace_back(looks);
}
