#pragma once

#include <algorithm>
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
    /// Of kMostPixels at the most.
    void begin(std::uint32_t width, std::uint32_t height)
    {
        m_width = width;
        m_nearness.assign(std::size_t{width} * height, 0.0f);
    }
    /// Of the picture.
    std::uint32_t width() const { return m_width; }
    float nearness(std::uint32_t pixel) const { return m_nearness[pixel]; }
    /// Of pixels from that one on, to be replaced by what is larger.
    float* at(std::uint32_t pixel) { return &m_nearness[pixel]; }
    /// Nothing where it is not larger than what is there.
    void add(std::uint32_t pixel, float nearness)
    {
        // In any case, since a processor can hardly guess which.
        const float known = m_nearness[pixel];
        m_nearness[pixel] = nearness > known ? nearness : known;
    }
    /// Takes over what is nearer elsewhere, of the same picture.
    void add(const KrNearestDepths& other)
    {
        std::transform(m_nearness.begin(), m_nearness.end(), other.m_nearness.begin(), m_nearness.begin(),
                       [](float ours, float theirs) { return theirs > ours ? theirs : ours; });
    }

private:
    std::uint32_t m_width = 0;
    std::vector<float> m_nearness;
};
