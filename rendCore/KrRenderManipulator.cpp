#include <rendCore/KrRenderManipulator.h>

#include <rendCore/KrRenderIntraLink.h>

#include <toolkit/foundation/KrString.h>

KrRenderManipulator::KrRenderManipulator(const KrIndividualManipulator& manipulator, unsigned int manIndex)
    : m_manIndex(manIndex)
    , m_manipulator(&manipulator)
{
    osg::Matrixd manipulatorToWorld;
    manipulator.placement().assign16(manipulatorToWorld.ptr());
    setMatrix(manipulatorToWorld);
    setName("Base " + KrINT2STRING(manIndex, 10));

    osg::ref_ptr<KrRenderLink> base;
    if (manipulator.intraLinks().count() == 0) {
        base = new KrRenderLink(manipulator, manIndex);
    } else {
        base = new KrRenderIntraLink(manipulator, manIndex, this);
    }
    addChild(base);
    KrRenderManipulator::processChildren(base);
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
    drawn->update(extent);
    if (extent->isChanged()) {
        extent->recompute();
        extent->setChanged(false);
    }
}

void KrRenderManipulator::updateTransparency(unsigned int jointIndex, unsigned int shapeIndex, const KrShape* shape,
                                             float alpha)
{
    KrRenderShape* drawn = renderShape(jointIndex, shapeIndex);
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

void KrRenderManipulator::processChildren(KrRenderLink* parent)
{
    if (parent == nullptr) {
        return;
    }
    for (const KrManipulatorLink& link : parent->getLink()->childLinks()) {
        const osg::ref_ptr<KrRenderLink> child =
            new KrRenderLink(link, m_manIndex, m_numTotalLinks, m_manipulator->materialMap());
        ++m_numTotalLinks;
        // The child's subtree comes first: its map is complete when the parent takes it over.
        processChildren(child);
        parent->addChildLink(child);
    }
}

KrRenderShape* KrRenderManipulator::renderShape(unsigned int jointIndex, unsigned int shapeIndex) const
{
    const auto found = m_map.find({jointIndex, shapeIndex});
    return found == m_map.end() ? nullptr : found->second.get();
}
