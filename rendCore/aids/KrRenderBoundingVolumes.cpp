#include <rendCore/aids/KrRenderBoundingVolumes.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/base/private/KrArrayPool.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderShape.h>

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/KrString.h>
#include <toolkit/system/KrManipulatorLink.h>

#include <osg/NodeVisitor>
#include <osg/PolygonOffset>
#include <osg/StateSet>

#include <memory>
#include <typeinfo>
#include <vector>

namespace
{

/// A hidden child for one bounding volume.
osg::ref_ptr<KrRenderShape> makeVolume(const KrBasePhysicalExtent& extent, const KrMaterialMap& dataMap,
                                       unsigned int linkIndex)
{
    // Of a solid, from a copy: the mesh form that an extent makes stays with it, and nobody asks for this one again.
    std::unique_ptr<KrXmlObject> copy;
    const KrBasePhysicalExtent* drawn = &extent;
    if (dynamic_cast<const KrTriPhysicalExtent*>(&extent) == nullptr &&
        dynamic_cast<const KrDeformationPhysicalExtent*>(&extent) == nullptr) {
        copy.reset(extent.clone());
        const KrXmlObject& object = *copy;
        // A class that is copied as its base is drawn itself.
        drawn = typeid(object) == typeid(extent) ? static_cast<const KrBasePhysicalExtent*>(&object) : drawn;
    }
    const osg::ref_ptr<KrRenderShape> volume = new KrRenderShape(drawn, dataMap);
    // Kept: always the number 1, so that all volumes bear one name.
    volume->setName(" - BV " + KrINT2STRING(1, 10));
    KrRenderLink::sortIfUnderBase(*volume, linkIndex);
    return volume;
}

/// Adds the bounding volumes of every link that it meets.
class BoundingVolumesVisitor : public osg::NodeVisitor
{
public:
    explicit BoundingVolumesVisitor(const KrMaterialMap& dataMap)
        : osg::NodeVisitor(osg::NodeVisitor::UPDATE_VISITOR, osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
        , m_dataMap(dataMap)
    {
    }

    using osg::NodeVisitor::apply;
    void apply(osg::MatrixTransform& node) override
    {
        if (const auto* link = dynamic_cast<const KrRenderLink*>(&node)) {
            addVolumes(*link);
        }
        traverse(node);
    }

private:
    void addVolumes(const KrRenderLink& renderLink)
    {
        // Never null: a link node is made from a link.
        const KrManipulatorLink* link = renderLink.getLink();
        const KrShape* shape = link->shape();
        if (shape == nullptr) {
            return;
        }
        const osg::ref_ptr<osg::Switch> volumes =
            KrRenderBoundingVolumes::makeBV(shape, m_dataMap, renderLink.getJointIndex(), shape->number());
        const osg::ref_ptr<osg::MatrixTransform> dhFrame = renderLink.getDhFrame();
        // Kept: without a look for volumes of an earlier pass; a second `init` adds a second switch, which clients find
        // among the children. The window calls it once for each new node.
        if (volumes && dhFrame) {
            for (unsigned int i = 0; i < volumes->getNumChildren(); ++i) {
                // Robots have many links and few kinds of volume: arrays that are equal to the byte are kept once.
                m_arrays.share(*volumes->getChild(i)->asGeode());
            }
            dhFrame->addChild(volumes);
            volumes->setName(link->name() + " - BV " + KrINT2STRING(shape->number(), 10));
        }
    }

    const KrMaterialMap& m_dataMap;
    KrArrayPool m_arrays;
};

} // namespace

void KrRenderBoundingVolumes::init(osg::Node* root, const KrMaterialMap& dataMap)
{
    if (root != nullptr) {
        BoundingVolumesVisitor visitor(dataMap);
        root->accept(visitor);
    }
}

osg::ref_ptr<osg::Switch> KrRenderBoundingVolumes::makeBV(const KrShape* shape, const KrMaterialMap& dataMap,
                                                          unsigned int linkIndex, unsigned int shapeIndex)
{
    const osg::ref_ptr<osg::Switch> volumes = new osg::Switch;
    volumes->setNodeMask(KrRenderTypes::BoundingVolumes);
    // Volumes of a shape enclose one another: all hidden but one, which is switched on below.
    volumes->setNewChildDefaultValue(false);

    std::vector<const KrShape*> list;
    // From level 1 on, the coarsest first: the last one encloses most tightly, and only it is shown.
    shape->boundingVolumes(list, 1);
    for (const KrShape* entry : list) {
        // Kept: the shape itself ends the list, whatever comes after it. The volume before it is then the one shown; a
        // list that begins with it gives no switch.
        if (entry == shape) {
            break;
        }
        const KrBasePhysicalExtent* extent = entry == nullptr ? nullptr : entry->physicalExtent();
        if (extent == nullptr) {
            // Kept: the message names another class, for those who look for it by this text.
            Kr::Print::instance()->write(Kr::Print::Warning,
                                         "KrRenderLink - unable to add bounding volume for link (%d), shape %d.\n",
                                         static_cast<int>(linkIndex), static_cast<int>(shapeIndex));
            continue;
        }
        volumes->addChild(makeVolume(*extent, dataMap, linkIndex));
    }
    // Nothing to show, no node: every node costs time in every frame.
    if (volumes->getNumChildren() == 0) {
        return nullptr;
    }
    volumes->setValue(volumes->getNumChildren() - 1, true);
    // A volume lies in the very planes of a shape that is flat on a side: drawn a little nearer, it does not flicker.
    // The units count where it faces the eye: depths of triangles that differ are some 16 units apart in one plane.
    volumes->getOrCreateStateSet()->setAttributeAndModes(new osg::PolygonOffset(-1.0f, -32.0f));
    // Textures are on in the whole scene: without links beside it a volume would take the one that was made last.
    volumes->getStateSet()->setTextureMode(0, GL_TEXTURE_2D, osg::StateAttribute::OFF);
    return volumes;
}
