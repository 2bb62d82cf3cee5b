#include <rendCore/base/private/KrArrayPool.h>

#include <osg/Geometry>

#include <functional>
#include <string_view>

namespace
{

std::string_view bytesOf(const osg::Array& array)
{
    return {static_cast<const char*>(array.getDataPointer()), array.getTotalDataSize()};
}

bool areEqual(const osg::Array& a, const osg::Array& b)
{
    return a.getType() == b.getType() && a.getBinding() == b.getBinding() && a.getNormalize() == b.getNormalize() &&
           bytesOf(a) == bytesOf(b);
}

} // namespace

void KrArrayPool::share(osg::Geode& geode)
{
    for (unsigned int i = 0; i < geode.getNumDrawables(); ++i) {
        osg::Geometry* const geometry = geode.getDrawable(i)->asGeometry();
        if (geometry == nullptr) {
            continue;
        }
        geometry->setVertexArray(shared(geometry->getVertexArray()));
        geometry->setNormalArray(shared(geometry->getNormalArray()));
        if (geometry->getTexCoordArray(0) != nullptr) {
            geometry->setTexCoordArray(0, shared(geometry->getTexCoordArray(0)));
        }
    }
}

osg::Array* KrArrayPool::shared(osg::Array* array)
{
    if (array == nullptr || array->getNumElements() == 0) {
        return array;
    }
    const std::size_t hash = std::hash<std::string_view>()(bytesOf(*array));
    const auto [begin, end] = m_arrays.equal_range(hash);
    for (auto known = begin; known != end; ++known) {
        if (areEqual(*known->second, *array)) {
            return known->second;
        }
    }
    m_arrays.emplace(hash, array);
    return array;
}
