#include <picture/KrDownscale.h>

#include <toolkit/image/KrImage.h>

#include <cstddef>
#include <cstring>

namespace
{

/// Allocates where the size differs only: one picture serves for all frames.
void fit(KrImage& small, const KrImage& large, unsigned int factor)
{
    const unsigned int width = large.width() / factor;
    const unsigned int height = large.height() / factor;
    if (small.width() != width || small.height() != height || small.channels() != large.channels() || !small.data()) {
        small.allocate(large.channels(), 0, width, height);
    }
}

} // namespace

void KrDownscale::average(const KrImage& large, unsigned int factor, KrImage& small)
{
    const unsigned int channels = large.channels();
    fit(small, large, factor);
    const unsigned int width = small.width(); // a copy, which writing pixels cannot change
    const unsigned int height = small.height();
    const std::size_t row = std::size_t(large.width()) * channels;
    const unsigned int count = factor * factor;
    unsigned char* out = small.data();
    for (unsigned int y = 0; y < height; ++y) {
        const unsigned char* const rows = large.data() + std::size_t(y) * factor * row;
        for (unsigned int x = 0; x < width; ++x) {
            for (unsigned int c = 0; c < channels; ++c) {
                unsigned int sum = 0;
                for (unsigned int j = 0; j < factor; ++j) {
                    const unsigned char* in = rows + j * row + std::size_t(x) * factor * channels + c;
                    for (unsigned int i = 0; i < factor; ++i, in += channels) {
                        sum += *in;
                    }
                }
                // To the nearest: cutting off would darken the picture by half a step.
                *out++ = static_cast<unsigned char>((sum + count / 2) / count);
            }
        }
    }
}

void KrDownscale::pick(const KrImage& large, unsigned int factor, KrImage& small)
{
    const unsigned int channels = large.channels();
    fit(small, large, factor);
    const unsigned int width = small.width(); // a copy, which writing pixels cannot change
    const unsigned int height = small.height();
    const std::size_t row = std::size_t(large.width()) * channels;
    unsigned char* out = small.data();
    for (unsigned int y = 0; y < height; ++y) {
        // One pixel of each block stands for it: the mean of two depths would lie on neither surface.
        for (unsigned int x = 0; x < width; ++x, out += channels) {
            std::memcpy(out, large.data() + y * factor * row + std::size_t(x) * factor * channels, channels);
        }
    }
}
