#include <rendCore/base/private/KrArrayPool.h>

#include <osg/Geometry>

#include <functional>
#include <string_view>

namespace
{

/// Compared as bytes: 0 and -0 differ, and NaN equals itself, so that what is shared is the same in every case.
std::string_view bytesOf(const osg::Array& array)
{
    return {static_cast<const char*>(array.getDataPointer()), array.getTotalDataSize()};
}

/// Whoever draws them also asks how they are bound: arrays of the same bytes may mean different things.
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
        // A geode may hold text and other drawables that have no arrays.
        if (geometry != nullptr) {
            share(*geometry);
        }
    }
}

void KrArrayPool::share(osg::Geometry& geometry)
{
    // One pool for vertices, normals and coordinates alike: equal arrays are equal whatever they are for.
    geometry.setVertexArray(shared(geometry.getVertexArray()));
    geometry.setNormalArray(shared(geometry.getNormalArray()));
    // Setting none would make room for a unit that the geometry does not have.
    if (geometry.getTexCoordArray(0) != nullptr) {
        geometry.setTexCoordArray(0, shared(geometry.getTexCoordArray(0)));
    }
}

osg::Array* KrArrayPool::shared(osg::Array* array)
{
    // An empty array has no bytes to point to, and nothing to gain.
    if (array == nullptr || array->getNumElements() == 0) {
        return array;
    }
    const std::size_t hash = std::hash<std::string_view>()(bytesOf(*array));
    const auto [begin, end] = m_arrays.equal_range(hash);
    // Different arrays may have the same hash.
    for (auto known = begin; known != end; ++known) {
        if (areEqual(*known->second, *array)) {
            return known->second;
        }
    }
    m_arrays.emplace(hash, array);
    return array;
}
