#include <picture/KrDownscale.h>

#include <toolkit/image/KrImage.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

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

/// Sums of the first `count` bytes of `factor` rows, column by column: a loop of vectors.
void addRows(const unsigned char* rows, std::size_t rowBytes, std::size_t count, unsigned int factor,
             std::uint32_t* sums)
{
    for (std::size_t i = 0; i < count; ++i) {
        sums[i] = rows[i];
    }
    for (unsigned int j = 1; j < factor; ++j) {
        const unsigned char* const row = rows + j * rowBytes;
        for (std::size_t i = 0; i < count; ++i) {
            sums[i] += row[i];
        }
    }
}

/// A row of means from those sums. `Factor` and `Channels` are known when this is compiled, for the division; 0: not.
template <unsigned int Factor, unsigned int Channels>
void average(const std::uint32_t* sums, unsigned int width, unsigned int anyFactor, unsigned int anyChannels,
             unsigned char* out)
{
    const unsigned int factor = Factor != 0 ? Factor : anyFactor;
    const unsigned int channels = Channels != 0 ? Channels : anyChannels;
    const unsigned int count = factor * factor;
    for (unsigned int x = 0; x < width; ++x, sums += std::size_t(factor) * channels) {
        for (unsigned int c = 0; c < channels; ++c) {
            std::uint32_t sum = 0;
            for (unsigned int i = 0; i < factor; ++i) {
                sum += sums[i * channels + c];
            }
            // To the nearest: cutting off would darken the picture by half a step.
            *out++ = static_cast<unsigned char>((sum + count / 2) / count);
        }
    }
}

} // namespace

void KrDownscale::average(const KrImage& large, unsigned int factor, KrImage& small)
{
    fit(small, large, factor);
    average(large.data(), std::size_t(large.width()) * large.channels(), factor, small.width(), small.height(),
            large.channels(), small.data());
}

void KrDownscale::average(const unsigned char* large, std::size_t rowBytes, unsigned int factor, unsigned int width,
                          unsigned int height, unsigned int channels, unsigned char* small)
{
    const std::size_t row = std::size_t(width) * factor * channels; // what does not make up a whole pixel is left out
    // What frames are drawn with: pictures of three channels and 4, 9 or 16 samples.
    auto* const averageRow = channels != 3 ? ::average<0, 0>
                             : factor == 2 ? ::average<2, 3>
                             : factor == 3 ? ::average<3, 3>
                             : factor == 4 ? ::average<4, 3>
                                           : ::average<0, 0>;
    static thread_local std::vector<std::uint32_t> sums; // of one row; kept, so that a series allocates nothing
    sums.resize(row);
    for (unsigned int y = 0; y < height; ++y) {
        addRows(large + std::size_t(y) * factor * rowBytes, rowBytes, row, factor, sums.data());
        averageRow(sums.data(), width, factor, channels, small + std::size_t(y) * width * channels);
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
