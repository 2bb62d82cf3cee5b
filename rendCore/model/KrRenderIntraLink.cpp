#include <rendCore/model/KrRenderIntraLink.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/KrString.h>
#include <toolkit/system/KrIntraLink.h>

#include <algorithm>

namespace
{

/// What draws the intra-link; null when it has nothing to draw.
osg::ref_ptr<KrRenderShape> makeShape(const KrIntraLink& intraLink, const KrIndividualManipulator& manipulator)
{
    const KrShape* shape = intraLink.shape();
    const KrBasePhysicalExtent* extent = shape == nullptr ? nullptr : shape->physicalExtent();
    if (extent == nullptr) {
        return nullptr;
    }
    // A shape of its own for each body: it is neither shared nor named nor in a map.
    return KrRenderShape::newKrRenderShape(manipulator, extent, manipulator.materialMap());
}

} // namespace

KrRenderIntraLink::KrRenderIntraLink(const KrIndividualManipulator& manipulator, unsigned int manIndex,
                                     osg::Group* group)
    : KrRenderLink(manipulator, manIndex)
    , m_manipulator(&manipulator)
    , m_intraLinks(manipulator.intraLinks().count())
{
    for (unsigned int i = 0; i < m_intraLinks.size(); ++i) {
        const osg::ref_ptr<KrRenderShape> shape = makeShape(manipulator.intraLinks().intraLink(i), manipulator);
        // The slot stays null, so that numbers of nodes and of intra-links agree.
        if (!shape) {
            Kr::Print::instance()->write(Kr::Print::Warning, "Problem creating intralink node %d\n",
                                         static_cast<int>(i));
            continue;
        }
        m_intraLinks[i] = new osg::MatrixTransform;
        m_intraLinks[i]->setName("IntraLink " + KrINT2STRING(i, 10));
        m_intraLinks[i]->addChild(shape);
        // A plain pointer throughout: a counted reference would destroy a group that is still being constructed.
        if (group != nullptr) {
            group->addChild(m_intraLinks[i]);
        }
    }
}

KrRenderIntraLink::~KrRenderIntraLink() = default;

std::size_t KrRenderIntraLink::indexOf(const osg::Node& node) const
{
    return static_cast<std::size_t>(std::find(m_intraLinks.begin(), m_intraLinks.end(), &node) - m_intraLinks.begin());
}

void KrRenderIntraLink::updateState(const KrManipulatorSystemState* state)
{
    if (state == nullptr) {
        return;
    }
    // The base part first: it is a base link like any other.
    KrRenderLink::updateState(state);
    const KrPositionState* position = positionState(*state);
    if (position == nullptr) {
        return;
    }
    // Once for all bodies: it is a copy of all joint positions.
    m_activeState.setPositionState(*position);
    const KrIntraLinkDescription& description = m_manipulator->intraLinks();
    const auto numSlots = static_cast<unsigned int>(m_intraLinks.size());
    // The description is the client's and may have changed since the nodes were made.
    for (unsigned int i = 0; i < std::min(description.count(), numSlots); ++i) {
        if (m_intraLinks[i]) {
            setPose(*m_intraLinks[i], description.intraLink(i).placement(m_activeState, *m_manipulator));
        }
    }
}
