#include <toolkit/system/KrShape.h>

#include <algorithm>

KrShape::KrShape(const boost::shared_ptr<KrBasePhysicalExtent>& extent)
{
    m_extent.set(extent);
}

void KrShape::setPhysicalExtent(const boost::shared_ptr<KrBasePhysicalExtent>& extent)
{
    m_extent.set(extent);
}

void KrShape::addBoundingVolume(const boost::shared_ptr<KrShape>& volume)
{
    if (volume) {
        m_boundingVolumes.push_back(KrXmlPointerType<KrShape>(volume));
    }
}

void KrShape::boundingVolumes(std::vector<const KrShape*>& list, unsigned int level) const
{
    list.clear();
    for (unsigned int i = std::max(level, 1u) - 1u; i < m_boundingVolumes.size(); ++i) {
        // A file may hold an empty item.
        if (const KrShape* volume = m_boundingVolumes[i].get()) {
            list.push_back(volume);
        }
    }
}

KrShape* KrShape::newFromToken(const KrXmlToken& token)
{
    return token == KrShape().token() ? new KrShape : nullptr;
}

KrXmlToken KrShape::token() const
{
    return {KrXmlNamespace::system(), "shape"};
}

void KrShape::registerComponents()
{
    const std::string& uri = KrXmlNamespace::system();
    registerComponent({uri, "number"}, m_number, Presence::Optional);
    registerComponent({uri, "physicalExtent"}, m_extent, Presence::Optional);
    registerComponent({uri, "boundingVolumes"}, m_boundingVolumes, Presence::Optional);
}
