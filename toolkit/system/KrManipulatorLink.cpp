#include <toolkit/system/KrManipulatorLink.h>

#include <boost/make_shared.hpp>

template class KrXmlObjectOf<KrManipulatorLink, KrXmlCompoundType>;
template class KrXmlObjectOf<KrXmlVectorType<KrManipulatorLink>, KrXmlObject>;
template class KrXmlVectorType<KrManipulatorLink>;
template class KrXmlObjectOf<KrXmlVectorType<KrXmlPointerType<KrShape>>, KrXmlObject>;
template class KrXmlVectorType<KrXmlPointerType<KrShape>>;
template class KrXmlObjectOf<KrXmlPointerType<KrShape>, KrXmlObject>;
template class KrXmlPointerType<KrShape>;

KrManipulatorLink::KrManipulatorLink() = default;
KrManipulatorLink::KrManipulatorLink(const KrManipulatorLink& other) = default;
KrManipulatorLink::KrManipulatorLink(KrManipulatorLink&& other) noexcept = default;
KrManipulatorLink& KrManipulatorLink::operator=(const KrManipulatorLink& other) = default;
KrManipulatorLink& KrManipulatorLink::operator=(KrManipulatorLink&& other) noexcept = default;
KrManipulatorLink::~KrManipulatorLink() = default;

KrManipulatorLink::KrManipulatorLink(const std::string& name)
    : m_name(name)
{
}

const KrShape* KrManipulatorLink::shape(unsigned int i) const
{
    return i < m_shapes.size() ? m_shapes[i].get() : nullptr;
}

boost::shared_ptr<KrShape> KrManipulatorLink::shapePointer(unsigned int i) const
{
    return i < m_shapes.size() ? m_shapes[i].pointer() : boost::shared_ptr<KrShape>();
}

void KrManipulatorLink::addShape(const boost::shared_ptr<KrShape>& shape)
{
    if (shape) {
        shape->setNumber(m_shapes.size());
    }
    m_shapes.push_back(KrXmlPointerType<KrShape>(shape));
}

void KrManipulatorLink::addShape(const boost::shared_ptr<KrBasePhysicalExtent>& extent)
{
    addShape(boost::make_shared<KrShape>(extent));
}

const KrShape* KrManipulatorLink::collisionShape(unsigned int i) const
{
    return i < m_collisionShapes.size() ? m_collisionShapes[i].get() : nullptr;
}

void KrManipulatorLink::addCollisionShape(const boost::shared_ptr<KrShape>& shape)
{
    if (shape) {
        shape->setNumber(m_collisionShapes.size());
        m_collisionShapes.push_back(KrXmlPointerType<KrShape>(shape));
    }
}

void KrManipulatorLink::addCollisionShape(const boost::shared_ptr<KrBasePhysicalExtent>& extent)
{
    addCollisionShape(boost::make_shared<KrShape>(extent));
}

KrManipulatorLink& KrManipulatorLink::addChildLink(const KrManipulatorLink& link)
{
    m_childLinks.push_back(link);
    return m_childLinks.back();
}

KrXmlToken KrManipulatorLink::token() const
{
    return {KrXmlNamespace::system(), "manipulatorLink"};
}

void KrManipulatorLink::registerComponents()
{
    const std::string& uri = KrXmlNamespace::system();
    registerComponent({uri, "name"}, m_name, Presence::Optional);
    registerComponent({uri, "jointKinematics"}, m_jointKinematics, Presence::Optional);
    registerComponent({uri, "massProperties"}, m_massProperties, Presence::Optional);
    registerComponent({uri, "deformable"}, m_deformable, Presence::Optional);
    registerComponent({uri, "shapes"}, m_shapes, Presence::Optional);
    registerComponent({uri, "collisionShapes"}, m_collisionShapes, Presence::Optional);
    registerComponent({uri, "childLinks"}, m_childLinks, Presence::Optional);
}
