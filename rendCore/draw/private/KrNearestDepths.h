#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// For each pixel of a picture how near something is that is drawn there for certain: what is farther away does not
/// show.
///
/// Nearness is 1 less the depth in the window: 1 at the near plane, 0 at the far one, where nothing is.
class KrNearestDepths
{
public:
    /// Beyond it a picture would need much memory for little: triangles are hardly smaller than its pixels.
    static constexpr std::size_t kMostPixels = std::size_t{1} << 23;

    /// Forgets all. Memory is asked for where a picture is larger than those before.
    ///
    /// @param numPixels  kMostPixels at the most
    void begin(std::size_t numPixels)
    {
        for (const std::uint32_t pixel : m_known) {
            m_nearness[pixel] = 0.0f;
        }
        m_known.clear();
        if (numPixels > m_nearness.size()) {
            m_nearness.resize(numPixels, 0.0f);
        }
    }
    float nearness(std::uint32_t pixel) const { return m_nearness[pixel]; }
    /// Nothing where it is not larger than what is there.
    void add(std::uint32_t pixel, float nearness)
    {
        const float known = m_nearness[pixel];
        const bool isNearer = nearness > known;
        if (isNearer && known <= 0.0f) {
            m_known.push_back(pixel);
        }
        // In any case, since a processor can hardly guess which.
        m_nearness[pixel] = isNearer ? nearness : known;
    }

    /// Takes over what is nearer elsewhere, of the same picture.
    void add(const KrNearestDepths& other)
    {
        for (const std::uint32_t pixel : other.m_known) {
            add(pixel, other.m_nearness[pixel]);
        }
    }

private:
    std::vector<float> m_nearness;
    std::vector<std::uint32_t> m_known; ///< pixels that have some
};
