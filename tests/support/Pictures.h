#pragma once

#include <toolkit/image/KrImage.h>

#include <array>
#include <cstddef>

/// Mean of the three channels over the (2 r + 1)^2 pixels around (x, y), row 0 first in memory; each in [0, 255].
inline std::array<double, 3> meanColour(const KrImage& image, unsigned int x, unsigned int y, unsigned int r)
{
    std::array<double, 3> sum = {0.0, 0.0, 0.0};
    double count = 0.0;
    for (unsigned int row = y - r; row <= y + r; ++row) {
        for (unsigned int column = x - r; column <= x + r; ++column) {
            const unsigned char* pixel = image.data() + (std::size_t(row) * image.width() + column) * image.channels();
            for (unsigned int k = 0; k < 3; ++k) {
                sum[k] += pixel[k];
            }
            count += 1.0;
        }
    }
    for (double& channel : sum) {
        channel /= count;
    }
    return sum;
}

/// The pixels of an RGB image that differ from `background` in any channel.
inline std::size_t countLit(const KrImage& image, std::array<int, 3> background)
{
    std::size_t lit = 0;
    for (std::size_t i = 0; image.data() && i + 2 < image.sizeInBytes(); i += 3) {
        const unsigned char* pixel = image.data() + i;
        lit += pixel[0] != background[0] || pixel[1] != background[1] || pixel[2] != background[2] ? 1 : 0;
    }
    return lit;
}
