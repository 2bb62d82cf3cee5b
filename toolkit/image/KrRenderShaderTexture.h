#pragma once

#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <memory>
#include <new>

/// Containers for what is handed to shaders.
namespace KrRenderShader
{

/// Three values along x, y and z.
template <typename T>
struct vecT3
{
    vecT3() = default;
    vecT3(T xValue, T yValue, T zValue)
        : x(xValue)
        , y(yValue)
        , z(zValue)
    {
    }

    T x = T();
    T y = T();
    T z = T();
};

/// A volume of floats: `channels` values a voxel, x fastest, then y, then z.
///
/// The buffer is bytes made with new[], as image classes that free with delete[] want it.
class Texture3
{
public:
    /// A volume of zeros. A negative count counts as 0.
    /// Empty, with counts of 0, when there is not enough memory.
    Texture3(const vecT3<int>& dimensions, int channels)
        : m_dimensions(atLeastZero(dimensions.x), atLeastZero(dimensions.y), atLeastZero(dimensions.z))
        , m_channels(atLeastZero(channels))
    {
        // A new of no bytes still gives a buffer: an empty volume has one, too.
        const std::size_t floats = numFloats();
        if (floats <= std::numeric_limits<std::size_t>::max() / sizeof(float)) {
            m_data.reset(new (std::nothrow) unsigned char[floats * sizeof(float)]());
        }
        if (!m_data) {
            m_dimensions = vecT3<int>();
            m_data.reset(new unsigned char[0]);
        }
    }
    /// Copies `data`, which holds as many floats as the counts say.
    Texture3(const vecT3<int>& dimensions, int channels, const float* data)
        : Texture3(dimensions, channels)
    {
        if (numFloats() != 0) {
            std::memcpy(m_data.get(), data, numFloats() * sizeof(float));
        }
    }

    /// Voxels along x, y and z, and values of each.
    const vecT3<int>& dimensions() const { return m_dimensions; }
    int numChannels() const { return m_channels; }
    /// The product of the counts; the largest std::size_t where that is too small for it.
    std::size_t numFloats() const
    {
        std::size_t product = 1;
        for (const int count : {m_dimensions.x, m_dimensions.y, m_dimensions.z, m_channels}) {
            const auto factor = static_cast<std::size_t>(count);
            if (factor != 0 && product > std::numeric_limits<std::size_t>::max() / factor) {
                return std::numeric_limits<std::size_t>::max();
            }
            product *= factor;
        }
        return product;
    }

    /// Borrowed; null after `release`.
    const float* data() const { return reinterpret_cast<const float*>(m_data.get()); }
    float* data() { return reinterpret_cast<float*>(m_data.get()); }
    /// Gives the buffer away: the caller frees it with delete[] as an array of unsigned char.
    unsigned char* release() { return m_data.release(); }

private:
    static int atLeastZero(int count) { return count > 0 ? count : 0; }

    vecT3<int> m_dimensions;
    int m_channels;
    std::unique_ptr<unsigned char[]> m_data;
};

} // namespace KrRenderShader
