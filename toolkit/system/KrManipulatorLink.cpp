#include <toolkit/system/KrManipulatorLink.h>

#include <boost/make_shared.hpp>

#include <utility>

template class KrXmlObjectOf<KrManipulatorLink, KrXmlCompoundType>;
template class KrXmlObjectOf<KrXmlVectorType<KrManipulatorLink>, KrXmlObject>;
template class KrXmlVectorType<KrManipulatorLink>;
template class KrXmlObjectOf<KrXmlVectorType<KrXmlPointerType<KrShape>>, KrXmlObject>;
template class KrXmlVectorType<KrXmlPointerType<KrShape>>;
template class KrXmlObjectOf<KrXmlPointerType<KrShape>, KrXmlObject>;
template class KrXmlPointerType<KrShape>;

KrManipulatorLink::KrManipulatorLink() = default;
KrManipulatorLink::KrManipulatorLink(KrManipulatorLink&& other) noexcept = default;

/// Copies level by level: the links under a link are made without any, and filled when their turn comes.
KrManipulatorLink::KrManipulatorLink(const KrManipulatorLink& other)
    : KrXmlObjectOf<KrManipulatorLink, KrXmlCompoundType>(other)
{
    std::vector<std::pair<KrManipulatorLink*, const KrManipulatorLink*>> open = {{this, &other}};
    while (!open.empty()) {
        const auto [copy, original] = open.back();
        open.pop_back();
        // What hangs under the link comes level by level, see the caller.
        copy->copyBody(*original);
        copy->m_childLinks.resize(original->m_childLinks.size());
        for (unsigned int i = 0; i < original->m_childLinks.size(); ++i) {
            open.emplace_back(&copy->m_childLinks[i], &original->m_childLinks[i]);
        }
    }
}

KrManipulatorLink& KrManipulatorLink::operator=(const KrManipulatorLink& other)
{
    // By way of a copy: `other` may hang under this link, and goes with the old value.
    return *this = KrManipulatorLink(other);
}

// Member by member: the default would free the child links before `other`, which may be one of them, is read.
KrManipulatorLink& KrManipulatorLink::operator=(KrManipulatorLink&& other) noexcept
{
    if (this == &other) {
        return *this;
    }
    m_name = std::move(other.m_name);
    m_shapes = std::move(other.m_shapes);
    m_collisionShapes = std::move(other.m_collisionShapes);
    m_jointKinematics = std::move(other.m_jointKinematics);
    m_massProperties = std::move(other.m_massProperties);
    m_deformable = std::move(other.m_deformable);
    // Last, and the old ones are kept until then: `other` may be one of them.
    std::vector<KrManipulatorLink> old = std::exchange(m_childLinks.values(), std::move(other.m_childLinks.values()));
    return *this;
}

/// Takes the links from under each other first: a vector's own way goes down to the deepest of them.
KrManipulatorLink::~KrManipulatorLink()
{
    std::vector<std::vector<KrManipulatorLink>> open;
    const auto take = [&open](KrManipulatorLink& link) {
        if (!link.m_childLinks.empty()) {
            open.push_back(std::move(link.m_childLinks.values()));
        }
    };
    // Children of children join the list before their parents end.
    take(*this);
    while (!open.empty()) {
        std::vector<KrManipulatorLink> links = std::move(open.back());
        open.pop_back();
        for (KrManipulatorLink& link : links) {
            take(link);
        }
    }
}

// Everything but the child links. Shapes are shared, not copied: they are pointers.
void KrManipulatorLink::copyBody(const KrManipulatorLink& other)
{
    m_name = other.m_name;
    m_shapes = other.m_shapes;
    m_collisionShapes = other.m_collisionShapes;
    m_jointKinematics = other.m_jointKinematics;
    m_massProperties = other.m_massProperties;
    m_deformable = other.m_deformable;
}

KrManipulatorLink::KrManipulatorLink(const std::string& name)
    : m_name(name)
{
}

// Numbers from outside, so they are checked here.
const KrShape* KrManipulatorLink::shape(unsigned int i) const
{
    // Null for a shape that is not there, as for an empty one.
    return i < m_shapes.size() ? m_shapes[i].get() : nullptr;
}

boost::shared_ptr<KrShape> KrManipulatorLink::shapePointer(unsigned int i) const
{
    return i < m_shapes.size() ? m_shapes[i].pointer() : boost::shared_ptr<KrShape>();
}

// An empty pointer keeps its place, as a file may have it; numbers of later shapes count it.
void KrManipulatorLink::addShape(const boost::shared_ptr<KrShape>& shape)
{
    if (shape) {
        // A shape's number is its place in its link; a key finds it by that.
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
    // Unlike an empty one that is drawn, an empty collision shape is not kept.
    if (shape) {
        shape->setNumber(m_collisionShapes.size());
        m_collisionShapes.push_back(KrXmlPointerType<KrShape>(shape));
    }
}

void KrManipulatorLink::addCollisionShape(const boost::shared_ptr<KrBasePhysicalExtent>& extent)
{
    addCollisionShape(boost::make_shared<KrShape>(extent));
}

// By value; the reference holds until another link is added beside it.
KrManipulatorLink& KrManipulatorLink::addChildLink(const KrManipulatorLink& link)
{
    m_childLinks.push_back(link);
    return m_childLinks.back();
}

// For the walks of reading, writing and comparing, which know no links.
const KrXmlCompoundType* KrManipulatorLink::child(unsigned int i) const
{
    return i < m_childLinks.size() ? &m_childLinks[i] : nullptr;
}

// The reader fills it before the next one is appended, so the pointer stays valid for as long as it is used.
KrXmlCompoundType* KrManipulatorLink::appendChild()
{
    m_childLinks.values().emplace_back();
    return &m_childLinks.back();
}

KrXmlToken KrManipulatorLink::token() const
{
    return {KrXmlNamespace::system(), "manipulatorLink"};
}

void KrManipulatorLink::registerComponents()
{
    const std::string& uri = KrXmlNamespace::system();
    // The children come last, so that a document tells a link before what hangs under it.
    registerComponent({uri, "name"}, m_name, Presence::Optional);
    registerComponent({uri, "jointKinematics"}, m_jointKinematics, Presence::Optional);
    registerComponent({uri, "massProperties"}, m_massProperties, Presence::Optional);
    registerComponent({uri, "deformable"}, m_deformable, Presence::Optional);
    registerComponent({uri, "shapes"}, m_shapes, Presence::Optional);
    registerComponent({uri, "collisionShapes"}, m_collisionShapes, Presence::Optional);
    // By children and not by a component: reading and writing then take them without recursion.
    registerChildren({uri, "childLinks"}, m_childLinks);
}
